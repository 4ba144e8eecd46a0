#include "vesk/dissect.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "orn/vesk/wire/key_metadata.h"
#include "orn/vesk/wire/list_page.h"
#include "orn/vesk/wire/text.h"
#include "vesk/meaning.h"
#include "vesk/text.h"

namespace command {
namespace {

namespace wire = vesk::wire;
using wire::RowKind;

class Dissection {
 public:
  Dissection(const Exchange &exchange, const Protocol *protocol, const std::function<void(const Piece &)> &show)
      : exchange_(exchange), protocol_(protocol), show_(show) {}

  void run() {
    if (exchange_.damaged != 0) {
      begin_part("trace");
      show_fault(
          0, fmt::format("line {} of the trace is not as it was written; what it told is missing", exchange_.damaged));
    }
    const View sent = view_of(exchange_.sent);
    const View received = view_of(exchange_.received);
    if (sent.size() > 0) take_request(sent);
    if (received.size() > 0) {
      take_replies(received);
    } else if (sent.size() > 0 && exchange_.is_of_trace()) {
      begin_part("reply");
      show_fault(0, "no reply has arrived");
    }
    if (exchange_.status != 0 || sent.size() + received.size() == 0) show_status();
  }

 private:
  // ---- What is shown ----

  void begin_part(const char *name, std::size_t start = 0, std::size_t page = 0) { part_ = {name, page, start}; }

  void show(Piece piece) {
    piece.part = &part_;
    show_(piece);
  }

  // What is wrong with no field.
  void show_fault(std::size_t offset, std::string text) {
    show({.offset = offset, .name = "End", .fault = Fault{offset, std::move(text)}});
  }

  // Bytes that belong to no field.
  void show_surplus(View bytes, std::size_t offset, bool is_secret, std::string text) {
    if (bytes.size() == 0) return;
    Piece piece = {.offset = offset, .width = bytes.size(), .name = "Surplus", .fault = Fault{offset, std::move(text)}};
    put_value(piece, bytes, is_secret);
    show(std::move(piece));
  }

  static void put_value(Piece &piece, View bytes, bool is_secret) {
    piece.is_masked = is_secret || bytes.is_masked();
    if (!piece.is_masked) piece.value = trimmed(bytes.bytes);
  }

  void show_status() {
    begin_part("connection");
    show({.offset = 0,
          .name = "Status",
          .value = std::to_string(exchange_.status),
          .meaning = status_text(exchange_.status)});
  }

  // ---- Fields ----

  // A field of what has arrived of a record or a block, in which it begins base bytes behind the start.
  void show_field(const Field &field, View record, std::size_t base = 0, std::size_t entry = 0) {
    const View text = record.from(field.offset, field.width);
    Piece piece = {.entry = entry, .offset = base + field.offset, .width = text.size(), .name = title_of(field)};
    put_value(piece, text, field.kind == RowKind::kBytes || is_stray(text));
    if (!piece.is_masked) explain(piece, field, text.bytes);
    if (text.size() < field.width) {
      piece.fault =
          Fault{piece.offset + text.size(), fmt::format("cut after {} of its {} bytes", text.size(), field.width)};
    }
    show(std::move(piece));
  }

  static void explain(Piece &piece, const Field &field, std::string_view text) {
    if (field.kind == RowKind::kLiteral) {
      piece.fault = fault_in_literal(text, piece.offset, field.literal);
      return;
    }
    if (field.kind != RowKind::kText) return;
    Meaning meaning = meaning_of(field.name, *piece.value);
    piece.meaning = std::move(meaning.text);
    piece.fault = fault_in_text(text, piece.offset);
    if (!piece.fault && !meaning.fault.empty()) piece.fault = Fault{piece.offset, std::move(meaning.fault)};
  }

  // The length digits; expected is what a request must have in them, empty for what may have any.
  void show_length(const Record &record, std::string_view expected) {
    const View digits = record.view.from(0, wire::kLengthDigits);
    Piece piece = {.offset = 0, .width = digits.size(), .name = "Tran Len"};
    put_value(piece, digits, is_stray(digits));
    if (!digits.is_masked()) {
      piece.meaning = fmt::format("{} bytes follow", record.declared - wire::kLengthDigits);
      piece.fault = fault_in_length(digits.bytes, record, expected);
    }
    show(std::move(piece));
  }

