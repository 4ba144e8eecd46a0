// What a call does to the process that makes it: nothing that stays.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "tests/connection/client.h"

namespace tests {
namespace {

long num_descriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

int exchange(const TlsServer &server) {
  Client client;
  if (int status = world().connect(client, server)) return status;
  if (int status = client.write("x")) return status;
  return client.read(1);
}

int descriptor_of(const Client &client) {
  return SSL_get_fd(static_cast<SSL *>(client.tls()));
}

// Keeps every descriptor below a number taken.
class TakenDescriptors {
 public:
  explicit TakenDescriptors(int end) {
    for (int taken = open("/dev/null", O_RDONLY | O_CLOEXEC); taken >= 0; taken = dup(taken)) {
      taken_.push_back(taken);
      if (taken >= end) break;
    }
  }
  TakenDescriptors(const TakenDescriptors &) = delete;
  TakenDescriptors &operator=(const TakenDescriptors &) = delete;
  ~TakenDescriptors() {
    for (int taken : taken_) close(taken);
  }

 private:
  std::vector<int> taken_;
};

TEST(Process, ConnectionsAreNotInheritedByOtherPrograms) {
  TlsServer server(echo(world().settings()));
  Client client;
  ASSERT_STATUS(0, world().connect(client, server));
  EXPECT_TRUE(fcntl(descriptor_of(client), F_GETFD) & FD_CLOEXEC);
}

bool works_as_descriptor_0(const TlsServer &server) {
  close(0);
  Client client;
  return world().connect(client, server) == 0 && descriptor_of(client) == 0 && client.write("x") == 0 &&
         client.read(1) == 0;
}

TEST(Process, Descriptor0IsOneLikeAnyOther) {
  SKIP_WHERE_FORK_MAY_HANG();
  TlsServer server(echo(world().settings()));
  // In a process of its own, where no server takes the descriptor.
  pid_t child = fork();
  if (child == 0) _exit(works_as_descriptor_0(server) ? 0 : 1);
  int state = -1;
  ASSERT_EQ(child, waitpid(child, &state, 0));
  EXPECT_EQ(0, state);
}

// The process's soft limit on descriptors, for as long as it lives: a login's own is often 1024.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(rlim_t limit) {
    getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit changed = {limit, before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &changed);
  }
  DescriptorLimit(const DescriptorLimit &) = delete;
  DescriptorLimit &operator=(const DescriptorLimit &) = delete;
  ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  rlimit before_{};
};

TEST(Process, DescriptorsAbove1024Work) {
  const DescriptorLimit enough(2048);
  TlsServer server(echo(world().settings()));
  TakenDescriptors taken(1100);
  Client client;
  ASSERT_STATUS(0, world().connect(client, server));
  EXPECT_GT(descriptor_of(client), 1100);
  EXPECT_STATUS(0, client.write("x"));
  EXPECT_STATUS(0, client.read(1));
}

TEST(Process, WithoutDescriptorsTheStatusSaysSo) {
  TlsServer server(echo(world().settings()));
  {
    const DescriptorLimit low(64);
    TakenDescriptors taken(64);
    EXPECT_STATUS(CONN_ERR_RESOURCES, exchange(server));
  }
  EXPECT_STATUS(0, exchange(server));
}

TEST(Process, SignalsStayAsTheyAre) {
  TlsServer server([](Line &line) {
    line.accept_tls(world().settings());
    line.reset();
  });
  // The default action would end this process.
  struct sigaction default_action {};
  default_action.sa_handler = SIG_DFL;
  sigaction(SIGPIPE, &default_action, nullptr);
  sigset_t mask_before;
  pthread_sigmask(SIG_BLOCK, nullptr, &mask_before);
  Client client;
  ASSERT_STATUS(0, world().connect(client, server, "localhost"));
  int status = 0;
  for (int i = 0; i < 1000 && status == 0; ++i) status = client.write(std::string(10'000, 'x'));
  EXPECT_STATUS(CONN_ERR_RESET, status);
  client.tear_down();
  struct sigaction after {};
  sigaction(SIGPIPE, nullptr, &after);
  EXPECT_EQ(SIG_DFL, after.sa_handler);
  sigset_t mask_after;
  pthread_sigmask(SIG_BLOCK, nullptr, &mask_after);
  sigset_t pending;
  sigpending(&pending);
  for (int signal = 1; signal < NSIG; ++signal) {
    EXPECT_EQ(sigismember(&mask_before, signal), sigismember(&mask_after, signal)) << signal;
  }
  EXPECT_FALSE(sigismember(&pending, SIGPIPE));
}

TEST(Process, ACallAfterForkWorks) {
  SKIP_WHERE_FORK_MAY_HANG();
  TlsServer server(echo(world().settings()));
  ASSERT_STATUS(0, exchange(server));
  pid_t child = fork();
  if (child == 0) _exit(exchange(server) == 0 ? 0 : 1);
  int state = -1;
  ASSERT_EQ(child, waitpid(child, &state, 0));
  EXPECT_EQ(0, state);
}

// Makes calls good and bad, and lets the server go before it returns.
void make_calls(int num_good, int num_refused) {
  std::string closed_port = TlsServer([](Line &) {}).port();
  const World &w = world();
  for (int i = 0; i < num_refused; ++i) {
    Client client;
    ASSERT_STATUS(CONN_ERR_REFUSED,
                  client.connect(w.authority_file, w.chain_file, w.key_file, "127.0.0.1", closed_port));
    ASSERT_STATUS(CONN_ERR_KEY_NOT_PEM, client.connect(w.authority_file, w.chain_file, w.chain_file, "127.0.0.1", "1"));
  }
  TlsServer server(echo(w.settings()));
  for (int i = 0; i < num_good; ++i) {
    ASSERT_STATUS(0, exchange(server));
    Client client;
    ASSERT_STATUS(CONN_ERR_PEER_NOT_TRUSTED,
                  client.connect(w.chain_file, w.chain_file, w.key_file, "127.0.0.1", server.port()));
  }
  TLSForgetAll();
}

TEST(Process, NothingGrowsOverManyCalls) {
  make_calls(200, 1000);
  const long descriptors_before = num_descriptors();
  const std::size_t bytes_before = mallinfo2().uordblks;
  make_calls(200, 1000);
  EXPECT_EQ(descriptors_before, num_descriptors());
  // Less than 100 bytes for a call.
  EXPECT_LT(mallinfo2().uordblks, bytes_before + 100'000);
}

// Runs under a configuration of OpenSSL's that allows everything; loose_configuration in CMakeLists.txt sees to that.
TEST(LooseConfiguration, IsInForceElsewhere) {
  if (!getenv("OPENSSL_CONF")) GTEST_SKIP() << "no configuration given";
  orn::SslContextPtr context(SSL_CTX_new(TLS_client_method()));
  EXPECT_EQ(0, SSL_CTX_get_security_level(context.get()));
  EXPECT_EQ(TLS1_VERSION, SSL_CTX_get_min_proto_version(context.get()));
}

}  // namespace
}  // namespace tests
