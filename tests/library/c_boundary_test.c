/* The three doors as a C11 program sees them: record sizes, types, calls. */
#include <assert.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "orn/skeys.h"
#include "orn/support.h"
#include "orn/vesk.h"

static_assert(sizeof(CertificatePaths) == 4 * 2049, "CertificatePaths");
static_assert(sizeof(KeyRecord) == 1607, "KeyRecord");
static_assert(sizeof(NextKeyBlock) == 500, "NextKeyBlock");
static_assert(sizeof(KeyMetadataValues) == 1040, "KeyMetadataValues");
static_assert(sizeof(KeyMetadataSummary) == 496, "KeyMetadataSummary");
static_assert(sizeof(TemplateDepth) == 154, "TemplateDepth");
static_assert(sizeof(SystemStatusRecord) == 65, "SystemStatusRecord");
static_assert(sizeof(MirrorRecord) == 257 + 6 + 41 + 11 + 1 + 1 + 45 + 11, "MirrorRecord");
static_assert(sizeof(((Session *)0)->caRspBuf) == 16389, "caRspBuf");
static_assert(sizeof(void *) == sizeof(((Session *)0)->hTls), "a handle is one machine word");

/* Where fields lie that others precede which could be taken for one another. */
static_assert(offsetof(KeyRecord, caExpirationDate) == 75, "behind creation and activation");
static_assert(offsetof(KeyRecord, caReturnCode) == 115, "behind the policy");
static_assert(offsetof(KeyRecord, caKeyValue) == 156, "behind instance and format");
static_assert(offsetof(KeyRecord, md) == 567, "the last");
static_assert(offsetof(NextKeyBlock, caLastIncrement) == 104, "behind the request's fields");
static_assert(offsetof(NextKeyBlock, caKeyValue) == 243, "the last");
static_assert(offsetof(SystemStatusRecord, caCoreStatus) == 30, "behind the disk");

/* What programs were compiled with. */
static const int kStatuses[][2] = {
    {ERR_KEY_COUNT_RANGE, -3},     {ERR_NULL_RESULT, 1},
    {ERR_EXPORT_SIZE, 9124},       {ERR_METADATA_TRANSACTION_SIZE, 9145},
    {ERR_AUTOGEN_SIZE, 9227},      {ERR_REPLY_SIZE, 9260},
    {ERR_LIST_SIZE, 9261},         {ERR_TRANSACTION_SIZE, 9999},
    {ERR_LIST_FILE, 11000},        {ERR_KEY_NAME_MISMATCH, 20000},
    {ERR_NULL_ARGUMENT, 20001},    {ERR_CERT_PATH_LENGTH, 20003},
    {ERR_CERT_DIR_FORM, 20004},    {ERR_METADATA_ARGUMENT, 20005},
    {ERR_DATABASE_INVALID, 20007}, {ERR_SENSOR_FILE, 20008},
    {ERR_HARDWARE_FAULT, 20009},   {ERR_DATA_FILE, 20010},
    {ERR_NO_COMM_CERT, 20011},     {ERR_NO_CA_CERT, 20012},
};

#define FOUR(...) __VA_ARGS__, __VA_ARGS__, __VA_ARGS__, __VA_ARGS__
#define SIXTEEN(...) FOUR(FOUR(__VA_ARGS__))

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

static int (*const kSetMetadata)(const CertificatePaths *, const char *, uint32_t, const char *, const char *,
                                 SIXTEEN(const char *)) = qSetMetadata;
static int (*const kRetrieveMetadata)(const CertificatePaths *, const char *, uint32_t, SIXTEEN(const char *, int),
                                      const char *) = qRetrieveMetadata;
static int (*const kRetrieveMetadataAsLl)(const CertificatePaths *, const char *, uint32_t, SIXTEEN(const char *, int),
                                          LinkedList *) = qRetrieveMetadata_as_ll;
static int (*const kRetrieveKeyNameList)(const CertificatePaths *, const char *, uint32_t,
                                         const char *) = qRetrieveKeyNameList;
