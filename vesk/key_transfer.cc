// vesk key: import, export
#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <optional>

#include "orn/vesk/wire/certificates.h"
#include "vesk/ask.h"
#include "vesk/connection.h"
#include "vesk/existence.h"
#include "vesk/failure.h"
#include "vesk/hints.h"
#include "vesk/input_file.h"
#include "vesk/key_commands.h"
#include "vesk/key_output.h"
#include "vesk/output.h"
#include "vesk/secret_file.h"
#include "vesk/stored_certificate.h"
#include "vesk/text.h"
#include "veskd/key_pairs.h"
#include "veskd/key_text.h"
#include "veskd/wrapping.h"

namespace command {
namespace {

// What the library asks for with every import and export.
constexpr veskd::Padding kPadding = veskd::Padding::kOaep;

struct ImportOptions {
  std::string name;
  std::string certificate;
  std::optional<std::string> certificate_file;
  std::string in;
  bool hex = false;
  bool base64 = false;
  bool wrapped = false;
  bool dry_run = false;
};

struct ExportOptions {
  std::string name;
  std::string certificate;
  std::optional<std::string> instance;
  std::optional<std::string> unwrap_with;
  KeyOutputOptions output;
};

std::string_view without_line_end(std::string_view text) {
  if (text.ends_with('\n')) text.remove_suffix(1);
  if (text.ends_with('\r')) text.remove_suffix(1);
  return text;
}

void take_key(const ImportOptions &options, veskd::KeyValue &value) {
  warn_of_readers(options.in);
  // The longest form is that of hexadecimal digits and a line end.
  const veskd::WipedText input = read_input(options.in, veskd::kBase16Length + 2, "key");
  const std::string &text = input.text();
  bool taken = !options.hex && !options.base64 && text.size() == veskd::kKeyBytes;
  if (taken) std::copy(text.begin(), text.end(), value->begin());
  if (options.hex) taken = veskd::decode_base16(without_line_end(text), value);
  if (options.base64) taken = veskd::decode_base64(without_line_end(text), value);
  if (taken) return;
  const char *form = options.hex ? "64 hexadecimal digits" : options.base64 ? "44 base64 characters" : "32 raw bytes";
  throw Failure(ExitCode::kOther,
                fmt::format("{} does not hold a 256-bit key: that is {}", name_of_input(options.in), form),
                options.hex || options.base64 ? "" : "if it is text: add --hex or --base64");
}

// What was wrapped somewhere else: the server alone can look into it.
void take_wrapped(const ImportOptions &options, veskd::WrappedKey &wrapped) {
  const veskd::WipedText input = read_input(options.in, wrapped.size(), "wrapped key");
  if (input.text().size() != wrapped.size())
    throw Failure(ExitCode::kOther, fmt::format("{} has {} bytes; a wrapped key has {}", name_of_input(options.in),
                                                input.text().size(), wrapped.size()));
  std::copy(input.text().begin(), input.text().end(), wrapped.begin());
}

void send(const Connection &connection, const ImportOptions &options, const veskd::WrappedKey &wrapped) {
  connection.run(key_subject(options.name), qImportSymKey, options.name.c_str(), options.certificate.c_str(), nullptr,
                 wrapped.data());
}

// Whether the server keeps what was sent: a certificate given as a file may have been another than the server's.
void verify(const Connection &connection, const ImportOptions &options, const veskd::KeyValue &value) {
  veskd::Wiped<KeyRecord> record;
  const int status = connection.call(qRetrieveKey, options.name.c_str(), "", &*record);
  if (status == 0 && CRYPTO_memcmp(record->caKeyValue, value->data(), value->size()) == 0) return;
  const std::string hint =
      fmt::format("the key was imported: look at it with: vesk key get {}", printable(options.name));
  if (status == 0)
    throw Failure(ExitCode::kOther, "the server keeps another value under that name than the one given", hint);
  try {
    connection.require(status, key_subject(options.name));
  } catch (const Failure &failure) {
    throw Failure(failure.code(), fmt::format("the imported key could not be checked: {}", failure.what()), hint,
                  failure.details());
  }
}

// What was wrapped needs the private key alone; whether there is a certificate was seen if it was to be fetched.
void show_dry_import(const Settings &settings, const Connection &connection, const ImportOptions &options) {
  connection.require(status_of_existing(connection, kPrivateKeys, options.certificate),
                     fmt::format("private key {}", printable(options.certificate)));
  connection.require(status_of_new(connection, kKeys, options.name), key_subject(options.name));
  show_dry_run(settings, fmt::format("would import key {}", printable(options.name)),
               {{"imported", options.name}, {"certificate", options.certificate}});
}

void import(const Settings &settings, const ImportOptions &options) {
  check_key_name(options.name);
  check_certificate_name(options.certificate);
  veskd::KeyValue value;
  veskd::WrappedKey wrapped{};
  if (options.wrapped) {
    take_wrapped(options, wrapped);
  } else {
    take_key(options, value);
  }
  const Connection connection(settings);
  if (!options.wrapped) {
    const std::string *file = options.certificate_file ? &*options.certificate_file : nullptr;
    const veskd::CertificatePtr certificate = wrapping_certificate(connection, options.certificate, file);
    wrapped = veskd::wrap(X509_get0_pubkey(certificate.get()), kPadding, value);
  }
  if (options.dry_run) return show_dry_import(settings, connection, options);
  send(connection, options, wrapped);
  if (!options.wrapped) verify(connection, options, value);
  show(settings, fmt::format("imported key {}", printable(options.name)),
       {{"imported", options.name}, {"certificate", options.certificate}});
}

veskd::PrivateKeyPtr read_private_key(const std::string &path) {
  warn_of_readers(path);
  const veskd::WipedText bytes = read_input(path, vesk::wire::kMaxPrivateKeyBytes, "private key");
  veskd::ParsedPrivateKey parsed = veskd::parse_private_key(bytes.text());
  if (parsed.key) return std::move(parsed.key);
  // In the server's words, but for those about itself.
  const char *reason = parsed.code == veskd::RC_PRIVATE_KEY_ENCRYPTED ? "the private key is encrypted"
                                                                      : veskd::find_return_code(parsed.code)->sentence;
  throw Failure(ExitCode::kOther, fmt::format("{}: {}", name_of_input(path), reason), hint_for(parsed.code));
}

void write_unwrapped(const ExportOptions &options, EVP_PKEY *private_key, const veskd::WrappedKey &wrapped,
                     const KeyOutput &output) {
  veskd::KeyValue value;
  if (!veskd::unwrap(private_key, kPadding, wrapped, value)) {
    throw Failure(ExitCode::kOther,
                  fmt::format("{} does not unwrap what is wrapped under certificate {}: do they belong together?",
                              name_of_input(*options.unwrap_with), printable(options.certificate)));
  }
  output.write(*value);
}

void export_to(const Settings &settings, const ExportOptions &options) {
  check_key_name(options.name);
  check_certificate_name(options.certificate);
  if (options.instance) check_instance(*options.instance);
  const std::string instance = options.instance.value_or("");
  const KeyOutput output(options.output, settings);
  veskd::PrivateKeyPtr private_key;
  if (options.unwrap_with) private_key = read_private_key(*options.unwrap_with);
  const Connection connection(settings);
  // Whether it can be wrapped under is the server's to say.
  const veskd::CertificatePtr certificate =
      veskd::parse_certificate(fetch_certificate(connection, options.certificate));
  warn_of_expiry(certificate.get(), certificate_subject(options.certificate));
  veskd::WrappedKey wrapped{};
  const std::string subject =
      key_subject(options.name) + (options.instance ? fmt::format(", instance {}", printable(instance)) : "");
  connection.run(subject, qExportSymKey, options.name.c_str(), instance.c_str(), options.certificate.c_str(), nullptr,
                 wrapped.data());
  if (private_key) {
    write_unwrapped(options, private_key.get(), wrapped, output);
  } else {
    output.write(wrapped);
  }
  if (output.is_standard_output()) return;
  show_facts(settings, {{"name", "name", options.name},
                        {"wrapped under", "certificate", options.certificate},
                        {"content", "content", private_key ? "the key" : "the wrapped key"},
                        {"written to", "file", output.file()}});
}

void add_certificate_option(Command &command, std::string &certificate) {
  command
      .option("--certificate", &certificate, "CERT", Kind::kCertificate,
              "the name of the certificate to wrap under, at most 64 bytes")
      .is_required = true;
}

void add_import(Command &group, Settings &settings) {
  Command &command = group.add("import", "Bring in a 256-bit key, wrapped on its way");
  auto options = std::make_shared<ImportOptions>();
  // One that there is not yet.
  add_name(command, options->name).kind = Kind::kText;
  add_certificate_option(command, options->certificate);
  command.option("--in", &options->in, "FILE", Kind::kFile, "the file that the key is in, - for standard input")
      .is_required = true;
  command.flag("--hex", options->hex, "the key is 64 hexadecimal digits, not raw bytes");
  command.flag("--base64", options->base64, "the key is 44 base64 characters").excludes = {"--hex"};
  command.flag("--wrapped", options->wrapped, "it is wrapped already: 256 bytes").excludes = {"--hex", "--base64"};
  command
      .option("--certificate-file", &options->certificate_file, "FILE", Kind::kFile,
              "wrap under this copy of the certificate")
      .excludes = {"--wrapped"};
  add_dry_run(command, options->dry_run);
  command.details =
      "The key is wrapped (RSA-OAEP, SHA-256) under the certificate CERT of the server, whose private key must be\n"
      "there under the same name, and fetched again to compare. Keys never stand in arguments.";
  command.examples = {"vesk key import payroll --certificate head-office --in payroll.key",
                      "vesk key import payroll --certificate head-office --in - --hex < payroll.hex",
                      "vesk key import payroll --certificate head-office --in payroll.wrapped --wrapped"};
  command.run = [&settings, options] { import(settings, *options); };
}

void add_export(Command &group, Settings &settings) {
  Command &command = group.add("export", "Fetch a key wrapped under a certificate");
  auto options = std::make_shared<ExportOptions>();
  add_name(command, options->name);
  add_certificate_option(command, options->certificate);
  add_instance(command, options->instance, "an instance of the key, at most 24 bytes [the current one]");
  add_key_output(command, options->output).is_required = true;
  command.option("--unwrap-with", &options->unwrap_with, "KEY", Kind::kFile,
                 "unwrap with this private key and write the key itself");
  command.details =
      "FILE gets the 256 bytes of the wrapped key (RSA-OAEP, SHA-256), or with --unwrap-with the 32 of the key.";
  command.examples = {
      "vesk key export payroll --certificate branch-office --out payroll.wrapped",
      "vesk key export payroll --certificate branch-office --out payroll.key --unwrap-with branch-office-key.pem"};
  command.run = [&settings, options] { export_to(settings, *options); };
}

}  // namespace

void add_key_transfer(Command &group, Settings &settings) {
  add_import(group, settings);
  add_export(group, settings);
}

}  // namespace command
