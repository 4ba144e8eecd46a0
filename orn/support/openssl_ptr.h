// Owners of OpenSSL's objects.
#ifndef ORN_SUPPORT_OPENSSL_PTR_H
#define ORN_SUPPORT_OPENSSL_PTR_H

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <memory>

namespace orn {

template <auto kFree>
struct OpensslFree {
  template <typename T>
  void operator()(T *object) const {
    kFree(object);
  }
};

using BioPtr = std::unique_ptr<BIO, OpensslFree<BIO_free>>;
using BignumPtr = std::unique_ptr<BIGNUM, OpensslFree<BN_free>>;
using GeneralNamesPtr = std::unique_ptr<GENERAL_NAMES, OpensslFree<GENERAL_NAMES_free>>;
using KeyPtr = std::unique_ptr<EVP_PKEY, OpensslFree<EVP_PKEY_free>>;
using SslContextPtr = std::unique_ptr<SSL_CTX, OpensslFree<SSL_CTX_free>>;
using SslSessionPtr = std::unique_ptr<SSL_SESSION, OpensslFree<SSL_SESSION_free>>;
using SslPtr = std::unique_ptr<SSL, OpensslFree<SSL_free>>;
using X509Ptr = std::unique_ptr<X509, OpensslFree<X509_free>>;
using X509StorePtr = std::unique_ptr<X509_STORE, OpensslFree<X509_STORE_free>>;

// Clearing the queue costs more than looking whether there is anything to clear.
inline void clear_errors() {
  if (ERR_peek_error() != 0) ERR_clear_error();
}

// The calling thread's error queue is empty where this begins, whatever the caller left there, and where it ends.
class CleanErrorQueue {
 public:
  CleanErrorQueue() { clear_errors(); }
  ~CleanErrorQueue() { clear_errors(); }
  CleanErrorQueue(const CleanErrorQueue &) = delete;
  CleanErrorQueue &operator=(const CleanErrorQueue &) = delete;
};

}  // namespace orn

#endif
