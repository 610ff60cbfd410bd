#ifndef TAVIDL_HOST_CONNECTION_H
#define TAVIDL_HOST_CONNECTION_H

#include <TavIDL/export.h>
#include <TavIDL/host/Settings.h>

#include <memory>
#include <string>

namespace TavIDL {

/// A bare connection, without buffers and protocol: for programs that put these on it themselves,
/// or that speak something else. Most programs need RemoteBroker and its like, and Server.
///
/// Reads and writes throw libthrift's TTransportException: TIMED_OUT after `callTimeout` for each
/// read or write (in servers `idleTimeout` for a read, `sendTimeout` for a write). read() returns 0
/// when the peer has closed the connection. One thread may read while another one writes, but not
/// over TLS.
class TAVIDL_EXPORT Connection : public apache::thrift::transport::TTransport {
public:
    /// Connects. The forms of `address` stand at Remote.
    ///
    /// Throws std::invalid_argument if the address or the settings cannot be used, and CallFailed
    /// if no connection can be made.
    static std::shared_ptr<Connection> open(const std::string& address,
                                            const Settings& settings = Settings());

    /// Tells the peer that nothing more will be written; reading goes on.
    virtual void closeOutput() = 0;

    /// Ends the connection: both sides' reads and writes return or throw. Any thread may call it.
    /// The descriptor is released by the destructor.
    void close() override = 0;

    /// The peer's address, "127.0.0.1:40312" for instance, or "unix:PATH".
    virtual std::string peer() const = 0;
};

}  // namespace TavIDL

#endif
