#include "veskd/dates.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>

#include "orn/vesk/wire/text.h"

namespace veskd {
namespace {

std::tm now_utc() {
  return fmt::gmtime(std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()));
}

}  // namespace

std::string today() {
  return fmt::format("{:%Y%m%d}", now_utc());
}

std::string timestamp() {
  return fmt::format("{:%Y%m%dT%H%M%S}", now_utc());
}

bool is_date(std::string_view text) {
  if (text.size() != kNoDate.size()) return false;
  if (!std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) return false;
  using namespace std::chrono;
  const year_month_day date(year(vesk::wire::to_int(text.substr(0, 4))),
                            month(static_cast<unsigned>(vesk::wire::to_int(text.substr(4, 2)))),
                            day(static_cast<unsigned>(vesk::wire::to_int(text.substr(6, 2)))));
  return date.ok() && date.year() >= year(1);
}

bool is_date_or_none(std::string_view text) {
  return text == kNoDate || is_date(text);
}

}  // namespace veskd
