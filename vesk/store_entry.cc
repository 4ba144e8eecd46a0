#include "vesk/store_entry.h"

#include "vesk/output.h"

namespace command {

void add_import_entry_options(Command &command, ImportEntryOptions &options, const char *file_help,
                              const char *replace_help) {
  command.argument("FILE", &options.file, Kind::kFile, file_help);
  command.flag("--replace", options.replace, replace_help);
  add_dry_run(command, options.dry_run);
}

void show_import(const Settings &settings, const ImportEntryOptions &options, const std::string &subject) {
  const Members document = {{"imported", options.name}};
  if (options.dry_run) return show_dry_run(settings, "would import " + subject, document);
  show(settings, "imported " + subject, document);
}

void delete_entry(const Settings &settings, const DeleteEntryOptions &options, const NamedKind &kind,
                  const std::string &subject, const std::string &consequence,
                  const std::function<void(const Connection &)> &call) {
  const Connection connection(settings);
  const Members document = {{"deleted", options.name}};
  if (options.consent.dry_run) {
    connection.require(status_of_existing(connection, kind, options.name), subject);
    return show_dry_run(settings, "would delete " + subject, document);
  }
  ask_yes(options.consent, "Delete " + subject + "?" + consequence, "nothing was deleted");
  call(connection);
  show(settings, "deleted " + subject, document);
}

}  // namespace command
