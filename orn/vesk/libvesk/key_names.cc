#include "orn/vesk/wire/key_names.h"

#include "orn/vesk/libvesk/call_frame.h"

using namespace vesk;

namespace {

// A listing into a file, a list or both; neither is written where it is empty or null.
int list_names(const Server &server, const char *dataFile, LinkedList *list, const char *filter,
               uint32_t *highestSequence) {
  return public_call(
      server, wire::kDisplayKeyNameList,
      [&](RequestFields &request) {
        wire::put_text(request.caDataFile, dataFile);
        wire::put_text(request.caKeyFilter, filter);
      },
      [&](Session *session) { DisplayKeyNameList(session, list); },
      [&](const Session &session) {
        *highestSequence = wire::to_hex(session.request.caHighestSequence);
        return 0;
      });
}

}  // namespace

int qRetrieveKeyNameListFiltered(const CertificatePaths *paths, const char *host, uint32_t port, const char *dataFile,
                                 const char *filter, uint32_t *highestSequence) {
  return list_names({paths, host, port}, dataFile, nullptr, filter, highestSequence);
}

int qRetrieveKeyNameListFiltered_as_ll(const CertificatePaths *paths, const char *host, uint32_t port, LinkedList *list,
                                       const char *filter, uint32_t *highestSequence) {
  return list_names({paths, host, port}, "", list, filter, highestSequence);
}

int qRetrieveKeyNameList(const CertificatePaths *paths, const char *host, uint32_t port, const char *dataFile) {
  uint32_t discarded;
  return qRetrieveKeyNameListFiltered(paths, host, port, dataFile, "", &discarded);
}

int qRetrieveKeyNameList_as_ll(const CertificatePaths *paths, const char *host, uint32_t port, LinkedList *list) {
  uint32_t discarded;
  return qRetrieveKeyNameListFiltered_as_ll(paths, host, port, list, "", &discarded);
}
