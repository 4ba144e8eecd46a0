// veskd serve as a user, a script and a service manager run it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/server/laboratory.h"
#include "veskd/return_codes.h"

namespace veskd::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char *kReloaded = "read the settings and certificates again";
constexpr const char *kNotReloaded = "the settings stay as they were";

class Serve : public testing::Test {
 protected:
  int check() {
    Program program({"serve", "--config", laboratory.file().string(), "--check"});
    said = program.read_line();
    const int code = program.wait();
    said += program.errors();
    return code;
  }
  // Gives the server a certificate of a later time, and so of another serial number.
  void renew_server_certificate() {
    fs::remove(laboratory / "server.pem");
    fs::remove(laboratory / "server-key.pem");
    const Log log(true);
    TemporaryDirectory made;
    const DevEnvironment environment(made.path(), {}, log, laboratory.path());
    for (const char *name : {"server.pem", "server-key.pem"}) fs::copy_file(made / name, laboratory / name);
  }
  std::string serial_number(const ConfiguredServer &server) {
    RawConnection connection(server.port());
    EXPECT_TRUE(connection.handshake(raw_options(laboratory.path())));
    const std::unique_ptr<X509, decltype(&X509_free)> shown(SSL_get1_peer_certificate(connection.tls()), X509_free);
    const ASN1_INTEGER *number = X509_get0_serialNumber(shown.get());
    return std::string(reinterpret_cast<const char *>(number->data), static_cast<std::size_t>(number->length));
  }

  Laboratory laboratory;
  std::string said;
};

TEST_F(Serve, ServesWhatItsConfigurationSays) {
  ConfiguredServer server(laboratory);
  EXPECT_EQ(server.ping(), 0);
  EXPECT_TRUE(fs::exists(laboratory / "ready.json"));
  EXPECT_EQ(server.stop(), 0);
  EXPECT_FALSE(fs::exists(laboratory / "ready.json"));
  EXPECT_TRUE(fs::exists(laboratory / "store.db"));
}

TEST_F(Serve, ChecksAConfigurationWithoutServing) {
  EXPECT_EQ(check(), 0);
  EXPECT_EQ(said, laboratory.file().string() + " is valid");
  EXPECT_FALSE(fs::exists(laboratory / "store.db"));
  laboratory.configure("[logs]\n");
  EXPECT_EQ(check(), 1);
  EXPECT_EQ(said, laboratory.file().string() + ":11: logs: there is no such key\n");
}

TEST_F(Serve, DoesNotStartOnAConfigurationThatIsNotValid) {
  laboratory.configure("[log]\nform = 'xml'\n");
  Program program({"serve", "--config", laboratory.file().string()});
  EXPECT_EQ(program.wait(), 1);
  EXPECT_THAT(program.errors(), HasSubstr(":12: log.form: "));
}

TEST_F(Serve, AStoreBelongsToOneServerAtATime) {
  ConfiguredServer server(laboratory);
  Program second({"dev", "--dir", laboratory.path().string()});
  EXPECT_EQ(second.wait(), 1);
  EXPECT_THAT(second.errors(), HasSubstr("another veskd serves the directory"));
}

TEST_F(Serve, LogsObjectsOnRequest) {
  laboratory.configure("[log]\nform = 'json'\n");
  ConfiguredServer server(laboratory);
  ASSERT_EQ(server.ping(), 0);
  ASSERT_EQ(server.stop(), 0);
  std::istringstream log(server.program().errors());
  std::vector<nlohmann::json> lines;
  for (std::string line; std::getline(log, line);) lines.push_back(nlohmann::json::parse(line));
  ASSERT_GE(lines.size(), 2u);
  const auto request =
      std::find_if(lines.begin(), lines.end(), [](const auto &line) { return line.contains("client"); });
  ASSERT_NE(request, lines.end());
  EXPECT_EQ(request->at("level"), "info");
  EXPECT_EQ(request->at("client"), "CN=veskd development client,O=veskd dev");
  EXPECT_EQ(request->at("transaction"), "1043");
  EXPECT_EQ(request->at("function"), "AdminNoop");
  EXPECT_EQ(request->at("return_code_name"), "RC_SUCCESS");
  EXPECT_EQ(lines.back().at("text"), "stopped");
}

TEST_F(Serve, ReadsCertificatesAgainAndKeepsItsConnections) {
  ConfiguredServer server(laboratory);
  const std::string before = serial_number(server);
  RawConnection connection(server.port());
  ASSERT_TRUE(connection.handshake(raw_options(laboratory.path())));
  renew_server_certificate();
  ASSERT_TRUE(server.reload(kReloaded));
  EXPECT_TRUE(eventually([&] { return serial_number(server) != before; }));
  connection.send("000041043");
  EXPECT_THAT(connection.receive_all(), StartsWith("0000810430000"));
}

