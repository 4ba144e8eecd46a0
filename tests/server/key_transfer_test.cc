// Keys that come in from outside and keys that leave, wrapped, through the library and over a raw connection.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <string>
#include <vector>

#include "tests/server/key_pairs.h"
#include "tests/server/test_server.h"
#include "veskd/return_codes.h"
#include "veskd/wrapping.h"

namespace veskd::test {
namespace {

using ValueBytes = std::array<std::uint8_t, kKeyBytes>;

void put(KeyValue &value, const ValueBytes &bytes) {
  *value = bytes;
}

ValueBytes counting_value() {
  ValueBytes bytes;
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i);
  return bytes;
}

// Any message, encrypted by OpenSSL with any padding: what a client may send.
WrappedKey encrypted(EVP_PKEY *key, int padding, const std::string &message, const EVP_MD *digest = EVP_sha256()) {
  WrappedKey wrapped{};
  const std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> context(EVP_PKEY_CTX_new(key, nullptr),
                                                                            EVP_PKEY_CTX_free);
  std::size_t length = wrapped.size();
  EVP_PKEY_encrypt_init(context.get());
  EVP_PKEY_CTX_set_rsa_padding(context.get(), padding);
  if (padding == RSA_PKCS1_OAEP_PADDING) {
    EVP_PKEY_CTX_set_rsa_oaep_md(context.get(), digest);
    EVP_PKEY_CTX_set_rsa_mgf1_md(context.get(), digest);
  }
  EXPECT_EQ(EVP_PKEY_encrypt(context.get(), wrapped.data(), &length,
                             reinterpret_cast<const unsigned char *>(message.data()), message.size()),
            1);
  return wrapped;
}

// A PKCS#1 v1.5 block, right until someone changes it.
std::string block_of(const std::string &message) {
  return std::string("\0\2", 2) + std::string(256 - 3 - message.size(), 'p') + std::string(1, '\0') + message;
}

std::string changed(std::string block, std::size_t at, char byte) {
  block.at(at) = byte;
  return block;
}

const std::string kMessage(32, 'k');

// What is wrong with each of them, for that padding.
std::vector<std::pair<const char *, WrappedKey>> wrong_wraps(EVP_PKEY *key, Padding padding) {
  WrappedKey above_modulus;
  above_modulus.fill(0xff);
  WrappedKey random;
  RAND_bytes(random.data(), random.size());
  random[0] &= 0x7f;
  std::vector<std::pair<const char *, WrappedKey>> wraps = {
      {"above the modulus", above_modulus},
      {"random", random},
      {"zero", WrappedKey{}},
      {"for another key", encrypted(rsa_key(3), RSA_PKCS1_OAEP_PADDING, kMessage)},
  };
  if (padding == Padding::kOaep) {
    wraps.emplace_back("31 bytes", encrypted(key, RSA_PKCS1_OAEP_PADDING, kMessage.substr(1)));
    wraps.emplace_back("33 bytes", encrypted(key, RSA_PKCS1_OAEP_PADDING, kMessage + "k"));
    wraps.emplace_back("no bytes", encrypted(key, RSA_PKCS1_OAEP_PADDING, ""));
    wraps.emplace_back("SHA-1", encrypted(key, RSA_PKCS1_OAEP_PADDING, kMessage, EVP_sha1()));
    wraps.emplace_back("the other padding", encrypted(key, RSA_PKCS1_PADDING, kMessage));
    return wraps;
  }
  const std::string good = block_of(kMessage);
  const auto add = [&](const char *rule, const std::string &block) {
    wraps.emplace_back(rule, encrypted(key, RSA_NO_PADDING, block));
  };
  add("a first byte of 1", changed(good, 0, 1));
  add("block type 1", changed(good, 1, 1));
  add("a zero at the begin of the padding", changed(good, 2, 0));
  add("a zero in the padding", changed(good, 100, 0));
  add("a zero at the end of the padding", changed(good, 222, 0));
  add("no zero behind the padding", changed(good, 223, 1));
  add("31 bytes", block_of(kMessage.substr(1)));
  add("33 bytes", block_of(kMessage + "k"));
  add("the other padding", good.substr(0, 1) + "\1" + good.substr(2));
  return wraps;
}

// ---- Wrapping ----

TEST(Wrapping, OpensAsWhatItWas) {
  for (const Padding padding : {Padding::kPkcs1, Padding::kOaep}) {
    KeyValue value, opened;
    put(value, counting_value());
    const WrappedKey wrapped = wrap(rsa_key(1), padding, value);
    EXPECT_NE(wrapped, wrap(rsa_key(1), padding, value));
    ASSERT_TRUE(unwrap(rsa_key(1), padding, wrapped, opened));
    EXPECT_EQ(*opened, *value);
  }
}

TEST(Wrapping, OpensWhatOthersHaveWrapped) {
  for (const auto &[mode, padding] :
       {std::pair(Padding::kPkcs1, RSA_PKCS1_PADDING), {Padding::kOaep, RSA_PKCS1_OAEP_PADDING}}) {
    KeyValue opened;
    ASSERT_TRUE(unwrap(rsa_key(1), mode, encrypted(rsa_key(1), padding, kMessage), opened));
    EXPECT_TRUE(std::equal(opened->begin(), opened->end(), kMessage.begin()));
  }
}

// The value that comes out is random, and nothing of what was sent.
TEST(Wrapping, OfAnythingElseOpensAsARandomValue) {
  for (const Padding padding : {Padding::kPkcs1, Padding::kOaep}) {
    for (const auto &[rule, wrapped] : wrong_wraps(rsa_key(1), padding)) {
      KeyValue first, second;
      EXPECT_FALSE(unwrap(rsa_key(1), padding, wrapped, first)) << rule;
      EXPECT_FALSE(unwrap(rsa_key(1), padding, wrapped, second)) << rule;
      EXPECT_NE(*first, *second) << rule;
      EXPECT_FALSE(std::equal(first->begin() + 1, first->end(), kMessage.begin())) << rule;
    }
  }
}

// Rough: a decryption that is left out, or an exit that is taken early, makes it several times as fast.
TEST(Wrapping, TakesAsLongWhateverIsWrong) {
  using Clock = std::chrono::steady_clock;
  constexpr int kRounds = 41;
  for (const Padding padding : {Padding::kPkcs1, Padding::kOaep}) {
    auto wraps = wrong_wraps(rsa_key(1), padding);
    KeyValue value;
    wraps.emplace_back("nothing", wrap(rsa_key(1), padding, value));
    std::vector<std::vector<Clock::duration>> times(wraps.size());
    for (int round = 0; round < kRounds; ++round) {
      for (std::size_t i = 0; i < wraps.size(); ++i) {
        const Clock::time_point start = Clock::now();
        unwrap(rsa_key(1), padding, wraps[i].second, value);
        times[i].push_back(Clock::now() - start);
      }
    }
    std::vector<Clock::duration> medians;
    for (auto &series : times) {
      std::nth_element(series.begin(), series.begin() + kRounds / 2, series.end());
      medians.push_back(series[kRounds / 2]);
    }
    const auto [fastest, slowest] = std::minmax_element(medians.begin(), medians.end());
    EXPECT_LT(*slowest, 2 * *fastest);
  }
}

// ---- Import ----

class KeyTransfer : public testing::Test {
 protected:
  void SetUp() override {
    store_certificate("pair", certificate_of(rsa_key(1)).get());
    const std::string key = der_of(rsa_key(1));
    const std::string request = "000741143" + padded("pair", 64) + "Y" + fmt::format("{:05}", key.size()) + key;
    ASSERT_EQ(ask(server, request), "0000811430000");
  }
  void store_certificate(const std::string &name, X509 *certificate) {
    const std::string der = der_of(certificate);
    const std::string request = "000751139C" + padded(name, 64) + "N" + fmt::format("{:05}", der.size()) + der;
    ASSERT_EQ(ask(server, request), "0000811390000");
  }
  int import(const std::string &name, const WrappedKey &wrapped, const std::string &certificate = "pair") {
    return qImportSymKey(server.paths(), server.host(), server.port(), name.c_str(), certificate.c_str(), nullptr,
                         wrapped.data());
  }
  int export_key(const std::string &name, WrappedKey &wrapped, const std::string &certificate = "pair",
                 const std::string &instance = "") {
    return qExportSymKey(server.paths(), server.host(), server.port(), name.c_str(), instance.c_str(),
                         certificate.c_str(), nullptr, wrapped.data());
  }
  int retrieve(const std::string &name, std::string &value) {
    KeyRecord record{};
    const int status = qRetrieveKey(server.paths(), server.host(), server.port(), name.c_str(), "", &record);
    value.assign(record.caKeyValue, kKeyBytes);
    return status;
  }

