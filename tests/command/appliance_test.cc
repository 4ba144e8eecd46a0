// The machine that the server runs on, as a monitor watches it.
#include <sqlite3.h>

#include <nlohmann/json.hpp>

#include "tests/command/command_test.h"

namespace command_test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::StrEq;

const std::string kHealthy =
    "app store 1 1 1\n"
    "core cpu0 1 1 1\n"
    "disk store 40 5 100\n"
    "fan front 1800 300 5000\n"
    "temperature cpu 18 0 90\n";

class Appliance : public CommandTest {
 protected:
  Appliance() { write_file(sensors_, kHealthy); }

  Invocation invocation(std::vector<std::string> arguments) const override {
    Invocation made = CommandTest::invocation(std::move(arguments));
    made.environment = {
        {"VESK_HOST", "127.0.0.1"}, {"VESK_PORT", server_.port()}, {"VESK_CERTIFICATES", server_files_.path("d")}};
    return made;
  }
  Outcome on_terminal(std::vector<std::string> arguments) const {
    Invocation made = invocation(std::move(arguments));
    made.environment["TERM"] = "xterm";
    made.standard_output = Stream::kTerminal;
    return vesk(made);
  }
  using CommandTest::vesk;
  void damage(const char *sql) const {
    sqlite3 *database = nullptr;
    ASSERT_EQ(sqlite3_open(server_files_.path("d/store.db").c_str(), &database), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(database, sql, nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(database);
  }

  TemporaryDirectory server_files_;
  const std::string sensors_ = server_files_.path("sensors");
  RunningServer server_{server_files_.path("d"), {"--sensor-file", sensors_}};
};

TEST_F(Appliance, AMachineInOrderIsShownAndNothingElseIsOnStandardOutput) {
  EXPECT_THAT(vesk({"appliance", "status"}), Ends(0,
                                                  StrEq("application  0---  in order\n"
                                                        "core         0-------  in order\n"
                                                        "disk         0-------  in order\n"
                                                        "voltage      --------  nothing to measure\n"
                                                        "battery      --  nothing to measure\n"
                                                        "fan          0---  in order\n"
                                                        "temperature  N-------  in order\n"),
                                                  IsEmpty()));
  EXPECT_EQ(document_in(vesk({"appliance", "status", "--output", "json"})).at("temperature"), "N-------");
}

TEST_F(Appliance, AFaultHasAnExitCodeOfItsOwn) {
  write_file(sensors_, kHealthy + "fan rear 0 300 5000\ntemperature board 95 0 90\n");
  EXPECT_THAT(vesk({"appliance", "status"}),
              Ends(7, AllOf(HasSubstr("fan          01--  fault\n"), HasSubstr("temperature  N1------  fault\n")),
                   HasSubstr(": fault in fan, temperature\n")));
  const Outcome outcome = vesk({"appliance", "status", "--output", "json"});
  EXPECT_EQ(outcome.exit_code, 7);
  EXPECT_EQ(document_in(outcome).at("fan"), "01--");
}

TEST_F(Appliance, ColoursAreForTerminals) {
  write_file(sensors_, kHealthy + "fan rear 0 300 5000\n");
  const Outcome outcome = on_terminal({"appliance", "status"});
  EXPECT_THAT(outcome.terminal,
              AllOf(HasSubstr("\x1b[32m0---  in order\x1b[0m"), HasSubstr("\x1b[31m01--  fault\x1b[0m")));
  EXPECT_THAT(outcome.terminal, Not(HasSubstr("**end")));
}

TEST_F(Appliance, ReadingsGoToStandardOutputOrToAFile) {
  EXPECT_THAT(vesk({"appliance", "sensors"}), Ends(0, StrEq(kHealthy), IsEmpty()));
  EXPECT_THAT(vesk({"appliance", "sensors", "--out", "data"}),
              Ends(0, StrEq("wrote the readings to data\n"), IsEmpty()));
  EXPECT_EQ(contents_of(files_.path("data")), kHealthy);
  EXPECT_THAT(vesk({"appliance", "sensors", "--out", "-"}), Ends(0, StrEq(kHealthy), IsEmpty()));
  EXPECT_EQ(document_in(vesk({"appliance", "sensors", "--output", "json"})),
            json({{"readings",
                   {{{"name", "store"}, {"kind", "app"}, {"value", "1"}, {"low", "1"}, {"high", "1"}},
                    {{"name", "cpu0"}, {"kind", "core"}, {"value", "1"}, {"low", "1"}, {"high", "1"}},
                    {{"name", "store"}, {"kind", "disk"}, {"value", "40"}, {"low", "5"}, {"high", "100"}},
                    {{"name", "front"}, {"kind", "fan"}, {"value", "1800"}, {"low", "300"}, {"high", "5000"}},
                    {{"name", "cpu"}, {"kind", "temperature"}, {"value", "18"}, {"low", "0"}, {"high", "90"}}}},
                  {"count", 5},
                  {"complete", true}}));
  EXPECT_THAT(vesk({"appliance", "sensors", "--out", "no/such/directory"}),
              Ends(1, IsEmpty(), HasSubstr("cannot create no/such/directory: No such file or directory\n")));
}

TEST_F(Appliance, ReadingsThatCannotBeReadAreRefused) {
  write_file(sensors_, "nonsense\n");
  EXPECT_THAT(vesk({"appliance", "status"}),
              Ends(3, IsEmpty(),
                   AllOf(HasSubstr("RC_SENSORS_UNREADABLE"), HasSubstr("sensor file is: KIND NAME VALUE LOW HIGH\n"))));
}

TEST_F(Appliance, AServerThatIsNotInFipsModeSaysItsVersion) {
  EXPECT_THAT(vesk({"appliance", "fips"}), Ends(7, AllOf(StartsWith("FIPS mode  false\nversion    OpenSSL 3")),
                                                HasSubstr(" is not in FIPS mode\n")));
  EXPECT_EQ(document_in(vesk({"appliance", "fips", "--output", "json"})).at("fips_mode"), false);
}

TEST_F(Appliance, ValidationFindsTheKeyThatWasTamperedWith) {
  ASSERT_EQ(vesk({"key", "create", "K1"}).exit_code, 0);
  EXPECT_THAT(vesk({"appliance", "validate"}), Ends(0, StrEq("key database  true\n"), IsEmpty()));
  damage("UPDATE instances SET sealed_value = zeroblob(60)");
  EXPECT_THAT(vesk({"appliance", "validate"}),
              Ends(7, StrEq("key database  false\n"), HasSubstr("holds values that do not open\n")));
  EXPECT_THAT(vesk({"appliance", "validate", "--output", "json", "--trace", "trace"}),
              Ends(7, StrEq("{\n  \"schema\": \"vesk/1\",\n  \"valid\": false\n}\n"), HasSubstr("do not open")));
  EXPECT_THAT(contents_of(files_.path("trace")), HasSubstr("K1"));
}

TEST_F(Appliance, AClosedOrFullStandardOutputIsAnErrorAsEverywhere) {
  Invocation full = invocation({"appliance", "status"});
  full.standard_output_path = "/dev/full";
  EXPECT_THAT(vesk(full), Ends(1, IsEmpty(), HasSubstr("No space left on device")));
  Invocation closed = invocation({"appliance", "status"});
  closed.standard_output = Stream::kClosed;
  EXPECT_THAT(vesk(closed), Ends(1, IsEmpty(), HasSubstr("cannot write to standard output: Bad file descriptor")));
}

}  // namespace
}  // namespace command_test
