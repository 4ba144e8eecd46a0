// The appliance that the server runs on: its health, its FIPS mode, the state of its key database.
#pragma once

#include "orn/vesk/wire/list_page.h"

namespace vesk::wire {

inline constexpr Transaction kGetSystemStatus = transaction("GetSystemStatus");

inline constexpr auto kGetSystemStatusRequest = request(kGetSystemStatus);

// A page of sensor data. Each page carries the status fields; those of the last one count.
struct SystemStatusPage {
  char caTranLen[6];
  char caTranId[5];
  char caReturnCode[5];
  char caMoreFlag[2];
  char caAppStatus[5];
  char caDiskStatus[9];
  char caCoreStatus[9];
  char caVoltageStatus[9];
  char caBatteryStatus[3];
  char caFanStatus[5];
  char caTemperature[9];
  char caListCount[6];  // bytes of sensor data behind the page
};

inline constexpr auto kSystemStatusPage = reply<SystemStatusPage>(
    field<&SystemStatusPage::caMoreFlag>(13, 1, "More Flag"),
    field<&SystemStatusPage::caAppStatus>(14, 4, "App Status"),
    field<&SystemStatusPage::caDiskStatus>(18, 8, "Disk Status"),
    field<&SystemStatusPage::caCoreStatus>(26, 8, "Core Status"),
    field<&SystemStatusPage::caVoltageStatus>(34, 8, "Voltage Status"),
    field<&SystemStatusPage::caBatteryStatus>(42, 2, "Battery Status"),
    field<&SystemStatusPage::caFanStatus>(44, 4, "Fan Status"),
    field<&SystemStatusPage::caTemperature>(48, 8, "Temperature"),
    field<&SystemStatusPage::caListCount>(56, 5, "List Segment Length"));

inline constexpr Transaction kReportFipsMode = transaction("ReportFipsMode");

inline constexpr auto kReportFipsModeRequest = request(kReportFipsMode);

struct FipsModeReply {
  char caTranLen[6];
  char caTranId[5];
  char caReturnCode[5];
  char caFipsMode[2];
  char caVersion[33];
};

inline constexpr auto kReportFipsModeReply = reply<FipsModeReply>(
    field<&FipsModeReply::caFipsMode>(13, 1, "FIPS Mode"), field<&FipsModeReply::caVersion>(14, 32, "Version"));

inline constexpr char kFipsMode = 'F';  // any other mode is none

inline constexpr Transaction kValidateDB = transaction("ValidateDB");

inline constexpr auto kValidateDBRequest = request(kValidateDB);

// A page of a list, but that its count has another label.
inline constexpr auto kValidationPage = reply<ListPage>(
    field<&ListPage::caMoreFlag>(13, 1, "More Flag"), field<&ListPage::caListCount>(14, 5, "List Segment Length"));

// An entry behind a page: a key with which something is wrong.
struct ValidationEntry {
  char caKeyName[41];
  char caDetail[25];  // the server's own
};

inline constexpr auto kValidationEntry =
    record<ValidationEntry>(field<&ValidationEntry::caKeyName>(0, 40), field<&ValidationEntry::caDetail>(40, 24));

inline constexpr std::size_t kValidationEntryBytes = wire_size(kValidationEntry);
static_assert(kValidationEntryBytes == 64);

}  // namespace vesk::wire
