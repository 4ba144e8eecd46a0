// veskd as a user runs it: arguments in, standard output, standard error, files and exit code out.
#include "tests/server/program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>

#include "orn/vesk.h"
#include "tests/server/test_server.h"

namespace veskd::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

class DevCommand : public testing::Test {
 protected:
  int ping(const DevServer &server) {
    const CertificatePaths paths = client_paths(path);
    return qAdminNoop(&paths, "127.0.0.1", server.port());
  }
  int create(const DevServer &server, const char *name) {
    const CertificatePaths paths = client_paths(path);
    return qCreateSymKey(&paths, "127.0.0.1", server.port(), name, 'N');
  }
  std::string value_of(const DevServer &server, const char *name) {
    const CertificatePaths paths = client_paths(path);
    KeyRecord record{};
    EXPECT_EQ(qRetrieveKey(&paths, "127.0.0.1", server.port(), name, "", &record), 0);
    return std::string(record.caKeyValue, 32);
  }

  TemporaryDirectory directory;
  fs::path path = directory / "keys";
};

TEST_F(DevCommand, TellsWhatItServesAndWhatToTypeNext) {
  DevServer server(path);
  const std::string port = std::to_string(server.port());
  EXPECT_EQ(server.banner(), "veskd serves the keys of " + path.string() + " on 127.0.0.1 port " + port);
  EXPECT_EQ(server.next_command(),
            "vesk --host 127.0.0.1 --port " + port + " --certificates " + path.string() + " ping");
  EXPECT_EQ(server.context_command(),
            "vesk context add dev --host 127.0.0.1 --port " + port + " --certificates " + path.string() + " --use");
  EXPECT_EQ(ping(server), 0);
}

TEST_F(DevCommand, LeavesAReadyFileWhileItServes) {
  DevServer server(path);
  std::ifstream file(path / "ready.json");
  const auto ready = nlohmann::json::parse(file);
  EXPECT_EQ(ready.at("host"), "127.0.0.1");
  EXPECT_EQ(ready.at("port"), server.port());
  EXPECT_EQ(ready.at("pid"), server.program().pid());
  EXPECT_EQ(ready.at("directory"), path.string());
  EXPECT_EQ(server.stop(), 0);
  EXPECT_FALSE(fs::exists(path / "ready.json"));
}

TEST_F(DevCommand, StopsOnSigtermAndOnSigint) {
  for (const int number : {SIGTERM, SIGINT}) {
    DevServer server(path);
    server.program().signal(number);
    EXPECT_EQ(server.program().wait(), 0);
  }
}

TEST_F(DevCommand, KeysOutliveARestart) {
  std::string before;
  {
    DevServer server(path);
    ASSERT_EQ(create(server, "K1"), 0);
    before = value_of(server, "K1");
    ASSERT_EQ(server.stop(), 0);
  }
  DevServer server(path);
  EXPECT_EQ(value_of(server, "K1"), before);
}

TEST_F(DevCommand, KeysOutliveAKill) {
  std::string before;
  {
    DevServer server(path);
    ASSERT_EQ(create(server, "K1"), 0);
    before = value_of(server, "K1");
    server.program().signal(SIGKILL);
    ASSERT_EQ(server.program().wait(), -SIGKILL);
  }
  EXPECT_TRUE(fs::exists(path / "ready.json"));
  DevServer server(path);
  EXPECT_EQ(value_of(server, "K1"), before);
}

TEST_F(DevCommand, RefusesADirectoryThatIsServed) {
  DevServer server(path);
  Program second({"dev", "--dir", path.string()});
  EXPECT_EQ(second.wait(), 1);
  EXPECT_EQ(second.read_line(), "");
  EXPECT_THAT(second.errors(), HasSubstr("another veskd serves the directory " + path.string()));
  EXPECT_EQ(ping(server), 0);
}

TEST_F(DevCommand, RefusesAPortThatIsTaken) {
  DevServer server(path);
  Program second({"dev", "--dir", (directory / "other").string(), "--port", std::to_string(server.port())});
  EXPECT_EQ(second.wait(), 1);
  EXPECT_THAT(second.errors(), HasSubstr("port " + std::to_string(server.port()) + ": Address already in use"));
}

TEST_F(DevCommand, RefusesAMasterKeyOfAnotherStore) {
  { EXPECT_EQ(DevServer(path).stop(), 0); }
  { EXPECT_EQ(DevServer(directory / "other").stop(), 0); }
  fs::copy_file(directory / "other" / "master.key", path / "master.key", fs::copy_options::overwrite_existing);
  Program program(dev_arguments(path));
  EXPECT_EQ(program.wait(), 1);
  EXPECT_THAT(program.errors(),
              HasSubstr("the master key does not belong to the key store " + store_address(path).name()));
}

TEST_F(DevCommand, NamesTheFileThatIsMissing) {
  { EXPECT_EQ(DevServer(path).stop(), 0); }
  fs::remove(path / "server-key.pem");
  Program program({"dev", "--dir", path.string()});
  EXPECT_EQ(program.wait(), 1);
  EXPECT_THAT(program.errors(), HasSubstr((path / "server-key.pem").string() + " is missing"));
}

TEST_F(DevCommand, LogsWhoAskedForWhatAndNoKeyValue) {
  DevServer server(path);
  ASSERT_EQ(create(server, "K1"), 0);
  const std::string value = value_of(server, "K1");
  ASSERT_EQ(server.stop(), 0);
  const std::string log = server.program().errors();
  EXPECT_THAT(log, HasSubstr("CN=veskd development client,O=veskd dev 1001 CreateSymKey 0000 RC_SUCCESS"));
  EXPECT_THAT(log, HasSubstr("2001 RetrieveKey 0000 RC_SUCCESS"));
  EXPECT_THAT(log, Not(HasSubstr(value)));
}

