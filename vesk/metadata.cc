// vesk metadata
#include <fmt/format.h>

#include <memory>
#include <new>
#include <optional>
#include <tuple>

#include "orn/support.h"
#include "vesk/ask.h"
#include "vesk/bulk.h"
#include "vesk/commands.h"
#include "vesk/connection.h"
#include "vesk/existence.h"
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
  std::optional<std::string> name;
  std::optional<std::string> instance;
  std::vector<std::string> fields;
  bool replace = false;
  BulkOptions bulk;
};

struct FindOptions {
  std::vector<std::string> where;
  ListOptions list;
};

struct FreeList {
  void operator()(LinkedList *list) const { ll_free(list); }
};
using Summaries = std::unique_ptr<LinkedList, FreeList>;

template <std::size_t... kIndex>
int write_fields(const Connection &connection, const std::string &name, const std::string &instance,
                 const KeyMetadataValues &values, std::index_sequence<kIndex...>) {
  return connection.call(qSetMetadata, name.c_str(), instance.c_str(), values.md[kIndex]...);
}

void put_field(char (&field)[65], const std::string &text) {
  field[text.copy(field, sizeof field - 1)] = '\0';
}

// Returns the status.
int set_fields(const Connection &connection, const std::string &name, const SetOptions &options,
               const std::vector<FieldValue> &fields) {
  if (options.bulk.dry_run) return status_of_existing(connection, kKeys, name);
  KeyMetadataValues values{};
  const int status = options.replace ? 0 : connection.call(qRetrieveKeyMetadata, name.c_str(), &values);
  if (status != 0) return status;
  for (const FieldValue &field : fields) put_field(values.md[field.index], field.text);
  return write_fields(connection, name, options.instance.value_or(""), values, EveryField());
}

std::vector<std::string> field_columns() {
  std::vector<std::string> columns;
  for (std::size_t i = 1; i <= kNumFields; ++i) {
    columns.push_back(fmt::format("md{}", i));
    if (i < 10) columns.push_back(fmt::format("md0{}", i));
  }
  return columns;
}

// The columns of a file, and for what they leave open the fields of --md.
std::vector<FieldValue> fields_of(const BulkItem &item, const std::vector<FieldValue> &common) {
  std::vector<std::string> texts;
  for (const auto &[column, value] : item.columns) texts.push_back(fmt::format("{}={}", column, value));
  std::vector<FieldValue> fields = common;
  for (FieldValue &field : parse_field_values(texts)) fields.push_back(std::move(field));
  return fields;
}

void set_many(const Settings &settings, const SetOptions &options, const std::vector<FieldValue> &common) {
  const std::vector<BulkItem> items = read_bulk_file(*options.bulk.from, field_columns(), check_key_name);
  for (const BulkItem &item : items) {
    if (fields_of(item, common).empty() && !options.replace)
      throw Failure(ExitCode::kUsage, fmt::format("no field is given for {}", key_subject(item.name)),
                    "name columns md1 to md16 in a .csv file, or give --md N=TEXT for all");
  }
  const Connection connection(settings);
  const char *done = options.bulk.dry_run ? "would set metadata of key" : "set metadata of key";
  const BulkTask task = {"metadata set", done, 0, [&](const BulkItem &item) {
                           return set_fields(connection, item.name, options, fields_of(item, common));
                         }};
  run_bulk(settings, connection, options.bulk, items, task);
}

void set(const Settings &settings, const SetOptions &options) {
  require_one_source(options.name.has_value(), options.bulk);
  const std::vector<FieldValue> fields = parse_field_values(options.fields);
  if (options.instance) check_instance(*options.instance);
  if (options.bulk.from) return set_many(settings, options, fields);
  const std::string &name = *options.name;
  check_key_name(name);
  if (fields.empty() && !options.replace)
    throw Failure(ExitCode::kUsage, "no field is given", "--md N=TEXT sets one, --replace alone blanks all sixteen");
  const Connection connection(settings);
  connection.require(set_fields(connection, name, options, fields), key_subject(name));
  std::vector<std::string> labels;
  for (const FieldValue &field : fields) labels.push_back(field_label(field.index));
  const Members document = {{"name", name}, {"set", labels}, {"others_blanked", options.replace}};
  const std::string what = fmt::format("{} of the sixteen metadata fields of key {}", fields.size(), printable(name));
  if (options.bulk.dry_run)
    return show_dry_run(settings, fmt::format("would set {}{}", what, options.replace ? " and blank the others" : ""),
                        document);
  show(settings, fmt::format("set {}{}", what, options.replace ? " and blanked the others" : ""), document);
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
  Members metadata;
  std::string table = printable(name);
  for (std::size_t i = 0; i < std::size(summary.md); ++i) {
    const std::string text = trimmed(summary.md[i]);
    metadata.emplace_back(field_label(i), text);
    if (!text.empty()) table += fmt::format("  {}=\"{}\"", field_label(i), printable(text));
  }
  output.add(Members{{"name", name}, {"metadata", metadata}}, table);
}

