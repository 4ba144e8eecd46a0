// What a call leaves in memory, at both ends: a key is in the caller's buffer, and nowhere else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/rand.h>
#include <stdlib.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "orn/support.h"
#include "orn/vesk.h"
#include "orn/vesk/wiped.h"
#include "tests/secrets/expectations.h"
#include "tests/secrets/key_transfer.h"
#include "tests/secrets/running_server.h"
#include "veskd/return_codes.h"

namespace secrets_test {
namespace {

using vesk::Wiped;
using veskd::test::TemporaryDirectory;
using veskd::test::TestServer;

constexpr std::size_t kKeyBytes = 32;
constexpr std::size_t kWrappedBytes = 256;
using KeyBuffer = Wiped<std::array<unsigned char, kKeyBytes>>;
using WrappedBuffer = Wiped<std::array<unsigned char, kWrappedBytes>>;

// A library that binds its functions at their first call has all registers saved on the stack then, with what passed
// through them of keys. That is so of libraries of others, and up to how a program is started; so is this one.
[[gnu::constructor]] void bind_all_now(int, char **arguments) {
  constexpr const char *kVariable = "LD_BIND_NOW";
  if (std::getenv(kVariable) != nullptr) return;
  setenv(kVariable, "1", 1);
  execv("/proc/self/exe", arguments);
}

// Of what is private in the key, in all the forms that it has on its way: text, DER, and numbers in OpenSSL.
std::vector<Needle> needles_of(const KeyPair &pair) {
  const std::size_t size = std::filesystem::file_size(pair.file("key.der"));
  // The end of one prime number, all of the other, and most of the two exponents.
  const Needle der = Needle::of_file(pair.file("key.der"), size - 600, 400);
  return {Needle::of_file(pair.file("key.pem"), 900, 64), der, der.reversed()};
}

class Memory : public testing::TestWithParam<bool> {
 protected:
  static void SetUpTestSuite() {
    if (kServerIsHere) {
      here_ = std::make_unique<TestServer>();
    } else {
      elsewhere_ = std::make_unique<RunningServer>();
    }
  }
  static void TearDownTestSuite() {
    elsewhere_.reset();
    here_.reset();
    pair_.reset();
  }

  // Making one takes its time.
  static const KeyPair &pair() {
    if (!pair_) pair_ = std::make_unique<KeyPair>();
    return *pair_;
  }

  const CertificatePaths *paths() const { return GetParam() ? here_->paths() : elsewhere_->paths(); }
  const char *host() const { return "127.0.0.1"; }
  std::uint16_t port() const { return GetParam() ? here_->port() : elsewhere_->port(); }

  template <typename Call, typename... Arguments>
  int call(Call call, Arguments... arguments) const {
    return call(paths(), host(), port(), arguments...);
  }

  void import_pair() const {
    ASSERT_EQ(call(qImportCertificate, pair().file("certificate.pem").c_str(), "pair", 1), 0);
    ASSERT_EQ(call(qImportPrivateKey, pair().file("key.pem").c_str(), "pair"), 0);
  }

  int import_plain(const char *name, const char *format, std::span<const unsigned char> value) const {
    return secrets_test::import_plain(paths(), port(), name, format, value);
  }