  // Whether what stands in place of a header is none, but may be anything, a key for example.
  bool is_stray(View header) const { return protocol_ == nullptr && !are_digits(header.bytes); }

  static std::optional<Fault> fault_in_length(std::string_view digits, const Record &record,
                                              std::string_view expected) {
    const std::size_t length = record.declared - wire::kLengthDigits;
    if (digits.size() < wire::kLengthDigits)
      return Fault{digits.size(), fmt::format("cut after {} of its {} bytes", digits.size(), wire::kLengthDigits)};
    const std::size_t other = digits.find_first_not_of("0123456789");
    if (other != digits.npos) return Fault{other, fmt::format("not five digits; it is read as {}", length)};
    if (!expected.empty() && digits != expected) return Fault{0, fmt::format("should be {}", expected)};
    if (length > static_cast<std::size_t>(wire::kMaxReplyLength))
      return Fault{0, fmt::format("the library takes no more than {} bytes", wire::kMaxReplyLength)};
    return std::nullopt;
  }

  // The fields behind the length digits, as far as they have arrived.
  void show_fields(const Record &record, Fields fields) {
    for (const Field &field : fields) {
      if (field.offset > 0 && field.offset < record.view.size()) show_field(field, record.view);
    }
  }

  // What is wrong at the end of a record: it was cut, or has fewer fields than it should, or more bytes.
  void show_end(const Record &record, Fields fields, bool may_be_short = false) {
    const std::size_t size = record.view.size();
    // That a length is cut has been said with it.
    if (size < wire::kLengthDigits) return;
    if (record.is_cut()) {
      show_fault(size, fmt::format("cut: {} of {} bytes have arrived", size, record.declared));
    } else if (const Field *missing = first_missing(fields, size); missing != nullptr && !may_be_short) {
      show_fault(size, fmt::format("the record ends before its field {}", title_of(*missing)));
    }
  }

  static const Field *first_missing(Fields fields, std::size_t size) {
    const auto found =
        std::find_if(fields.begin(), fields.end(), [&](const Field &field) { return field.offset >= size; });
    return found == fields.end() ? nullptr : &*found;
  }

  bool is_secret_at(Direction direction, std::size_t offset) const { return is_secret(protocol_, direction, offset); }

  // ---- The request ----

  void take_request(View sent) {
    begin_part("request");
    const Record record = record_at(sent);
    const Fields fields = protocol_ == nullptr ? kHeader.first(2) : protocol_->request;
    show_length(record, protocol_ == nullptr ? std::string_view() : protocol_->transaction.length);
    show_fields(record, fields);
    const View rest = record.view.from(end_of(fields));
    if (is_query()) {
      show_criteria(rest, end_of(fields));
    } else {
      show_surplus(
          rest, end_of(fields), is_secret_at(Direction::kSent, end_of(fields)),
          protocol_ == nullptr ? "what it holds is not known" : bytes_text(rest.size()) + " more than the request has");
    }
    show_end(record, fields);
    if (!record.is_cut()) take_behind_request(record, sent);
  }

  // Criteria stand where another request has fields.
  bool is_query() const { return protocol_ != nullptr && protocol_->transaction.length.empty(); }

  void show_criteria(View rest, std::size_t offset) {
    constexpr std::size_t kCriterion = wire::kCriterionBytes - 1;
    while (rest.size() > 0) {
      const View text = rest.from(0, kCriterion);
      Piece piece = {.offset = offset, .width = text.size(), .name = "Criterion"};
      put_value(piece, text, false);
      piece.fault = fault_in_text(text.bytes, offset);
      if (!piece.fault && !text.is_masked() && !is_criterion(text.bytes))
        piece.fault = Fault{offset, fmt::format("not MDnn OP 'value' of {} characters", wire::kMetadataBytes)};
      show(std::move(piece));
      // A blank stands between two.
      const View blank = rest.from(kCriterion, 1);
      if (blank.size() > 0 && blank.bytes != " ") {
        show_surplus(rest.from(kCriterion), offset + kCriterion, false, "should be a blank and another criterion");
        return;
      }
      offset += kCriterion + blank.size();
      rest = rest.from(kCriterion + blank.size());
    }
  }

