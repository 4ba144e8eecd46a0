#include "veskd/tickets.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string_view>

#include "veskd/certificates.h"
#include "veskd/errors.h"
#include "veskd/files.h"
#include "veskd/sealing.h"

namespace veskd {
namespace {

using Bytes8 = std::array<unsigned char, 8>;
using Digest = std::array<unsigned char, 32>;
using std::chrono::seconds;

constexpr const char *kFailed = "TLS session tickets could not be set up";
constexpr std::size_t kNumTickets = 2;
constexpr std::size_t kIvBytes = 16;

// However often a session was resumed, its client proves anew after this time that it has its private key.
constexpr seconds kMaxSessionAge = std::chrono::hours(24);

// TLS allows tickets no longer life.
constexpr seconds kMaxLifetime = std::chrono::hours(24 * 7);

// What a ticket is encrypted and authenticated with.
struct TicketKey {
  std::array<unsigned char, 32> aes;
  std::array<unsigned char, 32> hmac;
};

// The name of a key, which a ticket has in the clear: which secret, and which period of time.
struct KeyName {
  Bytes8 secret_id;
  Bytes8 period;
};
static_assert(sizeof(KeyName) == 16);

// What a ticket says of its session besides what TLS needs.
struct Origin {
  Digest authority;
  Bytes8 handshake;  // when the client proved who it is
};

// What the callbacks of a context know.
struct Tickets {
  KeyValue secret;
  Bytes8 secret_id;
  seconds rotate;
  Digest authority;
};

Bytes8 to_bytes(std::int64_t number) {
  Bytes8 bytes;
  for (std::size_t i = 0; i < bytes.size(); ++i)
    bytes[i] = static_cast<unsigned char>(static_cast<std::uint64_t>(number) >> (8 * (bytes.size() - 1 - i)));
  return bytes;
}

std::int64_t to_number(const Bytes8 &bytes) {
  std::uint64_t number = 0;
  for (const unsigned char byte : bytes) number = number << 8 | byte;
  return static_cast<std::int64_t>(number);
}

seconds now() {
  return std::chrono::duration_cast<seconds>(std::chrono::system_clock::now().time_since_epoch());
}

OSSL_PARAM octets(const char *name, std::span<const std::uint8_t> bytes) {
  return OSSL_PARAM_construct_octet_string(name, const_cast<std::uint8_t *>(bytes.data()), bytes.size());
}

OSSL_PARAM sha256(const char *name) {
  return OSSL_PARAM_construct_utf8_string(name, const_cast<char *>("SHA256"), 0);
}

// HKDF with SHA-256; what is derived under one label and number tells nothing of what is derived under another.
bool derive(const KeyValue &secret, std::string_view label, const Bytes8 &number, std::span<std::uint8_t> derived) {
  const std::unique_ptr<EVP_KDF, void (*)(EVP_KDF *)> hkdf(EVP_KDF_fetch(nullptr, "HKDF", nullptr), EVP_KDF_free);
  const std::unique_ptr<EVP_KDF_CTX, void (*)(EVP_KDF_CTX *)> context(EVP_KDF_CTX_new(hkdf.get()), EVP_KDF_CTX_free);
  const std::span<const std::uint8_t> label_bytes(reinterpret_cast<const std::uint8_t *>(label.data()), label.size());
  // Infos are joined in their order.
  const OSSL_PARAM parameters[] = {sha256(OSSL_KDF_PARAM_DIGEST), octets(OSSL_KDF_PARAM_KEY, *secret),
                                   octets(OSSL_KDF_PARAM_INFO, label_bytes), octets(OSSL_KDF_PARAM_INFO, number),
                                   OSSL_PARAM_construct_end()};
  return context && EVP_KDF_derive(context.get(), derived.data(), derived.size(), parameters) == 1;
}

// Random, the same as long as the process runs: settings that are read again leave its tickets good.
const KeyValue &secret_of_process() {
  static const auto secret = [] {
    auto random = std::make_unique<KeyValue>();
    fill_with_secret_random(**random);
    return random;
  }();
  return *secret;
}

void read_secret(const std::filesystem::path &key_file, KeyValue &secret) {
  const std::span<const std::uint8_t> bytes = *secret_of_process();
  if (key_file.empty()) return void(std::copy(bytes.begin(), bytes.end(), secret->begin()));
  read_key_file(key_file, secret, "make it with  openssl rand -hex 32");
}

Digest digest_of(const std::filesystem::path &file) {
  const std::string content = read_file(file);
  Digest digest;
  require_openssl(EVP_Digest(content.data(), content.size(), digest.data(), nullptr, EVP_sha256(), nullptr) == 1,
                  kFailed);
  return digest;
}

// ---- The callbacks ----

// A context owns its Tickets, because connections keep the context when the server has another.
int tickets_index() {
  const auto free_tickets = [](void *, void *tickets, CRYPTO_EX_DATA *, int, long, void *) {
    delete static_cast<Tickets *>(tickets);
  };
  static const int index = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, free_tickets);
  return index;
}

const Tickets &tickets_of(SSL *tls) {
  return *static_cast<const Tickets *>(SSL_CTX_get_ex_data(SSL_get_SSL_CTX(tls), tickets_index()));
}

// Keys of the period before still decrypt, and those of the next, because clocks of servers differ.
bool is_current(const KeyName &name, const Tickets &tickets) {
  const std::int64_t age = now() / tickets.rotate - to_number(name.period);
  return name.secret_id == tickets.secret_id && age >= -1 && age <= 1;
}

bool use_key(const Tickets &tickets, const Bytes8 &period, const unsigned char *iv, EVP_CIPHER_CTX *cipher,
             EVP_MAC_CTX *mac, int encrypt) {
  Wiped<TicketKey> key;
  const std::span<std::uint8_t> bytes(reinterpret_cast<std::uint8_t *>(&*key), sizeof(TicketKey));
  if (!derive(tickets.secret, "veskd ticket key", period, bytes)) return false;
  const OSSL_PARAM parameters[] = {octets(OSSL_MAC_PARAM_KEY, key->hmac), sha256(OSSL_MAC_PARAM_DIGEST),
                                   OSSL_PARAM_construct_end()};
  return EVP_CipherInit_ex(cipher, EVP_aes_256_cbc(), nullptr, key->aes.data(), iv, encrypt) == 1 &&
         EVP_MAC_CTX_set_params(mac, parameters) == 1;
}

// What OpenSSL expects of the function below.
constexpr int kKeyError = -1;
constexpr int kNoKey = 0;
constexpr int kKeySet = 1;

// Sessions of TLS 1.2 are not resumed: theirs would be without forward secrecy.
int choose_key(SSL *tls, unsigned char *name_bytes, unsigned char *iv, EVP_CIPHER_CTX *cipher, EVP_MAC_CTX *mac,
               int encrypt) {
  if (SSL_version(tls) < TLS1_3_VERSION) return kNoKey;
  const Tickets &tickets = tickets_of(tls);
  KeyName name{tickets.secret_id, to_bytes(now() / tickets.rotate)};
  if (encrypt == 1) {
    if (RAND_bytes(iv, kIvBytes) != 1) return kKeyError;
    std::memcpy(name_bytes, &name, sizeof name);
  } else {
    std::memcpy(&name, name_bytes, sizeof name);
    if (!is_current(name, tickets)) return kNoKey;
  }
  return use_key(tickets, name.period, iv, cipher, mac, encrypt) ? kKeySet : kKeyError;
}

// A resumed session keeps the origin that it began with.
int note_origin(SSL *tls, void *) {
  if (SSL_session_reused(tls) == 1) return 1;
  const Origin origin{tickets_of(tls).authority, to_bytes(now().count())};
  return SSL_SESSION_set1_ticket_appdata(SSL_get_session(tls), &origin, sizeof origin);
}

// Whether the client would pass as well if it showed its certificate now.
bool is_good(const Tickets &tickets, SSL_SESSION *session) {
  void *data = nullptr;
  std::size_t length = 0;
  X509 *client = SSL_SESSION_get0_peer(session);
  if (client == nullptr || !is_valid_now(client)) return false;
  if (SSL_SESSION_get0_ticket_appdata(session, &data, &length) != 1 || length != sizeof(Origin)) return false;
  Origin origin;
  std::memcpy(&origin, data, sizeof origin);
  return origin.authority == tickets.authority && now() - seconds(to_number(origin.handshake)) < kMaxSessionAge;
}

// A client whose ticket is not taken makes a full handshake. Either way it gets new ones.
SSL_TICKET_RETURN judge_ticket(SSL *tls, SSL_SESSION *session, const unsigned char *, std::size_t,
                               SSL_TICKET_STATUS status, void *) {
  const bool decrypted = status == SSL_TICKET_SUCCESS || status == SSL_TICKET_SUCCESS_RENEW;
  return decrypted && is_good(tickets_of(tls), session) ? SSL_TICKET_RETURN_USE_RENEW : SSL_TICKET_RETURN_IGNORE_RENEW;
}

}  // namespace

