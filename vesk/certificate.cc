// vesk certificate
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "orn/vesk/wire/certificates.h"
#include "vesk/commands.h"
#include "vesk/failure.h"
#include "vesk/input_file.h"
#include "vesk/memory_file.h"
#include "vesk/output.h"
#include "vesk/secret_file.h"
#include "vesk/store_entry.h"
#include "vesk/store_names.h"
#include "vesk/stored_certificate.h"
#include "vesk/text.h"
#include "veskd/key_pairs.h"

namespace command {
namespace {

struct ExportOptions {
  std::string name;
  std::string out;
  bool force = false;
};

struct TypeOptions {
  std::string type = std::string(1, kCertificateType);
  ListOptions list;
};

// What the server would say, as far as that can be known without it.
int status_of_import(const Connection &connection, const ImportEntryOptions &options, const std::string &bytes) {
  const veskd::ReturnCode code = veskd::parse_wrapping_certificate(bytes).code;
  if (code != veskd::RC_SUCCESS) return code;
  return options.replace ? 0 : status_of_new(connection, kCertificates, options.name);
}

void import(const Settings &settings, const ImportEntryOptions &options) {
  check_certificate_name(options.name);
  const std::string subject = certificate_subject(options.name);
  const veskd::WipedText bytes = read_input(options.file, vesk::wire::kMaxCertificateBytes, "certificate");
  const Connection connection(settings);
  if (options.dry_run) {
    connection.require(status_of_import(connection, options, bytes.text()), subject);
    return show_import(settings, options, subject);
  }
  const MemoryFile file(bytes.text());
  connection.run(subject, qImportCertificate, file.path().c_str(), options.name.c_str(), options.replace ? 1 : 0);
  // The server has found it to be one.
  if (const veskd::CertificatePtr certificate = veskd::parse_certificate(bytes.text()))
    warn_of_expiry(certificate.get(), subject);
  show_import(settings, options, subject);
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
  if (to_standard_output && settings.has_document()) {
    throw Failure(ExitCode::kUsage, "--out - is for --output table: both would have standard output",
                  "write the certificate to a file: --out FILE");
  }
  if (!to_standard_output) check_secret_file(options.out, options.force);
  const Connection connection(settings);
  const std::string bytes = fetch_certificate(connection, options.name);
  warn_of_expiry(veskd::parse_certificate(bytes).get(), certificate_subject(options.name));
  if (to_standard_output) return write_to_standard_output(bytes);
  write_secret_file(options.out, bytes, options.force);
  show(settings, fmt::format("wrote certificate {} to {}", printable(options.name), printable(options.out)),
       {{"name", options.name}, {"file", options.out}});
}

void remove(const Settings &settings, const DeleteEntryOptions &options) {
  check_certificate_name(options.name);
  const std::string subject = certificate_subject(options.name);
  delete_entry(settings, options, kCertificates, subject, "", [&](const Connection &connection) {
    connection.run(subject, qDeleteCertificate, options.name.c_str(), kCertificateType);
  });
}

void list(const Settings &settings, const TypeOptions &options) {
  const Connection connection(settings);
  show_store_names(settings, options.list, "certificates", store_names([&](LinkedList *names) {
                     connection.run("certificates", qGetCertificateList_as_ll, kCertificateType, names);
                   }));
}

void add_certificate_name(Command &command, std::string &name) {
  command.argument("NAME", &name, Kind::kCertificate, "the certificate's name, at most 64 bytes");
}

void add_import(Command &group, Settings &settings) {
  Command &command = group.add("import", "Send a certificate to the server");
  auto options = std::make_shared<ImportEntryOptions>();
  add_certificate_name(command, options->name);
  add_import_entry_options(command, *options, "the certificate, PEM or DER; - for standard input",
                           "replace the certificate of that name if there is one");
  command.details = "The file holds one certificate, with an RSA key of 2048 bits, and at most 16305 bytes.";
  command.examples = {"vesk certificate import branch-office branch-office.pem"};
  command.run = [&settings, options] { import(settings, *options); };
}

void add_export(Command &group, Settings &settings) {
  Command &command = group.add("export", "Fetch a certificate, as it was imported");
  auto options = std::make_shared<ExportOptions>();
  add_certificate_name(command, options->name);
  command.option("--out", &options->out, "FILE", Kind::kFile, "a new file for the certificate, - for standard output")
      .is_required = true;
  command.flag("--force", options->force, "replace the file if it exists");
  command.examples = {"vesk certificate export branch-office --out branch-office.pem"};
  command.run = [&settings, options] { export_to(settings, *options); };
}

void add_delete(Command &group, Settings &settings) {
  Command &command = group.add("delete", "Delete a certificate");
  auto options = std::make_shared<DeleteEntryOptions>();
  add_certificate_name(command, options->name);
  add_consent(command, options->consent);
  command.details =
      "The private key of that name, if there is one, stays. Asks on a terminal and needs --yes elsewhere.";
  command.examples = {"vesk certificate delete branch-office --yes"};
  command.run = [&settings, options] { remove(settings, *options); };
}

void add_list(Command &group, Settings &settings) {
  Command &command = group.add("list", "List the names of the certificates, one a line");
  auto options = std::make_shared<TypeOptions>();
  // The server has no other type.
  command.option("--type", &options->type, "C", Kind::kText, "the type of certificate [C, the only one]").choices = {
      options->type};
  add_list_options(command, options->list);
  command.examples = {"vesk certificate list --output json"};
  command.run = [&settings, options] { list(settings, *options); };
}

}  // namespace

void add_certificate(Command &root, Settings &settings) {
  Command &group = root.add("certificate", "Keep the certificates that keys are wrapped under");
  group.examples = {"vesk certificate import branch-office branch-office.pem", "vesk certificate list"};
  add_import(group, settings);
  add_export(group, settings);
  add_delete(group, settings);
  add_list(group, settings);
}

}  // namespace command
