/* libvesk: the client side of network key management, callable from C11 and C++20.
 *
 * A program calls SetupCertificates once, perhaps SetTimeout, and then public calls, each of which stands alone: it
 * opens one mutually authenticated TLS connection to the key server, sends one transaction, reads the reply into the
 * caller's buffers, and closes the connection.
 *
 * Every public call takes first
 *   paths  the certificate paths that SetupCertificates filled; not null
 *   host   the server's host name or numeric address, at most 40 characters: more are cut off
 *   port   the server's port, 1 to 65535; of a number of more than five digits only the first five are used
 * and returns a status: 0 when the server answered "0000" and the reply was processed, otherwise the status of the
 * first step that failed (orn/status.h; StatusText() in orn/support.h explains any of them):
 *
 *   CONN_ERR_ codes  the connection could not be made, or sending or reading failed; outputs are as the call says
 *   library codes    named at the call
 *   four digits      the server's return code
 *
 * Text arguments are NUL-terminated and not changed; text longer than its field is cut to the field's width, and a null
 * pointer counts as empty text, unless a call says otherwise. Widths are in characters without terminator; buffer sizes
 * are in bytes with it. The caller owns everything that it passes; a call keeps no pointer to it. What a call writes to
 * may not overlap what it reads.
 *
 * Threads: any number of threads may make calls at the same time. Only SetTimeout is process-wide: call it before.
 *
 * A call blocks until the reply has been read or a time-out has run out: 10 seconds for connection and handshake, 60
 * for sending the request, 60, unless the call names more, until the length of the reply has arrived, and 60 for the
 * rest of it. No call prints to the terminal unless it says so, and none ends the process unless there is no memory
 * for its session or for the one buffer that calls with a list or a file have besides. */
#ifndef ORN_VESK_H
#define ORN_VESK_H

#include <stddef.h>
#include <stdint.h>

#include "orn/records.h"
#include "orn/status.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct CertificateInfo CertificateInfo; /* orn/support.h */
typedef struct LinkedList LinkedList;           /* orn/support.h */

/* ---- Set-up and helpers --------------------------------------------------------------------------------------------
 */

/* The client's certificate files: the directory, ending in '/', then the directory joined with each of three file
 * names: file 1 the trusted authority, file 2 the client's certificate chain, file 3 its private key, all PEM. Each
 * path has at most 100 characters. */
typedef struct CertificatePaths {
  char caPath[4][2049];
} CertificatePaths;

/* Fills paths from a directory (a '/' is added when it is missing) and three file names. Returns 0;
 * ERR_CERT_PATH_LENGTH when a path would exceed 100 characters; ERR_CERT_DIR_FORM for a directory of exactly 100
 * characters that does not end in '/'. paths must not be null, and is untouched on failure. No file is opened. */
int SetupCertificates(CertificatePaths *paths, const char *dirName, const char *fileName1, const char *fileName2,
                      const char *fileName3);

/* Records two time-outs, in seconds, in the sessions opened from now on. Initially 10 and 0. They do not change how
 * long a call waits, which each transaction fixes. Not to be called while other threads make calls. */
void SetTimeout(uint32_t timeout1, uint32_t timeout2);

/* Copies at most size - 1 characters of source and terminates them; always writes the last byte of destination, which
 * must really hold size bytes. With size 0 nothing is written. source must not be null. Returns its length. */
size_t vesk_strlcpy(char *destination, const char *source, size_t size);

/* Copies a text without trailing blanks, tabs and newlines: strip_with_length for the length of source, which must not
 * be null. */
char *strip(const char *source, char *destination);

/* Copies length + 1 bytes of source to destination and ends the text behind its last character that is not a blank, tab
 * or newline. A text of blanks alone is left as it is, and has no end when source[length] is none.
 * Both must hold length + 1 bytes and may be the same buffer. Returns destination. */
char *strip_with_length(const char *source, char *destination, size_t length);

