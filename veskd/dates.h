// Dates and times as the protocol writes them, in UTC.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace veskd {

inline constexpr std::string_view kNoDate = "00000000";

// YYYYMMDD
std::string today();

// YYYYMMDDThhmmss
std::string timestamp();

// Whether the text is a day of the calendar as YYYYMMDD.
bool is_date(std::string_view text);
bool is_date_or_none(std::string_view text);

}  // namespace veskd
