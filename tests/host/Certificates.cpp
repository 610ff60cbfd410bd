#include "Certificates.h"

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>

#include <cstdio>
#include <stdexcept>

namespace {

void require(bool succeeded) {
    if (!succeeded) {
        throw std::runtime_error("OpenSSL failed");
    }
}

std::shared_ptr<EVP_PKEY> makeKey() {
    const std::shared_ptr<EVP_PKEY_CTX> maker(EVP_PKEY_CTX_new_id(EVP_PKEY_EC, nullptr),
                                              EVP_PKEY_CTX_free);
    EVP_PKEY* key = nullptr;
    require(EVP_PKEY_keygen_init(maker.get()) == 1 &&
            EVP_PKEY_CTX_set_ec_paramgen_curve_nid(maker.get(), NID_X9_62_prime256v1) == 1 &&
            EVP_PKEY_keygen(maker.get(), &key) == 1);
    return {key, EVP_PKEY_free};
}

void extend(X509* certificate, int what, const std::string& value) {
    const std::shared_ptr<X509_EXTENSION> extension(
        X509V3_EXT_conf_nid(nullptr, nullptr, what, value.c_str()), X509_EXTENSION_free);
    require(extension && X509_add_ext(certificate, extension.get(), -1) == 1);
}

template <typename Write>
std::string writeFile(const std::string& path, Write write) {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "w"), std::fclose);
    require(file && write(file.get()) == 1);
    return path;
}

}  // namespace

Certificate makeCertificate(const Directory& directory, const std::string& name,
                            const std::string& hosts, const Certificate* authority,
                            Validity validity) {
    Certificate made;
    made.key = makeKey();
    made.content.reset(X509_new(), X509_free);
    X509* const content = made.content.get();
    static long serial = 0;
    X509_set_version(content, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(content), ++serial);
    constexpr long kDay = 24L * 60 * 60;
    X509_gmtime_adj(X509_getm_notBefore(content), validity.fromDay * kDay);
    X509_gmtime_adj(X509_getm_notAfter(content), validity.toDay * kDay);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(content), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
    const Certificate& issuer = authority != nullptr ? *authority : made;
    X509_set_issuer_name(content, X509_get_subject_name(issuer.content.get()));
    X509_set_pubkey(content, made.key.get());
    if (hosts.empty()) {
        extend(content, NID_basic_constraints, "critical,CA:TRUE");
    } else {
        extend(content, NID_subject_alt_name, hosts);
    }
    require(X509_sign(content, issuer.key.get(), EVP_sha256()) > 0);
    made.file = writeFile(directory.file(name + ".pem"),
                          [&](FILE* file) { return PEM_write_X509(file, content); });
    made.keyFile = writeFile(directory.file(name + ".key"), [&](FILE* file) {
        return PEM_write_PrivateKey(file, made.key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    });
    return made;
}

TlsCaller::TlsCaller(const std::string& address)
    : caller_(address),
      context_(SSL_CTX_new(TLS_client_method()), SSL_CTX_free),
      session_(SSL_new(context_.get()), SSL_free) {
    SSL_set_bio(session_.get(), BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
    SSL_set_connect_state(session_.get());
}

std::string TlsCaller::output() {
    std::string bytes(BIO_ctrl_pending(SSL_get_wbio(session_.get())), '\0');
    if (!bytes.empty()) {
        BIO_read(SSL_get_wbio(session_.get()), bytes.data(), static_cast<int>(bytes.size()));
    }
    return bytes;
}

std::string TlsCaller::hello() {
    SSL_do_handshake(session_.get());
    return output();
}

void TlsCaller::shakeHands() {
    while (SSL_do_handshake(session_.get()) != 1) {
        caller_.send(output());
        char bytes[4096];
        const ssize_t got = recv(caller_.descriptor(), bytes, sizeof bytes, 0);
        require(got > 0);
        BIO_write(SSL_get_rbio(session_.get()), bytes, static_cast<int>(got));
    }
    caller_.send(output());
}

std::string TlsCaller::encrypted(const std::string& text) {
    require(SSL_write(session_.get(), text.data(), static_cast<int>(text.size())) > 0);
    return output();
}

bool TlsCaller::endIsAnnounced() {
    std::string piece;
    do {
        piece = caller_.receive(4096);
        BIO_write(SSL_get_rbio(session_.get()), piece.data(), static_cast<int>(piece.size()));
    } while (piece.size() == 4096);
    char text[4096];
    int got = 0;
    do {
        got = SSL_read(session_.get(), text, sizeof text);
    } while (got > 0);
    return SSL_get_error(session_.get(), got) == SSL_ERROR_ZERO_RETURN;
}
