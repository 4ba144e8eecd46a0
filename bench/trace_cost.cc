#include "bench/trace_cost.h"

#include <memory>
#include <string_view>

#include "bench/callers.h"
#include "bench/clocks.h"
#include "orn/support.h"

namespace bench {

namespace {

struct Heard {
  int lines = 0;
  int dumps = 0;
  bool is_resumed = false;
};

// What begins with blanks goes on with the line before it; a dump tells how many bytes it has.
void hear(void *context, const char *text) {
  Heard &heard = *static_cast<Heard *>(context);
  const std::string_view line(text);
  if (line.starts_with("    ")) return;
  ++(line.ends_with(" bytes)") ? heard.dumps : heard.lines);
  if (line.ends_with(", resumed")) heard.is_resumed = true;
}

Heard hear_a_resumed_call(const Server &server) {
  const std::unique_ptr<Callers> made = callers(Client::kLibrary, Manner::kResumed, server);
  const std::unique_ptr<Caller> caller = made->make(0);
  caller->call();
  Heard heard;
  TraceToCallback(hear, &heard);
  caller->call();
  TraceOff();
  require(heard.is_resumed, "the library's resumption");
  return heard;
}

template <typename Work>
double nanoseconds_of(Work work) {
  constexpr int kTimes = 1'000'000;
  std::vector<double> rounds;
  for (int round = 0; round < 7; ++round) {
    const Stopwatch watch;
    for (int i = 0; i < kTimes; ++i) work();
    rounds.push_back(1e9 * watch.read().processor / kTimes);
  }
  return spread_of(rounds).median;
}

}  // namespace

TraceCost measure_trace(const Server &server) {
  const Heard heard = hear_a_resumed_call(server);
  const char bytes[64] = "bytes";
  return {heard.lines, heard.dumps, nanoseconds_of([&] { TraceT(0, "bench", __LINE__, "%s <%s>", "label", bytes); }),
          nanoseconds_of([&] { DumpBuffer(0, "bench", __LINE__, bytes, sizeof bytes, "label"); })};
}

}  // namespace bench
