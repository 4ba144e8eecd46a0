// What the files of the key group share.
#pragma once

#include <cstdint>
#include <string>

#include "vesk/output.h"
#include "vesk/settings.h"

namespace command {

// What a failed call was about.
std::string key_subject(const std::string &name);
std::string template_subject(const std::string &constant);

// Six upper-case hexadecimal digits, as in key names.
std::string increment_text(std::uint32_t increment);

// In a table those digits, in JSON the number.
Json increment_value(const Settings &settings, std::uint32_t increment);

// The positional NAME.
void add_name(CLI::App &command, std::string &name);

// list
void add_key_list(CLI::App &group, Settings &settings);

// import and export
void add_key_transfer(CLI::App &group, Settings &settings);

// policy, make-deletable and delete
void add_key_policy(CLI::App &group, Settings &settings);

}  // namespace command
