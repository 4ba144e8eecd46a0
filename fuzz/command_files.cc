// What vesk reads besides replies: files of names, journals, contexts, captures, and the texts of its arguments. The
// first character says which.
#include <sstream>

#include "fuzz/target.h"
#include "vesk/bulk_file.h"
#include "vesk/capture_file.h"
#include "vesk/context_file.h"
#include "vesk/dissect.h"
#include "vesk/failure.h"
#include "vesk/journal.h"
#include "vesk/metadata_terms.h"
#include "vesk/output.h"
#include "vesk/text.h"
#include "veskd/key_text.h"

namespace {

using namespace command;

const std::vector<std::string> kColumns = {"mirror", "md1", "md2", "md16"};

// What is read can be written and read again as it was.
void read_names(const std::string &suffix, std::string_view text) {
  for (const BulkItem &item : read_bulk_file(fuzz::scratch().write("names" + suffix, text), kColumns, check_key_name)) {
    fuzz::require(unescaped(escaped(item.name)) == item.name, "names survive their plain form");
    for (const auto &[column, value] : item.columns)
      fuzz::require(unescaped(escaped(value)) == value, "values survive their plain form");
  }
}

void read_journal(std::string_view text) {
  const std::string names = fuzz::scratch().path("names");
  fuzz::scratch().write("names.journal", text);
  {
    Journal journal(names, "delete keys of kms.example");
    journal.begin("K1");
    journal.add("K2\n");
    journal.begin("K3");
    journal.withdraw("K3");
  }
  const Journal journal(names, "delete keys of kms.example");
  fuzz::require(journal.has_begun("K1"), "a journal tells what was begun");
  fuzz::require(journal.has("K2\n"), "a journal tells what is done");
  fuzz::require(!journal.has_begun("K3"), "a journal tells what was withdrawn");
}

void read_context_file(std::string_view text) {
  static const bool is_set = setenv("XDG_CONFIG_HOME", fuzz::scratch().path("").c_str(), 1) == 0;
  fuzz::require(is_set, "the environment can be set");
  std::filesystem::create_directories(fuzz::scratch().path("vesk"));
  fuzz::scratch().write("vesk/contexts.toml", text);
  const Contexts contexts = read_contexts();
  change_contexts([](Contexts &) {});
  const Contexts again = read_contexts();
  fuzz::require(again.current == contexts.current && again.named == contexts.named, "contexts survive being written");
}

void take_apart(const Exchange &exchange) {
  dissect(exchange, protocol_of(exchange), [](const Piece &piece) {
    fuzz::require(piece.part != nullptr, "every piece has its part");
    fuzz::require(!piece.is_masked || !piece.value, "what is masked is not shown");
  });
}

void decode(std::string_view text) {
  if (is_trace(text)) {
    for (const Exchange &exchange : exchanges_in(text)) take_apart(exchange);
    return;
  }
  for (const bool is_sent : {true, false}) {
    Exchange exchange;
    (is_sent ? exchange.sent : exchange.received).bytes =
        is_hex_record(text) ? bytes_of_hex(text) : veskd::WipedText(std::string(text));
    take_apart(exchange);
  }
}

std::vector<std::string> lines_of(std::string_view text) {
  std::istringstream lines{std::string(text)};
  std::vector<std::string> result;
  for (std::string line; std::getline(lines, line);) result.push_back(line);
  return result;
}

void check_names(const std::string &text) {
  for (const auto check : {check_key_name, check_instance, check_constant, check_certificate_name,
                           check_private_key_name, check_context_name, check_host}) {
    try {
      check(text);
    } catch (const Failure &failure) {
      fuzz::require(printable(failure.what()) == failure.what(), "messages are printable");
    }
  }
  fuzz::require(printable(printable(text)) == printable(text), "what is printable stays as it is");
  trimmed(text);
  readable_date(text);
}

void read(char kind, std::string_view text) {
  switch (kind) {
    case 'n':
      return read_names("", text);
    case 'c':
      return read_names(".csv", text);
    case 'j':
      return read_names(".json", text);
    case 'J':
      return read_journal(text);
    case 't':
      return read_context_file(text);
    case 'd':
      return decode(text);
    case 'm':
      parse_field_values(lines_of(text));
      return;
    case 'w':
      parse_criteria(lines_of(text));
      return;
    case '#':
      parse_number("a number", std::string(text), 1, 0xFFFFFF, Base16::kYes);
      return;
    case 'N':
      return check_names(std::string(text));
    case 'k': {
      veskd::KeyValue value;
      veskd::decode_base16(text, value);
      veskd::decode_base64(text, value);
      return;
    }
    default:
      return;
  }
}

}  // namespace

FUZZ_TARGET(input) {
  const char kind = fuzz::take_kind(input);
  try {
    read(kind, input);
  } catch (const Failure &failure) {
    fuzz::require(printable(failure.what()) == failure.what(), "messages are printable");
  }
  return 0;
}