static int (*const kRetrieveKeyNameListAsLl)(const CertificatePaths *, const char *, uint32_t,
                                             LinkedList *) = qRetrieveKeyNameList_as_ll;
static int (*const kRetrieveKeyNameListFiltered)(const CertificatePaths *, const char *, uint32_t, const char *,
                                                 const char *, uint32_t *) = qRetrieveKeyNameListFiltered;
static int (*const kRetrieveKeyNameListFilteredAsLl)(const CertificatePaths *, const char *, uint32_t, LinkedList *,
                                                     const char *, uint32_t *) = qRetrieveKeyNameListFiltered_as_ll;
static const char (*const kOpLut)[8][3] = &opLut;

/* The transaction functions, by what they fill. */
static void (*const kTransactions[])(Session *) = {
    ChangeDeletable, CreateDB,         CreateSymKey,      DeleteCertificate,   DeleteKey,
    AutoGenKeys,     DeletePrivateKey, ExportSymKey,      DisplaySymKeyPolicy, ExportCertificate,
    ForceKeySync,    ValidateDB,       ImportCertificate, ImportPrivateKey,    ImportSymKey,
    RemoveTemplate,  SetMirrorAddress, SetMetadata,       SetNextIncrement,    RemoveMirrorAddress};
static void (*const kListTransactions[])(Session *, LinkedList *) = {
    DisplayKeyNameList, GetCertificateList, GetPrivateKeyList, GetTemplateList, ListMirrorNames, RetrieveMetadata};
static void (*const kMirrorTransactions[])(Session *, MirrorRecord *) = {GetMirrorAddress, GetMirrorStatus,
                                                                         GetQueueSize};
static void (*const kTextTransactions[])(Session *, char *) = {AdminNoop, ReportFipsMode};
static void (*const kRetrieveKeyTransaction)(Session *, KeyRecord *) = RetrieveKey;
static void (*const kGetNextKeyTransaction)(Session *, NextKeyBlock *) = GetNextKey;
static void (*const kGetSystemStatusTransaction)(Session *, SystemStatusRecord *) = GetSystemStatus;
static void (*const kGetTemplateDepthTransaction)(Session *, TemplateDepth *) = GetTemplateDepth;

#define COUNT(array) (sizeof(array) / sizeof *(array))
static_assert(COUNT(kTransactions) + COUNT(kListTransactions) + COUNT(kMirrorTransactions) + COUNT(kTextTransactions) +
                      4 ==
                  35,
              "a transaction function is missing");

/* What the library calls of the support layer. */
static int (*const kSetupConnection)(void **, void **, void **, const char *, const char *, int, const char *,
                                     const char *, const char *, int) = SetupConnection;
static int (*const kTLSWrite)(void *, const void *, int) = TLSWrite;
static int (*const kTLSRead)(void *, void *, void *, int, int, int *) = TLSRead;
static int (*const kTLSTeardown)(void *, void *, void *) = TLSTeardown;
static void (*const kTraceT)(int, const char *, int, const char *, ...) = TraceT;
static void (*const kDumpBuffer)(int, const char *, int, const void *, int, const char *) = DumpBuffer;
static void (*const kX509GetInfo)(X509 *, CertificateInfo *) = X509_get_info;
static char *(*const kCertificateInfoToString)(const CertificateInfo *) = CertificateInfo_to_string;
static int (*const kLlAppend)(LinkedList *, const void *) = ll_append;
static size_t (*const kLlGetElementSize)(const LinkedList *) = ll_get_element_size;

static int failures = 0;

static void expect(int condition, const char *what) {
  if (condition) return;
  fprintf(stderr, "failed: %s\n", what);
  ++failures;
}

