#include "vesk/validity.h"

#include <fmt/format.h>

#include <ctime>

namespace command {

int days_until(const ASN1_TIME *time) {
  int days = 0;
  int seconds = 0;
  if (ASN1_TIME_diff(&days, &seconds, nullptr, time) != 1) return 0;
  return days;
}

bool has_passed(const ASN1_TIME *time) {
  return X509_cmp_current_time(time) < 0;
}

std::string date_of(const ASN1_TIME *time) {
  tm utc{};
  if (ASN1_TIME_to_tm(time, &utc) != 1) return "a date that cannot be read";
  return fmt::format("{:04}-{:02}-{:02}", utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday);
}

std::string days_text(int days) {
  return fmt::format("{} {}", days, days == 1 ? "day" : "days");
}

}  // namespace command
