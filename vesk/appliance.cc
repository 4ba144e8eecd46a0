// vesk appliance
#include <fmt/format.h>

#include <array>
#include <memory>
#include <sstream>

#include "vesk/commands.h"
#include "vesk/connection.h"
#include "vesk/failure.h"
#include "vesk/list_output.h"
#include "vesk/memory_file.h"
#include "vesk/output.h"
#include "vesk/progress.h"
#include "vesk/secret_file.h"
#include "vesk/silence.h"
#include "vesk/states.h"
#include "vesk/text.h"

namespace command {
namespace {

struct SensorOptions {
  std::string out;
  ListOptions list;
};

struct SystemStatus {
  int status = 0;  // 0 or ERR_HARDWARE_FAULT
  char application[5] = {};
  char core[9] = {};
  char disk[9] = {};
  char voltage[9] = {};
  char battery[3] = {};
  char fan[5] = {};
  char temperature[9] = {};
};

// The library prints a line of its own to standard output.
SystemStatus read_status(const Connection &connection, const std::string &sensor_data_path) {
  SystemStatus read;
  {
    const Silence silence;
    read.status = connection.call(qGetSystemStatus, read.application, read.core, read.disk, read.voltage, read.battery,
                                  read.fan, read.temperature, sensor_data_path.c_str());
  }
  if (read.status != ERR_HARDWARE_FAULT) connection.require(read.status, {});
  return read;
}

Fact fact(const char *label, const char *member, std::string_view field) {
  const std::string text = trimmed(field);
  const State state = machine_state(text);
  return {label, member, text, state.health, state.word};
}

void status(const Settings &settings) {
  const Connection connection(settings);
  const SystemStatus read = read_status(connection, "");
  const std::vector<Fact> facts = {fact("application", "application", read.application),
                                   fact("core", "core", read.core),
                                   fact("disk", "disk", read.disk),
                                   fact("voltage", "voltage", read.voltage),
                                   fact("battery", "battery", read.battery),
                                   fact("fan", "fan", read.fan),
                                   fact("temperature", "temperature", read.temperature)};
  show_facts(settings, facts);
  if (read.status == 0) return;
  std::string faulty;
  for (const Fact &shown : facts) {
    if (shown.health == Health::kFault) faulty += fmt::format("{}{}", faulty.empty() ? "" : ", ", shown.label);
  }
  throw Failure(ExitCode::kHealth, fmt::format("{}: fault in {}", connection.server(), faulty),
                "the readings themselves: vesk appliance sensors");
}

// The words of a line of the sensor data.
constexpr std::array kReadingMembers = {"kind", "name", "value", "low", "high"};

void show_readings(const Settings &settings, const ListOptions &options, const std::string &readings) {
  ListOutput output(settings, options, "readings", {"name", "kind", "value", "low", "high"});
  std::istringstream lines(readings);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    Members reading = {{"name", Json()}};
    for (const char *member : kReadingMembers) {
      std::string word;
      words >> word;
      if (std::string_view(member) == "name") {
        reading.front().second = word;
      } else {
        reading.emplace_back(member, word);
      }
    }
    output.add(reading, printable(line));
  }
  output.end();
}

void sensors(const Settings &settings, const SensorOptions &options) {
  const std::string &out = options.out;
  const bool to_file = !out.empty() && out != "-";
  if (to_file) check_secret_file(out, true);
  const Connection connection(settings);
  const MemoryFile data;
  const SystemStatus read = read_status(connection, data.path());
  const std::string readings = data.content();
  if (to_file) {
    write_whole_file(out, readings);
    show(settings, fmt::format("wrote the readings to {}", printable(out)), {{"file", out}});
  } else {
    show_readings(settings, options.list, readings);
  }
  if (read.status != 0)
    throw Failure(ExitCode::kHealth, fmt::format("{}: a reading is out of its limits", connection.server()),
                  "which one: vesk appliance status");
}

void fips(const Settings &settings) {
  const Connection connection(settings);
  char version[33] = {};
  const int status = connection.call(qReportFipsMode, version);
  if (status != -1) connection.require(status, {});
  const bool on = status == 0;
  show_facts(settings, {{"FIPS mode", "fips_mode", on, on ? Health::kGood : Health::kFault},
                        {"version", "version", trimmed(version)}});
  if (!on) throw Failure(ExitCode::kHealth, fmt::format("{} is not in FIPS mode", connection.server()));
}

void validate(const Settings &settings) {
  const Connection connection(settings);
  int status = 0;
  {
    const Progress progress("validating the key database");
    const Silence silence;
    status = connection.call(qValidateKeyDatabase);
  }
  if (status != ERR_DATABASE_INVALID) connection.require(status, {});
  const bool valid = status == 0;
  show_facts(settings, {{"key database", "valid", valid, valid ? Health::kGood : Health::kFault}});
  if (!valid)
    throw Failure(ExitCode::kHealth,
                  fmt::format("{}: the key database holds values that do not open", connection.server()),
                  "which keys: vesk appliance validate --trace -");
}

void add_plain(Command &group, Settings &settings, const char *name, const char *description, const char *details,
               const char *example, void (*run)(const Settings &)) {
  Command &command = group.add(name, description);
  command.details = details;
  command.examples = {example};
  command.run = [&settings, run] { run(settings); };
}

void add_sensors(Command &group, Settings &settings) {
  Command &command = group.add("sensors", "Show the readings of the server's sensors");
  auto options = std::make_shared<SensorOptions>();
  command.option("--out", &options->out, "FILE", Kind::kFile,
                 "write them to a file, made or replaced, - for standard output");
  add_list_options(command, options->list);
  command.details =
      "A line for each reading: kind, name, value, lowest and highest value that are in order. Exit code 7 when one is "
      "out\n"
      "of its limits.";
  command.examples = {"vesk appliance sensors --out readings"};
  command.run = [&settings, options] { sensors(settings, *options); };
}

}  // namespace

void add_appliance(Command &root, Settings &settings) {
  Command &group = root.add("appliance", "Watch the machine that the server runs on");
  group.examples = {"vesk appliance status", "vesk appliance fips"};
  add_plain(group, settings, "status", "Show the health of the machine",
            "A character for each part: 0 in order, 1 a fault, 8 not readable, - nothing there; for temperatures N "
            "normal and\nW warm. Exit code 7 when there is a fault.",
            "vesk appliance status --output json", status);
  add_sensors(group, settings);
  add_plain(group, settings, "fips", "Show whether the server is in FIPS mode, and its version",
            "Exit code 7 when it is not.", "vesk appliance fips", fips);
  add_plain(group, settings, "validate", "Have the server check every key value that it keeps",
            "Exit code 7 when one does not open. Waits up to 5 minutes for each page of the list.",
            "vesk appliance validate", validate);
}

}  // namespace command
