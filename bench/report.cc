#include "bench/report.h"

#include <fmt/format.h>
#include <openssl/crypto.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <thread>

namespace bench {

namespace {

using Json = nlohmann::ordered_json;

Spread processor_ratio(const CallCell &cell) {
  return spread_of_ratios(cell.library.microseconds, cell.bare.microseconds);
}

Spread rate_ratio(const CallCell &cell) {
  return spread_of_ratios(cell.library.per_second, cell.bare.per_second);
}

double median(const std::vector<double> &values) {
  return spread_of(values).median;
}

double median_processor(const Results &results, Manner manner, int threads) {
  for (const CallCell &cell : results.calls)
    if (cell.manner == manner && cell.threads == threads) return median(cell.library.microseconds);
  return 0;
}

double trace_part(const Results &results) {
  return results.trace.microseconds() / median_processor(results, Manner::kResumed, 1);
}

std::string text_of(const Spread &spread) {
  return fmt::format("{:.3f} ({:.3f}-{:.3f})", spread.median, spread.low, spread.high);
}

std::string subject_of(const CallCell &cell) {
  return fmt::format("{} {}, {} {}", cell.server->certificates, name_of(cell.manner), cell.threads,
                     cell.threads == 1 ? "thread" : "threads");
}

void print_calls(const Results &results) {
  fmt::print("qRetrieveKey: medians of {} interleaved rounds; of ratios, the quartiles as well\n\n", results.rounds);
  fmt::print("{:<6} {:<10} {:>7} | {:>11} {:>9}  {:<22} | {:>9} {:>9}  {:<22}\n", "keys", "manner", "threads",
             "CPU us/call", "bare loop", "ratio", "calls/s", "bare loop", "ratio");
  for (const CallCell &cell : results.calls)
    fmt::print("{:<6} {:<10} {:>7} | {:>11.1f} {:>9.1f}  {:<22} | {:>9.0f} {:>9.0f}  {:<22}\n",
               cell.server->certificates, name_of(cell.manner), cell.threads, median(cell.library.microseconds),
               median(cell.bare.microseconds), text_of(processor_ratio(cell)), median(cell.library.per_second),
               median(cell.bare.per_second), text_of(rate_ratio(cell)));
  fmt::print("\nresumed by host name: CPU {} of a call by address, calls/s {}\n",
             text_of(spread_of_ratios(results.by_host_name.microseconds, results.by_address.microseconds)),
             text_of(spread_of_ratios(results.by_host_name.per_second, results.by_address.per_second)));
}

void print_names(const NameFigures &names) {
  fmt::print("\n{} key names into a file: CPU {:.3f} us a name, {} of the bare loop; by the clock {:.3f} us, {}\n",
             names.many, median(names.library.microseconds),
             text_of(spread_of_ratios(names.library.microseconds, names.bare.microseconds)),
             median(names.library.clock_microseconds),
             text_of(spread_of_ratios(names.library.clock_microseconds, names.bare.clock_microseconds)));
  fmt::print("peak memory: {} kB more than with {} names\n", names.memory_growth, names.few);
}

void print_allocations(const Results &results) {
  fmt::print("\nallocations a call (of them not OpenSSL's)\n{:<10} {:<10} {:>16} {:>20}\n", "manner", "client",
             "whole call", "exchange alone");
  for (const CallAllocations &counts : results.allocations)
    fmt::print("{:<10} {:<10} {:>16} {:>20}\n", name_of(counts.manner), name_of(counts.client),
               fmt::format("{:.1f} ({:.1f})", counts.in_call, counts.in_call_own),
               fmt::format("{:.1f} ({:.1f})", counts.in_exchange, counts.in_exchange_own));
}

void print_system_calls(const Results &results) {
  if (!results.system_calls) {
    fmt::print("\nsystem calls: not counted, strace is not there or may not trace\n");
    return;
  }
  fmt::print("\nsystem calls a call\n");
  for (const CallSystemCalls &calls : *results.system_calls) {
    fmt::print("{:<10} {:<10} {:>6.1f}:", name_of(calls.manner), name_of(calls.client), calls.in_call);
    for (const auto &[name, count] : calls.by_name) fmt::print(" {} {:.2g}", name, count);
    fmt::print("\n");
  }
}

void print_next_keys(const Results &results) {
  const auto percent_of = [](const Spread &share) {
    return fmt::format("{:.0f} ({:.0f}-{:.0f})", 100 * share.median, 100 * share.low, 100 * share.high);
  };
  fmt::print("\nnext keys: medians and quartiles, and what part of a client's time goes to what\n");
  fmt::print("{:>7} | {:<18} | {:<12} {:<12} {:<12}\n", "clients", "keys/s", "TLS %", "store %", "our own %");
  for (const NextKeyFigures &figures : results.next_keys) {
    const Spread rate = spread_of(figures.next_key.per_second);
    const TimeShares shares = shares_of(figures);
    fmt::print("{:>7} | {:<18} | {:<12} {:<12} {:<12}\n", figures.clients,
               fmt::format("{:.0f} ({:.0f}-{:.0f})", rate.median, rate.low, rate.high), percent_of(shares.tls),
               percent_of(shares.store), percent_of(shares.own));
  }
}

void print_rest(const Results &results) {
  const TraceCost &trace = results.trace;
  fmt::print("\ntrace, off: {} lines of {:.2f} ns and {} dumps of {:.2f} ns are {:.3f} % of a resumed call's CPU\n",
             trace.lines, trace.line_nanoseconds, trace.dumps, trace.dump_nanoseconds, 100 * trace_part(results));
  fmt::print(
      "server, from request to reply: {:.0f} us without and {:.0f} us with a store read, which takes {:.0f} us\n",
      results.server_times.noop.median, results.server_times.retrieve_key.median, results.server_times.store_read());
}

void print_goals(const Results &results) {
  const std::vector<Goal> goals = goals_of(results);
  const auto num_met = std::count_if(goals.begin(), goals.end(), [](const Goal &goal) { return goal.is_met(); });
  fmt::print("\ngoals: {} of {} met\n", num_met, goals.size());
  for (const Goal &goal : goals)
    fmt::print("{:<7} {:<70} {:>9.4g}, at {} {:.4g}\n", goal.is_met() ? "met" : "MISSED", goal.subject, goal.value,
               goal.at_least ? "least" : "most", goal.limit);
}

Json json_of(const Spread &spread) {
  return {{"median", spread.median}, {"lower_quartile", spread.low}, {"upper_quartile", spread.high}};
}

// What both clients did, side by side, and the ratio of the two.
Json json_of_pair(const std::vector<double> &library, const std::vector<double> &bare) {
  return {{"library", json_of(spread_of(library))},
          {"bare", json_of(spread_of(bare))},
          {"ratio", json_of(spread_of_ratios(library, bare))}};
}

Json json_of_calls(const Results &results) {
  Json calls = Json::array();
  for (const CallCell &cell : results.calls)
    calls.push_back({{"keys", cell.server->certificates},
                     {"manner", name_of(cell.manner)},
                     {"threads", cell.threads},
                     {"cpu_us", json_of_pair(cell.library.microseconds, cell.bare.microseconds)},
                     {"per_second", json_of_pair(cell.library.per_second, cell.bare.per_second)}});
  return calls;
}

Json json_of_names(const NameFigures &names) {
  return {{"names", names.many},
          {"cpu_us", json_of_pair(names.library.microseconds, names.bare.microseconds)},
          {"clock_us", json_of_pair(names.library.clock_microseconds, names.bare.clock_microseconds)},
          {"few_names", names.few},
          {"memory_growth_kb", names.memory_growth}};
}

Json json_of_allocations(const Results &results) {
  Json all = Json::array();
  for (const CallAllocations &counts : results.allocations)
    all.push_back({{"manner", name_of(counts.manner)},
                   {"client", name_of(counts.client)},
                   {"call", counts.in_call},
                   {"call_own", counts.in_call_own},
                   {"exchange", counts.in_exchange},
                   {"exchange_own", counts.in_exchange_own}});
  return all;
}

Json json_of_system_calls(const Results &results) {
  if (!results.system_calls) return nullptr;
  Json all = Json::array();
  for (const CallSystemCalls &calls : *results.system_calls)
    all.push_back({{"manner", name_of(calls.manner)},
                   {"client", name_of(calls.client)},
                   {"call", calls.in_call},
                   {"by_name", calls.by_name}});
  return all;
}

Json json_of_next_keys(const Results &results) {
  Json all = Json::array();
  for (const NextKeyFigures &figures : results.next_keys) {
    const TimeShares shares = shares_of(figures);
    all.push_back(
        {{"clients", figures.clients},
         {"per_second", json_of(spread_of(figures.next_key.per_second))},
         {"share", {{"tls", json_of(shares.tls)}, {"store", json_of(shares.store)}, {"own", json_of(shares.own)}}}});
  }
  return all;
}

Json json_of_goals(const Results &results) {
  Json goals = Json::array();
  for (const Goal &goal : goals_of(results))
    goals.push_back({{"subject", goal.subject},
                     {"value", goal.value},
                     {goal.at_least ? "at_least" : "at_most", goal.limit},
                     {"met", goal.is_met()}});
  return goals;
}

}  // namespace

Spread part_of_from_files(const Results &results, const CallCell &resumed) {
  const CallCell &from_files = cell_in(results.calls, resumed, Manner::kFromFiles);
  return spread_of_ratios(resumed.library.microseconds, from_files.bare.microseconds);
}

std::vector<Goal> goals_of(const Results &results) {
  constexpr double kMostMicrosecondsOfStoreRead = 100;
  std::vector<Goal> goals;
  for (const CallCell &cell : results.calls)
    goals.push_back({subject_of(cell) + ": CPU, of the bare loop", processor_ratio(cell).median, 1.05});
  for (const CallCell &cell : results.calls)
    goals.push_back({subject_of(cell) + ": calls/s, of the bare loop", rate_ratio(cell).median, 0.95, true});
  for (const CallCell &cell : results.calls)
    if (cell.manner == Manner::kResumed)
      goals.push_back(
          {subject_of(cell) + ": CPU, of the bare loop from files", part_of_from_files(results, cell).median, 1.0 / 6});
  const NameFigures &names = results.names;
  goals.push_back({"names: CPU, of the bare loop",
                   spread_of_ratios(names.library.microseconds, names.bare.microseconds).median, 1.3});
  goals.push_back({"names: growth of peak memory, kB", static_cast<double>(names.memory_growth), 1000});
  for (const CallAllocations &counts : results.allocations)
    if (counts.client == Client::kLibrary)
      goals.push_back({fmt::format("{}: allocations of our own in the exchange", name_of(counts.manner)),
                       counts.in_exchange_own, 0});
  goals.push_back({"trace, off: of a resumed call's CPU", trace_part(results), 0.01});
  goals.push_back({"store read of one key, us", results.server_times.store_read(), kMostMicrosecondsOfStoreRead});
  return goals;
}

void print_table(const Results &results) {
  print_calls(results);
  print_names(results.names);
  print_next_keys(results);
  print_allocations(results);
  print_system_calls(results);
  print_rest(results);
  print_goals(results);
}

Json to_json(const Results &results) {
  const TraceCost &trace = results.trace;
  const ServerTimes &times = results.server_times;
  return {
      {"machine",
       {{"processors", std::thread::hardware_concurrency()}, {"openssl", OpenSSL_version(OPENSSL_VERSION_STRING)}}},
      {"rounds", results.rounds},
      {"calls", json_of_calls(results)},
      {"host_name",
       {{"cpu_ratio", json_of(spread_of_ratios(results.by_host_name.microseconds, results.by_address.microseconds))},
        {"per_second_ratio",
         json_of(spread_of_ratios(results.by_host_name.per_second, results.by_address.per_second))}}},
      {"names", json_of_names(results.names)},
      {"next_keys", json_of_next_keys(results)},
      {"allocations", json_of_allocations(results)},
      {"system_calls", json_of_system_calls(results)},
      {"trace_off",
       {{"lines", trace.lines},
        {"line_ns", trace.line_nanoseconds},
        {"dumps", trace.dumps},
        {"dump_ns", trace.dump_nanoseconds},
        {"part_of_call", trace_part(results)}}},
      {"server_us",
       {{"noop", json_of(times.noop)},
        {"retrieve_key", json_of(times.retrieve_key)},
        {"store_read", times.store_read()}}},
      {"goals", json_of_goals(results)}};
}

}  // namespace bench
