/* Status codes: what every call of libvesk returns and what a session's iStatus holds.
 *
 * One 32-bit word carries four kinds of value, told apart by value alone:
 *
 *   0                 success
 *   1 to 9999         the server's four-digit return code, passed through; a few of the library's own oldest codes lie
 *                     in the same range (listed below)
 *   11000 to 20012,   the library's codes
 *   and below 0
 *   30001 to 30099    the connection layer's codes (libornsupport). A program that links a support layer of its own
 *                     sees that layer's codes instead.
 *
 * StatusName() and StatusText() in orn/support.h give the name and a sentence for any value.
 *
 * This header is the only place that lists the codes: the enumerators and the texts are both made from it. Without an
 * enumerator are -1, the answer no of qReportFipsMode, and 9984 to 9998, the fields MD16 to MD02 of SetMetadata. */
#ifndef ORN_STATUS_H
#define ORN_STATUS_H

/* X(name, value, sentence). 20002 and 20006 are not used. */
#define ORN_LIBRARY_STATUSES(X)                                                                                      \
  X(ERR_KEY_COUNT_RANGE, -3,                                                                                         \
    "the number of keys asked for is above 16777215, the most that six hexadecimal digits count")                    \
  X(ERR_NULL_RESULT, 1, "the result pointer handed to the transaction function is null")                             \
  X(ERR_IMPORT_FILE_CLOSE, 3057, "closing the key import file failed")                                               \
  X(ERR_IMPORT_FILE_READ, 3209, "the key import file holds fewer bytes than the key value needs")                    \
  X(ERR_IMPORT_FILE_OPEN, 4010, "the key import file could not be opened")                                           \
  X(ERR_IMPORT_KEY_FORMAT, 4011, "the key format is none of BIN, B16, B64 and RSA")                                  \
  X(ERR_NEXT_KEY_SIZE, 5109, "the reply to a next-key request is longer than 16384 bytes")                           \
  X(ERR_NAME_FILE_OPEN, 9001, "the output file of a certificate or private-key list could not be opened")            \
  X(ERR_NAME_FILE_WRITE, 9002, "writing the output file of a certificate or private-key list failed")                \
  X(ERR_EXPORT_SIZE, 9124, "the reply to an export is longer than 16384 bytes")                                      \
  X(ERR_EXPORT_FILE_OPEN, 9125, "the export file could not be opened")                                               \
  X(ERR_EXPORT_FILE_WRITE, 9126, "the export file could not be written in full")                                     \
  X(ERR_METADATA_TRANSACTION_SIZE, 9145, "a page of a metadata query is longer than 16384 bytes")                    \
  X(ERR_APPLIANCE_SIZE, 9169, "the reply to a system-status or validation request is longer than 16384 bytes")       \
  X(ERR_AUTOGEN_SIZE, 9227, "the reply to a key generation or deletability change is longer than 16384 bytes")       \
  X(ERR_REPLY_SIZE, 9260, "the reply is longer than 16384 bytes")                                                    \
  X(ERR_LIST_SIZE, 9261, "a page of a list is longer than 16384 bytes")                                              \
  X(ERR_TRANSACTION_SIZE, 9999, "the reply is longer than 16384 bytes, or metadata field MD01 is not 64 characters") \
  X(ERR_LIST_FILE, 11000, "the key-name data file could not be opened")                                              \
  X(ERR_KEY_NAME_MISMATCH, 20000, "the key returned does not carry the name asked for")                              \
  X(ERR_NULL_ARGUMENT, 20001, "a pointer that the call cannot do without is null; nothing was sent")                 \
  X(ERR_CERT_PATH_LENGTH, 20003, "a certificate path would exceed 100 characters")                                   \
  X(ERR_CERT_DIR_FORM, 20004, "the certificate directory does not end in '/'")                                       \
  X(ERR_METADATA_ARGUMENT, 20005, "a metadata argument is missing or out of range; nothing was sent")                \
  X(ERR_DATABASE_INVALID, 20007, "the server reported problems in the key database")                                 \
  X(ERR_SENSOR_FILE, 20008, "the sensor data file could not be opened")                                              \
  X(ERR_HARDWARE_FAULT, 20009, "a status field of the appliance shows a fault")                                      \
  X(ERR_DATA_FILE, 20010, "the data file could not be opened or read")                                               \
  X(ERR_NO_COMM_CERT, 20011, "the server's certificate chain has no second certificate")                             \
  X(ERR_NO_CA_CERT, 20012, "the server's certificate chain is empty")