/* Sessions that no connection was opened for: all that a function may do is to refuse. */
static void try_transaction_functions(void) {
  static Session session;
  for (size_t i = 0; i < COUNT(kTextTransactions); ++i) {
    session.iStatus = 7;
    kTextTransactions[i](&session, NULL);
    expect(session.iStatus == ERR_NULL_RESULT, "a null text");
  }
  session.iStatus = 7;
  kRetrieveKeyTransaction(&session, NULL);
  expect(session.iStatus == ERR_NULL_RESULT, "a null record");
  for (size_t i = 0; i < COUNT(kListTransactions); ++i) {
    session.iStatus = 7;
    kListTransactions[i](&session, NULL);
    expect(session.iStatus == CONN_ERR_ARGUMENT, "a list without a connection");
  }
  static MirrorRecord mirror;
  for (size_t i = 0; i < COUNT(kMirrorTransactions); ++i) {
    session.iStatus = 7;
    kMirrorTransactions[i](&session, &mirror);
    expect(session.iStatus == CONN_ERR_ARGUMENT, "a mirror without a connection");
  }
  static NextKeyBlock block;
  static SystemStatusRecord status;
  kGetNextKeyTransaction(&session, &block);
  expect(session.iStatus == CONN_ERR_ARGUMENT, "GetNextKey without a connection");
  kGetSystemStatusTransaction(&session, &status);
  expect(session.iStatus == CONN_ERR_ARGUMENT, "GetSystemStatus without a connection");
  kGetTemplateDepthTransaction(&session, NULL);
  expect(session.iStatus == CONN_ERR_ARGUMENT, "GetTemplateDepth without a connection");
  kTransactions[0](&session);
  expect(session.iStatus == CONN_ERR_ARGUMENT, "ChangeDeletable without a connection");
}

static void try_support_functions(void) {
  void *tls = &tls, *aux = &aux, *from = &from;
  char byte;
  int count = 7;
  expect(kSetupConnection(&tls, &aux, &from, "/nowhere", "/nowhere", 0, "/nowhere", "127.0.0.1", "1", 1) ==
                 CONN_ERR_AUTHORITY_MISSING &&
             tls == NULL && aux == NULL && from == NULL,
         "SetupConnection");
  expect(kTLSWrite(NULL, "x", 1) == CONN_ERR_ARGUMENT, "TLSWrite");
  expect(kTLSRead(NULL, NULL, &byte, 1, 1, &count) == CONN_ERR_ARGUMENT, "TLSRead");
  expect(kTLSTeardown(NULL, NULL, NULL) == 0, "TLSTeardown");
  kTraceT(0, "tests", 1, "%s", "while the trace is off");
  kDumpBuffer(0, "tests", 1, "x", 1, "label");
  CertificateInfo info;
  kX509GetInfo(NULL, &info);
  char *const text = kCertificateInfoToString(&info);
  expect(text != NULL, "CertificateInfo_to_string");
  free(text);
  LinkedList *list = ll_create(3);
  expect(kLlAppend(list, "ab") == 0 && kLlGetElementSize(list) == 3, "ll_append");
  expect(strcmp(ll_element(ll_first(list)), "ab") == 0, "an element");
  ll_free(list);
}

int main(void) {
  for (size_t i = 0; i < COUNT(kStatuses); ++i) expect(kStatuses[i][0] == kStatuses[i][1], StatusName(kStatuses[i][1]));
  expect(memcmp(kOpLut, "XX\0EQ\0NE\0CT\0GT\0LT\0GE\0LE", sizeof *kOpLut) == 0, "opLut");
  try_transaction_functions();
  try_support_functions();

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
      kSetMetadata(&paths, host, 1, "K", "", SIXTEEN("")),
      kRetrieveMetadata(&paths, host, 1, SIXTEEN(NULL, 0), ""),
      kRetrieveMetadataAsLl(&paths, host, 1, SIXTEEN(NULL, 0), list),
      kRetrieveKeyNameList(&paths, host, 1, ""),
      kRetrieveKeyNameListAsLl(&paths, host, 1, list),
      kRetrieveKeyNameListFiltered(&paths, host, 1, "", "", &number),
      kRetrieveKeyNameListFilteredAsLl(&paths, host, 1, list, "", &number),
  };
  for (size_t i = 0; i < COUNT(statuses); ++i) {
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