  TestServer server;
};

struct ImportFields {
  std::string name = "K1";
  std::string bits = "0256";
  std::string policy = "0000000000000000N0000YN";
  std::string user_and_group = "1" + std::string(512, ' ');
  std::string format = "RSA";
  std::string certificate = "pair";
  std::string padding = "2";
  std::string value{};
};

std::string import_request(const ImportFields &fields) {
  return "009081023" + padded(fields.name, 40) + fields.bits + fields.policy + fields.user_and_group + fields.format +
         padded(fields.certificate, 64) + fields.padding + fields.value + std::string(256 - fields.value.size(), '\0');
}

std::string text_of(const WrappedKey &wrapped) {
  return {reinterpret_cast<const char *>(wrapped.data()), wrapped.size()};
}

TEST_F(KeyTransfer, ImportsAWrappedKeyWithItsPolicy) {
  ASSERT_EQ(import("K1", encrypted(rsa_key(1), RSA_PKCS1_OAEP_PADDING, kMessage)), 0);
  std::string value;
  ASSERT_EQ(retrieve("K1", value), 0);
  EXPECT_EQ(value, kMessage);
  EXPECT_EQ(qDeleteKey(server.paths(), server.host(), server.port(), "K1"), 0);
}

TEST_F(KeyTransfer, AnswersAnImportWithNameAndInstance) {
  ImportFields fields;
  fields.value = text_of(encrypted(rsa_key(1), RSA_PKCS1_PADDING, kMessage));
  fields.padding = "1";
  fields.policy = "2026010120991231N0000NN";
  const std::string reply = ask(server, import_request(fields));
  ASSERT_EQ(reply.size(), 77u);
  EXPECT_EQ(reply.substr(0, 53), "0007210230000" + padded("K1", 40));
  KeyRecord record{};
  ASSERT_EQ(qRetrieveKey(server.paths(), server.host(), server.port(), "K1", reply.substr(53).c_str(), &record), 0);
  EXPECT_EQ(std::string(record.caKeyValue, 32), kMessage);
  EXPECT_STREQ(record.caExpirationDate, "20991231");
  EXPECT_EQ(qDeleteKey(server.paths(), server.host(), server.port(), "K1"), RC_NOT_DELETABLE);
}

TEST_F(KeyTransfer, ImportsPlainValuesInEveryForm) {
  const std::string hex = "00112233445566778899aAbBcCdDeEfF00112233445566778899AABBCCDDEEFF";
  std::string expected;
  for (std::size_t i = 0; i < hex.size(); i += 2)
    expected += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
  const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
      {"binary", "BIN", expected},
      {"binary of control characters", "BIN", std::string("\n\0", 2) + std::string(30, '\xff')},
      {"hexadecimal", "B16", hex},
      {"base64", "B64", "ABEiM0RVZneImaq7zN3u/wARIjNEVWZ3iJmqu8zd7v8="},
  };
  for (const auto &[name, format, value] : cases) {
    ImportFields fields;
    fields.name = name;
    fields.format = format;
    fields.value = value;
    EXPECT_EQ(ask(server, import_request(fields)).substr(0, 13), "0007210230000") << name;
    std::string retrieved;
    EXPECT_EQ(retrieve(name, retrieved), 0);
    EXPECT_EQ(retrieved, format == "BIN" ? value : expected) << name;
  }
}

