/* The transaction functions of libvesk: one per server operation, each working on an open session.
 *
 * Programs call the public calls of orn/vesk.h, which open a session, fill its request, call the transaction function
 * and close the session. The functions are exported for programs that fill a session themselves. The layout of Session
 * may change with any release of the library: such programs are compiled against the release that they run with.
 *
 * Each function leaves its outcome in session->iStatus and clears every buffer of its own. A session belongs to one
 * thread and serves one transaction. */
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

/* Connectivity check. result: 5 bytes, receives the return code as text. A null result is ERR_NULL_RESULT. */
void AdminNoop(Session *session, char result[5]);

/* Draws the next key of a template; wants caConstant, caIncrementLen, caIncrementCode, caConstantLen and caKeyFormat.
 */
void GetNextKey(Session *session, NextKeyBlock *block);

/* Fetches a key; wants caKeyName, caInstance and caKeyFormat. A null record is ERR_NULL_RESULT. */
void RetrieveKey(Session *session, KeyRecord *record);

/* Reads a key's policy into session->policy; wants caKeyName and caInstance. */
void DisplaySymKeyPolicy(Session *session);

/* Creates a key; wants caKeyName, the policy fields, caUserGroupFlag, caUser and caGroup. */
void CreateSymKey(Session *session);

/* Generates a batch of keys; wants the template fields, caKeyCount, caGenMode and what CreateSymKey wants but a name.
 */
void AutoGenKeys(Session *session);

/* Creates the key database; wants nothing. */
void CreateDB(Session *session);

/* Deletes a key; wants caKeyName. */
void DeleteKey(Session *session);

/* Makes a key deletable; wants caKeyName, caInstance and caDeletable. */
void ChangeDeletable(Session *session);

/* Reads the state of a template into depth, which may be null; wants caConstant, caIncrementLen and caConstantLen. */
void GetTemplateDepth(Session *session, TemplateDepth *depth);

/* Appends the constant of every template to list, which may be null; wants nothing. */
void GetTemplateList(Session *session, LinkedList *list);

/* Removes a template; wants caConstant, caConstantLen and caIncrementLen. */
void RemoveTemplate(Session *session);

/* Sets the increment that a template serves next; wants what RemoveTemplate wants and caNextIncrement. */
void SetNextIncrement(Session *session);

/* Overwrites the sixteen metadata fields of a key; wants caKeyName, caInstance and caMetadata, each field of exactly 64
 * characters: field MDk of another length is the status 10000 - k, and nothing is sent. A wrong MD01 is also told on
 * standard output. */
void SetMetadata(Session *session);

/* Queries the metadata of keys, page by page, into caDataFile, if that is not empty, and into list, which may be null;
 * wants the criteria in pcaFilter, in field order, empty ones included, up to the first null pointer. */
void RetrieveMetadata(Session *session, LinkedList *list);

/* Lists the names of keys, page by page, into caDataFile, if that is not empty, and into list, which may be null; wants
 * caKeyFilter and leaves caHighestSequence. */
void DisplayKeyNameList(Session *session, LinkedList *list);

#ifdef __cplusplus
}
#endif
#endif
