// The book of mirrors and their state. What keeps them up to date is the replicator.
#include "orn/vesk/wire/mirrors.h"

#include <fmt/format.h>

#include <algorithm>

#include "orn/vesk/wire/codec.h"
#include "veskd/fields.h"
#include "veskd/handlers.h"
#include "veskd/key_records.h"
#include "veskd/mirror_records.h"
#include "veskd/paged_list.h"

namespace veskd {

using namespace vesk::wire;

namespace {

constexpr int kMaxPort = 65535;
constexpr std::int64_t kMaxCount = 9999999999;  // ten digits

std::string count_text(std::int64_t count) {
  return fmt::format("{:010}", std::min(count, kMaxCount));
}

// A host name or a numeric address.
bool is_host(std::string_view text) {
  return is_name(text) && text.find_first_of(" /@") == std::string_view::npos;
}

std::optional<Mirror> named_mirror(const Call &call) {
  return find_mirror(call.store, trimmed(call.fields.caMirrorName));
}

}  // namespace

ReturnCode set_mirror_address(const Call &call, KeyRecord &) {
  const std::string name = trimmed(call.fields.caMirrorName);
  if (!is_name(name)) return RC_MIRROR_NAME_INVALID;
  const std::string host = trimmed(call.fields.caMirrorHost);
  const std::string digits = trimmed(call.fields.caMirrorPort);
  const int port = to_int(digits);
  if (!is_host(host) || !is_all_digits(digits) || port < 1 || port > kMaxPort) return RC_MIRROR_ADDRESS_INVALID;
  set_mirror(call.store, name, host, static_cast<std::uint16_t>(port));
  return RC_SUCCESS;
}

ReturnCode get_mirror_address(const Call &call, MirrorAddressReply &reply) {
  const auto mirror = named_mirror(call);
  if (!mirror) return RC_MIRROR_UNKNOWN;
  put_padded(reply.caMirrorName, mirror->name);
  put_padded(reply.caHostname, mirror->host);
  put_padded(reply.caPort, fmt::format("{:05}", mirror->port));
  return RC_SUCCESS;
}

ReturnCode remove_mirror_address(const Call &call, KeyRecord &) {
  const auto mirror = named_mirror(call);
  if (!mirror) return RC_MIRROR_UNKNOWN;
  remove_mirror(call.store, *mirror);
  return RC_SUCCESS;
}

Reply list_mirror_names(const Call &call) {
  return start_name_list(call, kListMirrorNames.tran_id, "SELECT name FROM mirrors ORDER BY name", kMirrorNameBytes);
}

// The status flag Y has the mirror tried at once; the reply tells what is known so far.
ReturnCode get_mirror_status(const Call &call, MirrorStatusReply &reply) {
  const auto mirror = named_mirror(call);
  if (!mirror) return RC_MIRROR_UNKNOWN;
  if (trimmed(call.fields.caMirrorStatusFlag) == "Y") request_attempt(call.store, *mirror);
  const std::string_view data_hash_status = data_hash_status_now(*mirror, queue_size(call.store, *mirror));
  put_padded(reply.caMirrorName, mirror->name);
  put_padded(reply.caFaultCount, count_text(mirror->fault_count));
  put_padded(reply.caStatus, mirror->status);
  put_padded(reply.caMirrorDetail, fmt::format("{} {:04} {}/{} {}", data_hash_status, mirror->last_fault,
                                               mirror->num_keys_here, mirror->num_keys_there, mirror->compared_time));
  return RC_SUCCESS;
}

ReturnCode get_queue_size(const Call &call, QueueSizeReply &reply) {
  const auto mirror = named_mirror(call);
  if (!mirror) return RC_MIRROR_UNKNOWN;
  put_padded(reply.caQueueSize, count_text(queue_size(call.store, *mirror)));
  return RC_SUCCESS;
}

ReturnCode force_key_sync(const Call &call, KeyRecord &) {
  const auto mirror = named_mirror(call);
  if (!mirror) return RC_MIRROR_UNKNOWN;
  if (trimmed(call.fields.caAllKeys) == "Y") {
    queue_all_keys(call.store, *mirror);
  } else {
    const std::string name = trimmed(call.fields.caSyncKeyName);
    if (!queue_key(call.store, *mirror, name)) return find_key(call.store, name) ? RC_NOT_A_MIRROR_KEY : RC_KEY_UNKNOWN;
  }
  request_attempt(call.store, *mirror);
  return RC_SUCCESS;
}

}  // namespace veskd
