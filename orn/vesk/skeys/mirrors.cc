#include "orn/vesk/wire/mirrors.h"

#include <utility>

#include "orn/vesk/skeys/pages.h"

using namespace vesk;

namespace {

// Reads the names behind a page, of which there are count bytes, and appends them to the list.
bool take_names(Session &session, std::size_t page_bytes, int count, skeys::ListName &name) {
  bool counted = false;
  return skeys::in_pieces(session, page_bytes, count, wire::kMirrorNameBytes, [&](std::span<char> piece) {
    // A page without names makes no read.
    if (!piece.empty() && !skeys::read_bytes(session, piece, wire::kReadTimeoutSeconds)) return false;
    if (!std::exchange(counted, true)) {
      SKEYS_TRACE("List Count <%i>", count);
      SKEYS_TRACE("List Number <%i>", count / static_cast<int>(wire::kMirrorNameBytes));
    }
    return skeys::for_each_entry(piece, wire::kMirrorNameBytes, [&](std::string_view entry) {
      SKEYS_TRACE("mirror: <%s>", name.take(entry));
      name.append();
      return true;
    });
  });
}

}  // namespace

void SetMirrorAddress(Session *session) {
  skeys::transact(*session, wire::kSetMirrorAddress, wire::kSetMirrorAddressRequest, wire::kSetMirrorAddressReply);
}

void GetMirrorAddress(Session *session, MirrorRecord *record) {
  skeys::begin(*session, wire::kGetMirrorAddress);
  Wiped<wire::MirrorAddressReply> reply;
  if (!skeys::exchange(*session, wire::kGetMirrorAddress, wire::kGetMirrorAddressRequest, wire::kGetMirrorAddressReply,
                       *reply))
    return;
  strip_with_length(reply->caHostname, record->caHostname, sizeof record->caHostname - 1);
  strip_with_length(reply->caMirrorName, record->caMirrorName, sizeof record->caMirrorName - 1);
  wire::copy_field(reply->caPort, record->caPort);
  skeys::conclude(*session, reply->caReturnCode);
}

void RemoveMirrorAddress(Session *session) {
  skeys::transact(*session, wire::kRemoveMirrorAddress, wire::kRemoveMirrorAddressRequest,
                  wire::kRemoveMirrorAddressReply);
}

void ListMirrorNames(Session *session, LinkedList *list) {
  skeys::begin(*session, wire::kListMirrorNames);
  if (!skeys::send_request(*session, wire::kListMirrorNamesRequest)) return;
  skeys::ListName name(list, wire::kMirrorNameBytes);
  wire::ListPage page;
  do {
    const auto received = skeys::receive_page(*session, wire::kListMirrorNames, wire::kListPage, page);
    if (!received) return;
    if (!take_names(*session, received->size(), wire::to_int(page.caListCount), name)) return;
  } while (page.caMoreFlag[0] == 'Y');
  skeys::conclude(*session, page.caReturnCode);
}

void GetMirrorStatus(Session *session, MirrorRecord *record) {
  skeys::begin(*session, wire::kGetMirrorStatus);
  Wiped<wire::MirrorStatusReply> reply;
  if (!skeys::exchange(*session, wire::kGetMirrorStatus, wire::kGetMirrorStatusRequest, wire::kGetMirrorStatusReply,
                       *reply))
    return;
  SKEYS_TRACE("Status <%c>", reply->status());
  SKEYS_TRACE("Data Hash Status <%c>", reply->data_hash_status());
  SKEYS_TRACE("Fault Count <%s>", reply->caMirrorDetail);  // the label is meant: log readers know both lines by it
  wire::copy_field(reply->caMirrorName, record->caMirrorName);
  wire::copy_field(reply->caFaultCount, record->caFaultCount);
  record->cStatus = reply->status();
  record->cDataHashStatus = reply->data_hash_status();
  wire::copy_field(reply->caMirrorDetail, record->caMirrorDetail);
  skeys::conclude(*session, reply->caReturnCode);
}

void GetQueueSize(Session *session, MirrorRecord *record) {
  skeys::begin(*session, wire::kGetQueueSize);
  Wiped<wire::QueueSizeReply> reply;
  if (!skeys::exchange(*session, wire::kGetQueueSize, wire::kGetQueueSizeRequest, wire::kGetQueueSizeReply, *reply))
    return;
  wire::copy_field(reply->caQueueSize, record->caQueueSize);
  skeys::conclude(*session, reply->caReturnCode);
}

void ForceKeySync(Session *session) {
  skeys::transact(*session, wire::kForceKeySync, wire::kForceKeySyncRequest, wire::kForceKeySyncReply);
}
