// vesk metadata
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <new>
#include <optional>
#include <tuple>

#include "orn/support.h"
#include "vesk/commands.h"
#include "vesk/connection.h"
#include "vesk/failure.h"
#include "vesk/key_commands.h"
#include "vesk/list_output.h"
#include "vesk/metadata_terms.h"
#include "vesk/progress.h"
#include "vesk/text.h"

namespace command {
namespace {

static_assert(std::size(KeyMetadataValues{}.md) == kNumFields);
using EveryField = std::make_index_sequence<kNumFields>;

struct SetOptions {
  std::string name;
  std::optional<std::string> instance;
  std::vector<std::string> fields;
  bool replace = false;
};

struct FindOptions {
  std::vector<std::string> where;
  bool null_terminated = false;
};

struct FreeList {
  void operator()(LinkedList *list) const { ll_free(list); }
};
using Summaries = std::unique_ptr<LinkedList, FreeList>;

template <std::size_t... kIndex>
void write_fields(const Connection &connection, const SetOptions &options, const KeyMetadataValues &values,
                  std::index_sequence<kIndex...>) {
  connection.run(key_subject(options.name), qSetMetadata, options.name.c_str(), options.instance.value_or("").c_str(),
                 values.md[kIndex]...);
}

void put_field(char (&field)[65], const std::string &text) {
  field[text.copy(field, sizeof field - 1)] = '\0';
}

void set(const Settings &settings, const SetOptions &options) {
  check_key_name(options.name);
  if (options.instance) check_instance(*options.instance);
  const std::vector<FieldValue> fields = parse_field_values(options.fields);
  if (fields.empty() && !options.replace)
    throw Failure(ExitCode::kUsage, "no field is given", "--md N=TEXT sets one, --replace alone blanks all sixteen");
  const Connection connection(settings);
  KeyMetadataValues values{};
  if (!options.replace) connection.run(key_subject(options.name), qRetrieveKeyMetadata, options.name.c_str(), &values);
  Json labels = Json::array();
  for (const FieldValue &field : fields) {
    put_field(values.md[field.index], field.text);
    labels.push_back(field_label(field.index));
  }
  write_fields(connection, options, values, EveryField());
  show(settings,
       fmt::format("set {} of the sixteen metadata fields of key {}{}", fields.size(), printable(options.name),
                   options.replace ? " and blanked the others" : ""),
       {{"name", options.name}, {"set", labels}, {"others_blanked", options.replace}});
}

void get(const Settings &settings, const std::string &name) {
  check_key_name(name);
  const Connection connection(settings);
  KeyMetadataValues values{};
  connection.run(key_subject(name), qRetrieveKeyMetadata, name.c_str(), &values);

  Json metadata = Json::object();
  std::string lines;
  for (std::size_t i = 0; i < kNumFields; ++i) {
    const std::string text = trimmed(values.md[i]);
    put_text(metadata, field_label(i), text);
    lines += settings.plain() ? escaped(text) + "\n" : fmt::format("{}  {}\n", field_label(i), printable(text));
  }
  if (settings.json()) return show(settings, {}, {{"name", name}, {"metadata", metadata}});
  write_standard_output(lines);
}

template <std::size_t... kIndex>
Summaries ask(const Connection &connection, const Criteria &criteria, std::index_sequence<kIndex...>) {
  Summaries list(ll_create(sizeof(KeyMetadataSummary)));
  if (!list) throw std::bad_alloc();
  const auto call = [&](auto... terms) { connection.run({}, qRetrieveMetadata_as_ll, terms..., list.get()); };
  std::apply(call, std::tuple_cat(std::tuple(criteria[kIndex].value.c_str(), criteria[kIndex].op)...));
  return list;
}

// The library leaves the blanks of a field that is all blank.
void add_entry(const KeyMetadataSummary &summary, ListOutput &output) {
  const std::string name = trimmed(summary.caKeyName);
  Json object = Json::object();
  put_text(object, "name", name);
  Json metadata = Json::object();
  std::string table = printable(name);
  for (std::size_t i = 0; i < std::size(summary.md); ++i) {
    const std::string text = trimmed(summary.md[i]);
    put_text(metadata, field_label(i), text);
    if (!text.empty()) table += fmt::format("  {}=\"{}\"", field_label(i), printable(text));
  }
  object["metadata"] = metadata;
  output.add(name, table, object);
}

void find(const Settings &settings, const FindOptions &options) {
  check_null(settings, options.null_terminated);
  const Criteria criteria = parse_criteria(options.where);
  const Connection connection(settings);
  const Summaries list = [&] {
    const Progress progress("looking at the metadata of all keys");
    return ask(connection, criteria, EveryField());
  }();
  ListOutput output(settings, options.null_terminated);
  for (const LinkedListNode *node = ll_first(list.get()); node; node = ll_next(node))
    add_entry(*static_cast<const KeyMetadataSummary *>(ll_element(node)), output);
  const std::size_t count = ll_count(list.get());
  output.end(fmt::format("{} {}", count, count == 1 ? "key" : "keys"), {{"count", count}, {"complete", true}});
}

void add_set(CLI::App &group, Settings &settings) {
  CLI::App *command = group.add_subcommand("set", "Set metadata fields of a key");
  auto options = std::make_shared<SetOptions>();
  add_name(*command, options->name);
  command->add_option("--md", options->fields, "sets field N, 1 to 16, to at most 64 bytes of text; may be repeated")
      ->option_text("N=TEXT")
      ->allow_extra_args(false);
  command->add_flag("--replace", options->replace, "blank the fields that are not given, instead of keeping them");
  command->add_option("--instance", options->instance, "an instance that the key must have [the current one]")
      ->option_text("INSTANCE");
  command->footer(
      "The server takes all sixteen fields at once. Those that are not given are read first and written back: if\n"
      "someone else sets metadata of the key in between, theirs is overwritten. --replace does not read.\n"
      "Metadata belongs to the key, not to an instance. Blanks at the end of a field are not significant.\n\n"
      "Examples:\n"
      "  vesk metadata set backup-2026 --md 1=tape --md \"2=shelf 14\"\n"
      "  vesk metadata set backup-2026 --replace");
  command->final_callback([&settings, options] { settings.action = [&, options] { set(settings, *options); }; });
}

void add_get(CLI::App &group, Settings &settings) {
  CLI::App *command = group.add_subcommand("get", "Show the sixteen metadata fields of a key");
  auto name = std::make_shared<std::string>();
  add_name(*command, *name);
  command->footer(
      "In plain form the values alone, a line each, MD01 first.\n\n"
      "Example:\n  vesk metadata get backup-2026 --output json");
  command->final_callback([&settings, name] {
    settings.offers_plain = true;
    settings.action = [&, name] { get(settings, *name); };
  });
}

void add_find(CLI::App &group, Settings &settings) {
  CLI::App *command = group.add_subcommand("find", "List the keys whose metadata meets every criterion");
  auto options = std::make_shared<FindOptions>();
  command
      ->add_option("--where", options->where,
                   "a field, an operator and a text, which may stand in double quotes; may be repeated, once a field")
      ->option_text("'mdN OP \"TEXT\"'")
      ->allow_extra_args(false);
  add_null(*command, options->null_terminated);
  command->footer(
      "Operators: eq equal, ne not equal, ct contains, gt greater, lt less, ge greater or equal, le less or equal;\n"
      "texts are compared byte by byte. Without a criterion all keys are listed. MD01 to MD07 are shown, which is\n"
      "what the library tells of a key; vesk metadata get shows all. In plain form the names alone, one a line.\n"
      "Keys are held in memory until the last has arrived, half a megabyte for a thousand.\n\n"
      "Examples:\n"
      "  vesk metadata find --where 'md1 eq tape' --where 'md2 ct \"shelf 14\"'\n"
      "  vesk metadata find --where 'md3 ne \"\"' --output plain");
  command->final_callback([&settings, options] {
    settings.offers_plain = true;
    settings.action = [&, options] { find(settings, *options); };
  });
}

}  // namespace

void add_metadata(CLI::App &app, Settings &settings) {
  CLI::App *group = app.add_subcommand("metadata", "Set, show and search the metadata fields of keys");
  group->require_subcommand(1);
  add_set(*group, settings);
  add_get(*group, settings);
  add_find(*group, settings);
}

}  // namespace command