/* Connects as every call does and describes two certificates of the server's chain: the last of it in caInfo, the one
 * before it in commInfo. No transaction is sent. Neither pointer may be null. Returns 0; ERR_NO_CA_CERT for an empty
 * chain (neither is filled); ERR_NO_COMM_CERT for a chain of one (caInfo is filled); or a CONN_ERR_ code. */
int GetServerCertificateInfo(const CertificatePaths *paths, const char *host, uint32_t port, CertificateInfo *caInfo,
                             CertificateInfo *commInfo);

/* Writes a label and the text form of a certificate summary to the trace. label must not be null. */
void logCertInfo(const char *label, const CertificateInfo *info);

/* ---- Connectivity --------------------------------------------------------------------------------------------------
 */

/* Proves that the server can be reached, accepts the client's certificate and answers. */
int qAdminNoop(const CertificatePaths *paths, const char *host, uint32_t port);

/* ---- Serving keys --------------------------------------------------------------------------------------------------
 */

/* Draws the next key of a key template: every call serves an increment of its own.
 *
 * constant       names the template: 15 characters; more than 39 are cut off
 * keyName        41 bytes, receives the key's name
 * keyValue       32 bytes, receives the key. Wipe it after use.
 * lastIncrement  receives the increment served
 *
 * Returns 0; ERR_NULL_ARGUMENT for a null keyName, before anything else (the other two must not be null);
 * ERR_NEXT_KEY_SIZE; a server return code (the template is exhausted, for example); or a CONN_ERR_ code. The outputs
 * are untouched after every failure. */
int qGetNextKey(const CertificatePaths *paths, const char *host, uint32_t port, const char *constant, char *keyName,
                unsigned char *keyValue, uint32_t *lastIncrement);

/* Fetches one key.
 *
 * keyName   at most 40 characters; a name given with trailing blanks never matches
 * instance  at most 24 characters; empty for the current instance
 * record    1607 bytes, zeroed first. Its name comes trimmed; caKeyValue holds 256 bytes as received, of which the
 *           first caKeySizeBits / 8 are the key. Wipe it after use.
 *
 * Returns 0; ERR_NULL_ARGUMENT for a null record, before anything else; ERR_KEY_NAME_MISMATCH when the key returned
 * carries another name (record holds the reply); a server return code (record holds the reply, its name untrimmed);
 * ERR_TRANSACTION_SIZE or a CONN_ERR_ code (record is zero). */
int qRetrieveKey(const CertificatePaths *paths, const char *host, uint32_t port, const char *keyName,
                 const char *instance, KeyRecord *record);

/* Reads the sixteen metadata fields of a key's current instance.
 *
 * keyName  at most 40 characters
 * values   1040 bytes, zeroed first; trailing blanks of the fields are kept
 *
 * Returns 0; ERR_NULL_ARGUMENT for null values, before anything else; ERR_TRANSACTION_SIZE; a server return code; or a
 * CONN_ERR_ code. values stays zero after every failure. */
int qRetrieveKeyMetadata(const CertificatePaths *paths, const char *host, uint32_t port, const char *keyName,
                         KeyMetadataValues *values);

/* ---- Key lifecycle -------------------------------------------------------------------------------------------------
 */

/* Creates a 256-bit key with neither activation nor expiration date nor rollover, deletable.
 *
 * keyName     at most 40 characters
 * cMirrorKey  'Y' makes it a mirror key, which the server replicates; any other character does not
 *
 * Returns 0, ERR_TRANSACTION_SIZE, a server return code (a key of that name exists, for example) or a CONN_ERR_ code.
 */
int qCreateSymKey(const CertificatePaths *paths, const char *host, uint32_t port, const char *keyName, char cMirrorKey);

/* Generates a batch of 256-bit mirror keys for a key template, with the policy of qCreateSymKey. Waits up to 1200
 * seconds for the server.
 *
 * constant  names the template: 15 characters; more than 39 are cut off
 * cGenMode  'a' adds to an existing template; any other character makes a new one
 * count     number of keys. The request has room for five digits: of a count above 99999 only the first five are sent.
 *
 * Returns 0; ERR_KEY_COUNT_RANGE for a count above 16777215, before anything else; ERR_AUTOGEN_SIZE; a server return
 * code; or a CONN_ERR_ code. */
