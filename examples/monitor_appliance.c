/* Tells a monitor how the appliance is: a line of text, and the exit code 0 when all is well, 1 when the certificate
 * runs out within 30 days, 2 when something is broken or nothing answers, 3 when it could not be asked.
 *
 * Build: cc monitor_appliance.c -o monitor_appliance $(pkg-config --cflags --libs vesk ornsupport)
 * Run:   ./monitor_appliance 127.0.0.1 40123 /tmp/keys; echo $? */
#define _POSIX_C_SOURCE 200809L
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "orn/support.h"
#include "orn/vesk.h"

enum { kOk, kWarning, kCritical, kUnknown };

typedef struct Health {
  char application[5], core[9], disk[9], voltage[9], battery[3], fan[5], temperature[9];
  CertificateInfo authority, server;
} Health;

/* Whether a time, as in 2026-01-31T23:59:59Z, is less than 30 days away. Such texts sort as their times do. */
static int is_near(const char *when) {
  char limit[32];
  time_t then = time(NULL) + 30 * 24 * 60 * 60;
  struct tm parts;
  return gmtime_r(&then, &parts) == NULL || strftime(limit, sizeof limit, "%Y-%m-%dT%H:%M:%SZ", &parts) == 0 ||
         strcmp(when, limit) < 0;
}

static int check(FILE *report, const CertificatePaths *paths, const char *host, uint32_t port) {
  Health health;
  memset(&health, 0, sizeof health);
  int status = qGetSystemStatus(paths, host, port, health.application, health.core, health.disk, health.voltage,
                                health.battery, health.fan, health.temperature, "");
  if (status == ERR_HARDWARE_FAULT) {
    fprintf(report, "CRITICAL application %s core %s disk %s voltage %s battery %s fan %s temperature %s\n",
            health.application, health.core, health.disk, health.voltage, health.battery, health.fan,
            health.temperature);
    return kCritical;
  }
  if (status == 0) status = qValidateKeyDatabase(paths, host, port);
  if (status == 0) status = GetServerCertificateInfo(paths, host, port, &health.authority, &health.server);
  if (status != 0) {
    fprintf(report, "CRITICAL %s (%s %d)\n", StatusText(status), StatusName(status), status);
    return kCritical;
  }
  int near = is_near(health.server.notAfter);
  fprintf(report, "%s server certificate valid until %s\n", near ? "WARNING" : "OK", health.server.notAfter);
  return near ? kWarning : kOk;
}

/* Two of the calls write lines of their own to standard output, where the monitor expects one: from now on that goes
 * nowhere. Returns what was there before. */
static FILE *take_standard_output(void) {
  int kept = dup(STDOUT_FILENO), nowhere = open("/dev/null", O_WRONLY);
  if (kept < 0 || nowhere < 0 || dup2(nowhere, STDOUT_FILENO) < 0) return NULL;
  close(nowhere);
  return fdopen(kept, "w");
}

int main(int argc, char *argv[]) {
  if (argc != 4) {
    fprintf(stderr, "usage: %s HOST PORT CERTIFICATES\n", argv[0]);
    return kUnknown;
  }
  CertificatePaths paths;
  int status = SetupCertificates(&paths, argv[3], "authority.pem", "client.pem", "client-key.pem");
  if (status != 0) {
    printf("UNKNOWN %s (%s %d)\n", StatusText(status), StatusName(status), status);
    return kUnknown;
  }
  FILE *report = take_standard_output();
  if (report == NULL) {
    perror("standard output");
    return kUnknown;
  }
  int result = check(report, &paths, argv[1], (uint32_t)strtoul(argv[2], NULL, 10));
  return fclose(report) == 0 ? result : kUnknown;
}
