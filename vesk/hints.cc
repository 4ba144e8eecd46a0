#include "vesk/hints.h"

#include <array>

#include "orn/status.h"
#include "veskd/return_codes.h"

namespace command {
namespace {

struct Hint {
  int status;
  const char *text;
};

constexpr const char *kMissing = "--certificates (VESK_CERTIFICATES) names the directory, {option} the file in it";
constexpr const char *kUnreadable = "who may read it: ls -l {file}";
constexpr const char *kNotPem = "PEM files have lines like -----BEGIN {pem}-----; is this the right file?";
constexpr const char *kServerLog = "the server's log says more: journalctl -u veskd";
constexpr const char *kSeeTrace = "this should not happen; what went to and fro: run it again with --trace FILE";
constexpr const char *kLongReply = "is this a key server? vesk doctor; what came: run it again with --trace FILE";
constexpr const char *kLocalFile = "is there room, and may you write there? df, ls -ld";
constexpr const char *kRoles =
    "the server's configuration gives roles to certificates: vesk doctor shows this client's";
constexpr const char *kPrintable = "give a name of printable ASCII";
constexpr const char *kDecrypt = "decrypt it into a file that only you can read: openssl pkey -in FILE -out NEW";
constexpr const char *kRsa2048 = "make a pair: openssl req -x509 -newkey rsa:2048 -nodes -keyout KEY -out CERTIFICATE";
constexpr const char *kNewIssue = "have a new one issued, with an RSA key of 2048 bits or an EC key of 256 at least";

// In the order of orn/status.h and veskd/return_codes.h.
constexpr std::array kHints = {
    Hint{-1, kSeeTrace},
    Hint{ERR_KEY_COUNT_RANGE, "at most 99999 keys at once: vesk template generate CONSTANT --count N --add"},
    Hint{ERR_NULL_RESULT, kSeeTrace},
    Hint{ERR_IMPORT_FILE_CLOSE, kLocalFile},
    Hint{ERR_IMPORT_FILE_READ, "how long it is: ls -l FILE"},
    Hint{ERR_IMPORT_FILE_OPEN, "who may read it: ls -l FILE"},
    Hint{ERR_IMPORT_KEY_FORMAT, kSeeTrace},
    Hint{ERR_NEXT_KEY_SIZE, kLongReply},
    Hint{ERR_NAME_FILE_OPEN, kLocalFile},
    Hint{ERR_NAME_FILE_WRITE, kLocalFile},
    Hint{ERR_EXPORT_SIZE, kLongReply},
    Hint{ERR_EXPORT_FILE_OPEN, kLocalFile},
    Hint{ERR_EXPORT_FILE_WRITE, kLocalFile},
    Hint{ERR_METADATA_TRANSACTION_SIZE, kLongReply},
    Hint{ERR_APPLIANCE_SIZE, kLongReply},
    Hint{ERR_AUTOGEN_SIZE, kLongReply},
    Hint{ERR_REPLY_SIZE, kLongReply},
    Hint{ERR_LIST_SIZE, kLongReply},
    Hint{ERR_TRANSACTION_SIZE, kLongReply},
    Hint{ERR_LIST_FILE, kLocalFile},
    Hint{ERR_KEY_NAME_MISMATCH, kSeeTrace},
    Hint{ERR_NULL_ARGUMENT, kSeeTrace},
    Hint{ERR_CERT_PATH_LENGTH, "change to a directory nearby and give a relative path, or use a symbolic link"},
    Hint{ERR_CERT_DIR_FORM, "give --certificates DIR/ with a slash at the end, or a shorter path"},
    Hint{ERR_METADATA_ARGUMENT, "fields are 1 to 16, texts at most 64 bytes: vesk metadata set --help"},
    Hint{ERR_DATABASE_INVALID, "which keys: vesk appliance validate --trace -"},
    Hint{ERR_SENSOR_FILE, kLocalFile},
    Hint{ERR_HARDWARE_FAULT, "the readings themselves: vesk appliance sensors"},
    Hint{ERR_DATA_FILE, kLocalFile},
    Hint{ERR_NO_COMM_CERT, "the server's certificate file should hold its chain: vesk doctor"},
    Hint{ERR_NO_CA_CERT, "the server's certificate file should hold its chain: vesk doctor"},

    Hint{CONN_ERR_ARGUMENT, kSeeTrace},
    Hint{CONN_ERR_HOST, "give the server's name or address: --host HOST (VESK_HOST)"},
    Hint{CONN_ERR_PORT, "give the server's port: --port PORT (VESK_PORT)"},
    Hint{CONN_ERR_NAME_NOT_FOUND, "check --host (VESK_HOST); what the system knows of it: getent hosts {host}"},
    Hint{CONN_ERR_NAME_SERVICE, "try again, or give the server's numeric address"},
    Hint{CONN_ERR_REFUSED, "is veskd running there? start one with: veskd dev --dir DIR"},
    Hint{CONN_ERR_UNREACHABLE, "check the address and the network: ip route get {host}"},
    Hint{CONN_ERR_CONNECT_TIMED_OUT, "check host and port; a firewall that drops packets looks like this"},
    Hint{CONN_ERR_RESOURCES, "what the system allows, and what is free: ulimit -n; free; ss -s"},
    Hint{CONN_ERR_SYSTEM, kSeeTrace},
    Hint{CONN_ERR_TLS_SETUP, "is OpenSSL 3 whole here? openssl version -a; more: run it again with --trace -"},
    Hint{CONN_ERR_AUTHORITY_MISSING, kMissing},
    Hint{CONN_ERR_AUTHORITY_UNREADABLE, kUnreadable},
    Hint{CONN_ERR_AUTHORITY_NOT_PEM, kNotPem},
    Hint{CONN_ERR_CERTIFICATE_MISSING, kMissing},
    Hint{CONN_ERR_CERTIFICATE_UNREADABLE, kUnreadable},
    Hint{CONN_ERR_CERTIFICATE_NOT_PEM, kNotPem},
    Hint{CONN_ERR_CERTIFICATE_WEAK, kNewIssue},
    Hint{CONN_ERR_KEY_MISSING, kMissing},
    Hint{CONN_ERR_KEY_UNREADABLE, kUnreadable},
    Hint{CONN_ERR_KEY_NOT_PEM, kNotPem},
    Hint{CONN_ERR_KEY_ENCRYPTED, "decrypt it into a file that only you can read: openssl pkey -in {file} -out NEW"},
    Hint{CONN_ERR_KEY_MISMATCH, "do {certificate} and {key} belong to the same client?"},
    Hint{CONN_ERR_PEER_NOT_TRUSTED, "is {authority} this server's authority? veskd keeps its own as authority.pem"},
    Hint{CONN_ERR_PEER_EXPIRED, "renew the server's certificate; if it is still good, check this clock: date -u"},
    Hint{CONN_ERR_PEER_NOT_YET_VALID, "check the clock of this machine and of the server: date -u"},
    Hint{CONN_ERR_PEER_NAME, "give --host a name or an address that the certificate is for"},
    Hint{CONN_ERR_PEER_PURPOSE, "have a new one issued to the server, for serverAuth; what it shows: vesk doctor"},
    Hint{CONN_ERR_PEER_WEAK, kNewIssue},
    Hint{CONN_ERR_PEER_CERTIFICATE, "have the server's certificate issued anew; what is wrong with it: vesk doctor"},
    Hint{CONN_ERR_PROTOCOL_VERSION, "have the server speak TLS 1.2 or 1.3; is {port} the key server's port?"},
    Hint{CONN_ERR_NOT_TLS, "is {port} the key server's port?"},
    Hint{CONN_ERR_CLIENT_REFUSED,
         "is it the server's authority that issued it, and is it still valid? openssl x509 -noout -issuer -dates -in "
         "{certificate}"},
    Hint{CONN_ERR_ALERT, kServerLog},
    Hint{CONN_ERR_PROTOCOL, "is {port} the key server's port? vesk doctor"},
    Hint{CONN_ERR_CLOSED, kServerLog},
    Hint{CONN_ERR_RESET, kServerLog},
    Hint{CONN_ERR_READ_TIMED_OUT, "whether the server did the work is not known; ask it before you repeat a change"},
    Hint{CONN_ERR_WRITE_TIMED_OUT, "whether the server did the work is not known; ask it before you repeat a change"},

    Hint{veskd::RC_SUCCESS, "there is nothing to do"},
    Hint{veskd::RC_MALFORMED_REQUEST, kSeeTrace},
    Hint{veskd::RC_UNKNOWN_TRANSACTION, "is the server older than this command? vesk --version; veskd --version"},
    Hint{veskd::RC_SERVER_FAILURE, kServerLog},
    Hint{veskd::RC_TOO_MANY_LISTS, "run it again in a moment"},
    Hint{veskd::RC_PAYLOAD_LENGTH, kSeeTrace},
    Hint{veskd::RC_OUTCOME_UNKNOWN, "look whether it was done before you repeat it: vesk key get NAME"},
    Hint{veskd::RC_NO_ROLE, kRoles},
    Hint{veskd::RC_ROLE_FORBIDS, kRoles},
    Hint{veskd::RC_NAME_FORBIDDEN, "the server's configuration says which prefixes"},
    Hint{veskd::RC_KEY_NAME_INVALID, kPrintable},
    Hint{veskd::RC_KEY_EXISTS, "choose another name; what there is: vesk key get NAME"},
    Hint{veskd::RC_KEY_NAME_USED, "choose another name: vesk key create NAME"},
    Hint{veskd::RC_KEY_UNKNOWN, "names are case-sensitive; create it with: vesk key create NAME"},
    Hint{veskd::RC_INSTANCE_UNKNOWN, "the current one is had without --instance: vesk key get NAME"},
    Hint{veskd::RC_KEY_SIZE, kSeeTrace},
    Hint{veskd::RC_KEY_FORMAT, kSeeTrace},
    Hint{veskd::RC_POLICY_INVALID, kSeeTrace},
    Hint{veskd::RC_NOT_DELETABLE, "make it deletable first: vesk key make-deletable NAME"},
    Hint{veskd::RC_TEMPLATE_FORM, "a constant has exactly 15 characters; which there are: vesk template list"},
    Hint{veskd::RC_TEMPLATE_EXISTS, "add keys to it with --add"},
    Hint{veskd::RC_TEMPLATE_USED, "choose another constant: vesk template generate CONSTANT --count N"},
    Hint{veskd::RC_TEMPLATE_UNKNOWN, "which there are: vesk template list"},
    Hint{veskd::RC_GENERATION_MODE, kSeeTrace},
    Hint{veskd::RC_KEY_COUNT, "give a number from 1 to 99999: --count N"},
    Hint{veskd::RC_TEMPLATE_FULL, "begin a new one: vesk template generate CONSTANT --count N"},
    Hint{veskd::RC_KEY_COLLISION, "choose another constant; which keys there are: vesk key list --prefix CONSTANT"},
    Hint{veskd::RC_TEMPLATE_EXHAUSTED, "generate more keys: vesk template generate CONSTANT --count N --add"},
    Hint{veskd::RC_INCREMENT_RANGE, "how many there are: vesk template depth CONSTANT"},
    Hint{veskd::RC_INCREMENT_SERVED, "how far it has been served: vesk template depth CONSTANT"},
    Hint{veskd::RC_QUERY_FORM, "what criteria look like: vesk metadata find --help"},
    Hint{veskd::RC_CERTIFICATE_NAME_INVALID, kPrintable},
    Hint{veskd::RC_CERTIFICATE_TYPE, "there is one type alone: vesk certificate list"},
    Hint{veskd::RC_IMPORT_FLAG, kSeeTrace},
    Hint{veskd::RC_CERTIFICATE_INVALID, "take the first certificate out of it: openssl x509 -in FILE -out NEW"},
    Hint{veskd::RC_CERTIFICATE_KEY, kRsa2048},
    Hint{veskd::RC_CERTIFICATE_EXISTS, "replace it with --replace"},
    Hint{veskd::RC_CERTIFICATE_UNKNOWN, "which there are: vesk certificate list"},
    Hint{veskd::RC_CERTIFICATE_EXPIRED, "import its successor: vesk certificate import NAME FILE --replace"},
    Hint{veskd::RC_PRIVATE_KEY_INVALID, "what it is: openssl pkey -noout -check -in FILE"},
    Hint{veskd::RC_PRIVATE_KEY_ENCRYPTED, kDecrypt},
    Hint{veskd::RC_PRIVATE_KEY_KIND, kRsa2048},
    Hint{veskd::RC_PRIVATE_KEY_EXISTS, "replace it with --replace"},
    Hint{veskd::RC_PRIVATE_KEY_UNKNOWN, "it has the certificate's name; which there are: vesk private-key list"},
    Hint{veskd::RC_PAIR_MISMATCH,
         "give another name, or delete the other first: vesk certificate delete NAME, or vesk private-key delete NAME"},
    Hint{veskd::RC_TRANSFER_FORMAT, kSeeTrace},
    Hint{veskd::RC_PADDING_MODE, kSeeTrace},
    Hint{veskd::RC_KEY_VALUE_FORM, "what a key looks like: vesk key import --help"},
    Hint{veskd::RC_UNWRAP_FAILED, "was it wrapped under that certificate, with OAEP and SHA-256?"},
    Hint{veskd::RC_MIRROR_NAME_INVALID, kPrintable},
    Hint{veskd::RC_MIRROR_ADDRESS_INVALID, "give a host and a port: vesk mirror set NAME HOST PORT"},
    Hint{veskd::RC_MIRROR_UNKNOWN, "which there are: vesk mirror list"},
    Hint{veskd::RC_NOT_A_MIRROR_KEY, "a mirror key is created with: vesk key create NAME --mirror"},
    Hint{veskd::RC_NOT_A_MIRROR, "servers show a certificate of their own; this is a client's: vesk doctor"},
    Hint{veskd::RC_MIRROR_CONFLICT, "what each has: vesk key get NAME, at both"},
    Hint{veskd::RC_MIRROR_KEY_DELETED, "create it under another name: vesk key create NAME --mirror"},
    Hint{veskd::RC_SENSORS_UNREADABLE, kServerLog},
};

// The sixteen fields of metadata have a status each, 9984 to 9998.
constexpr int kFirstField = 9984;
constexpr int kLastField = 9998;

}  // namespace

const char *hint_for(int status) {
  if (status >= kFirstField && status <= kLastField) return kSeeTrace;
  for (const Hint &hint : kHints) {
    if (hint.status == status) return hint.text;
  }
  return "";
}

}  // namespace command
