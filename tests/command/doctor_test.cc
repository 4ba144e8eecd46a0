// vesk doctor: every check that can fail, and what it says of it.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <nlohmann/json.hpp>

#include "tests/command/command_test.h"
#include "tests/command/played_server.h"

namespace command_test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::Contains;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::StrEq;

// What a check is told to be like: its result, and what its text, details and hint say.
MATCHER_P2(Is, result, words,
           "is " + testing::PrintToString(result) + " with words that " +
               testing::DescribeMatcher<std::string>(words)) {
  return testing::ExplainMatchResult(std::string(result), arg.result, result_listener) &&
         testing::ExplainMatchResult(words, arg.words, result_listener);
}

struct Check {
  std::string result;
  std::string words;
};

void PrintTo(const Check &check, std::ostream *stream) {
  *stream << check.result << ": " << check.words;
}

struct Report {
  int exit_code = -1;
  std::map<std::string, Check> checks;

  const Check &at(const std::string &id) const { return checks.at(id); }
  // The identifiers of the checks that came out so.
  std::vector<std::string> with(const std::string &result) const {
    std::vector<std::string> ids;
    for (const auto &[id, check] : checks) {
      if (check.result == result) ids.push_back(id);
    }
    return ids;
  }
};

std::vector<std::string> doctor_with(std::vector<std::string> options) {
  options.insert(options.begin(), "doctor");
  return options;
}

Report report_of(const Outcome &outcome) {
  Report report{outcome.exit_code, {}};
  const json document = document_in(outcome);
  for (const json &check : document.at("checks")) {
    const json &hint = check.at("hint");
    report.checks[check.at("id")] = {check.at("result"), check.at("text").get<std::string>() + "\n" +
                                                             check.at("details").dump() + "\n" +
                                                             (hint.is_null() ? "" : hint.get<std::string>())};
  }
  return report;
}

class DoctorAtServer : public ServedCommandTest {
 protected:
  std::string served(const std::string &name) const { return server_files_.path("d/" + name); }
  Report doctor(std::vector<std::string> options = {}) const {
    options.insert(options.end(), {"--output", "json"});
    return report_of(vesk(doctor_with(options)));
  }
};

// Has files as clients have, and a server where a test says so.
class Doctor : public CommandTest {
 protected:
  Doctor() {
    put("authority.pem", authority_.certificate.get());
    put("client.pem", client_.certificate.get());
    write_secret(files_.path("client-key.pem"), veskd::private_key_pem(client_.key.get()).text());
  }

  void put(const std::string &name, X509 *certificate) const {
    write_file(files_.path(name), veskd::certificate_pem(certificate));
  }
  // The client's certificate with another time, in days from now.
  void put_client(int first_day, int last_day) const {
    const veskd::CertificatePtr certificate(X509_dup(client_.certificate.get()));
    X509_time_adj_ex(X509_getm_notBefore(certificate.get()), first_day, 0, nullptr);
    X509_time_adj_ex(X509_getm_notAfter(certificate.get()), last_day, 0, nullptr);
    X509_sign(certificate.get(), authority_.key.get(), EVP_sha256());
    put("client.pem", certificate.get());
  }

  Invocation invocation(std::vector<std::string> arguments) const override {
    Invocation made = CommandTest::invocation(std::move(arguments));
    made.environment = {{"VESK_HOST", "127.0.0.1"}, {"VESK_PORT", "1"}, {"VESK_CERTIFICATES", files_.path()}};
    return made;
  }
  Report doctor(std::vector<std::string> options = {}) const {
    options.insert(options.end(), {"--output", "json"});
    return report_of(vesk(doctor_with(options)));
  }

  const veskd::Identity authority_ = veskd::make_authority("authority", veskd::Days(100));
  const veskd::Identity client_ =
      veskd::make_leaf(authority_, {"client", veskd::Purpose::kClient, {}}, veskd::Days(100));
};

