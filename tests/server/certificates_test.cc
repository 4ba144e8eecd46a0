// The certificates of a development environment, and the directory they stand in.
#include "veskd/certificates.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <fstream>

#include "tests/server/test_server.h"
#include "veskd/dev_environment.h"
#include "veskd/files.h"
#include "veskd/master_key_rotation.h"

namespace veskd::test {
namespace {

namespace fs = std::filesystem;
const Log kLog(true);

std::vector<CertificatePtr> read_chain(const fs::path &path) {
  std::vector<CertificatePtr> chain;
  const std::unique_ptr<BIO, decltype(&BIO_free)> file(BIO_new_file(path.c_str(), "r"), BIO_free);
  while (CertificatePtr certificate{PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr)})
    chain.push_back(std::move(certificate));
  return chain;
}

// What OpenSSL says about the leaf for a purpose, with the authority alone trusted, at a time from now.
int verify(X509 *leaf, X509 *authority, int purpose, time_t from_now = 0) {
  const std::unique_ptr<X509_STORE, decltype(&X509_STORE_free)> store(X509_STORE_new(), X509_STORE_free);
  const std::unique_ptr<X509_STORE_CTX, decltype(&X509_STORE_CTX_free)> context(X509_STORE_CTX_new(),
                                                                                X509_STORE_CTX_free);
  X509_STORE_add_cert(store.get(), authority);
  X509_STORE_CTX_init(context.get(), store.get(), leaf, nullptr);
  X509_STORE_CTX_set_purpose(context.get(), purpose);
  X509_STORE_CTX_set_flags(context.get(), X509_V_FLAG_X509_STRICT);
  X509_STORE_CTX_set_time(context.get(), 0, time(nullptr) + from_now);
  X509_verify_cert(context.get());
  return X509_STORE_CTX_get_error(context.get());
}

constexpr time_t kDay = 86400;

class DevDirectory : public testing::Test {
 protected:
  void open(const std::vector<std::string> &names = {}) {
    const DevEnvironment environment(path, names, kLog);
    open_master_key(environment.store_files());
  }
  std::string content(const char *name) { return read_file(path / name); }

