#include "veskd/audit_records.h"

#include <fmt/format.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <unistd.h>

#include <algorithm>
#include <initializer_list>
#include <optional>

#include "veskd/dates.h"
#include "veskd/errors.h"
#include "veskd/transaction.h"

namespace veskd {
namespace {

std::string_view text_of(const AuditHash &hash) {
  return {reinterpret_cast<const char *>(hash.data()), hash.size()};
}

// HMAC-SHA-256 over fields, each preceded by its length, so that no two lists of fields make the same bytes.
AuditHash keyed_hash(const KeyValue &audit_key, std::initializer_list<std::string_view> fields) {
  std::string bytes;
  for (const std::string_view field : fields) bytes += fmt::format("{}:{}", field.size(), field);
  AuditHash hash;
  if (HMAC(EVP_sha256(), audit_key->data(), static_cast<int>(audit_key->size()),
           reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size(), hash.data(), nullptr) == nullptr)
    throw std::runtime_error("no hash of an audit entry: " + openssl_error());
  return hash;
}

AuditHash hash_of(const KeyValue &audit_key, const AuditEntry &entry) {
  const AuditEvent &event = entry.event;
  return keyed_hash(audit_key, {"entry", std::to_string(entry.number), entry.time, event.caller, event.fingerprint,
                                event.peer, event.tran_id, event.function, event.object,
                                std::to_string(event.return_code), text_of(entry.previous_hash)});
}

AuditHash seal_of(const KeyValue &audit_key, const AuditHead &head) {
  return keyed_hash(audit_key, {"head", std::to_string(head.number), text_of(head.hash)});
}

// Zeroed when the column does not hold a hash.
AuditHash hash_in(const Query &query, int column) {
  AuditHash hash{};
  const std::span<const std::uint8_t> bytes = query.blob(column);
  if (bytes.size() == hash.size()) std::copy(bytes.begin(), bytes.end(), hash.begin());
  return hash;
}

// The head that is the query's row; nothing when it is gone or was changed.
std::optional<AuditHead> head_in(Query &query, const KeyValue &audit_key) {
  if (!query.next()) return std::nullopt;
  const AuditHead head{query.number(0), hash_in(query, 1)};
  if (hash_in(query, 2) != seal_of(audit_key, head)) return std::nullopt;
  return head;
}

std::optional<AuditHead> read_head(StoreConnection &store) {
  Query query(store.database, "SELECT number, hash, seal FROM audit_head");
  return head_in(query, store.audit_key);
}

// The same, and has others who would add an entry wait for the end of the transaction.
std::optional<AuditHead> take_head(StoreConnection &store) {
  Query query(store.database, "UPDATE audit_head SET number = number + 1 RETURNING number - 1, hash, seal");
  return head_in(query, store.audit_key);
}

AuditEntry entry_in(const Query &query) {
  return {.number = query.number(0),
          .time = query.text(1),
          .event = {query.text(2), query.text(3), query.text(4), query.text(5), query.text(6), query.text(7),
                    query.number(8)},
          .previous_hash = hash_in(query, 9),
          .hash = hash_in(query, 10)};
}

// Goes along the chain and reports what does not fit.
class ChainCheck {
 public:
  ChainCheck(const KeyValue &audit_key, const std::function<void(const std::string &)> &report)
      : audit_key_(audit_key), report_(report) {}

  void take(const AuditEntry &entry) {
    if (entry.number == last_.number + 1) {
      if (entry.previous_hash != last_.hash)
        report_(fmt::format("entry {} does not follow the one before it", entry.number));
    } else {
      report_missing(entry.number - 1, "");
    }
    if (hash_of(audit_key_, entry) != entry.hash) report_(fmt::format("entry {} was changed", entry.number));
    last_ = {entry.number, entry.hash};
  }

  void end(const std::optional<AuditHead> &head) {
    if (!head) return report_("the head of the audit is gone or was changed");
    if (last_.number < head->number) report_missing(head->number, " at the end");
    if (last_.number > head->number)
      report_(fmt::format("entry {} is the last, more were put behind it", head->number));
    if (last_.number == head->number && last_.hash != head->hash)
      report_(fmt::format("entry {} is not the one that the head names", last_.number));
  }

 private:
  void report_missing(std::int64_t to, std::string_view where) {
    report_(fmt::format("entries {} to {} are missing{}", last_.number + 1, to, where));
  }

  const KeyValue &audit_key_;
  const std::function<void(const std::string &)> &report_;
  AuditHead last_;
};

void write_head(Database &database, const KeyValue &audit_key, const AuditHead &head) {
  const AuditHash seal = seal_of(audit_key, head);
  Query(database, "UPDATE audit_head SET number = ?1, hash = ?2, seal = ?3", head.number,
        std::span<const std::uint8_t>(head.hash), std::span<const std::uint8_t>(seal))
      .run();
}

}  // namespace

AuditEvent local_event(const std::string &function, const std::string &object) {
  return {.caller = fmt::format("user {} of this machine", ::getuid()),
          .fingerprint = {},
          .peer = {},
          .tran_id = {},
          .function = function,
          .object = object,
          .return_code = 0};
}

void begin_audit(Database &database, const KeyValue &audit_key) {
  const AuditHead head;
  const AuditHash seal = seal_of(audit_key, head);
  Query(database, "INSERT INTO audit_head VALUES (?1, ?2, ?3)", head.number, std::span<const std::uint8_t>(head.hash),
        std::span<const std::uint8_t>(seal))
      .run();
}

// The head is checked each time: on a head that was put there by someone else, an entry would make a broken chain
// whole.
void append_audit_entry(StoreConnection &store, const AuditEvent &event) {
  const std::optional<AuditHead> head = take_head(store);
  if (!head) throw DatabaseError("the head of the audit is gone or was changed: veskd audit verify tells more");
  AuditEntry entry{
      .number = head->number + 1, .time = timestamp(), .event = event, .previous_hash = head->hash, .hash = {}};
  entry.hash = hash_of(store.audit_key, entry);
  Query(store.database, "INSERT INTO audit VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11)", entry.number,
        entry.time, event.caller, event.fingerprint, event.peer, event.tran_id, event.function, event.object,
        event.return_code, std::span<const std::uint8_t>(entry.previous_hash),
        std::span<const std::uint8_t>(entry.hash))
      .run();
  write_head(store.database, store.audit_key, {entry.number, entry.hash});
}

// Page by page: there may be more entries than fit into memory.
void for_each_audit_entry(Database &database, std::int64_t from, const std::function<void(const AuditEntry &)> &take) {
  constexpr std::int64_t kMaxEntries = 1000;
  for (std::int64_t num_read = kMaxEntries; num_read == kMaxEntries;) {
    Query query(
        database,
        "SELECT number, time, caller, fingerprint, peer, tran_id, function, object, return_code, previous_hash, "
        "hash FROM audit WHERE number >= ?1 ORDER BY number LIMIT ?2",
        from, kMaxEntries);
    for (num_read = 0; query.next(); ++num_read) {
      take(entry_in(query));
      from = query.number(0) + 1;
    }
  }
}

AuditHead verify_audit(StoreConnection &store, const std::function<void(const std::string &)> &report) {
  ChainCheck check(store.audit_key, report);
  const Snapshot snapshot(store.database);
  const std::optional<AuditHead> head = read_head(store);
  for_each_audit_entry(store.database, 0, [&](const AuditEntry &entry) { check.take(entry); });
  check.end(head);
  return head.value_or(AuditHead());
}

std::string hexadecimal(const AuditHash &hash) {
  return fmt::format("{:02x}", fmt::join(hash, ""));
}

}  // namespace veskd
