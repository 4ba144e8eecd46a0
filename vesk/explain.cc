#include "vesk/explain.h"

#include <fmt/format.h>

#include <array>
#include <string>

#include "orn/support.h"
#include "vesk/connection.h"
#include "vesk/hints.h"
#include "vesk/text.h"
#include "vesk/trace.h"
#include "veskd/return_codes.h"

namespace command {
namespace {

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
  const int file = file_of(status);
  return fmt::format(fmt::runtime(hint_for(status)), fmt::arg("host", printable(connection.host())),
                     fmt::arg("port", connection.port()), fmt::arg("authority", printable(connection.file(1))),
                     fmt::arg("certificate", printable(connection.file(2))),
                     fmt::arg("key", printable(connection.file(3))), fmt::arg("file", printable(connection.file(file))),
                     fmt::arg("option", kOptions[static_cast<std::size_t>(file)]),
                     fmt::arg("pem", kPemTypes[static_cast<std::size_t>(file)]));
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
