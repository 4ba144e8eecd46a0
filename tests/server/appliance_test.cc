// The state of the machine, the FIPS mode and the validation of the key database.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <fstream>
#include <sstream>
#include <string>

#include "tests/server/test_server.h"
#include "veskd/handlers.h"
#include "veskd/return_codes.h"
#include "veskd/sensors.h"

namespace veskd::test {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

// ---- Readings ----

TEST(Readings, AreLinesOfFiveWords) {
  const auto readings = parse_readings(
      "# the front\n"
      "\n"
      "fan front 1200 300 5000\n"
      "  voltage   vcore\t1.05 0.9 1.2\n"
      "fan rear broken 300 5000\n");
  ASSERT_TRUE(readings);
  ASSERT_EQ(readings->size(), 3u);
  EXPECT_EQ(line_of((*readings)[0]), "fan front 1200 300 5000\n");
  EXPECT_EQ(line_of((*readings)[1]), "voltage vcore 1.05 0.9 1.2\n");
  EXPECT_EQ(line_of((*readings)[2]), "fan rear unreadable 300 5000\n");
}

TEST(Readings, OfAnotherFormAreNone) {
  // a word too few, one too many, an unknown kind, limits that are no numbers
  for (const char *text : {"fan front 1200 300\n", "fan front 1 0 2 3\n", "wheel front 1 0 2\n", "fan front 1 low 2\n",
                           "fan front 1 0 high\n"})
    EXPECT_FALSE(parse_readings(text)) << text;
}

TEST(Readings, AreToldInOneCharacterEach) {
  const auto readings = parse_readings(
                            "fan a 300 300 500\n"  // at its limits
                            "fan b 500 300 500\n"
                            "fan c 299 300 500\n"  // just outside
                            "fan d 501 300 500\n"
                            "fan e - 300 500\n"  // beyond the room, but a fault
                            "temperature a 79 0 90\n"
                            "temperature b 81 0 90\n"
                            "temperature c 91 0 90\n"
                            "temperature d - 0 90\n")
                            .value();
  EXPECT_EQ(states(readings, "fan", 4), "0018");
  EXPECT_EQ(states(readings, "fan", 6), "00118-");
  EXPECT_EQ(states(readings, "core", 3), "---");
  EXPECT_EQ(temperature_states(readings, 8), "NW18----");
}

TEST(Readings, ComeFromTheMachine) {
  TemporaryDirectory system;
  const auto write = [&](const std::string &name, const std::string &text) {
    const auto path = system.path() / name;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << text << "\n";
  };
  write("class/hwmon/hwmon0/name", "chip");
  write("class/hwmon/hwmon0/fan1_input", "900");
  write("class/hwmon/hwmon0/fan1_min", "1000");
  write("class/hwmon/hwmon0/in0_input", "1050");
  write("class/hwmon/hwmon0/in0_min", "900");
  write("class/hwmon/hwmon0/in0_max", "1200");
  write("class/hwmon/hwmon0/temp1_input", "45500");
  write("class/hwmon/hwmon0/temp1_crit", "100000");
  write("class/thermal/thermal_zone0/type", "soc");
  write("class/thermal/thermal_zone0/temp", "40000");
  write("class/power_supply/BAT0/type", "Battery");
  write("class/power_supply/BAT0/capacity", "100");
  write("devices/system/cpu/cpu0/topology", "");
  write("devices/system/cpu/cpu1/online", "0");
  std::string lines;
  for (const Reading &reading : read_machine({{}, system.path(), system.path()})) lines += line_of(reading);
  EXPECT_THAT(lines, HasSubstr("fan chip/fan1 900 1000 1e+09\n"));
  EXPECT_THAT(lines, HasSubstr("voltage chip/in0 1.05 0.9 1.2\n"));
  EXPECT_THAT(lines, HasSubstr("temperature chip/temp1 45.5 -1e+09 100\n"));
  EXPECT_THAT(lines, HasSubstr("temperature soc 40 -1e+09 90\n"));
  EXPECT_THAT(lines, HasSubstr("battery BAT0 100 20 1e+09\n"));
  EXPECT_THAT(lines, HasSubstr("core cpu0 1 1 1e+09\ncore cpu1 0 1 1e+09\n"));
  EXPECT_THAT(lines, HasSubstr("disk writable 1 1 1e+09\n"));
}

TEST(Readings, OfAStoreThatIsNotThereAreUnreadable) {
  const auto readings = read_machine({{}, "/no/such/directory", "/no/such/system"});
  EXPECT_EQ(states(readings, "disk", 8), "888-----");
}

// ---- Over the wire ----

struct Health {
  char app[5], core[9], disk[9], voltage[9], battery[3], fan[5], temperature[9];
};

class Appliance : public testing::Test {
 protected:
  int read_health(const TestServer &server, const std::string &data_file = {}) {
    std::string path = data_file;
    path.resize(2049);
    return qGetSystemStatus(server.paths(), server.host(), server.port(), health_.app, health_.core, health_.disk,
                            health_.voltage, health_.battery, health_.fan, health_.temperature, path.c_str());
  }
  void write_sensors(const std::string &text) { std::ofstream(sensors_) << text; }
  Machine machine() const { return {sensors_, files_.path()}; }
  std::string sensor_data() const {
    std::ostringstream text;
    text << std::ifstream(files_ / "data").rdbuf();
    return text.str();
  }

