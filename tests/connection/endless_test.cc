// Servers that send slowly, or without end.
#include <poll.h>

#include "orn/vesk.h"
#include "tests/connection/client.h"

namespace tests {
namespace {

// A server that does this to a client after the handshake.
Script with_tls(Script script) {
  return [script](Line &line) {
    if (line.accept_tls(world().settings())) script(line);
  };
}

// The time-out is of all the bytes together: those that do come, one by one, gain the server nothing.
TEST(SlowServer, DoesNotProlongARead) {
  const TlsServer server(with_tls([](Line &line) {
    pollfd client = {.fd = line.descriptor(), .events = POLLIN, .revents = 0};
    do line.write("x");
    while (poll(&client, 1, 20) == 0);
  }));
  Client client;
  ASSERT_STATUS(0, world().connect(client, server));
  const Stopwatch watch;
  EXPECT_STATUS(CONN_ERR_READ_TIMED_OUT, client.read(100'000, 1));
  EXPECT_GE(watch.seconds(), 1.0);
  EXPECT_LT(watch.seconds(), 5.0);
  EXPECT_FALSE(client.received().empty());
}

// The call reads what was declared and goes, although the line is full of more.
TEST(EndlessServer, DoesNotProlongACall) {
  const TlsServer server(with_tls([](Line &line) {
    std::string replies;
    while (replies.size() < 16384) replies += "0000810430000";
    while (SSL_write(line.ssl(), replies.data(), static_cast<int>(replies.size())) > 0) {
    }
  }));
  CertificatePaths paths;
  ASSERT_EQ(0, SetupCertificates(&paths, world().folder.path("").c_str(), "authority.pem", "client.pem", "key.pem"));
  const Stopwatch watch;
  EXPECT_STATUS(0, qAdminNoop(&paths, "127.0.0.1", static_cast<uint32_t>(std::stoul(server.port()))));
  EXPECT_LT(watch.seconds(), 10.0);
}

}  // namespace
}  // namespace tests
