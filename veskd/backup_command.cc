// veskd backup and veskd restore.
#include <CLI/CLI.hpp>
#include <memory>

#include "veskd/commands.h"
#include "veskd/store_copy.h"

namespace veskd {
namespace {

void add_backup(CLI::App &app) {
  struct Options {
    std::filesystem::path directory;
    BackupRequest request;
  };
  const auto options = std::make_shared<Options>();
  CLI::App *backup = app.add_subcommand("backup", "Copy the store into a file, while a server runs or not");
  backup->add_option("--dir", options->directory, "directory of master key and store")->required();
  backup->add_option("--to", options->request.to, "the file to make")->required();
  backup->add_option("--master-key-to", options->request.master_key_to,
                     "file to copy the master key to; without it, the backup can be read by nobody who has not kept "
                     "the master key");
  backup->add_flag("--replace", options->request.replace, "replace the file if it is there");
  backup->callback([options] {
    options->request.store = store_files_in(options->directory);
    back_up(options->request);
  });
}

void add_restore(CLI::App &app) {
  const auto request = std::make_shared<RestoreRequest>();
  CLI::App *command = app.add_subcommand("restore", "Make the store of a directory that no server has, from a backup");
  command->add_option("--from", request->from, "the backup")->required();
  command->add_option("--dir", request->directory, "directory of master key and store; made if it is not there")
      ->required();
  command->add_option("--master-key", request->master_key,
                      "the master key file of the backup, if it is not that of the directory");
  command
      ->add_option("--skip-increments", request->skip_increments,
                   "move each template on by that many increments, as many as may have been served since the backup; "
                   "without it, past all that were generated")
      ->check(CLI::NonNegativeNumber);
  command->add_flag("--replace", request->replace, "replace the store if there is one");
  command->callback([request] { restore(*request); });
}

}  // namespace

void add_backup_commands(CLI::App &app) {
  add_backup(app);
  add_restore(app);
}

}  // namespace veskd
