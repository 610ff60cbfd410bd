#include "tls.h"

#include <thrift/transport/TTransportException.h>

#include <stdexcept>
#include <utility>

namespace TavIDL::host {

std::unique_ptr<const TlsContext> tlsFor(const Settings& settings, const Address& address,
                                         Role role) {
    if (!settings.tls.enabled) {
        return nullptr;
    }
    if (address.isUnix()) {
        throw std::invalid_argument("TLS cannot be used over " + address.text() + ": it needs TCP");
    }
    return std::make_unique<TlsContext>(settings.tls, role);
}

}  // namespace TavIDL::host

#ifdef TAVIDL_HOST_TLS
#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <climits>
#include <cstring>

namespace TavIDL::host {

using apache::thrift::transport::TTransportException;

namespace {

// OpenSSL takes any error in the thread's queue for the session's, even one left by a handler.
ssl_st* ready(const std::shared_ptr<ssl_st>& session) {
    ERR_clear_error();
    return session.get();
}

// What OpenSSL says about the last failure.
std::string reason() {
    const unsigned long error = ERR_get_error();
    ERR_clear_error();
    if (ERR_GET_LIB(error) == ERR_LIB_SYS) {
        return std::strerror(ERR_GET_REASON(error));  // OpenSSL 3 has no text for system errors
    }
    const char* text = ERR_reason_error_string(error);
    return text != nullptr ? text : "unknown reason";
}

void use(bool usable, const std::string& file) {
    if (!usable) {
        throw std::invalid_argument("TLS: cannot use '" + file + "': " + reason());
    }
}

}  // namespace

// OpenSSL calls these to read and write. Exceptions must not pass through C code, so they are kept
// in `failure_`.
struct TlsTransfer {
    template <typename Work>
    static int run(BIO* bio, Work work) {
        auto& session = *static_cast<TlsSession*>(BIO_get_data(bio));
        try {
            return static_cast<int>(work(session.bytes_));
        } catch (...) {
            session.failure_ = std::current_exception();
            return -1;
        }
    }
    static int read(BIO* bio, char* bytes, int count) {
        return run(bio, [&](TlsSession::Bytes& from) {
            return from.receive(bytes, static_cast<std::size_t>(count));
        });
    }
    static int write(BIO* bio, const char* bytes, int count) {
        return run(bio, [&](TlsSession::Bytes& to) {
            return to.send(bytes, static_cast<std::size_t>(count));
        });
    }
    static long control(BIO*, int command, long, void*) {
        return command == BIO_CTRL_FLUSH ? 1 : 0;
    }

    static const BIO_METHOD* method() {
        static BIO_METHOD* const method = [] {
            BIO_METHOD* made = BIO_meth_new(BIO_TYPE_SOURCE_SINK, "TavIDL socket");
            if (made == nullptr) {
                throw std::bad_alloc();
            }
            BIO_meth_set_read(made, read);
            BIO_meth_set_write(made, write);
            BIO_meth_set_ctrl(made, control);
            return made;
        }();
        return method;
    }
};

TlsContext::TlsContext(const Tls& settings, Role role)
    : role_(role),
      checksHost_(settings.checkHost),
      context_(SSL_CTX_new(role == Role::server ? TLS_server_method() : TLS_client_method()),
               SSL_CTX_free) {
    SSL_CTX* const context = context_.get();
    if (context == nullptr) {
        throw std::runtime_error("TLS: cannot start OpenSSL: " + reason());
    }
    SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
    // One receive per record, instead of a separate one for its header.
    SSL_CTX_set_read_ahead(context, 1);
    // A client that only writes would never read the session tickets that a server sends.
    SSL_CTX_set_num_tickets(context, 0);
    // The same for TLS 1.2, where a client that resumes a session with its certificate is refused.
    SSL_CTX_set_options(context, SSL_OP_NO_TICKET);
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);

    const bool server = role == Role::server;
    if (server && (settings.certificate.empty() || settings.key.empty())) {
        throw std::invalid_argument("TLS: a server needs a certificate and its key");
    }
    if (!settings.trusted.empty()) {
        use(SSL_CTX_load_verify_locations(context, settings.trusted.c_str(), nullptr) == 1,
            settings.trusted);
    } else if (!server) {
        SSL_CTX_set_default_verify_paths(context);
    }
    if (!settings.certificate.empty()) {
        use(SSL_CTX_use_certificate_chain_file(context, settings.certificate.c_str()) == 1,
            settings.certificate);
    }
    if (!settings.key.empty()) {
        use(SSL_CTX_use_PrivateKey_file(context, settings.key.c_str(), SSL_FILETYPE_PEM) == 1,
            settings.key);
    }
    const bool verify = !server || !settings.trusted.empty();
    SSL_CTX_set_verify(context,
                       verify ? SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT : SSL_VERIFY_NONE,
                       nullptr);
}

