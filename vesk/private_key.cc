// vesk private-key
#include <fmt/format.h>

#include <memory>

#include "orn/vesk/wire/certificates.h"
#include "vesk/ask.h"
#include "vesk/commands.h"
#include "vesk/connection.h"
#include "vesk/existence.h"
#include "vesk/input_file.h"
#include "vesk/memory_file.h"
#include "vesk/output.h"
#include "vesk/secret_file.h"
#include "vesk/store_names.h"
#include "vesk/text.h"
#include "veskd/key_pairs.h"

namespace command {
namespace {

struct ImportOptions {
  std::string name;
  std::string file;
  bool replace = false;
  bool dry_run = false;
};

struct DeleteOptions {
  std::string name;
  Consent consent;
};

std::string subject_of(const std::string &name) {
  return "private key " + printable(name);
}

void import(const Settings &settings, const ImportOptions &options) {
  check_private_key_name(options.name);
  warn_of_readers(options.file);
  const veskd::WipedText bytes = read_input(options.file, vesk::wire::kMaxPrivateKeyBytes, "private key");
  const Connection connection(settings);
  // The library's import replaces what is there, always: whoever does not want that looks first.
  if (!options.replace)
    connection.require(status_of_new(connection, kPrivateKeys, options.name), subject_of(options.name));
  if (options.dry_run) {
    connection.require(veskd::parse_private_key(bytes.text()).code, subject_of(options.name));
    return show_dry_run(settings, fmt::format("would import private key {}", printable(options.name)),
                        {{"imported", options.name}});
  }
  const MemoryFile file(bytes.text());
  connection.run(subject_of(options.name), qImportPrivateKey, file.path().c_str(), options.name.c_str());
  show(settings, fmt::format("imported private key {}", printable(options.name)), {{"imported", options.name}});
}

void remove(const Settings &settings, const DeleteOptions &options) {
  check_private_key_name(options.name);
  const Connection connection(settings);
  if (options.consent.dry_run) {
    connection.require(status_of_existing(connection, kPrivateKeys, options.name), subject_of(options.name));
    return show_dry_run(settings, fmt::format("would delete private key {}", printable(options.name)),
                        {{"deleted", options.name}});
  }
  ask_yes(options.consent,
          fmt::format("Delete private key {}? Keys that are wrapped for it can be imported no more.",
                      printable(options.name)),
          "nothing was deleted");
  connection.run(subject_of(options.name), qDeletePrivateKey, options.name.c_str());
  show(settings, fmt::format("deleted private key {}", printable(options.name)), {{"deleted", options.name}});
}

void list(const Settings &settings, const ListOptions &options) {
  const Connection connection(settings);
  show_store_names(settings, options, "private_keys", store_names([&](LinkedList *names) {
                     connection.run("private keys", qGetPrivateKeyList_as_ll, names);
                   }));
}

void add_private_key_name(Command &command, std::string &name) {
  command.argument("NAME", &name, Kind::kPrivateKey,
                   "the private key's name, at most 64 bytes: that of its certificate");
}

void add_import(Command &group, Settings &settings) {
  Command &command = group.add("import", "Send a private key to the server, which never gives it back");
  auto options = std::make_shared<ImportOptions>();
  add_private_key_name(command, options->name);
  command.argument("FILE", &options->file, Kind::kFile,
                   "the private key, PEM or DER, not encrypted; - for standard input");
  command.flag("--replace", options->replace, "replace the private key of that name if there is one");
  add_dry_run(command, options->dry_run);
  command.details =
      "The key is an RSA key of 2048 bits. It unwraps what is imported under the certificate of its name.";
  command.examples = {"vesk private-key import head-office head-office-key.pem"};
  command.run = [&settings, options] { import(settings, *options); };
}

void add_delete(Command &group, Settings &settings) {
  Command &command = group.add("delete", "Delete a private key for good");
  auto options = std::make_shared<DeleteOptions>();
  add_private_key_name(command, options->name);
  add_consent(command, options->consent);
  command.details = "Asks on a terminal and needs --yes elsewhere.";
  command.examples = {"vesk private-key delete head-office --yes"};
  command.run = [&settings, options] { remove(settings, *options); };
}

void add_list(Command &group, Settings &settings) {
  Command &command = group.add("list", "List the names of the private keys, one a line");
  command.examples = {"vesk private-key list"};
  add_list_options_of(command, settings, list);
}

}  // namespace

void add_private_key(Command &root, Settings &settings) {
  Command &group = root.add("private-key", "Keep the private keys that unwrap imported keys");
  group.examples = {"vesk private-key import head-office head-office-key.pem", "vesk private-key list"};
  add_import(group, settings);
  add_delete(group, settings);
  add_list(group, settings);
}

}  // namespace command
