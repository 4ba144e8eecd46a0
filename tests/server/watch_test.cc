// What a monitoring system, a load balancer and a person in front of a browser see of a server.
#include "veskd/watch.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/server/test_server.h"
#include "veskd/status_page.h"

namespace veskd::test {
namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// A connection in plain text. Its reads give up after twenty seconds.
class PlainConnection {
 public:
  explicit PlainConnection(std::uint16_t port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const timeval patience{20, 0};
    ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    if (::connect(socket_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
      throw std::runtime_error("no connection");
  }
  ~PlainConnection() { ::close(socket_); }
  PlainConnection(const PlainConnection &) = delete;
  PlainConnection &operator=(const PlainConnection &) = delete;

  void send(const std::string &bytes) { ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL); }
  std::string receive_all() {
    std::string received;
    char buffer[4096];
    const auto receive = [&] { return static_cast<int>(::recv(socket_, buffer, sizeof buffer, 0)); };
    for (int count = 0; (count = unless_interrupted(receive)) > 0;)
      received.append(buffer, static_cast<std::size_t>(count));
    return received;
  }

 private:
  const int socket_;
};

class Watching : public testing::Test {
 protected:
  std::vector<NamedCertificate> certificates(const std::string &server_certificate = "server.pem") {
    std::vector<NamedCertificate> named;
    named.push_back({"server", true, read_certificate(server.directory() / server_certificate)});
    named.push_back({"mirror", false, read_certificate(server.directory() / "mirror.pem")});
    return named;
  }
  std::string ask(const std::string &request) {
    PlainConnection connection(watch.port());
    connection.send(request);
    return connection.receive_all();
  }
  std::string get(const std::string &path) { return ask("GET " + path + " HTTP/1.1\r\nHost: localhost\r\n\r\n"); }
  // Whether the metrics come to hold the line: a request is counted when its client has the reply.
  bool measures(const std::string &line) {
    return eventually([&] { return get("/metrics").find("\n" + line + "\n") != std::string::npos; });
  }
  // What the writer is given to do, and done.
  void change_store(const char *sql) {
    server.store().change({.apply =
                               [sql](StoreConnection &store) {
                                 store.database.execute(sql);
                                 return true;
                               },
                           .done = [](ChangeOutcome known) { EXPECT_EQ(known, ChangeOutcome::kDone); }});
    server.store().wait_until_idle();
  }