int qAutoGenKeys(const CertificatePaths *paths, const char *host, uint32_t port, const char *constant, char cGenMode,
                 uint32_t count);

/* Asks the server to create its key database. Returns 0, ERR_TRANSACTION_SIZE, a server return code or a CONN_ERR_
 * code. */
int qCreateDatabase(const CertificatePaths *paths, const char *host, uint32_t port);

/* Deletes a key. keyName: at most 40 characters. Returns 0, ERR_TRANSACTION_SIZE, a server return code (there is no
 * such key, or it may not be deleted, for example) or a CONN_ERR_ code. */
int qDeleteKey(const CertificatePaths *paths, const char *host, uint32_t port, const char *keyName);

/* Makes a key deletable. It cannot be made undeletable: cDeletable is accepted and not used. Waits up to 1200 seconds
 * for the server. keyName: at most 40 characters. Returns 0, ERR_AUTOGEN_SIZE, a server return code or a CONN_ERR_
 * code. */
int qChangeDeletable(const CertificatePaths *paths, const char *host, uint32_t port, const char *keyName,
                     char cDeletable);

/* ---- Key templates ------------------------------------------------------------------------------------------------
 *
 * constant names the template: 15 characters; more than 39 are cut off. */

/* Reads how large a template is and how far it has been served.
 *
 * piTemplateSize  receives the last increment that the template has
 * piSequenceOut   receives the increment that it serves next, or one more than the last when all are served
 *
 * Neither may be null; both are written only on success. Returns 0, ERR_REPLY_SIZE, a server return code or a CONN_ERR_
 * code. */
int qGetTemplateDepth(const CertificatePaths *paths, const char *host, uint32_t port, const char *constant,
                      uint32_t *piTemplateSize, uint32_t *piSequenceOut);

/* Appends the constant of every template to list, NUL-terminated, without trailing blanks, in the server's order. The
 * caller creates the list (ll_create, 40 bytes an element) and frees it; in shorter elements a constant is cut. What
 * was appended before a failure stays. Returns 0, ERR_LIST_SIZE, a server return code or a CONN_ERR_ code. */
int qGetTemplateList(const CertificatePaths *paths, const char *host, uint32_t port, LinkedList *list);

/* Removes a template. Returns 0, ERR_TRANSACTION_SIZE, a server return code or a CONN_ERR_ code. */
int qRemoveTemplate(const CertificatePaths *paths, const char *host, uint32_t port, const char *constant);

/* Sets the increment that a template serves next, 0 to 16777215; a larger one is sent as it is. Returns 0,
 * ERR_REPLY_SIZE, a server return code or a CONN_ERR_ code. */
int qSetNextIncrement(const CertificatePaths *paths, const char *host, uint32_t port, const char *constant,
                      uint32_t iNextIncrement);

/* ---- Key metadata ---------------------------------------------------------------------------------------------------
 *
 * Every key has sixteen metadata fields, MD01 to MD16, of 64 characters of free text, to which neither library nor
 * server gives a meaning. */

/* Names of the operators of a metadata query, which are given by index: 0 "XX" the field is not tested, 1 "EQ" equal,
 * 2 "NE" not equal, 3 "CT" contains, 4 "GT" greater, 5 "LT" less, 6 "GE" greater or equal, 7 "LE" less or equal. */
extern const char opLut[8][3];

/* Overwrites all sixteen metadata fields of a key.
 *
 * keyName   at most 40 characters
 * instance  at most 24 characters; empty for the current instance
 * mdNN      at most 64 characters each. A null md03 counts as empty text; none of the others may be null.
 *
 * Returns 0; ERR_METADATA_ARGUMENT, before anything else, when the addresses of the fields but md03 have no bit in
 * common, as a null pointer among them makes certain; ERR_TRANSACTION_SIZE; a server return code; or a CONN_ERR_ code.
 */
