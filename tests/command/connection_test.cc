// Every way in which there is no connection: exit code 5, or 6 for a time-out, and a message that helps.
#include <sys/stat.h>
#include <unistd.h>

#include "tests/command/command_test.h"
#include "tests/command/played_server.h"

namespace command_test {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testing::StrEq;

class Connections : public ServedCommandTest {
 protected:
  std::string served(const std::string &name) const { return server_files_.path("d/" + name); }

  Outcome ping_with(const std::vector<std::string> &options) const {
    std::vector<std::string> arguments = {"ping"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return vesk(arguments);
  }
};

class PlayedConnections : public CommandTest {
 protected:
  Outcome ping(const std::string &host, const std::string &port) const {
    return vesk({"ping", "--host", host, "--port", port, "--certificates", files_.path()});
  }
};

TEST_F(Connections, FlagsComeBeforeTheEnvironmentAndStandAnywhere) {
  Invocation wrong = invocation({"--port", server_.port(), "ping", "--host", "127.0.0.1"});
  wrong.environment["VESK_PORT"] = "1";
  wrong.environment["VESK_HOST"] = "nowhere.invalid";
  EXPECT_THAT(vesk(wrong), Ends(0, HasSubstr("answers"), IsEmpty()));
  wrong.arguments = {"ping", "--host", "127.0.0.1"};
  EXPECT_THAT(vesk(wrong), Ends(5, IsEmpty(), StartsWith("vesk: ping: 127.0.0.1:1: ")));
}

TEST_F(Connections, AServerIsFoundByItsNameToo) {
  EXPECT_THAT(ping_with({"--host", "localhost"}), Ends(0, StartsWith("localhost:"), IsEmpty()));
}

TEST_F(Connections, TheServersCertificatesAreShown) {
  EXPECT_THAT(vesk({"server", "certificates"}),
              Ends(0,
                   AllOf(StartsWith("authority (the chain's last certificate)\n  subject        CN=veskd"),
                         HasSubstr("\n\ncommunication (the one before it)\n  subject        CN=veskd"),
                         HasSubstr("IP:127.0.0.1"), HasSubstr("\n  key            EC P-256\n")),
                   IsEmpty()));
}

TEST_F(Connections, NothingListens) {
  EXPECT_THAT(ping_with({"--port", "1"}),
              Ends(5, IsEmpty(),
                   StrEq("vesk: ping: 127.0.0.1:1: the host refused the connection: nothing listens on that port "
                         "(CONN_ERR_REFUSED 30006)\n"
                         "detail: connecting to 127.0.0.1 port 1 failed: Connection refused\n"
                         "hint: is veskd running there? start one with: veskd dev --dir DIR\n")));
  EXPECT_THAT(ping_with({"--port", "1", "--host", "::1"}), Ends(5, IsEmpty(), StartsWith("vesk: ping: [::1]:1: ")));
}

TEST_F(Connections, AFileIsMissing) {
  EXPECT_THAT(
      ping_with({"--certificates", "nowhere"}),
      Ends(5, IsEmpty(),
           StrEq("vesk: ping: nowhere/authority.pem: the trusted-authority file (file 1) does not exist "
                 "(CONN_ERR_AUTHORITY_MISSING 30020)\n"
                 "detail: file 1 (trusted authority), nowhere/authority.pem: No such file or directory\n"
                 "hint: --certificates (VESK_CERTIFICATES) names the directory, --authority the file in it\n")));
  EXPECT_THAT(
      ping_with({"--certificate", "c.pem"}),
      Ends(5, IsEmpty(),
           AllOf(StartsWith("vesk: ping: " + served("c.pem") + ": "), HasSubstr("(CONN_ERR_CERTIFICATE_MISSING 30023)"),
                 EndsWith("names the directory, --certificate the file in it\n"))));
  EXPECT_THAT(ping_with({"--key", "k.pem"}),
              Ends(5, IsEmpty(),
                   AllOf(StartsWith("vesk: ping: " + served("k.pem") + ": "), HasSubstr("(CONN_ERR_KEY_MISSING 30027)"),
                         EndsWith("names the directory, --key the file in it\n"))));
}

TEST_F(Connections, AFileIsNotWhatItShouldBe) {
  EXPECT_THAT(ping_with({"--authority", "ready.json"}),
              Ends(5, IsEmpty(),
                   AllOf(HasSubstr("(CONN_ERR_AUTHORITY_NOT_PEM 30022)"),
                         EndsWith("lines like -----BEGIN CERTIFICATE-----; is this the right file?\n"))));
  EXPECT_THAT(ping_with({"--certificate", "ready.json"}),
              Ends(5, IsEmpty(), HasSubstr("(CONN_ERR_CERTIFICATE_NOT_PEM 30025)")));
  EXPECT_THAT(ping_with({"--key", "client.pem"}),
              Ends(5, IsEmpty(), AllOf(HasSubstr("(CONN_ERR_KEY_NOT_PEM 30029)"), HasSubstr("BEGIN PRIVATE KEY"))));
  EXPECT_THAT(ping_with({"--key", "server-key.pem"}),
              Ends(5, IsEmpty(),
                   AllOf(HasSubstr("(CONN_ERR_KEY_MISMATCH 30031)"),
                         EndsWith("hint: do " + served("client.pem") + " and " + served("server-key.pem") +
                                  " belong to the same client?\n"))));
}

TEST_F(Connections, TheKeyCannotBeRead) {
  Invocation other = invocation({"ping"});
  if (geteuid() == 0) {
    other.user = 65534;
    // Everything but the key is for all to read.
    ASSERT_EQ(chmod(server_files_.path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(server_files_.path("d").c_str(), 0755), 0);
    ASSERT_EQ(chmod(files_.path().c_str(), 0755), 0);
  } else {
    ASSERT_EQ(chmod(served("client-key.pem").c_str(), 0), 0);
  }
  EXPECT_THAT(vesk(other), Ends(5, IsEmpty(),
                                StrEq("vesk: ping: " + served("client-key.pem") +
                                      ": the client key file (file 3) cannot be read (CONN_ERR_KEY_UNREADABLE 30028)\n"
                                      "detail: file 3 (client key), " +
                                      served("client-key.pem") + ": Permission denied\nhint: who may read it: ls -l " +
                                      served("client-key.pem") + "\n")));
}

TEST_F(Connections, TheClientIsRefused) {
  TemporaryDirectory stranger;
  const PlayedServer makes_certificates(stranger.path(), {}, "");
  std::filesystem::copy_file(served("authority.pem"), stranger.path("authority.pem"),
                             std::filesystem::copy_options::overwrite_existing);
  EXPECT_THAT(ping_with({"--certificates", stranger.path()}),
              Ends(5, IsEmpty(),
                   AllOf(HasSubstr("the server refused the client's certificate (CONN_ERR_CLIENT_REFUSED "
                                   "30049)"),
                         HasSubstr(stranger.path("client.pem")))));
}

TEST_F(PlayedConnections, TheServerIsNotTrusted) {
  const PlayedServer server(files_.path(), {.trusts_server = false}, "");
  EXPECT_THAT(ping("127.0.0.1", server.port()),
              Ends(5, IsEmpty(),
                   AllOf(HasSubstr("(CONN_ERR_PEER_NOT_TRUSTED 30040)"), HasSubstr("\ndetail: certificate <CN="),
                         HasSubstr("\nhint: is " + files_.path("authority.pem") + " this server's authority?"))));
}

TEST_F(PlayedConnections, TheCertificateIsForOtherNames) {
  const PlayedServer server(files_.path(), {.server_names = {"kms.example", "192.0.2.1"}}, "");
  EXPECT_THAT(
      ping("127.0.0.1", server.port()),
      Ends(5, IsEmpty(),
           AllOf(HasSubstr("the server's certificate is for another name or address (CONN_ERR_PEER_NAME 30043)"),
                 HasSubstr("\ndetail: wanted <127.0.0.1>, the certificate is for <DNS:kms.example, "
                           "IP:192.0.2.1>\n"),
                 EndsWith("\nhint: give --host a name or an address that the certificate is for\n"))));
}

TEST_F(PlayedConnections, TheCertificateHasExpired) {
  const PlayedServer server(files_.path(), {.server_validity = veskd::Days(-1)}, "");
  EXPECT_THAT(ping("127.0.0.1", server.port()),
              Ends(5, IsEmpty(), AllOf(HasSubstr("(CONN_ERR_PEER_EXPIRED 30041)"), HasSubstr("date -u"))));
}

TEST_F(PlayedConnections, TheServerHangsUp) {
  const PlayedServer server(files_.path(), {}, "");
  EXPECT_THAT(ping("127.0.0.1", server.port()),
              Ends(5, IsEmpty(), AllOf(HasSubstr("(CONN_ERR_CLOSED 30060)"), HasSubstr("server's log"))));
}

TEST_F(PlayedConnections, WhatAnswersDoesNotSpeakTls) {
  const PlayedServer makes_certificates(files_.path(), {}, "");
  const PlayedServer server("HTTP/1.1 400 Bad Request\r\n\r\n");
  EXPECT_THAT(ping("127.0.0.1", server.port()),
              Ends(5, IsEmpty(),
                   AllOf(HasSubstr("(CONN_ERR_NOT_TLS 30048)"),
                         HasSubstr("\nhint: is " + server.port() + " the key server's port?"))));
}

TEST_F(PlayedConnections, ATimeOutHasAnExitCodeOfItsOwn) {
  const PlayedServer makes_certificates(files_.path(), {}, "");
  const SilentServer server;
  EXPECT_THAT(ping("127.0.0.1", server.port()),
              Ends(6, IsEmpty(), HasSubstr("no connection within the time-out (CONN_ERR_CONNECT_TIMED_OUT 30008)")));
}

}  // namespace
}  // namespace command_test
