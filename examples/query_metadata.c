/* Finds the keys whose first metadata field is a text, and prints the name and the second field of each.
 *
 * Build: cc query_metadata.c -o query_metadata $(pkg-config --cflags --libs vesk ornsupport)
 * Run:   ./query_metadata 127.0.0.1 40123 /tmp/keys "pool A" */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "orn/support.h"
#include "orn/vesk.h"

static int failed(const char *what, int status) {
  fprintf(stderr, "%s: %s (%s %d)\n", what, StatusText(status), StatusName(status), status);
  return EXIT_FAILURE;
}

/* Operators are given by their index. */
static int operator_of(const char *name) {
  int i = 0;
  while (strcmp(opLut[i], name) != 0) i++;
  return i;
}

int main(int argc, char *argv[]) {
  if (argc != 5) {
    fprintf(stderr, "usage: %s HOST PORT CERTIFICATES MD01\n", argv[0]);
    return 2;
  }
  const char *host = argv[1], *text = argv[4];
  uint32_t port = (uint32_t)strtoul(argv[2], NULL, 10);

  CertificatePaths paths;
  int status = SetupCertificates(&paths, argv[3], "authority.pem", "client.pem", "client-key.pem");
  if (status != 0) return failed("certificates", status);

  LinkedList *keys = ll_create(sizeof(KeyMetadataSummary));
  if (keys == NULL) {
    fprintf(stderr, "out of memory\n");
    return EXIT_FAILURE;
  }
  /* A field without a value is not tested. */
  status = qRetrieveMetadata_as_ll(&paths, host, port, text, operator_of("EQ"), NULL, 0, NULL, 0, NULL, 0, NULL, 0,
                                   NULL, 0, NULL, 0, NULL, 0, NULL, 0, NULL, 0, NULL, 0, NULL, 0, NULL, 0, NULL, 0,
                                   NULL, 0, NULL, 0, keys);
  if (status != 0) {
    /* What arrived before the failure is in the list, and is not all. */
    ll_free(keys);
    return failed(text, status);
  }
  for (const LinkedListNode *node = ll_first(keys); node != NULL; node = ll_next(node)) {
    const KeyMetadataSummary *key = ll_element(node);
    printf("%s\t%s\n", key->caKeyName, key->md[1]);
  }
  ll_free(keys);
  return fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
