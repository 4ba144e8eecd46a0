// vesk database
#include <CLI/CLI.hpp>

#include "vesk/commands.h"
#include "vesk/connection.h"
#include "vesk/output.h"

namespace command {
namespace {

void create(const Settings &settings) {
  const Connection connection(settings);
  connection.run("key database", qCreateDatabase);
  show(settings, "created the key database of " + connection.server(), {{"created", "key database"}});
}

}  // namespace

void add_database(CLI::App &app, Settings &settings) {
  CLI::App *group = app.add_subcommand("database", "Set up the server's key database");
  group->require_subcommand(1);
  CLI::App *command = group->add_subcommand("create", "Have the server create its key database");
  command->footer("Example:\n  vesk database create");
  command->final_callback([&settings] { settings.action = [&settings] { create(settings); }; });
}

}  // namespace command
