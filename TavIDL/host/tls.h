#ifndef TAVIDL_HOST_TLS_H
#define TAVIDL_HOST_TLS_H

#include <TavIDL/host/Settings.h>

#include <cstddef>
#include <exception>
#include <memory>
#include <string>

#include "address.h"

// TLS over a socket's reads and writes. Why not libthrift's TLS sockets: they poll, restart their
// time-out at each piece of a message, and let the system send SIGPIPE.

struct ssl_ctx_st;
struct ssl_st;

namespace TavIDL::host {

// The certificates and keys of a client or server, shared by its sessions.
class TlsContext {
public:
    // Throws std::invalid_argument if a file cannot be used, or if Host was built without TLS.
    TlsContext(const Tls& settings, Role role);

    bool checksHost() const { return checksHost_; }
    Role role() const { return role_; }
    ssl_ctx_st* get() const { return context_.get(); }

private:
    Role role_;
    bool checksHost_;
    std::shared_ptr<ssl_ctx_st> context_;
};

// Null without TLS in the settings. Throws std::invalid_argument, also for a unix socket.
std::unique_ptr<const TlsContext> tlsFor(const Settings& settings, const Address& address,
                                         Role role);

class TlsSession {
public:
    // Carries the encrypted bytes. Both return the number of bytes, 0 at the end, and throw
    // failures.
    class Bytes {
    public:
        virtual std::size_t receive(void* bytes, std::size_t count) = 0;
        virtual std::size_t send(const void* bytes, std::size_t count) = 0;

    protected:
        ~Bytes() = default;
    };

    // `host` is the server that a client expects.
    TlsSession(const TlsContext& context, Bytes& bytes, const std::string& host);

    // These throw TTransportExceptions, including those of `bytes`.
    void shakeHands();
    std::size_t read(void* bytes, std::size_t count);
    std::size_t write(const void* bytes, std::size_t count);
    void closeOutput();

private:
    friend struct TlsTransfer;
    // Returns the result of OpenSSL's function if it succeeded, 0 at the end of input.
    int check(int result, const char* what);

    Bytes& bytes_;
    std::exception_ptr failure_;  // from `bytes_`, while OpenSSL returns
    std::shared_ptr<ssl_st> session_;
};

}  // namespace TavIDL::host

#endif