TEST_F(DoctorAtServer, AllIsWell) {
  const Outcome table = vesk(doctor_with({}));
  EXPECT_THAT(table, Ends(0,
                          AllOf(StartsWith("ok       settings              host 127.0.0.1 (VESK_HOST), port " +
                                           server_.port() + " (VESK_PORT), certificates " + server_files_.path("d")),
                                HasSubstr("\nok       tls                   TLSv1.3, TLS_"),
                                EndsWith("\nok       resumption            a second call resumes the session\n")),
                          IsEmpty()));
  EXPECT_THAT(table.out, Not(HasSubstr("hint: ")));
  EXPECT_THAT(vesk(doctor_with({"--output", "plain"})),
              Ends(0, AllOf(StartsWith("settings ok\nauthority-file ok\n"), EndsWith("\nresumption ok\n")), IsEmpty()));
  EXPECT_THAT(vesk(doctor_with({"--output", "csv"})),
              Ends(0, StartsWith("id,result,text,hint\r\nsettings,ok,\"host 127.0.0.1 "), IsEmpty()));
  const Report report = doctor();
  EXPECT_EQ(report.exit_code, 0);
  EXPECT_EQ(report.with("ok").size(), report.checks.size());
  // No secret is told.
  const std::string key = contents_of(served("client-key.pem"));
  EXPECT_THAT(table.out, Not(HasSubstr(key.substr(key.find('\n') + 1, 20))));
}

TEST_F(DoctorAtServer, AWarningIsNoFailureButNotInOrder) {
  ASSERT_EQ(chmod(served("client-key.pem").c_str(), 0644), 0);
  const Report report = doctor();
  EXPECT_EQ(report.exit_code, 7);
  EXPECT_THAT(report.at("key-permissions"), Is("warning", HasSubstr("chmod 600 " + served("client-key.pem"))));
  EXPECT_THAT(report.at("transaction"), Is("ok", HasSubstr("answers")));
  Invocation on_terminal = invocation({"doctor"});
  on_terminal.environment["TERM"] = "xterm";
  on_terminal.standard_output = Stream::kTerminal;
  EXPECT_THAT(vesk(on_terminal).terminal, AllOf(HasSubstr("\x1b[33mwarning\x1b[0m  key-permissions"),
                                                HasSubstr("\x1b[32mok\x1b[0m       transaction")));
}

TEST_F(DoctorAtServer, AFileCannotBeRead) {
  Invocation other = invocation({"doctor", "--output", "json"});
  if (geteuid() == 0) {
    other.user = 65534;
    for (const std::string &directory : {server_files_.path(), server_files_.path("d"), files_.path()})
      ASSERT_EQ(chmod(directory.c_str(), 0755), 0);
  } else {
    ASSERT_EQ(chmod(served("client-key.pem").c_str(), 0), 0);
  }
  const Report report = report_of(vesk(other));
  EXPECT_EQ(report.exit_code, 5);
  EXPECT_THAT(report.at("key-file"), Is("failed", AllOf(HasSubstr("CONN_ERR_KEY_UNREADABLE"),
                                                        HasSubstr("ls -l " + served("client-key.pem")))));
  EXPECT_THAT(report.at("key-pair"), Is("skipped", StartsWith("because key-file failed\n")));
}

TEST_F(DoctorAtServer, TheServerRefusesTheClient) {
  const veskd::Identity strange = veskd::make_authority("stranger", veskd::Days(100));
  const veskd::Identity client = veskd::make_leaf(strange, {"client", veskd::Purpose::kClient, {}}, veskd::Days(100));
  write_file(served("strange.pem"), veskd::certificate_pem(client.certificate.get()));
  write_secret(served("strange-key.pem"), veskd::private_key_pem(client.key.get()).text());
  const Report report = doctor({"--certificate", "strange.pem", "--key", "strange-key.pem"});
  EXPECT_EQ(report.exit_code, 5);
  EXPECT_THAT(report.with("failed"), testing::ElementsAre("transaction"));
  EXPECT_THAT(report.at("transaction"), Is("failed", HasSubstr("CONN_ERR_CLIENT_REFUSED")));
  // That the authority file does not hold its issuer is no fault in itself.
  EXPECT_THAT(report.at("certificate-chain"), Is("ok", HasSubstr("issued by CN=stranger")));
  EXPECT_THAT(report.at("resumption"), Is("skipped", StartsWith("because transaction failed\n")));
}