TEST_F(DevCommand, QuietLogsNoRequests) {
  Program program({"dev", "--dir", path.string(), "--quiet"});
  program.read_line();
  program.read_line();
  std::ifstream file(path / "ready.json");
  const CertificatePaths paths = client_paths(path);
  ASSERT_EQ(qAdminNoop(&paths, "127.0.0.1", nlohmann::json::parse(file).at("port")), 0);
  program.signal(SIGTERM);
  EXPECT_EQ(program.wait(), 0);
  EXPECT_EQ(program.errors(), "");
}

TEST_F(DevCommand, PlaysFaultsAndLogsThem) {
  const fs::path faults = directory / "faults.toml";
  std::ofstream(faults) << "[[fault]]\noperation = 'AdminNoop'\ndo = 'return-code'\ncode = 9998\n";
  DevServer server(path, 0, {"--faults", faults.string()});
  EXPECT_EQ(ping(server), 9998);
  EXPECT_THAT(server.program().errors(), HasSubstr(faults.string() + " says what this server does wrong on purpose"));
  EXPECT_THAT(server.program().errors(), HasSubstr(" 1043 fault 1, return-code"));

  std::ofstream(faults) << "[[fault]]\ndo = 'dance'\n";
  server.program().signal(SIGHUP);
  EXPECT_TRUE(eventually([&] { return server.program().errors().find("faults.toml:2: ") != std::string::npos; }));
  EXPECT_EQ(ping(server), 9998);

  std::ofstream(faults) << "[[fault]]\nnth = 1000\ndo = 'cut'\n";
  server.program().signal(SIGHUP);
  EXPECT_TRUE(eventually([&] { return ping(server) == 0; }));
}

TEST_F(DevCommand, RefusesAFileOfFaultsWithMistakes) {
  const fs::path faults = directory / "faults.toml";
  std::ofstream(faults) << "[[fault]]\ndo = 'dance'\n";
  Program program({"dev", "--dir", path.string(), "--faults", faults.string()});
  EXPECT_EQ(program.wait(), 1);
  EXPECT_THAT(program.errors(), HasSubstr(faults.string() + ":2: fault.do: must be one of"));
}

// More connections than descriptors: those that cannot be accepted wait, and when the others end, all is as before.
TEST_F(DevCommand, LivesOnWhenItRunsOutOfDescriptors) {
  DevServer server(path, 40);
  std::vector<std::unique_ptr<RawConnection>> silent;
  for (int i = 0; i < 100; ++i) silent.push_back(std::make_unique<RawConnection>(server.port()));
  EXPECT_TRUE(eventually([&] {
    return server.program().errors().find("a connection could not be accepted: Too many open files") !=
           std::string::npos;
  }));
  silent.clear();
  EXPECT_EQ(ping(server), 0);
  EXPECT_EQ(server.stop(), 0);
}

TEST(Usage, IsExplainedOnRequest) {
  Program help({"--help"});
  EXPECT_EQ(help.wait(), 0);
  Program dev({"dev", "--help"});
  EXPECT_EQ(dev.wait(), 0);
  std::string text;
  for (std::string line = dev.read_line(); !line.empty() || text.empty(); line = dev.read_line()) text += line + "\n";
  Program version({"--version"});
  EXPECT_EQ(version.wait(), 0);
  EXPECT_EQ(version.read_line(), "veskd " VESKD_VERSION);
}

TEST(Usage, IsSaidToBeWrong) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> wrong = {
      {{"devv", "--dir", "/tmp/d"}, "'devv' is no subcommand\n"},
      {{"dev"}, "--dir is required\n"},
      {{"dev", "--dir", "/tmp/d", "--port", "65536"}, "--port: '65536' is no port: "},
      {{"dev", "--dir", "/tmp/d", "--port", "5x"}, "--port: '5x' is no port: "},
      {{"dev", "--dir", "/tmp/d", "--watch-port", "-1"}, "--watch-port: '-1' is no port: "}};
  for (const auto &[arguments, said] : wrong) {
    Program program(arguments);
    EXPECT_EQ(program.wait(), 2) << said;
    EXPECT_THAT(program.errors(), testing::StartsWith(said));
  }
}

TEST(Usage, IsWrongWithExitCode2) {
  const std::vector<std::vector<std::string>> wrong = {
      {},
      {"serve"},
      {"dev"},
      {"dev", "--dir"},
      {"dev", "--dir", "/tmp/d", "--port", "65536"},
      {"dev", "--dir", "/tmp/d", "--port", "x"},
      {"dev", "--dir", "/tmp/d", "--verbose"},
      {"dev", "--dir", "/tmp/d", "--host-name", "one,two"},
      {"audit"},
      {"audit", "verify"},
      {"audit", "show", "--dir", "/tmp/d", "--output", "xml"},
      {"backup", "--dir", "/tmp/d"},
      {"restore", "--from", "/tmp/b", "--dir", "/tmp/d", "--skip-increments", "-1"},
      {"rotate-master-key"}};
  for (const auto &arguments : wrong) {
    Program program(arguments);
    EXPECT_EQ(program.wait(), 2) << testing::PrintToString(arguments);
    EXPECT_NE(program.errors(), "") << testing::PrintToString(arguments);
  }
}

}  // namespace
}  // namespace veskd::test
