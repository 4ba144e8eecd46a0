// What a server's log tells of the requests that it answers: the file `log` of its directory.
#pragma once

#include <fstream>
#include <string>
#include <vector>

#include "bench/server.h"

namespace bench {

class ServerLog {
 public:
  // What is told from now on.
  explicit ServerLog(const Server &server);

  // The microseconds between the arrival of each request of that transaction and the departure of its reply.
  std::vector<double> durations_of(const std::string &transaction) const;

 private:
  const std::string path_;
  const std::streamoff begin_;
};

}  // namespace bench
