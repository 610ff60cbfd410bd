#ifndef TESTS_HOST_CERTIFICATES_H
#define TESTS_HOST_CERTIFICATES_H

#include <TavIDL/host/Settings.h>
#include <openssl/ssl.h>

#include <memory>
#include <string>

#include "Caller.h"
#include "Support.h"

// Certificates in PEM files, created when a test needs them.

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

// `hosts` is for example "DNS:localhost,IP:127.0.0.1". Signed by `authority`, or self-signed.
Certificate makeCertificate(const Directory& directory, const std::string& name,
                            const std::string& hosts, const Certificate* authority,
                            Validity validity = Validity());

// A client that does the handshake and encrypts, but leaves sending the bytes to the test.
class TlsCaller {
public:
    explicit TlsCaller(const std::string& address);

    Caller& caller() { return caller_; }

    // The first message of the handshake.
    std::string hello();
    // Does the whole handshake.
    void shakeHands();
    // The bytes that carry `text`.
    std::string encrypted(const std::string& text);
    // Whether the server has sent close_notify before closing the connection. Reads to the end.
    bool endIsAnnounced();

private:
    std::string output();

    Caller caller_;
    std::shared_ptr<SSL_CTX> context_;
    std::shared_ptr<SSL> session_;
};

#endif