void check_ticket_key_file(const std::filesystem::path &file) {
  KeyValue secret;
  read_secret(file, secret);
}

void issue_tickets(SSL_CTX *tls, const TicketOptions &options, const std::filesystem::path &authority) {
  auto tickets = std::make_unique<Tickets>();
  read_secret(options.key_file, tickets->secret);
  tickets->rotate = std::max(std::chrono::duration_cast<seconds>(options.rotate), seconds(1));
  tickets->authority = digest_of(authority);
  require_openssl(derive(tickets->secret, "veskd ticket secret", {}, tickets->secret_id), kFailed);
  SSL_CTX_set_timeout(tls, std::min(tickets->rotate, kMaxLifetime).count());
  require_openssl(SSL_CTX_set_ex_data(tls, tickets_index(), tickets.get()) == 1, kFailed);
  static_cast<void>(tickets.release());  // the context's now
  require_openssl(SSL_CTX_set_tlsext_ticket_key_evp_cb(tls, choose_key) == 1 &&
                      SSL_CTX_set_session_ticket_cb(tls, note_origin, judge_ticket, nullptr) == 1 &&
                      SSL_CTX_set_num_tickets(tls, kNumTickets) == 1,
                  kFailed);
}

void issue_no_tickets(SSL_CTX *tls) {
  SSL_CTX_set_options(tls, SSL_OP_NO_TICKET);
  SSL_CTX_set_num_tickets(tls, 0);
}

}  // namespace veskd