  TestServer server;
  const Log log{true};
  Watch watch{{}, server.options(), server.server(), server.store(), certificates(), log};
};

TEST_F(Watching, CountsOperationsByResult) {
  ASSERT_EQ(server.ping(), 0);
  ASSERT_EQ(server.ping(), 0);
  KeyRecord record{};
  ASSERT_EQ(qRetrieveKey(server.paths(), server.host(), server.port(), "K1", "", &record), RC_KEY_UNKNOWN);
  EXPECT_TRUE(measures(R"(veskd_operations_total{return_code="0000",transaction="AdminNoop"} 2)"));
  EXPECT_TRUE(measures(R"(veskd_operations_total{return_code="0204",transaction="RetrieveKey"} 1)"));
  EXPECT_TRUE(measures(R"(veskd_operation_seconds_count{transaction="AdminNoop"} 2)"));
  EXPECT_TRUE(measures(R"(veskd_operation_seconds_bucket{transaction="AdminNoop",le="+Inf"} 2)"));
}

TEST_F(Watching, CountsWhatNoTransactionHas) {
  EXPECT_THAT(test::ask(server, "000049999"), StartsWith("0000899990102"));
  EXPECT_TRUE(measures(R"(veskd_operations_total{return_code="0102",transaction="-"} 1)"));
}

TEST_F(Watching, CountsHandshakesByKind) {
  ASSERT_EQ(server.ping(), 0);
  {
    RawConnection nobody(server.port());
    RawOptions options = raw_options(server.directory());
    options.certificate.clear();
    nobody.handshake(options);
    nobody.receive_all();
  }
  EXPECT_TRUE(measures(R"(veskd_handshakes_total{kind="full"} 1)"));
  EXPECT_TRUE(measures(R"(veskd_handshakes_total{kind="failed"} 1)"));
  EXPECT_TRUE(measures(R"(veskd_handshakes_total{kind="resumed"} 0)"));
}

TEST_F(Watching, MeasuresConnections) {
  {
    RawConnection connection(server.port());
    EXPECT_TRUE(measures("veskd_connections 1"));
  }
  EXPECT_TRUE(measures("veskd_connections 0"));
}

TEST_F(Watching, MeasuresTheQueueOfAMirrorUntilItIsRemoved) {
  ASSERT_EQ(qSetMirrorAddress(server.paths(), server.host(), server.port(), "ea\"st", "127.0.0.1", 1), 0);
  ASSERT_EQ(qCreateSymKey(server.paths(), server.host(), server.port(), "K1", 'Y'), 0);
  EXPECT_TRUE(measures(R"(veskd_mirror_queue{mirror="ea\"st"} 1)"));
  EXPECT_TRUE(measures(R"(veskd_mirror_up{mirror="ea\"st"} 0)"));
  EXPECT_THAT(get("/metrics"), Not(HasSubstr("K1")));
  ASSERT_EQ(qRemoveMirrorAddress(server.paths(), server.host(), server.port(), "ea\"st"), 0);
  EXPECT_THAT(get("/metrics"), Not(HasSubstr("mirror=")));
}

TEST_F(Watching, MeasuresTheDaysThatCertificatesHave) {
  const std::string metrics = get("/metrics");
  for (const char *name : {"server", "mirror"})
    EXPECT_THAT(metrics, ContainsRegex(fmt::format("days_left.certificate=\"{}\". (365|364\\.99)", name)));
}

// The document's rows that name metrics are the table, in its order, and what is served is of its types.
TEST_F(Watching, MetricsStandInTheDocumentAsTheyAre) {
  ASSERT_EQ(qSetMirrorAddress(server.paths(), server.host(), server.port(), "east", "127.0.0.1", 1), 0);
  ASSERT_TRUE(measures(R"(veskd_operations_total{return_code="0000",transaction="SetMirrorAddress"} 1)"));
  std::ifstream document(VESKD_DOCUMENT);
  ASSERT_TRUE(document);
  std::vector<std::string> documented;
  for (std::string line; std::getline(document, line);)
    if (line.starts_with("| `veskd_")) documented.push_back(line);
  std::vector<std::string> expected;
  const std::string served = get("/metrics");
  for (const MetricRow &metric : kMetricRows) {
    std::string labels;
    for (const char *label : metric.labels)
      if (label != nullptr) labels += (labels.empty() ? "" : ", ") + std::string(label);
    expected.push_back(fmt::format("| `{}` | {} | {} | {} |", metric.name, metric.type, labels, metric.help));
    EXPECT_THAT(served, HasSubstr(fmt::format("# TYPE {} {}\n", metric.name, metric.type)));
  }
  EXPECT_EQ(documented, expected);
}

TEST_F(Watching, TellsThatAllIsWell) {
  EXPECT_THAT(get("/healthz"), AllOf(StartsWith("HTTP/1.1 200 "), HasSubstr("store can be read: in order\n")));
  EXPECT_THAT(get("/readyz"), AllOf(StartsWith("HTTP/1.1 200 "), HasSubstr("accepts connections: in order\n"),
                                    HasSubstr("store can be changed: in order\n"),
                                    HasSubstr("server certificate is valid: in order\n"), Not(HasSubstr("mirror"))));
}

TEST_F(Watching, AStoreThatCannotBeChangedMakesItUnreadyButNotUnhealthy) {
  auto other = std::make_unique<Database>(store_address(server.directory()));
  other->begin();
  EXPECT_THAT(get("/readyz"),
              AllOf(StartsWith("HTTP/1.1 503 "), HasSubstr("store can be changed: a change did not become durable")));
  EXPECT_THAT(get("/healthz"), StartsWith("HTTP/1.1 200 "));
  other.reset();
  EXPECT_TRUE(eventually([&] { return get("/readyz").starts_with("HTTP/1.1 200 "); }));
}

TEST_F(Watching, AStoreThatCannotBeReadMakesItUnhealthy) {
  change_store("ALTER TABLE replication RENAME TO elsewhere; ALTER TABLE mirrors RENAME TO nowhere");
  EXPECT_THAT(get("/healthz"),
              AllOf(StartsWith("HTTP/1.1 503 "), HasSubstr("store can be read: "), HasSubstr("replication")));
  EXPECT_THAT(get("/readyz"), StartsWith("HTTP/1.1 503 "));
  EXPECT_TRUE(measures("veskd_store_readable 0"));
  EXPECT_THAT(get("/"),
              AllOf(StartsWith("HTTP/1.1 200 "), HasSubstr("not ready"), HasSubstr("The store cannot be read.")));
}

TEST_F(Watching, IsNotReadyOnceItStops) {
  server.stop();
  EXPECT_THAT(get("/readyz"),
              AllOf(StartsWith("HTTP/1.1 503 "), HasSubstr("accepts connections: the server is stopping")));
  EXPECT_THAT(get("/healthz"), StartsWith("HTTP/1.1 200 "));
}

TEST_F(Watching, IsNotReadyWithACertificateThatHasRunOut) {
  const Identity authority =
      read_identity(server.directory() / "authority.pem", server.directory() / "authority-key.pem");
  const Identity leaf = make_leaf(authority, {"late", Purpose::kServer, {}}, Days(-1));
  replace_file(server.directory() / "late.pem", certificate_pem(leaf.certificate.get()), kPublicMode);
  watch.use(certificates("late.pem"));
  EXPECT_THAT(get("/readyz"),
              AllOf(StartsWith("HTTP/1.1 503 "), HasSubstr("server certificate is valid: it is not valid now")));
  EXPECT_THAT(get("/metrics"), HasSubstr("veskd_certificate_days_left{certificate=\"server\"} -"));
}

TEST_F(Watching, AnswersGetAndHeadAlone) {
  for (const std::string method : {"POST", "PUT", "DELETE", "OPTIONS", "BREW"}) {
    EXPECT_THAT(ask(method + " / HTTP/1.1\r\nHost: localhost\r\n\r\n"),
                AllOf(StartsWith("HTTP/1.1 405 "), HasSubstr("\r\nAllow: GET, HEAD\r\n")))
        << method;
  }
  EXPECT_THAT(ask("HEAD /healthz HTTP/1.1\r\nHost: localhost\r\n\r\n"),
              AllOf(StartsWith("HTTP/1.1 200 "), HasSubstr("Content-Length: 28\r\n"), Not(HasSubstr("in order"))));
  EXPECT_THAT(get("/keys"), StartsWith("HTTP/1.1 404 "));
  EXPECT_THAT(get("/healthz?verbose=1"), StartsWith("HTTP/1.1 200 "));
}

TEST_F(Watching, AnswersNoSiteThatGaveItselfThisAddress) {
  const auto ask_as = [&](const std::string &host) {
    return ask("GET /healthz HTTP/1.1\r\nHost: " + host + "\r\n\r\n");
  };
  for (const char *host : {"localhost", "127.0.0.1", "127.0.0.1:99", "[::1]", "[::1]:99"})
    EXPECT_THAT(ask_as(host), StartsWith("HTTP/1.1 200 ")) << host;
  for (const char *host :
       {"rebound.example", "rebound.example:99", "localhost.example", "192.0.2.1", "", "]", "[", ":"})
    EXPECT_THAT(ask_as(host), Not(StartsWith("HTTP/1.1 200 "))) << host;
}

TEST_F(Watching, RefusesARequestWithoutEnd) {
  EXPECT_THAT(ask("GET /" + std::string(100000, 'a')), Not(StartsWith("HTTP/1.1 200 ")));
  EXPECT_THAT(ask("GET / HTTP/1.1\r\nHost: localhost\r\nX: " + std::string(100000, 'a')),
              Not(StartsWith("HTTP/1.1 200 ")));
  EXPECT_THAT(get("/healthz"), StartsWith("HTTP/1.1 200 "));
}

// Silent connections take no more than their number, and not for long; keys are served meanwhile.
TEST_F(Watching, ThoseWhoAreSilentKeepNobodyFromItsKeys) {
  std::vector<std::unique_ptr<PlainConnection>> silent;
  for (int i = 0; i < 40; ++i) silent.push_back(std::make_unique<PlainConnection>(watch.port()));
  EXPECT_EQ(server.ping(), 0);
  silent.clear();
  EXPECT_THAT(get("/healthz"), StartsWith("HTTP/1.1 200 "));
}

TEST_F(Watching, RefusesAPortThatIsTaken) {
  const WatchOptions options{"127.0.0.1", watch.port()};
  EXPECT_THAT(
      start_error([&] { Watch(options, server.options(), server.server(), server.store(), certificates(), log); }),
      HasSubstr(fmt::format("cannot listen on 127.0.0.1 port {} for those who watch: Address", watch.port())));
}

TEST_F(Watching, ThePageShowsTheLastEntriesOfTheAudit) {
  for (int i = 10; i <= 30; ++i)
    ASSERT_EQ(qCreateSymKey(server.paths(), server.host(), server.port(), fmt::format("K{}", i).c_str(), 'N'), 0);
  ASSERT_EQ(qCreateSymKey(server.paths(), server.host(), server.port(), "K30", 'N'), RC_KEY_EXISTS);
  const std::string page = get("/");
  EXPECT_THAT(page, ContainsRegex("<td class=\"number\">22</td><td>[0-9T]+</td><th scope=\"row\">CreateSymKey</th>"
                                  "<td>K30</td><td class=\"bad\">0202 RC_KEY_EXISTS</td>"
                                  "<td>CN=veskd development client,O=veskd dev</td><td>127.0.0.1:[0-9]+</td>"));
  EXPECT_THAT(page, HasSubstr("<td>K12</td><td class=\"good\">0000 RC_SUCCESS</td>"));
  EXPECT_THAT(page, Not(HasSubstr("<td>K11</td>")));
}

TEST_F(Watching, ThePageMayUseNothingButItsOwnStyle) {
  const std::string page = get("/");
  EXPECT_THAT(page, StartsWith("HTTP/1.1 200 "));
  EXPECT_THAT(page, HasSubstr("\r\nContent-Type: text/html; charset=utf-8\r\n"));
  EXPECT_THAT(page, HasSubstr("\r\nContent-Security-Policy: default-src 'none'; style-src 'sha256-"));
  EXPECT_THAT(page, HasSubstr("\r\nX-Content-Type-Options: nosniff\r\n"));
  for (const char *foreign : {"<script", "<link", "<img", "src=", "http:", "https:", "style=", "onload"})
    EXPECT_THAT(page.substr(page.find("<html")), Not(HasSubstr(foreign)));
}

TEST(CountedHandshakes, AreToldByKind) {
  Metrics metrics;
  metrics.count_handshake(Handshake::kFull);
  for (int i = 0; i < 2; ++i) metrics.count_handshake(Handshake::kResumed);
  for (int i = 0; i < 3; ++i) metrics.count_handshake(Handshake::kFailed);
  EXPECT_THAT(metrics.text({}), AllOf(HasSubstr("{kind=\"full\"} 1\n"), HasSubstr("{kind=\"resumed\"} 2\n"),
                                      HasSubstr("{kind=\"failed\"} 3\n")));
}

// Threads that count the same for the first time, while others read.
TEST(CountedOperations, AreAllToldWhoeverCounts) {
  Metrics metrics;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&] {
      for (int j = 0; j < 500; ++j) {
        metrics.count_operation("AdminNoop", j % 2 == 0 ? RC_SUCCESS : RC_NO_ROLE, std::chrono::milliseconds(2));
        if (j % 100 == 0) metrics.text({{kLists, 1, ""}});
      }
    });
  for (std::thread &thread : threads) thread.join();
  const std::string text = metrics.text({});
  EXPECT_THAT(text, AllOf(HasSubstr("{return_code=\"0000\",transaction=\"AdminNoop\"} 1000\n"),
                          HasSubstr("{return_code=\"0111\",transaction=\"AdminNoop\"} 1000\n"),
                          HasSubstr("{transaction=\"AdminNoop\",le=\"0.001\"} 0\n"),
                          HasSubstr("{transaction=\"AdminNoop\",le=\"0.0025\"} 2000\n"),
                          HasSubstr("veskd_operation_seconds_count{transaction=\"AdminNoop\"} 2000\n")));
}

