#include "veskd/metrics.h"

#include <fmt/format.h>
#include <prometheus/counter.h>
#include <prometheus/gauge.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>
#include <prometheus/text_serializer.h>

#include <iterator>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <utility>

namespace veskd {
namespace {

using prometheus::Counter;
using prometheus::Gauge;
using prometheus::Histogram;

// Seconds, from a noop between neighbours to a batch of many keys.
const Histogram::BucketBoundaries kBuckets = {0.0005, 0.001, 0.0025, 0.005, 0.01, 0.025, 0.05,
                                              0.1,    0.25,  0.5,    1,     2.5,  10,    30};

template <typename Builder>
auto &family(prometheus::Registry &registry, Builder build, const MetricRow &metric) {
  return build().Name(metric.name).Help(metric.help).Register(registry);
}

}  // namespace

struct Metrics::Families {
  struct Operation {
    Counter &count;
    Histogram &seconds;
  };

  // A transaction and return code that were counted before take a lock that readers share.
  const Operation &operation(std::string_view function, ReturnCode code) {
    const std::pair key(function, code);
    {
      const std::shared_lock lock(mutex);
      if (const auto found = known.find(key); found != known.end()) return found->second;
    }
    const std::string transaction(function);
    Counter &count = operations.Add(
        {{kOperations.labels[0], transaction}, {kOperations.labels[1], fmt::format("{:04}", static_cast<int>(code))}});
    Histogram &duration = seconds.Add({{kOperationSeconds.labels[0], transaction}}, kBuckets);
    const std::unique_lock lock(mutex);
    return known.try_emplace(key, Operation{count, duration}).first->second;
  }

  prometheus::Registry registry;
  prometheus::Family<Counter> &operations = family(registry, prometheus::BuildCounter, kOperations);
  prometheus::Family<Histogram> &seconds = family(registry, prometheus::BuildHistogram, kOperationSeconds);
  prometheus::Family<Counter> &handshakes = family(registry, prometheus::BuildCounter, kHandshakes);
  Counter &full = handshakes.Add({{kHandshakes.labels[0], "full"}});
  Counter &resumed = handshakes.Add({{kHandshakes.labels[0], "resumed"}});
  Counter &failed = handshakes.Add({{kHandshakes.labels[0], "failed"}});
  Gauge &connections = family(registry, prometheus::BuildGauge, kConnections).Add({});

  std::shared_mutex mutex;
  std::map<std::pair<std::string_view, ReturnCode>, const Operation> known;
};

Metrics::Metrics() : families_(std::make_unique<Families>()) {}

Metrics::~Metrics() = default;

void Metrics::count_operation(std::string_view function, ReturnCode code, std::chrono::nanoseconds duration) {
  const Families::Operation &operation = families_->operation(function, code);
  operation.count.Increment();
  operation.seconds.Observe(std::chrono::duration<double>(duration).count());
}

void Metrics::count_handshake(Handshake kind) {
  switch (kind) {
    case Handshake::kFull:
      return families_->full.Increment();
    case Handshake::kResumed:
      return families_->resumed.Increment();
    case Handshake::kFailed:
      return families_->failed.Increment();
  }
}

void Metrics::begin_connection() {
  families_->connections.Increment();
}

void Metrics::end_connection() {
  families_->connections.Decrement();
}

// What is measured has a registry of its own each time, so that a mirror that was removed is not told of any more.
std::string Metrics::text(const std::vector<Measurement> &measurements) const {
  prometheus::Registry measured(prometheus::Registry::InsertBehavior::Merge);
  for (const auto &[metric, value, label] : measurements) {
    prometheus::Labels labels;
    if (metric.labels[0] != nullptr) labels.emplace(metric.labels[0], label);
    family(measured, prometheus::BuildGauge, metric).Add(labels).Set(value);
  }
  std::vector<prometheus::MetricFamily> families = families_->registry.Collect();
  std::vector<prometheus::MetricFamily> more = measured.Collect();
  std::move(more.begin(), more.end(), std::back_inserter(families));
  return prometheus::TextSerializer().Serialize(families);
}

}  // namespace veskd
