#ifndef TESTS_HOST_OPENSSLSUBSTITUTES_H
#define TESTS_HOST_OPENSSLSUBSTITUTES_H

// Replacements for functions of OpenSSL: SSL_CTX_new, SSL_new, BIO_meth_new, BIO_new and
// X509_VERIFY_PARAM_set1_ip_asc.
namespace substitutes {

// This thread's next call of the function fails, as it does without memory.
void failNext(const char* function);

}  // namespace substitutes

#endif
