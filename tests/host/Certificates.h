#ifndef TESTS_HOST_CERTIFICATES_H
#define TESTS_HOST_CERTIFICATES_H

#include <TavIDL/host/Settings.h>
#include <openssl/ssl.h>

#include <memory>
#include <string>

#include "Caller.h"
#include "Support.h"

// Certificates, made when a test needs them: files in PEM form.

struct Certificate {
    std::shared_ptr<EVP_PKEY> key;
    std::shared_ptr<X509> content;
    std::string file;
    std::string keyFile;
};

struct Validity {
    long fromDay = -1;
    long toDay = 1;
};

// For whom it is, "DNS:localhost,IP:127.0.0.1" for instance. Signed by `authority`, or by itself.
Certificate makeCertificate(const Directory& directory, const std::string& name,
                            const std::string& hosts, const Certificate* authority,
                            Validity validity = Validity());

// A client that shakes hands and encrypts, but leaves it to a test how the bytes are sent.
class TlsCaller {
public:
    explicit TlsCaller(const std::string& address);

    Caller& caller() { return caller_; }

    // The first message of a handshake.
    std::string hello();
    // The whole of it.
    void shakeHands();
    // What carries `text`.
    std::string encrypted(const std::string& text);
    // Whether the server has announced the end of the connection, and not just closed it. Reads to
    // the end.
    bool endIsAnnounced();

private:
    std::string output();

    Caller caller_;
    std::shared_ptr<SSL_CTX> context_;
    std::shared_ptr<SSL> session_;
};

#endif
