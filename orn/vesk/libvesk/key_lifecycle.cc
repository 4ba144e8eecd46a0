#include "orn/vesk/wire/key_lifecycle.h"

#include "orn/vesk/libvesk/call_frame.h"
#include "orn/vesk/libvesk/default_policy.h"
#include "orn/vesk/libvesk/template_fields.h"

using namespace vesk;

namespace {

// What six hexadecimal digits count.
constexpr uint32_t kMaxKeyCount = 0xFFFFFF;

}  // namespace

int qCreateSymKey(const CertificatePaths *paths, const char *host, uint32_t port, const char *keyName,
                  char cMirrorKey) {
  return public_call(
      {paths, host, port}, wire::kCreateSymKey,
      [&](RequestFields &request) {
        LIBVESK_TRACE("Create Key Name: <%-40s>", wire::text_or_empty(keyName));
        put_default_policy(request);
        wire::put_padded(request.caUserGroupFlag, "1");
        wire::put_padded(request.caKeyName, keyName);
        wire::put_padded(request.caMirrorKey, cMirrorKey == 'Y' ? "Y" : "N");
        wire::put_padded(request.caUser, "User1");
        wire::put_padded(request.caGroup, "Group1");
        LIBVESK_TRACE("Create Key Name: <%s>", request.caKeyName);
      },
      CreateSymKey);
}

int qAutoGenKeys(const CertificatePaths *paths, const char *host, uint32_t port, const char *constant, char cGenMode,
                 uint32_t count) {
  if (count > kMaxKeyCount) return ERR_KEY_COUNT_RANGE;
  return public_call(
      {paths, host, port}, wire::kAutoGenKeys,
      [&](RequestFields &request) {
        put_default_policy(request);
        wire::put_padded(request.caUserGroupFlag, "1");
        put_template(request, constant);
        wire::put_number(request.caKeyCount, "%05u", count);  // a sixth digit is lost
        wire::put_padded(request.caGenMode, cGenMode == 'a' ? "A" : "I");
        wire::put_padded(request.caMirrorKey, "Y");
        wire::put_padded(request.caUser, "");
        wire::put_padded(request.caGroup, "");
      },
      AutoGenKeys);
}

int qCreateDatabase(const CertificatePaths *paths, const char *host, uint32_t port) {
  return public_call({paths, host, port}, wire::kCreateDB, kNoFields, CreateDB);
}

int qDeleteKey(const CertificatePaths *paths, const char *host, uint32_t port, const char *keyName) {
  return public_call(
      {paths, host, port}, wire::kDeleteKey,
      [&](RequestFields &request) { wire::put_padded(request.caKeyName, keyName); }, DeleteKey);
}

int qChangeDeletable(const CertificatePaths *paths, const char *host, uint32_t port, const char *keyName, char) {
  LIBVESK_TRACE("Change Deletable Key Name: <%-40s>", wire::text_or_empty(keyName));
  return public_call(
      {paths, host, port}, wire::kChangeDeletable,
      [&](RequestFields &request) {
        wire::put_padded(request.caKeyName, keyName);
        wire::put_padded(request.caInstance, "");
        wire::put_padded(request.caDeletable, "Y");  // there is no way back: the flag asked for is not sent
        LIBVESK_TRACE("Create Key Name: <%s>", request.caKeyName);
      },
      ChangeDeletable);
}