/* The connection layer's codes: set-up, certificate files, the peer, the line. */
#define ORN_CONNECTION_STATUSES(X)                                                                                  \
  X(CONN_ERR_ARGUMENT, 30001, "an argument of the connection layer is null or negative")                            \
  X(CONN_ERR_HOST, 30002, "the host name is empty or begins with a dot")                                            \
  X(CONN_ERR_PORT, 30003, "the port is not a number from 1 to 65535")                                               \
  X(CONN_ERR_NAME_NOT_FOUND, 30004, "the host name does not exist")                                                 \
  X(CONN_ERR_NAME_SERVICE, 30005, "the name service could not be asked; the name may exist")                        \
  X(CONN_ERR_REFUSED, 30006, "the host refused the connection: nothing listens on that port")                       \
  X(CONN_ERR_UNREACHABLE, 30007, "the host or its network cannot be reached")                                       \
  X(CONN_ERR_CONNECT_TIMED_OUT, 30008, "no connection within the time-out")                                         \
  X(CONN_ERR_RESOURCES, 30009, "the system is out of descriptors, memory or ports")                                 \
  X(CONN_ERR_SYSTEM, 30010, "a system call failed")                                                                 \
  X(CONN_ERR_TLS_SETUP, 30011, "OpenSSL could not be set up")                                                       \
  X(CONN_ERR_AUTHORITY_MISSING, 30020, "the trusted-authority file (file 1) does not exist")                        \
  X(CONN_ERR_AUTHORITY_UNREADABLE, 30021, "the trusted-authority file (file 1) cannot be read")                     \
  X(CONN_ERR_AUTHORITY_NOT_PEM, 30022, "the trusted-authority file (file 1) holds no valid PEM certificates")       \
  X(CONN_ERR_CERTIFICATE_MISSING, 30023, "the client certificate file (file 2) does not exist")                     \
  X(CONN_ERR_CERTIFICATE_UNREADABLE, 30024, "the client certificate file (file 2) cannot be read")                  \
  X(CONN_ERR_CERTIFICATE_NOT_PEM, 30025, "the client certificate file (file 2) holds no valid PEM certificates")    \
  X(CONN_ERR_CERTIFICATE_WEAK, 30026, "the client certificate's key or signature is too weak for security level 2") \
  X(CONN_ERR_KEY_MISSING, 30027, "the client key file (file 3) does not exist")                                     \
  X(CONN_ERR_KEY_UNREADABLE, 30028, "the client key file (file 3) cannot be read")                                  \
  X(CONN_ERR_KEY_NOT_PEM, 30029, "the client key file (file 3) holds no valid PEM private key")                     \
  X(CONN_ERR_KEY_ENCRYPTED, 30030, "the client key (file 3) is encrypted; the library never asks for a passphrase") \
  X(CONN_ERR_KEY_MISMATCH, 30031, "the client key (file 3) does not belong to the client certificate (file 2)")     \
  X(CONN_ERR_PEER_NOT_TRUSTED, 30040, "the server's certificate chain does not lead to the trusted authority")      \
  X(CONN_ERR_PEER_EXPIRED, 30041, "a certificate of the server's chain has expired")                                \
  X(CONN_ERR_PEER_NOT_YET_VALID, 30042, "a certificate of the server's chain is not valid yet")                     \
  X(CONN_ERR_PEER_NAME, 30043, "the server's certificate is for another name or address")                           \
  X(CONN_ERR_PEER_PURPOSE, 30044, "a certificate of the server's chain is not meant for this use")                  \
  X(CONN_ERR_PEER_WEAK, 30045, "a key or signature of the server's chain is too weak for security level 2")         \
  X(CONN_ERR_PEER_CERTIFICATE, 30046, "the server's certificate chain is invalid")                                  \
  X(CONN_ERR_PROTOCOL_VERSION, 30047, "the server offers no TLS version that is new enough")                        \
  X(CONN_ERR_NOT_TLS, 30048, "what answers on that port does not speak TLS")                                        \
  X(CONN_ERR_CLIENT_REFUSED, 30049, "the server refused the client's certificate")                                  \
  X(CONN_ERR_ALERT, 30050, "the server ended the connection with a TLS alert")                                      \
  X(CONN_ERR_PROTOCOL, 30051, "the server broke the TLS protocol")                                                  \
  X(CONN_ERR_CLOSED, 30060, "the server closed the connection")                                                     \
  X(CONN_ERR_RESET, 30061, "the connection was reset")                                                              \
  X(CONN_ERR_READ_TIMED_OUT, 30062, "the server's answer did not arrive within the time-out")                       \
  X(CONN_ERR_WRITE_TIMED_OUT, 30063, "the request could not be sent within the time-out")

#define ORN_STATUS_ENUMERATOR(name, value, sentence) name = (value),
enum { ORN_LIBRARY_STATUSES(ORN_STATUS_ENUMERATOR) ORN_CONNECTION_STATUSES(ORN_STATUS_ENUMERATOR) };
#undef ORN_STATUS_ENUMERATOR

#endif
