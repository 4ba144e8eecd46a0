/* The connection and support layer (libornsupport): mutually authenticated TLS, trace, certificate summaries, linked
 * lists, and the texts of statuses.
 *
 * libvesk calls SetupConnection, TLSWrite, TLSRead, TLSTeardown, TraceT, DumpBuffer, X509_get_info,
 * CertificateInfo_to_string, ll_append and ll_get_element_size and does not contain them: a program may link libvesk
 * with functions of its own under these ten names. The rest of this header is for programs.
 *
 * Threads: every function may be called from any thread. A connection or a list belongs to one thread at a time. The
 * trace's destination is process-wide, and so is what connections leave for later ones. After fork() the child may open
 * connections of its own; it must not use or tear down those of its parent.
 *
 * None of these functions prints, exits, aborts, changes signal dispositions or masks, raises SIGPIPE, or leaves
 * anything in OpenSSL's error queue. All time-outs are in seconds. */
#ifndef ORN_SUPPORT_H
#define ORN_SUPPORT_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <openssl/types.h>

#include "orn/status.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Connection ---------------------------------------------------------------------------------------------------
 *
 * TLS 1.2 at least and 1.3 preferred, forward secrecy and authenticated encryption always, security level 2, whatever
 * OpenSSL's own configuration says. The server's chain is verified against file 1 alone, each certificate of which is a
 * trust anchor, self-signed or not, and its name against the host that was asked for: a host name against the DNS
 * entries of its certificate, an IPv4 or IPv6 address against the IP entries. None of this can be switched off. */

/* The room that a kept host name has, with terminator. */
enum { ORN_HOST_BYTES = 41 };

/* Connects to host:port and does the handshake with the certificate files as they are at this moment. What the files
 * held is kept for the next connection, and used by it if they have not changed (see below).
 *
 * - phTls, phTlsAux, phTlsRead: receive the connection's three handles, one machine word each; *phTls is an OpenSSL
 *   SSL pointer. All three are 0 after a failure.
 * - certPath2: file 2, the client's certificate chain, PEM, the client's own certificate first; all of it is sent.
 * - certPath1: file 1, the trusted authority, PEM, one or more certificates.
 * - reserved: 0.
 * - certPath3: file 3, the client's private key, PEM, not encrypted.
 * - host: host name, or numeric IPv4 or IPv6 address.
 * - port: decimal, 1 to 65535.
 * - connectTimeout: bounds everything until the handshake is done: name resolution, every resolved address in turn,
 *   TCP, TLS. 0 or less is over at once.
 *
 * The files are regular files of at most 4 MiB. Returns 0, or a CONN_ERR_ code with nothing left open. The detail goes
 * to the trace. */
int SetupConnection(void **phTls, void **phTlsAux, void **phTlsRead, const char *certPath2, const char *certPath1,
                    int reserved, const char *certPath3, const char *host, const char *port, int connectTimeout);

/* Sends all of count bytes. Returns 0, or a CONN_ERR_ code: the peer may then have received any part of them, and the
 * connection is of no more use. What could not be sent within 60 seconds is CONN_ERR_WRITE_TIMED_OUT. */
int TLSWrite(void *hTls, const void *buffer, int count);

/* Reads exactly count bytes into buffer within timeout seconds, all of them together. Returns 0, or a CONN_ERR_ code.
 * *bytesRead (which may be null) receives how many arrived, also on failure: what came before a close is in buffer.
 * A time-out of 0 or less reads what has already arrived. After CONN_ERR_READ_TIMED_OUT the connection may be read on;
 * after any other failure it fails the same way for good. A count of 0 succeeds at once; a negative one is
 * CONN_ERR_ARGUMENT. With TLS 1.3 it is the first read that tells that the server refused the client's certificate. */
int TLSRead(void *hTls, void *hTlsRead, void *buffer, int count, int timeout, int *bytesRead);

/* Closes the connection without waiting for the peer and releases the three handles. Zero handles are accepted, which
 * is what a failed SetupConnection leaves. Returns 0. */
int TLSTeardown(void *hTls, void *hTlsAux, void *hTlsRead);

/* What one connection leaves for later ones of the process, in any thread:
 *
 * - what the certificate files held, while each is the same file of the same size, changed at the same nanosecond; the
 *   last 16 sets of files;
 * - TLS 1.3 session tickets, with which a later handshake needs no certificates. Each is used once, with the same
 *   files, host and port, within an hour of the full handshake that it goes back to and never beyond the validity of
 *   the server's certificate chain, which a resumed connection shows as it was then. A ticket comes with a read, at
 *   most 64 are kept for a server, and a connection on which anything failed leaves none. A server that does not take
 *   a ticket, or fails when it sees one, gets a full handshake within the same SetupConnection, and no ticket for a
 *   minute. The key exchange is fresh each time.
 *
 * A child of fork() starts with nothing kept, and its parent goes on as before. No thread waits for what another does
 * with its files or on its connection. */