std::vector<std::string> columns() {
  std::vector<std::string> names = {"name"};
  for (std::size_t i = 0; i < std::size(KeyMetadataSummary{}.md); ++i) names.push_back("metadata." + field_label(i));
  return names;
}

void find(const Settings &settings, const FindOptions &options) {
  ListOutput output(settings, options.list, "keys", columns());
  const Criteria criteria = parse_criteria(options.where);
  const Connection connection(settings);
  const Summaries list = [&] {
    const Progress progress("looking at the metadata of all keys");
    return ask(connection, criteria, EveryField());
  }();
  for (const LinkedListNode *node = ll_first(list.get()); node; node = ll_next(node))
    add_entry(*static_cast<const KeyMetadataSummary *>(ll_element(node)), output);
  const std::size_t count = ll_count(list.get());
  const std::string shown = output.is_complete() ? "" : fmt::format("{} of ", output.num_shown());
  output.end(fmt::format("{}{} {}", shown, count, count == 1 ? "key" : "keys"));
}

void add_set(Command &group, Settings &settings) {
  Command &command = group.add("set", "Set metadata fields of a key");
  auto options = std::make_shared<SetOptions>();
  add_optional_name(command, options->name);
  add_bulk_options(command, options->bulk);
  add_dry_run(command, options->bulk.dry_run);
  command.option("--md", &options->fields, "N=TEXT", Kind::kText,
                 "sets field N, 1 to 16, to at most 64 bytes of text; may be repeated");
  command.flag("--replace", options->replace, "blank the fields that are not given, instead of keeping them");
  add_instance(command, options->instance, "an instance that the key must have [the current one]");
  command.details =
      "The server takes all sixteen fields at once. Those that are not given are read first and written back: if\n"
      "someone else sets metadata of the key in between, theirs is overwritten. --replace does not read.\n"
      "Metadata belongs to the key, not to an instance. Blanks at the end of a field are not significant.\n"
      "A file has columns md1 to md16; those that are empty leave their field to --md, or as it is.";
  command.examples = {"vesk metadata set backup-2026 --md 1=tape --md \"2=shelf 14\"",
                      "vesk metadata set backup-2026 --replace", "vesk metadata set --from shelves.csv"};
  command.run = [&settings, options] { set(settings, *options); };
}

void add_get(Command &group, Settings &settings) {
  Command &command = group.add("get", "Show the sixteen metadata fields of a key");
  auto name = std::make_shared<std::string>();
  add_name(command, *name);
  command.details = "In plain form the values alone, a line each, MD01 first.";
  command.examples = {"vesk metadata get backup-2026 --output json"};
  command.run = [&settings, name] { show_metadata(settings, *name); };
}

void add_find(Command &group, Settings &settings) {
  Command &command = group.add("find", "List the keys whose metadata meets every criterion");
  auto options = std::make_shared<FindOptions>();
  command.option("--where", &options->where, "'mdN OP \"TEXT\"'", Kind::kText,
                 "a field, an operator and a text, which may stand in double quotes; may be repeated, once a field");
  add_list_options(command, options->list);
  command.details =
      "Operators: eq equal, ne not equal, ct contains, gt greater, lt less, ge greater or equal, le less or equal;\n"
      "texts are compared byte by byte. Without a criterion all keys are listed. MD01 to MD07 are shown, which is\n"
      "what the library tells of a key; vesk metadata get shows all. In plain form the names alone, one a line.\n"
      "Keys are held in memory until the last has arrived, half a megabyte for a thousand.";
  command.examples = {"vesk metadata find --where 'md1 eq tape' --where 'md2 ct \"shelf 14\"'",
                      "vesk metadata find --where 'md3 ne \"\"' --output plain"};
  command.run = [&settings, options] { find(settings, *options); };
}

}  // namespace

void show_metadata(const Settings &settings, const std::string &name) {
  check_key_name(name);
  const Connection connection(settings);
  KeyMetadataValues values{};
  connection.run(key_subject(name), qRetrieveKeyMetadata, name.c_str(), &values);
  Members metadata;
  std::string table;
  for (std::size_t i = 0; i < kNumFields; ++i) {
    const std::string text = trimmed(values.md[i]);
    metadata.emplace_back(field_label(i), text);
    table += fmt::format("{}  {}\n", field_label(i), printable(text));
  }
  if (settings.form() == Form::kTable) return write_standard_output(table);
  if (settings.form() == Form::kPlain) return show_document(settings, metadata);
  show_document(settings, {{"name", name}, {"metadata", metadata}});
}

void add_metadata(Command &root, Settings &settings) {
  Command &group = root.add("metadata", "Set, show and search the metadata fields of keys");
  group.examples = {"vesk metadata set backup-2026 --md 1=tape", "vesk metadata find --where 'md1 eq tape'"};
  add_set(group, settings);
  add_get(group, settings);
  add_find(group, settings);
}

}  // namespace command
