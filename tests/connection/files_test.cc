// The three certificate files in every state.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include "tests/connection/client.h"

namespace tests {
namespace {

using testing::HasSubstr;

// Connects to a port where nobody listens: bad files must be noticed before that.
class Files : public testing::Test {
 protected:
  int status() {
    Client client;
    return client.connect(authority_, chain_, key_, "127.0.0.1", "1");
  }

  TemporaryFolder folder_;
  std::string authority_ = world().authority_file;
  std::string chain_ = world().chain_file;
  std::string key_ = world().key_file;
};

struct FileStatuses {
  std::string *path;
  int missing;
  int unreadable;
  int not_pem;
};

#define FOR_EACH_FILE(file)                                                                                      \
  for (FileStatuses file : {FileStatuses{&authority_, CONN_ERR_AUTHORITY_MISSING, CONN_ERR_AUTHORITY_UNREADABLE, \
                                         CONN_ERR_AUTHORITY_NOT_PEM},                                            \
                            FileStatuses{&chain_, CONN_ERR_CERTIFICATE_MISSING, CONN_ERR_CERTIFICATE_UNREADABLE, \
                                         CONN_ERR_CERTIFICATE_NOT_PEM},                                          \
                            FileStatuses{&key_, CONN_ERR_KEY_MISSING, CONN_ERR_KEY_UNREADABLE, CONN_ERR_KEY_NOT_PEM}})

TEST_F(Files, GoodOnesReachTheNetwork) {
  EXPECT_STATUS(CONN_ERR_REFUSED, status());
}

TEST_F(Files, AMissingFileHasItsStatus) {
  FOR_EACH_FILE(file) {
    std::string good = *file.path;
    for (const std::string &bad : {folder_.path("nowhere"), good + "/below", std::string()}) {
      *file.path = bad;
      EXPECT_STATUS(file.missing, status()) << bad;
    }
    *file.path = good;
  }
}

TEST_F(Files, AnUnreadableFileHasItsStatus) {
  mkfifo(folder_.path("pipe").c_str(), 0600);
  FOR_EACH_FILE(file) {
    std::string good = *file.path;
    // A folder, a pipe that nobody writes to, a device without end, and more than any certificate file.
    for (const std::string &bad : {folder_.path(""), folder_.path("pipe"), std::string("/dev/zero"),
                                   folder_.write("large", std::string(5 << 20, 'x'))}) {
      *file.path = bad;
      EXPECT_STATUS(file.unreadable, status()) << bad;
    }
    *file.path = good;
  }
}

TEST_F(Files, AFileThatIsNotPemHasItsStatus) {
  FOR_EACH_FILE(file) {
    std::string good = *file.path;
    std::string text = contents_of(good);
    // Nothing, other text, a block cut short, a block with damaged contents.
    for (const std::string &bad : {std::string(), std::string("no certificate\n"), text.substr(0, text.size() / 2),
                                   std::string(text).replace(60, 8, "AAAAAAAA")}) {
      *file.path = folder_.write("bad.pem", bad);
      EXPECT_STATUS(file.not_pem, status()) << bad;
    }
    *file.path = good;
  }
}

TEST_F(Files, ADamagedCertificateBehindAGoodOneIsNoticed) {
  std::string text = contents_of(authority_);
  authority_ = folder_.write("bad.pem", text + std::string(text).replace(60, 8, "AAAAAAAA"));
  EXPECT_STATUS(CONN_ERR_AUTHORITY_NOT_PEM, status());
}

TEST_F(Files, AKeyIsNoCertificateAndACertificateNoKey) {
  std::swap(chain_, key_);
  EXPECT_STATUS(CONN_ERR_CERTIFICATE_NOT_PEM, status());
  chain_ = world().chain_file;
  EXPECT_STATUS(CONN_ERR_KEY_NOT_PEM, status());
}

TEST_F(Files, CertificateAndKeyMayShareAFile) {
  chain_ = key_ = folder_.write("both.pem", contents_of(chain_) + contents_of(key_));
  EXPECT_STATUS(CONN_ERR_REFUSED, status());
}

TEST_F(Files, AnEncryptedKeyFailsWithoutAskingAnybody) {
  key_ = folder_.write("key.pem", pem_of(world().client.key.get(), "passphrase"));
  EXPECT_STATUS(CONN_ERR_KEY_ENCRYPTED, status());
}

TEST_F(Files, AKeyOfAnotherCertificateDoesNotMatch) {
  key_ = folder_.write("key.pem", pem_of(make_key().get()));
  EXPECT_STATUS(CONN_ERR_KEY_MISMATCH, status());
  key_ = folder_.write("key.pem", pem_of(make_key(2048).get()));
  EXPECT_STATUS(CONN_ERR_KEY_MISMATCH, status());
}

TEST_F(Files, AWeakClientCertificateIsRefused) {
  Identity weak = issue({.extended_key_usage = "clientAuth", .rsa_bits = 1024}, &world().authority);
  chain_ = folder_.write("weak.pem", pem_of(weak.certificate.get()));
  key_ = folder_.write("key.pem", pem_of(weak.key.get()));
  EXPECT_STATUS(CONN_ERR_CERTIFICATE_WEAK, status());
}

TEST_F(Files, TheTraceTellsWhichFileAndWhy) {
  TraceText trace;
  key_ = folder_.path("nowhere");
  EXPECT_STATUS(CONN_ERR_KEY_MISSING, status());
  EXPECT_THAT(trace.text(), HasSubstr("file 3 (client key), " + key_ + ": No such file or directory"));
}

TEST_F(Files, TheFilesAreThoseOfTheMomentOfTheCall) {
  std::string text = contents_of(key_);
  key_ = folder_.write("key.pem", pem_of(make_key().get()));
  EXPECT_STATUS(CONN_ERR_KEY_MISMATCH, status());
  folder_.write("key.pem", text);
  EXPECT_STATUS(CONN_ERR_REFUSED, status());
}

TEST_F(Files, TheWholeClientChainReachesTheServer) {
  Identity intermediate = make_authority("Client Authority", &world().authority);
  Identity client_identity = make_client(intermediate);
  chain_ =
      folder_.write("chain.pem", pem_of(client_identity.certificate.get()) + pem_of(intermediate.certificate.get()));
  key_ = folder_.write("key.pem", pem_of(client_identity.key.get()));
  TlsSettings settings = world().settings();
  settings.client_authority = &world().authority;
  int num_seen = 0;
  {
    TlsServer server([&](Line &line) {
      // A server counts the client's own certificate apart from the chain.
      if (line.accept_tls(settings)) num_seen = 1 + sk_X509_num(SSL_get_peer_cert_chain(line.ssl()));
      line.write("x");
      line.wait_for_end();
    });
    Client client;
    ASSERT_STATUS(0, client.connect(authority_, chain_, key_, "127.0.0.1", server.port()));
    ASSERT_STATUS(0, client.read(1));
  }
  EXPECT_EQ(2, num_seen);
}

}  // namespace
}  // namespace tests
