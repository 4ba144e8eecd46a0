/* The three doors as a C11 program sees them: record sizes, types, calls. */
#include <assert.h>
#include <stdio.h>
#include <string.h>

#include "orn/skeys.h"
#include "orn/support.h"
#include "orn/vesk.h"

static_assert(sizeof(CertificatePaths) == 4 * 2049, "CertificatePaths");
static_assert(sizeof(KeyRecord) == 1607, "KeyRecord");
static_assert(sizeof(NextKeyBlock) == 500, "NextKeyBlock");
static_assert(sizeof(KeyMetadataValues) == 1040, "KeyMetadataValues");
static_assert(sizeof(SystemStatusRecord) == 65, "SystemStatusRecord");
static_assert(sizeof(MirrorRecord) == 257 + 6 + 41 + 11 + 1 + 1 + 45 + 11, "MirrorRecord");
static_assert(sizeof(((Session *)0)->caRspBuf) == 16389, "caRspBuf");
static_assert(sizeof(void *) == sizeof(((Session *)0)->hTls), "a handle is one machine word");

/* The published types, to the letter. */
static int (*const kSetupCertificates)(CertificatePaths *, const char *, const char *, const char *,
                                       const char *) = SetupCertificates;
static void (*const kSetTimeout)(uint32_t, uint32_t) = SetTimeout;
static size_t (*const kStrlcpy)(char *, const char *, size_t) = vesk_strlcpy;
static char *(*const kStrip)(const char *, char *) = strip;
static char *(*const kStripWithLength)(const char *, char *, size_t) = strip_with_length;
static int (*const kGetServerCertificateInfo)(const CertificatePaths *, const char *, uint32_t, CertificateInfo *,
                                              CertificateInfo *) = GetServerCertificateInfo;
static void (*const kLogCertInfo)(const char *, const CertificateInfo *) = logCertInfo;
static int (*const kAdminNoop)(const CertificatePaths *, const char *, uint32_t) = qAdminNoop;
static int (*const kGetNextKey)(const CertificatePaths *, const char *, uint32_t, const char *, char *, unsigned char *,
                                uint32_t *) = qGetNextKey;
static int (*const kRetrieveKey)(const CertificatePaths *, const char *, uint32_t, const char *, const char *,
                                 KeyRecord *) = qRetrieveKey;
static int (*const kRetrieveKeyMetadata)(const CertificatePaths *, const char *, uint32_t, const char *,
                                         KeyMetadataValues *) = qRetrieveKeyMetadata;
static int (*const kCreateSymKey)(const CertificatePaths *, const char *, uint32_t, const char *, char) = qCreateSymKey;
static int (*const kAutoGenKeys)(const CertificatePaths *, const char *, uint32_t, const char *, char,
                                 uint32_t) = qAutoGenKeys;
static int (*const kCreateDatabase)(const CertificatePaths *, const char *, uint32_t) = qCreateDatabase;
static int (*const kDeleteKey)(const CertificatePaths *, const char *, uint32_t, const char *) = qDeleteKey;
static int (*const kChangeDeletable)(const CertificatePaths *, const char *, uint32_t, const char *,
                                     char) = qChangeDeletable;
static int (*const kGetTemplateDepth)(const CertificatePaths *, const char *, uint32_t, const char *, uint32_t *,
                                      uint32_t *) = qGetTemplateDepth;
static int (*const kGetTemplateList)(const CertificatePaths *, const char *, uint32_t, LinkedList *) = qGetTemplateList;
static int (*const kRemoveTemplate)(const CertificatePaths *, const char *, uint32_t, const char *) = qRemoveTemplate;
static int (*const kSetNextIncrement)(const CertificatePaths *, const char *, uint32_t, const char *,
                                      uint32_t) = qSetNextIncrement;
static int (*const kSetMirrorAddress)(const CertificatePaths *, const char *, uint32_t, const char *, const char *,
                                      uint32_t) = qSetMirrorAddress;
static int (*const kGetMirrorAddress)(const CertificatePaths *, const char *, uint32_t, const char *, char *, uint32_t,
                                      uint32_t *) = qGetMirrorAddress;
