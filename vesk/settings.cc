#include "vesk/settings.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "vesk/failure.h"
#include "vesk/text.h"

namespace command {
namespace {

// In the order of Form.
constexpr const char *kForms[] = {"table", "json", "plain", "csv"};

}  // namespace

Form Settings::form() const {
  return static_cast<Form>(std::find(std::begin(kForms), std::end(kForms), output) - kForms);
}

std::optional<std::chrono::seconds> Settings::time_limit() const {
  constexpr std::uint32_t kMostSeconds = 86400 * 365;
  if (!timeout) return std::nullopt;
  return std::chrono::seconds(parse_number("time-out", *timeout, 1, kMostSeconds, Base16::kNo, "give whole seconds"));
}

void add_settings(Command &root, Settings &settings) {
  const auto connection = [&](const char *name, std::optional<std::string> &target, const char *value, Kind kind,
                              const char *text) { root.option(name, &target, value, kind, text).group = "Connection"; };
  connection("--context", settings.context, "NAME", Kind::kContext,
             "the server by its name, see vesk context --help (or VESK_CONTEXT) [the current context]");
  connection("--host", settings.host, "HOST", Kind::kHost,
             "the server's host name or numeric address, at most 40 bytes (or VESK_HOST)");
  connection("--port", settings.port, "PORT", Kind::kNumber, "the server's port, 1 to 65535 (or VESK_PORT)");
  connection("--certificates", settings.certificates, "DIR", Kind::kDirectory,
             "the directory of the certificate files (or VESK_CERTIFICATES)");
  connection("--authority", settings.authority, "NAME", Kind::kText,
             "the trusted authority's file in DIR [authority.pem]");
  connection("--certificate", settings.certificate, "NAME", Kind::kText,
             "the client certificate's file in DIR [client.pem]");
  connection("--key", settings.key, "NAME", Kind::kText, "the client key's file in DIR [client-key.pem]");

  connection("--timeout", settings.timeout, "SECONDS", Kind::kNumber,
             "end the command when it is not done within that time");

  Option &form = root.option("--output", &settings.output, "FORM", Kind::kForm,
                             "table, json, plain or csv: the form of results on standard output [table]");
  form.group = "Output";
  form.choices.assign(std::begin(kForms), std::end(kForms));
  root.option("--trace", &settings.trace, "FILE", Kind::kFile,
              "append the library's trace, and what goes over the wire with secrets masked, to a file, - for standard "
              "error")
      .group = "Output";
}

}  // namespace command
