#include "bench/system_calls.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace bench {

namespace {

constexpr int kCalls = 200;

// The system calls of a process that makes a number of calls; empty if it could not be traced.
std::map<std::string, double> counted(Client client, Manner manner, const Server &server, const std::string &work,
                                      int calls) {
  const std::string log = work + "/system-calls";
  const std::string command =
      fmt::format("strace -f -qq -c -U name,calls -o {} /proc/{}/exe call '{}' '{}' {} {} 2> /dev/null", log, getpid(),
                  name_of(client), name_of(manner), calls, server.directory);
  if (std::system(command.c_str()) != 0) return {};
  std::map<std::string, double> counts;
  std::ifstream lines(log);
  std::string name;
  double count = 0;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    if (words >> name >> count) counts[name] = count;
  }
  counts.erase("total");
  return counts;
}

}  // namespace

std::optional<std::vector<CallSystemCalls>> count_system_calls(const Server &server, const std::string &work) {
  std::vector<CallSystemCalls> all;
  for (const Manner manner : kManners) {
    for (const Client client : kClients) {
      // What a process does once is in both.
      auto once = counted(client, manner, server, work, kCalls);
      const auto twice = counted(client, manner, server, work, 2 * kCalls);
      if (once.empty() || twice.empty()) return std::nullopt;
      CallSystemCalls &calls = all.emplace_back(CallSystemCalls{client, manner, 0, {}});
      for (const auto &[name, count] : twice) {
        const double in_call = (count - once[name]) / kCalls;
        calls.in_call += in_call;
        if (std::abs(in_call) >= 0.01) calls.by_name[name] = in_call;
      }
    }
  }
  return all;
}

}  // namespace bench
