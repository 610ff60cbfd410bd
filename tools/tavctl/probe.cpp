#include <sys/socket.h>
#include <thrift/TApplicationException.h>

#include <algorithm>
#include <chrono>
#include <cmath>

#include "failure.h"
#include "message.h"
#include "print.h"
#include "verbs.h"

using apache::thrift::TApplicationException;

namespace {

// No service has it, so calling it changes nothing anywhere.
constexpr char kNoOperation[] = "tavctl.probe";

// Calls the operation that does not exist. Returns the kind of exception that it is answered by.
std::string probe(const Address& address, const Settings& settings) {
    std::string kind;
    Connection connection(address, settings);
    connection.exchange(kNoOperation, [&](TavIDL::ProtocolPointer protocol) {
        protocol->writeMessageBegin(kNoOperation, apache::thrift::protocol::T_CALL, 0);
        protocol->writeStructBegin("");
        protocol->writeFieldStop();
        protocol->writeStructEnd();
        protocol->writeMessageEnd();
        protocol->getTransport()->flush();

        std::string name;
        apache::thrift::protocol::TMessageType type{};
        int32_t seqid = 0;
        protocol->readMessageBegin(name, type, seqid);
        TApplicationException answer;
        answer.read(protocol.get());
        protocol->readMessageEnd();
        if (type != apache::thrift::protocol::T_EXCEPTION) {
            throw apache::thrift::TException("it answers as if there were this operation");
        }
        kind = kindOf(answer.getType());
    });
    return kind;
}

// The combination that the peer answers to, as options, or what else it seems to be.
std::string findOut(const Address& address, Settings settings) {
    constexpr double kPatience = 1;  // for each: a peer that misreads waits for more
    settings.timeout = std::min(settings.timeout, kPatience);
    for (const std::string& transport : kTransports) {
        for (const std::string& protocol : kProtocols) {
            settings.transport = transport;
            settings.protocol = protocol;
            try {
                probe(address, settings);
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
    try {
        if (speaksTls(address, settings)) {
            return "it seems to speak TLS, try --tls";
        }
        const auto socket = connectSocket(address, settings);
        socket->setRecvTimeout(static_cast<int>(kPatience * 1000));
        const std::string question = "GET / HTTP/1.0\r\n\r\n";
        socket->write(reinterpret_cast<const uint8_t*>(question.data()),
                      static_cast<uint32_t>(question.size()));
        uint8_t bytes[16];
        const uint32_t count = socket->read(bytes, sizeof bytes);
        const std::string known = guess({reinterpret_cast<const char*>(bytes), count});
        if (!known.empty()) {
            return "it seems to speak " + known;
        }
    } catch (const std::exception&) {
        // Nothing more to be learned.
    }
    return "it speaks no protocol that is known here";
}

}  // namespace

void addProbe(CLI::App& app, Run& run) {
    struct Options {
        Settings settings;
        std::string address;
    };
    auto options = std::make_shared<Options>();
    CLI::App* verb = addVerb(app, "probe", "See whether a service lives, without side effects",
                             "tavctl probe 127.0.0.1:9090");
    verb->add_option("address", options->address, "Where it serves")
        ->required()
        ->option_text("ADDRESS");
    addClientOptions(verb, options->settings);
    verb->callback([options, &run] {
        run = [options] {
            const Address address = addressFrom(options->address);
            const auto begin = std::chrono::steady_clock::now();
            std::string kind;
            try {
                kind = probe(address, options->settings);
            } catch (const Failure& failure) {
                if (failure.status == Exit::NoConnection || failure.status == Exit::Usage) {
                    throw;
                }
                throw Failure(failure.status, failure.what(), findOut(address, options->settings));
            }
            const std::chrono::duration<double, std::milli> took =
                std::chrono::steady_clock::now() - begin;
            const double ms = std::round(took.count() * 10) / 10;
            if (output.json) {
                printJson({{"address", address.text()},
                           {"alive", true},
                           {"protocol", options->settings.protocol},
                           {"transport", options->settings.transport},
                           {"answer", kind},
                           {"ms", ms}});
            } else {
                print(tinted(Tint::Good, "alive") + ": " + address.text() + " speaks " +
                      options->settings.protocol + " over " + options->settings.transport +
                      ", answered " + kind + " in " + Json(ms).dump() + " ms\n");
            }
            return 0;
        };
    });
}