  TemporaryDirectory files_;
  const std::filesystem::path sensors_ = files_ / "sensors";
  Health health_{};
};

constexpr const char *kHealthy =
    "app store 1 1 1\ncore cpu0 1 1 1\ndisk store 40 5 100\nvoltage vcore 1.05 0.9 1.2\nbattery main 81 20 100\n"
    "fan front 1800 300 5000\ntemperature cpu 18 0 90\n";

TEST_F(Appliance, ReadingsInOrderAreNoFaultWhateverDigitsTheyHave) {
  write_sensors(kHealthy);
  TestServer server(Limits{}, machine());
  EXPECT_EQ(read_health(server, (files_ / "data").string()), 0);
  EXPECT_STREQ(health_.app, "0---");
  EXPECT_STREQ(health_.core, "0-------");
  EXPECT_STREQ(health_.disk, "0-------");
  EXPECT_STREQ(health_.voltage, "0-------");
  EXPECT_STREQ(health_.battery, "0-");
  EXPECT_STREQ(health_.fan, "0---");
  EXPECT_STREQ(health_.temperature, "N-------");
  EXPECT_EQ(sensor_data(), kHealthy);
}

TEST_F(Appliance, AReadingOutOfItsLimitsIsAFault) {
  TestServer server(Limits{}, machine());
  for (const char *fault : {"app store 0 1 1\n", "core cpu0 0 1 1\n", "disk store 4 5 100\n", "voltage v 2 0.9 1.2\n",
                            "battery main 19 20 100\n", "fan front - 300 5000\n", "temperature cpu 91 0 90\n"}) {
    write_sensors(kHealthy + std::string(fault));
    EXPECT_EQ(read_health(server), ERR_HARDWARE_FAULT) << fault;
  }
  EXPECT_STREQ(health_.temperature, "N1------");
}

TEST_F(Appliance, SensorDataGoesOverManyPages) {
  std::string text;
  for (int i = 0; i < 200; ++i) text += "fan number" + std::to_string(i) + " 1000 0 5000\n";
  write_sensors(text);
  Limits limits;
  limits.max_page_bytes = 100;
  TestServer server(limits, machine());
  EXPECT_EQ(read_health(server, (files_ / "data").string()), 0);
  EXPECT_EQ(sensor_data(), text);
}

TEST_F(Appliance, ASensorFileThatCannotBeReadIsRefused) {
  std::filesystem::create_directory(sensors_);
  TestServer server(Limits{}, machine());
  EXPECT_EQ(read_health(server), RC_SENSORS_UNREADABLE);
}

TEST_F(Appliance, ASensorFileThatIsNotThereOrNotOfItsFormIsRefused) {
  TestServer server(Limits{}, machine());
  EXPECT_EQ(read_health(server), RC_SENSORS_UNREADABLE);
  write_sensors("fan front\n");
  EXPECT_EQ(read_health(server), RC_SENSORS_UNREADABLE);
}

TEST_F(Appliance, WithoutASensorFileTheMachineAnswers) {
  TestServer server(Limits{}, {{}, files_.path()});
  const int status = read_health(server, (files_ / "data").string());
  EXPECT_TRUE(status == 0 || status == ERR_HARDWARE_FAULT) << status;
  EXPECT_STREQ(health_.app, "00--");
  EXPECT_THAT(health_.disk, MatchesRegex("[018][018]0-----"));
  EXPECT_THAT(sensor_data(), HasSubstr("disk free_percent "));
  EXPECT_THAT(sensor_data(), HasSubstr("app mirrors_away 0 0 0\n"));
}

TEST_F(Appliance, TheFipsModeIsThatOfOpenssl) {
  TestServer server;
  char version[33] = {};
  EXPECT_EQ(qReportFipsMode(server.paths(), server.host(), server.port(), version), -1);
  EXPECT_EQ(std::string(version), padded(std::string(OpenSSL_version(OPENSSL_VERSION)), 32).substr(0, 32));
}

// Nothing else may be asked of OpenSSL meanwhile: there may be no module with what is approved.
TEST_F(Appliance, TheFipsModeIsToldWhenItIsOn) {
  TestServer server;
  Store::Reader reader(server.store());
  const RequestFields fields{};
  const Call call{{}, {}, fields, *reader, server.store(), "", Scope(), 0, Machine()};
  vesk::wire::FipsModeReply reply{};
  ASSERT_EQ(EVP_default_properties_enable_fips(nullptr, 1), 1);
  const ReturnCode code = report_fips_mode(call, reply);
  ASSERT_EQ(EVP_default_properties_enable_fips(nullptr, 0), 1);
  EXPECT_EQ(code, RC_SUCCESS);
  EXPECT_STREQ(reply.caFipsMode, "F");
}

// ---- Validation ----

class Validation : public testing::Test {
 protected:
  int validate() const {
    testing::internal::CaptureStdout();
    const int status = qValidateKeyDatabase(server_.paths(), server_.host(), server_.port());
    EXPECT_THAT(testing::internal::GetCapturedStdout(), StartsWith("Tran Len <00014>\n"));
    return status;
  }
  void create(const char *name) const {
    ASSERT_EQ(qCreateSymKey(server_.paths(), server_.host(), server_.port(), name, 'N'), 0);
  }
  // As someone who writes to the file would.
  void tamper(const char *sql) const { Database(store_address(server_.directory())).execute(sql); }