TEST_F(DoctorAtServer, WhatTheServerIsLikeIsToldWithoutAClientCertificate) {
  const Report report = doctor({"--key", "nowhere.pem"});
  EXPECT_EQ(report.exit_code, 5);
  EXPECT_THAT(report.at("key-file"), Is("failed", HasSubstr("CONN_ERR_KEY_MISSING")));
  EXPECT_THAT(report.at("tls"), Is("ok", HasSubstr("without a client certificate")));
  EXPECT_THAT(report.at("server-name"), Is("ok", HasSubstr("wanted <127.0.0.1>")));
  EXPECT_THAT(report.at("transaction"), Is("skipped", StartsWith("because key-file failed\n")));
}

TEST_F(CommandTest, AServerThatResumesNothingIsWarnedOf) {
  const TemporaryDirectory served;
  const RunningServer server(served.path("d"), {"--no-tickets"});
  const Report report = report_of(vesk(doctor_with(
      {"--host", "127.0.0.1", "--port", server.port(), "--certificates", served.path("d"), "--output", "json"})));
  EXPECT_EQ(report.exit_code, 7);
  EXPECT_THAT(report.with("warning"), testing::ElementsAre("resumption"));
  EXPECT_THAT(report.at("resumption"), Is("warning", HasSubstr("TLSv1.3) needs a full handshake again")));
}

TEST_F(Doctor, NothingListens) {
  const Report report = doctor();
  EXPECT_EQ(report.exit_code, 5);
  EXPECT_THAT(report.with("failed"), testing::ElementsAre("connect"));
  EXPECT_THAT(report.at("connect"), Is("failed", AllOf(HasSubstr("CONN_ERR_REFUSED"), HasSubstr("veskd dev"))));
  EXPECT_THAT(report.at("transaction"), Is("skipped", StartsWith("because connect failed\n")));
}

TEST_F(Doctor, WhatIsNotGivenFailsAndTheRestIsLookedAt) {
  Invocation without = invocation({"doctor", "--output", "json"});
  without.environment.erase("VESK_PORT");
  const Report report = report_of(vesk(without));
  EXPECT_EQ(report.exit_code, 2);
  EXPECT_THAT(report.at("settings"),
              Is("failed", AllOf(HasSubstr("not given: the port"), HasSubstr("host 127.0.0.1 (VESK_HOST)"))));
  EXPECT_THAT(report.at("key-pair"), Is("ok", StartsWith("the key is the certificate's")));
  EXPECT_THAT(report.at("connect"), Is("skipped", StartsWith("because settings failed\n")));

  Invocation unknown = invocation({"doctor", "--context", "nowhere", "--output", "json"});
  unknown.environment["XDG_CONFIG_HOME"] = files_.path();
  const Report empty = report_of(vesk(unknown));
  EXPECT_EQ(empty.exit_code, 2);
  EXPECT_THAT(empty.with("failed"), testing::ElementsAre("settings"));
  EXPECT_EQ(empty.with("skipped").size() + 1, empty.checks.size());
}

TEST_F(Doctor, FilesThatAreNotThereOrNotWhatTheyShouldBe) {
  write_file(files_.path("text"), "no certificate\n");
  const Report missing = doctor({"--authority", "nowhere.pem"});
  EXPECT_EQ(missing.exit_code, 5);
  EXPECT_THAT(missing.at("authority-file"), Is("failed", HasSubstr("CONN_ERR_AUTHORITY_MISSING")));
  EXPECT_THAT(missing.at("key-pair"), Is("ok", StartsWith("the key")));
  EXPECT_THAT(doctor({"--certificate", "text"}).at("certificate-pem"),
              Is("failed", AllOf(HasSubstr("CONN_ERR_CERTIFICATE_NOT_PEM"), HasSubstr("-----BEGIN CERTIFICATE-----"))));
  EXPECT_THAT(doctor({"--key", "client.pem"}).at("key-pem"), Is("failed", HasSubstr("CONN_ERR_KEY_NOT_PEM")));
  const veskd::Identity other = veskd::make_leaf(authority_, {"other", veskd::Purpose::kClient, {}}, veskd::Days(100));
  write_secret(files_.path("other-key.pem"), veskd::private_key_pem(other.key.get()).text());
  EXPECT_THAT(doctor({"--key", "other-key.pem"}).at("key-pair"),
              Is("failed", AllOf(HasSubstr("CONN_ERR_KEY_MISMATCH"), HasSubstr("other-key.pem belong to"))));
}

