#include "bench/store_read.h"

#include <fstream>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "bench/callers.h"

namespace bench {

namespace {

constexpr int kCalls = 300;

// The durations that the log tells of a transaction from a place in it on.
std::vector<double> durations_of(const std::string &transaction, const std::string &log, std::streamoff from) {
  const std::regex form(" " + transaction + " 0000 .* ([0-9]+)us$");
  std::ifstream lines(log);
  lines.seekg(from);
  std::vector<double> durations;
  std::smatch found;
  for (std::string line; std::getline(lines, line);)
    if (std::regex_search(line, found, form)) durations.push_back(std::stod(found[1]));
  require(!durations.empty(), "reading durations from the server's log");
  return durations;
}

}  // namespace

ServerTimes measure_store_reads(const Server &server) {
  const std::string log = server.directory + "/log";
  const std::unique_ptr<Callers> made = callers(Client::kLibrary, Manner::kResumed, server);
  const std::unique_ptr<Caller> caller = made->make(0);
  const std::streamoff from = std::ifstream(log, std::ios::ate).tellg();
  for (int i = 0; i < kCalls; ++i) {
    require_done(qAdminNoop(&server.paths, server.host.c_str(), server.port), "qAdminNoop");
    caller->call();
  }
  return {spread_of(durations_of("AdminNoop", log, from)), spread_of(durations_of("RetrieveKey", log, from))};
}

}  // namespace bench
