#ifndef TAVIDL_HOST_CONNECTION_H
#define TAVIDL_HOST_CONNECTION_H

#include <TavIDL/export.h>
#include <TavIDL/host/Settings.h>

#include <memory>
#include <string>

namespace TavIDL {

/// A plain connection, without buffers and protocol, for programs that add their own or that do not
/// use Thrift on it. Most programs need RemoteBroker, RemoteEmp, RemoteCallback and Server instead.
///
/// Reads and writes throw libthrift's TTransportException, of kind TIMED_OUT after `callTimeout`
/// for each read or write (in servers: `idleTimeout` for a read, `sendTimeout` for a write). read()
/// returns 0 when the peer has closed the connection. One thread may read while another one writes,
/// but not over TLS.
class TAVIDL_EXPORT Connection : public apache::thrift::transport::TTransport {
public:
    /// Connects. Remote describes the forms of `address`.
    ///
    /// Throws std::invalid_argument if the address or the settings cannot be used, and CallFailed
    /// if no connection can be made.
    static std::shared_ptr<Connection> open(const std::string& address,
                                            const Settings& settings = Settings());

    /// Tells the peer that nothing more will be written. Reading is still possible.
    virtual void closeOutput() = 0;

    /// Ends the connection: both sides' reads and writes return or throw. Any thread may call it.
    /// The descriptor is released by the destructor.
    void close() override = 0;

    /// The peer's address, for example "127.0.0.1:40312", or "unix: process 1234": over a unix
    /// socket, the system knows the peer's process.
    virtual std::string peer() const = 0;
};

}  // namespace TavIDL

#endif
