/* The transaction functions of libvesk: one per server operation, each working on an open session.
 *
 * Programs call the public calls of orn/vesk.h, which open a session, fill its request, call the transaction function
 * and close the session. The functions are exported for programs that do so themselves: they zero a session, have
 * SetupConnection (orn/support.h) fill hTls, hTlsAux and hTlsRead, put the transaction identifier, which stands before
 * each function below, into request.caTranId and fill the fields that the function wants; afterwards they hand the
 * handles to TLSTeardown and wipe the session. The layout of Session may change with any release of the library: such
 * programs are compiled against the release that they run with.
 *
 * Each function leaves its outcome in session->iStatus, 0 or a status that the public call of its operation names
 * (orn/vesk.h), and clears every buffer of its own. No pointer may be null unless the function says so. A session
 * belongs to one thread and serves one transaction. */
#ifndef ORN_SKEYS_H
#define ORN_SKEYS_H

#include <pthread.h>
#include <stdint.h>

#include "orn/records.h"
#include "orn/status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The request area: every field that a request may carry, each with room for its terminator. A field is filled to its
 * full width with blanks, because requests are put together by appending text. */
typedef struct RequestFields {
  char caTranId[5];
  char caKeyName[41];
  char caKeySizeBits[5];
  char caActivationDate[9];
  char caExpirationDate[9];
  char caRolloverCode[2];
  char caRolloverDays[5];
  char caDeletable[2];
  char caMirrorKey[2];
  char caInstance[25];
  char caGroup[257];
  char caUser[257];
  char caUserGroupFlag[2];
  char caKeyFormat[4];
  char caConstantLen[3];
  char caConstant[40];
  char caIncrementLen[3];
  char caIncrementCode[2];
  char caKeyCount[6];
  char caGenMode[2];
  char caNextIncrement[41];
  char caMetadata[16][65];
  char caDataFile[2049];     /* the file that a listing is written to; empty for none */
  char caKeyFilter[65];      /* key-name prefix; empty for none */
  char caHighestSequence[7]; /* what DisplayKeyNameList found, hexadecimal */
  char caMirrorName[41];
  char caMirrorHost[257];
  char caMirrorPort[6]; /* zero-padded decimal */
  char caMirrorStatusFlag[2];
  char caAllKeys[2];
  char caSyncKeyName[41];
  char caCertificateName[65];   /* accompanies an imported key value */
  char caRSAPublicCertName[65]; /* wraps an exported one */
  char caRSAPaddingMode[2];
  char caFilePathLen[5]; /* decimal, of the caller's path before it was cut */
  char caKeyValue[256];  /* to import, or exported; not text */
  char caCertType[2];
  char caCertName[65]; /* of a certificate or a private key */
  char caImportFlag[2];
  char caByteCount[6]; /* of the file behind the request, zero-padded decimal */
  char caFipsMode[2];  /* what ReportFipsMode received, as the version */
  char caVersion[33];
} RequestFields;

/* One call's private record, from the opening of the connection to its end. */
typedef struct Session {
  const char *pcaFilter[16]; /* filter criteria of a metadata query */
  pthread_t tidCaller;
  char caFilePath[2049];    /* the file that a call reads or writes */
  char caRspBuf[5 + 16384]; /* the reply as received: length digits, then the reply proper */
  int32_t iBytesRead;       /* traced with every reply; stays 0 */
  char caTranLen[6];        /* the reply's length digits */
  int32_t iStatus;
  char caMoreFlag[2];  /* of a page */
  char caListCount[6]; /* of a page: bytes of entries behind it */
  char caHost[41];
  char caPort[6];
  char caCertPath1[2049];
  char caCertPath2[2049];
  char caCertDir[2049];
  char caTimeout1[256]; /* what SetTimeout had set when the session was opened */
  char caTimeout2[256];
  char *pCertPath3; /* owned by the session: 2056 bytes */
  RequestFields request;
  KeyRecord policy; /* what DisplaySymKeyPolicy received */
  void *hTlsRead;
  void *hTlsAux;
  void *hTls;
} Session;

typedef struct LinkedList LinkedList; /* orn/support.h */

/* 1043: connectivity check. result: 5 bytes, receives the return code as text. A null result is ERR_NULL_RESULT. */
void AdminNoop(Session *session, char result[5]);

/* 2003: draws the next key of a template; wants caConstant, caIncrementLen, caIncrementCode, caConstantLen and
 * caKeyFormat.
 */
void GetNextKey(Session *session, NextKeyBlock *block);

/* 2001: fetches a key; wants caKeyName, caInstance and caKeyFormat. A null record is ERR_NULL_RESULT. */
void RetrieveKey(Session *session, KeyRecord *record);

/* 1003: reads a key's policy into session->policy; wants caKeyName and caInstance. */
void DisplaySymKeyPolicy(Session *session);

/* 1001: creates a key; wants caKeyName, the policy fields, caUserGroupFlag, caUser and caGroup. */
void CreateSymKey(Session *session);

/* 1117: generates a batch of keys; wants the template fields, caKeyCount, caGenMode and what CreateSymKey wants but a
 * name.
 */
void AutoGenKeys(Session *session);

/* 1107: creates the key database; wants nothing. */
void CreateDB(Session *session);

/* 1015: deletes a key; wants caKeyName. */
void DeleteKey(Session *session);

