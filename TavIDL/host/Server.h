#ifndef TAVIDL_HOST_SERVER_H
#define TAVIDL_HOST_SERVER_H

#include <TavIDL/TavIDL.h>
#include <TavIDL/export.h>
#include <TavIDL/host/Connection.h>
#include <TavIDL/host/Settings.h>
#include <thrift/TProcessor.h>

#include <functional>
#include <memory>
#include <string>

namespace TavIDL {

namespace host {
class Acceptor;
}

/// Serves a handler on an address, in threads of its own: one that accepts connections, and one for
/// each connection. It is ready when its constructor returns.
///
/// Remote describes the forms of an address. For port 0 the system chooses a free port, which
/// address() returns. The host says on which of this machine's addresses to listen: "0.0.0.0:PORT"
/// and "[::]:PORT" mean all of them. The constructor creates the file of a unix socket, and stop()
/// removes it. A file left by another process is replaced, unless a process still listens on it.
///
/// The handler must be thread-safe: each connection's thread calls it. Exceptions from the handler
/// never end the process: TavIDL.h describes what happens after a std::exception; any other closes
/// the connection.
///
/// All constructors throw std::invalid_argument if the address, the handler or the settings cannot
/// be used, and std::system_error if the server cannot listen on the address.
class TAVIDL_EXPORT Server {
public:
    Server(const std::string& address, std::shared_ptr<TavBrokerIf> handler,
           const Settings& settings = Settings());
    Server(const std::string& address, std::shared_ptr<TavEmpIf> handler,
           const Settings& settings = Settings());
    Server(const std::string& address, std::shared_ptr<TavEmpEventIf> handler,
           const Settings& settings = Settings());

    /// Serves any processor, for example a TMultiplexedProcessor.
    Server(const std::string& address, std::shared_ptr<apache::thrift::TProcessor> processor,
           const Settings& settings = Settings());

    /// Calls `serve` with each plain connection, and closes the connection when `serve` returns.
    /// To stop() and finish(), each connection is a running call.
    Server(const std::string& address,
           std::function<void(const std::shared_ptr<Connection>&)> serve,
           const Settings& settings = Settings());

    /// Stops.
    ~Server();

    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// The address on which the server listens, with the actual port. Clients can connect to it.
    const std::string& address() const;

    /// Waits for SIGINT or SIGTERM, stops the server and returns. After the first signal both have
    /// their previous effect, so a second one ends the process as usual while running calls finish.
    /// Any thread may call this, but only one in a process at a time.
    ///
    /// Throws std::system_error, and has done nothing, if the process has no free descriptor to
    /// wait with.
    void runUntilSignal();

    /// Stops accepting, closes idle connections, and waits until all handlers have returned.
    /// Running calls are answered if they take no longer than `stopTimeout`; then their connections
    /// are closed. All threads of the server have ended. A second call does nothing.
    ///
    /// A handler must not call this, because it would wait for itself. It can send the process a
    /// SIGTERM instead.
    void stop();

    /// Serves the requests that have arrived, for up to `stopTimeout`, and then stops as stop()
    /// does. Connections that wait because `maxClients` others are open are closed.
    void finish();

private:
    std::unique_ptr<host::Acceptor> acceptor_;
};

}  // namespace TavIDL

#endif
