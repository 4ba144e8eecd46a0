// The replies of a server, as the library reads them: the transaction's identifier, how the call is made, and the bytes
// that come on the connection.
//
// The call is one of tests/library/calls.cc, or, behind an 'F', a 'D' or an 'N', one that writes a list or a value to a
// file, to a disk that is full or to a file that cannot be opened, or that sends what such a file holds: the bytes of
// the reply.
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>

#include "fuzz/target.h"
#include "orn/support.h"
#include "tests/library/calls.h"
#include "tests/library/scripted_connection.h"

namespace {

std::string_view unread;
int handle = 0;

constexpr char kPattern = '\x5a';
constexpr std::size_t kTranIdDigits = 4;

// Every line of the trace is harmless to whoever reads it.
void check_line(void *, const char *line) {
  for (; *line != '\0'; ++line) fuzz::require(*line >= 0x20 && *line <= 0x7e, "the trace is printable");
}

using FileCall = std::function<int(const CertificatePaths &, const char *path)>;

constexpr const char *kHost = "kms.example";
constexpr uint32_t kPort = 5696;

// The calls that have a file in the place of a list or a buffer.
const std::map<std::string_view, FileCall> &file_calls() {
  static const std::map<std::string_view, FileCall> calls = {
      {"1023", [](const CertificatePaths &p,
                  const char *path) { return qImportSymKey(&p, kHost, kPort, "K1", "Cert1", path, nullptr); }},
      {"1025", [](const CertificatePaths &p,
                  const char *path) { return qExportSymKey(&p, kHost, kPort, "K1", "I1", "Cert1", path, nullptr); }},
      {"1037",
       [](const CertificatePaths &p, const char *path) {
         uint32_t highest;
         return qRetrieveKeyNameListFiltered(&p, kHost, kPort, path, "CONST", &highest);
       }},
      {"1049",
       [](const CertificatePaths &p, const char *path) { return qGetCertificateList(&p, kHost, kPort, 'C', path); }},
      {"1053",
       [](const CertificatePaths &p, const char *path) {
         return qRetrieveMetadata(&p, kHost, kPort, "a", 1, "b", 2, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "",
                                  0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, path);
       }},
      {"1119", [](const CertificatePaths &p, const char *path) { return qGetPrivateKeyList(&p, kHost, kPort, path); }},
      {"1137",
       [](const CertificatePaths &p, const char *path) {
         char app[5], core[9], disk[9], voltage[9], battery[3], fan[5], temperature[9];
         return qGetSystemStatus(&p, kHost, kPort, app, core, disk, voltage, battery, fan, temperature, path);
       }},
      {"1139", [](const CertificatePaths &p,
                  const char *path) { return qImportCertificate(&p, kHost, kPort, path, "Cert1", 1); }},
      {"1143",
       [](const CertificatePaths &p, const char *path) { return qImportPrivateKey(&p, kHost, kPort, path, "Key1"); }},
      {"1153", [](const CertificatePaths &p,
                  const char *path) { return qExportCertificate(&p, kHost, kPort, "Cert1", 'C', path); }},
  };
  return calls;
}

// Empty for no file.
std::string file_for(char how) {
  switch (how) {
    case 'F':
      return fuzz::scratch().write("file", unread);
    case 'D':
      return "/dev/full";
    case 'N':
      return "/nowhere/file";
    default:
      return {};
  }
}

// Makes the call with outputs full of a pattern and looks at what a failure leaves of it.
int check_call(const CallCase &call, const CertificatePaths &paths) {
  const Outputs outputs = outputs_of(call);
  for (const std::span<char> output : outputs.buffers) std::ranges::fill(output, kPattern);
  list_of_calls().elements.clear();
  const int status = call.call(paths);
  if (outputs.hold_reply(status)) return 0;
  const char left = outputs.zeroed_first ? '\0' : kPattern;
  for (const std::span<char> output : outputs.buffers)
    fuzz::require(std::ranges::count(output, left) == std::ssize(output) || call.tran_id == "2001",
                  "a failure leaves its outputs alone");
  return 0;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  // Some calls tell the terminal something.
  return std::freopen("/dev/null", "w", stdout) == nullptr ? 1 : 0;
}

FUZZ_TARGET(input) {
  static CertificatePaths paths = {};
  if (input.size() <= kTranIdDigits) return -1;
  TraceToCallback(check_line, nullptr);
  const std::string_view tran_id = input.substr(0, kTranIdDigits);
  unread = input.substr(kTranIdDigits + 1);
  const std::string file = file_for(input[kTranIdDigits]);
  if (!file.empty()) {
    const auto call = file_calls().find(tran_id);
    if (call == file_calls().end()) return -1;
    call->second(paths, file.c_str());
    return 0;
  }
  const auto call = std::ranges::find(all_calls(), tran_id, &CallCase::tran_id);
  return call == all_calls().end() ? -1 : check_call(*call, paths);
}

// ---- The connection layer, which plays the input ----

int SetupConnection(void **phTls, void **phTlsAux, void **phTlsRead, const char *, const char *, int, const char *,
                    const char *, const char *, int) {
  *phTls = *phTlsAux = *phTlsRead = &handle;
  return 0;
}

int TLSWrite(void *, const void *, int) {
  return 0;
}

int TLSRead(void *, void *, void *buffer, int count, int, int *bytesRead) {
  fuzz::require(count >= 0, "no negative length reaches the connection layer");
  const std::size_t arrived = std::min(unread.size(), static_cast<std::size_t>(count));
  std::memcpy(buffer, unread.data(), arrived);
  unread.remove_prefix(arrived);
  *bytesRead = static_cast<int>(arrived);
  return *bytesRead == count ? 0 : CONN_ERR_CLOSED;
}

int TLSTeardown(void *, void *, void *) {
  return 0;
}

int ll_append(LinkedList *list, const void *element) {
  list->elements.assign(1, {static_cast<const char *>(element), list->element_size});
  return 0;
}

size_t ll_get_element_size(const LinkedList *list) {
  return list->element_size;
}
