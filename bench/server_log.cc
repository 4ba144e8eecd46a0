#include "bench/server_log.h"

#include <regex>

namespace bench {

ServerLog::ServerLog(const Server &server)
    : path_(server.directory + "/log"), begin_(std::ifstream(path_, std::ios::ate).tellg()) {}

std::vector<double> ServerLog::durations_of(const std::string &transaction) const {
  const std::string words = " " + transaction + " 0000 ";
  const std::regex end(" ([0-9]+)us$");
  std::ifstream lines(path_);
  lines.seekg(begin_);
  std::vector<double> durations;
  std::smatch found;
  for (std::string line; std::getline(lines, line);)
    if (line.find(words) != std::string::npos && std::regex_search(line, found, end))
      durations.push_back(std::stod(found[1]));
  require(!durations.empty(), "reading durations from the server's log");
  return durations;
}

}  // namespace bench