int qSetMetadata(const CertificatePaths *paths, const char *host, uint32_t port, const char *keyName,
                 const char *instance, const char *md01, const char *md02, const char *md03, const char *md04,
                 const char *md05, const char *md06, const char *md07, const char *md08, const char *md09,
                 const char *md10, const char *md11, const char *md12, const char *md13, const char *md14,
                 const char *md15, const char *md16);

/* Queries the metadata of all keys and writes a line for each key that meets every criterion:
 * name,MD01,MD02,MD03,MD04,MD05,MD06,MD07 without trailing blanks. Commas in the fields are written as they are. Waits
 * up to 300 seconds for each page.
 *
 * valueNN, operatorNN  the criterion of field NN: at most 64 characters, and an index into opLut. A null value or the
 *                      index 0 leaves the field untested.
 * outputFile           created or truncated, at most 2048 characters; empty for none. When it cannot be opened or
 *                      written, the call returns 0 all the same and only the trace tells.
 *
 * Returns 0; ERR_METADATA_ARGUMENT, before anything else, for an index outside opLut; ERR_METADATA_TRANSACTION_SIZE; a
 * server return code; or a CONN_ERR_ code. Lines written before a failure stay. */
int qRetrieveMetadata(const CertificatePaths *paths, const char *host, uint32_t port, const char *value01,
                      int operator01, const char *value02, int operator02, const char *value03, int operator03,
                      const char *value04, int operator04, const char *value05, int operator05, const char *value06,
                      int operator06, const char *value07, int operator07, const char *value08, int operator08,
                      const char *value09, int operator09, const char *value10, int operator10, const char *value11,
                      int operator11, const char *value12, int operator12, const char *value13, int operator13,
                      const char *value14, int operator14, const char *value15, int operator15, const char *value16,
                      int operator16, const char *outputFile);

/* The same query into a list that the caller creates (ll_create(sizeof(KeyMetadataSummary))) and frees. */
int qRetrieveMetadata_as_ll(const CertificatePaths *paths, const char *host, uint32_t port, const char *value01,
                            int operator01, const char *value02, int operator02, const char *value03, int operator03,
                            const char *value04, int operator04, const char *value05, int operator05,
                            const char *value06, int operator06, const char *value07, int operator07,
                            const char *value08, int operator08, const char *value09, int operator09,
                            const char *value10, int operator10, const char *value11, int operator11,
                            const char *value12, int operator12, const char *value13, int operator13,
                            const char *value14, int operator14, const char *value15, int operator15,
                            const char *value16, int operator16, LinkedList *list);

/* ---- Key names -----------------------------------------------------------------------------------------------------
 *
 * The list of all key names, page by page: it takes memory for one page, whatever their number. Each call waits up to
 * 300 seconds for each page.
 *
 * dataFile         created or truncated, at most 2048 characters; receives a line for each name: its 40 characters,
 *                  blanks kept. Empty for none. When it cannot be written in full, the list ends there with status 0
 *                  and a highest sequence of 0, and the trace tells.
 * list             created by the caller (ll_create(41)) and freed by the caller; receives each name, blanks kept
 * filter           at most 64 characters, of which the first 40 count: only names that begin so are delivered; empty
 *                  for all. The server sends all names in any case.
 * highestSequence  receives the highest sequence number that the delivered names carry in their characters 16 to 21,
 *                  hexadecimal; 16777215 when there was none. A name that carries "000000" starts the count anew.
 *                  Written only on success.
 *
 * Return 0; ERR_LIST_FILE when dataFile could not be opened; ERR_TRANSACTION_SIZE; a server return code; or a CONN_ERR_
 * code. Names delivered before a failure stay. */
