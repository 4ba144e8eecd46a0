#include "orn/vesk/wire/appliance.h"

#include "orn/vesk/libvesk/call_frame.h"

using namespace vesk;

namespace {

// The digits that stand for a fault. They do so in every field, the temperature included.
constexpr std::string_view kFaultDigits = "18";

// The status of a server that answers, in another mode.
constexpr int kNoFipsMode = -1;

// Copies a field to the caller's buffer of the same size. Returns whether it shows a fault.
template <std::size_t kSize>
bool deliver_status(const char (&field)[kSize], char *output) {
  vesk_strlcpy(output, field, kSize);
  return std::string_view(output).find_first_of(kFaultDigits) != std::string_view::npos;
}

}  // namespace

int qGetSystemStatus(const CertificatePaths *paths, const char *host, uint32_t port, char *appStatus, char *coreStatus,
                     char *diskStatus, char *voltageStatus, char *batteryStatus, char *fanStatus, char *temperature,
                     const char *sensorDataFile) {
  SystemStatusRecord record{};
  return public_call(
      {paths, host, port}, wire::kGetSystemStatus, kNoFields,
      [&](Session *session) {
        wire::put_text(session->caFilePath, sensorDataFile);
        GetSystemStatus(session, &record);
      },
      [&](const Session &) {
        bool fault = deliver_status(record.caAppStatus, appStatus);
        fault |= deliver_status(record.caCoreStatus, coreStatus);
        fault |= deliver_status(record.caDiskStatus, diskStatus);
        fault |= deliver_status(record.caVoltageStatus, voltageStatus);
        fault |= deliver_status(record.caBatteryStatus, batteryStatus);
        fault |= deliver_status(record.caFanStatus, fanStatus);
        fault |= deliver_status(record.caTemperature, temperature);
        return fault ? ERR_HARDWARE_FAULT : 0;
      });
}

int qReportFipsMode(const CertificatePaths *paths, const char *host, uint32_t port, char *version) {
  char result[6];
  const auto deliver = [&](const Session &session) {
    vesk_strlcpy(version, session.request.caVersion, sizeof session.request.caVersion);
    return result[0] == wire::kFipsMode ? 0 : kNoFipsMode;
  };
  return public_call(
      {paths, host, port}, wire::kReportFipsMode, kNoFields,
      [&](Session *session) {
        ReportFipsMode(session, result);
        // A return code can read as the status that promises a version.
        if (session->iStatus == kNoFipsMode) deliver(*session);
      },
      deliver);
}

int qValidateKeyDatabase(const CertificatePaths *paths, const char *host, uint32_t port) {
  return public_call({paths, host, port}, wire::kValidateDB, kNoFields, ValidateDB, [](const Session &session) {
    return wire::to_int(session.caListCount) > 0 ? ERR_DATABASE_INVALID : 0;
  });
}
