/* Generates keys for a template, as many as it is told to, and lists their names into a file: a million names take no
 * more memory than ten.
 *
 * Build: cc list_names.c -o list_names $(pkg-config --cflags --libs vesk ornsupport)
 * Run:   ./list_names 127.0.0.1 40123 /tmp/keys names 1000000 */
#include <stdio.h>
#include <stdlib.h>

#include "orn/support.h"
#include "orn/vesk.h"

static const char kTemplate[] = "example-million";
enum { kBatch = 99999 };

static int failed(const char *what, int status) {
  fprintf(stderr, "%s: %s (%s %d)\n", what, StatusText(status), StatusName(status), status);
  return EXIT_FAILURE;
}

/* A template grows by batches; the first one makes it. */
static int generate(const CertificatePaths *paths, const char *host, uint32_t port, unsigned long count) {
  char mode = 'i';
  while (count > 0) {
    uint32_t batch = count < kBatch ? (uint32_t)count : kBatch;
    int status = qAutoGenKeys(paths, host, port, kTemplate, mode, batch);
    if (status != 0) return status;
    count -= batch;
    mode = 'a';
  }
  return 0;
}

static int count_lines(const char *path, unsigned long *lines) {
  FILE *file = fopen(path, "r");
  if (file == NULL) return -1;
  *lines = 0;
  for (int c = getc(file); c != EOF; c = getc(file)) *lines += c == '\n';
  int failure = ferror(file);
  return fclose(file) == 0 && !failure ? 0 : -1;
}

int main(int argc, char *argv[]) {
  if (argc != 6) {
    fprintf(stderr, "usage: %s HOST PORT CERTIFICATES FILE COUNT\n", argv[0]);
    return 2;
  }
  const char *host = argv[1], *file = argv[4];
  uint32_t port = (uint32_t)strtoul(argv[2], NULL, 10);
  unsigned long count = strtoul(argv[5], NULL, 10);

  CertificatePaths paths;
  int status = SetupCertificates(&paths, argv[3], "authority.pem", "client.pem", "client-key.pem");
  if (status != 0) return failed("certificates", status);
  status = generate(&paths, host, port, count);
  if (status != 0) return failed("generating keys", status);
  uint32_t highest = 0;
  status = qRetrieveKeyNameListFiltered(&paths, host, port, file, kTemplate, &highest);
  if (status != 0) return failed("listing names", status);

  /* When the file cannot be written in full the call succeeds all the same, so that it is looked at. */
  unsigned long lines = 0;
  if (count_lines(file, &lines) != 0) {
    perror(file);
    return EXIT_FAILURE;
  }
  if (lines != count) {
    fprintf(stderr, "%s: %lu names of %lu\n", file, lines, count);
    return EXIT_FAILURE;
  }
  printf("%lu names, highest sequence %06X\n", lines, (unsigned)highest);
  return EXIT_SUCCESS;
}
