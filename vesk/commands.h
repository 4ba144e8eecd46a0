// The command groups. Each function adds its commands to the application; parsing one of them sets settings.action.
#pragma once

#include "vesk/settings.h"

namespace command {

void add_ping(CLI::App &app, Settings &settings);
void add_server(CLI::App &app, Settings &settings);
void add_key(CLI::App &app, Settings &settings);
void add_template(CLI::App &app, Settings &settings);
void add_metadata(CLI::App &app, Settings &settings);
void add_certificate(CLI::App &app, Settings &settings);
void add_private_key(CLI::App &app, Settings &settings);
void add_mirror(CLI::App &app, Settings &settings);
void add_appliance(CLI::App &app, Settings &settings);
void add_database(CLI::App &app, Settings &settings);

}  // namespace command
