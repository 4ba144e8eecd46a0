// Connections for which OpenSSL finds no memory, at one point after the other.
#include <openssl/crypto.h>

#include <cstdint>
#include <cstdlib>

#include "tests/connection/client.h"

namespace tests {
namespace {

// Of this thread: the server's has all that it wants.
thread_local std::int64_t num_allocations = 0;
thread_local std::int64_t failing_allocation = -1;

bool is_to_fail() {
  return num_allocations++ == failing_allocation;
}

void *allocate(std::size_t bytes, const char *, int) {
  return is_to_fail() ? nullptr : std::malloc(bytes);
}

void *allocate_again(void *memory, std::size_t bytes, const char *, int) {
  return is_to_fail() ? nullptr : std::realloc(memory, bytes);
}

void release(void *memory, const char *, int) {
  std::free(memory);
}

// Only before OpenSSL's first allocation.
const bool is_in_place = CRYPTO_set_mem_functions(allocate, allocate_again, release) == 1;

// With the files read anew: one byte to and fro.
int exchange(const TlsServer &server, std::int64_t failing) {
  TLSForgetAll();
  num_allocations = 0;
  failing_allocation = failing;
  int status = 0;
  {
    Client client;
    status = world().connect(client, server);
    if (status == 0) status = client.write("x");
    if (status == 0) status = client.read(1);
  }
  failing_allocation = -1;
  return status;
}

TEST(Memory, IsWantedByOpenSSLAndAStatusSaysSo) {
  ASSERT_TRUE(is_in_place);
  const TlsServer server(echo(world().settings()));
  ASSERT_EQ(exchange(server, -1), 0);
  ASSERT_EQ(exchange(server, -1), 0);
  const std::int64_t count = num_allocations;
  int num_failed = 0;
  // All of those by which the files become a context, and some of the handshake's, which are OpenSSL's own affair.
  constexpr std::int64_t kNumOfFiles = 1500;
  for (std::int64_t number = 0; number < count; number += number < kNumOfFiles ? 1 : 10) {
    const int status = exchange(server, number);
    EXPECT_TRUE(status == 0 || (status >= CONN_ERR_ARGUMENT && status <= CONN_ERR_WRITE_TIMED_OUT)) << status;
    num_failed += status != 0;
  }
  EXPECT_GT(num_failed, 200);
  EXPECT_EQ(exchange(server, -1), 0);
}

// What could not be found out of a certificate is empty, and the rest is as it is.
TEST(Memory, IsWantedByOpenSSLAndASummaryHasGaps) {
  X509 *certificate = world().server.certificate.get();
  const auto summary = [certificate](std::int64_t failing) {
    CertificateInfo info{};
    num_allocations = 0;
    failing_allocation = failing;
    X509_get_info(certificate, &info);
    failing_allocation = -1;
    return info;
  };
  const CertificateInfo whole = summary(-1);
  const std::int64_t count = num_allocations;
  const auto is_whole_or_empty = [](const char *text, const char *expected) {
    EXPECT_TRUE(*text == '\0' || std::string(text) == expected) << text;
    return *text != '\0';
  };
  int num_gaps = 0;
  for (std::int64_t number = 0; number < count; ++number) {
    const CertificateInfo info = summary(number);
    bool is_complete = is_whole_or_empty(info.subject, whole.subject);
    is_complete &= is_whole_or_empty(info.issuer, whole.issuer);
    is_complete &= is_whole_or_empty(info.serialNumber, whole.serialNumber);
    is_complete &= is_whole_or_empty(info.notBefore, whole.notBefore);
    is_complete &= is_whole_or_empty(info.notAfter, whole.notAfter);
    // Without the curve's name there is another for it.
    EXPECT_TRUE(*info.key == '\0' || std::string(info.key).starts_with("EC")) << info.key;
    is_complete &= is_whole_or_empty(info.sha256Fingerprint, whole.sha256Fingerprint);
    num_gaps += !is_complete;
  }
  EXPECT_GT(num_gaps, 3);
}

}  // namespace
}  // namespace tests