int qRetrieveKeyNameList(const CertificatePaths *paths, const char *host, uint32_t port, const char *dataFile);
int qRetrieveKeyNameList_as_ll(const CertificatePaths *paths, const char *host, uint32_t port, LinkedList *list);
int qRetrieveKeyNameListFiltered(const CertificatePaths *paths, const char *host, uint32_t port, const char *dataFile,
                                 const char *filter, uint32_t *highestSequence);
int qRetrieveKeyNameListFiltered_as_ll(const CertificatePaths *paths, const char *host, uint32_t port, LinkedList *list,
                                       const char *filter, uint32_t *highestSequence);

/* ---- Mirrors --------------------------------------------------------------------------------------------------------
 *
 * The server replicates mirror keys to its mirrors, each known by a name of at most 40 characters, mirrorName, under
 * which an address book holds its host name and port. */

/* Adds a mirror's address or replaces it.
 *
 * mirrorHost  at most 256 characters
 * mirrorPort  the request has room for five digits: of a larger number only the first five are sent
 *
 * Returns 0, ERR_REPLY_SIZE, a server return code or a CONN_ERR_ code. */
int qSetMirrorAddress(const CertificatePaths *paths, const char *host, uint32_t port, const char *mirrorName,
                      const char *mirrorHost, uint32_t mirrorPort);

/* Looks a mirror's address up.
 *
 * mirrorHostOut   receives the host name, without trailing blanks, cut to what fits with a terminator
 * iMirrorHostLen  size of mirrorHostOut; of more than 256 bytes only 256 are used, with 0 nothing is written. The last
 *                 byte that may be used is always set to 0.
 * piMirrorPort    receives the port
 *
 * Neither output may be null, but mirrorHostOut of size 0; both are written only on success. Returns 0,
 * ERR_TRANSACTION_SIZE, a server return code (there is no such mirror, for example) or a CONN_ERR_ code. */
int qGetMirrorAddress(const CertificatePaths *paths, const char *host, uint32_t port, const char *mirrorName,
                      char *mirrorHostOut, uint32_t iMirrorHostLen, uint32_t *piMirrorPort);

/* Removes a mirror's address. Returns 0, ERR_TRANSACTION_SIZE, a server return code or a CONN_ERR_ code. */
int qRemoveMirrorAddress(const CertificatePaths *paths, const char *host, uint32_t port, const char *mirrorName);

/* Appends the name of every mirror to list, NUL-terminated, without trailing blanks, in the server's order. The caller
 * creates the list (ll_create(41)) and frees it; in shorter elements a name is cut. Waits up to 300 seconds for each
 * page. What was appended before a failure stays. Returns 0, ERR_TRANSACTION_SIZE, a server return code or a CONN_ERR_
 * code. */
int qListMirrorNames(const CertificatePaths *paths, const char *host, uint32_t port, LinkedList *list);

/* Reads a mirror's health. The meaning of the two status characters is the server's.
 *
 * statusFlag        sent as "Y" when it is not 0, as "N" when it is
 * plFaultCount      receives the number of faults; 2147483647 for more
 * pcStatus          receives one character, no terminator
 * pcDataHashStatus  likewise
 *
 * None of the outputs may be null; all are written only on success. Returns 0, ERR_TRANSACTION_SIZE, a server return
 * code or a CONN_ERR_ code. */
int qGetMirrorStatus(const CertificatePaths *paths, const char *host, uint32_t port, const char *mirrorName,
                     int statusFlag, int32_t *plFaultCount, char *pcStatus, char *pcDataHashStatus);

/* Reads the size of a mirror's replication queue into plQueueSize, which must not be null and is written only on
 * success; 2147483647 for more. Returns 0, ERR_TRANSACTION_SIZE, a server return code or a CONN_ERR_ code. */
int qGetQueueSize(const CertificatePaths *paths, const char *host, uint32_t port, const char *mirrorName,
                  int32_t *plQueueSize);

/* Makes the server synchronise a mirror. keyName: the key, at most 40 characters, or a null pointer for all keys; an
 * empty name does not stand for all. Returns 0, ERR_TRANSACTION_SIZE, a server return code or a CONN_ERR_ code. */