TEST(WatchUrl, PutsBracketsRoundLongAddresses) {
  EXPECT_EQ(watch_url("127.0.0.1", 80), "http://127.0.0.1:80/");
  EXPECT_EQ(watch_url("::1", 80), "http://[::1]:80/");
}

constexpr const char *kHostile = "<script>alert('1')</script>\"&amp;";
constexpr const char *kHarmless = "&lt;script&gt;alert('1')&lt;/script&gt;&quot;&amp;amp;";

TEST(StatusPage, EscapesEveryTextThatComesFromOutside) {
  ServerStatus status;
  status.address = status.time = kHostile;
  status.checks = {{kHostile, kHostile}, {kHostile, ""}};
  status.certificates = {{kHostile, kHostile, kHostile, 1}};
  Mirror mirror{};
  mirror.name = mirror.host = mirror.status = mirror.data_hash_status = kHostile;
  Template family{};
  family.constant = kHostile;
  AuditEntry entry;
  AuditEvent &event = entry.event;
  entry.time = event.caller = event.peer = event.function = event.object = kHostile;
  status.store = StoreStatus{{{mirror, 1}}, {{family, false}}, false, {entry}};
  status.readings = {{kHostile, kHostile, 1, 0, 2}};
  const std::string page = status_page(status);
  EXPECT_THAT(page, Not(HasSubstr("<script")));
  std::size_t times = 0;
  for (std::size_t at = page.find(kHarmless); at != std::string::npos; at = page.find(kHarmless, at + 1)) ++times;
  EXPECT_EQ(times, 18u);
}

