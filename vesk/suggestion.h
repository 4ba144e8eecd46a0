// What was probably meant by a word that is not known.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace command {

// The candidate that is nearest to what was given, the first of several; none when nothing is near.
std::optional<std::string> nearest(const std::string &given, const std::vector<std::string> &candidates);

// The hint that proposes it.
std::string did_you_mean(const std::string &proposal);

}  // namespace command