int qForceKeySync(const CertificatePaths *paths, const char *host, uint32_t port, const char *mirrorName,
                  const char *keyName);

/* ---- The appliance -------------------------------------------------------------------------------------------------
 */

/* Reads the health of the appliance that the server runs on, and its sensor data. Writes the line "**end" to standard
 * output when all has arrived.
 *
 * appStatus       5 bytes, receives 4 characters, terminated; so do the others
 * coreStatus      9 bytes
 * diskStatus      9 bytes
 * voltageStatus   9 bytes
 * batteryStatus   3 bytes
 * fanStatus       5 bytes
 * temperature     9 bytes
 * sensorDataFile  created or truncated, at most 2048 characters; receives the sensor data as the server sent it. Empty
 *                 for none. When it cannot be written in full, only the trace tells.
 *
 * None of the buffers may be null. Returns 0; ERR_HARDWARE_FAULT when a '1' or an '8' stands in any of the seven, the
 * temperature included; ERR_SENSOR_FILE when the file could not be opened; ERR_APPLIANCE_SIZE; a server return code; or
 * a CONN_ERR_ code. The buffers are written on success and with ERR_HARDWARE_FAULT, and otherwise untouched. */
int qGetSystemStatus(const CertificatePaths *paths, const char *host, uint32_t port, char *appStatus, char *coreStatus,
                     char *diskStatus, char *voltageStatus, char *batteryStatus, char *fanStatus, char *temperature,
                     const char *sensorDataFile);

/* Reads the server's version, and whether it runs in FIPS mode.
 *
 * version  33 bytes, receives 32 characters, blanks kept. It must not be null, and is written on success and with -1.
 *
 * Returns 0 in FIPS mode and -1 in any other; ERR_TRANSACTION_SIZE; a server return code; or a CONN_ERR_ code. */
int qReportFipsMode(const CertificatePaths *paths, const char *host, uint32_t port, char *version);

/* Makes the server validate its key database. Waits up to 300 seconds for each page of what it found, which goes to the
 * trace; the header of each page goes to standard output as well, five lines.
 *
 * Returns 0; ERR_DATABASE_INVALID when the last page lists a problem; ERR_APPLIANCE_SIZE; a server return code; or a
 * CONN_ERR_ code. */
int qValidateKeyDatabase(const CertificatePaths *paths, const char *host, uint32_t port);

/* ---- Key transfer --------------------------------------------------------------------------------------------------
 *
 * Keys that come from outside and keys that leave, their values wrapped: encrypted with the RSA key of a certificate
 * that the server keeps, certificateName, at most 64 characters. A wrapped value has 256 bytes. */

/* Imports a 256-bit key with neither dates nor rollover, deletable, not a mirror key.
 *
 * keyName     at most 40 characters
 * importFile  the file whose first 256 bytes are the wrapped value; at most 2048 characters. A null pointer for data
 *             instead. With an empty path neither is used, and the value is sent as 256 zero bytes.
 * data        256 bytes, the wrapped value; not read when importFile is given
 *
 * Returns 0; ERR_NULL_ARGUMENT when both are null, before anything else; ERR_IMPORT_FILE_OPEN, ERR_IMPORT_FILE_READ
 * (the file has fewer than 256 bytes) or ERR_IMPORT_FILE_CLOSE, when nothing was sent; ERR_TRANSACTION_SIZE; a server
 * return code; or a CONN_ERR_ code. */
int qImportSymKey(const CertificatePaths *paths, const char *host, uint32_t port, const char *keyName,
                  const char *certificateName, const char *importFile, const void *data);

