#include "vesk/suggestion.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>
#include <utility>

#include "vesk/text.h"

namespace command {
namespace {

// How many letters must be left out, put in, exchanged for another or swapped with their neighbour, no letter twice, to
// make one word of the other.
std::size_t distance(const std::string &from, const std::string &to) {
  using Row = std::vector<std::size_t>;
  Row before_last;
  Row last(to.size() + 1);
  std::iota(last.begin(), last.end(), 0);
  for (std::size_t i = 1; i <= from.size(); ++i) {
    Row row(to.size() + 1, i);
    for (std::size_t j = 1; j <= to.size(); ++j) {
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (from[i - 1] == to[j - 1] ? 0 : 1)});
      const bool is_swap = i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1];
      if (is_swap) row[j] = std::min(row[j], before_last[j - 2] + 1);
    }
    before_last = std::exchange(last, std::move(row));
  }
  return last.back();
}

// A third of the letters may be wrong: of "lst" one, of "certifcates" three. One letter alone is near to nothing.
std::size_t most_mistakes(const std::string &given) {
  if (given.size() < 2) return 0;
  return std::max<std::size_t>(given.size() / 3, 1);
}

}  // namespace

std::optional<std::string> nearest(const std::string &given, const std::vector<std::string> &candidates) {
  std::optional<std::string> found;
  std::size_t least = most_mistakes(given) + 1;
  for (const std::string &candidate : candidates) {
    // The length alone tells of a great distance, which need not be worked out for a word of any length.
    if (candidate.size() >= given.size() + least || given.size() >= candidate.size() + least) continue;
    const std::size_t mistakes = distance(given, candidate);
    if (mistakes >= least) continue;
    least = mistakes;
    found = candidate;
  }
  return found;
}

std::string did_you_mean(const std::string &proposal) {
  return fmt::format("did you mean '{}'?", printable(proposal));
}

}  // namespace command
