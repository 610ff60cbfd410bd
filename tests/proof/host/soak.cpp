// Very many calls: over sockets, with servers that restart, handlers that end connections, peers
// that reset them, callers that do not wait long and calls that are cancelled; and in memory, 100
// times as many. Nothing may grow, no call may be lost without a failure, and none may be executed
// twice.
//
// --runs=N: that many calls over sockets.

#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TBufferTransports.h>

#include <atomic>
#include <condition_variable>
#include <iostream>
#include <mutex>
#include <optional>
#include <random>
#include <thread>
#include <vector>

#include "../../host/Caller.h"
#include "../Report.h"
#include "Load.h"

using namespace proof;
using apache::thrift::protocol::TBinaryProtocol;
using apache::thrift::transport::TMemoryBuffer;
using TavIDL::CallFailed;
using TavIDL::RemoteEmp;
using TavIDL::Settings;

namespace {

constexpr uint64_t kCallsInCi = 50000;
constexpr uint64_t kInMemory = 100;
constexpr int kLaps = 10;
constexpr int kThreads = 4;

std::string optionsFor(const Report& report, uint64_t calls) {
    return "--seed=" + std::to_string(report.seed()) + "' '--runs=" + std::to_string(calls);
}

// Whether it is this call's turn for something that happens once in `often` calls.
bool isTurnOf(const std::string& number, uint64_t seed, uint64_t often) {
    std::minstd_rand random(static_cast<unsigned>(std::stoul(number) + seed * 7919));
    return random() % often == 0;
}

struct Lap {
    Lap(uint64_t wanted, uint64_t number)
        : ledger(static_cast<std::size_t>(wanted + 100)), calls(wanted), seed(number) {}

    // Waits until that many calls were made. Returns false if no caller is left.
    bool waitForCalls(uint64_t count) {
        std::unique_lock<std::mutex> lock(mutex_);
        awaited_ = count;
        advanced_.wait(lock, [this] { return callers_ == 0 || ledger.issued() >= awaited_; });
        return callers_ > 0;
    }
    void callEnded() {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (ledger.issued() >= awaited_) {
            advanced_.notify_one();
        }
    }
    void callerEnded() {
        const std::lock_guard<std::mutex> lock(mutex_);
        --callers_;
        advanced_.notify_one();
    }

