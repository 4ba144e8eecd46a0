#include "veskd/sensors.h"

#include <fmt/format.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <fstream>
#include <sstream>

namespace veskd {
namespace {

namespace fs = std::filesystem;

constexpr std::array kKinds = {"app", "disk", "core", "voltage", "battery", "fan", "temperature"};
constexpr double kMinFreePercent = 5;
constexpr double kMinChargePercent = 20;
constexpr double kMaxTemperature = 90;  // where the machine names no limit of its own
constexpr double kWarmBelowLimit = 10;
constexpr std::size_t kMaxReadings = 1000;

std::optional<double> number_in(std::string_view text) {
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) return std::nullopt;
  return value;
}

// The first word of a file, as the kernel's files have it.
std::string word_in(const fs::path &path) {
  std::ifstream file(path);
  std::string word;
  file >> word;
  return word;
}

std::optional<double> number_in_file(const fs::path &path, double unit) {
  const auto value = number_in(word_in(path));
  return value ? std::optional(*value * unit) : std::nullopt;
}

std::vector<fs::path> sorted_entries(const fs::path &directory) {
  std::vector<fs::path> entries;
  std::error_code error;
  for (fs::directory_iterator at(directory, error), end; !error && at != end; at.increment(error))
    entries.push_back(at->path());
  std::sort(entries.begin(), entries.end());
  return entries;
}

// Names are the kernel's or a driver's; a blank would make another field of the line.
std::string name_of(const std::string &text, const std::string &otherwise) {
  std::string name = text.empty() ? otherwise : text;
  std::replace_if(
      name.begin(), name.end(), [](unsigned char c) { return c <= 0x20 || c >= 0x7f; }, '_');
  return name;
}

void add_disk(const Machine &machine, std::vector<Reading> &readings) {
  struct statvfs status {};
  const bool known = ::statvfs(machine.store_directory.c_str(), &status) == 0;
  const auto percent = [&](auto free, auto all) -> std::optional<double> {
    if (!known) return std::nullopt;
    return all == 0 ? 100.0 : 100.0 * static_cast<double>(free) / static_cast<double>(all);
  };
  readings.push_back({"disk", "free_percent", percent(status.f_bavail, status.f_blocks), kMinFreePercent, kNoLimit});
  readings.push_back(
      {"disk", "free_files_percent", percent(status.f_favail, status.f_files), kMinFreePercent, kNoLimit});
  readings.push_back({"disk", "writable",
                      known ? std::optional((status.f_flag & ST_RDONLY) == 0 ? 1.0 : 0.0) : std::nullopt, 1, kNoLimit});
}

// The first core has no such file where it cannot be switched off.
void add_cores(const Machine &machine, std::vector<Reading> &readings) {
  for (const fs::path &entry : sorted_entries(machine.system / "devices/system/cpu")) {
    const std::string name = entry.filename();
    if (!name.starts_with("cpu") || !number_in(std::string_view(name).substr(3))) continue;
    const bool has_switch = fs::exists(entry / "online");
    readings.push_back({"core", name, has_switch ? number_in_file(entry / "online", 1) : 1.0, 1, kNoLimit});
  }
}

void add_zones(const Machine &machine, std::vector<Reading> &readings) {
  for (const fs::path &zone : sorted_entries(machine.system / "class/thermal")) {
    if (!zone.filename().string().starts_with("thermal_zone")) continue;
    readings.push_back({"temperature", name_of(word_in(zone / "type"), zone.filename()),
                        number_in_file(zone / "temp", 0.001), -kNoLimit, kMaxTemperature});
  }
}

// What the files of a hardware monitor are called, and their unit.
struct MonitorFile {
  std::string_view prefix;
  const char *kind;
  double unit;
  const char *low;
  const char *high;
  double default_high;
};
constexpr std::array kMonitorFiles = {
    MonitorFile{"in", "voltage", 0.001, "_min", "_max", kNoLimit},
    MonitorFile{"fan", "fan", 1, "_min", "_max", kNoLimit},
    MonitorFile{"temp", "temperature", 0.001, "_min", "_crit", kMaxTemperature},
};

void add_monitor(const fs::path &monitor, std::vector<Reading> &readings) {
  const std::string chip = name_of(word_in(monitor / "name"), monitor.filename());
  for (const fs::path &path : sorted_entries(monitor)) {
    const std::string file = path.filename();
    if (!file.ends_with("_input")) continue;
    const std::string channel = file.substr(0, file.size() - std::string_view("_input").size());
    for (const MonitorFile &form : kMonitorFiles) {
      if (!channel.starts_with(form.prefix)) continue;
      readings.push_back({form.kind, fmt::format("{}/{}", chip, channel), number_in_file(path, form.unit),
                          number_in_file(monitor / (channel + form.low), form.unit).value_or(-kNoLimit),
                          number_in_file(monitor / (channel + form.high), form.unit).value_or(form.default_high)});
    }
  }
}

void add_batteries(const Machine &machine, std::vector<Reading> &readings) {
  for (const fs::path &supply : sorted_entries(machine.system / "class/power_supply")) {
    if (word_in(supply / "type") != "Battery") continue;
    readings.push_back({"battery", name_of(supply.filename(), "battery"), number_in_file(supply / "capacity", 1),
                        kMinChargePercent, kNoLimit});
  }
}

char fault_digit(const Reading &reading) {
  if (!reading.value) return '8';
  return reading.is_fault() ? '1' : '0';
}

char temperature_letter(const Reading &reading) {
  if (reading.is_fault()) return fault_digit(reading);
  return *reading.value > reading.high - kWarmBelowLimit ? 'W' : 'N';
}

template <typename StateOf>
std::string states_of(const std::vector<Reading> &readings, std::string_view kind, std::size_t width,
                      StateOf state_of) {
  std::string text;
  for (const Reading &reading : readings) {
    if (reading.kind != kind) continue;
    if (text.size() < width) {
      text += state_of(reading);
    } else if (reading.is_fault()) {
      text.back() = fault_digit(reading);
    }
  }
  text.resize(width, '-');
  return text;
}

}  // namespace

