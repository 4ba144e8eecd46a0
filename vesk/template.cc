// vesk template
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <new>

#include "orn/support.h"
#include "vesk/ask.h"
#include "vesk/commands.h"
#include "vesk/connection.h"
#include "vesk/failure.h"
#include "vesk/key_commands.h"
#include "vesk/output.h"
#include "vesk/progress.h"
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
};

struct SetNextOptions {
  std::string constant;
  std::string increment;
};

struct RemoveOptions {
  std::string constant;
  bool yes = false;
};

struct FreeList {
  void operator()(LinkedList *list) const { ll_free(list); }
};

void generate(const Settings &settings, const GenerateOptions &options) {
  check_constant(options.constant);
  const std::uint32_t count = parse_number("count", options.count, 1, kMaxCount, Base16::kNo,
                                           "for more than 99999 keys run it again with --add");
  const Connection connection(settings);
  {
    const Progress progress(fmt::format("generating {} keys", count));
    connection.run(template_subject(options.constant), qAutoGenKeys, options.constant.c_str(), options.add ? 'a' : 'i',
                   count);
  }
  show(settings,
       fmt::format("generated {} {} for {}template {}", count, count == 1 ? "key" : "keys",
                   options.add ? "" : "the new ", printable(options.constant)),
       {{"template", options.constant}, {"generated", count}, {"new", !options.add}});
}

void list(const Settings &settings) {
  constexpr std::size_t kElementBytes = 40;
  const Connection connection(settings);
  const std::unique_ptr<LinkedList, FreeList> templates(ll_create(kElementBytes));
  if (!templates) throw std::bad_alloc();
  connection.run({}, qGetTemplateList, templates.get());

  Json constants = Json::array();
  std::string lines;
  for (const LinkedListNode *node = ll_first(templates.get()); node; node = ll_next(node)) {
    const auto *constant = static_cast<const char *>(ll_element(node));
    constants.push_back(constant);
    lines += printable(constant) + "\n";
  }
  if (settings.json()) return show(settings, {}, {{"templates", constants}});
  write_standard_output(lines);
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
  connection.run(fmt::format("{}, increment {}", template_subject(options.constant), increment_text(increment)),
                 qSetNextIncrement, options.constant.c_str(), increment);
  show(settings, fmt::format("template {} serves {} next", printable(options.constant), increment_text(increment)),
       {{"template", options.constant}, {"next_increment", increment}});
}

void remove(const Settings &settings, const RemoveOptions &options) {
  check_constant(options.constant);
  const Connection connection(settings);
  if (!options.yes) {
    ask_to_type(fmt::format("Remove template {}? Its constant can never be used again. Type the constant to go on:",
                            printable(options.constant)),
                options.constant, "nothing was removed");
  }
  connection.run(template_subject(options.constant), qRemoveTemplate, options.constant.c_str());
  show(settings, fmt::format("removed template {}", printable(options.constant)), {{"removed", options.constant}});
}

void add_constant(CLI::App &command, std::string &constant) {
  command.add_option("CONSTANT", constant, "the template's constant, exactly 15 bytes")->option_text(" ")->required();
}

void add_generate(CLI::App &group, Settings &settings) {
  CLI::App *command = group.add_subcommand("generate", "Generate keys for a new template, or add keys to one");
  auto options = std::make_shared<GenerateOptions>();
  add_constant(*command, options->constant);
  command->add_option("--count", options->count, "the number of keys, at most 99999")->option_text("N")->required();
  command->add_flag("--add", options->add, "add to a template that exists instead of making a new one");
  command->footer(
      "The keys are named by the constant and an increment of six hexadecimal digits. Waits up to 20 minutes.\n\n"
      "Examples:\n"
      "  vesk template generate tape-library-01 --count 1000\n"
      "  vesk template generate tape-library-01 --count 500 --add");
  command->final_callback([&settings, options] { settings.action = [&, options] { generate(settings, *options); }; });
}

void add_list(CLI::App &group, Settings &settings) {
  CLI::App *command = group.add_subcommand("list", "List the constants of all templates, one a line");
  command->footer("Example:\n  vesk template list --output json");
  command->final_callback([&settings] { settings.action = [&] { list(settings); }; });
}

void add_depth(CLI::App &group, Settings &settings) {
  CLI::App *command = group.add_subcommand("depth", "Show how far a template has been served");
  auto constant = std::make_shared<std::string>();
  add_constant(*command, *constant);
  command->footer(
      "Increments are shown as six hexadecimal digits, in JSON as numbers.\n\n"
      "Example:\n  vesk template depth tape-library-01");
  command->final_callback([&settings, constant] { settings.action = [&, constant] { depth(settings, *constant); }; });
}

void add_set_next(CLI::App &group, Settings &settings) {
  CLI::App *command = group.add_subcommand("set-next", "Set the increment that a template serves next");
  auto options = std::make_shared<SetNextOptions>();
  add_constant(*command, options->constant);
  command->add_option("N", options->increment, "the increment, decimal or 0x hexadecimal, at most 0xFFFFFF")
      ->required();
  command->footer("Example:\n  vesk template set-next tape-library-01 0x0001F4");
  command->final_callback([&settings, options] { settings.action = [&, options] { set_next(settings, *options); }; });
}

void add_remove(CLI::App &group, Settings &settings) {
  CLI::App *command = group.add_subcommand("remove", "Remove a template for good");
  auto options = std::make_shared<RemoveOptions>();
  add_constant(*command, options->constant);
  command->add_flag("--yes", options->yes, "do not ask");
  command->footer(
      "Asks on a terminal for the constant to be typed and needs --yes elsewhere.\n\n"
      "Example:\n  vesk template remove tape-library-01");
  command->final_callback([&settings, options] { settings.action = [&, options] { remove(settings, *options); }; });
}

}  // namespace

void add_template(CLI::App &app, Settings &settings) {
  CLI::App *group = app.add_subcommand("template", "Generate, list, watch and remove key templates");
  group->require_subcommand(1);
  add_generate(*group, settings);
  add_list(*group, settings);
  add_depth(*group, settings);
  add_set_next(*group, settings);
  add_remove(*group, settings);
}

}  // namespace command
