#include "orn/vesk/wire/key_transfer.h"

#include "orn/vesk/libvesk/call_frame.h"
#include "orn/vesk/libvesk/default_policy.h"

using namespace vesk;

namespace {

// A path of 10000 characters or more loses digits of its length, but not its being there.
void put_path_length(RequestFields &request, const char *path) {
  if (path == nullptr) return;
  wire::put_number(request.caFilePathLen, "%u", static_cast<std::uint32_t>(std::strlen(path)));
}

}  // namespace

int qImportSymKey(const CertificatePaths *paths, const char *host, uint32_t port, const char *keyName,
                  const char *certificateName, const char *importFile, const void *data) {
  if (importFile == nullptr && data == nullptr) return ERR_NULL_ARGUMENT;
  LIBVESK_TRACE("Certificate Name <%s>", wire::text_or_empty(certificateName));
  return public_call(
      {paths, host, port}, wire::kImportSymKey,
      [&](RequestFields &request) {
        put_default_policy(request);
        wire::put_padded(request.caKeyName, keyName);
        wire::put_padded(request.caMirrorKey, "N");
        wire::put_padded(request.caKeyFormat, "RSA");
        wire::put_padded(request.caCertificateName, certificateName);
        wire::put_padded(request.caRSAPaddingMode, "2");
        put_path_length(request, importFile);
        // An empty path stands for no file and yet not for the data: the value is then zero bytes.
        if (importFile == nullptr) std::memcpy(request.caKeyValue, data, sizeof request.caKeyValue);
      },
      [&](Session *session) {
        wire::put_text(session->caFilePath, importFile);
        ImportSymKey(session);
      });
}

int qExportSymKey(const CertificatePaths *paths, const char *host, uint32_t port, const char *keyName,
                  const char *instance, const char *certificateName, const char *exportFile, void *keyValue) {
  return public_call(
      {paths, host, port}, wire::kExportSymKey,
      [&](RequestFields &request) {
        wire::put_padded(request.caKeyName, keyName);
        wire::put_padded(request.caInstance, instance);
        wire::put_padded(request.caKeyFormat, "RSA");
        wire::put_padded(request.caRSAPublicCertName, certificateName);
        wire::put_padded(request.caRSAPaddingMode, "2");
        put_path_length(request, exportFile);
      },
      [&](Session *session) {
        wire::put_text(session->caFilePath, exportFile);
        ExportSymKey(session);
      },
      [&](const Session &session) {
        if (keyValue != nullptr) std::memcpy(keyValue, session.request.caKeyValue, sizeof session.request.caKeyValue);
        return 0;
      });
}
