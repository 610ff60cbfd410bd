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
/// The forms of an address stand at Remote; port 0 asks the system for a free one, and
/// address() says which it is. A host name or address says on which of this machine's addresses to
/// listen: "0.0.0.0:PORT" and "[::]:PORT" are all of them. The file of a unix socket is made by the
/// constructor and removed by stop(); one that another process left behind is replaced, and one
/// that a process listens on is not.
///
/// The handler is called by several threads at once if there are several connections. What it
/// throws never ends the process: see TavIDL.h for a std::exception, and anything else closes the
/// connection.
///
/// All constructors throw std::invalid_argument if the address, the handler or the settings cannot
/// be used, and std::system_error if it cannot listen there.
class TAVIDL_EXPORT Server {
public:
    Server(const std::string& address, std::shared_ptr<TavBrokerIf> handler,
           const Settings& settings = Settings());
    Server(const std::string& address, std::shared_ptr<TavEmpIf> handler,
           const Settings& settings = Settings());
    Server(const std::string& address, std::shared_ptr<TavEmpEventIf> handler,
           const Settings& settings = Settings());

    /// Serves any processor, a TMultiplexedProcessor for instance.
    Server(const std::string& address, std::shared_ptr<apache::thrift::TProcessor> processor,
           const Settings& settings = Settings());

    /// Calls `serve` with each bare connection, which is closed when that returns.
    Server(const std::string& address,
           std::function<void(const std::shared_ptr<Connection>&)> serve,
           const Settings& settings = Settings());

    /// Stops.
    ~Server();

    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Where it listens, in a form that clients can connect to, with the real port.
    const std::string& address() const;

    /// Returns after SIGINT or SIGTERM, when the server has stopped. From then on the signals do
    /// what they did before; so a second one, while running calls finish, ends the process as
    /// usual. Call it once at a time in a process, from any thread.
    void runUntilSignal();

    /// Stops accepting, closes idle connections, and waits until all handlers have returned. Calls
    /// whose handler has been entered are answered if they take no longer than `stopTimeout`; then
    /// their connections are closed. No thread is left. A second call does nothing.
    ///
    /// A handler must not call this: it would wait for itself. Let it send the process a SIGTERM
    /// instead.
    void stop();

    /// Serves what has arrived up to now, and then stops as stop() does.
    void finish();

private:
    std::unique_ptr<host::Acceptor> acceptor_;
};

}  // namespace TavIDL

#endif
