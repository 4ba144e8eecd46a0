// Calls per second with 1, 8 and 64 clients, and what share of a next-key call is TLS, our own code and the store.
//
// The rounds of all measurements are interleaved and their medians compared, because machines are noisy: read the
// ratios, not the numbers.
#include <benchmark/benchmark.h>
#include <openssl/crypto.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "bench/bare_client.h"
#include "bench/server.h"
#include "orn/support.h"

namespace {

using bench::server;

constexpr const char *kTemplate = "BENCHMARK000001";

void fail(benchmark::State &state, const char *what, int status) {
  state.SkipWithError((std::string(what) + ": " + StatusName(status) + " " + std::to_string(status)).c_str());
}

void Bare(benchmark::State &state) {
  for (auto _ : state) {
    bench::BareConnection connection;
    connection.write("000041043");
    char reply[13];
    for (std::size_t got = 0; got < sizeof reply;) {
      const std::size_t more = connection.read(std::span(reply).subspan(got));
      if (more == 0) return state.SkipWithError("the server closed");
      got += more;
    }
  }
}

void AdminNoop(benchmark::State &state) {
  for (auto _ : state) {
    const int status = qAdminNoop(&server().paths, server().host.c_str(), server().port);
    if (status != 0) return fail(state, "qAdminNoop", status);
  }
}

void RetrieveKey(benchmark::State &state) {
  for (auto _ : state) {
    KeyRecord record;
    const int status = qRetrieveKey(&server().paths, server().host.c_str(), server().port, "BENCHMARK", "", &record);
    OPENSSL_cleanse(&record, sizeof record);
    if (status != 0) return fail(state, "qRetrieveKey", status);
  }
}

void NextKey(benchmark::State &state) {
  for (auto _ : state) {
    char name[41];
    unsigned char value[32];
    uint32_t increment;
    const int status =
        qGetNextKey(&server().paths, server().host.c_str(), server().port, kTemplate, name, value, &increment);
    OPENSSL_cleanse(value, sizeof value);
    if (status != 0) return fail(state, "qGetNextKey", status);
  }
}

void clients(benchmark::internal::Benchmark *made) {
  for (const int threads : {1, 8, 64}) made->Threads(threads);
  made->UseRealTime()->MeasureProcessCPUTime();
}

BENCHMARK(Bare)->Apply(clients);
BENCHMARK(AdminNoop)->Apply(clients);
BENCHMARK(RetrieveKey)->Apply(clients);
BENCHMARK(NextKey)->Apply(clients);

struct Measurement {
  std::vector<double> seconds;      // of one call, by the clock, over all clients
  std::vector<double> cpu_seconds;  // of the client process, for one call
};

double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

// Keeps every round for the summary.
class Rounds : public benchmark::ConsoleReporter {
 public:
  Rounds() : ConsoleReporter(OO_None) {}

  bool ReportContext(const Context &) override { return true; }

  void ReportRuns(const std::vector<Run> &runs) override {
    for (const Run &run : runs) {
      if (run.error_occurred) {
        std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
        failed_ = true;
      }
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      const double calls = static_cast<double>(run.iterations);
      Measurement &measurement = measurements_[{run.run_name.function_name, static_cast<int>(run.threads)}];
      measurement.seconds.push_back(run.real_accumulated_time / calls);
      measurement.cpu_seconds.push_back(run.cpu_accumulated_time / calls);
    }
  }

  bool summarize() const {
    if (failed_) return false;
    std::printf("%-14s %8s %12s %16s %22s\n", "call", "clients", "calls/s", "of a bare loop", "client CPU, of bare");
    for (const auto &[key, measurement] : measurements_) {
      const auto &[name, threads] = key;
      const Measurement &bare = measurements_.at({"Bare", threads});
      std::printf("%-14s %8d %12.0f %15.2fx %21.2fx\n", name.c_str(), threads, 1 / median(measurement.seconds),
                  median(bare.seconds) / median(measurement.seconds),
                  median(measurement.cpu_seconds) / median(bare.cpu_seconds));
    }
    std::printf("\nshare of a next-key call, by the clock:\n%-10s %22s %18s %22s\n", "clients", "TLS and network",
                "our client code", "store and handler");
    for (const int threads : {1, 8, 64}) {
      const double bare = seconds("Bare", threads), noop = seconds("AdminNoop", threads),
                   next = seconds("NextKey", threads);
      std::printf("%-10d %21.0f%% %17.0f%% %21.0f%%\n", threads, 100 * bare / next, 100 * (noop - bare) / next,
                  100 * (next - noop) / next);
    }
    return true;
  }

 private:
  double seconds(const char *name, int threads) const { return median(measurements_.at({name, threads}).seconds); }

  std::map<std::pair<std::string, int>, Measurement> measurements_;
  bool failed_ = false;
};

}  // namespace

int main(int argc, char **argv) {
  std::vector<char *> arguments(argv, argv + argc);
  std::string defaults[] = {"--benchmark_repetitions=7", "--benchmark_enable_random_interleaving=true",
                            "--benchmark_min_time=0.2"};
  arguments.insert(arguments.begin() + 1, {defaults[0].data(), defaults[1].data(), defaults[2].data()});
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;
  Rounds rounds;
  benchmark::RunSpecifiedBenchmarks(&rounds);
  return rounds.summarize() ? 0 : 1;
}
