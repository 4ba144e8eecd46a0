// What the machine tells of its health, or a file in its place.
//
// A reading is a line of text, in the file as in the sensor data that clients get:
//
//   KIND NAME VALUE LOW HIGH
//
// KIND is app, disk, core, voltage, battery, fan or temperature; NAME has no blanks; a reading below LOW or above HIGH
// is a fault, and a VALUE that is no number could not be read. Empty lines and lines that begin with # mean nothing.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veskd {

// In place of a lowest (below zero) or highest value where there is none.
inline constexpr double kNoLimit = 1e9;

struct Reading {
  std::string kind;
  std::string name;
  std::optional<double> value;  // none when it could not be read
  double low;
  double high;

  bool is_fault() const { return !value || *value < low || *value > high; }
};

// Where readings come from.
struct Machine {
  std::filesystem::path sensor_file;      // none when empty: the machine itself
  std::filesystem::path store_directory;  // the disk that counts
  std::filesystem::path system = "/sys";
};

// Nothing when the text is not of the form above.
std::optional<std::vector<Reading>> parse_readings(std::string_view text);

// What the machine offers: the store's disk, cores, temperatures, voltages, fans and batteries.
std::vector<Reading> read_machine(const Machine &machine);

// One character for each reading of a kind, in their order, '-' where there is none: '0' in order, '1' a fault, '8' not
// readable. Of more readings than there is room for, the later ones are told by the last character.
std::string states(const std::vector<Reading> &readings, std::string_view kind, std::size_t width);

// As above, but letters for temperatures in order: 'N' normal, 'W' warm, within ten degrees of the limit.
std::string temperature_states(const std::vector<Reading> &readings, std::size_t width);

// The line of a reading.
std::string line_of(const Reading &reading);

}  // namespace veskd
