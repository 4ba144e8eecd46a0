/* Fetches a key and writes its value, raw bytes, to standard output: into a pipe or a file.
 *
 * Build: cc fetch_key.c -o fetch_key $(pkg-config --cflags --libs vesk ornsupport libcrypto)
 * Run:   ./fetch_key 127.0.0.1 40123 /tmp/keys backup-2026 | wc -c */
#include <openssl/crypto.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "orn/support.h"
#include "orn/vesk.h"

static int failed(const char *what, int status) {
  fprintf(stderr, "%s: %s (%s %d)\n", what, StatusText(status), StatusName(status), status);
  return EXIT_FAILURE;
}

/* Past stdio, whose buffers would keep a copy of the key. */
static int write_all(const char *bytes, size_t count) {
  while (count > 0) {
    ssize_t written = write(STDOUT_FILENO, bytes, count);
    if (written < 0) return -1;
    bytes += written;
    count -= (size_t)written;
  }
  return 0;
}

int main(int argc, char *argv[]) {
  if (argc != 5) {
    fprintf(stderr, "usage: %s HOST PORT CERTIFICATES NAME\n", argv[0]);
    return 2;
  }
  const char *host = argv[1], *name = argv[4];
  uint32_t port = (uint32_t)strtoul(argv[2], NULL, 10);
  if (isatty(STDOUT_FILENO)) {
    fprintf(stderr, "a key is not for a terminal\n");
    return 2;
  }

  CertificatePaths paths;
  int status = SetupCertificates(&paths, argv[3], "authority.pem", "client.pem", "client-key.pem");
  if (status != 0) return failed("certificates", status);

  /* The empty instance is the current one. */
  KeyRecord record;
  status = qRetrieveKey(&paths, host, port, name, "", &record);
  if (status != 0) {
    /* After some failures the record holds the reply all the same. */
    OPENSSL_cleanse(&record, sizeof record);
    return failed(name, status);
  }

  /* The size comes from the server: it is believed as far as there is room for it. */
  size_t bytes = strtoul(record.caKeySizeBits, NULL, 10) / 8;
  int result = EXIT_SUCCESS;
  if (bytes == 0 || bytes > 256) {
    fprintf(stderr, "%s: the server tells a size of %s bits\n", name, record.caKeySizeBits);
    result = EXIT_FAILURE;
  } else if (write_all(record.caKeyValue, bytes) != 0) {
    perror("writing the key");
    result = EXIT_FAILURE;
  }
  OPENSSL_cleanse(&record, sizeof record);
  return result;
}
