// vesk decode
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <utility>

#include "vesk/commands.h"
#include "vesk/dissect.h"
#include "vesk/failure.h"
#include "vesk/input_file.h"
#include "vesk/list_output.h"
#include "vesk/text.h"

namespace command {
namespace {

constexpr std::size_t kMaxInputBytes = std::size_t{256} * 1024 * 1024;

// The longest value that a table shows whole: a metadata field.
constexpr std::size_t kMaxShown = 64;

constexpr std::array kInputForms = {"trace", "bytes", "hex"};

struct DecodeOptions {
  std::string file;
  std::optional<std::string> form;
  std::optional<std::string> transaction;
  bool is_request = false;
  bool is_reply = false;
  ListOptions list;
};

const Protocol *given_protocol(const DecodeOptions &options) {
  if (!options.transaction) return nullptr;
  const Protocol *protocol = find_protocol(*options.transaction);
  if (protocol == nullptr) protocol = find_protocol_of_function(*options.transaction);
  if (protocol != nullptr) return protocol;
  throw Failure(ExitCode::kUsage, fmt::format("there is no transaction '{}'", printable(*options.transaction)),
                "give its identifier, as in 2001, or its name in the library's trace, as in RetrieveKey");
}

std::string form_of(const DecodeOptions &options, std::string_view input) {
  if (options.form) {
    if (std::find(kInputForms.begin(), kInputForms.end(), *options.form) != kInputForms.end()) return *options.form;
    throw Failure(ExitCode::kUsage,
                  fmt::format("--input {} is none of {}", printable(*options.form), fmt::join(kInputForms, ", ")));
  }
  if (is_trace(input)) return "trace";
  return is_hex_record(input) ? "hex" : "bytes";
}

// A record and what follows it, without anything that tells of the exchange.
std::vector<Exchange> exchange_of(veskd::WipedText bytes, const DecodeOptions &options) {
  const bool is_sent = options.is_request || (!options.is_reply && is_request(bytes.text()));
  std::vector<Exchange> exchanges(1);
  (is_sent ? exchanges[0].sent : exchanges[0].received).bytes = std::move(bytes);
  return exchanges;
}

std::vector<Exchange> exchanges_of(veskd::WipedText input, const DecodeOptions &options) {
  if (input.text().empty()) throw Failure(ExitCode::kOther, "the input is empty");
  const std::string form = form_of(options, input.text());
  if (form == "hex") return exchange_of(bytes_of_hex(input.text()), options);
  if (form == "bytes") return exchange_of(std::move(input), options);
  std::vector<Exchange> exchanges = exchanges_in(input.text());
  if (exchanges.empty()) {
    throw Failure(ExitCode::kOther, "nothing was captured in this trace",
                  "vesk --trace FILE captures; the library's own trace has no bytes of replies");
  }
  return exchanges;
}

std::string name_of(const Protocol *protocol) {
  if (protocol == nullptr) return "unknown transaction";
  return fmt::format("{} {}", protocol->transaction.function, protocol->transaction.tran_id);
}

// What the pieces of an exchange are shown under.
std::string heading_of(const Exchange &exchange, const Protocol *protocol, std::size_t number) {
  std::string heading = fmt::format("exchange {}: {}", number, name_of(protocol));
  if (!exchange.server.empty()) heading += fmt::format(", {}", printable(exchange.server));
  if (exchange.is_of_trace()) heading += fmt::format(", thread {}, {}", exchange.thread, printable(exchange.time));
  return heading;
}

std::string heading_of(const Part &part, std::size_t entry) {
  std::string heading = part.name;
  if (part.page > 0) heading += fmt::format(", page {}", part.page);
  if (entry > 0) heading += fmt::format(", entry {}", entry);
  return heading;
}

std::string shown_value(const Piece &piece) {
  if (piece.is_masked) return fmt::format("masked, {} bytes", piece.width);
  if (!piece.value) return {};
  if (piece.value->size() <= kMaxShown) return printable(*piece.value);
  return printable(piece.value->substr(0, kMaxShown)) + " ...";
}

std::string table_line(const Piece &piece) {
  std::string line = fmt::format("{:>7} {:>5}  {:<20}  {:<24}  {}", piece.offset, piece.width, piece.name,
                                 shown_value(piece), printable(piece.meaning));
  line.resize(line.find_last_not_of(' ') + 1);
  if (piece.fault) line += fmt::format("  FAULT at {}: {}", piece.fault->offset, piece.fault->text);
  return line;
}

Json number_or_null(std::size_t number) {
  if (number == 0) return {};
  return number;
}

class Decoding {
 public:
  Decoding(const Settings &settings, const DecodeOptions &options)
      : given_(given_protocol(options)),
        output_(settings, options.list, "fields",
                {"value", "name", "meaning", "masked", "offset", "width", "fault.offset", "fault.text", "exchange",
                 "transaction", "part", "page", "entry", "start", "server", "thread", "time"}) {}