TEST_F(Serve, KeepsItsSettingsWhenTheNewOnesCannotBeUsed) {
  ConfiguredServer server(laboratory);
  laboratory.configure("[limits]\nconnections = 0\n");
  ASSERT_TRUE(server.reload(kNotReloaded));
  EXPECT_TRUE(server.has_logged(":12: limits.connections: must be"));
  fs::remove(laboratory / "server.pem");
  laboratory.configure("");
  ASSERT_TRUE(server.reload(kNotReloaded));
  EXPECT_TRUE(server.has_logged(":8: tls.certificate: cannot open"));
  EXPECT_EQ(server.ping(), 0);
}

TEST_F(Serve, UsesNewLimitsForNewConnections) {
  ConfiguredServer server(laboratory);
  laboratory.configure("[limits]\nhandshake = '1ms'\n");
  ASSERT_TRUE(server.reload(kReloaded));
  EXPECT_TRUE(eventually([&] { return RawConnection(server.port()).is_closed_by_peer(); }));
  EXPECT_TRUE(server.has_logged("no handshake: time-out"));
}

TEST_F(Serve, NobodyMayDoAnythingUnlessARoleIsGiven) {
  laboratory.configure("", "");
  ConfiguredServer server(laboratory);
  EXPECT_TRUE(server.has_logged("no client has a role: every request will be refused"));
  EXPECT_EQ(server.ping(), RC_NO_ROLE);
  EXPECT_TRUE(server.has_logged("warning 127.0.0.1"));
  EXPECT_TRUE(server.has_logged("AdminNoop 0111 RC_NO_ROLE"));
  laboratory.configure("");
  ASSERT_TRUE(server.reload(kReloaded));
  EXPECT_TRUE(eventually([&] { return server.ping() == 0; }));
}

TEST_F(Serve, ReadsItsMirrorCertificateAgain) {
  const char *mirrors = "[mirrors]\ncertificate = 'mirror.pem'\nprivate_key = 'mirror-key.pem'\n";
  laboratory.configure(mirrors);
  ConfiguredServer server(laboratory);
  ASSERT_TRUE(server.reload(kReloaded));
  laboratory.write("mirror.pem", "no certificate");
  ASSERT_TRUE(server.reload(kNotReloaded));
  EXPECT_TRUE(server.has_logged("mirrors.certificate: cannot use"));
  EXPECT_EQ(server.ping(), 0);
}

TEST_F(Serve, WarnsThatChangesWaitForMirrorsWithoutAMirrorCertificate) {
  constexpr const char *kWarning = "there are mirrors and no mirror certificate: what is for them waits";
  const CertificatePaths paths = client_paths(laboratory.path());
  {
    ConfiguredServer server(laboratory);
    ASSERT_EQ(qSetMirrorAddress(&paths, "127.0.0.1", server.port(), "west", "127.0.0.1", 1), 0);
    ASSERT_EQ(server.stop(), 0);
    EXPECT_THAT(server.program().errors(), Not(HasSubstr(kWarning)));
  }
  ConfiguredServer server(laboratory);
  EXPECT_TRUE(server.has_logged(kWarning));
}

TEST_F(Serve, TellsWhereToWatchIt) {
  laboratory.configure("[watch]\nport = 0\n");
  Program program({"serve", "--config", laboratory.file().string()});
  program.read_line();
  const std::string where = program.read_line();
  std::ifstream ready(laboratory / "ready.json");
  const int port = nlohmann::json::parse(ready).at("watch_port");
  EXPECT_EQ(where, "http://127.0.0.1:" + std::to_string(port) + "/ shows how it is");
}

TEST_F(Serve, SaysWhatNeedsARestart) {
  ConfiguredServer server(laboratory);
  laboratory.configure(
      "[watch]\nport = 0\n[limits]\nthreads = 3\n[mirrors]\ncertificate = 'mirror.pem'\nprivate_key = "
      "'mirror-key.pem'\n");
  ASSERT_TRUE(server.reload(kReloaded));
  EXPECT_TRUE(server.has_logged("the address to watch at is another now: restart"));
  EXPECT_TRUE(server.has_logged("the number of threads is another now: restart"));
  EXPECT_TRUE(server.has_logged("whether there is a mirror certificate is another now: restart"));
  EXPECT_EQ(server.ping(), 0);
}

TEST(ServiceManager, HearsOfEveryStep) {
  Laboratory laboratory;
  const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = (laboratory / "notify").string();
  ASSERT_LT(path.size(), sizeof address.sun_path);
  path.copy(address.sun_path, path.size());
  ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
  const timeval patience{20, 0};
  ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  const auto heard = [&] {
    char text[256];
    const ssize_t length = ::recv(socket, text, sizeof text, 0);
    return std::string(text, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  };
  ::setenv("NOTIFY_SOCKET", path.c_str(), 1);
  ConfiguredServer server(laboratory);
  ::unsetenv("NOTIFY_SOCKET");
  EXPECT_EQ(heard(), "READY=1");
  server.program().signal(SIGHUP);
  EXPECT_THAT(heard(), StartsWith("RELOADING=1\nMONOTONIC_USEC="));
  EXPECT_EQ(heard(), "READY=1");
  server.program().signal(SIGTERM);
  EXPECT_EQ(heard(), "STOPPING=1");
  EXPECT_EQ(server.program().wait(), 0);
  ::close(socket);
}

}  // namespace
}  // namespace veskd::test
