// vesk key: policy, make-deletable, delete
#include <fmt/format.h>

#include <memory>

#include "vesk/ask.h"
#include "vesk/bulk.h"
#include "vesk/commands.h"
#include "vesk/connection.h"
#include "vesk/existence.h"
#include "vesk/failure.h"
#include "vesk/key_commands.h"
#include "vesk/list_output.h"
#include "vesk/output.h"
#include "vesk/text.h"
#include "veskd/return_codes.h"

namespace command {
namespace {

struct DeleteOptions {
  std::vector<std::string> names;
  Consent consent;
  BulkOptions bulk;
};

void make_deletable(const Settings &settings, const std::string &name, bool dry_run) {
  check_key_name(name);
  const Connection connection(settings);
  if (dry_run) {
    connection.require(status_of_existing(connection, kKeys, name), key_subject(name));
    return show_dry_run(settings, fmt::format("would make key {} deletable", printable(name)),
                        {{"made_deletable", name}});
  }
  connection.run(key_subject(name), qChangeDeletable, name.c_str(), 'Y');
  show(settings, fmt::format("key {} may be deleted now", printable(name)), {{"made_deletable", name}});
}

std::string joined(const std::vector<std::string> &names, std::size_t first) {
  std::string text;
  for (std::size_t i = first; i < names.size(); ++i) text += (text.empty() ? "" : ", ") + printable(names[i]);
  return text;
}

const char *done_word(const DeleteOptions &options) {
  return options.consent.dry_run ? "would delete" : "deleted";
}

// Returns the status.
int delete_one(const Connection &connection, const std::string &name, const DeleteOptions &options) {
  if (options.consent.dry_run) return status_of_existing(connection, kKeys, name);
  return connection.call(qDeleteKey, name.c_str());
}

// Stops at the first key that cannot be deleted.
void delete_each(const Connection &connection, const DeleteOptions &options, ListOutput &deleted) {
  for (std::size_t i = 0; i < options.names.size(); ++i) {
    const std::string &name = options.names[i];
    try {
      connection.require(delete_one(connection, name, options), key_subject(name));
      deleted.add(name, fmt::format("{} key {}", done_word(options), printable(name)));
    } catch (const Failure &failure) {
      deleted.abandon();
      std::vector<std::string> details = failure.details();
      if (i + 1 < options.names.size()) details.push_back("not tried: " + joined(options.names, i + 1));
      throw Failure(failure.code(), failure.what(), failure.hint(), details);
    }
  }
  deleted.end({}, options.consent.dry_run ? Members{{"dry_run", true}} : Members());
}

// More than anyone looks through before they say yes.
constexpr std::size_t kMany = 10;

void confirm(const std::vector<std::string> &names, const Consent &consent) {
  constexpr const char *kLoss = "What they protect can never be read again.";
  constexpr const char *kNotDone = "nothing was deleted";
  if (names.size() > kMany) {
    const std::string count = std::to_string(names.size());
    ask_to_type(consent, fmt::format("Delete {} keys? {} Type {} to go on:", count, kLoss, count), count, kNotDone);
  } else {
    const char *what = names.size() == 1 ? "key" : "keys";
    ask_yes(consent, fmt::format("Delete {} {}? {}", what, joined(names, 0), kLoss), kNotDone);
  }
}

void delete_keys(const Settings &settings, const DeleteOptions &options) {
  require_one_source(!options.names.empty(), options.bulk);
  for (const std::string &name : options.names) check_key_name(name);
  std::vector<BulkItem> items;
  if (options.bulk.from) items = read_bulk_file(*options.bulk.from, {}, check_key_name);
  std::vector<std::string> names = options.names;
  for (const BulkItem &item : items) names.push_back(item.name);

  const Connection connection(settings);
  if (!options.consent.dry_run) confirm(names, options.consent);
  if (options.bulk.from) {
    BulkOptions bulk = options.bulk;
    bulk.dry_run = options.consent.dry_run;
    const std::string done = fmt::format("{} key", done_word(options));
    const BulkTask task = {"key delete", done.c_str(), bulk.dry_run ? 0 : veskd::RC_KEY_UNKNOWN,
                           [&](const BulkItem &item) { return delete_one(connection, item.name, options); }};
    return run_bulk(settings, connection, bulk, items, task);
  }
  ListOutput deleted(settings, {}, "deleted", {"deleted"});
  delete_each(connection, options, deleted);
}

void add_policy(Command &group, Settings &settings) {
  Command &command = group.add("policy", "Show the metadata fields of a key");
  auto name = std::make_shared<std::string>();
  add_name(command, *name);
  command.details =
      "Shows the sixteen metadata values of the key's policy record, MD01 to MD16. Its dates and flags\n"
      "are not among them.";
  command.examples = {"vesk key policy backup-2026 --output json"};
  command.run = [&settings, name] { show_metadata(settings, *name); };
}

void add_make_deletable(Command &group, Settings &settings) {
  Command &command = group.add("make-deletable", "Let a key be deleted; this cannot be taken back");
  auto name = std::make_shared<std::string>();
  auto dry_run = std::make_shared<bool>(false);
  add_name(command, *name);
  add_dry_run(command, *dry_run);
  command.examples = {"vesk key make-deletable backup-2026"};
  command.run = [&settings, name, dry_run] { make_deletable(settings, *name, *dry_run); };
}

void add_delete(Command &group, Settings &settings) {
  Command &command = group.add("delete", "Delete keys for good");
  auto options = std::make_shared<DeleteOptions>();
  command.argument("NAME", &options->names, Kind::kKeyName, "the names of the keys, each at most 40 bytes")
      .is_required = false;
  add_consent(command, options->consent);
  add_bulk_options(command, options->bulk);
  command.details =
      "Asks once on a terminal and needs --yes elsewhere; for more than 10 keys you type their number. Of names in\n"
      "arguments it stops at the first key that cannot be deleted; of a file it goes on, and names each.";
  command.examples = {"vesk key delete backup-2024 backup-2025 --yes", "vesk key delete --from names --dry-run"};
  command.run = [&settings, options] { delete_keys(settings, *options); };
}

}  // namespace

void add_key_policy(Command &group, Settings &settings) {
  add_policy(group, settings);
  add_make_deletable(group, settings);
  add_delete(group, settings);
}

}  // namespace command
