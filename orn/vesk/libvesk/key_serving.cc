#include "orn/vesk/wire/key_serving.h"

#include "orn/vesk/libvesk/call_frame.h"
#include "orn/vesk/libvesk/template_fields.h"
#include "orn/vesk/wiped.h"

using namespace vesk;

namespace {

// What a caller gets of a key drawn from a template: a 256-bit key.
constexpr std::size_t kServedKeyBytes = 32;

// Ends a name behind its last character that is not a blank.
template <std::size_t kSize>
void trim_name(char (&name)[kSize]) {
  for (std::size_t i = kSize; i > 0 && (name[i - 1] == ' ' || name[i - 1] == '\0'); --i) name[i - 1] = '\0';
}

}  // namespace

int qGetNextKey(const CertificatePaths *paths, const char *host, uint32_t port, const char *constant, char *keyName,
                unsigned char *keyValue, uint32_t *lastIncrement) {
  if (keyName == nullptr) return ERR_NULL_ARGUMENT;
  Wiped<NextKeyBlock> block;
  return public_call(
      {paths, host, port}, wire::kGetNextKey,
      [&](RequestFields &request) {
        put_template(request, constant);
        wire::put_padded(request.caKeyFormat, "BIN");
      },
      [&](Session *session) { GetNextKey(session, &*block); },
      [&](const Session &) {
        trim_name(block->caKeyName);
        vesk_strlcpy(keyName, block->caKeyName, sizeof block->caKeyName);
        std::memcpy(keyValue, block->caKeyValue, kServedKeyBytes);
        *lastIncrement = wire::to_hex(block->caLastIncrement);
        return 0;
      });
}

int qRetrieveKey(const CertificatePaths *paths, const char *host, uint32_t port, const char *keyName,
                 const char *instance, KeyRecord *record) {
  if (record == nullptr) return ERR_NULL_ARGUMENT;
  *record = {};
  return public_call(
      {paths, host, port}, wire::kRetrieveKey,
      [&](RequestFields &request) {
        wire::put_padded(request.caKeyName, keyName);
        wire::put_padded(request.caInstance, instance);
        wire::put_padded(request.caKeyFormat, "BIN");
      },
      [&](Session *session) { RetrieveKey(session, record); },
      [&](const Session &) {
        trim_name(record->caKeyName);
        return wire::text_in(record->caKeyName) == wire::text_of(keyName) ? 0 : ERR_KEY_NAME_MISMATCH;
      });
}

int qRetrieveKeyMetadata(const CertificatePaths *paths, const char *host, uint32_t port, const char *keyName,
                         KeyMetadataValues *values) {
  if (values == nullptr) return ERR_NULL_ARGUMENT;
  *values = {};
  return public_call(
      {paths, host, port}, wire::kDisplaySymKeyPolicy,
      [&](RequestFields &request) {
        wire::put_padded(request.caKeyName, keyName);
        wire::put_padded(request.caInstance, "");
      },
      DisplaySymKeyPolicy,
      [&](const Session &session) {
        static_assert(sizeof values->md == sizeof session.policy.md);
        std::memcpy(values->md, session.policy.md, sizeof values->md);
        return 0;
      });
}
