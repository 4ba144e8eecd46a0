#include "vesk/target.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "vesk/failure.h"
#include "vesk/suggestion.h"
#include "vesk/text.h"

namespace command {
namespace {

constexpr std::uint32_t kLastPort = 65535;
constexpr std::size_t kMaxPathLength = 100;

TargetValue value_of(const TargetMember &member, const Settings &settings) {
  if (settings.*member.given) return {*(settings.*member.given), Source::kFlag};
  const char *variable = member.variable ? std::getenv(member.variable) : nullptr;
  if (variable && *variable) return {variable, Source::kEnvironment};
  if (member.fallback) return {member.fallback, Source::kDefault};
  return {};
}

// The name that a flag or the environment gives; empty for that of the current context.
std::string context_name(const Settings &settings) {
  if (settings.context) return *settings.context;
  const char *variable = std::getenv("VESK_CONTEXT");
  return variable ? variable : "";
}

bool is_open(const TargetValue &value) {
  return value.source == Source::kDefault || value.source == Source::kNone;
}

void fill(Target &target, const Context &context) {
  const bool has_directory = is_open(target.certificates);
  for (const TargetMember &member : kTargetMembers) {
    TargetValue &value = target.*member.value;
    const auto found = context.find(member.name);
    const bool counts = member.fallback ? has_directory : true;
    if (counts && is_open(value) && found != context.end()) value = {found->second, Source::kContext};
  }
}

// Who names a context should know when it is not what they get.
void warn_of_environment(const Target &target) {
  for (const TargetMember &member : kTargetMembers) {
    if ((target.*member.value).source == Source::kEnvironment)
      fmt::print(stderr, "warning: {} is set and comes before context {}\n", member.variable,
                 printable(target.context));
  }
}

void require_given(const Target &target) {
  std::string missing;
  std::string hint;
  const auto require = [&](const TargetValue &value, const char *what, const char *how) {
    if (!value.text.empty()) return;
    missing += fmt::format("{}{}", missing.empty() ? "" : ", ", what);
    hint += fmt::format("{}{}", hint.empty() ? "give " : "; ", how);
  };
  require(target.host, "the host", "--host HOST (or set VESK_HOST)");
  require(target.port, "the port", "--port PORT (VESK_PORT)");
  require(target.certificates, "the certificate directory", "--certificates DIR (VESK_CERTIFICATES)");
  if (!missing.empty())
    throw Failure(ExitCode::kUsage, "not given: " + missing, hint + "; or once for all: vesk context add --help");
}

void require_path_length(const Target &target) {
  const std::string &certificates = target.certificates.text;
  const std::string directory = certificates + (certificates.ends_with('/') ? "" : "/");
  for (const std::string &name : {target.authority.text, target.certificate.text, target.key.text}) {
    if (name.empty()) throw Failure(ExitCode::kUsage, "the name of a certificate file is empty");
    const std::string path = directory + name;
    if (path.size() <= kMaxPathLength) continue;
    throw Failure(ExitCode::kUsage,
                  fmt::format("the certificate path {} is {} bytes long; at most {} are allowed", printable(path),
                              path.size(), kMaxPathLength),
                  "change to a directory nearby and give a relative path, or use a symbolic link");
  }
}

}  // namespace

std::string origin_of(const TargetMember &member, const Target &target) {
  switch ((target.*member.value).source) {
    case Source::kFlag:
      return member.flag;
    case Source::kEnvironment:
      return member.variable;
    case Source::kContext:
      return "context " + printable(target.context);
    case Source::kDefault:
      return "default";
    case Source::kNone:
      break;
  }
  return "not given";
}

Target target_without_context(const Settings &settings) {
  Target target;
  for (const TargetMember &member : kTargetMembers) target.*member.value = value_of(member, settings);
  return target;
}

Target target_of(const Settings &settings) {
  Target target = target_without_context(settings);
  const bool is_complete = !is_open(target.host) && !is_open(target.port) && !is_open(target.certificates);
  if (is_complete && !settings.context) return target;
  const Contexts contexts = read_contexts();
  const std::string name = context_name(settings);
  target.context = name.empty() ? contexts.current : name;
  if (target.context.empty()) return target;
  fill(target, find_context(contexts, target.context));
  if (settings.context) warn_of_environment(target);
  return target;
}

void check_target(const Target &target) {
  require_given(target);
  check_host(target.host.text);
  port_of(target);
  require_path_length(target);
}

std::uint32_t port_of(const Target &target) {
  return parse_number("port", target.port.text, 1, kLastPort, Base16::kNo, "give it with --port PORT or in VESK_PORT");
}

const Context &find_context(const Contexts &contexts, const std::string &name) {
  const auto found = contexts.named.find(name);
  if (found != contexts.named.end()) return found->second;
  std::vector<std::string> names;
  for (const auto &[known, context] : contexts.named) names.push_back(known);
  const std::optional<std::string> meant = nearest(name, names);
  throw Failure(ExitCode::kUsage, fmt::format("there is no context '{}'", printable(name)),
                meant ? did_you_mean(*meant) : "which there are: vesk context list");
}

}  // namespace command