static int (*const kRemoveMirrorAddress)(const CertificatePaths *, const char *, uint32_t,
                                         const char *) = qRemoveMirrorAddress;
static int (*const kListMirrorNames)(const CertificatePaths *, const char *, uint32_t, LinkedList *) = qListMirrorNames;
static int (*const kGetMirrorStatus)(const CertificatePaths *, const char *, uint32_t, const char *, int, int32_t *,
                                     char *, char *) = qGetMirrorStatus;
static int (*const kGetQueueSize)(const CertificatePaths *, const char *, uint32_t, const char *,
                                  int32_t *) = qGetQueueSize;
static int (*const kForceKeySync)(const CertificatePaths *, const char *, uint32_t, const char *,
                                  const char *) = qForceKeySync;
static int (*const kGetSystemStatus)(const CertificatePaths *, const char *, uint32_t, char *, char *, char *, char *,
                                     char *, char *, char *, const char *) = qGetSystemStatus;
static int (*const kReportFipsMode)(const CertificatePaths *, const char *, uint32_t, char *) = qReportFipsMode;
static int (*const kValidateKeyDatabase)(const CertificatePaths *, const char *, uint32_t) = qValidateKeyDatabase;
static int (*const kImportSymKey)(const CertificatePaths *, const char *, uint32_t, const char *, const char *,
                                  const char *, const void *) = qImportSymKey;
static int (*const kExportSymKey)(const CertificatePaths *, const char *, uint32_t, const char *, const char *,
                                  const char *, const char *, void *) = qExportSymKey;
static int (*const kImportCertificate)(const CertificatePaths *, const char *, uint32_t, const char *, const char *,
                                       int) = qImportCertificate;
static int (*const kImportPrivateKey)(const CertificatePaths *, const char *, uint32_t, const char *,
                                      const char *) = qImportPrivateKey;
static int (*const kExportCertificate)(const CertificatePaths *, const char *, uint32_t, const char *, char,
                                       const char *) = qExportCertificate;
static int (*const kDeleteCertificate)(const CertificatePaths *, const char *, uint32_t, const char *,
                                       char) = qDeleteCertificate;
static int (*const kDeletePrivateKey)(const CertificatePaths *, const char *, uint32_t,
                                      const char *) = qDeletePrivateKey;
static int (*const kGetCertificateList)(const CertificatePaths *, const char *, uint32_t, char,
                                        const char *) = qGetCertificateList;
static int (*const kGetCertificateListAsLl)(const CertificatePaths *, const char *, uint32_t, char,
                                            LinkedList *) = qGetCertificateList_as_ll;
static int (*const kGetPrivateKeyList)(const CertificatePaths *, const char *, uint32_t,
                                       const char *) = qGetPrivateKeyList;
static int (*const kGetPrivateKeyListAsLl)(const CertificatePaths *, const char *, uint32_t,
                                           LinkedList *) = qGetPrivateKeyList_as_ll;

static int failures = 0;

static void expect(int condition, const char *what) {
  if (condition) return;
  fprintf(stderr, "failed: %s\n", what);
  ++failures;
}

