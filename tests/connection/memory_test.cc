// Connections for which OpenSSL, or the layer itself, finds no memory, at one point after the other.
#include <openssl/crypto.h>

#include <cstdint>
#include <cstdlib>
#include <new>

#include "tests/connection/client.h"

namespace tests {
namespace {

// Of this thread: the server's has all that it wants.
thread_local std::int64_t num_allocations = 0;
thread_local std::int64_t failing_allocation = -1;

bool is_to_fail() {
  return num_allocations++ == failing_allocation;
}

// The same of what the layer itself allocates.
thread_local std::int64_t num_objects = 0;
thread_local std::int64_t failing_object = -1;
constexpr std::int64_t kEveryObject = -2;

bool is_object_to_fail() {
  return failing_object == kEveryObject || num_objects++ == failing_object;
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

}  // namespace
}  // namespace tests

void *operator new(std::size_t bytes) {
  void *memory = tests::is_object_to_fail() ? nullptr : std::malloc(bytes);
  if (!memory) throw std::bad_alloc();
  return memory;
}

void operator delete(void *memory) noexcept {
  std::free(memory);
}

void operator delete(void *memory, std::size_t) noexcept {
  std::free(memory);
}

namespace tests {
namespace {

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

// The layer's own.
int exchange_without_object(const TlsServer &server, std::int64_t failing) {
  TLSForgetAll();
  num_objects = 0;
  failing_object = failing;
  void *tls = nullptr, *aux = nullptr, *read = nullptr;
  const World &w = world();
  int status = SetupConnection(&tls, &aux, &read, w.chain_file.c_str(), w.authority_file.c_str(), 0, w.key_file.c_str(),
                               "localhost", server.port().c_str(), 10);
  if (status == 0) status = TLSWrite(tls, "x", 1);
  char byte = 0;
  if (status == 0) status = TLSRead(tls, read, &byte, 1, 10, nullptr);
  TLSTeardown(tls, aux, read);
  failing_object = -1;
  return status;
}

TEST(Memory, IsWantedByTheLayerAndAStatusSaysSo) {
  const TlsServer server(echo(world().settings()));
  TraceText trace;
  ASSERT_EQ(exchange_without_object(server, -1), 0);
  const std::int64_t count = num_objects;
  int num_failed = 0;
  for (std::int64_t number = 0; number < count; ++number) {
    const int status = exchange_without_object(server, number);
    // What is wanted for the trace or the next call fails nobody.
    EXPECT_TRUE(status == 0 || status == CONN_ERR_RESOURCES) << StatusName(status);
    num_failed += status != 0;
  }
  EXPECT_GT(num_failed, 10);
}

// Where a ticket is to be kept, and there is no place for those of its server yet.
TEST(Memory, IsNotWantedForATeardown) {
  const TlsServer server(echo(world().settings()));
  Client client;
  ASSERT_STATUS(0, world().connect(client, server));
  ASSERT_STATUS(0, client.write("x"));
  ASSERT_STATUS(0, client.read(1));
  TLSResumption(0);
  TLSResumption(1);
  failing_object = kEveryObject;
  client.tear_down();
  failing_object = -1;
  EXPECT_FALSE(client.has_handles());
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