/* 1005: makes a key deletable; wants caKeyName, caInstance and caDeletable. */
void ChangeDeletable(Session *session);

/* 1121: reads the state of a template into depth, which may be null; wants caConstant, caIncrementLen and
 * caConstantLen. */
void GetTemplateDepth(Session *session, TemplateDepth *depth);

/* 1123: appends the constant of every template to list, which may be null; wants nothing. */
void GetTemplateList(Session *session, LinkedList *list);

/* 1125: removes a template; wants caConstant, caConstantLen and caIncrementLen. */
void RemoveTemplate(Session *session);

/* 1159: sets the increment that a template serves next; wants what RemoveTemplate wants and caNextIncrement. */
void SetNextIncrement(Session *session);

/* 1039: overwrites the sixteen metadata fields of a key; wants caKeyName, caInstance and caMetadata, each field of
 * exactly 64 characters: field MDk of another length is the status 10000 - k, and nothing is sent. A wrong MD01 is also
 * told on standard output. */
void SetMetadata(Session *session);

/* 1053: queries the metadata of keys, page by page, into caDataFile, if that is not empty, and into list, which may be
 * null; wants the criteria in pcaFilter, in field order, empty ones included, up to the first null pointer. */
void RetrieveMetadata(Session *session, LinkedList *list);

/* 1037: lists the names of keys, page by page, into caDataFile, if that is not empty, and into list, which may be null;
 * wants caKeyFilter and leaves caHighestSequence. */
void DisplayKeyNameList(Session *session, LinkedList *list);

/* 1129: adds or replaces a mirror's address; wants caMirrorName, caMirrorHost and caMirrorPort. */
void SetMirrorAddress(Session *session);

/* 1127: reads a mirror's address into the first three fields of record, which must come zeroed; wants caMirrorName. */
void GetMirrorAddress(Session *session, MirrorRecord *record);

/* 1131: removes a mirror's address; wants caMirrorName. */
void RemoveMirrorAddress(Session *session);

/* 1133: appends the name of every mirror to list, which may be null; wants nothing. */
void ListMirrorNames(Session *session, LinkedList *list);

/* 1135: reads a mirror's health into record: name, fault count, the two statuses, detail; wants caMirrorName and
 * caMirrorStatusFlag. */
void GetMirrorStatus(Session *session, MirrorRecord *record);

/* 1147: reads the size of a mirror's replication queue into record; wants caMirrorName. */
void GetQueueSize(Session *session, MirrorRecord *record);

/* 1151: makes the server synchronise keys to a mirror; wants caMirrorName, caAllKeys and caSyncKeyName. */
void ForceKeySync(Session *session);

/* 1137: reads the health of the appliance into record, and its sensor data, page by page, into session->caFilePath, if
 * that is not empty. Ends with the line "**end" on standard output. record is untouched when no whole reply arrived. */
void GetSystemStatus(Session *session, SystemStatusRecord *record);

/* 1047: reads the FIPS mode and the version into caFipsMode and caVersion; wants nothing. result: 6 bytes, receives the
 * mode and the return code as text. A null result is ERR_NULL_RESULT. */
void ReportFipsMode(Session *session, char result[6]);

/* 1041: makes the server validate its key database; wants nothing. Leaves session->caListCount of the last page: more
 * than 0 when something is wrong. The pages' headers are also told on standard output. */
void ValidateDB(Session *session);

/* 1023: imports a key; wants caKeyName, the policy fields, caMirrorKey, caKeyFormat ("BIN", "B16", "B64" or "RSA"),
 * caCertificateName and caRSAPaddingMode. The value comes from session->caFilePath when caFilePathLen is above 0, and
 * from caKeyValue otherwise, as many bytes as format and caKeySizeBits say: none for a size that is not 128, 192 or
 * 256, but always 256 for "RSA". Another caKeyFormat is ERR_IMPORT_KEY_FORMAT, and nothing is sent. */
void ImportSymKey(Session *session);

/* 1025: exports a key into caKeyValue and into session->caFilePath, if that is not empty; wants caKeyName, caInstance,
 * caKeyFormat, caRSAPublicCertName and caRSAPaddingMode. The file is written whatever the return code is. */
void ExportSymKey(Session *session);

/* 1139: sends the first 16305 bytes of session->caFilePath as a certificate; wants caCertType, caCertName and
 * caImportFlag.
 */
void ImportCertificate(Session *session);

/* 1143: sends the first 16306 bytes of session->caFilePath as a private key; wants caCertName and caImportFlag. */
void ImportPrivateKey(Session *session);

/* 1153: receives a certificate into session->caFilePath; wants caCertType and caCertName. The file is written whatever
 * the return code is. */
void ExportCertificate(Session *session);

/* 1141: deletes a certificate; wants caCertType and caCertName. */
void DeleteCertificate(Session *session);

/* 1145: deletes a private key; wants caCertName. */
void DeletePrivateKey(Session *session);

/* 1049: lists the names of the certificates of caCertType, page by page, into session->caFilePath, if that is not
 * empty, and into list, which may be null. The pages' return codes do not count. */
void GetCertificateList(Session *session, LinkedList *list);

/* 1119: lists the names of the private keys in the same way; wants nothing. */
void GetPrivateKeyList(Session *session, LinkedList *list);

#ifdef __cplusplus
}
#endif
#endif