int main(void) {
  CertificatePaths paths;
  expect(kSetupCertificates(&paths, "/nowhere", "a", "b", "c") == 0, "SetupCertificates");
  expect(strcmp(paths.caPath[3], "/nowhere/c") == 0, "path of file 3");
  kSetTimeout(10, 0);

  char text[8];
  expect(kStrlcpy(text, "abcdefghij", sizeof text) == 10 && strcmp(text, "abcdefg") == 0, "vesk_strlcpy");
  expect(strcmp(kStrip("ab \t\n", text), "ab") == 0, "strip");
  expect(strcmp(kStripWithLength("a  ", text, 3), "a") == 0, "strip_with_length");

  /* Every call comes back with the status of the missing certificate files, and with its outputs as documented. */
  const char *const host = "127.0.0.1";
  CertificateInfo ca, comm;
  KeyRecord record;
  KeyMetadataValues values;
  char name[41] = "untouched";
  unsigned char value[32];
  uint32_t number = 7, other = 7;
  int32_t count = 7;
  LinkedList *list = ll_create(41);
  memset(&record, 'x', sizeof record);
  const int statuses[] = {
      kGetServerCertificateInfo(&paths, host, 1, &ca, &comm),
      kAdminNoop(&paths, host, 1),
      kGetNextKey(&paths, host, 1, "T", name, value, &number),
      kRetrieveKey(&paths, host, 1, "K", "", &record),
      kRetrieveKeyMetadata(&paths, host, 1, "K", &values),
      kCreateSymKey(&paths, host, 1, "K", 'N'),
      kAutoGenKeys(&paths, host, 1, "T", 'a', 1),
      kCreateDatabase(&paths, host, 1),
      kDeleteKey(&paths, host, 1, "K"),
      kChangeDeletable(&paths, host, 1, "K", 'Y'),
      kGetTemplateDepth(&paths, host, 1, "T", &number, &other),
      kGetTemplateList(&paths, host, 1, list),
      kRemoveTemplate(&paths, host, 1, "T"),
      kSetNextIncrement(&paths, host, 1, "T", 1),
      kSetMirrorAddress(&paths, host, 1, "M", "mirror.example", 1),
      kGetMirrorAddress(&paths, host, 1, "M", name, sizeof name, &number),
      kRemoveMirrorAddress(&paths, host, 1, "M"),
      kListMirrorNames(&paths, host, 1, list),
      kGetMirrorStatus(&paths, host, 1, "M", 1, &count, name, name),
      kGetQueueSize(&paths, host, 1, "M", &count),
      kForceKeySync(&paths, host, 1, "M", NULL),
      kGetSystemStatus(&paths, host, 1, name, name, name, name, name, name, name, ""),
      kReportFipsMode(&paths, host, 1, name),
      kValidateKeyDatabase(&paths, host, 1),
      kImportSymKey(&paths, host, 1, "K", "C", NULL, &values),
      kExportSymKey(&paths, host, 1, "K", "", "C", NULL, name),
      kImportCertificate(&paths, host, 1, "/nowhere/c", "C", 1),
      kImportPrivateKey(&paths, host, 1, "/nowhere/c", "P"),
      kExportCertificate(&paths, host, 1, "C", 'C', "/nowhere/c"),
      kDeleteCertificate(&paths, host, 1, "C", 'C'),
      kDeletePrivateKey(&paths, host, 1, "P"),
      kGetCertificateList(&paths, host, 1, 'C', ""),
      kGetCertificateListAsLl(&paths, host, 1, 'C', list),
      kGetPrivateKeyList(&paths, host, 1, ""),
      kGetPrivateKeyListAsLl(&paths, host, 1, list),
  };
  for (size_t i = 0; i < sizeof statuses / sizeof *statuses; ++i) {
    if (strncmp(StatusName(statuses[i]), "CONN_ERR_", 9) == 0 && strstr(StatusName(statuses[i]), "_MISSING") != NULL)
      continue;
    fprintf(stderr, "call %zu returned %d (%s)\n", i, statuses[i], StatusName(statuses[i]));
    ++failures;
  }
  expect(strcmp(name, "untouched") == 0 && number == 7 && other == 7 && count == 7, "untouched outputs");
  for (size_t i = 0; i < sizeof record; ++i) expect(((const char *)&record)[i] == 0, "a zeroed record");
  expect(ll_count(list) == 0, "an empty list");
  ll_free(list);

  expect(kAutoGenKeys(&paths, host, 1, "T", 'a', 16777216) == ERR_KEY_COUNT_RANGE, "ERR_KEY_COUNT_RANGE");
  expect(kRetrieveKey(&paths, host, 1, "K", "", NULL) == ERR_NULL_ARGUMENT, "ERR_NULL_ARGUMENT");
  memset(&comm, 0, sizeof comm);
  kLogCertInfo("label", &comm);
  return failures == 0 ? 0 : 1;
}
