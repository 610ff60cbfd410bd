#include <TavIDL/host/Batch.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <future>
#include <iostream>
#include <mutex>
#include <optional>

#include "connection.h"
#include "print.h"
#include "stop.h"
#include "typed.h"
#include "verbs.h"

namespace tavctl {
namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

// The outcome of any number of calls, in a fixed amount of memory.
struct Figures {
    static constexpr int kFine = 64;  // counters for each doubling of a time: 1.1 % apart

    std::mutex mutex;
    std::array<uint64_t, std::size_t{kFine} * 50> counters{};  // from 1 ns to 13 days
    uint64_t calls = 0;
    double max = 0;
    uint64_t failures = 0;
    std::optional<Failure> first;

    void add(Milliseconds time, uint64_t count) {
        const double place = kFine * std::log2(std::max(time.count() * 1e6, 1.0));
        counters[std::min(static_cast<std::size_t>(place), counters.size() - 1)] += count;
        calls += count;
        max = std::max(max, time.count());
    }

    // The time in ms that this share of the calls did not exceed.
    double percentile(double share) const {
        std::size_t i = 0;
        for (auto left = static_cast<double>(calls) * share; left > 0;) {
            left -= static_cast<double>(counters[i++]);
        }
        return std::min(std::exp2(static_cast<double>(i) / kFine) / 1e6, max);
    }
};

// Calls until `end`, or until the peer is gone, but at least once.
void callUntil(Clock::time_point end, const Operation& operation, const Json& arguments,
               TavIDL::Remote& peer, std::size_t batchSize, Figures& figures) {
    const auto batch = batchOf(operation.service, peer);
    std::vector<Reply> replies(batchSize);
    bool connected = true;
    do {
        const auto begin = Clock::now();
        std::generate(replies.begin(), replies.end(),
                      [&] { return addTo(*batch, operation, arguments); });
        try {
            batch->run();
        } catch (const TavIDL::CallFailed&) {
            if (operation.result.kind == Kind::Nothing) {  // otherwise each reply throws
                replies.assign(batchSize, [thrown = std::current_exception()]() -> Json {
                    std::rethrow_exception(thrown);
                });
            }
        }
        const Milliseconds time = Clock::now() - begin;
        const std::lock_guard<std::mutex> lock(figures.mutex);
        for (const Reply& reply : replies) {
            try {
                (void)reply();
                figures.add(time, 1);
            } catch (const apache::thrift::TException& thrown) {
                const Failure failure = failureFrom(thrown, operation.fullName(), peer);
                connected = failure.status != Exit::NoConnection;
                if (!stop::requested()) {  // otherwise it may have been cancelled
                    ++figures.failures;
                    figures.first = figures.first ? figures.first : failure;
                }
            }
        }
    } while (connected && !stop::requested() && Clock::now() < end);
}

}  // namespace

int bench(const BenchOptions& options) {
    auto words = options.words;
    const std::string address = takeAddress(words);
    const Operation& operation = operationNamed(words[0]);
    Json arguments = argumentsFrom(operation, {words.begin() + 1, words.end()});
    options.credential.addTo(operation, arguments);
    std::vector<std::unique_ptr<TavIDL::Remote>> peers(options.connections);
    for (auto& peer : peers) {
        peer = remoteOf(operation.service, address, clientSettings(options.settings));
    }

    stop::watch();
    Figures figures;
    std::vector<std::future<void>> threads;
    const auto begin = Clock::now();
    const auto end = begin + std::chrono::milliseconds(std::llround(options.seconds * 1000));
    for (const auto& peer : peers) {
        threads.push_back(std::async(std::launch::async, [&] {
            callUntil(end, operation, arguments, *peer, options.batch, figures);
        }));
    }
    const bool progress = isatty(STDERR_FILENO) != 0 && !output.quiet;
    for (auto& thread : threads) {
        while (thread.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready) {
            for (const auto& peer : peers) {
                if (stop::requested()) {
                    peer->cancel();
                }
            }
            if (progress) {
                const std::lock_guard<std::mutex> lock(figures.mutex);
                std::cerr << '\r' << figures.calls << " calls" << std::flush;
            }
        }
        thread.get();
    }
    std::cerr << (progress ? "\r\033[K" : "");

    const double seconds = Milliseconds(Clock::now() - begin).count() / 1000;
    const auto number = [&](double value) {
        return figures.calls == 0 ? Json() : Json(std::round(value * 1000) / 1000);
    };
    const Json result = {{"calls", figures.calls},
                         {"failures", figures.failures},
                         {"seconds", std::round(seconds * 1000) / 1000},
                         {"callsPerSecond", number(static_cast<double>(figures.calls) / seconds)},
                         {"p50", number(figures.percentile(0.5))},
                         {"p99", number(figures.percentile(0.99))},
                         {"max", number(figures.max)}};
    const auto at = [&](const char* key) { return shown(result[key]); };
    const std::string speed = ": " + at("callsPerSecond") + " per second\np50 " + at("p50") +
                              " ms, p99 " + at("p99") + " ms, maximum " + at("max") + " ms";
    show(result, at("calls") + " calls in " + at("seconds") + " s" +
                     (figures.calls == 0 ? "" : speed) + "\n" + at("failures") +
                     (figures.failures == 1 ? " failure\n" : " failures\n"));
    if (figures.first) {
        throw Failure(
            figures.first->status,
            std::to_string(figures.failures) + " failed, the first: " + figures.first->what(),
            figures.first->hint);
    }
    return 0;
}

}  // namespace tavctl
