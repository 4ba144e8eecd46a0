#include "tests/library/calls.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <string_view>

#include "tests/library/scripted_connection.h"
#include "tests/library/temporary_file.h"
#include "tests/library/wire_text.h"

namespace {

constexpr const char *kHost = "kms.example";
constexpr uint32_t kPort = 5696;
constexpr const char *kConstant = "TEMPLATE0000001";

const std::string kPolicy = std::string("0256") + "00000000" + "00000000" + "N" + "0000" + "Y";

KeyRecord record;
KeyMetadataValues values;
LinkedList list{40, {}};
char key_name[41];
unsigned char key_value[32];
uint32_t number, other_number;
int32_t size;
char text[257], status, other_status;
char app[5], core[9], disk[9], voltage[9], battery[3], fan[5], temperature[9];
char wrapped_value[256];

int set_metadata(const CertificatePaths &p) {
  return qSetMetadata(&p, kHost, kPort, "K1", "I1", "m1", "m2", "m3", "m4", "m5", "m6", "m7", "m8", "m9", "m10", "m11",
                      "m12", "m13", "m14", "m15", "m16");
}

std::string set_metadata_request() {
  std::string request =
      "01188"
      "1039" +
      padded("K1", 40) + padded("I1", 24) + "MD01'" + padded("m1", 64);
  for (int k = 2; k <= 16; ++k) request += "'" + metadata_label(k) + "'" + padded("m" + std::to_string(k), 64);
  return request + "'";
}

int query_metadata(const CertificatePaths &p) {
  return qRetrieveMetadata_as_ll(&p, kHost, kPort, "unused", 0, "a", 1, nullptr, 1, nullptr, 0, "b", 6, "", 0, "", 0,
                                 "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, &list);
}

constexpr const char *kFileContent = "content of a file";

// A file that an import sends.
std::string file_to_import() {
  static const TemporaryFile file;
  return file.fill(kFileContent);
}

std::string import_key_request() {
  return "00908"
         "1023" +
         padded("K1", 40) + kPolicy + "N" + "1" + blanks(512) + "RSA" + padded("Cert1", 64) + "2" +
         std::string(256, 'v');
}

// A call that tells something on standard output, which is not for the one who reads the test's.
int quietly(const std::function<int()> &call) {
  std::fflush(stdout);
  const int standard_output = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup2(nowhere, STDOUT_FILENO);
  close(nowhere);
  const int result = call();
  std::fflush(stdout);
  dup2(standard_output, STDOUT_FILENO);
  close(standard_output);
  return result;
}

int get_system_status(const CertificatePaths &p) {
  return quietly(
      [&] { return qGetSystemStatus(&p, kHost, kPort, app, core, disk, voltage, battery, fan, temperature, ""); });
}

template <typename Output>
std::span<char> bytes_of(Output &output) {
  return {reinterpret_cast<char *>(&output), sizeof output};
}

}  // namespace

const std::vector<CallCase> &all_calls() {
  static const std::vector<CallCase> calls = {
      {"AdminNoop", [](const CertificatePaths &p) { return qAdminNoop(&p, kHost, kPort); }, "000041043", "1043", 60,
       9999, "AdminNoop"},
      {"CreateSymKey", [](const CertificatePaths &p) { return qCreateSymKey(&p, kHost, kPort, "K1", 'Y'); },
       "00584"
       "1001" +
           padded("K1", 40) + kPolicy + "Y" + "1" + padded("User1", 256) + padded("Group1", 256),
       "1001", 60, 9999, "CreateSymKey"},
      {"DisplaySymKeyPolicy",
       [](const CertificatePaths &p) { return qRetrieveKeyMetadata(&p, kHost, kPort, "K1", &values); },
       "00068"
       "1003" +
           padded("K1", 40) + blanks(24),
       "1003", 60, 9999, "DisplaySymKeyPolicy"},
      {"ChangeDeletable", [](const CertificatePaths &p) { return qChangeDeletable(&p, kHost, kPort, "K1", 'N'); },
       "00069"
       "1005" +
           padded("K1", 40) + blanks(24) + "Y",
       "1005", 1200, 9227, "ChangeDeletable"},
      {"DeleteKey", [](const CertificatePaths &p) { return qDeleteKey(&p, kHost, kPort, "K1"); },
       "00044"
       "1015" +
           padded("K1", 40),
       "1015", 60, 9999, "DeleteKey"},
      {"CreateDB", [](const CertificatePaths &p) { return qCreateDatabase(&p, kHost, kPort); }, "000121107CreateDB",
       "1107", 60, 9999, "CreateDB"},
      {"AutoGenKeys", [](const CertificatePaths &p) { return qAutoGenKeys(&p, kHost, kPort, kConstant, 'i', 25); },
       "00594"
       "1117" +
           padded(kConstant, 39) + "06" + "H" + "15" + "00025" + "I" + kPolicy + "Y" + "1" + blanks(512),
       "1117", 1200, 9227, "AutoGenKeys"},
      {"GetTemplateDepth",
       [](const CertificatePaths &p) { return qGetTemplateDepth(&p, kHost, kPort, kConstant, &number, &other_number); },
       "00047"
       "1121" +
           padded(kConstant, 39) + "06" + "15",
       "1121", 60, 9260, "GetTemplateDepth"},
      {"GetTemplateList", [](const CertificatePaths &p) { return qGetTemplateList(&p, kHost, kPort, &list); },
       "000041123", "1123", 60, 9261, "GetTemplateList", true},
      {"RemoveTemplate", [](const CertificatePaths &p) { return qRemoveTemplate(&p, kHost, kPort, kConstant); },
       "00048"
       "1125"
       "Y" +
           padded(kConstant, 39) + "15" + "06",
       "1125", 60, 9999, "RemoveTemplate"},
      {"SetNextIncrement",
       [](const CertificatePaths &p) { return qSetNextIncrement(&p, kHost, kPort, kConstant, 255); },
       "00087"
       "1159" +
           padded(kConstant, 39) + "06" + "15" + "0000FF" + blanks(34),
       "1159", 60, 9260, "SetNextIncrement"},
      {"RetrieveKey", [](const CertificatePaths &p) { return qRetrieveKey(&p, kHost, kPort, "K1", "I1", &record); },
       "00071"
       "2001" +
           padded("K1", 40) + padded("I1", 24) + "BIN",
       "2001", 60, 9999, "ActivateKey", false, 20000},
      {"GetNextKey",
       [](const CertificatePaths &p) { return qGetNextKey(&p, kHost, kPort, kConstant, key_name, key_value, &number); },
       "00051"
       "2003" +
           padded(kConstant, 39) + "06" + "H" + "15" + "BIN",
       "2003", 60, 5109, "GetNextKeyRsp"},
      {"SetMetadata", [](const CertificatePaths &p) { return set_metadata(p); }, set_metadata_request(), "1039", 60,
       9999, "SetMetadata"},
      {"RetrieveMetadata", [](const CertificatePaths &p) { return query_metadata(p); },
       "00153"
       "1053"
       "MD02 EQ '" +
           padded("a", 64) + "' MD05 GE '" + padded("b", 64) + "'",
       "1053", 300, 9145, "RetrieveMetadata"},
      {"DisplayKeyNameList",
       [](const CertificatePaths &p) { return qRetrieveKeyNameList_as_ll(&p, kHost, kPort, &list); }, "000041037",
       "1037", 300, 9999, "DisplayKeyNameList"},
      {"SetMirrorAddress",
       [](const CertificatePaths &p) { return qSetMirrorAddress(&p, kHost, kPort, "M1", "mirror.example", 443); },
       "00305"
       "1129" +
           padded("M1", 40) + padded("mirror.example", 256) + "00443",
       "1129", 60, 9260, "SetMirrorAddress"},
      {"GetMirrorAddress",
       [](const CertificatePaths &p) { return qGetMirrorAddress(&p, kHost, kPort, "M1", text, sizeof text, &number); },
       "00044"
       "1127" +
           padded("M1", 40),
       "1127", 60, 9999, "GetMirrorAddress"},
      {"RemoveMirrorAddress", [](const CertificatePaths &p) { return qRemoveMirrorAddress(&p, kHost, kPort, "M1"); },
       "00044"
       "1131" +
           padded("M1", 40),
       "1131", 60, 9999, "GetMirrorStatus"},
      {"ListMirrorNames", [](const CertificatePaths &p) { return qListMirrorNames(&p, kHost, kPort, &list); },
       "000041133", "1133", 300, 9999, "ListMirrorNames"},
      {"GetMirrorStatus",
       [](const CertificatePaths &p) {
         return qGetMirrorStatus(&p, kHost, kPort, "M1", 1, &size, &status, &other_status);
       },
       "00045"
       "1135" +
           padded("M1", 40) + "Y",
       "1135", 60, 9999, "GetMirrorStatus"},
      {"GetQueueSize", [](const CertificatePaths &p) { return qGetQueueSize(&p, kHost, kPort, "M1", &size); },
       "00044"
       "1147" +
           padded("M1", 40),
       "1147", 60, 9999, "GetQueueSize"},
      {"ForceKeySync", [](const CertificatePaths &p) { return qForceKeySync(&p, kHost, kPort, "M1", "K1"); },
       "00085"
       "1151" +
           padded("M1", 40) + "N" + padded("K1", 40),
       "1151", 60, 9999, "ForceKeySync"},
      {"GetSystemStatus", get_system_status, "000041137", "1137", 60, 9169, "GetSystemStatusDB"},
      {"ReportFipsMode", [](const CertificatePaths &p) { return qReportFipsMode(&p, kHost, kPort, text); }, "000041047",
       "1047", 60, 9999, "ReportFipsMode", false, -1},
      {"ValidateDB",
       [](const CertificatePaths &p) { return quietly([&] { return qValidateKeyDatabase(&p, kHost, kPort); }); },
       "000041041", "1041", 300, 9169, "ValidateDB"},
      {"ImportSymKey",
       [](const CertificatePaths &p) {
         return qImportSymKey(&p, kHost, kPort, "K1", "Cert1", nullptr, std::string(256, 'v').data());
       },
       import_key_request(), "1023", 60, 9999, "ImportSymKey"},
      {"ExportSymKey",
       [](const CertificatePaths &p) {
         return qExportSymKey(&p, kHost, kPort, "K1", "I1", "Cert1", nullptr, wrapped_value);
       },
       // Five bytes more than the length digits count.
       "00136"
       "1025" +
           padded("K1", 40) + padded("I1", 24) + "RSA" + padded("Cert1", 64) + "2" + zeros(5),
       "1025", 60, 9124, "ExportSymKey"},
      {"ImportCertificate",
       [](const CertificatePaths &p) {
         return qImportCertificate(&p, kHost, kPort, file_to_import().c_str(), "Cert1", 1);
       },
       "00075"
       "1139"
       "C" +
           padded("Cert1", 64) + "Y" + "00017",
       "1139", 60, 9999, "ImportCertificate", false, 0, kFileContent, false},
      {"ImportPrivateKey",
       [](const CertificatePaths &p) { return qImportPrivateKey(&p, kHost, kPort, file_to_import().c_str(), "Key1"); },
       "00074"
       "1143" +
           padded("Key1", 64) + "Y" + "00017",
       "1143", 60, 9999, "ImportPrivateKey", false, 0, kFileContent, false},
      {"ExportCertificate",
       [](const CertificatePaths &p) { return qExportCertificate(&p, kHost, kPort, "Cert1", 'C', "/dev/null"); },
       "00069"
       "1153"
       "C" +
           padded("Cert1", 64),
       "1153", 60, 9124, "ExportCertificate", true},
      {"DeleteCertificate",
       [](const CertificatePaths &p) { return qDeleteCertificate(&p, kHost, kPort, "Cert1", 'C'); },
       "00069"
       "1141"
       "C" +
           padded("Cert1", 64),
       "1141", 60, 9999, "DeleteCertificate"},
      {"DeletePrivateKey", [](const CertificatePaths &p) { return qDeletePrivateKey(&p, kHost, kPort, "Key1"); },
       "00068"
       "1145" +
           padded("Key1", 64),
       "1145", 60, 9999, "DeletePrivateKey"},
      {"GetCertificateList",
       [](const CertificatePaths &p) { return qGetCertificateList_as_ll(&p, kHost, kPort, 'C', &list); }, "000051049C",
       "1049", 60, 9261, "GetCertificateList", true, 0, nullptr, true, true},
      {"GetPrivateKeyList", [](const CertificatePaths &p) { return qGetPrivateKeyList_as_ll(&p, kHost, kPort, &list); },
       "000041119", "1119", 60, 9261, "GetP:rivateKeyList", true, 0, nullptr, true, true},
  };
  return calls;
}

Outputs outputs_of(const CallCase &call) {
  static const std::map<std::string_view, Outputs> kOutputs = {
      {"DisplaySymKeyPolicy", {.buffers = {bytes_of(values)}, .zeroed_first = true}},
      {"GetTemplateDepth", {.buffers = {bytes_of(number), bytes_of(other_number)}}},
      {"RetrieveKey",
       {.buffers = {bytes_of(record)},
        .zeroed_first = true,
        .hold_reply = [](int status) { return status < CONN_ERR_ARGUMENT; }}},
      {"GetNextKey", {.buffers = {bytes_of(key_name), bytes_of(key_value), bytes_of(number)}}},
      {"GetMirrorAddress", {.buffers = {bytes_of(text), bytes_of(number)}}},
      {"GetMirrorStatus", {.buffers = {bytes_of(size), bytes_of(status), bytes_of(other_status)}}},
      {"GetQueueSize", {.buffers = {bytes_of(size)}}},
      {"GetSystemStatus",
       {.buffers = {bytes_of(app), bytes_of(core), bytes_of(disk), bytes_of(voltage), bytes_of(battery), bytes_of(fan),
                    bytes_of(temperature)},
        .hold_reply = [](int status) { return status == 0 || status == ERR_HARDWARE_FAULT; }}},
      {"ReportFipsMode",
       {.buffers = {{text, 33}}, .hold_reply = [](int status) { return status == 0 || status == -1; }}},
      {"ExportSymKey", {.buffers = {bytes_of(wrapped_value)}}},
      {"ValidateDB",
       {.buffers = {}, .hold_reply = [](int status) { return status == 0 || status == ERR_DATABASE_INVALID; }}},
  };
  const auto outputs = kOutputs.find(call.function);
  return outputs == kOutputs.end() ? Outputs{} : outputs->second;
}

LinkedList &list_of_calls() {
  return list;
}
