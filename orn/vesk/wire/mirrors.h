// Mirrors: the book of their addresses, their health, their replication queues, and synchronisation.
#pragma once

#include "orn/vesk/wire/list_page.h"

namespace vesk::wire {

inline constexpr Transaction kSetMirrorAddress = transaction("SetMirrorAddress");

inline constexpr auto kSetMirrorAddressRequest = request(
    kSetMirrorAddress,
    field<&RequestFields::caMirrorName>(9, 40),
    field<&RequestFields::caMirrorHost>(49, 256),
    field<&RequestFields::caMirrorPort>(305, 5));

inline constexpr auto kSetMirrorAddressReply = reply<KeyRecord>();

inline constexpr Transaction kGetMirrorAddress = transaction("GetMirrorAddress");

inline constexpr auto kGetMirrorAddressRequest = request(kGetMirrorAddress, field<&RequestFields::caMirrorName>(9, 40));

struct MirrorAddressReply {
  char caTranLen[6];
  char caTranId[5];
  char caReturnCode[5];
  char caMirrorName[41];
  char caHostname[257];
  char caPort[6];
};

inline constexpr auto kGetMirrorAddressReply = reply<MirrorAddressReply>(
    field<&MirrorAddressReply::caMirrorName>(13, 40, "Mirror Name"),
    field<&MirrorAddressReply::caHostname>(53, 256, "Hostname"),
    field<&MirrorAddressReply::caPort>(309, 5, "Port"));

inline constexpr Transaction kRemoveMirrorAddress = transaction("RemoveMirrorAddress");

inline constexpr auto kRemoveMirrorAddressRequest =
    request(kRemoveMirrorAddress, field<&RequestFields::caMirrorName>(9, 40));

// The reply repeats the name, which nobody needs.
inline constexpr auto kRemoveMirrorAddressReply = reply<KeyRecord>(skipped(13, 40));

inline constexpr Transaction kListMirrorNames = transaction("ListMirrorNames");

inline constexpr auto kListMirrorNamesRequest = request(kListMirrorNames);

// An entry of the list: a name, blank-padded.
inline constexpr std::size_t kMirrorNameBytes = 40;

inline constexpr Transaction kGetMirrorStatus = transaction("GetMirrorStatus");

inline constexpr auto kGetMirrorStatusRequest = request(
    kGetMirrorStatus, field<&RequestFields::caMirrorName>(9, 40), field<&RequestFields::caMirrorStatusFlag>(49, 1));

struct MirrorStatusReply {
  char caTranLen[6];
  char caTranId[5];
  char caReturnCode[5];
  char caMirrorName[41];
  char caFaultCount[11];
  char caStatus[2];
  char caMirrorDetail[45];  // its first character is the data hash status

  char status() const { return caStatus[0]; }
  char data_hash_status() const { return caMirrorDetail[0]; }
};

// The data hash status has no place of its own. What is not labelled here is traced in words of its own.
inline constexpr auto kGetMirrorStatusReply = reply<MirrorStatusReply>(
    field<&MirrorStatusReply::caMirrorName>(13, 40, "Mirror Name"),
    field<&MirrorStatusReply::caFaultCount>(53, 10, "Fault Count"),
    field<&MirrorStatusReply::caStatus>(63, 1),
    skipped(64, 1),
    field<&MirrorStatusReply::caMirrorDetail>(65, 44));

inline constexpr Transaction kGetQueueSize = transaction("GetQueueSize");

inline constexpr auto kGetQueueSizeRequest = request(kGetQueueSize, field<&RequestFields::caMirrorName>(9, 40));

struct QueueSizeReply {
  char caTranLen[6];
  char caTranId[5];
  char caReturnCode[5];
  char caQueueSize[11];
};

inline constexpr auto kGetQueueSizeReply =
    reply<QueueSizeReply>(field<&QueueSizeReply::caQueueSize>(13, 10, "Mirror Queue Size"));

inline constexpr Transaction kForceKeySync = transaction("ForceKeySync");

inline constexpr auto kForceKeySyncRequest = request(
    kForceKeySync,
    field<&RequestFields::caMirrorName>(9, 40),
    field<&RequestFields::caAllKeys>(49, 1),
    field<&RequestFields::caSyncKeyName>(50, 40));

inline constexpr auto kForceKeySyncReply = reply<KeyRecord>();

}  // namespace vesk::wire
