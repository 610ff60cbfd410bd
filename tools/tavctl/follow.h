#ifndef TAVCTL_FOLLOW_H
#define TAVCTL_FOLLOW_H

#include <TavIDL/host/Server.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "values.h"

namespace tavctl {

// Directs the clients of a broker to its own relays instead of to the EMPs that the broker opens,
// and the EMPs' events to relays, too.
class Follow {
public:
    // Serves a connection that is meant for `target`.
    using Serve = std::function<void(const std::shared_ptr<TavIDL::Connection>& connection,
                                     const std::string& target)>;

    // The relays for clients listen on the host of `listen`.
    Follow(const std::string& listen, const std::string& broker, TavIDL::Settings settings,
           Serve serve);

    // The message with other ports: those of relays for the client at this address, or the actual
    // ones for the broker. Other messages are returned unchanged.
    Json rewritten(Json message, bool fromClient, const std::string& client);

private:
    struct Relay {
        int32_t port;        // what the client knows
        std::string target;  // where connections go
        std::unique_ptr<TavIDL::Server> server;
    };
    using Relays = std::map<int32_t, Relay>;  // by the port that the broker knows

    int32_t followEmp(int32_t port);
    int32_t followEvents(int32_t port, const std::string& client);
    void relay(Relay& relay, const std::string& address);

    const std::string listenHost_;
    const std::string brokerHost_;
    const TavIDL::Settings settings_;
    const Serve serve_;
    std::mutex mutex_;  // guards what follows. Relays are kept: clients may come back.
    Relays emps_;
    Relays callbacks_;
};

}  // namespace tavctl

#endif
