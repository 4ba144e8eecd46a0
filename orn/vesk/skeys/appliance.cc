#include "orn/vesk/wire/appliance.h"

#include <cstdio>

#include "orn/vesk/skeys/output_file.h"
#include "orn/vesk/skeys/pages.h"

using namespace vesk;

namespace {

// Where sensor data goes, as it comes. A file that takes no more loses the rest, and only the trace tells: the status
// fields, which the call is about, arrive all the same.
class SensorFile {
 public:
  bool open(const char *path) { return file_.open(path); }

  void write(std::span<const char> data) {
    if (!file_.is_open() || file_.write({data.data(), data.size()}) == data.size()) return;
    file_.close();
    trace_failure();
  }

  // Writes out what is still buffered.
  void finish() {
    if (file_.is_open() && !file_.close()) trace_failure();
  }

 private:
  static void trace_failure() { SKEYS_TRACE("Failed to write sensor data file"); }

  skeys::OutputFile file_;
};

// Reads the sensor data behind a page.
bool take_sensor_data(Session &session, std::size_t page_bytes, int length, SensorFile &file) {
  if (length <= 0) return true;
  return skeys::in_pieces(session, page_bytes, length, 1, [&](std::span<char> piece) {
    if (!skeys::read_and_dump(session, piece)) return false;
    file.write(piece);
    return true;
  });
}

SystemStatusRecord system_status(const wire::SystemStatusPage &page) {
  SystemStatusRecord record{};
  std::memcpy(record.caTranId, page.caTranId, sizeof page.caTranId);
  wire::copy_field(page.caReturnCode, record.caReturnCode);
  wire::copy_field(page.caAppStatus, record.caAppStatus);
  wire::copy_field(page.caDiskStatus, record.caDiskStatus);
  wire::copy_field(page.caCoreStatus, record.caCoreStatus);
  wire::copy_field(page.caVoltageStatus, record.caVoltageStatus);
  wire::copy_field(page.caBatteryStatus, record.caBatteryStatus);
  wire::copy_field(page.caFanStatus, record.caFanStatus);
  wire::copy_field(page.caTemperature, record.caTemperature);
  return record;
}

// The header of a validation page, as the trace has it, for whoever watches the validation.
void print_header(wire::ListPage &page) {
  for (const auto &row : wire::kValidationPage) std::printf("%s <%s>\n", row.label, row.slot(page).data());
}

// Reads the entries behind a page. They go to the trace and nowhere else.
bool trace_entries(Session &session, std::size_t page_bytes, int length) {
  constexpr std::size_t kEntryBytes = wire::kValidationEntryBytes;
  int index = 0;
  return skeys::in_pieces(session, page_bytes, length, kEntryBytes, [&](std::span<char> piece) {
    if (!skeys::read_and_dump(session, piece)) return false;
    if (index == 0) SKEYS_TRACE("iListNumber <%d>", length / static_cast<int>(kEntryBytes));
    return skeys::for_each_entry(piece, kEntryBytes, [&](std::string_view received) {
      wire::ValidationEntry entry{};
      wire::read_fields(wire::kValidationEntry, received, entry);
      SKEYS_TRACE("idx <%d>", index++);
      SKEYS_TRACE("%s", entry.caKeyName);
      SKEYS_TRACE("%s", entry.caDetail);
      return true;
    });
  });
}

}  // namespace

void GetSystemStatus(Session *session, SystemStatusRecord *record) {
  skeys::begin(*session, wire::kGetSystemStatus);
  if (!skeys::send_request(*session, wire::kGetSystemStatusRequest)) return;

  SensorFile file;
  if (session->caFilePath[0] != '\0' && !file.open(session->caFilePath)) {
    SKEYS_TRACE("Failed to open sensor data file");
    session->iStatus = ERR_SENSOR_FILE;
    return;
  }
  wire::SystemStatusPage page;
  do {
    const auto received = skeys::receive_page(*session, wire::kGetSystemStatus, wire::kSystemStatusPage, page);
    if (!received) return;
    if (!take_sensor_data(*session, received->size(), wire::to_int(page.caListCount), file)) return;
  } while (page.caMoreFlag[0] == 'Y');
  std::puts("**end");
  file.finish();
  *record = system_status(page);
  skeys::conclude(*session, page.caReturnCode);
}

void ReportFipsMode(Session *session, char result[6]) {
  if (result == nullptr) {
    session->iStatus = ERR_NULL_RESULT;
    return;
  }
  std::memset(result, 0, 6);
  skeys::begin(*session, wire::kReportFipsMode);
  Wiped<wire::FipsModeReply> reply;
  if (!skeys::exchange(*session, wire::kReportFipsMode, wire::kReportFipsModeRequest, wire::kReportFipsModeReply,
                       *reply))
    return;
  wire::copy_field(reply->caFipsMode, session->request.caFipsMode);
  wire::copy_field(reply->caVersion, session->request.caVersion);
  result[0] = reply->caFipsMode[0];
  std::memcpy(result + 1, reply->caReturnCode, sizeof reply->caReturnCode);
  skeys::conclude(*session, reply->caReturnCode);
}

void ValidateDB(Session *session) {
  skeys::begin(*session, wire::kValidateDB);
  if (!skeys::send_request(*session, wire::kValidateDBRequest)) return;
  wire::ListPage page;
  do {
    const auto received = skeys::receive_page(*session, wire::kValidateDB, wire::kValidationPage, page);
    if (!received) return;
    print_header(page);
    const int length = wire::to_int(page.caListCount);
    // A page without entries is the last, whatever its More Flag says, and ends without a word.
    if (length <= 0) return skeys::conclude(*session, page.caReturnCode);
    if (!trace_entries(*session, received->size(), length)) return;
  } while (page.caMoreFlag[0] == 'Y');
  SKEYS_TRACE("**end");
  skeys::conclude(*session, page.caReturnCode);
}