  TemporaryDirectory directory;
  fs::path path = directory / "made";
};

TEST_F(DevDirectory, TheServersChainVerifiesForAServerAlone) {
  open();
  const auto chain = read_chain(path / "server.pem");
  ASSERT_EQ(chain.size(), 2u);
  const auto authority = read_chain(path / "authority.pem");
  ASSERT_EQ(authority.size(), 1u);
  EXPECT_EQ(X509_cmp(chain[1].get(), authority[0].get()), 0);
  EXPECT_EQ(verify(chain[0].get(), authority[0].get(), X509_PURPOSE_SSL_SERVER), X509_V_OK);
  EXPECT_EQ(verify(chain[0].get(), authority[0].get(), X509_PURPOSE_SSL_CLIENT), X509_V_ERR_INVALID_PURPOSE);
}

TEST_F(DevDirectory, TheClientsChainVerifiesForAClientAlone) {
  open();
  const auto chain = read_chain(path / "client.pem");
  ASSERT_EQ(chain.size(), 2u);
  EXPECT_EQ(verify(chain[0].get(), chain[1].get(), X509_PURPOSE_SSL_CLIENT), X509_V_OK);
  EXPECT_EQ(verify(chain[0].get(), chain[1].get(), X509_PURPOSE_SSL_SERVER), X509_V_ERR_INVALID_PURPOSE);
}

TEST_F(DevDirectory, LeavesLastAYearAndTheAuthorityTen) {
  open();
  const auto chain = read_chain(path / "server.pem");
  X509 *leaf = chain[0].get();
  X509 *authority = chain[1].get();
  EXPECT_EQ(verify(leaf, authority, X509_PURPOSE_SSL_SERVER, 364 * kDay), X509_V_OK);
  EXPECT_EQ(verify(leaf, authority, X509_PURPOSE_SSL_SERVER, 366 * kDay), X509_V_ERR_CERT_HAS_EXPIRED);
  EXPECT_EQ(verify(authority, authority, X509_PURPOSE_ANY, 3651 * kDay), X509_V_OK);
  EXPECT_EQ(verify(authority, authority, X509_PURPOSE_ANY, 3653 * kDay), X509_V_ERR_CERT_HAS_EXPIRED);
}

TEST_F(DevDirectory, TheAuthoritySignsLeavesOnly) {
  open();
  const auto authority = read_chain(path / "authority.pem");
  EXPECT_EQ(X509_get_key_usage(authority[0].get()), static_cast<unsigned>(KU_KEY_CERT_SIGN | KU_CRL_SIGN));
  EXPECT_EQ(X509_get_pathlen(authority[0].get()), 0);
  EXPECT_TRUE(X509_check_ca(authority[0].get()));
  const auto leaf = read_chain(path / "client.pem");
  EXPECT_EQ(X509_get_key_usage(leaf[0].get()), static_cast<unsigned>(KU_DIGITAL_SIGNATURE));
  EXPECT_FALSE(X509_check_ca(leaf[0].get()));
}

TEST_F(DevDirectory, TheServersCertificateIsForTheLocalHostAndTheNamesGiven) {
  open({"kms.example", "192.0.2.7"});
  const auto chain = read_chain(path / "server.pem");
  for (const char *name : {"localhost", "127.0.0.1", "::1", "kms.example", "192.0.2.7"})
    EXPECT_TRUE(is_for_host(chain[0].get(), name)) << name;
  for (const char *name : {"example", "other.example", "192.0.2.8"})
    EXPECT_FALSE(is_for_host(chain[0].get(), name)) << name;
}

TEST_F(DevDirectory, PrivateFilesArePrivate) {
  open();
  for (const char *name : {"authority-key.pem", "server-key.pem", "client-key.pem", "master.key"}) {
    EXPECT_EQ(mode_of(path / name), 0600u) << name;
  }
  EXPECT_EQ(mode_of(path), 0700u);
}

TEST_F(DevDirectory, WhatIsThereIsKept) {
  open();
  std::vector<std::string> before;
  const auto names = {"authority.pem", "authority-key.pem", "server.pem", "server-key.pem",
                      "client.pem",    "client-key.pem",    "master.key"};
  for (const char *name : names) before.push_back(content(name));
  open();
  std::vector<std::string> after;
  for (const char *name : names) after.push_back(content(name));
  EXPECT_EQ(before, after);
}

TEST_F(DevDirectory, AFurtherHostNameMakesTheServersCertificateAnew) {
  open();
  const std::string server = content("server.pem");
  const std::string client = content("client.pem");
  open({"kms.example"});
  EXPECT_NE(content("server.pem"), server);
  EXPECT_EQ(content("client.pem"), client);
  EXPECT_TRUE(is_for_host(read_chain(path / "server.pem")[0].get(), "kms.example"));
}

TEST_F(DevDirectory, AnExpiredLeafIsMadeAnew) {
  open();
  const Identity authority = read_identity(path / "authority.pem", path / "authority-key.pem");
  const Identity expired = make_leaf(authority, {"old", Purpose::kClient, {}}, Days(-1));
  replace_file(path / "client.pem", certificate_pem(expired.certificate.get()), kPublicMode);
  replace_file(path / "client-key.pem", private_key_pem(expired.key.get()).text(), kPrivateMode);
  open();
  const auto chain = read_chain(path / "client.pem");
  EXPECT_EQ(verify(chain[0].get(), authority.certificate.get(), X509_PURPOSE_SSL_CLIENT), X509_V_OK);
}

TEST_F(DevDirectory, HalfOfAPairIsNamed) {
  struct Half {
    const char *removed;
    const char *present;
  };
  for (const Half &half : {Half{"authority.pem", "authority-key.pem"}, Half{"authority-key.pem", "authority.pem"},
                           Half{"server.pem", "server-key.pem"}, Half{"server-key.pem", "server.pem"},
                           Half{"client.pem", "client-key.pem"}, Half{"client-key.pem", "client.pem"}}) {
    fs::remove_all(path);
    open();
    fs::remove(path / half.removed);
    const std::string message = start_error([&] { open(); });
    EXPECT_THAT(message, testing::HasSubstr((path / half.removed).string() + " is missing"));
    EXPECT_THAT(message, testing::HasSubstr((path / half.present).string() + " is there"));
  }
}

TEST_F(DevDirectory, AStoreWithoutItsMasterKeyIsNotReplaced) {
  open();
  fs::remove(path / "master.key");
  std::ofstream(path / "store.db") << "";
  EXPECT_THAT(start_error([&] { open(); }), testing::HasSubstr("master.key is missing"));
  EXPECT_FALSE(fs::exists(path / "master.key"));
}

TEST_F(DevDirectory, FilesThatDoNotBelongTogetherAreNamed) {
  open();
  const std::string key = content("client-key.pem");
  replace_file(path / "client-key.pem", content("server-key.pem"), kPrivateMode);
  EXPECT_THAT(start_error([&] { open(); }), testing::HasSubstr("client-key.pem does not belong"));
  replace_file(path / "client-key.pem", key, kPrivateMode);
  fs::remove(path / "authority.pem");
  fs::remove(path / "authority-key.pem");
  EXPECT_THAT(start_error([&] { open(); }), testing::HasSubstr("server.pem was not issued by the authority"));
}

TEST_F(DevDirectory, FilesThatAreNotWhatTheyShouldBeAreNamed) {
  open();
  replace_file(path / "client.pem", "no certificate\n", kPublicMode);
  EXPECT_THAT(start_error([&] { open(); }), testing::HasSubstr("client.pem holds no PEM certificate"));
  fs::permissions(path / "server-key.pem", fs::perms::group_read, fs::perm_options::add);
  EXPECT_THAT(start_error([&] { open(); }), testing::HasSubstr("server-key.pem: type  chmod 600"));
}

TEST_F(DevDirectory, BelongsToOneServerAtATime) {
  DevEnvironment first(path, {}, kLog);
  EXPECT_THAT(start_error([&] { open(); }), testing::HasSubstr("another veskd serves the directory"));
}

TEST_F(DevDirectory, TheNextCommandIsQuotedForTheShell) {
  DevEnvironment plain(path, {}, kLog);
  EXPECT_EQ(plain.next_command("127.0.0.1", 40123),
            "vesk --host 127.0.0.1 --port 40123 --certificates " + plain.directory().string() + " ping");
  DevEnvironment odd(directory / "it's odd", {}, kLog);
  EXPECT_THAT(odd.next_command("127.0.0.1", 1), testing::HasSubstr("/it'\\''s odd' ping"));
}

}  // namespace
}  // namespace veskd::test
