/* Brings a key in: reads its 32 bytes from standard input, wraps them under the public key of the certificate that the
 * server keeps under a name, and sends what came of that.
 *
 * Build: cc import_key.c -o import_key $(pkg-config --cflags --libs vesk ornsupport libcrypto)
 * Run:   ./import_key 127.0.0.1 40123 /tmp/keys head-office head-office.pem payroll < payroll.key */
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "orn/support.h"
#include "orn/vesk.h"

enum { kKeyBytes = 32, kWrappedBytes = 256 };

static int failed(const char *what, int status) {
  fprintf(stderr, "%s: %s (%s %d)\n", what, StatusText(status), StatusName(status), status);
  return EXIT_FAILURE;
}

/* Exactly 32 bytes and then the end, past stdio, whose buffers would keep a copy. */
static int read_key(unsigned char key[kKeyBytes]) {
  unsigned char more;
  size_t have = 0;
  while (have < kKeyBytes) {
    ssize_t count = read(STDIN_FILENO, key + have, kKeyBytes - have);
    if (count <= 0) return -1;
    have += (size_t)count;
  }
  return read(STDIN_FILENO, &more, 1) == 0 ? 0 : -1;
}

static EVP_PKEY *public_key_of(const char *path) {
  FILE *file = fopen(path, "r");
  if (file == NULL) return NULL;
  X509 *certificate = PEM_read_X509(file, NULL, NULL, NULL);
  fclose(file);
  EVP_PKEY *key = X509_get_pubkey(certificate);
  X509_free(certificate);
  return key;
}

/* RSA-OAEP with SHA-256 under 2048 bits. */
static int wrap(EVP_PKEY *public_key, const unsigned char key[kKeyBytes], unsigned char wrapped[kWrappedBytes]) {
  size_t size = kWrappedBytes;
  EVP_PKEY_CTX *context = EVP_PKEY_CTX_new(public_key, NULL);
  int done = context != NULL && EVP_PKEY_get_bits(public_key) == 2048 && EVP_PKEY_encrypt_init(context) == 1 &&
             EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_OAEP_PADDING) == 1 &&
             EVP_PKEY_CTX_set_rsa_oaep_md(context, EVP_sha256()) == 1 &&
             EVP_PKEY_encrypt(context, wrapped, &size, key, kKeyBytes) == 1 && size == kWrappedBytes;
  EVP_PKEY_CTX_free(context);
  return done ? 0 : -1;
}

int main(int argc, char *argv[]) {
  if (argc != 7) {
    fprintf(stderr, "usage: %s HOST PORT CERTIFICATES CERTIFICATE-NAME CERTIFICATE-FILE NAME\n", argv[0]);
    return 2;
  }
  const char *host = argv[1], *certificate = argv[4], *file = argv[5], *name = argv[6];
  uint32_t port = (uint32_t)strtoul(argv[2], NULL, 10);

  CertificatePaths paths;
  int status = SetupCertificates(&paths, argv[3], "authority.pem", "client.pem", "client-key.pem");
  if (status != 0) return failed("certificates", status);
  EVP_PKEY *public_key = public_key_of(file);
  if (public_key == NULL) {
    fprintf(stderr, "%s: no certificate could be read\n", file);
    return EXIT_FAILURE;
  }

  unsigned char key[kKeyBytes], wrapped[kWrappedBytes];
  int result = EXIT_FAILURE;
  if (read_key(key) != 0) {
    fprintf(stderr, "a key of exactly %d bytes is expected on standard input\n", kKeyBytes);
  } else if (wrap(public_key, key, wrapped) != 0) {
    fprintf(stderr, "%s: nothing could be wrapped under it\n", file);
  } else {
    status = qImportSymKey(&paths, host, port, name, certificate, NULL, wrapped);
    result = status == 0 ? EXIT_SUCCESS : failed(name, status);
  }
  OPENSSL_cleanse(key, sizeof key);
  EVP_PKEY_free(public_key);
  return result;
}