TEST_F(Doctor, CertificatesHaveTheirTime) {
  EXPECT_THAT(doctor().at("certificate-validity"), Is("ok", HasSubstr(" days left")));
  put_client(-2, 12);
  EXPECT_THAT(doctor().at("certificate-validity"), Is("warning", HasSubstr(" days left")));
  put_client(-2, -1);
  const Report expired = doctor();
  EXPECT_THAT(expired.at("certificate-validity"),
              Is("failed", AllOf(HasSubstr("CN=client,O=veskd dev expired on "), HasSubstr("date -u"))));
  EXPECT_THAT(expired.at("clock"), Is("ok", HasSubstr("every certificate")));
  put_client(2, 100);
  EXPECT_THAT(doctor().at("clock"),
              Is("failed", AllOf(HasSubstr("which this machine's clock has not reached"), HasSubstr("date -u"))));
}

TEST_F(Doctor, CertificatesHaveTheirPurposeAndOrder) {
  const veskd::Identity server =
      veskd::make_leaf(authority_, {"server", veskd::Purpose::kServer, {}}, veskd::Days(100));
  put("server.pem", server.certificate.get());
  EXPECT_THAT(doctor({"--certificate", "server.pem"}).at("certificate-purpose"),
              Is("failed", HasSubstr("have one issued for clientAuth")));
  EXPECT_THAT(doctor().at("certificate-chain"), Is("ok", StartsWith("leads to " + files_.path("authority.pem"))));
  write_file(files_.path("mixed.pem"), contents_of(files_.path("client.pem")) + contents_of(files_.path("server.pem")));
  EXPECT_THAT(doctor({"--certificate", "mixed.pem"}).at("certificate-chain"),
              Is("warning", HasSubstr("certificate 1 of the file is not issued by the one behind it")));
}

TEST_F(Doctor, TheNameIsUnknown) {
  const Report report = doctor({"--host", "nowhere.invalid"});
  EXPECT_THAT(report.with("failed"), testing::ElementsAre("name"));
  EXPECT_THAT(report.at("name"), Is("failed", HasSubstr("CONN_ERR_")));
  EXPECT_THAT(report.at("tls"), Is("skipped", StartsWith("because name failed\n")));
}

TEST_F(Doctor, OneOfTheAddressesAnswers) {
  const PlayedServer server("no TLS\r\n");
  // Whether the name has an address of the other kind is the machine's business.
  const Report report = doctor({"--host", "localhost", "--port", server.port()});
  EXPECT_THAT(report.at("connect").words, HasSubstr("127.0.0.1 port " + server.port() + ": accepts"));
  EXPECT_THAT(report.at("connect").result, testing::AnyOf("ok", "warning"));
}

TEST_F(Doctor, WhatAnswersDoesNotSpeakTls) {
  const PlayedServer server("HTTP/1.1 400 Bad Request\r\n\r\n");
  const Report report = doctor({"--port", server.port()});
  EXPECT_EQ(report.exit_code, 5);
  EXPECT_THAT(report.at("connect"), Is("ok", HasSubstr("accepts")));
  EXPECT_THAT(report.at("tls"), Is("failed", HasSubstr("CONN_ERR_NOT_TLS")));
  EXPECT_THAT(report.at("server-chain"), Is("skipped", StartsWith("because tls failed\n")));
  const PlayedServer hangs_up("");
  EXPECT_THAT(doctor({"--port", hangs_up.port()}).at("tls"),
              Is("failed", testing::AnyOf(HasSubstr("CONN_ERR_CLOSED"), HasSubstr("CONN_ERR_RESET"))));
}

