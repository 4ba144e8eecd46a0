#include "veskd/mirror_records.h"

#include <fmt/format.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <array>
#include <memory>

#include "veskd/errors.h"

namespace veskd {
namespace {

constexpr std::string_view kMirrorByName =
    "SELECT id, name, host, port, status, fault_count, last_fault, data_hash_status, num_keys_here, num_keys_there, "
    "compared_time, attempt FROM mirrors WHERE name = ?1";
constexpr std::string_view kMirrorById =
    "SELECT id, name, host, port, status, fault_count, last_fault, data_hash_status, num_keys_here, num_keys_there, "
    "compared_time, attempt FROM mirrors WHERE id = ?1";

std::optional<Mirror> mirror_in(Query &query) {
  if (!query.next()) return std::nullopt;
  return Mirror{query.number(0), query.text(1),   query.text(2),   static_cast<std::uint16_t>(query.number(3)),
                query.text(4),   query.number(5), query.number(6), query.text(7),
                query.number(8), query.number(9), query.text(10),  query.number(11)};
}

std::string hexadecimal(std::span<const std::uint8_t> bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) text += fmt::format("{:02x}", byte);
  return text;
}

// SHA-256 over fields, each preceded by its length, so that no two lists of fields make the same bytes.
class FieldDigest {
 public:
  FieldDigest() : context_(EVP_MD_CTX_new(), EVP_MD_CTX_free) {
    check(context_ && EVP_DigestInit_ex2(context_.get(), EVP_sha256(), nullptr) == 1);
  }

  void add(std::string_view field) {
    const std::string length = fmt::format("{}:", field.size());
    check(EVP_DigestUpdate(context_.get(), length.data(), length.size()) == 1 &&
          EVP_DigestUpdate(context_.get(), field.data(), field.size()) == 1);
  }

  std::string text() {
    std::array<unsigned char, 32> digest;
    check(EVP_DigestFinal_ex(context_.get(), digest.data(), nullptr) == 1);
    return hexadecimal(digest);
  }

 private:
  static void check(bool done) {
    if (!done) throw std::runtime_error("no digest of the mirror keys: " + openssl_error());
  }
  std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX *)> context_;
};

}  // namespace

std::optional<Mirror> find_mirror(StoreConnection &store, std::string_view name) {
  Query query(store.database, kMirrorByName, name);
  return mirror_in(query);
}

std::optional<Mirror> find_mirror(StoreConnection &store, std::int64_t id) {
  Query query(store.database, kMirrorById, id);
  return mirror_in(query);
}

std::vector<std::int64_t> list_mirrors(StoreConnection &store) {
  Query query(store.database, "SELECT id FROM mirrors");
  std::vector<std::int64_t> mirrors;
  while (query.next()) mirrors.push_back(query.number(0));
  return mirrors;
}

void set_mirror(StoreConnection &store, std::string_view name, std::string_view host, std::uint16_t port) {
  Query(store.database,
        "INSERT INTO mirrors (name, host, port) VALUES (?1, ?2, ?3) ON CONFLICT (name) DO UPDATE "
        "SET host = ?2, port = ?3, status = 'N', data_hash_status = '?', attempt = mirrors.attempt + 1",
        name, host, static_cast<std::int64_t>(port))
      .run();
}

void remove_mirror(StoreConnection &store, const Mirror &mirror) {
  Query(store.database, "DELETE FROM mirrors WHERE id = ?1", mirror.id).run();
}

void request_attempt(StoreConnection &store, const Mirror &mirror) {
  Query(store.database, "UPDATE mirrors SET attempt = attempt + 1 WHERE id = ?1", mirror.id).run();
}

std::int64_t queue_size(StoreConnection &store, const Mirror &mirror) {
  Query query(store.database, "SELECT count(*) FROM replication_queue WHERE mirror = ?1", mirror.id);
  return query.next() ? query.number(0) : 0;
}

std::string_view data_hash_status_now(const Mirror &mirror, std::int64_t num_waiting) {
  return num_waiting > 0 ? kUnknownData : std::string_view(mirror.data_hash_status);
}

bool queue_key(StoreConnection &store, const Mirror &mirror, std::string_view key_name) {
  return Query(store.database,
               "INSERT INTO replication_queue (mirror, origin, key_name) SELECT ?1, origin, ?2 FROM replication "
               "WHERE EXISTS (SELECT 1 FROM keys WHERE name = ?2 AND mirror = 'Y') "
               "OR EXISTS (SELECT 1 FROM deleted_mirror_keys WHERE name = ?2) RETURNING number",
               mirror.id, key_name)
      .next();
}

void queue_all_keys(StoreConnection &store, const Mirror &mirror) {
  Query(store.database,
        "INSERT INTO replication_queue (mirror, origin, key_name) SELECT ?1, origin, name FROM replication, keys "
        "WHERE mirror = 'Y' ORDER BY keys.id",
        mirror.id)
      .run();
  Query(store.database,
        "INSERT INTO replication_queue (mirror, origin, key_name) SELECT ?1, origin, name "
        "FROM replication, deleted_mirror_keys",
        mirror.id)
      .run();
}

std::string random_name() {
  std::array<std::uint8_t, 16> random;
  if (RAND_bytes(random.data(), random.size()) != 1) throw std::runtime_error("no random bytes: " + openssl_error());
  return hexadecimal(random);
}

void renew_origin(Database &database) {
  Query(database, "UPDATE replication SET origin = ?1", random_name()).run();
}

MirrorDigest digest_of_mirror_keys(StoreConnection &store) {
  Query query = Query::streamed(
      store.database,
      "SELECT name, current_instance, deletable, activation_date, expiration_date, revoked_date, fields "
      "FROM keys LEFT JOIN metadata ON key = id WHERE mirror = 'Y' ORDER BY name");
  FieldDigest digest;
  MirrorDigest result;
  for (; query.next(); ++result.num_keys) {
    for (int column = 0; column < 7; ++column) digest.add(query.text(column));
  }
  result.hexadecimal = digest.text();
  return result;
}

}  // namespace veskd
