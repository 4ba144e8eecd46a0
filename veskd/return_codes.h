// The server's return codes: the four digits behind the transaction identifier of every reply. Zero is success; the
// rest are numbered by subject and keep clear of the statuses of orn/status.h, because a caller sees both in one word.
//
// This header is the only place that lists them: the server, the command and the document take them from here.
#pragma once

#include <array>

namespace veskd {

// X(name, value, sentence). 01nn the request and the server, 02nn keys, 03nn key templates, 04nn metadata,
// 05nn certificates, private keys and key transfer, 06nn mirrors, 07nn the appliance.
#define VESKD_RETURN_CODES(X)                                                                                         \
  X(RC_SUCCESS, 0, "the transaction was done")                                                                        \
  X(RC_MALFORMED_REQUEST, 101, "the request does not have the form of its transaction")                               \
  X(RC_UNKNOWN_TRANSACTION, 102, "the transaction identifier is not known")                                           \
  X(RC_SERVER_FAILURE, 104, "the server could not read or change its store; nothing was changed")                     \
  X(RC_TOO_MANY_LISTS, 105, "the server tells as many lists at once as it can; try again")                            \
  X(RC_PAYLOAD_LENGTH, 106, "what follows the request is longer than the transaction allows")                         \
  X(RC_OUTCOME_UNKNOWN, 107, "the connection to the store's database broke: the change was made whole or not at all") \
  X(RC_NO_ROLE, 111, "the client's certificate is given no role")                                                     \
  X(RC_ROLE_FORBIDS, 112, "no role of the client may do this")                                                        \
  X(RC_NAME_FORBIDDEN, 113, "the name does not begin as the names that the client may use")                           \
  X(RC_KEY_NAME_INVALID, 201, "the key name is blank or holds a character that is not printable ASCII")               \
  X(RC_KEY_EXISTS, 202, "a key of that name exists already")                                                          \
  X(RC_KEY_NAME_USED, 203, "a key of that name was deleted; a name is never given to another key")                    \
  X(RC_KEY_UNKNOWN, 204, "there is no key of that name")                                                              \
  X(RC_INSTANCE_UNKNOWN, 205, "the key has no such instance")                                                         \
  X(RC_KEY_SIZE, 206, "keys have 256 bits; no other size is supported")                                               \
  X(RC_KEY_FORMAT, 207, "keys are served in the key format BIN only")                                                 \
  X(RC_POLICY_INVALID, 208, "a policy field (date, rollover, deletable or mirror flag) has no meaning")               \
  X(RC_NOT_DELETABLE, 209, "the key's policy forbids deleting it; make it deletable first")                           \
  X(RC_TEMPLATE_FORM, 301, "a template is a constant of exactly 15 characters and 6 hexadecimal increment digits")    \
  X(RC_TEMPLATE_EXISTS, 302, "a template of that constant exists already")                                            \
  X(RC_TEMPLATE_USED, 303, "a template of that constant was removed; a constant is never used again")                 \
  X(RC_TEMPLATE_UNKNOWN, 304, "there is no template of that constant")                                                \
  X(RC_GENERATION_MODE, 305, "the generation mode is neither I (a new template) nor A (add to a template)")           \
  X(RC_KEY_COUNT, 306, "the number of keys to generate is zero or not a number")                                      \
  X(RC_TEMPLATE_FULL, 307, "the template would need increments above FFFFFF")                                         \
  X(RC_KEY_COLLISION, 308, "a key name of the batch is taken already; nothing was generated")                         \
  X(RC_TEMPLATE_EXHAUSTED, 309, "every key of the template has been served")                                          \
  X(RC_INCREMENT_RANGE, 310, "the increment is not one of the template's")                                            \
  X(RC_INCREMENT_SERVED, 311, "keys at or behind that increment have been served; none is served twice")              \
  X(RC_QUERY_FORM, 401, "the query is not criteria MDnn OP 'value' of 64 characters, in ascending order of fields")   \
  X(RC_CERTIFICATE_NAME_INVALID, 501, "the name is blank or holds a character that is not printable ASCII")           \
  X(RC_CERTIFICATE_TYPE, 502, "the certificate type is not C, a certificate to wrap keys under")                      \
  X(RC_IMPORT_FLAG, 503, "the import flag is neither Y (replace what has the name) nor N (do not)")                   \
  X(RC_CERTIFICATE_INVALID, 504, "the file is not one certificate, PEM or DER, and nothing else")                     \
  X(RC_CERTIFICATE_KEY, 505, "the certificate fits no use: keys are wrapped under RSA keys of 2048 bits")             \
  X(RC_CERTIFICATE_EXISTS, 506, "a certificate of that name exists already")                                          \
  X(RC_CERTIFICATE_UNKNOWN, 507, "there is no certificate of that name")                                              \
  X(RC_CERTIFICATE_EXPIRED, 508, "the certificate has expired, or is not valid yet")                                  \
  X(RC_PRIVATE_KEY_INVALID, 511, "the file holds no private key, PEM or DER, or one that is inconsistent")            \
  X(RC_PRIVATE_KEY_ENCRYPTED, 512, "the private key is encrypted, and the server has no passphrase for it")           \
  X(RC_PRIVATE_KEY_KIND, 513, "the private key fits no use: keys are wrapped under RSA keys of 2048 bits")            \
  X(RC_PRIVATE_KEY_EXISTS, 514, "a private key of that name exists already")                                          \
  X(RC_PRIVATE_KEY_UNKNOWN, 515, "there is no private key of that name")                                              \
  X(RC_PAIR_MISMATCH, 516, "the certificate and the private key of that name do not belong together")                 \
  X(RC_TRANSFER_FORMAT, 521, "keys are imported in the key formats BIN, B16, B64 and RSA, and exported in RSA")       \
  X(RC_PADDING_MODE, 522, "the padding mode is neither 1 (PKCS#1 v1.5) nor 2 (OAEP with SHA-256)")                    \
  X(RC_KEY_VALUE_FORM, 523, "the key value does not have the form of its key format")                                 \
  X(RC_UNWRAP_FAILED, 524, "the value is not a 256-bit key wrapped for that private key with that padding mode")      \
  X(RC_MIRROR_NAME_INVALID, 601, "the mirror name is blank or holds a character that is not printable ASCII")         \
  X(RC_MIRROR_ADDRESS_INVALID, 602, "the mirror's host is no host name or address, or its port is not 1 to 65535")    \
  X(RC_MIRROR_UNKNOWN, 603, "there is no mirror of that name")                                                        \
  X(RC_NOT_A_MIRROR_KEY, 604, "the key is not a mirror key; only mirror keys are replicated")                         \
  X(RC_NOT_A_MIRROR, 605, "the certificate is not that of a server; only servers replicate")                          \
  X(RC_MIRROR_CONFLICT, 606, "the mirror has another key of that name, and keeps it")                                 \
  X(RC_MIRROR_KEY_DELETED, 607, "the mirror has deleted that key, and a deleted key does not come back")              \
  X(RC_SENSORS_UNREADABLE, 701, "the file of sensor readings cannot be read or is not of its form")

#define VESKD_RETURN_CODE_ENUMERATOR(name, value, sentence) name = (value),
enum ReturnCode : int { VESKD_RETURN_CODES(VESKD_RETURN_CODE_ENUMERATOR) };
#undef VESKD_RETURN_CODE_ENUMERATOR

struct ReturnCodeText {
  int value;
  const char *name;
  const char *sentence;
};

#define VESKD_RETURN_CODE_TEXT(name, value, sentence) ReturnCodeText{(value), #name, (sentence)},
inline constexpr std::array kReturnCodes = {VESKD_RETURN_CODES(VESKD_RETURN_CODE_TEXT)};
#undef VESKD_RETURN_CODE_TEXT

// Null for a value that is no return code of this server.
constexpr const ReturnCodeText *find_return_code(int value) {
  for (const ReturnCodeText &code : kReturnCodes) {
    if (code.value == value) return &code;
  }
  return nullptr;
}

}  // namespace veskd
