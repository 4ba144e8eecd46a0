// vesk database

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

void add_database(Command &root, Settings &settings) {
  Command &group = root.add("database", "Set up the server's key database");
  group.examples = {"vesk database create"};
  Command &command = group.add("create", "Have the server create its key database");
  command.details = "A database that is there already stays as it is, with all its keys.";
  command.examples = {"vesk database create"};
  command.run = [&settings] { create(settings); };
}

}  // namespace command
