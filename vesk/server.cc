// vesk server
#include <fmt/format.h>

#include "orn/support.h"
#include "vesk/commands.h"
#include "vesk/connection.h"
#include "vesk/output.h"
#include "vesk/text.h"

namespace command {
namespace {

constexpr const char *kAuthorityLabel = "authority (the chain's last certificate)";
constexpr const char *kCommunicationLabel = "communication (the one before it)";

Members document_of(const CertificateInfo &info) {
  return {{"subject", info.subject},
          {"issuer", info.issuer},
          {"serial_number", info.serialNumber},
          {"not_before", info.notBefore},
          {"not_after", info.notAfter},
          {"names", text_or_null(info.names)},
          {"key", info.key},
          {"sha256_fingerprint", info.sha256Fingerprint}};
}

std::string table_of(const char *label, const CertificateInfo &info) {
  return fmt::format(
      "{}\n"
      "  subject        {}\n"
      "  issuer         {}\n"
      "  serial number  {}\n"
      "  valid          {} to {}\n"
      "  names          {}\n"
      "  key            {}\n"
      "  SHA-256        {}\n",
      label, printable(info.subject), printable(info.issuer), printable(info.serialNumber), printable(info.notBefore),
      printable(info.notAfter), *info.names ? printable(info.names) : "none", printable(info.key),
      printable(info.sha256Fingerprint));
}

void certificates(const Settings &settings) {
  const Connection connection(settings);
  CertificateInfo authority{};
  CertificateInfo communication{};
  const int status = connection.call(GetServerCertificateInfo, &authority, &communication);
  // A chain of one certificate is told as far as it goes.
  const bool has_both = status == 0;
  if (!has_both && status != ERR_NO_COMM_CERT) connection.require(status, {});

  if (settings.has_document()) {
    show_document(settings, {{"authority", document_of(authority)},
                             {"communication", has_both ? Json(document_of(communication)) : Json()}});
  } else {
    write_standard_output(table_of(kAuthorityLabel, authority) +
                          (has_both ? "\n" + table_of(kCommunicationLabel, communication) : ""));
  }
  connection.require(status, {});
}

}  // namespace

void add_server(Command &root, Settings &settings) {
  Command &group = root.add("server", "Look at the server");
  group.examples = {"vesk server certificates"};
  Command &command = group.add("certificates", "Show the last two certificates of the server's chain");
  command.examples = {"vesk server certificates --output json"};
  command.run = [&settings] { certificates(settings); };
}

}  // namespace command
