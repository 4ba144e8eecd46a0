// The server that is meant and the certificate files for it, and where each value comes from.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "vesk/context_file.h"
#include "vesk/settings.h"

namespace command {

// The first that has a value decides.
enum class Source { kFlag, kEnvironment, kContext, kDefault, kNone };

struct TargetValue {
  std::string text;
  Source source = Source::kNone;
};

struct Target {
  TargetValue host;
  TargetValue port;
  TargetValue certificates;
  TargetValue authority;  // of the three files, whose names count from a context only when their directory does
  TargetValue certificate;
  TargetValue key;
  std::string context = {};  // the name of the one that was looked into; empty for none
};

// A member of a target: its name in documents and contexts, and what sets it.
struct TargetMember {
  const char *name;
  TargetValue Target::*value;
  std::optional<std::string> Settings::*given;
  const char *flag;
  const char *variable;  // null for none
  const char *fallback;  // null for none
};

inline constexpr std::array kTargetMembers = {
    TargetMember{"host", &Target::host, &Settings::host, "--host", "VESK_HOST", nullptr},
    TargetMember{"port", &Target::port, &Settings::port, "--port", "VESK_PORT", nullptr},
    TargetMember{"certificates", &Target::certificates, &Settings::certificates, "--certificates", "VESK_CERTIFICATES",
                 nullptr},
    TargetMember{"authority", &Target::authority, &Settings::authority, "--authority", nullptr, "authority.pem"},
    TargetMember{"certificate", &Target::certificate, &Settings::certificate, "--certificate", nullptr, "client.pem"},
    TargetMember{"key", &Target::key, &Settings::key, "--key", nullptr, "client-key.pem"},
};

// Where the value comes from, as in "--host" or "context production".
std::string origin_of(const TargetMember &member, const Target &target);

// From the flags, the environment, the context that is named or current, and what goes without saying.
Target target_of(const Settings &settings);

// The same without a context.
Target target_without_context(const Settings &settings);

// Fails unless everything is given and within the protocol's limits.
void check_target(const Target &target);

// What a port has to be.
std::uint32_t port_of(const Target &target);

// The context of that name; refuses one that there is not.
const Context &find_context(const Contexts &contexts, const std::string &name);

}  // namespace command