/* Switches the resumption of sessions off (0) and on again; it is on when a program starts. Off also drops the tickets
 * that are kept. */
void TLSResumption(int on);

/* Drops all that is kept, which also wipes the private keys. Connections that are open go on, and what they had stays
 * until they are torn down. */
void TLSForgetAll(void);

/* ---- Trace --------------------------------------------------------------------------------------------------------
 *
 * Off until one of the TraceTo functions switches it on; the last one called says where to. Every line is written
 * whole, with time, thread, source path and line. Dumps of key values, of other key material and of the request bytes
 * that carry them show their length and a mask in place of the bytes until TraceRevealSecrets(1). */

/* A line of the trace, without line end, valid during the call. A line begins with the time; those that continue a dump
 * or a message of several lines begin with four spaces. Control characters and non-ASCII bytes are \xNN. It may come
 * from several threads, one at a time; it must not call the library. */
typedef void (*TraceSink)(void *context, const char *line);

void TraceToStream(FILE *stream);  /* the caller keeps the stream open until TraceOff() */
int TraceToFile(const char *path); /* appends, mode 0600; 0, or CONN_ERR_SYSTEM and trace unchanged */
void TraceToCallback(TraceSink sink, void *context);
void TraceOff(void); /* also closes the file that TraceToFile opened */
void TraceRevealSecrets(int reveal);

#if defined(__GNUC__)
#define ORN_PRINTF_LIKE __attribute__((format(printf, 4, 5)))
#else
#define ORN_PRINTF_LIKE
#endif

/* Writes one line of trace. reserved is 0; path and line name the place in the source. */
void TraceT(int reserved, const char *path, int line, const char *format, ...) ORN_PRINTF_LIKE;

/* Writes count bytes as hexadecimal digits and text under a label. reserved is 0; a count below 1 dumps nothing but the
 * label. */
void DumpBuffer(int reserved, const char *path, int line, const void *bytes, int count, const char *label);

/* ---- Certificate summaries -----------------------------------------------------------------------------------------
 */

/* What a certificate says, as NUL-terminated text, each field cut to its width if need be. */
typedef struct CertificateInfo {
  char subject[512]; /* RFC 2253, UTF-8, control characters escaped */
  char issuer[512];
  char serialNumber[64]; /* upper-case hexadecimal */
  char notBefore[32];    /* UTC, as in 2026-01-31T23:59:59Z */
  char notAfter[32];
  char names[1024];           /* subject alternative names: "DNS:kms.example, IP:192.0.2.1" */
  char key[64];               /* algorithm and size, as in "RSA 2048" or "EC P-256" */
  char sha256Fingerprint[96]; /* upper-case hexadecimal pairs with colons */
} CertificateInfo;

/* Fills info from the certificate. What a certificate does not have is empty text. A null certificate empties info. */
void X509_get_info(X509 *certificate, CertificateInfo *info);

/* A readable text of several lines, without a line end behind the last; empty for a null info. The caller frees it with
 * free(). Null when out of memory. */
char *CertificateInfo_to_string(const CertificateInfo *info);

/* ---- Linked lists --------------------------------------------------------------------------------------------------
 *
 * A list owns copies of its elements, all of one size, in the order they were appended. */
typedef struct LinkedList LinkedList;
typedef struct LinkedListNode LinkedListNode;

LinkedList *ll_create(size_t elementSize);            /* null when out of memory; free with ll_free */
void ll_free(LinkedList *list);                       /* wipes and frees the elements too; null is accepted */
int ll_append(LinkedList *list, const void *element); /* copies ll_get_element_size(list) bytes; 0, or CONN_ERR_ARGUMENT
                                                         (a null argument) or CONN_ERR_RESOURCES; constant time */
size_t ll_get_element_size(const LinkedList *list);   /* bytes; 0 for a null list */
size_t ll_count(const LinkedList *list);              /* elements; 0 for a null list */
const LinkedListNode *ll_first(const LinkedList *list); /* null at the end, as ll_next, and for a null list */
const LinkedListNode *ll_next(const LinkedListNode *node);
const void *ll_element(const LinkedListNode *node); /* valid until the list is freed */

/* ---- Statuses ------------------------------------------------------------------------------------------------------
 */

/* The name of a status, as in "CONN_ERR_REFUSED"; "OK" for 0, "SERVER_RETURN_CODE" for the server's other four-digit
 * codes and "UNKNOWN_STATUS" for what nobody uses. Static storage. */
const char *StatusName(int status);

/* One sentence about a status, without full stop. Static storage. */
const char *StatusText(int status);

#ifdef __cplusplus
}
#endif
#endif