  void take_behind_request(const Record &record, View sent) {
    const std::size_t start = record.view.size();
    const View rest = sent.from(start);
    const Attachment behind = protocol_ == nullptr ? Attachment{} : protocol_->behind_request;
    begin_part("payload", start);
    if (behind.uncounted > 0) return show_zeros(behind, rest);
    if (!behind.count.empty()) return show_whole(behind, rest, counted(behind, record, protocol_->request));
    begin_part("surplus", start);
    show_surplus(rest, 0, is_secret_at(Direction::kSent, start), bytes_text(rest.size()) + " behind the request");
  }

  // How many bytes an attachment has by the record's word.
  static std::size_t counted(const Attachment &attachment, const Record &record, Fields fields) {
    if (attachment.count.empty()) return 0;
    const int count = wire::to_int(record.text(fields, attachment.count)) - attachment.overhead;
    return static_cast<std::size_t>(std::max(count, 0));
  }

  void show_zeros(const Attachment &zeros, View rest) {
    const std::size_t expected = zeros.uncounted;
    Piece piece = {.offset = 0, .width = rest.size(), .name = std::string(zeros.name)};
    piece.is_masked = rest.is_masked();
    piece.meaning = "not counted by the length digits";
    const std::size_t other = rest.bytes.find_first_not_of('\0');
    if (rest.size() != expected) {
      piece.fault = Fault{std::min(rest.size(), expected), fmt::format("should be {} zero bytes", expected)};
    } else if (other != rest.bytes.npos) {
      piece.fault = Fault{other, "should be zero"};
    }
    show(std::move(piece));
  }

  // What is one thing, and what is wrong with its length.
  void show_whole(const Attachment &attachment, View rest, std::size_t count) {
    const View bytes = rest.from(0, count);
    if (bytes.size() > 0) {
      Piece piece = {.offset = 0, .width = bytes.size(), .name = std::string(attachment.name)};
      put_value(piece, bytes, attachment.is_secret);
      show(std::move(piece));
    }
    show_cut_attachment(attachment, bytes.size(), count);
    show_surplus(rest.from(count), count, attachment.is_secret,
                 fmt::format("more than the {} that {} counts", bytes_text(count), title_of(attachment.count)));
  }

  void show_cut_attachment(const Attachment &attachment, std::size_t size, std::size_t count) {
    if (size == count) return;
    show_fault(size, fmt::format("cut: {} of {} bytes have arrived, which {} counts", size, count,
                                 title_of(attachment.count)));
  }

  // ---- Replies ----

  void take_replies(View received) {
    std::size_t at = 0;
    for (std::size_t page = 1;; ++page) {
      const Record record = take_reply(received.from(at), at, page);
      at += record.view.size();
      const std::size_t block = take_behind_reply(record, received.from(at), at, page);
      at += block;
      if (!goes_on(record, block)) break;
      if (at == received.size()) {
        begin_part("reply", at, page + 1);
        return show_fault(0, "a page should follow");
      }
    }
    begin_part("surplus", at);
    const View rest = received.from(at);
    show_surplus(rest, 0, is_secret_at(Direction::kReceived, at),
                 fmt::format("{} behind the {}", bytes_text(rest.size()), has_pages() ? "last page" : "reply"));
  }

  bool has_pages() const { return protocol_ != nullptr && protocol_->has_pages; }
  std::size_t page_number(std::size_t page) const { return has_pages() ? page : 0; }

