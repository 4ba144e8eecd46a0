// veskd backup and veskd restore.
#include <CLI/CLI.hpp>
#include <memory>

#include "veskd/commands.h"
#include "veskd/store_copy.h"
#include "veskd/store_option.h"

namespace veskd {
namespace {

void add_backup(CLI::App &app) {
  struct Options {
    StoreOption store;
    BackupRequest request;
  };
  const auto options = std::make_shared<Options>();
  CLI::App *backup = app.add_subcommand("backup", "Copy the store into a file, while a server runs or not");
  options->store.add_to(*backup);
  backup->add_option("--to", options->request.to, "the file to make")->required();
  backup->add_option("--master-key-to", options->request.master_key_to,
                     "file to copy the master key to; without it, the backup can be read by nobody who has not kept "
                     "the master key");
  backup->add_flag("--replace", options->request.replace, "replace the file if it is there");
  backup->callback([options] {
    options->request.store = options->store.files();
    back_up(options->request);
  });
}

void add_restore(CLI::App &app) {
  struct Options {
    StoreOption store;
    RestoreRequest request;
  };
  const auto options = std::make_shared<Options>();
  RestoreRequest &request = options->request;
  CLI::App *command = app.add_subcommand("restore", "Make a store that no server has from a backup");
  command->add_option("--from", request.from, "the backup")->required();
  options->store.add_to(*command, "directory of master key and store; made if it is not there");
  command->add_option("--master-key", request.master_key,
                      "the master key file of the backup, if it is not that of the store");
  command
      ->add_option("--skip-increments", request.skip_increments,
                   "move each template on by that many increments, as many as may have been served since the backup; "
                   "without it, past all that were generated")
      ->check(CLI::NonNegativeNumber);
  command->add_flag("--replace", request.replace, "replace the store if there is one");
  command->callback([options] {
    options->request.store = options->store.files();
    restore(options->request);
  });
}

}  // namespace

void add_backup_commands(CLI::App &app) {
  add_backup(app);
  add_restore(app);
}

}  // namespace veskd
