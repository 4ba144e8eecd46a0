#include "orn/vesk/wire/mirrors.h"

#include <algorithm>

#include "orn/vesk/libvesk/call_frame.h"

using namespace vesk;

namespace {

// The most that a call writes to a caller's host name buffer.
constexpr std::uint32_t kMaxHostBytes = 256;

// Writes the name that the call is about into the request.
auto put_mirror_name(const char *mirrorName) {
  return [mirrorName](RequestFields &request) { wire::put_padded(request.caMirrorName, mirrorName); };
}

}  // namespace

int qSetMirrorAddress(const CertificatePaths *paths, const char *host, uint32_t port, const char *mirrorName,
                      const char *mirrorHost, uint32_t mirrorPort) {
  return public_call(
      {paths, host, port}, wire::kSetMirrorAddress,
      [&](RequestFields &request) {
        wire::put_padded(request.caMirrorName, mirrorName);
        wire::put_padded(request.caMirrorHost, mirrorHost);
        wire::put_number(request.caMirrorPort, "%05u", mirrorPort);
      },
      SetMirrorAddress);
}

int qGetMirrorAddress(const CertificatePaths *paths, const char *host, uint32_t port, const char *mirrorName,
                      char *mirrorHostOut, uint32_t iMirrorHostLen, uint32_t *piMirrorPort) {
  MirrorRecord record{};
  return public_call(
      {paths, host, port}, wire::kGetMirrorAddress, put_mirror_name(mirrorName),
      [&](Session *session) { GetMirrorAddress(session, &record); },
      [&](const Session &) {
        vesk_strlcpy(mirrorHostOut, record.caHostname, std::min(iMirrorHostLen, kMaxHostBytes));
        *piMirrorPort = static_cast<std::uint32_t>(wire::to_int(record.caPort));
        return 0;
      });
}

int qRemoveMirrorAddress(const CertificatePaths *paths, const char *host, uint32_t port, const char *mirrorName) {
  return public_call({paths, host, port}, wire::kRemoveMirrorAddress, put_mirror_name(mirrorName), RemoveMirrorAddress);
}

int qListMirrorNames(const CertificatePaths *paths, const char *host, uint32_t port, LinkedList *list) {
  return public_call({paths, host, port}, wire::kListMirrorNames, kNoFields,
                     [&](Session *session) { ListMirrorNames(session, list); });
}

int qGetMirrorStatus(const CertificatePaths *paths, const char *host, uint32_t port, const char *mirrorName,
                     int statusFlag, int32_t *plFaultCount, char *pcStatus, char *pcDataHashStatus) {
  MirrorRecord record{};
  return public_call(
      {paths, host, port}, wire::kGetMirrorStatus,
      [&](RequestFields &request) {
        wire::put_padded(request.caMirrorName, mirrorName);
        wire::put_padded(request.caMirrorStatusFlag, statusFlag != 0 ? "Y" : "N");
      },
      [&](Session *session) { GetMirrorStatus(session, &record); },
      [&](const Session &) {
        *plFaultCount = wire::to_int(record.caFaultCount);
        *pcStatus = record.cStatus;
        *pcDataHashStatus = record.cDataHashStatus;
        return 0;
      });
}

int qGetQueueSize(const CertificatePaths *paths, const char *host, uint32_t port, const char *mirrorName,
                  int32_t *plQueueSize) {
  MirrorRecord record{};
  return public_call(
      {paths, host, port}, wire::kGetQueueSize, put_mirror_name(mirrorName),
      [&](Session *session) { GetQueueSize(session, &record); },
      [&](const Session &) {
        *plQueueSize = wire::to_int(record.caQueueSize);
        return 0;
      });
}

int qForceKeySync(const CertificatePaths *paths, const char *host, uint32_t port, const char *mirrorName,
                  const char *keyName) {
  return public_call(
      {paths, host, port}, wire::kForceKeySync,
      [&](RequestFields &request) {
        wire::put_padded(request.caMirrorName, mirrorName);
        wire::put_padded(request.caAllKeys, keyName == nullptr ? "Y" : "N");
        wire::put_padded(request.caSyncKeyName, keyName);
      },
      ForceKeySync);
}
