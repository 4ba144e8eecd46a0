#include "veskd/certificate_records.h"

#include <fmt/format.h>

#include "veskd/key_pairs.h"

namespace veskd {
namespace {

std::string_view text_of(EntryKind kind) {
  return kind == EntryKind::kCertificate ? "certificate" : "private key";
}

std::string sealing_context(std::string_view kind, std::string_view name) {
  return fmt::format("{}\n{}", kind, name);
}

// Nothing when it does not open.
std::optional<WipedText> open_entry(const Sealer &sealer, std::string_view context,
                                    std::span<const std::uint8_t> sealed) {
  if (sealed.size() < kSealingBytes) return std::nullopt;
  WipedText content(std::string(sealed.size() - kSealingBytes, '\0'));
  const std::span<std::uint8_t> room(reinterpret_cast<std::uint8_t *>(content.text().data()), content.text().size());
  if (!sealer.unseal(sealed, context, room)) return std::nullopt;
  return content;
}

std::vector<std::uint8_t> seal_entry(const Sealer &sealer, std::string_view context, std::string_view content) {
  return sealer.seal({reinterpret_cast<const std::uint8_t *>(content.data()), content.size()}, context);
}

[[noreturn]] void fail(EntryKind kind, std::string_view name) {
  throw DatabaseError(fmt::format("the stored {} {} was damaged", text_of(kind), name));
}

std::optional<WipedText> find_entry(StoreConnection &store, EntryKind kind, std::string_view name) {
  Query query(store.database, "SELECT sealed FROM certificate_store WHERE kind = ?1 AND name = ?2", text_of(kind),
              name);
  if (!query.next()) return std::nullopt;
  std::optional<WipedText> content = open_entry(store.sealer, sealing_context(text_of(kind), name), query.blob(0));
  if (!content) fail(kind, name);
  return content;
}

void put_entry(StoreConnection &store, EntryKind kind, std::string_view name, std::string_view content) {
  const std::vector<std::uint8_t> sealed = seal_entry(store.sealer, sealing_context(text_of(kind), name), content);
  Query(store.database,
        "INSERT INTO certificate_store VALUES (?1, ?2, ?3) ON CONFLICT (kind, name) DO UPDATE SET sealed = ?3",
        text_of(kind), name, std::span<const std::uint8_t>(sealed))
      .run();
}

}  // namespace

bool has_entry(StoreConnection &store, EntryKind kind, std::string_view name) {
  return Query(store.database, "SELECT 1 FROM certificate_store WHERE kind = ?1 AND name = ?2", text_of(kind), name)
      .next();
}

std::optional<std::string> find_certificate(StoreConnection &store, std::string_view name) {
  const std::optional<WipedText> content = find_entry(store, EntryKind::kCertificate, name);
  if (!content) return std::nullopt;
  return content->text();
}

PrivateKeyPtr find_private_key(StoreConnection &store, std::string_view name) {
  const std::optional<WipedText> content = find_entry(store, EntryKind::kPrivateKey, name);
  if (!content) return nullptr;
  PrivateKeyPtr key = read_private_key_der(content->text());
  if (!key) fail(EntryKind::kPrivateKey, name);
  return key;
}

void put_certificate(StoreConnection &store, std::string_view name, std::string_view bytes) {
  put_entry(store, EntryKind::kCertificate, name, bytes);
}

void put_private_key(StoreConnection &store, std::string_view name, EVP_PKEY *key) {
  put_entry(store, EntryKind::kPrivateKey, name, private_key_der(key).text());
}

namespace {

struct SealedEntry {
  std::string kind;
  std::string name;
  std::vector<std::uint8_t> bytes;
};

// Some of the entries behind that place, in order.
std::vector<SealedEntry> sealed_entries(Database &database, std::string_view kind, std::string_view name) {
  constexpr std::int64_t kMaxEntries = 1000;
  Query query(database,
              "SELECT kind, name, sealed FROM certificate_store WHERE (kind, name) > (?1, ?2) "
              "ORDER BY kind, name LIMIT ?3",
              kind, name, kMaxEntries);
  std::vector<SealedEntry> entries;
  while (query.next()) {
    const std::span<const std::uint8_t> bytes = query.blob(2);
    entries.push_back({query.text(0), query.text(1), {bytes.begin(), bytes.end()}});
  }
  return entries;
}

void reseal(Database &database, const SealedEntry &old, const Sealer &from, const Sealer &to) {
  const std::string context = sealing_context(old.kind, old.name);
  const std::optional<WipedText> content = open_entry(from, context, old.bytes);
  if (!content) return;
  const std::vector<std::uint8_t> sealed = seal_entry(to, context, content->text());
  Query(database, "UPDATE certificate_store SET sealed = ?3 WHERE kind = ?1 AND name = ?2", old.kind, old.name,
        std::span<const std::uint8_t>(sealed))
      .run();
}

}  // namespace

void reseal_entries(Database &database, const Sealer &from, const Sealer &to) {
  std::vector<SealedEntry> entries = sealed_entries(database, "", "");
  while (!entries.empty()) {
    for (const SealedEntry &entry : entries) reseal(database, entry, from, to);
    entries = sealed_entries(database, entries.back().kind, entries.back().name);
  }
}

void for_each_damaged_entry(StoreConnection &store, const std::function<void(const std::string &)> &take) {
  Query query(store.database, "SELECT kind, name, sealed FROM certificate_store");
  while (query.next()) {
    const std::string kind = query.text(0);
    const std::string name = query.text(1);
    if (!open_entry(store.sealer, sealing_context(kind, name), query.blob(2))) take(fmt::format("{} {}", kind, name));
  }
}

void delete_entry(StoreConnection &store, EntryKind kind, std::string_view name) {
  Query(store.database, "DELETE FROM certificate_store WHERE kind = ?1 AND name = ?2", text_of(kind), name).run();
}

std::vector<std::string> list_names(StoreConnection &store, EntryKind kind, std::string_view behind,
                                    std::size_t count) {
  Query query(store.database, "SELECT name FROM certificate_store WHERE kind = ?1 AND name > ?2 ORDER BY name LIMIT ?3",
              text_of(kind), behind, static_cast<std::int64_t>(count));
  std::vector<std::string> names;
  while (query.next()) names.push_back(query.text(0));
  return names;
}

}  // namespace veskd
