#include "vesk/explain.h"

#include <fmt/format.h>

#include <array>
#include <string>

#include "orn/support.h"
#include "vesk/connection.h"
#include "vesk/text.h"
#include "vesk/trace.h"
#include "veskd/return_codes.h"

namespace command {
namespace {

struct Hint {
  int status;
  const char *text;  // may name what hint_of() knows by name
};

constexpr const char *kMissing = "--certificates (VESK_CERTIFICATES) names the directory, {option} the file in it";
constexpr const char *kUnreadable = "who may read it: ls -l {file}";
constexpr const char *kNotPem = "PEM files have lines like -----BEGIN {pem}-----; is this the right file?";

constexpr std::array kHints = {
    Hint{CONN_ERR_NAME_NOT_FOUND, "check --host (VESK_HOST); what the system knows of it: getent hosts {host}"},
    Hint{CONN_ERR_NAME_SERVICE, "try again, or give the server's numeric address"},
    Hint{CONN_ERR_REFUSED, "is veskd running there? start one with: veskd dev --dir DIR"},
    Hint{CONN_ERR_UNREACHABLE, "check the address and the network: ip route get {host}"},
    Hint{CONN_ERR_CONNECT_TIMED_OUT, "check host and port; a firewall that drops packets looks like this"},
    Hint{CONN_ERR_AUTHORITY_MISSING, kMissing},
    Hint{CONN_ERR_AUTHORITY_UNREADABLE, kUnreadable},
    Hint{CONN_ERR_AUTHORITY_NOT_PEM, kNotPem},
    Hint{CONN_ERR_CERTIFICATE_MISSING, kMissing},
    Hint{CONN_ERR_CERTIFICATE_UNREADABLE, kUnreadable},
    Hint{CONN_ERR_CERTIFICATE_NOT_PEM, kNotPem},
    Hint{CONN_ERR_CERTIFICATE_WEAK, "have a new one issued, with an RSA key of 2048 bits or an EC key of 256 at least"},
    Hint{CONN_ERR_KEY_MISSING, kMissing},
    Hint{CONN_ERR_KEY_UNREADABLE, kUnreadable},
    Hint{CONN_ERR_KEY_NOT_PEM, kNotPem},
    Hint{CONN_ERR_KEY_ENCRYPTED, "decrypt it into a file that only you can read: openssl pkey -in {file} -out NEW"},
    Hint{CONN_ERR_KEY_MISMATCH, "do {certificate} and {key} belong to the same client?"},
    Hint{CONN_ERR_PEER_NOT_TRUSTED, "is {authority} this server's authority? veskd keeps its own as authority.pem"},
    Hint{CONN_ERR_PEER_EXPIRED, "renew the server's certificate; if it is still good, check this clock: date -u"},
    Hint{CONN_ERR_PEER_NOT_YET_VALID, "check the clock of this machine and of the server: date -u"},
    Hint{CONN_ERR_PEER_NAME, "give --host a name or an address that the certificate is for"},
    Hint{CONN_ERR_NOT_TLS, "is {port} the key server's port?"},
    Hint{CONN_ERR_CLIENT_REFUSED,
         "is it the server's authority that issued it, and is it still valid? openssl x509 -noout -issuer -dates -in "
         "{certificate}"},
    Hint{CONN_ERR_CLOSED, "the server's log may say why"},
    Hint{CONN_ERR_RESET, "the server's log may say why"},
    Hint{CONN_ERR_READ_TIMED_OUT, "whether the server did the work is not known; ask it before you repeat a change"},

    Hint{veskd::RC_SERVER_FAILURE, "the server's log says what went wrong"},
    Hint{veskd::RC_NO_ROLE, "the server's configuration gives roles to certificates"},
    Hint{veskd::RC_ROLE_FORBIDS, "the server's configuration gives roles to certificates"},
    Hint{veskd::RC_NAME_FORBIDDEN, "the server's configuration says which prefixes"},
    Hint{veskd::RC_KEY_EXISTS, "choose another name; what there is: vesk key get NAME"},
    Hint{veskd::RC_KEY_NAME_USED, "choose another name"},
    Hint{veskd::RC_KEY_UNKNOWN, "names are case-sensitive; create it with: vesk key create NAME"},
    Hint{veskd::RC_NOT_DELETABLE, "make it deletable first: vesk key make-deletable NAME"},
    Hint{veskd::RC_TEMPLATE_EXISTS, "add keys to it with --add"},
    Hint{veskd::RC_TEMPLATE_USED, "choose another constant"},
    Hint{veskd::RC_TEMPLATE_UNKNOWN, "which there are: vesk template list"},
    Hint{veskd::RC_TEMPLATE_EXHAUSTED, "generate more keys: vesk template generate CONSTANT --count N --add"},
    Hint{veskd::RC_INCREMENT_RANGE, "how many there are: vesk template depth CONSTANT"},
    Hint{veskd::RC_MIRROR_UNKNOWN, "which there are: vesk mirror list"},
    Hint{veskd::RC_NOT_A_MIRROR_KEY, "a mirror key is created with: vesk key create NAME --mirror"},
    Hint{veskd::RC_INCREMENT_SERVED, "how far it has been served: vesk template depth CONSTANT"},
    Hint{veskd::RC_CERTIFICATE_EXISTS, "replace it with --replace"},
    Hint{veskd::RC_CERTIFICATE_UNKNOWN, "which there are: vesk certificate list"},
    Hint{veskd::RC_CERTIFICATE_EXPIRED, "import its successor: vesk certificate import NAME FILE --replace"},
    Hint{veskd::RC_PRIVATE_KEY_ENCRYPTED,
         "decrypt it into a file that only you can read: openssl pkey -in FILE -out NEW"},
    Hint{veskd::RC_PRIVATE_KEY_UNKNOWN, "it has the certificate's name; which there are: vesk private-key list"},
    Hint{veskd::RC_PAIR_MISMATCH, "give another name, or delete the other of the two first"},
    Hint{veskd::RC_UNWRAP_FAILED, "was it wrapped under that certificate, with OAEP and SHA-256?"},
};

// Which of the three certificate files a status is about; 0 for none.
int file_of(int status) {
  if (status >= CONN_ERR_AUTHORITY_MISSING && status <= CONN_ERR_AUTHORITY_NOT_PEM) return 1;
  if (status >= CONN_ERR_CERTIFICATE_MISSING && status <= CONN_ERR_CERTIFICATE_WEAK) return 2;
  if (status >= CONN_ERR_KEY_MISSING && status <= CONN_ERR_KEY_MISMATCH) return 3;
  return 0;
}

std::string hint_of(int status, const Connection &connection) {
  constexpr std::array kOptions = {"", "--authority", "--certificate", "--key"};
  constexpr std::array kPemTypes = {"", "CERTIFICATE", "CERTIFICATE", "PRIVATE KEY"};
  for (const Hint &hint : kHints) {
    if (hint.status != status) continue;
    const int file = file_of(status);
    return fmt::format(
        fmt::runtime(hint.text), fmt::arg("host", printable(connection.host())), fmt::arg("port", connection.port()),
        fmt::arg("authority", printable(connection.file(1))), fmt::arg("certificate", printable(connection.file(2))),
        fmt::arg("key", printable(connection.file(3))), fmt::arg("file", printable(connection.file(file))),
        fmt::arg("option", kOptions[static_cast<std::size_t>(file)]),
        fmt::arg("pem", kPemTypes[static_cast<std::size_t>(file)]));
  }
  return {};
}

bool is_return_code(int status) {
  // A few of the library's own statuses lie among the four-digit codes.
  return status >= 1 && status <= 9999 && std::string_view(StatusName(status)) == "SERVER_RETURN_CODE";
}

ExitCode exit_code_of_return_code(int code) {
  switch (code) {
    case veskd::RC_KEY_UNKNOWN:
    case veskd::RC_INSTANCE_UNKNOWN:
    case veskd::RC_TEMPLATE_UNKNOWN:
    case veskd::RC_MIRROR_UNKNOWN:
    case veskd::RC_CERTIFICATE_UNKNOWN:
    case veskd::RC_PRIVATE_KEY_UNKNOWN:
      return ExitCode::kNotFound;
    default:
      return ExitCode::kRefused;
  }
}

ExitCode exit_code_of(int status) {
  switch (status) {
    case CONN_ERR_CONNECT_TIMED_OUT:
    case CONN_ERR_READ_TIMED_OUT:
    case CONN_ERR_WRITE_TIMED_OUT:
      return ExitCode::kTimeOut;
    case ERR_NO_CA_CERT:
    case ERR_NO_COMM_CERT:
      return ExitCode::kConnection;
    default:
      return status >= 30001 && status <= 30099 ? ExitCode::kConnection : ExitCode::kOther;
  }
}

Failure explain_return_code(int code, const Connection &connection, std::string_view subject) {
  const veskd::ReturnCodeText *known = veskd::find_return_code(code);
  return Failure(
      exit_code_of_return_code(code),
      fmt::format("{}: {} (return code {:04}{}{} from {})", subject.empty() ? "refused" : subject,
                  known ? known->sentence : "the server refused, with a code that this command does not know", code,
                  known ? " " : "", known ? known->name : "", connection.server()),
      hint_of(code, connection));
}

}  // namespace

Failure explain(int status, const Connection &connection, std::string_view subject) {
  std::vector<std::string> details = Trace::take_connection_details();
  if (is_return_code(status)) return explain_return_code(status, connection, subject);
  const int file = file_of(status);
  const std::string where = file ? printable(connection.file(file)) : connection.server();
  return Failure(exit_code_of(status),
                 fmt::format("{}: {} ({} {})", where, StatusText(status), StatusName(status), status),
                 hint_of(status, connection), std::move(details));
}

}  // namespace command