  void add(const Exchange &exchange) {
    ++num_exchanges_;
    protocol_ = given_ != nullptr ? given_ : protocol_of(exchange);
    exchange_ = &exchange;
    exchange_heading_ = (num_exchanges_ > 1 ? "\n" : "") + heading_of(exchange, protocol_, num_exchanges_) + "\n";
    part_heading_.clear();
    dissect(exchange, protocol_, [this](const Piece &piece) { add(piece); });
  }

  // Fails when something was wrong with what was captured.
  void end() {
    const std::string footer = fmt::format("\n{} exchange{}, {} fault{}", num_exchanges_,
                                           num_exchanges_ == 1 ? "" : "s", num_faults_, num_faults_ == 1 ? "" : "s");
    output_.end(footer, {{"exchanges", num_exchanges_}, {"faults", num_faults_}});
    if (num_faults_ == 0) return;
    throw Failure(ExitCode::kHealth, num_faults_ == 1
                                         ? first_fault_
                                         : fmt::format("{} faults, the first in {}", num_faults_, first_fault_));
  }

 private:
  void add(const Piece &piece) {
    if (piece.fault && num_faults_++ == 0) {
      first_fault_ = fmt::format("exchange {}, {}, offset {}: {}", num_exchanges_, heading_of(*piece.part, piece.entry),
                                 piece.fault->offset, piece.fault->text);
    }
    output_.add(document_of(piece), table_of(piece));
  }

  Members document_of(const Piece &piece) const {
    Json fault;
    if (piece.fault) fault = Members{{"offset", piece.fault->offset}, {"text", piece.fault->text}};
    return {{"value", piece.value ? Json(*piece.value) : Json()},
            {"name", piece.name},
            {"meaning", text_or_null(piece.meaning)},
            {"masked", piece.is_masked},
            {"offset", piece.offset},
            {"width", piece.width},
            {"fault", fault},
            {"exchange", num_exchanges_},
            {"transaction", protocol_ == nullptr ? Json() : Json(protocol_->transaction.function)},
            {"part", piece.part->name},
            {"page", number_or_null(piece.part->page)},
            {"entry", number_or_null(piece.entry)},
            {"start", piece.part->start},
            {"server", text_or_null(exchange_->server)},
            {"thread", text_or_null(exchange_->thread)},
            {"time", text_or_null(exchange_->time)}};
  }

  // The line, under what has not been said yet.
  std::string table_of(const Piece &piece) {
    std::string table = std::exchange(exchange_heading_, {});
    // Entries of a single field need no heading each.
    const bool is_name = protocol_ != nullptr && protocol_->behind_reply.entry.size() == 1;
    const std::string heading = heading_of(*piece.part, is_name ? 0 : piece.entry);
    if (heading != part_heading_) table += fmt::format("  {}\n", heading);
    part_heading_ = heading;
    return table + table_line(piece);
  }

  const Protocol *const given_;
  ListOutput output_;
  const Protocol *protocol_ = nullptr;
  const Exchange *exchange_ = nullptr;
  std::string exchange_heading_;
  std::string part_heading_;
  std::string first_fault_;
  std::size_t num_exchanges_ = 0;
  std::size_t num_faults_ = 0;
};

void decode(const Settings &settings, const DecodeOptions &options) {
  Decoding decoding(settings, options);
  for (const Exchange &exchange : exchanges_of(read_input(options.file, kMaxInputBytes, "capture"), options))
    decoding.add(exchange);
  decoding.end();
}

}  // namespace

void add_decode(Command &root, Settings &settings) {
  Command &command = root.add("decode", "Show field by field what went over the wire");
  auto options = std::make_shared<DecodeOptions>();
  command.argument(
      "FILE", &options->file, Kind::kFile,
      "what vesk --trace FILE has written, or a record's bytes or hexadecimal digits; - for standard input");
  Option &form = command.option("--input", &options->form, "FORM", Kind::kText,
                                "trace, bytes or hex: what FILE holds [as it looks]");
  form.choices.assign(kInputForms.begin(), kInputForms.end());
  command.option("--transaction", &options->transaction, "NAME", Kind::kText,
                 "the transaction, by its name or identifier, whatever the bytes say");
  command.flag("--request", options->is_request, "the bytes are a request and what follows it [as it looks]");
  command.flag("--reply", options->is_reply, "the bytes are a reply and what follows it").excludes = {"--request"};
  add_list_options(command, options->list);
  command.details =
      "Every command captures with --trace FILE. Offsets and widths are in bytes, each record's and each block's from\n"
      "its own start. Key values and files of keys are masked, in a capture as well as here. Exit code 7 when "
      "something\n"
      "is wrong with what was captured.";
  command.examples = {"vesk decode trace", "vesk decode reply.bin --transaction RetrieveKey --output json"};
  command.run = [&settings, options] { decode(settings, *options); };
}

}  // namespace command