/* Exports a key.
 *
 * keyName     at most 40 characters
 * instance    at most 24 characters; empty for the current instance
 * exportFile  created or truncated, at most 2048 characters; receives the wrapped value and nothing else, as many bytes
 *             as the reply declares: of more than 256 the rest is zero bytes. Null or empty for none. It is written
 *             whatever the server's return code is, and when what is buffered cannot be written at its end, only the
 *             trace tells.
 * keyValue    256 bytes, receives the wrapped value on success and is otherwise untouched; null for none
 *
 * Returns 0; ERR_EXPORT_FILE_OPEN or ERR_EXPORT_FILE_WRITE; ERR_EXPORT_SIZE; a server return code; or a CONN_ERR_ code.
 */
int qExportSymKey(const CertificatePaths *paths, const char *host, uint32_t port, const char *keyName,
                  const char *instance, const char *certificateName, const char *exportFile, void *keyValue);

/* ---- Certificates and private keys ---------------------------------------------------------------------------------
 *
 * The server's store of certificates and private keys, each known by a name of at most 64 characters and, for
 * certificates, by a type, a character whose meaning is the server's. Files hold them as they are: nothing is parsed.
 * Paths have at most 2048 characters. */

/* Sends a certificate, of type 'C', to the server.
 *
 * importFile  its first 16305 bytes are sent
 * importFlag  sent as "Y" when it is not 0, as "N" when it is
 *
 * Returns 0; ERR_DATA_FILE when the file could not be opened or read; ERR_TRANSACTION_SIZE; a server return code; or a
 * CONN_ERR_ code. */
int qImportCertificate(const CertificatePaths *paths, const char *host, uint32_t port, const char *importFile,
                       const char *certificateName, int importFlag);

/* Sends a private key to the server: the first 16306 bytes of importFile, which are wiped from memory. Returns what
 * qImportCertificate does. */
int qImportPrivateKey(const CertificatePaths *paths, const char *host, uint32_t port, const char *importFile,
                      const char *privateKeyName);

/* Fetches a certificate.
 *
 * exportFile  created or truncated; receives as many bytes as the reply declares. Those that did not arrive are zero,
 *             and the status tells. It is written whatever the server's return code is.
 *
 * Returns 0; ERR_EXPORT_FILE_OPEN or ERR_EXPORT_FILE_WRITE; ERR_EXPORT_SIZE; a server return code; or a CONN_ERR_ code.
 */
int qExportCertificate(const CertificatePaths *paths, const char *host, uint32_t port, const char *certificateName,
                       char certificateType, const char *exportFile);

/* Deletes a certificate. Returns 0, ERR_TRANSACTION_SIZE, a server return code or a CONN_ERR_ code. */
int qDeleteCertificate(const CertificatePaths *paths, const char *host, uint32_t port, const char *certificateName,
                       char certificateType);

/* Deletes a private key. Returns 0, ERR_TRANSACTION_SIZE, a server return code or a CONN_ERR_ code. */
int qDeletePrivateKey(const CertificatePaths *paths, const char *host, uint32_t port, const char *privateKeyName);

/* Lists the names of the certificates of a type, or of the private keys, page by page, without trailing blanks, in the
 * server's order.
 *
 * outputFile  created or truncated; receives a line for each name. Empty for none.
 * list        created by the caller (ll_create(65)) and freed by the caller; receives each name, NUL-terminated. In
 *             shorter elements a name is cut.
 *
 * Return 0, whatever the server's return codes are; ERR_NAME_FILE_OPEN or ERR_NAME_FILE_WRITE; ERR_LIST_SIZE; or a
 * CONN_ERR_ code. Names delivered before a failure stay. */
int qGetCertificateList(const CertificatePaths *paths, const char *host, uint32_t port, char certificateType,
                        const char *outputFile);
int qGetCertificateList_as_ll(const CertificatePaths *paths, const char *host, uint32_t port, char certificateType,
                              LinkedList *list);
int qGetPrivateKeyList(const CertificatePaths *paths, const char *host, uint32_t port, const char *outputFile);
int qGetPrivateKeyList_as_ll(const CertificatePaths *paths, const char *host, uint32_t port, LinkedList *list);

#ifdef __cplusplus
}
#endif
#endif