    Ledger ledger;
    const uint64_t calls;
    const uint64_t seed;
    std::atomic<uint64_t> failures{0};

private:
    std::mutex mutex_;  // for all members below
    std::condition_variable advanced_;
    uint64_t awaited_ = 0;
    int callers_ = kThreads;
};

Settings settingsFor(const Lap& lap) {
    Settings settings;
    settings.stackSize = 128 << 10;
    settings.framed = lap.seed % 2 == 0;
    settings.protocol = lap.seed % 3 == 0 ? Settings::Compact : Settings::Binary;
    return settings;
}

void makeCalls(Lap& lap, RemoteEmp& patient, RemoteEmp& hurried, unsigned seed) {
    std::mt19937 random(seed);
    while (lap.ledger.issued() < lap.calls) {
        RemoteEmp& emp = random() % 20 == 0 ? hurried : patient;
        try {
            if (random() % 50 == 0) {
                lap.ledger.batch(emp, 5);
            } else {
                lap.ledger.call(emp);
            }
        } catch (const CallFailed&) {
            ++lap.failures;
        }
        lap.callEnded();
    }
    lap.callerEnded();
}

// Sends a part of a request, and resets the connection.
void interrupt(const std::string& address, const std::string& request, std::mt19937& random) {
    try {
        Caller caller(address);
        caller.send(request.substr(0, random() % request.size()));
        caller.reset();
    } catch (const std::runtime_error&) {
        // The queue of the server is full.
    }
}

void disturb(Lap& lap, RestartingServer* restarting, const std::string& address, RemoteEmp& emp) {
    std::mt19937 random(static_cast<unsigned>(lap.seed));
    const std::string request = requestFor("read", "none", settingsFor(lap));
    while (lap.waitForCalls(lap.ledger.issued() + random() % 500)) {
        if (restarting != nullptr && random() % 4 == 0) {
            restarting->restart();
        } else if (random() % 2 == 0) {
            emp.cancel();
        } else {
            interrupt(address, request, random);
        }
    }
}

// Returns what was wrong.
std::string runLap(Lap& lap) {
    const Directory directory;
    const Settings settings = settingsFor(lap);
    const auto handler = std::make_shared<Emp>([&](const std::string&, const std::string& number) {
        std::string result = lap.ledger.execute(number);
        if (isTurnOf(number, lap.seed, 200)) {
            throw 7;  // ends the connection
        }
        return result;
    });
    std::optional<RestartingServer> restarting;
    std::optional<TavIDL::Server> steady;
    std::string address;
    if (lap.seed % 2 == 0) {
        restarting.emplace(directory.socket(), handler, settings);
        address = restarting->address();
    } else {
        steady.emplace("127.0.0.1:0", handler, settings);
        address = steady->address();
    }
    Settings hurry = settings;
    hurry.callTimeout = std::chrono::milliseconds(1);
    {
        RemoteEmp patient(address, settings);
        RemoteEmp hurried(address, hurry);
        std::vector<std::thread> threads;
        for (unsigned i = 0; i < kThreads; ++i) {
            threads.emplace_back([&, i] {
                makeCalls(lap, patient, hurried, static_cast<unsigned>(lap.seed * kThreads + i));
            });
        }
        disturb(lap, restarting ? &*restarting : nullptr, address, patient);
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    restarting.reset();
    steady.reset();  // what callers did not wait for has ended
    return lap.ledger.problem(false);
}

void overSockets(Report& report, uint64_t calls) {
    std::optional<Usage> before;
    uint64_t failures = 0;
    for (uint64_t i = 0; i < kLaps; ++i) {
        Lap lap(calls / kLaps, report.seed() * kLaps + i);
        const std::string problem = runLap(lap);
        failures += lap.failures;
        for (uint64_t run = 0; run < lap.ledger.issued(); ++run) {
            report.countRun();
        }
        if (!problem.empty()) {
            report.fail(optionsFor(report, calls), "over sockets: " + problem);
        }
        if (i == 1) {  // after a lap of each kind
            before.emplace();
        }
    }
    const std::string grown = growth(*before);
    std::cout << "over sockets: " << calls << " calls, " << failures << " failed\n";
    if (!grown.empty()) {
        report.fail(optionsFor(report, calls), "over sockets, it grows: " + grown);
    }
    if (failures == 0 || failures > calls / 2) {
        report.fail(optionsFor(report, calls), "over sockets, none or most of the calls failed");
    }
}

// A client, a processor and what is between them.
class InMemory {
public:
    std::string call(const std::string& number) {
        client_.send_Execute(7, "read", number, "", "", "");
        processor_.process(requests_, replies_, nullptr);
        std::string result;
        client_.recv_Execute(result);
        there_->resetBuffer();
        back_->resetBuffer();
        return result;
    }
    uint64_t executions() const { return executions_; }

private:
    std::shared_ptr<TMemoryBuffer> there_ = std::make_shared<TMemoryBuffer>();
    std::shared_ptr<TMemoryBuffer> back_ = std::make_shared<TMemoryBuffer>();
    TavIDL::ProtocolPointer requests_ = std::make_shared<TBinaryProtocol>(there_);
    TavIDL::ProtocolPointer replies_ = std::make_shared<TBinaryProtocol>(back_);
    uint64_t executions_ = 0;
    TavEmpProcessor processor_{
        std::make_shared<Emp>([this](const std::string&, const std::string& number) {
            ++executions_;
            return number;
        })};
    TavEmpClient client_{replies_, requests_};
};

void inMemory(Report& report, uint64_t calls) {
    InMemory both;
    std::optional<Usage> before;
    for (uint64_t number = 0; number < calls; ++number) {
        const std::string text = std::to_string(number);
        if (both.call(text) != text || both.executions() != number + 1) {
            report.fail(optionsFor(report, calls / kInMemory), "in memory: call " + text);
        }
        report.countRun();
        if (number == calls / kLaps) {
            before.emplace();
        }
    }
    const std::string grown = growth(*before);
    if (!grown.empty()) {
        report.fail(optionsFor(report, calls / kInMemory), "in memory, it grows: " + grown);
    }
}

void prove(Report& report) {
    const uint64_t calls = report.wantedRuns() > 0 ? report.wantedRuns() : kCallsInCi;
    std::cout << "seed " << report.seed() << '\n';
    inMemory(report, calls * kInMemory);
    overSockets(report, calls);
}

}  // namespace

int main(int argc, char** argv) {
    return proof::run(argc, argv, prove);
}
