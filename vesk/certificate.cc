// vesk certificate
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>

#include "orn/vesk/wire/certificates.h"
#include "vesk/ask.h"
#include "vesk/commands.h"
#include "vesk/failure.h"
#include "vesk/input_file.h"
#include "vesk/memory_file.h"
#include "vesk/output.h"
#include "vesk/secret_file.h"
#include "vesk/store_names.h"
#include "vesk/stored_certificate.h"
#include "vesk/text.h"
#include "veskd/key_pairs.h"

namespace command {
namespace {

struct ImportOptions {
  std::string name;
  std::string file;
  bool replace = false;
};

struct ExportOptions {
  std::string name;
  std::string out;
  bool force = false;
};

struct DeleteOptions {
  std::string name;
  bool yes = false;
};

void import(const Settings &settings, const ImportOptions &options) {
  check_certificate_name(options.name);
  const veskd::WipedText bytes = read_input(options.file, vesk::wire::kMaxCertificateBytes, "certificate");
  const Connection connection(settings);
  const MemoryFile file(bytes.text());
  connection.run(certificate_subject(options.name), qImportCertificate, file.path().c_str(), options.name.c_str(),
                 options.replace ? 1 : 0);
  // The server has found it to be one.
  if (const veskd::CertificatePtr certificate = veskd::parse_certificate(bytes.text()))
    warn_of_expiry(certificate.get(), options.name);
  show(settings, fmt::format("imported certificate {}", printable(options.name)), {{"imported", options.name}});
}

bool steers_terminal(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte > 0x7e || (byte < 0x20 && character != '\n' && character != '\r' && character != '\t');
}

void write_to_standard_output(const std::string &bytes) {
  if (isatty(STDOUT_FILENO) && std::any_of(bytes.begin(), bytes.end(), steers_terminal)) {
    throw Failure(ExitCode::kOther, "the certificate is not text and was not written to the terminal",
                  "write it to a file: --out FILE");
  }
  write_standard_output(bytes);
}

void export_to(const Settings &settings, const ExportOptions &options) {
  check_certificate_name(options.name);
  const bool to_standard_output = options.out == "-";
  if (to_standard_output && settings.json()) {
    throw Failure(ExitCode::kUsage, "--out - and --output json cannot both have standard output",
                  "write the certificate to a file: --out FILE");
  }
  if (!to_standard_output) check_secret_file(options.out, options.force);
  const Connection connection(settings);
  const std::string bytes = fetch_certificate(connection, options.name);
  if (to_standard_output) return write_to_standard_output(bytes);
  write_secret_file(options.out, bytes, options.force);
  show(settings, fmt::format("wrote certificate {} to {}", printable(options.name), printable(options.out)),
       {{"name", options.name}, {"file", options.out}});
}

void remove(const Settings &settings, const DeleteOptions &options) {
  check_certificate_name(options.name);
  const Connection connection(settings);
  if (!options.yes) ask_yes(fmt::format("Delete certificate {}?", printable(options.name)), "nothing was deleted");
  connection.run(certificate_subject(options.name), qDeleteCertificate, options.name.c_str(), kCertificateType);
  show(settings, fmt::format("deleted certificate {}", printable(options.name)), {{"deleted", options.name}});
}

void list(const Settings &settings, const std::string &type) {
  // The server has no other type, and the library does not tell of a list that was refused.
  if (type != std::string(1, kCertificateType))
    throw Failure(ExitCode::kUsage,
                  fmt::format("there is no certificate type '{}'; all are of type C", printable(type)));
  const Connection connection(settings);
  show_store_names(settings, "certificates", store_names([&](LinkedList *names) {
                     connection.run("certificates", qGetCertificateList_as_ll, kCertificateType, names);
                   }));
}

void add_certificate_name(CLI::App &command, std::string &name) {
  command.add_option("NAME", name, "the certificate's name, at most 64 bytes")->option_text(" ")->required();
}

void add_import(CLI::App &group, Settings &settings) {
  CLI::App *command = group.add_subcommand("import", "Send a certificate to the server");
  auto options = std::make_shared<ImportOptions>();
  add_certificate_name(*command, options->name);
  command->add_option("FILE", options->file, "the certificate, PEM or DER; - for standard input")
      ->option_text(" ")
      ->required();
  command->add_flag("--replace", options->replace, "replace the certificate of that name if there is one");
  command->footer(
      "The file holds one certificate, with an RSA key of 2048 bits, and at most 16305 bytes.\n\n"
      "Example:\n  vesk certificate import branch-office branch-office.pem");
  command->final_callback([&settings, options] { settings.action = [&, options] { import(settings, *options); }; });
}

void add_export(CLI::App &group, Settings &settings) {
  CLI::App *command = group.add_subcommand("export", "Fetch a certificate, as it was imported");
  auto options = std::make_shared<ExportOptions>();
  add_certificate_name(*command, options->name);
  command->add_option("--out", options->out, "a new file for the certificate, - for standard output")
      ->option_text("FILE")
      ->required();
  command->add_flag("--force", options->force, "replace the file if it exists");
  command->footer("Example:\n  vesk certificate export branch-office --out branch-office.pem");
  command->final_callback([&settings, options] { settings.action = [&, options] { export_to(settings, *options); }; });
}

void add_delete(CLI::App &group, Settings &settings) {
  CLI::App *command = group.add_subcommand("delete", "Delete a certificate");
  auto options = std::make_shared<DeleteOptions>();
  add_certificate_name(*command, options->name);
  command->add_flag("--yes", options->yes, "do not ask");
  command->footer(
      "The private key of that name, if there is one, stays. Asks on a terminal and needs --yes elsewhere.\n\n"
      "Example:\n  vesk certificate delete branch-office --yes");
  command->final_callback([&settings, options] { settings.action = [&, options] { remove(settings, *options); }; });
}

void add_list(CLI::App &group, Settings &settings) {
  CLI::App *command = group.add_subcommand("list", "List the names of the certificates, one a line");
  auto type = std::make_shared<std::string>(1, kCertificateType);
  command->add_option("--type", *type, "the type of certificate [C, the only one]")->option_text("C");
  command->footer("Example:\n  vesk certificate list --output json");
  command->final_callback([&settings, type] { settings.action = [&, type] { list(settings, *type); }; });
}

}  // namespace

void add_certificate(CLI::App &app, Settings &settings) {
  CLI::App *group = app.add_subcommand("certificate", "Keep the certificates that keys are wrapped under");
  group->require_subcommand(1);
  add_import(*group, settings);
  add_export(*group, settings);
  add_delete(*group, settings);
  add_list(*group, settings);
}

}  // namespace command
