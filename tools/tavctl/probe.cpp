#include <TavIDL/host/Connection.h>
#include <TavIDL/host/Remote.h>
#include <thrift/TApplicationException.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>

#include "encoder.h"
#include "message.h"
#include "print.h"
#include "verbs.h"

namespace tavctl {

using apache::thrift::TApplicationException;
using Clock = std::chrono::steady_clock;

namespace {

// No service has it, so calling it changes nothing anywhere.
constexpr char kNoOperation[] = "tavctl.probe";

Failure hanging(const std::string& address, const std::string& whatToCheck) {
    return {
        Exit::TimedOut,
        address + " accepts connections but does not answer: it hangs, or all its threads are busy",
        "if it answers others, check " + whatToCheck};
}

// Whether the peer accepts a connection. Sends nothing.
bool accepts(const std::string& address, Settings settings) {
    settings.tls = false;
    try {
        (void)TavIDL::Connection::open(address, clientSettings(settings));
        return true;
    } catch (const TavIDL::CallFailed&) {
        return false;
    }
}

// Calls the operation that does not exist. Returns the kind of exception that the peer answers.
std::string ask(const std::string& address, const Settings& settings) {
    TavIDL::RemoteEmp peer(address, clientSettings(settings, [](std::string& operation) {
                               operation = kNoOperation;
                           }));
    try {
        peer.Close(0);  // as far as Host knows
    } catch (const TApplicationException& answer) {
        if (peerRefused()) {
            return kindOf(answer.getType());
        }
    } catch (const TavIDL::CallFailed& failed) {
        if (failed.reason() == TavIDL::CallFailed::NoAnswerInTime) {
            throw hanging(address, "--protocol and --transport");
        }
        const bool late = std::strstr(failed.what(), "the time-out has expired") != nullptr;
        if (settings.tls && late && accepts(address, settings)) {
            throw hanging(address, "that it speaks TLS there");
        }
        throw failureFrom(failed, kNoOperation, peer);
    }
    throw Failure(Exit::Broken, std::string(kNoOperation) + " at " + address +
                                    ": it answers as if there were this operation");
}

// The bytes of the same call.
std::string questionIn(const Settings& settings) {
    return encoded(
        {{"operation", kNoOperation}, {"type", "call"}, {"seqid", 0}, {"fields", Json::array()}},
        settings, kNoOperation);
}

// What the peer's answer to these bytes looks like, if it looks like anything known.
std::string answerTo(const std::string& question, const std::string& address,
                     const Settings& settings) {
    try {
        const auto connection = TavIDL::Connection::open(address, clientSettings(settings));
        connection->write(reinterpret_cast<const uint8_t*>(question.data()),
                          static_cast<uint32_t>(question.size()));
        uint8_t bytes[16];
        const uint32_t count = connection->read(bytes, sizeof bytes);
        return guess({reinterpret_cast<const char*>(bytes), count});
    } catch (const apache::thrift::TException&) {
        return "";
    }
}

// The questions that are asked after a connection was closed without an answer.
//
// Some peers read the first bytes as a length, and make room for so many at once. So a question
// begins with a byte over 127, which no one takes for a length, or with a frame of a few bytes.
// Text begins with letters, and those are a length of more than a gigabyte: it is sent only if the
// user wants that.
std::vector<std::string> questions(const ProbeOptions& options) {
    std::vector<std::string> all = {questionIn(options.settings)};
    const auto add = [&](const std::string& protocol) {
        for (const std::string& transport : kTransports) {
            Settings settings = options.settings;
            settings.protocol = protocol;
            settings.transport = transport;
            if (questionIn(settings) != all.front()) {
                all.push_back(questionIn(settings));
            }
        }
    };
    add("binary");
    add("compact");
    if (options.tryText) {
        add("json");
        all.emplace_back("GET / HTTP/1.0\r\n\r\n");
    }
    return all;
}

// What the peer speaks, as options, or what else it seems to be.
std::string findOut(const std::string& address, ProbeOptions options, Clock::time_point end) {
    constexpr double kPatience = 1;  // for each: a peer that misreads a question waits for more
    for (const std::string& question : questions(options)) {
        const std::chrono::duration<double> left = end - Clock::now();
        options.settings.timeout = std::min(left.count(), kPatience);
        options.settings.connectTimeout = options.settings.timeout;
        if (left.count() < 0.001) {
            break;
        }
        const std::string known = answerTo(question, address, options.settings);
        const auto over = known.find(" over ");
        const Settings& tried = options.settings;
        if (over != std::string::npos && known != tried.protocol + " over " + tried.transport) {
            return "it seems to speak " + known + ", try --protocol " + known.substr(0, over) +
                   " --transport " + known.substr(over + 6);
        }
        if (!known.empty()) {
            return "it seems to speak " + known + (known == "TLS" ? ", try --tls" : "");
        }
    }
    return std::string("it speaks no protocol that was tried; it may ") +
           (options.settings.tls ? "ask for a certificate (--cert and --key)" : "use TLS (--tls)") +
           (options.tryText ? "" : ", or speak JSON or HTTP (see --try-text)");
}

}  // namespace

int probe(const ProbeOptions& options) {
    const auto& settings = options.settings;
    std::vector<std::string> words = options.words;
    if (words.size() > 1) {
        throw Failure(Exit::Usage, "probe takes one ADDRESS, not also '" + words[1] + "'");
    }
    const std::string address = takeAddress(words, !words.empty());
    const auto begin = Clock::now();
    std::string kind;
    try {
        kind = ask(address, settings);
    } catch (const Failure& failure) {
        // A peer that is silent may only be busy, and read later what it is sent now.
        if (failure.status != Exit::Broken &&
            !(failure.status == Exit::TimedOut && options.tryText)) {
            throw;
        }
        const std::chrono::duration<double> limit(settings.timeout);
        throw Failure(failure.status, failure.what(),
                      findOut(address, options,
                              (failure.status == Exit::TimedOut ? Clock::now() : begin) +
                                  std::chrono::duration_cast<Clock::duration>(limit)));
    }
    const std::chrono::duration<double, std::milli> took = Clock::now() - begin;
    const double ms = std::round(took.count() * 10) / 10;
    show({{"address", address},
          {"alive", true},
          {"protocol", settings.protocol},
          {"transport", settings.transport},
          {"answer", kind},
          {"ms", ms}},
         tinted(Tint::Good, "alive") + ": " + address + " speaks " + settings.protocol + " over " +
             settings.transport + (settings.tls ? " over TLS" : "") + ", answered " + kind +
             " in " + Json(ms).dump() + " ms\n");
    return 0;
}

}  // namespace tavctl
