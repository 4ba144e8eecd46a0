// The command groups. Each function adds its commands to the application; each command runs with the settings. Both
// outlive the commands.
#pragma once

#include "vesk/settings.h"

namespace command {

// All of them, and what the root tells of itself.
void add_commands(Command &root, Settings &settings);

void add_context(Command &root, Settings &settings);
void add_ping(Command &root, Settings &settings);
void add_doctor(Command &root, Settings &settings);
void add_server(Command &root, Settings &settings);
void add_key(Command &root, Settings &settings);
void add_template(Command &root, Settings &settings);
void add_metadata(Command &root, Settings &settings);
void add_certificate(Command &root, Settings &settings);
void add_private_key(Command &root, Settings &settings);
void add_mirror(Command &root, Settings &settings);
void add_appliance(Command &root, Settings &settings);
void add_database(Command &root, Settings &settings);
void add_decode(Command &root, Settings &settings);
void add_completion(Command &root);
void add_help(Command &root);

}  // namespace command