struct Refusal {
  const char *rule;
  ImportFields fields;
  ReturnCode code;
};

ImportFields of_format(const std::string &format, const std::string &value) {
  ImportFields fields;
  fields.format = format;
  fields.value = value;
  return fields;
}

TEST_F(KeyTransfer, RefusesImportsThatAreNotWhatTheyShouldBe) {
  const std::string hex(64, 'a');
  const std::string base64 = "ABEiM0RVZneImaq7zN3u/wARIjNEVWZ3iJmqu8zd7v8=";
  const std::vector<Refusal> refusals = {
      {"a blank name", {.name = ""}, RC_KEY_NAME_INVALID},
      {"128 bits", {.bits = "0128"}, RC_KEY_SIZE},
      {"192 bits in binary", {.bits = "0192", .format = "BIN", .value = std::string(24, 'x')}, RC_KEY_SIZE},
      {"no bits", {.bits = "    "}, RC_KEY_SIZE},
      {"a rollover", {.policy = "0000000000000000Y0001YN"}, RC_POLICY_INVALID},
      {"a user", {.user_and_group = "1" + padded("user", 512)}, RC_MALFORMED_REQUEST},
      {"an unknown format", {.format = "XYZ"}, RC_TRANSFER_FORMAT},
      {"padding mode 0", {.padding = "0"}, RC_PADDING_MODE},
      {"a blank padding mode", {.padding = " "}, RC_PADDING_MODE},
      {"a certificate without a private key", {.certificate = "other"}, RC_PRIVATE_KEY_UNKNOWN},
      {"a binary value of 33 bytes", of_format("BIN", std::string(33, 'x')), RC_KEY_VALUE_FORM},
      {"a wrapped value that is called binary", of_format("BIN", std::string(256, 'x')), RC_KEY_VALUE_FORM},
      {"63 hexadecimal digits", of_format("B16", hex.substr(1)), RC_KEY_VALUE_FORM},
      {"65 hexadecimal digits", of_format("B16", hex + "a"), RC_KEY_VALUE_FORM},
      {"a digit that is none", of_format("B16", hex.substr(1) + "g"), RC_KEY_VALUE_FORM},
      {"hexadecimal digits with colons", of_format("B16", "aa:" + hex.substr(3)), RC_KEY_VALUE_FORM},
      {"base64 of 33 bytes", of_format("B64", base64.substr(0, 43) + "A"), RC_KEY_VALUE_FORM},
      {"base64 of 31 bytes", of_format("B64", base64.substr(0, 42) + "=="), RC_KEY_VALUE_FORM},
      {"base64 with a pad in the middle", of_format("B64", "=" + base64.substr(1)), RC_KEY_VALUE_FORM},
      {"base64 with a blank before it", of_format("B64", " " + base64.substr(1)), RC_KEY_VALUE_FORM},
      {"base64 with bits left over", of_format("B64", base64.substr(0, 42) + "9="), RC_KEY_VALUE_FORM},
      {"base64 with a character that is none", of_format("B64", "-" + base64.substr(1)), RC_KEY_VALUE_FORM},
  };
  for (const Refusal &refusal : refusals) {
    EXPECT_EQ(ask(server, import_request(refusal.fields)),
              fmt::format("000081023{:04}", static_cast<int>(refusal.code)))
        << refusal.rule;
  }
  std::string value;
  EXPECT_EQ(retrieve("K1", value), RC_KEY_UNKNOWN);
}

