#ifndef TAVCTL_CONNECTION_H
#define TAVCTL_CONNECTION_H

#include <TavIDL/host/Settings.h>

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "failure.h"

namespace TavIDL {
class Remote;
}

namespace tavctl {

// What the options say about connections, as Host takes it; and what Host throws, as this program
// reports it.

using apache::thrift::transport::TTransport;

// No message is longer. libthrift makes room for a string before the first of its bytes is there.
constexpr int kMessageLimit = 16 << 20;

// No record of these services holds a container: what has to be skipped need not be longer.
constexpr int kContainerLimit = 10000;

// Structures in structures. libthrift's own limit for what it skips.
constexpr int kDepthLimit = 64;

const std::vector<std::string> kProtocols = {"binary", "compact", "json"};
const std::vector<std::string> kTransports = {"buffered", "framed"};

// As long as the program runs. (Host accepts no longer time.)
constexpr std::chrono::milliseconds kNoLimit = std::chrono::hours(24 * 365);

struct Settings {
    std::string protocol = "binary";
    std::string transport = "buffered";
    bool tls = false;
    std::string ca;
    std::string cert;
    std::string key;
    double connectTimeout = 5;  // seconds
    double timeout = 10;

    bool framed() const { return transport == "framed"; }
};

// The protocol of the settings, with its limits, over a transport that limits a message.
TavIDL::ProtocolPointer protocolOver(const Settings& settings,
                                     std::shared_ptr<TTransport> transport);

// Gets the name of each operation that is about to be called, and may change it or throw.
using BeforeCall = std::function<void(std::string&)>;

// These throw a Failure if files are missing for TLS.
TavIDL::Settings clientSettings(const Settings& settings, BeforeCall beforeCall = BeforeCall());
TavIDL::Settings serverSettings(const Settings& settings);

// Whether the TApplicationException that a call of this thread's has just thrown is the peer's
// answer. Clients throw the same for a reply that they cannot use.
bool peerRefused();

// What Host throws when it connects bare connections, listens, or gets what it cannot use.
Failure failureFrom(const std::exception& thrown);

// What a call throws.
Failure failureFrom(const std::exception& thrown, const std::string& operation,
                    const TavIDL::Remote& peer);

// The name of an application exception's kind.
std::string kindOf(int type);

}  // namespace tavctl

#endif