TEST_F(Doctor, TheServerIsSilent) {
  const SilentServer server;
  const Report report = doctor({"--port", server.port()});
  EXPECT_EQ(report.exit_code, 6);
  EXPECT_THAT(report.with("failed"), testing::ElementsAre("tls"));
  EXPECT_THAT(report.at("tls"), Is("failed", HasSubstr("CONN_ERR_CONNECT_TIMED_OUT")));
}

TEST_F(Doctor, WhatWasFoundIsToldBeforeTheEnd) {
  const SilentServer server;
  EXPECT_THAT(vesk({"doctor", "--port", server.port(), "--timeout", "1"}),
              Ends(6, AllOf(HasSubstr("ok       connect"), Not(HasSubstr("tls"))), HasSubstr("not done within 1 s")));
  Invocation made = invocation({"doctor", "--port", server.port()});
  made.environment["TERM"] = "xterm";
  made.standard_output = Stream::kTerminal;
  made.signal = SIGINT;
  made.signal_when = "connect ";
  const Outcome outcome = vesk(made);
  EXPECT_EQ(outcome.exit_code, 130);
  EXPECT_THAT(outcome.err, HasSubstr("vesk: doctor: cancelled by signal 2\n"));
}

class DoctorAndCertificates : public CommandTest {
 protected:
  Report doctor(const PlayedCertificates &certificates) const {
    const PlayedServer server(files_.path(), certificates, "");
    return report_of(vesk(doctor_with(
        {"--host", "127.0.0.1", "--port", server.port(), "--certificates", files_.path(), "--output", "json"})));
  }
};

TEST_F(DoctorAndCertificates, TheAuthorityIsAnother) {
  const Report report = doctor({.trusts_server = false});
  EXPECT_EQ(report.exit_code, 5);
  EXPECT_THAT(report.with("failed"), testing::ElementsAre("server-chain"));
  EXPECT_THAT(report.at("server-chain"),
              Is("failed", AllOf(HasSubstr("CONN_ERR_PEER_NOT_TRUSTED"), HasSubstr("certificate <CN=played server,"))));
  EXPECT_THAT(report.at("server-name"), Is("ok", HasSubstr("wanted <127.0.0.1>")));
}

TEST_F(DoctorAndCertificates, TheNameIsAnother) {
  const Report report = doctor({.server_names = {"kms.example", "192.0.2.1"}});
  EXPECT_THAT(report.with("failed"), testing::ElementsAre("server-name"));
  EXPECT_THAT(report.at("server-name"),
              Is("failed", AllOf(HasSubstr("CONN_ERR_PEER_NAME"),
                                 HasSubstr("wanted <127.0.0.1>, the certificate is for <DNS:kms.example, "
                                           "IP:192.0.2.1>"))));
}

TEST_F(DoctorAndCertificates, TheTimeHasNotBegun) {
  const Report report = doctor({.server_validity = veskd::Days(90), .server_begin = veskd::Days(2)});
  EXPECT_THAT(report.with("failed"), testing::ElementsAre("server-validity"));
  EXPECT_THAT(report.at("server-validity"),
              Is("failed", AllOf(HasSubstr("CONN_ERR_PEER_NOT_YET_VALID"), HasSubstr("clock of this machine"))));
}

// Nothing that is wrong hides what else is.
TEST_F(DoctorAndCertificates, EverythingIsWrong) {
  const Report report =
      doctor({.server_names = {"kms.example"}, .server_validity = veskd::Days(-1), .trusts_server = false});
  EXPECT_THAT(report.with("failed"), testing::ElementsAre("server-chain", "server-name", "server-validity"));
  EXPECT_THAT(report.at("server-validity"),
              Is("failed", AllOf(HasSubstr("CONN_ERR_PEER_EXPIRED"), HasSubstr("date -u"))));
  EXPECT_THAT(report.at("transaction"), Is("skipped", StartsWith("because server-chain failed\n")));
}

TEST_F(DoctorAndCertificates, TheFirstTransactionIsNotAnswered) {
  const Report report = doctor({});
  EXPECT_THAT(report.with("failed"), testing::ElementsAre("transaction"));
  EXPECT_THAT(report.at("transaction"), Is("failed", HasSubstr("CONN_ERR_CLOSED")));
}

}  // namespace
}  // namespace command_test