TEST_F(KeyTransfer, GivesWrongWrapsOneReturnCodeAndKeepsNothing) {
  for (const auto &[padding, mode] : {std::pair(Padding::kPkcs1, "1"), {Padding::kOaep, "2"}}) {
    for (const auto &[rule, wrapped] : wrong_wraps(rsa_key(1), padding)) {
      ImportFields fields;
      fields.padding = mode;
      fields.value = text_of(wrapped);
      EXPECT_EQ(ask(server, import_request(fields)), "0000810230524") << rule;
    }
  }
  std::string value;
  EXPECT_EQ(retrieve("K1", value), RC_KEY_UNKNOWN);
  EXPECT_EQ(import("K1", encrypted(rsa_key(1), RSA_PKCS1_OAEP_PADDING, kMessage)), 0);
}

TEST_F(KeyTransfer, ImportsNothingUnderANameThatIsOrWasUsed) {
  const WrappedKey wrapped = encrypted(rsa_key(1), RSA_PKCS1_OAEP_PADDING, kMessage);
  ASSERT_EQ(import("K1", wrapped), 0);
  EXPECT_EQ(import("K1", encrypted(rsa_key(1), RSA_PKCS1_OAEP_PADDING, std::string(32, 'x'))), RC_KEY_EXISTS);
  std::string value;
  ASSERT_EQ(retrieve("K1", value), 0);
  EXPECT_EQ(value, kMessage);
  ASSERT_EQ(qDeleteKey(server.paths(), server.host(), server.port(), "K1"), 0);
  EXPECT_EQ(import("K1", wrapped), RC_KEY_NAME_USED);
}

TEST_F(KeyTransfer, ImportsUnderAPrivateKeyWhoseCertificateIsGone) {
  ASSERT_EQ(qDeleteCertificate(server.paths(), server.host(), server.port(), "pair", 'C'), 0);
  EXPECT_EQ(import("K1", encrypted(rsa_key(1), RSA_PKCS1_OAEP_PADDING, kMessage)), 0);
  ASSERT_EQ(qDeletePrivateKey(server.paths(), server.host(), server.port(), "pair"), 0);
  EXPECT_EQ(import("K2", encrypted(rsa_key(1), RSA_PKCS1_OAEP_PADDING, kMessage)), RC_PRIVATE_KEY_UNKNOWN);
}

// ---- Export ----

