#include "vesk/commands.h"

#include <fmt/format.h>

#include "vesk/exit_code.h"

namespace command {
namespace {

std::string exit_codes() {
  std::string text = "Exit codes:";
  for (const ExitCodeText &exit : kExitCodes)
    text += fmt::format("\n  {:<3}  {}", static_cast<int>(exit.code), exit.sentence);
  return text;
}

}  // namespace

void add_commands(Command &root, Settings &settings) {
  add_settings(root, settings);
  add_context(root, settings);
  add_ping(root, settings);
  add_doctor(root, settings);
  add_server(root, settings);
  add_key(root, settings);
  add_template(root, settings);
  add_metadata(root, settings);
  add_certificate(root, settings);
  add_private_key(root, settings);
  add_mirror(root, settings);
  add_appliance(root, settings);
  add_database(root, settings);
  add_decode(root, settings);
  add_completion(root);
  add_help(root);
  root.details = exit_codes();
  root.examples = {"vesk context add production --host kms.example --port 4000 --certificates /etc/vesk", "vesk ping",
                   "vesk key create backup-2026", "vesk key get backup-2026 --out backup.key"};
}

}  // namespace command
