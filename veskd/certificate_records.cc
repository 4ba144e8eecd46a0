#include "veskd/certificate_records.h"

#include <fmt/format.h>

#include "veskd/key_pairs.h"

namespace veskd {
namespace {

std::string_view text_of(EntryKind kind) {
  return kind == EntryKind::kCertificate ? "certificate" : "private key";
}

std::string sealing_context(EntryKind kind, std::string_view name) {
  return fmt::format("{}\n{}", text_of(kind), name);
}

[[noreturn]] void fail(EntryKind kind, std::string_view name) {
  throw DatabaseError(fmt::format("the stored {} {} was damaged", text_of(kind), name));
}

std::optional<WipedText> find_entry(StoreConnection &store, EntryKind kind, std::string_view name) {
  Query query(store.database, "SELECT sealed FROM certificate_store WHERE kind = ?1 AND name = ?2", text_of(kind),
              name);
  if (!query.next()) return std::nullopt;
  const std::span<const std::uint8_t> sealed = query.blob(0);
  if (sealed.size() < kSealingBytes) fail(kind, name);
  WipedText content(std::string(sealed.size() - kSealingBytes, '\0'));
  const std::span<std::uint8_t> room(reinterpret_cast<std::uint8_t *>(content.text().data()), content.text().size());
  if (!store.sealer.unseal(sealed, sealing_context(kind, name), room)) fail(kind, name);
  return content;
}

void put_entry(StoreConnection &store, EntryKind kind, std::string_view name, std::string_view content) {
  const std::span<const std::uint8_t> bytes(reinterpret_cast<const std::uint8_t *>(content.data()), content.size());
  const std::vector<std::uint8_t> sealed = store.sealer.seal(bytes, sealing_context(kind, name));
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
