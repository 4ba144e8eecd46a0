// vesk context
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>

#include "vesk/commands.h"
#include "vesk/failure.h"
#include "vesk/list_output.h"
#include "vesk/output.h"
#include "vesk/target.h"
#include "vesk/text.h"

namespace command {
namespace {

struct AddOptions {
  std::string name;
  bool use = false;
  bool replace = false;
};

// What the flags and the environment give; that of defaults need not be kept.
Context context_of(const Settings &settings) {
  Target target = target_without_context(settings);
  if (!target.certificates.text.empty()) {
    // A context is used from anywhere.
    const std::filesystem::path directory = std::filesystem::absolute(target.certificates.text).lexically_normal();
    target.certificates.text = directory.has_filename() ? directory.string() : directory.parent_path().string();
  }
  check_target(target);
  Context context;
  for (const TargetMember &member : kTargetMembers) {
    const TargetValue &value = target.*member.value;
    if (value.source != Source::kDefault) context.emplace(member.name, value.text);
  }
  return context;
}

void add(const Settings &settings, const AddOptions &options) {
  check_context_name(options.name);
  const Context context = context_of(settings);
  bool is_current = false;
  change_contexts([&](Contexts &contexts) {
    if (!options.replace && contexts.named.contains(options.name)) {
      throw Failure(ExitCode::kUsage, fmt::format("there is a context {} already", printable(options.name)),
                    "replace it with --replace, or give another name");
    }
    contexts.named[options.name] = context;
    if (options.use || contexts.current.empty()) contexts.current = options.name;
    is_current = contexts.current == options.name;
  });
  show(settings,
       fmt::format("added context {}{}", printable(options.name), is_current ? ", which is the current one" : ""),
       {{"added", options.name}, {"current", is_current}});
}

void use(const Settings &settings, const std::string &name) {
  change_contexts([&](Contexts &contexts) {
    find_context(contexts, name);
    contexts.current = name;
  });
  show(settings, fmt::format("context {} is the current one", printable(name)), {{"current", name}});
}

void remove(const Settings &settings, const std::string &name) {
  change_contexts([&](Contexts &contexts) {
    find_context(contexts, name);
    contexts.named.erase(name);
    if (contexts.current == name) contexts.current.clear();
  });
  show(settings, fmt::format("removed context {}; its certificate files stay", printable(name)), {{"removed", name}});
}

std::string value_in(const Context &context, const char *member) {
  const auto found = context.find(member);
  return found == context.end() ? std::string() : found->second;
}

void list(const Settings &settings, const ListOptions &options) {
  ListOutput output(settings, options, "contexts", {"name", "current", "host", "port", "certificates"});
  const Contexts contexts = read_contexts();
  std::size_t width = 0;
  for (const auto &[name, context] : contexts.named) width = std::max(width, printable(name).size());
  for (const auto &[name, context] : contexts.named) {
    const bool is_current = name == contexts.current;
    output.add(Members{{"name", name},
                       {"current", is_current},
                       {"host", text_or_null(value_in(context, "host"))},
                       {"port", text_or_null(value_in(context, "port"))},
                       {"certificates", text_or_null(value_in(context, "certificates"))}},
               fmt::format("{} {:<{}}  {} port {}, {}", is_current ? '*' : ' ', printable(name), width,
                           printable(value_in(context, "host")), printable(value_in(context, "port")),
                           printable(value_in(context, "certificates"))));
  }
  output.end();
}

void show_target(const Settings &settings, const std::optional<std::string> &name) {
  Settings named = settings;
  if (name) named.context = name;
  const Target target = target_of(named);
  std::vector<Fact> facts = {{"context", "context", text_or_null(target.context)}};
  Members document = {{"context", text_or_null(target.context)}};
  for (const TargetMember &member : kTargetMembers) {
    const Json value = text_or_null((target.*member.value).text);
    const std::string origin = origin_of(member, target);
    facts.push_back({member.name, member.name, value, Health::kPlain, fmt::format("({})", origin)});
    document.emplace_back(member.name, Members{{"value", value}, {"from", origin}});
  }
  if (settings.has_document()) return show_document(settings, document);
  show_facts(settings, facts);
}

void add_context_name(Command &command, std::string &name) {
  command.argument("NAME", &name, Kind::kContext, "the context's name, at most 40 bytes");
}

void add_add(Command &group, Settings &settings) {
  Command &command = group.add("add", "Give a server and its certificate files a name");
  auto options = std::make_shared<AddOptions>();
  add_context_name(command, options->name);
  command.flag("--use", options->use, "make it the current context");
  command.flag("--replace", options->replace, "replace the context of that name if there is one");
  command.details =
      "Keeps what --host, --port, --certificates, --authority, --certificate and --key, or the environment, say. The\n"
      "first context becomes the current one.";
  command.examples = {"vesk context add production --host kms.example --port 4000 --certificates /etc/vesk"};
  command.run = [&settings, options] { add(settings, *options); };
}

void add_named(Command &group, Settings &settings, const char *command_name, const char *summary, const char *example,
               void (*run)(const Settings &, const std::string &)) {
  Command &command = group.add(command_name, summary);
  auto name = std::make_shared<std::string>();
  add_context_name(command, *name);
  command.examples = {example};
  command.run = [&settings, name, run] { run(settings, *name); };
}

void add_list(Command &group, Settings &settings) {
  Command &command = group.add("list", "List the contexts, the current one with a star");
  command.examples = {"vesk context list"};
  add_list_options_of(command, settings, list);
}

void add_show(Command &group, Settings &settings) {
  Command &command = group.add("show", "Show which server is meant and where each value comes from");
  auto name = std::make_shared<std::optional<std::string>>();
  command.argument("NAME", name.get(), Kind::kContext, "the context to look into [--context, or the current one]")
      .is_required = false;
  command.details = "A flag comes before the environment, that before the context, and the context before defaults.";
  command.examples = {"vesk context show", "vesk context show production --output json"};
  command.run = [&settings, name] { show_target(settings, *name); };
}

}  // namespace

void add_context(Command &root, Settings &settings) {
  Command &group = root.add("context", "Name servers, so that their addresses need not be typed");
  group.examples = {"vesk context add production --host kms.example --port 4000 --certificates /etc/vesk",
                    "vesk context show"};
  add_add(group, settings);
  add_list(group, settings);
  add_named(group, settings, "use", "Make a context the current one", "vesk context use production", use);
  add_show(group, settings);
  add_named(group, settings, "remove", "Forget a context", "vesk context remove production", remove);
}

}  // namespace command
