// vesk template
#include <fmt/format.h>

#include <memory>

#include "vesk/ask.h"
#include "vesk/commands.h"
#include "vesk/connection.h"
#include "vesk/existence.h"
#include "vesk/failure.h"
#include "vesk/key_commands.h"
#include "vesk/output.h"
#include "vesk/progress.h"
#include "vesk/store_names.h"
#include "vesk/text.h"

namespace command {
namespace {

// The request has room for five digits.
constexpr std::uint32_t kMaxCount = 99999;
constexpr std::uint32_t kLastIncrement = 0xFFFFFF;

struct GenerateOptions {
  std::string constant;
  std::string count;
  bool add = false;
  bool dry_run = false;
};

struct SetNextOptions {
  std::string constant;
  std::string increment;
  bool dry_run = false;
};

struct RemoveOptions {
  std::string constant;
  Consent consent;
};

void generate(const Settings &settings, const GenerateOptions &options) {
  check_constant(options.constant);
  const std::uint32_t count = parse_number("count", options.count, 1, kMaxCount, Base16::kNo,
                                           "for more than 99999 keys run it again with --add");
  const Connection connection(settings);
  const std::string what = fmt::format("{} {} for {}template {}", count, count == 1 ? "key" : "keys",
                                       options.add ? "" : "the new ", printable(options.constant));
  const Members document = {{"template", options.constant}, {"generated", count}, {"new", !options.add}};
  if (options.dry_run) {
    connection.require((options.add ? status_of_existing : status_of_new)(connection, kTemplates, options.constant),
                       template_subject(options.constant));
    return show_dry_run(settings, "would generate " + what, document);
  }
  {
    const Progress progress(fmt::format("generating {} keys", count));
    connection.run(template_subject(options.constant), qAutoGenKeys, options.constant.c_str(), options.add ? 'a' : 'i',
                   count);
  }
  show(settings, "generated " + what, document);
}

void list(const Settings &settings, const ListOptions &options) {
  const Connection connection(settings);
  show_store_names(settings, options, "templates",
                   store_names([&](LinkedList *names) { connection.run({}, qGetTemplateList, names); }));
}

void depth(const Settings &settings, const std::string &constant) {
  check_constant(constant);
  const Connection connection(settings);
  std::uint32_t last = 0;
  std::uint32_t next = 0;
  connection.run(template_subject(constant), qGetTemplateDepth, constant.c_str(), &last, &next);
  // Increments begin at 0, and when all are served the next one is one more than the last.
  const std::uint32_t left = next > last ? 0 : last - next + 1;
  show_facts(settings, {{"template", "template", constant},
                        {"last increment", "last_increment", increment_value(settings, last)},
                        {"next increment", "next_increment", left == 0 ? Json() : increment_value(settings, next)},
                        {"keys left", "keys_left", left}});
}

void set_next(const Settings &settings, const SetNextOptions &options) {
  check_constant(options.constant);
  const std::uint32_t increment =
      parse_number("increment", options.increment, 0, kLastIncrement, Base16::kYes,
                   "decimal as it is, hexadecimal behind 0x; an increment has six hexadecimal digits");
  const Connection connection(settings);
  const Members document = {{"template", options.constant}, {"next_increment", increment}};
  if (options.dry_run) {
    connection.require(status_of_existing(connection, kTemplates, options.constant),
                       template_subject(options.constant));
    return show_dry_run(
        settings,
        fmt::format("template {} would serve {} next", printable(options.constant), increment_text(increment)),
        document);
  }
  connection.run(fmt::format("{}, increment {}", template_subject(options.constant), increment_text(increment)),
                 qSetNextIncrement, options.constant.c_str(), increment);
  show(settings, fmt::format("template {} serves {} next", printable(options.constant), increment_text(increment)),
       document);
}

void remove(const Settings &settings, const RemoveOptions &options) {
  check_constant(options.constant);
  const Connection connection(settings);
  if (options.consent.dry_run) {
    connection.require(status_of_existing(connection, kTemplates, options.constant),
                       template_subject(options.constant));
    return show_dry_run(settings, fmt::format("would remove template {}", printable(options.constant)),
                        {{"removed", options.constant}});
  }
  ask_to_type(options.consent,
              fmt::format("Remove template {}? Its constant can never be used again. Type the constant to go on:",
                          printable(options.constant)),
              options.constant, "nothing was removed");
  {
    const Progress progress(fmt::format("removing template {}", printable(options.constant)));
    connection.run(template_subject(options.constant), qRemoveTemplate, options.constant.c_str());
  }
  show(settings, fmt::format("removed template {}", printable(options.constant)), {{"removed", options.constant}});
}

void add_generate(Command &group, Settings &settings) {
  Command &command = group.add("generate", "Generate keys for a new template, or add keys to one");
  auto options = std::make_shared<GenerateOptions>();
  add_constant(command, options->constant);
  command.option("--count", &options->count, "N", Kind::kNumber, "the number of keys, at most 99999").is_required =
      true;
  command.flag("--add", options->add, "add to a template that exists instead of making a new one");
  add_dry_run(command, options->dry_run);
  command.details =
      "The keys are named by the constant and an increment of six hexadecimal digits. Waits up to 20 minutes.";
  command.examples = {"vesk template generate tape-library-01 --count 1000",
                      "vesk template generate tape-library-01 --count 500 --add"};
  command.run = [&settings, options] { generate(settings, *options); };
}

void add_list(Command &group, Settings &settings) {
  Command &command = group.add("list", "List the constants of all templates, one a line");
  command.examples = {"vesk template list --output json"};
  add_list_options_of(command, settings, list);
}

void add_depth(Command &group, Settings &settings) {
  Command &command = group.add("depth", "Show how far a template has been served");
  auto constant = std::make_shared<std::string>();
  add_constant(command, *constant);
  command.details =
      "Increments are shown as six hexadecimal digits, in JSON as numbers. Keys left are those from the next\n"
      "increment to the last one, also such as were deleted, which are passed over when it is their turn.";
  command.examples = {"vesk template depth tape-library-01"};
  command.run = [&settings, constant] { depth(settings, *constant); };
}

void add_set_next(Command &group, Settings &settings) {
  Command &command = group.add("set-next", "Set the increment that a template serves next");
  auto options = std::make_shared<SetNextOptions>();
  add_constant(command, options->constant);
  command.argument("N", &options->increment, Kind::kNumber,
                   "the increment, decimal or 0x hexadecimal, at most 0xFFFFFF");
  add_dry_run(command, options->dry_run);
  command.examples = {"vesk template set-next tape-library-01 0x0001F4"};
  command.run = [&settings, options] { set_next(settings, *options); };
}

void add_remove(Command &group, Settings &settings) {
  Command &command = group.add("remove", "Remove a template for good");
  auto options = std::make_shared<RemoveOptions>();
  add_constant(command, options->constant);
  add_consent(command, options->consent);
  command.details = "Asks on a terminal for the constant to be typed and needs --yes elsewhere.";
  command.examples = {"vesk template remove tape-library-01"};
  command.run = [&settings, options] { remove(settings, *options); };
}

}  // namespace

void add_template(Command &root, Settings &settings) {
  Command &group = root.add("template", "Generate, list, watch and remove key templates");
  group.examples = {"vesk template generate tape-library-01 --count 1000", "vesk template depth tape-library-01"};
  add_generate(group, settings);
  add_list(group, settings);
  add_depth(group, settings);
  add_set_next(group, settings);
  add_remove(group, settings);
}

}  // namespace command
