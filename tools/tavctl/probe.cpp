#include <TavIDL/host/Connection.h>
#include <TavIDL/host/Remote.h>
#include <thrift/TApplicationException.h>

#include <algorithm>
#include <chrono>
#include <cmath>

#include "connection.h"
#include "message.h"
#include "print.h"
#include "verbs.h"

namespace tavctl {

using apache::thrift::TApplicationException;

namespace {

// No service has it, so calling it changes nothing anywhere.
constexpr char kNoOperation[] = "tavctl.probe";

// Calls the operation that does not exist. Returns the kind of exception that it is answered by.
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
        throw failureFrom(failed, kNoOperation, peer);
    }
    throw Failure(Exit::Broken, std::string(kNoOperation) + " at " + address +
                                    ": it answers as if there were this operation");
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

// The combination that the peer answers to, as options, or what else it seems to be.
std::string findOut(const std::string& address, Settings settings) {
    constexpr double kPatience = 1;  // for each: a peer that misreads waits for more
    settings.timeout = std::min(settings.timeout, kPatience);
    for (const std::string& transport : kTransports) {
        for (const std::string& protocol : kProtocols) {
            settings.transport = transport;
            settings.protocol = protocol;
            try {
                ask(address, settings);
                return "it seems to speak " + protocol + " over " + transport +
                       ", try --protocol " + protocol + " --transport " + transport;
            } catch (const Failure&) {
                // Not this one.
            }
        }
    }
    if (settings.tls) {
        return "it speaks no protocol that is known here, or wants a certificate, see --cert and "
               "--key";
    }
    // It may speak first, as some do, or answer to what others ask.
    const std::string tlsGreeting = fromHex(
        "160301002f0100002b0303000000000000000000000000000000000000000000000000000000000000000000"
        "0004130100ff0100");
    for (const std::string& question : {tlsGreeting, std::string("GET / HTTP/1.0\r\n\r\n")}) {
        const std::string known = answerTo(question, address, settings);
        if (!known.empty()) {
            return "it seems to speak " + known + (known == "TLS" ? ", try --tls" : "");
        }
    }
    return "it speaks no protocol that is known here";
}

struct Options {
    Settings settings;
    std::string address;
};

int probe(const Options& options) {
    const auto& [settings, address] = options;
    const auto begin = std::chrono::steady_clock::now();
    std::string kind;
    try {
        kind = ask(address, settings);
    } catch (const Failure& failure) {
        if (failure.status == Exit::NoConnection || failure.status == Exit::Usage) {
            throw;
        }
        throw Failure(failure.status, failure.what(), findOut(address, settings));
    }
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
    const double ms = std::round(took.count() * 10) / 10;
    show({{"address", address},
          {"alive", true},
          {"protocol", settings.protocol},
          {"transport", settings.transport},
          {"answer", kind},
          {"ms", ms}},
         tinted(Tint::Good, "alive") + ": " + address + " speaks " + settings.protocol + " over " +
             settings.transport + ", answered " + kind + " in " + Json(ms).dump() + " ms\n");
    return 0;
}

}  // namespace

void addProbe(CLI::App& app, Run& run) {
    const auto [verb, options] =
        addVerb(app, run, probe, "probe", "See whether a service lives, without side effects",
                "tavctl probe 127.0.0.1:9090");
    addOption(verb, "address", options->address, "ADDRESS", "Where it serves")->required();
    addClientOptions(verb, options->settings);
}

}  // namespace tavctl