  TestServer server_{[] {
    Limits limits;
    limits.max_page_bytes = 128;
    return limits;
  }()};
};

TEST_F(Validation, FindsNothingInAGoodStore) {
  EXPECT_EQ(validate(), 0);
  for (const char *name : {"K1", "K2", "K3"}) create(name);
  EXPECT_EQ(validate(), 0);
}

TEST_F(Validation, ListsKeysWhoseValueWasChangedMovedOrTakenAway) {
  for (const char *name : {"K1", "K2", "K3", "K4", "K5", "K6"}) create(name);
  tamper(
      "UPDATE instances SET sealed_value = (SELECT sealed FROM store_keys WHERE purpose = 'values') "
      "WHERE key = (SELECT id FROM keys WHERE name = 'K1')");
  tamper(
      "UPDATE instances SET sealed_value = (SELECT sealed_value FROM instances JOIN keys ON key = id "
      "WHERE name = 'K2') WHERE key = (SELECT id FROM keys WHERE name = 'K3')");
  tamper("DELETE FROM instances WHERE key = (SELECT id FROM keys WHERE name = 'K5')");
  tamper("UPDATE keys SET current_instance = 'I6' WHERE name = 'K6'");
  EXPECT_EQ(validate(), ERR_DATABASE_INVALID);
  const std::string reply = ask(server_,
                                "00004"
                                "1041");
  // Two entries on either page.
  ASSERT_EQ(reply.size(), 2 * (5 + 14 + 2 * 64u));
  EXPECT_EQ(reply.substr(0, 19),
            "00014"
            "1041"
            "0000"
            "Y"
            "00128");
  EXPECT_EQ(reply.substr(19, 40), padded("K1", 40));
  EXPECT_THAT(reply.substr(59, 24), MatchesRegex("[0-9]{8}T[0-9]{6}-[0-9A-F]{8}"));
  EXPECT_EQ(reply.substr(83, 40), padded("K3", 40));
  EXPECT_EQ(reply.substr(147, 19),
            "00014"
            "1041"
            "0000"
            "N"
            "00128");
  EXPECT_EQ(reply.substr(166, 40), padded("K5", 40));
  EXPECT_EQ(reply.substr(230, 64), padded("K6", 40) + padded("I6", 24));
}

}  // namespace
}  // namespace veskd::test