TlsSession::TlsSession(const TlsContext& context, Bytes& bytes, const std::string& host)
    : bytes_(bytes), session_(SSL_new(context.get()), SSL_free) {
    BIO* const bio = session_ ? BIO_new(TlsTransfer::method()) : nullptr;
    if (bio == nullptr) {
        throw std::bad_alloc();
    }
    BIO_set_data(bio, this);
    BIO_set_init(bio, 1);
    SSL_set_bio(session_.get(), bio, bio);
    if (context.role() == Role::server) {
        SSL_set_accept_state(session_.get());
        return;
    }
    SSL_set_connect_state(session_.get());
    unsigned char ignored[sizeof(in6_addr)];
    const bool isNumber = inet_pton(AF_INET, host.c_str(), ignored) == 1 ||
                          inet_pton(AF_INET6, host.c_str(), ignored) == 1;
    if (!isNumber) {
        SSL_set_tlsext_host_name(session_.get(), host.c_str());
    }
    if (context.checksHost()) {
        X509_VERIFY_PARAM* const wanted = SSL_get0_param(session_.get());
        const int set = isNumber ? X509_VERIFY_PARAM_set1_ip_asc(wanted, host.c_str())
                                 : X509_VERIFY_PARAM_set1_host(wanted, host.c_str(), 0);
        if (set != 1) {
            throw std::bad_alloc();
        }
    }
}

int TlsSession::check(int result, const char* what) {
    if (result > 0) {
        return result;
    }
    if (failure_) {
        ERR_clear_error();
        std::rethrow_exception(std::exchange(failure_, nullptr));
    }
    const int error = SSL_get_error(session_.get(), result);
    if (error == SSL_ERROR_ZERO_RETURN || error == SSL_ERROR_SYSCALL) {
        return 0;  // some peers close a connection without close_notify
    }
    // The peer has closed the connection with a reason, such as an untrusted certificate.
    const bool alert = ERR_GET_REASON(ERR_peek_error()) > SSL_AD_REASON_OFFSET;
    const long verified = SSL_get_verify_result(session_.get());
    const std::string why =
        verified != X509_V_OK ? X509_verify_cert_error_string(verified) : reason();
    ERR_clear_error();
    throw TTransportException(
        alert ? TTransportException::NOT_OPEN : TTransportException::CORRUPTED_DATA,
        std::string("TLS: ") + what + ": " + why);
}

void TlsSession::shakeHands() {
    if (check(SSL_do_handshake(ready(session_)), "handshake failed") == 0) {
        throw TTransportException(TTransportException::END_OF_FILE,
                                  "TLS: handshake failed: the connection was closed");
    }
}

std::size_t TlsSession::read(void* bytes, std::size_t count) {
    const int most = static_cast<int>(std::min<std::size_t>(count, INT_MAX));
    return static_cast<std::size_t>(check(SSL_read(ready(session_), bytes, most), "cannot read"));
}

std::size_t TlsSession::write(const void* bytes, std::size_t count) {
    const int most = static_cast<int>(std::min<std::size_t>(count, INT_MAX));
    const int sent = check(SSL_write(ready(session_), bytes, most), "cannot write");
    if (sent == 0) {
        throw TTransportException(TTransportException::END_OF_FILE,
                                  "TLS: the peer has closed the connection");
    }
    return static_cast<std::size_t>(sent);
}

void TlsSession::closeOutput() {
    SSL_shutdown(session_.get());
    ERR_clear_error();
    failure_ = nullptr;
}

}  // namespace TavIDL::host

#else

namespace TavIDL::host {

TlsContext::TlsContext(const Tls&, Role role) : role_(role), checksHost_(false) {
    throw std::invalid_argument(
        "this libTavIDLHost was built without TLS, because OpenSSL was missing");
}

TlsSession::TlsSession(const TlsContext&, Bytes& bytes, const std::string&) : bytes_(bytes) {
}
void TlsSession::shakeHands() {
}
std::size_t TlsSession::read(void*, std::size_t) {
    return 0;
}
std::size_t TlsSession::write(const void*, std::size_t) {
    return 0;
}
void TlsSession::closeOutput() {
}
int TlsSession::check(int result, const char*) {
    return result;
}

}  // namespace TavIDL::host

#endif
