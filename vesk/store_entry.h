// What the commands of certificates and of private keys have in common. A subject is what an entry of the store is
// called, as in "certificate head-office".
#pragma once

#include <functional>
#include <string>

#include "vesk/ask.h"
#include "vesk/existence.h"

namespace command {

struct ImportEntryOptions {
  std::string name;
  std::string file;
  bool replace = false;
  bool dry_run = false;
};

// The options behind the name.
void add_import_entry_options(Command &command, ImportEntryOptions &options, const char *file_help,
                              const char *replace_help);

// Says that it was imported, or would be.
void show_import(const Settings &settings, const ImportEntryOptions &options, const std::string &subject);

struct DeleteEntryOptions {
  std::string name;
  Consent consent;
};

// Asks, deletes with the call and says so. Behind the question stands what else the deletion does, if anything.
void delete_entry(const Settings &settings, const DeleteEntryOptions &options, const NamedKind &kind,
                  const std::string &subject, const std::string &consequence,
                  const std::function<void(const Connection &)> &call);

}  // namespace command
