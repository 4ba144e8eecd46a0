// What the server counts and measures, in the text form that monitoring systems read. Labels name transactions, return
// codes, mirrors and certificates, never a key.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "veskd/return_codes.h"

namespace veskd {

struct MetricRow {
  const char *name;
  const char *type;
  std::array<const char *, 2> labels;  // null where there is none
  const char *help;
};

inline constexpr MetricRow kOperations{
    "veskd_operations_total", "counter", {"transaction", "return_code"}, "Requests that were answered."};
inline constexpr MetricRow kOperationSeconds{
    "veskd_operation_seconds", "histogram", {"transaction"}, "Time from a request's header to the end of its reply."};
inline constexpr MetricRow kHandshakes{
    "veskd_handshakes_total", "counter", {"kind"}, "TLS handshakes with clients: full, resumed or failed."};
inline constexpr MetricRow kConnections{"veskd_connections", "gauge", {}, "Connections of clients that are open."};
inline constexpr MetricRow kWaitingChanges{
    "veskd_waiting_changes", "gauge", {}, "Changes that wait for the store's writer."};
inline constexpr MetricRow kLists{"veskd_lists", "gauge", {}, "Lists that are being told."};
inline constexpr MetricRow kStoreReadable{
    "veskd_store_readable", "gauge", {}, "1 when the store could be read for these metrics, 0 when not."};
inline constexpr MetricRow kMirrorQueue{
    "veskd_mirror_queue", "gauge", {"mirror"}, "Changes that have yet to be delivered to the mirror."};
inline constexpr MetricRow kMirrorUp{
    "veskd_mirror_up", "gauge", {"mirror"}, "1 when the last exchange with the mirror succeeded, 0 when not."};
inline constexpr MetricRow kCertificateDaysLeft{"veskd_certificate_days_left",
                                                "gauge",
                                                {"certificate"},
                                                "Days until the certificate runs out; below zero when it has: server, "
                                                "client authority or mirror."};

inline constexpr std::array kMetricRows = {
    kOperations, kOperationSeconds, kHandshakes,  kConnections, kWaitingChanges,
    kLists,      kStoreReadable,    kMirrorQueue, kMirrorUp,    kCertificateDaysLeft};

// A value of the moment at which the metrics are read.
struct Measurement {
  const MetricRow &metric;
  double value;
  std::string label;  // of the metric's one label
};

enum class Handshake { kFull, kResumed, kFailed };

// Every function may be called from any thread. Counting costs an atomic addition or two, or a lock as short.
class Metrics {
 public:
  Metrics();
  ~Metrics();
  Metrics(const Metrics &) = delete;
  Metrics &operator=(const Metrics &) = delete;

  // The function is a literal, such as those of the table of transactions.
  void count_operation(std::string_view function, ReturnCode code, std::chrono::nanoseconds duration);
  void count_handshake(Handshake kind);
  void begin_connection();
  void end_connection();

  // All that was counted, and these.
  std::string text(const std::vector<Measurement> &measurements) const;

 private:
  struct Families;
  const std::unique_ptr<Families> families_;
};

}  // namespace veskd
