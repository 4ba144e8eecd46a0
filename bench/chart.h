// The calls as a bar chart.
#pragma once

#include <string>

#include "bench/report.h"

namespace bench {

// An SVG picture: client processor time of a call, the library's beside the bare loop's.
std::string chart_of(const Results &results);

}  // namespace bench
