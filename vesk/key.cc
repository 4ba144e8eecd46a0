// vesk key: create, get, next
#include <fmt/format.h>

#include <charconv>
#include <memory>
#include <span>

#include "orn/vesk/wiped.h"
#include "vesk/ask.h"
#include "vesk/bulk.h"
#include "vesk/commands.h"
#include "vesk/connection.h"
#include "vesk/existence.h"
#include "vesk/failure.h"
#include "vesk/key_commands.h"
#include "vesk/key_output.h"
#include "vesk/output.h"
#include "vesk/text.h"
#include "veskd/return_codes.h"

namespace command {
namespace {

struct CreateOptions {
  std::optional<std::string> name;
  bool mirror = false;
  BulkOptions bulk;  // its dry_run is for a single name too
};

struct GetOptions {
  std::string name;
  std::optional<std::string> instance;
  KeyOutputOptions output;
};

struct NextOptions {
  std::string constant;
  KeyOutputOptions output;
};

// What a column says of a key, or else the flag.
bool is_mirror(const BulkItem &item, bool flag) {
  const auto column = item.columns.find("mirror");
  if (column == item.columns.end()) return flag;
  if (column->second == "true" || column->second == "false") return column->second == "true";
  throw Failure(ExitCode::kUsage, fmt::format("{}: mirror is '{}', neither true nor false", key_subject(item.name),
                                              printable(column->second)));
}

void create_many(const Settings &settings, const CreateOptions &options) {
  const std::vector<BulkItem> items = read_bulk_file(*options.bulk.from, {"mirror"}, check_key_name);
  for (const BulkItem &item : items) is_mirror(item, options.mirror);
  const Connection connection(settings);
  if (options.bulk.dry_run) {
    const BulkTask task = {"key create", "would create key", 0,
                           [&](const BulkItem &item) { return status_of_new(connection, kKeys, item.name); }};
    return run_bulk(settings, connection, options.bulk, items, task);
  }
  const BulkTask task = {"key create", "created key", veskd::RC_KEY_EXISTS, [&](const BulkItem &item) {
                           const bool mirror = is_mirror(item, options.mirror);
                           return connection.call(qCreateSymKey, item.name.c_str(), mirror ? 'Y' : 'N');
                         }};
  run_bulk(settings, connection, options.bulk, items, task);
}

void create(const Settings &settings, const CreateOptions &options) {
  require_one_source(options.name.has_value(), options.bulk);
  if (options.bulk.from) return create_many(settings, options);
  const std::string &name = *options.name;
  check_key_name(name);
  const Connection connection(settings);
  const std::string what = fmt::format("{}key {}", options.mirror ? "mirror " : "", printable(name));
  const Members document = {{"created", name}, {"mirror", options.mirror}};
  if (options.bulk.dry_run) {
    connection.require(status_of_new(connection, kKeys, name), key_subject(name));
    return show_dry_run(settings, "would create " + what, document);
  }
  connection.run(key_subject(name), qCreateSymKey, name.c_str(), options.mirror ? 'Y' : 'N');
  show(settings, "created " + what, document);
}

// The server says how large the key is; what it says must be believable before bytes are taken by it.
std::span<const unsigned char> value_of(const KeyRecord &record) {
  constexpr unsigned kMaxBits = 256 * 8;
  const std::string digits = trimmed(record.caKeySizeBits);
  unsigned bits = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), bits);
  if (error != std::errc() || end != digits.data() + digits.size() || bits == 0 || bits > kMaxBits || bits % 8 != 0)
    throw Failure(ExitCode::kOther, fmt::format("the server gave the key size '{}' bits", printable(digits)));
  return {reinterpret_cast<const unsigned char *>(record.caKeyValue), bits / 8};
}

std::vector<Fact> facts_of(const KeyRecord &record) {
  return {{"name", "name", record.caKeyName},
          {"instance", "instance", text_or_null(trimmed(record.caInstance))},
          {"size in bits", "size_bits", 8 * value_of(record).size()},
          {"format", "format", text_or_null(trimmed(record.caKeyFormat))},
          {"last rolled", "last_rolled", text_or_null(readable_date(record.caLastRolledDate))},
          {"expires", "expires", text_or_null(readable_date(record.caExpirationDate))}};
}

void get(const Settings &settings, const GetOptions &options) {
  check_key_name(options.name);
  if (options.instance) check_instance(*options.instance);
  const std::string instance = options.instance.value_or("");
  const KeyOutput output(options.output, settings);
  const Connection connection(settings);
  const std::string subject =
      key_subject(options.name) + (options.instance ? fmt::format(", instance {}", printable(instance)) : "");

  vesk::Wiped<KeyRecord> record;
  connection.run(subject, qRetrieveKey, options.name.c_str(), instance.c_str(), &*record);
  std::vector<Fact> facts = facts_of(*record);
  if (output.is_wanted()) output.write(value_of(*record));
  if (output.is_standard_output()) return;
  if (output.is_wanted()) facts.push_back({"written to", "file", output.file()});
  show_facts(settings, facts);
}

