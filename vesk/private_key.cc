// vesk private-key
#include <memory>

#include "orn/vesk/wire/certificates.h"
#include "vesk/commands.h"
#include "vesk/connection.h"
#include "vesk/input_file.h"
#include "vesk/memory_file.h"
#include "vesk/secret_file.h"
#include "vesk/store_entry.h"
#include "vesk/store_names.h"
#include "vesk/text.h"
#include "veskd/key_pairs.h"

namespace command {
namespace {

std::string subject_of(const std::string &name) {
  return "private key " + printable(name);
}

void import(const Settings &settings, const ImportEntryOptions &options) {
  check_private_key_name(options.name);
  const std::string subject = subject_of(options.name);
  warn_of_readers(options.file);
  const veskd::WipedText bytes = read_input(options.file, vesk::wire::kMaxPrivateKeyBytes, "private key");
  const Connection connection(settings);
  // The library's import replaces what is there, always: whoever does not want that looks first.
  if (!options.replace) connection.require(status_of_new(connection, kPrivateKeys, options.name), subject);
  if (options.dry_run) {
    connection.require(veskd::parse_private_key(bytes.text()).code, subject);
    return show_import(settings, options, subject);
  }
  const MemoryFile file(bytes.text());
  connection.run(subject, qImportPrivateKey, file.path().c_str(), options.name.c_str());
  show_import(settings, options, subject);
}

void remove(const Settings &settings, const DeleteEntryOptions &options) {
  check_private_key_name(options.name);
  const std::string subject = subject_of(options.name);
  delete_entry(settings, options, kPrivateKeys, subject, " Keys that are wrapped for it can be imported no more.",
               [&](const Connection &connection) { connection.run(subject, qDeletePrivateKey, options.name.c_str()); });
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
  auto options = std::make_shared<ImportEntryOptions>();
  add_private_key_name(command, options->name);
  add_import_entry_options(command, *options, "the private key, PEM or DER, not encrypted; - for standard input",
                           "replace the private key of that name if there is one");
  command.details =
      "The key is an RSA key of 2048 bits. It unwraps what is imported under the certificate of its name.";
  command.examples = {"vesk private-key import head-office head-office-key.pem"};
  command.run = [&settings, options] { import(settings, *options); };
}

void add_delete(Command &group, Settings &settings) {
  Command &command = group.add("delete", "Delete a private key for good");
  auto options = std::make_shared<DeleteEntryOptions>();
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
