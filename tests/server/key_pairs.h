// Key pairs for the tests of certificates and key transfer: made once, as making an RSA key takes its time.
#pragma once

#include <openssl/evp.h>

#include <string>

#include "veskd/certificates.h"

namespace veskd::test {

// One and the same for each number.
EVP_PKEY *rsa_key(int number, unsigned bits = 2048);
EVP_PKEY *ec_key();

// A self-signed certificate, valid from a number of days before now to a number of days behind it.
CertificatePtr certificate_of(EVP_PKEY *key, int days_before = 1, int days_behind = 365);

std::string pem_of(X509 *certificate);
std::string der_of(X509 *certificate);
std::string pem_of(EVP_PKEY *key);
std::string der_of(EVP_PKEY *key);
std::string encrypted_pem_of(EVP_PKEY *key);

}  // namespace veskd::test
