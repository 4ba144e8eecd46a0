/* Fetches a key over the support layer in tls_support.c, which tells how to build and run it, and prints its facts. */
#include <openssl/crypto.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

#include "orn/vesk.h"

int main(int argc, char *argv[]) {
  if (argc != 5) {
    fprintf(stderr, "usage: %s HOST PORT CERTIFICATES NAME\n", argv[0]);
    return 2;
  }
  /* The layer writes to its sockets as they are: a server that has gone is to be a status, not a signal. */
  signal(SIGPIPE, SIG_IGN);
  CertificatePaths paths;
  KeyRecord record;
  int status = SetupCertificates(&paths, argv[3], "authority.pem", "client.pem", "client-key.pem");
  if (status == 0) {
    status = qRetrieveKey(&paths, argv[1], (uint32_t)strtoul(argv[2], NULL, 10), argv[4], "", &record);
    if (status == 0) {
      printf("%s: %lu bits, instance %s\n", record.caKeyName, strtoul(record.caKeySizeBits, NULL, 10),
             record.caInstance);
    }
    OPENSSL_cleanse(&record, sizeof record);
  }
  /* Texts of statuses are the other layer's: a program has orn/status.h. */
  if (status != 0) fprintf(stderr, "%s: status %d\n", argv[4], status);
  return status == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
