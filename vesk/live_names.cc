#include "vesk/live_names.h"

#include <algorithm>
#include <cctype>

#include "vesk/connection.h"
#include "vesk/context_file.h"
#include "vesk/name_stream.h"
#include "vesk/store_names.h"
#include "vesk/stored_certificate.h"

namespace command {
namespace {

constexpr std::size_t kMostNames = 1000;

std::vector<std::string> context_names() {
  std::vector<std::string> names;
  for (const auto &[name, context] : read_contexts().named) names.push_back(name);
  return names;
}

std::vector<std::string> key_names(const Connection &connection, const std::string &beginning) {
  std::vector<std::string> names;
  NameStream stream(connection, beginning);
  for (std::string name; stream.next(name);) {
    names.push_back(name);
    if (names.size() > kMostNames) return names;
  }
  stream.finish();
  return names;
}

std::vector<std::string> names_of(const Settings &settings, Kind kind, const std::string &beginning) {
  switch (kind) {
    case Kind::kContext:
      return context_names();
    case Kind::kKeyName:
      return key_names(Connection(settings), beginning);
    case Kind::kTemplate:
      return store_names([&](LinkedList *names) { Connection(settings).run({}, qGetTemplateList, names); });
    case Kind::kCertificate:
      return store_names(
          [&](LinkedList *names) { Connection(settings).run({}, qGetCertificateList_as_ll, kCertificateType, names); });
    case Kind::kPrivateKey:
      return store_names([&](LinkedList *names) { Connection(settings).run({}, qGetPrivateKeyList_as_ll, names); });
    case Kind::kMirror:
      return store_names([&](LinkedList *names) { Connection(settings).run({}, qListMirrorNames, names); });
    default:
      return {};
  }
}

// No command takes such a name, and a shell that shows it would have its terminal steered.
bool has_control_character(const std::string &name) {
  return std::ranges::any_of(name, [](unsigned char character) { return std::iscntrl(character) != 0; });
}

}  // namespace

std::vector<std::string> live_names(const Settings &settings, Kind kind, const std::string &beginning) {
  Settings untraced = settings;
  // The line that asks for a trace has not been entered yet.
  untraced.trace.clear();
  std::vector<std::string> names = names_of(untraced, kind, beginning);
  std::erase_if(names,
                [&](const std::string &name) { return !name.starts_with(beginning) || has_control_character(name); });
  return names.size() > kMostNames ? std::vector<std::string>{} : names;
}

}  // namespace command