  Record take_reply(View stream, std::size_t start, std::size_t page) {
    begin_part("reply", start, page_number(page));
    const Record record = record_at(stream);
    const Fields fields = protocol_ == nullptr ? kHeader : protocol_->reply;
    show_length(record, {});
    for (const Field &field : fields) {
      if (field.offset == 0 || field.offset >= record.view.size()) continue;
      if (field.offset == kHeader[1].offset && protocol_ != nullptr) {
        show_identifier(field, record);
      } else {
        show_field(field, record.view);
      }
    }
    const View rest = record.view.from(end_of(fields));
    show_surplus(
        rest, end_of(fields), is_secret_at(Direction::kReceived, end_of(fields)),
        protocol_ == nullptr ? "what it holds is not known" : bytes_text(rest.size()) + " more than the reply has");
    show_end(record, fields, is_refusal(record));
    return record;
  }

  // The library does not compare it.
  void show_identifier(const Field &field, const Record &record) {
    const View text = record.view.from(field.offset, field.width);
    const std::string_view expected = protocol_->transaction.tran_id;
    if (text.is_masked() || text.bytes == expected || text.size() < field.width) return show_field(field, record.view);
    Piece piece = {.offset = field.offset,
                   .width = text.size(),
                   .name = title_of(field),
                   .fault = Fault{field.offset, fmt::format("should be {}", expected)}};
    put_value(piece, text, false);
    piece.meaning = meaning_of(field.name, *piece.value).text;
    show(std::move(piece));
  }

  // A refusal is the header alone.
  static bool is_refusal(const Record &record) {
    const Field &code = kHeader.back();
    return record.view.size() == code.end() && wire::to_int(record.view.from(code.offset, code.width).bytes) != 0;
  }

  // Returns how many bytes it took.
  std::size_t take_behind_reply(const Record &record, View rest, std::size_t start, std::size_t page) {
    if (protocol_ == nullptr || record.is_cut()) return 0;
    const Attachment &attachment = protocol_->behind_reply;
    const std::size_t count = counted(attachment, record, protocol_->reply);
    if (count == 0) return 0;
    begin_part(attachment.entry.empty() ? "payload" : "block", start, page_number(page));
    const View block = rest.from(0, count);
    if (attachment.entry.empty()) {
      show_whole(attachment, block, count);
    } else {
      show_entries(attachment.entry, block);
      show_cut_attachment(attachment, block.size(), count);
    }
    return block.size();
  }

  void show_entries(Fields fields, View block) {
    const std::size_t width = end_of(fields);
    std::size_t at = 0;
    for (std::size_t entry = 1; at + width <= block.size(); at += width, ++entry) {
      const View bytes = block.from(at, width);
      for (const Field &field : fields) show_field(field, bytes, at, entry);
    }
    show_surplus(block.from(at), at, false, fmt::format("no whole entry of {} bytes; the library drops it", width));
  }

  // Whether a page follows.
  bool goes_on(const Record &record, std::size_t block) const {
    if (!has_pages() || record.is_cut()) return false;
    const std::string_view more = record.text(protocol_->reply, wire::member_name<&wire::ListPage::caMoreFlag>());
    if (is_query()) return block > 0 && more != "N";
    return more == "Y";
  }

  const Exchange &exchange_;
  const Protocol *const protocol_;
  const std::function<void(const Piece &)> &show_;
  Part part_{};
};

}  // namespace

const Protocol *protocol_of(const Exchange &exchange) {
  const std::string &sent = exchange.sent.bytes.text();
  return find_protocol(tran_id_of(sent.empty() ? exchange.received.bytes.text() : sent));
}

bool is_request(std::string_view record) {
  const Protocol *protocol = find_protocol(tran_id_of(record));
  if (protocol == nullptr) return false;
  // No request has the length of its reply. A query has any length, and begins with a criterion or has none.
  const std::string_view length = protocol->transaction.length;
  if (!length.empty()) return record.starts_with(length);
  const std::string_view rest = record.substr(end_of(protocol->request));
  return rest.empty() || rest.starts_with("MD");
}

void dissect(const Exchange &exchange, const Protocol *protocol, const std::function<void(const Piece &)> &show) {
  Dissection(exchange, protocol, show).run();
}

}  // namespace command
