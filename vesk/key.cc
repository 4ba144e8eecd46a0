// vesk key: create, get, next
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <memory>
#include <span>

#include "orn/vesk/wiped.h"
#include "vesk/commands.h"
#include "vesk/connection.h"
#include "vesk/failure.h"
#include "vesk/key_commands.h"
#include "vesk/key_output.h"
#include "vesk/output.h"
#include "vesk/text.h"

namespace command {
namespace {

struct CreateOptions {
  std::string name;
  bool mirror = false;
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

void create(const Settings &settings, const CreateOptions &options) {
  check_key_name(options.name);
  const Connection connection(settings);
  connection.run(key_subject(options.name), qCreateSymKey, options.name.c_str(), options.mirror ? 'Y' : 'N');
  show(settings, fmt::format("created {}key {}", options.mirror ? "mirror " : "", printable(options.name)),
       {{"created", options.name}, {"mirror", options.mirror}});
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
  try {
    show_drawn(settings, output, name.data(), increment, *value);
  } catch (const Failure &failure) {
    throw Failure(failure.code(), failure.what(),
                  fmt::format("the increment is used up, but the key is not lost: vesk key get {} --out FILE",
                              printable(name.data())));
  }
}

void add_create(CLI::App &group, Settings &settings) {
  CLI::App *command = group.add_subcommand("create", "Create a 256-bit key");
  auto options = std::make_shared<CreateOptions>();
  add_name(*command, options->name);
  command->add_flag("--mirror", options->mirror, "make it a mirror key, which the server replicates");
  command->footer(
      "The key has no activation or expiration date and no rollover, and may be deleted.\n\n"
      "Example:\n  vesk key create backup-2026 --mirror");
  command->final_callback([&settings, options] { settings.action = [&, options] { create(settings, *options); }; });
}

void add_get(CLI::App &group, Settings &settings) {
  CLI::App *command = group.add_subcommand("get", "Fetch a key: its facts, or with --out its value");
  auto options = std::make_shared<GetOptions>();
  add_name(*command, options->name);
  command->add_option("--instance", options->instance, "an instance of the key, at most 24 bytes [the current one]")
      ->option_text("INSTANCE");
  add_key_output(*command, options->output);
  command->footer(
      "Without --out the value is not shown. FILE must not exist, is made with mode 0600 and is never left half\n"
      "written; its directory must be writable. Raw bytes are not written to a terminal.\n\n"
      "Examples:\n"
      "  vesk key get backup-2026\n"
      "  vesk key get backup-2026 --out backup.key\n"
      "  vesk key get backup-2026 --out - | openssl dgst -sha256\n"
      "  vesk key get backup-2026 --out - --hex");
  command->final_callback([&settings, options] { settings.action = [&, options] { get(settings, *options); }; });
}

void add_next(CLI::App &group, Settings &settings) {
  CLI::App *command = group.add_subcommand("next", "Draw the next key of a key template");
  auto options = std::make_shared<NextOptions>();
  command->add_option("CONSTANT", options->constant, "the template's constant, exactly 15 bytes")
      ->option_text(" ")
      ->required();
  add_key_output(*command, options->output);
  command->footer(
      "Every call uses up one increment of the template, also without --out: the key it names is never drawn\n"
      "again. It can still be fetched by its name, with vesk key get.\n\n"
      "Example:\n  vesk key next tape-library-01 --out next.key");
  command->final_callback([&settings, options] { settings.action = [&, options] { next(settings, *options); }; });
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
  if (settings.json()) return increment;
  return increment_text(increment);
}

void add_name(CLI::App &command, std::string &name) {
  command.add_option("NAME", name, "the key's name, at most 40 bytes")->option_text(" ")->required();
}

void add_key(CLI::App &app, Settings &settings) {
  CLI::App *group = app.add_subcommand("key", "Create, fetch, draw, list, delete and describe keys");
  group->require_subcommand(1);
  add_create(*group, settings);
  add_get(*group, settings);
  add_next(*group, settings);
  add_key_list(*group, settings);
  add_key_transfer(*group, settings);
  add_key_policy(*group, settings);
}

}  // namespace command