  static inline std::unique_ptr<RunningServer> elsewhere_;
  static inline std::unique_ptr<TestServer> here_;
  static inline std::unique_ptr<KeyPair> pair_;
};

INSTANTIATE_TEST_SUITE_P(Server, Memory, testing::Values(kServerIsHere),
                         [](const auto &info) { return std::string(info.param ? "Here" : "Elsewhere"); });

TEST_P(Memory, HoldsARetrievedKeyInTheCallersRecordAlone) {
  ASSERT_EQ(call(qCreateSymKey, "retrieved", 'N'), 0);
  Wiped<KeyRecord> record;
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(call(qRetrieveKey, "retrieved", "", &*record), 0);
    expect_only_in(record->caKeyValue, needle_of(*record));
  }
}

TEST_P(Memory, HoldsADrawnKeyInTheCallersBufferAlone) {
  ASSERT_EQ(call(qAutoGenKeys, "CONSTANT_000015", 'i', 3u), 0);
  for (int round = 0; round < 3; ++round) {
    char name[41];
    KeyBuffer value;
    std::uint32_t increment = 0;
    ASSERT_EQ(call(qGetNextKey, "CONSTANT_000015", name, value->data(), &increment), 0);
    expect_only_in(value->data(), Needle(*value));
  }
}

TEST_P(Memory, HoldsAnImportedKeyInTheCallersBufferAlone) {
  KeyBuffer value;
  ASSERT_EQ(RAND_priv_bytes(value->data(), kKeyBytes), 1);
  ASSERT_EQ(import_plain("imported", "BIN", *value), 0);
  expect_only_in(value->data(), Needle(*value));
  // Refused: the name is taken.
  ASSERT_EQ(import_plain("imported", "BIN", *value), veskd::RC_KEY_EXISTS);
  expect_only_in(value->data(), Needle(*value));
}

TEST_P(Memory, HoldsTheTextOfAnImportedKeyInTheCallersBufferAlone) {
  KeyBuffer value;
  ASSERT_EQ(RAND_priv_bytes(value->data(), kKeyBytes), 1);
  Wiped<std::array<unsigned char, 64>> digits;
  for (std::size_t i = 0; i < digits->size(); ++i)
    (*digits)[i] = static_cast<unsigned char>("0123456789abcdef"[(*value)[i / 2] >> (i % 2 == 0 ? 4 : 0) & 15]);
  ASSERT_EQ(import_plain("imported-text", "B16", *digits), 0);
  expect_only_in(value->data(), Needle(*value));
  expect_only_in(digits->data(), Needle(*digits));
}

TEST_P(Memory, HoldsWrappedKeysInTheCallersBuffersAlone) {
  import_pair();
  ASSERT_EQ(call(qCreateSymKey, "wrapped", 'N'), 0);
  Wiped<KeyRecord> record;
  ASSERT_EQ(call(qRetrieveKey, "wrapped", "", &*record), 0);
  const TemporaryDirectory folder;
  const std::string file = folder / "wrapped";
  WrappedBuffer wrapped;
  ASSERT_EQ(call(qExportSymKey, "wrapped", "", "pair", file.c_str(), wrapped->data()), 0);
  expect_only_in(record->caKeyValue, needle_of(*record));
  expect_only_in(wrapped->data(), Needle(*wrapped));
  // From the buffer, and from the file.
  ASSERT_EQ(call(qImportSymKey, "unwrapped-1", "pair", nullptr, wrapped->data()), 0);
  ASSERT_EQ(call(qImportSymKey, "unwrapped-2", "pair", file.c_str(), nullptr), 0);
  expect_only_in(wrapped->data(), Needle(*wrapped));
  expect_only_in(record->caKeyValue, needle_of(*record));
  expect_nowhere(needles_of(pair()));
}

TEST_P(Memory, HoldsNothingOfAPrivateKeyThatWasSent) {
  const std::vector<Needle> needles = needles_of(pair());
  import_pair();
  expect_nowhere(needles);
  // Refused: a private key is no certificate, nor with one.
  for (const char *file : {"key.pem", "both.pem", "key.der"}) {
    ASSERT_EQ(call(qImportCertificate, pair().file(file).c_str(), "not-a-certificate", 1),
              veskd::RC_CERTIFICATE_INVALID);
    expect_nowhere(needles);
  }
  ASSERT_EQ(call(qImportPrivateKey, pair().file("key.der").c_str(), "another"), 0);
  expect_nowhere(needles);
}

TEST_P(Memory, HoldsNothingOfAKeyWhoseReplyFailed) {
  ASSERT_EQ(call(qCreateSymKey, "another name", 'N'), 0);
  Wiped<KeyRecord> record;
  ASSERT_EQ(call(qRetrieveKey, "another name", "", &*record), 0);
  const Needle needle = needle_of(*record);
  // A name with a blank at its end never matches; the record then holds the reply.
  ASSERT_EQ(call(qRetrieveKey, "another name ", "", &*record), ERR_KEY_NAME_MISMATCH);
  expect_only_in(record->caKeyValue, needle);
}

TEST_P(Memory, HoldsNoKeysWhileTheTraceIsOn) {
  ASSERT_EQ(call(qCreateSymKey, "traced", 'N'), 0);
  const TemporaryDirectory folder;
  ASSERT_EQ(TraceToFile((folder / "trace").c_str()), 0);
  Wiped<KeyRecord> record;
  EXPECT_EQ(call(qRetrieveKey, "traced", "", &*record), 0);
  TraceOff();
  expect_only_in(record->caKeyValue, needle_of(*record));
}

TEST_P(Memory, HoldsNoKeysThatWereValidated) {
  ASSERT_EQ(call(qCreateSymKey, "validated", 'N'), 0);
  Wiped<KeyRecord> record;
  ASSERT_EQ(call(qRetrieveKey, "validated", "", &*record), 0);
  testing::internal::CaptureStdout();
  EXPECT_EQ(call(qValidateKeyDatabase), 0);
  testing::internal::GetCapturedStdout();
  expect_only_in(record->caKeyValue, needle_of(*record));
}

}  // namespace
}  // namespace secrets_test