std::optional<std::vector<Reading>> parse_readings(std::string_view text) {
  std::vector<Reading> readings;
  std::istringstream lines{std::string(text)};
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::array<std::string, 5> word;
    if (!(words >> word[0]) || word[0].front() == '#') continue;
    std::string extra;
    if (!(words >> word[1] >> word[2] >> word[3] >> word[4]) || words >> extra) return std::nullopt;
    const auto low = number_in(word[3]);
    const auto high = number_in(word[4]);
    const bool known = std::find(kKinds.begin(), kKinds.end(), word[0]) != kKinds.end();
    if (!known || !low || !high || readings.size() == kMaxReadings) return std::nullopt;
    readings.push_back({word[0], name_of(word[1], ""), number_in(word[2]), *low, *high});
  }
  return readings;
}

std::vector<Reading> read_machine(const Machine &machine) {
  std::vector<Reading> readings;
  add_disk(machine, readings);
  add_cores(machine, readings);
  add_zones(machine, readings);
  for (const fs::path &monitor : sorted_entries(machine.system / "class/hwmon")) add_monitor(monitor, readings);
  add_batteries(machine, readings);
  return readings;
}

std::string states(const std::vector<Reading> &readings, std::string_view kind, std::size_t width) {
  return states_of(readings, kind, width, fault_digit);
}

std::string temperature_states(const std::vector<Reading> &readings, std::size_t width) {
  return states_of(readings, "temperature", width, temperature_letter);
}

std::string line_of(const Reading &reading) {
  const std::string value = reading.value ? fmt::format("{:g}", *reading.value) : "unreadable";
  return fmt::format("{} {} {} {:g} {:g}\n", reading.kind, reading.name, value, reading.low, reading.high);
}

}  // namespace veskd
