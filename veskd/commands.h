// The commands of veskd beside those that serve: each adds itself, and does its work while the command line is parsed.
#pragma once

namespace CLI {
class App;
}

namespace veskd {

void add_audit_command(CLI::App &app);
void add_backup_commands(CLI::App &app);
void add_rotation_command(CLI::App &app);

}  // namespace veskd
