#include "veskd/faults.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <optional>
#include <random>

#include "orn/vesk/wire/text.h"
#include "orn/vesk/wire/transactions.h"
#include "veskd/configuration_section.h"
#include "veskd/errors.h"
#include "veskd/mirror_wire.h"

namespace veskd {
namespace {

using namespace std::chrono_literals;
using vesk::wire::kLengthDigits;
using vesk::wire::transaction;

constexpr std::int64_t kMaxCount = 1000000000;
constexpr std::int64_t kMaxBytes = 65535;
constexpr std::int64_t kMaxReturnCode = 9999;

// What the deviations of a kind happen to.
enum class Subject { kReply, kList, kHandshake, kTicket };

constexpr Subject subject_of(Deviation deviation) {
  if (deviation < Deviation::kCount) return Subject::kReply;
  if (deviation < Deviation::kExpiredCertificate) return Subject::kList;
  return deviation < Deviation::kIgnoreTicket ? Subject::kHandshake : Subject::kTicket;
}

constexpr std::array kLists = {
    transaction("DisplayKeyNameList").tran_id, transaction("RetrieveMetadata").tran_id,
    transaction("GetTemplateList").tran_id,    transaction("GetCertificateList").tran_id,
    transaction("GetPrivateKeyList").tran_id,  transaction("ListMirrorNames").tran_id,
    transaction("GetSystemStatus").tran_id,    transaction("ValidateDB").tran_id,
};

bool is_list(std::string_view tran_id) {
  return std::find(kLists.begin(), kLists.end(), tran_id) != kLists.end();
}

std::string find_operation(std::string_view name) {
  const auto is_meant = [&](const vesk::wire::Transaction &row) { return name == row.function || name == row.tran_id; };
  for (const auto &row : vesk::wire::kTransactions)
    if (is_meant(row)) return row.tran_id;
  for (const auto &row : {wire::kReplicateKeys, wire::kCompareKeys})
    if (is_meant(row)) return row.tran_id;
  throw StartError(fmt::format("'{}' is neither a function nor a transaction identifier", name));
}

// Which of the requests, or handshakes, that a fault looks at it happens to: all of them if nothing is set.
struct Selection {
  std::uint64_t every = 0;
  std::uint64_t nth = 0;
  std::uint64_t first = 0;
  double probability = -1;
};

Selection read_selection(Section &section) {
  Selection selection;
  section.number("every", selection.every, 1, kMaxCount);
  section.number("nth", selection.nth, 1, kMaxCount);
  section.number("first", selection.first, 1, kMaxCount);
  section.fraction("probability", selection.probability);
  const int set = (selection.every != 0) + (selection.nth != 0) + (selection.first != 0) + (selection.probability >= 0);
  if (set > 1) section.mistake("do", "takes one of every, nth, first and probability, and no more");
  return selection;
}

void read_operation(Section &section, Subject subject, std::string &tran_id) {
  std::string name;
  section.text("operation", name);
  section.check("operation", [&] { tran_id = find_operation(name); });
  if (subject == Subject::kList && !tran_id.empty() && !is_list(tran_id))
    section.mistake("operation", "is no list, and this is done to lists alone");
}

void read_text(Section &section, std::string_view key, std::size_t width, std::string &text) {
  section.require(key);
  section.text(key, text);
  section.check(key, [&] {
    if (text.size() != width) throw StartError(fmt::format("must have {} characters", width));
  });
}

// What each deviation needs to know.
void read_details(Section &section, Fault &fault) {
  switch (fault.deviation) {
    case Deviation::kDelay:
      section.require("time");
      return section.duration("time", fault.time, 1ms, 1h);
    case Deviation::kDribble:
      section.require("pause");
      return section.duration("pause", fault.time, 0ms, 1min);
    case Deviation::kCut:
    case Deviation::kReset:
      return section.number("after_bytes", fault.bytes, 0, kMaxBytes);
    case Deviation::kLength:
    case Deviation::kCount:
      return read_text(section, "digits", kLengthDigits, fault.text);
    case Deviation::kMoreFlag:
      return read_text(section, "flag", 1, fault.text);
    case Deviation::kShort:
    case Deviation::kLong:
      section.require("bytes");
      return section.number("bytes", fault.bytes, 1, kMaxBytes);
    case Deviation::kReturnCode:
      section.require("code");
      return section.number("code", fault.return_code, 1, kMaxReturnCode);
    default:
      return;
  }
}

std::optional<Deviation> read_deviation(Section &section) {
  std::optional<Deviation> deviation;
  section.require("do");
  section.choice<std::optional<Deviation>>("do", deviation,
                                           {{"delay", Deviation::kDelay},
                                            {"dribble", Deviation::kDribble},
                                            {"cut", Deviation::kCut},
                                            {"reset", Deviation::kReset},
                                            {"length", Deviation::kLength},
                                            {"short", Deviation::kShort},
                                            {"long", Deviation::kLong},
                                            {"return-code", Deviation::kReturnCode},
                                            {"count", Deviation::kCount},
                                            {"more-flag", Deviation::kMoreFlag},
                                            {"endless", Deviation::kEndless},
                                            {"expired-certificate", Deviation::kExpiredCertificate},
                                            {"wrong-name", Deviation::kWrongName},
                                            {"ignore-ticket", Deviation::kIgnoreTicket},
                                            {"alert-on-ticket", Deviation::kAlertOnTicket}});
  return deviation;
}

}  // namespace

// A fault of the file. It has a count and random numbers of its own, so that none changes what the others do.
// NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp): they are to be the same for the same seed, which the file gives
struct Faults::Rule {
  Fault fault;
  std::string tran_id;  // empty for every operation
  Selection selection;
  std::uint64_t count = 0;
  std::mt19937_64 random;

