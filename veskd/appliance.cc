// The appliance: its health, its FIPS mode, and the state of the key database.
#include "orn/vesk/wire/appliance.h"

#include <fmt/format.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <string>

#include "orn/vesk/wire/codec.h"
#include "veskd/appliance.h"
#include "veskd/handlers.h"
#include "veskd/key_records.h"
#include "veskd/mirror_records.h"
#include "veskd/paged_list.h"

namespace veskd {

using namespace vesk::wire;

namespace {

std::optional<std::vector<Reading>> read_sensor_file(const std::filesystem::path &path) {
  std::ifstream file(path);
  if (!file) return std::nullopt;
  std::string content;
  for (std::string line; std::getline(file, line);) content += line + '\n';
  // A directory can be opened, but not read.
  if (file.bad()) return std::nullopt;
  return parse_readings(content);
}

// What the server knows of itself: that it reads its store, which this proves, and how its mirrors are. A mirror that
// is away is no fault of this machine: its limit is the number of mirrors.
void add_server(StoreConnection &store, std::vector<Reading> &readings) {
  Query query(store.database, "SELECT count(*), count(*) FILTER (WHERE status IN ('D', 'R')) FROM mirrors");
  query.next();
  readings.push_back({"app", "store_readable", 1.0, 1, 1});
  readings.push_back(
      {"app", "mirrors_away", static_cast<double>(query.number(1)), 0, static_cast<double>(query.number(0))});
}

struct SystemStatus {
  SystemStatusPage fields{};
  std::string sensor_data;
};

std::shared_ptr<SystemStatus> status_of(const std::vector<Reading> &readings) {
  auto status = std::make_shared<SystemStatus>();
  SystemStatusPage &fields = status->fields;
  put_padded(fields.caTranId, kGetSystemStatus.tran_id);
  put_padded(fields.caReturnCode, return_code_text(RC_SUCCESS));
  put_padded(fields.caAppStatus, states(readings, "app", 4));
  put_padded(fields.caDiskStatus, states(readings, "disk", 8));
  put_padded(fields.caCoreStatus, states(readings, "core", 8));
  put_padded(fields.caVoltageStatus, states(readings, "voltage", 8));
  put_padded(fields.caBatteryStatus, states(readings, "battery", 2));
  put_padded(fields.caFanStatus, states(readings, "fan", 4));
  put_padded(fields.caTemperature, temperature_states(readings, 8));
  for (const Reading &reading : readings) status->sensor_data += line_of(reading);
  return status;
}

// Each page repeats the fields: the client takes those of the last.
Reply status_page(const std::shared_ptr<SystemStatus> &status, std::size_t offset, std::size_t page_bytes) {
  const std::string segment = status->sensor_data.substr(offset, page_bytes);
  const bool more = offset + segment.size() < status->sensor_data.size();
  SystemStatusPage page = status->fields;
  put_padded(page.caMoreFlag, more ? "Y" : "N");
  put_padded(page.caListCount, fmt::format("{:05}", segment.size()));
  Reply reply;
  reply.bytes = WipedText(write_reply(kSystemStatusPage, page) + segment);
  if (more) {
    reply.next_page = [status, end = offset + segment.size(), page_bytes](StoreConnection &) {
      return status_page(status, end, page_bytes);
    };
  }
  return reply;
}

std::string validation_header(std::size_t block_bytes, bool more) {
  ListPage page{};
  put_padded(page.caTranId, kValidateDB.tran_id);
  put_padded(page.caReturnCode, return_code_text(RC_SUCCESS));
  put_padded(page.caMoreFlag, more ? "Y" : "N");
  put_padded(page.caListCount, fmt::format("{:05}", block_bytes));
  return write_reply(kValidationPage, page);
}

// A key without an instance that it calls its current one is damaged as well.
std::optional<std::string> validation_entry(const Sealer &sealer, const Query &row) {
  const std::string name = row.text(0);
  const std::string instance = row.text(1);
  if (!row.is_null(2) && opens(sealer, name, instance, row.blob(2))) return std::nullopt;
  ValidationEntry entry{};
  put_padded(entry.caKeyName, name);
  put_padded(entry.caDetail, instance);
  return write_record(kValidationEntry, entry);
}

}  // namespace

std::optional<std::vector<Reading>> read_appliance(const Machine &machine, StoreConnection &store) {
  if (!machine.sensor_file.empty()) return read_sensor_file(machine.sensor_file);
  std::vector<Reading> readings = read_machine(machine);
  add_server(store, readings);
  return readings;
}

Reply get_system_status(const Call &call) {
  const auto readings = read_appliance(call.machine, call.store);
  if (!readings) return refusal(kGetSystemStatus.tran_id, RC_SENSORS_UNREADABLE);
  return status_page(status_of(*readings), 0, std::clamp<std::size_t>(call.max_page_bytes, 1, kMaxListCount));
}

ReturnCode report_fips_mode(const Call &, FipsModeReply &reply) {
  put_padded(reply.caFipsMode, EVP_default_properties_is_fips_enabled(nullptr) == 1 ? std::string(1, kFipsMode) : "N");
  put_padded(reply.caVersion, OpenSSL_version(OPENSSL_VERSION));
  return RC_SUCCESS;
}

Reply validate_db(const Call &call) {
  return start_list(call, kStoredValues,
                    {.tran_id = kValidateDB.tran_id,
                     .entry_bytes = kValidationEntryBytes,
                     .max_block_bytes = kMaxListCount,
                     .entry = [&sealer = call.store.sealer](const Query &row) { return validation_entry(sealer, row); },
                     .header = validation_header});
}

}  // namespace veskd