TEST_F(KeyTransfer, ExportsAKeyThatItsHolderUnwraps) {
  ASSERT_EQ(qCreateSymKey(server.paths(), server.host(), server.port(), "K1", 'N'), 0);
  std::string value;
  ASSERT_EQ(retrieve("K1", value), 0);
  WrappedKey wrapped;
  ASSERT_EQ(export_key("K1", wrapped), 0);
  KeyValue opened;
  ASSERT_TRUE(unwrap(rsa_key(1), Padding::kOaep, wrapped, opened));
  EXPECT_TRUE(std::equal(opened->begin(), opened->end(), reinterpret_cast<const std::uint8_t *>(value.data())));
  EXPECT_EQ(import("K2", wrapped), 0);
  std::string again;
  EXPECT_EQ(retrieve("K2", again), 0);
  EXPECT_EQ(again, value);
}

std::string export_request(const std::string &name, const std::string &instance, const std::string &rest) {
  return "001361025" + padded(name, 40) + padded(instance, 24) + rest;
}

// Five bytes behind the declared end belong to the request of the library; other clients may leave them out.
TEST_F(KeyTransfer, AnswersAnExportWithOrWithoutTheUncountedBytes) {
  const std::string instance =
      ask(server, "005841001" + padded("K1", 40) + "02560000000000000000N0000YN1" + padded("", 512)).substr(53);
  for (const std::string mode : {"1", "2"}) {
    for (const std::size_t uncounted : {0, 5, 6}) {
      for (const std::string &asked : {std::string(), instance}) {
        const std::string reply =
            ask(server, export_request("K1", asked, "RSA" + padded("pair", 64) + mode) + std::string(uncounted, '\0'));
        ASSERT_EQ(reply.size(), 345u);
        EXPECT_EQ(reply.substr(0, 89), "0034010250000" + padded("K1", 40) + instance + "0256RSA" + mode + "0256");
      }
    }
  }
}

TEST_F(KeyTransfer, RefusesExportsThatAreNotWhatTheyShouldBe) {
  ASSERT_EQ(qCreateSymKey(server.paths(), server.host(), server.port(), "K1", 'N'), 0);
  store_certificate("old", certificate_of(rsa_key(2), 20, -10).get());
  store_certificate("new", certificate_of(rsa_key(2), -10, 20).get());
  const std::string pair = padded("pair", 64);
  const std::vector<std::tuple<const char *, std::string, int>> cases = {
      {"no such key", export_request("K2", "", "RSA" + pair + "2"), RC_KEY_UNKNOWN},
      {"no such instance", export_request("K1", "none", "RSA" + pair + "2"), RC_INSTANCE_UNKNOWN},
      {"another format", export_request("K1", "", "BIN" + pair + "2"), RC_TRANSFER_FORMAT},
      {"another padding mode", export_request("K1", "", "RSA" + pair + "3"), RC_PADDING_MODE},
      {"no such certificate", export_request("K1", "", "RSA" + padded("none", 64) + "2"), RC_CERTIFICATE_UNKNOWN},
      {"a blank certificate", export_request("K1", "", "RSA" + padded("", 64) + "2"), RC_CERTIFICATE_UNKNOWN},
      {"an expired certificate", export_request("K1", "", "RSA" + padded("old", 64) + "2"), RC_CERTIFICATE_EXPIRED},
      {"one not valid yet", export_request("K1", "", "RSA" + padded("new", 64) + "2"), RC_CERTIFICATE_EXPIRED},
  };
  for (const auto &[rule, request, code] : cases)
    EXPECT_EQ(ask(server, request), fmt::format("000081025{:04}", code)) << rule;
}

// ---- Files of the caller ----

TEST_F(KeyTransfer, FilesThatCannotBeReadOrWrittenAreTheCallersStatuses) {
  TemporaryDirectory files;
  const auto import_from = [&](const std::string &path) {
    return qImportSymKey(server.paths(), server.host(), server.port(), "K1", "pair", path.c_str(), nullptr);
  };
  EXPECT_EQ(import_from(files / "none"), ERR_IMPORT_FILE_OPEN);
  std::ofstream(files / "short") << std::string(255, 'x');
  EXPECT_EQ(import_from(files / "short"), ERR_IMPORT_FILE_READ);
  std::ofstream(files / "value") << text_of(encrypted(rsa_key(1), RSA_PKCS1_OAEP_PADDING, kMessage)) << "more";
  EXPECT_EQ(import_from(files / "value"), 0);
  const auto export_to = [&](const std::string &path) {
    WrappedKey wrapped;
    return qExportSymKey(server.paths(), server.host(), server.port(), "K1", "", "pair", path.c_str(), wrapped.data());
  };
  EXPECT_EQ(export_to("/nowhere/file"), ERR_EXPORT_FILE_OPEN);
  EXPECT_EQ(export_to(files / "out"), 0);
  EXPECT_EQ(std::filesystem::file_size(files / "out"), 256u);
}

}  // namespace
}  // namespace veskd::test