  bool looks_at_request(std::string_view id) const {
    const Subject subject = subject_of(fault.deviation);
    if (!tran_id.empty() && id != tran_id) return false;
    return subject == Subject::kReply || (subject == Subject::kList && is_list(id));
  }

  bool looks_at_handshake(bool shows_ticket) const {
    const Subject subject = subject_of(fault.deviation);
    return subject == Subject::kHandshake || (subject == Subject::kTicket && shows_ticket);
  }

  // Of the next one that it looks at. The numbers are drawn in the same way everywhere, whatever a library's
  // distributions do.
  bool is_next() {
    ++count;
    if (selection.every != 0) return count % selection.every == 0;
    if (selection.nth != 0) return count == selection.nth;
    if (selection.first != 0) return count <= selection.first;
    if (selection.probability >= 0) return static_cast<double>(random() >> 11) * 0x1p-53 < selection.probability;
    return true;
  }
};

Faults::Faults(const std::filesystem::path &file) {
  ConfigurationFile configuration(file);
  Section root = configuration.root();
  std::uint32_t seed = 0;
  root.number("seed", seed, 0, UINT32_MAX);
  root.require("fault");
  std::uint32_t number = 0;
  for (Section &section : root.sections("fault")) {
    Rule rule;
    ++number;
    const auto deviation = read_deviation(section);
    if (!deviation) continue;
    std::string word;
    section.text("do", word);
    rule.fault.name = fmt::format("fault {}, {}", number, word);
    rule.fault.deviation = *deviation;
    const Subject subject = subject_of(*deviation);
    if (subject == Subject::kReply || subject == Subject::kList) read_operation(section, subject, rule.tran_id);
    rule.selection = read_selection(section);
    read_details(section, rule.fault);
    section.end();
    std::seed_seq seeds{seed, number};
    rule.random.seed(seeds);
    rules_.push_back(std::move(rule));
  }
  root.end();
  configuration.throw_mistakes();
}

Faults::~Faults() = default;

// The first that is due happens; the others count all the same.
template <typename LooksAt>
const Fault *Faults::choose(LooksAt looks_at) {
  const std::lock_guard lock(mutex_);
  const Fault *chosen = nullptr;
  for (Rule &rule : rules_) {
    const bool is_due = looks_at(rule) && rule.is_next();
    if (is_due && chosen == nullptr) chosen = &rule.fault;
  }
  return chosen;
}

const Fault *Faults::next_request(std::string_view tran_id) {
  return choose([&](const Rule &rule) { return rule.looks_at_request(tran_id); });
}

const Fault *Faults::next_handshake(bool shows_ticket) {
  return choose([&](const Rule &rule) { return rule.looks_at_handshake(shows_ticket); });
}

namespace {

// Behind length digits, identifier and return code. The count is the last that a page counts.
constexpr std::size_t kMoreFlagOffset = 13;
constexpr std::size_t kLeastPageBytes = kMoreFlagOffset + 1 + kLengthDigits;

// Where what the length digits count ends.
std::size_t counted_bytes(const std::string &reply) {
  const int length = vesk::wire::to_int(std::string_view(reply).substr(0, kLengthDigits));
  return std::min(kLengthDigits + static_cast<std::size_t>(std::max(length, 0)), reply.size());
}

// The same with so many bytes counted, cut or filled up at their end, and length digits that say so. Made in one piece,
// since it may hold a key value.
WipedText with_counted_bytes(const std::string &reply, std::size_t wanted) {
  const std::size_t counted = counted_bytes(reply);
  std::string changed(reply.size() - counted + wanted, 'x');
  std::copy_n(reply.begin(), std::min(counted, wanted), changed.begin());
  std::copy(reply.begin() + static_cast<std::ptrdiff_t>(counted), reply.end(),
            changed.begin() + static_cast<std::ptrdiff_t>(wanted));
  fmt::format_to_n(changed.begin(), kLengthDigits, "{:05}", wanted - kLengthDigits);
  return WipedText(std::move(changed));
}

}  // namespace

void distort(const Fault &fault, Reply &reply) {
  std::string &text = reply.bytes.text();
  if (text.empty()) return;
  const std::size_t counted = counted_bytes(text);
  const bool is_page = reply.code == RC_SUCCESS && counted >= kLeastPageBytes;
  if (subject_of(fault.deviation) == Subject::kList && !is_page) return;
  switch (fault.deviation) {
    case Deviation::kLength:
      fault.text.copy(text.data(), kLengthDigits);
      break;
    case Deviation::kCount:
      fault.text.copy(text.data() + counted - kLengthDigits, kLengthDigits);
      break;
    case Deviation::kMoreFlag:
      text[kMoreFlagOffset] = fault.text.front();
      break;
    case Deviation::kEndless:
      text[kMoreFlagOffset] = 'Y';
      reply.next_page = [page = text](StoreConnection &) {
        Reply same;
        same.bytes = WipedText(page);
        return same;
      };
      break;
    case Deviation::kShort:
      reply.bytes = with_counted_bytes(text, counted - std::min(fault.bytes, counted - kLengthDigits));
      break;
    case Deviation::kLong:
      reply.bytes = with_counted_bytes(text, counted + fault.bytes);
      break;
    default:
      break;
  }
}

}  // namespace veskd