void show_drawn(const Settings &settings, const KeyOutput &output, const char *name, std::uint32_t increment,
                std::span<const unsigned char> value) {
  if (output.is_wanted()) output.write(value);
  if (output.is_standard_output()) return;
  std::vector<Fact> facts = {{"name", "name", name}, {"increment", "increment", increment_value(settings, increment)}};
  if (output.is_wanted()) facts.push_back({"written to", "file", output.file()});
  show_facts(settings, facts);
}

void next(const Settings &settings, const NextOptions &options) {
  check_constant(options.constant);
  const KeyOutput output(options.output, settings);
  const Connection connection(settings);

  constexpr std::size_t kNameBytes = 41;
  constexpr std::size_t kValueBytes = 32;
  vesk::Wiped<std::array<unsigned char, kValueBytes>> value;
  std::array<char, kNameBytes> name{};
  std::uint32_t increment = 0;
  connection.run(template_subject(options.constant), qGetNextKey, options.constant.c_str(), name.data(), value->data(),
                 &increment);
  const auto drawn_in_vain = [&](ExitCode code, const char *message) {
    return Failure(code, message,
                   fmt::format("the increment is used up, but the key is not lost: vesk key get {} --out FILE",
                               printable(name.data())));
  };
  try {
    show_drawn(settings, output, name.data(), increment, *value);
  } catch (const Failure &failure) {
    throw drawn_in_vain(failure.code(), failure.what());
  } catch (const ReaderGone &) {
    throw drawn_in_vain(ExitCode::kOther, "the reader of standard output has gone away");
  }
}

void add_create(Command &group, Settings &settings) {
  Command &command = group.add("create", "Create a 256-bit key");
  auto options = std::make_shared<CreateOptions>();
  // One that there is not yet.
  add_optional_name(command, options->name).kind = Kind::kText;
  command.flag("--mirror", options->mirror, "make it a mirror key, which the server replicates");
  add_bulk_options(command, options->bulk);
  add_dry_run(command, options->bulk.dry_run);
  command.details =
      "The key has no activation or expiration date and no rollover, and may be deleted.\n"
      "A file can have a column mirror, true or false. What is done is kept in FILE.journal, from which a second run\n"
      "goes on.";
  command.examples = {"vesk key create backup-2026 --mirror", "vesk key create --from names",
                      "vesk key create --from keys.csv --jobs 16"};
  command.run = [&settings, options] { create(settings, *options); };
}

void add_get(Command &group, Settings &settings) {
  Command &command = group.add("get", "Fetch a key: its facts, or with --out its value");
  auto options = std::make_shared<GetOptions>();
  add_name(command, options->name);
  add_instance(command, options->instance, "an instance of the key, at most 24 bytes [the current one]");
  add_key_output(command, options->output);
  command.details =
      "Without --out the value is not shown. FILE must not exist, is made with mode 0600 and is never left half\n"
      "written; its directory must be writable. Raw bytes are not written to a terminal.";
  command.examples = {"vesk key get backup-2026", "vesk key get backup-2026 --out backup.key",
                      "vesk key get backup-2026 --out - | openssl dgst -sha256",
                      "vesk key get backup-2026 --out - --hex"};
  command.run = [&settings, options] { get(settings, *options); };
}

void add_next(Command &group, Settings &settings) {
  Command &command = group.add("next", "Draw the next key of a key template");
  auto options = std::make_shared<NextOptions>();
  add_constant(command, options->constant);
  add_key_output(command, options->output);
  command.details =
      "Every call uses up one increment of the template, also without --out: the key it names is never drawn\n"
      "again. It can still be fetched by its name, with vesk key get.";
  command.examples = {"vesk key next tape-library-01 --out next.key"};
  command.run = [&settings, options] { next(settings, *options); };
}

}  // namespace

std::string key_subject(const std::string &name) {
  return "key " + printable(name);
}

std::string template_subject(const std::string &constant) {
  return "template " + printable(constant);
}

std::string increment_text(std::uint32_t increment) {
  return fmt::format("{:06X}", increment);
}

Json increment_value(const Settings &settings, std::uint32_t increment) {
  if (settings.form() == Form::kJson) return increment;
  return increment_text(increment);
}

Option &add_name(Command &command, std::string &name) {
  return command.argument("NAME", &name, Kind::kKeyName, "the key's name, at most 40 bytes");
}

Option &add_optional_name(Command &command, std::optional<std::string> &name) {
  Option &added = command.argument("NAME", &name, Kind::kKeyName, "the key's name, at most 40 bytes");
  added.is_required = false;
  return added;
}

void add_constant(Command &command, std::string &constant) {
  command.argument("CONSTANT", &constant, Kind::kTemplate, "the template's constant, exactly 15 bytes");
}

void add_instance(Command &command, std::optional<std::string> &instance, const std::string &text) {
  command.option("--instance", &instance, "INSTANCE", Kind::kText, text);
}

void add_key(Command &root, Settings &settings) {
  Command &group = root.add("key", "Create, fetch, draw, list, delete and describe keys");
  group.examples = {"vesk key create backup-2026", "vesk key get backup-2026 --out backup.key",
                    "vesk key list --prefix backup-"};
  add_create(group, settings);
  add_get(group, settings);
  add_next(group, settings);
  add_key_list(group, settings);
  add_key_transfer(group, settings);
  add_key_policy(group, settings);
}

}  // namespace command
