// vesk mirror
#include <fmt/format.h>

#include <algorithm>
#include <memory>

#include "vesk/ask.h"
#include "vesk/commands.h"
#include "vesk/connection.h"
#include "vesk/existence.h"
#include "vesk/failure.h"
#include "vesk/output.h"
#include "vesk/states.h"
#include "vesk/store_names.h"
#include "vesk/text.h"

namespace command {
namespace {

constexpr std::uint32_t kLastPort = 65535;
constexpr std::size_t kMaxNameLength = 40;
constexpr std::size_t kMaxHostLength = 256;

struct SetOptions {
  std::string name;
  std::string host;
  std::string port;
  bool dry_run = false;
};

struct RemoveOptions {
  std::string name;
  Consent consent;
};

struct SyncOptions {
  std::string name;
  bool all = false;
  std::string key;
  bool dry_run = false;
};

std::string mirror_subject(const std::string &name) {
  return fmt::format("mirror {}", printable(name));
}

// The protocol would cut what is longer, and the name or host would be another.
void check_text(std::string_view what, const std::string &text, std::size_t most) {
  const bool plain = std::all_of(text.begin(), text.end(), [](unsigned char c) { return c >= 0x20 && c < 0x7f; });
  if (text.empty()) throw Failure(ExitCode::kUsage, fmt::format("the {} is empty", what));
  if (text.size() > most) {
    throw Failure(ExitCode::kUsage, fmt::format("the {} {} is {} bytes long; at most {} are allowed", what,
                                                printable(text), text.size(), most));
  }
  if (!plain || text.back() == ' ') {
    throw Failure(ExitCode::kUsage, fmt::format("the {} {} holds a character that is not printable ASCII or ends in a "
                                                "blank",
                                                what, printable(text)));
  }
}

void check_mirror_name(const std::string &name) {
  check_text("mirror name", name, kMaxNameLength);
}

void set(const Settings &settings, const SetOptions &options) {
  check_mirror_name(options.name);
  check_text("mirror's host", options.host, kMaxHostLength);
  const std::uint32_t port = parse_number("mirror's port", options.port, 1, kLastPort);
  const Connection connection(settings);
  const Members document = {{"mirror", options.name}, {"host", options.host}, {"port", port}};
  if (options.dry_run) {
    const int status = status_of_existing(connection, kMirrors, options.name);
    if (status != kMirrors.unknown) connection.require(status, mirror_subject(options.name));
    const char *sentence = status == 0 ? "would move mirror {} to {} port {}" : "would add mirror {} at {} port {}";
    return show_dry_run(settings,
                        fmt::format(fmt::runtime(sentence), printable(options.name), printable(options.host), port),
                        document);
  }
  connection.run(mirror_subject(options.name), qSetMirrorAddress, options.name.c_str(), options.host.c_str(), port);
  show(settings, fmt::format("mirror {} is at {} port {}", printable(options.name), printable(options.host), port),
       document);
}

void get(const Settings &settings, const std::string &name) {
  check_mirror_name(name);
  const Connection connection(settings);
  // One byte more than the library uses for the host and its terminator.
  char host[kMaxHostLength + 1] = {};
  std::uint32_t port = 0;
  connection.run(mirror_subject(name), qGetMirrorAddress, name.c_str(), host, static_cast<std::uint32_t>(sizeof host),
                 &port);
  show_facts(settings, {{"mirror", "mirror", name}, {"host", "host", host}, {"port", "port", port}});
}

void remove(const Settings &settings, const RemoveOptions &options) {
  check_mirror_name(options.name);
  const Connection connection(settings);
  if (options.consent.dry_run) {
    connection.require(status_of_existing(connection, kMirrors, options.name), mirror_subject(options.name));
    return show_dry_run(settings, fmt::format("would remove mirror {}", printable(options.name)),
                        {{"removed", options.name}});
  }
  ask_yes(options.consent,
          fmt::format("Remove mirror {}? What waits for it is not delivered any more.", printable(options.name)),
          "nothing was removed");
  connection.run(mirror_subject(options.name), qRemoveMirrorAddress, options.name.c_str());
  show(settings, fmt::format("removed mirror {}", printable(options.name)), {{"removed", options.name}});
}

void list(const Settings &settings, const ListOptions &options) {
  const Connection connection(settings);
  show_store_names(settings, options, "mirrors",
                   store_names([&](LinkedList *names) { connection.run({}, qListMirrorNames, names); }));
}

// Asking has the server try the mirror at once; what it tells is what it knew before.
void status(const Settings &settings, const std::string &name) {
  check_mirror_name(name);
  const Connection connection(settings);
  std::int32_t num_faults = 0;
  char state = 0;
  char data = 0;
  connection.run(mirror_subject(name), qGetMirrorStatus, name.c_str(), 1, &num_faults, &state, &data);
  std::int32_t num_waiting = 0;
  connection.run(mirror_subject(name), qGetQueueSize, name.c_str(), &num_waiting);
  const State state_meaning = mirror_state(state);
  const State data_meaning = mirror_data(data);
  show_facts(settings, {{"mirror", "mirror", name},
                        {"state", "state", state_meaning.word, state_meaning.health},
                        {"data", "data", data_meaning.word, data_meaning.health},
                        {"faults", "faults", num_faults},
                        {"changes waiting", "queue_size", num_waiting}});
  if (state_meaning.health == Health::kFault)
    throw Failure(ExitCode::kHealth, fmt::format("{}: {}", mirror_subject(name), state_meaning.word),
                  "the server's log says why");
  if (data_meaning.health == Health::kFault)
    throw Failure(ExitCode::kHealth, fmt::format("{} holds {}", mirror_subject(name), data_meaning.word),
                  "send it what it lacks: vesk mirror sync NAME --all");
}

void queue(const Settings &settings, const std::string &name) {
  check_mirror_name(name);
  const Connection connection(settings);
  std::int32_t size = 0;
  connection.run(mirror_subject(name), qGetQueueSize, name.c_str(), &size);
  show_facts(settings, {{"mirror", "mirror", name}, {"changes waiting", "queue_size", size}});
}

void sync(const Settings &settings, const SyncOptions &options) {
  check_mirror_name(options.name);
  if (options.all == !options.key.empty())
    throw Failure(ExitCode::kUsage, "which keys? give either --all or --only KEY");
  if (!options.all) check_key_name(options.key);
  const Connection connection(settings);
  const std::string what = options.all ? "all mirror keys" : fmt::format("key {}", printable(options.key));
  const Members document = {{"mirror", options.name}, {"key", options.all ? Json() : Json(options.key)}};
  if (options.dry_run) {
    connection.require(status_of_existing(connection, kMirrors, options.name), mirror_subject(options.name));
    if (!options.all) connection.require(status_of_existing(connection, kKeys, options.key), what);
    return show_dry_run(settings, fmt::format("{} would be sent to mirror {}", what, printable(options.name)),
                        document);
  }
  connection.run(fmt::format("{}, {}", mirror_subject(options.name), what), qForceKeySync, options.name.c_str(),
                 options.all ? nullptr : options.key.c_str());
  show(settings, fmt::format("{} will be sent to mirror {}", what, printable(options.name)), document);
}

void add_mirror_name(Command &command, std::string &name) {
  command.argument("NAME", &name, Kind::kMirror, "the mirror's name, at most 40 bytes");
}

// A command whose only argument is the mirror's name.
void add_named(Command &group, Settings &settings, const char *command_name, const char *description,
               const char *details, const char *example, void (*run)(const Settings &, const std::string &)) {
  Command &command = group.add(command_name, description);
  auto name = std::make_shared<std::string>();
  add_mirror_name(command, *name);
  command.details = details;
  command.examples = {example};
  command.run = [&settings, name, run] { run(settings, *name); };
}

void add_set(Command &group, Settings &settings) {
  Command &command = group.add("set", "Add a mirror or give it another address");
  auto options = std::make_shared<SetOptions>();
  add_mirror_name(command, options->name);
  command.argument("HOST", &options->host, Kind::kHost, "its host name or numeric address");
  command.argument("PORT", &options->port, Kind::kNumber, "its port, 1 to 65535");
  add_dry_run(command, options->dry_run);
  command.details =
      "A new mirror gets the changes from now on; send it what there is with: vesk mirror sync NAME --all";
  command.examples = {"vesk mirror set west kms-west.example 4000"};
  command.run = [&settings, options] { set(settings, *options); };
}

void add_remove(Command &group, Settings &settings) {
  Command &command = group.add("remove", "Take a mirror from the address book");
  auto options = std::make_shared<RemoveOptions>();
  add_mirror_name(command, options->name);
  add_consent(command, options->consent);
  command.details = "Asks on a terminal and needs --yes elsewhere.";
  command.examples = {"vesk mirror remove west"};
  command.run = [&settings, options] { remove(settings, *options); };
}

void add_list(Command &group, Settings &settings) {
  Command &command = group.add("list", "List the names of all mirrors, one a line");
  command.examples = {"vesk mirror list --output json"};
  add_list_options_of(command, settings, list);
}

void add_sync(Command &group, Settings &settings) {
  Command &command = group.add("sync", "Send a mirror all mirror keys again, or one of them");
  auto options = std::make_shared<SyncOptions>();
  add_mirror_name(command, options->name);
  command.flag("--all", options->all, "all mirror keys");
  command.option("--only", &options->key, "KEY", Kind::kKeyName, "one key");
  add_dry_run(command, options->dry_run);
  command.details = "Returns when the keys are queued; vesk mirror queue NAME tells how many are still to be sent.";
  command.examples = {"vesk mirror sync west --all", "vesk mirror sync west --only backup-2026"};
  command.run = [&settings, options] { sync(settings, *options); };
}

}  // namespace

void add_mirror(Command &root, Settings &settings) {
  Command &group = root.add("mirror", "Name the servers that keys are replicated to, and watch them");
  group.examples = {"vesk mirror set west kms-west.example 4000", "vesk mirror status west"};
  add_set(group, settings);
  add_named(group, settings, "get", "Show a mirror's address", "", "vesk mirror get west", get);
  add_remove(group, settings);
  add_list(group, settings);
  add_named(
      group, settings, "status", "Show a mirror's health",
      "Has the server try the mirror at once and shows what it knew before. Exit code 7 when the mirror is down,\n"
      "refuses this server or holds other keys.",
      "vesk mirror status west", status);
  add_named(group, settings, "queue", "Show how many changes wait for a mirror", "", "vesk mirror queue west", queue);
  add_sync(group, settings);
}

}  // namespace command
