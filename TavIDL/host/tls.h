#ifndef TAVIDL_HOST_TLS_H
#define TAVIDL_HOST_TLS_H

#include <TavIDL/host/Settings.h>

#include <cstddef>
#include <exception>
#include <memory>
#include <string>

#include "address.h"

// TLS over a socket's own reads and writes. libthrift's TLS sockets poll, wait for each piece of a
// message anew, and let the system send SIGPIPE.

struct ssl_ctx_st;
struct ssl_st;

namespace TavIDL::host {

// The certificates and keys of a client or server. Any number of sessions use it.
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

// Null if the settings want no TLS. Throws std::invalid_argument, for a unix socket too.
std::unique_ptr<const TlsContext> tlsFor(const Settings& settings, const Address& address,
                                         Role role);

class TlsSession {
public:
    // What carries the encrypted bytes. Returns how many it took, 0 at the end; throws what fails.
    class Bytes {
    public:
        virtual std::size_t receive(void* bytes, std::size_t count) = 0;
        virtual std::size_t send(const void* bytes, std::size_t count) = 0;

    protected:
        ~Bytes() = default;
    };

    // `host` is whom a client expects.
    TlsSession(const TlsContext& context, Bytes& bytes, const std::string& host);

    // These throw TTransportExceptions, those of `bytes` among them.
    void shakeHands();
    std::size_t read(void* bytes, std::size_t count);
    std::size_t write(const void* bytes, std::size_t count);
    void closeOutput();

private:
    friend struct TlsTransfer;
    // Returns the result of OpenSSL's function if it is good; 0 at the end of input.
    int check(int result, const char* what);

    Bytes& bytes_;
    std::exception_ptr failure_;  // of `bytes_`, on its way through OpenSSL
    std::shared_ptr<ssl_st> session_;
};

}  // namespace TavIDL::host

#endif
