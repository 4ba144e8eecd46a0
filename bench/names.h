// Listing all key names into a file, against a bare loop that reads the same bytes from the same server and writes them
// to a file.
#pragma once

#include <string>
#include <vector>

#include "bench/clocks.h"
#include "bench/server.h"

namespace bench {

struct ListFigures {
  std::vector<double> microseconds;        // of the client's processor time for one name
  std::vector<double> clock_microseconds;  // for one name
};

struct NameFigures {
  std::size_t few;
  std::size_t many;
  ListFigures library;  // of the many
  ListFigures bare;
  long memory_growth;  // of the process's peak, from the listing of few names to that of many, in kB
};

// The first thing that is measured: later on the peak is that of other work. The file is overwritten.
NameFigures measure_names(const Server &with_few, const Server &with_many, const std::string &file, int rounds);

}  // namespace bench
