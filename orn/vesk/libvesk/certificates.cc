#include "orn/vesk/wire/certificates.h"

#include "orn/vesk/libvesk/call_frame.h"

using namespace vesk;

namespace {

// Runs a transaction over a file.
template <typename Run>
auto with_file(const char *path, Run run) {
  return [path, run](Session *session) {
    wire::put_text(session->caFilePath, path);
    run(session);
  };
}

void put_type(RequestFields &request, char certificate_type) {
  wire::put_padded(request.caCertType, std::string_view(&certificate_type, 1));
}

}  // namespace

int qImportCertificate(const CertificatePaths *paths, const char *host, uint32_t port, const char *importFile,
                       const char *certificateName, int importFlag) {
  return public_call(
      {paths, host, port}, wire::kImportCertificate,
      [&](RequestFields &request) {
        put_type(request, 'C');
        wire::put_padded(request.caCertName, certificateName);
        wire::put_padded(request.caImportFlag, importFlag != 0 ? "Y" : "N");
      },
      with_file(importFile, ImportCertificate));
}

int qImportPrivateKey(const CertificatePaths *paths, const char *host, uint32_t port, const char *importFile,
                      const char *privateKeyName) {
  return public_call(
      {paths, host, port}, wire::kImportPrivateKey,
      [&](RequestFields &request) {
        wire::put_padded(request.caCertName, privateKeyName);
        wire::put_padded(request.caImportFlag, "Y");
      },
      with_file(importFile, ImportPrivateKey));
}

int qExportCertificate(const CertificatePaths *paths, const char *host, uint32_t port, const char *certificateName,
                       char certificateType, const char *exportFile) {
  return public_call(
      {paths, host, port}, wire::kExportCertificate,
      [&](RequestFields &request) {
        put_type(request, certificateType);
        wire::put_padded(request.caCertName, certificateName);
      },
      with_file(exportFile, ExportCertificate));
}

int qDeleteCertificate(const CertificatePaths *paths, const char *host, uint32_t port, const char *certificateName,
                       char certificateType) {
  return public_call(
      {paths, host, port}, wire::kDeleteCertificate,
      [&](RequestFields &request) {
        put_type(request, certificateType);
        wire::put_padded(request.caCertName, certificateName);
      },
      DeleteCertificate);
}

int qDeletePrivateKey(const CertificatePaths *paths, const char *host, uint32_t port, const char *privateKeyName) {
  return public_call(
      {paths, host, port}, wire::kDeletePrivateKey,
      [&](RequestFields &request) { wire::put_padded(request.caCertName, privateKeyName); }, DeletePrivateKey);
}

int qGetCertificateList(const CertificatePaths *paths, const char *host, uint32_t port, char certificateType,
                        const char *outputFile) {
  return public_call(
      {paths, host, port}, wire::kGetCertificateList,
      [&](RequestFields &request) { put_type(request, certificateType); },
      with_file(outputFile, [](Session *session) { GetCertificateList(session, nullptr); }));
}

int qGetCertificateList_as_ll(const CertificatePaths *paths, const char *host, uint32_t port, char certificateType,
                              LinkedList *list) {
  return public_call(
      {paths, host, port}, wire::kGetCertificateList,
      [&](RequestFields &request) { put_type(request, certificateType); },
      [&](Session *session) { GetCertificateList(session, list); });
}

int qGetPrivateKeyList(const CertificatePaths *paths, const char *host, uint32_t port, const char *outputFile) {
  return public_call({paths, host, port}, wire::kGetPrivateKeyList, kNoFields,
                     with_file(outputFile, [](Session *session) { GetPrivateKeyList(session, nullptr); }));
}

int qGetPrivateKeyList_as_ll(const CertificatePaths *paths, const char *host, uint32_t port, LinkedList *list) {
  return public_call({paths, host, port}, wire::kGetPrivateKeyList, kNoFields,
                     [&](Session *session) { GetPrivateKeyList(session, list); });
}
