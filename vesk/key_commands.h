// What the files of the key group share.
#pragma once

#include <cstdint>
#include <optional>
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

// The arguments NAME and CONSTANT, and --instance.
Option &add_name(Command &command, std::string &name);
Option &add_optional_name(Command &command, std::optional<std::string> &name);
void add_constant(Command &command, std::string &constant);
void add_instance(Command &command, std::optional<std::string> &instance, const std::string &text);

// The sixteen metadata fields of a key, as key policy and metadata get tell them.
void show_metadata(const Settings &settings, const std::string &name);

// list
void add_key_list(Command &group, Settings &settings);

// import and export
void add_key_transfer(Command &group, Settings &settings);

// policy, make-deletable and delete
void add_key_policy(Command &group, Settings &settings);

}  // namespace command
