#include "OpensslSubstitutes.h"

#include <dlfcn.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <string>

namespace {

thread_local std::string failing;

// Calls the function of OpenSSL.
template <auto Own, typename... Arguments>
auto pass(const char* name, Arguments... arguments) {
    static const auto real = reinterpret_cast<decltype(Own)>(dlsym(RTLD_NEXT, name));
    using Result = decltype(real(arguments...));
    if (failing != name) {
        return real(arguments...);
    }
    failing.clear();
    return Result();
}

}  // namespace

namespace substitutes {

void failNext(const char* function) {
    failing = function;
}

}  // namespace substitutes

// The linker prefers these to the functions of the shared libraries.

SSL_CTX* SSL_CTX_new(const SSL_METHOD* method) {
    return pass<&SSL_CTX_new>("SSL_CTX_new", method);
}

SSL* SSL_new(SSL_CTX* context) {
    return pass<&SSL_new>("SSL_new", context);
}

BIO_METHOD* BIO_meth_new(int type, const char* name) {
    return pass<&BIO_meth_new>("BIO_meth_new", type, name);
}

BIO* BIO_new(const BIO_METHOD* method) {
    return pass<&BIO_new>("BIO_new", method);
}

int X509_VERIFY_PARAM_set1_ip_asc(X509_VERIFY_PARAM* wanted, const char* address) {
    return pass<&X509_VERIFY_PARAM_set1_ip_asc>("X509_VERIFY_PARAM_set1_ip_asc", wanted, address);
}