TEST(StatusPage, TellsHowFullTemplatesAre) {
  ServerStatus status;
  Template half{};
  half.constant = "HALF";
  half.num_generated = 200;
  half.next_increment = 100;
  Template full = half;
  full.constant = "FULL";
  status.store = StoreStatus{{}, {{half, false}, {full, true}}, true, {}};
  const std::string page = status_page(status);
  EXPECT_THAT(page, HasSubstr("<progress max=\"200\" value=\"100\">100 of 200</progress> 50 %"));
  EXPECT_THAT(page, HasSubstr("<progress max=\"200\" value=\"200\">200 of 200</progress> full"));
  EXPECT_THAT(page, HasSubstr("There are more templates than these."));
  EXPECT_THAT(page, HasSubstr("There are no mirrors."));
}

TEST(StatusPage, TellsWhatIsKnownOfTheDataOfMirrors) {
  const auto page_of = [](std::string_view data, std::int64_t num_waiting) {
    ServerStatus status;
    Mirror mirror{};
    mirror.data_hash_status = data;
    status.store = StoreStatus{{{mirror, num_waiting}}, {}, false, {}};
    return status_page(status);
  };
  EXPECT_THAT(page_of(kSameData, 0), HasSubstr("<td>the same</td>"));
  EXPECT_THAT(page_of(kOtherData, 0), HasSubstr("<td>different</td>"));
  EXPECT_THAT(page_of(kSameData, 1), HasSubstr("<td>not known</td>"));
}

TEST(StatusPage, MarksWhatIsWrong) {
  ServerStatus status;
  status.checks = {{"store can be read", "no such table"}};
  status.certificates = {{"server", "CN=s", "soon", 29.9}};
  status.readings = {{"fan", "front", 100, 300, kNoLimit}, {"fan", "back", std::nullopt, 300, kNoLimit}};
  const std::string page = status_page(status);
  EXPECT_THAT(page, HasSubstr("<title>Key server: not ready</title>"));
  EXPECT_THAT(page, HasSubstr("<td class=\"bad\">no such table</td>"));
  EXPECT_THAT(page, HasSubstr("<td class=\"bad\">29</td>"));
  EXPECT_THAT(page, HasSubstr("<td class=\"bad\">fault</td>"));
  EXPECT_THAT(page, HasSubstr("<td class=\"number\">unreadable</td><td class=\"number\">300</td>"
                              "<td class=\"number\">none</td>"));
}

}  // namespace
}  // namespace veskd::test
