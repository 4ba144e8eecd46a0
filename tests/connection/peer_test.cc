// Who is accepted as the server.
#include <gmock/gmock.h>

#include <cstdlib>

#include "tests/connection/client.h"

namespace tests {
namespace {

using testing::HasSubstr;

struct PeerCase {
  const char *name;
  int status;
  CertificateSpec spec;
  const char *host = "127.0.0.1";
};

void PrintTo(const PeerCase &row, std::ostream *out) {
  *out << row.name;
}

class ServerCertificate : public testing::TestWithParam<PeerCase> {};

TEST_P(ServerCertificate, IsJudged) {
  Identity shown = issue(GetParam().spec, &world().authority);
  EXPECT_STATUS(GetParam().status, world().status_against(shown, {}, GetParam().host));
}

INSTANTIATE_TEST_SUITE_P(
    Peer, ServerCertificate,
    testing::Values(
        PeerCase{"ForTheName", 0, {}, "localhost"},
        // What an address means counts, not how it is spelled.
        PeerCase{"ForTheAddressSpelledShort", 0, {}, "127.1"},
        PeerCase{"ForAnotherName", CONN_ERR_PEER_NAME, {.alternative_names = "DNS:elsewhere"}, "localhost"},
        PeerCase{"ForAnotherAddress", CONN_ERR_PEER_NAME, {.alternative_names = "IP:127.0.0.2"}},
        // An address in a DNS entry is no address.
        PeerCase{"AddressAsName", CONN_ERR_PEER_NAME, {.alternative_names = "DNS:127.0.0.1"}},
        PeerCase{"NameForAnAddress", CONN_ERR_PEER_NAME, {.alternative_names = "DNS:localhost"}},
        PeerCase{"AddressForAName", CONN_ERR_PEER_NAME, {.alternative_names = "IP:127.0.0.1"}, "localhost"},
        // The common name is for people to read.
        PeerCase{
            "CommonNameOnly", CONN_ERR_PEER_NAME, {.common_name = "localhost", .alternative_names = ""}, "localhost"},
        PeerCase{"CommonNameIsAddress", CONN_ERR_PEER_NAME, {.common_name = "127.0.0.1", .alternative_names = ""}},
        PeerCase{"PartialWildcard", CONN_ERR_PEER_NAME, {.alternative_names = "DNS:local*"}, "localhost"},
        PeerCase{"Expired", CONN_ERR_PEER_EXPIRED, {.first_day = -10, .last_day = -1}},
        PeerCase{"NotYetValid", CONN_ERR_PEER_NOT_YET_VALID, {.first_day = 1, .last_day = 10}},
        PeerCase{"ForClientsOnly", CONN_ERR_PEER_PURPOSE, {.extended_key_usage = "clientAuth"}},
        // Without the extension any purpose is meant.
        PeerCase{"WithoutPurpose", 0, {.extended_key_usage = ""}},
        PeerCase{"WeakKey", CONN_ERR_PEER_WEAK, {.rsa_bits = 1024}},
        PeerCase{"WeakSignature", CONN_ERR_PEER_WEAK, {.digest = EVP_sha1}}, PeerCase{"RsaKey", 0, {.rsa_bits = 2048}}),
    [](const auto &info) { return info.param.name; });

TEST(Peer, AnIpv6AddressIsComparedWithIpEntries) {
  for (auto [names, status] : {std::pair{"IP:::1", 0}, {"DNS:localhost, IP:127.0.0.1", int{CONN_ERR_PEER_NAME}}}) {
    Identity shown = issue({.alternative_names = names}, &world().authority);
    TlsServer server(echo({.identity = &shown}), "::1");
    Client client;
    EXPECT_STATUS(status, world().connect(client, server, "::1"));
  }
}

TEST(Peer, AnotherAuthorityIsNotTrusted) {
  Identity stranger = make_authority("Stranger");
  EXPECT_STATUS(CONN_ERR_PEER_NOT_TRUSTED, world().status_against(issue({}, &stranger)));
}

TEST(Peer, AnotherAuthorityOfTheSameNameIsNotTrusted) {
  Identity twin = make_authority("Test Authority");
  Identity shown = issue({}, &twin);
  EXPECT_STATUS(CONN_ERR_PEER_NOT_TRUSTED, world().status_against(shown));
  EXPECT_STATUS(CONN_ERR_PEER_NOT_TRUSTED, world().status_against(shown, {&twin}));
}

TEST(Peer, ASelfSignedServerIsNotTrusted) {
  EXPECT_STATUS(CONN_ERR_PEER_NOT_TRUSTED, world().status_against(issue({}, nullptr)));
}

TEST(Peer, AChainThroughAnIntermediateAuthorityIsTrusted) {
  Identity intermediate = make_authority("Intermediate", &world().authority);
  Identity shown = issue({}, &intermediate);
  EXPECT_STATUS(0, world().status_against(shown, {&intermediate}));
  EXPECT_STATUS(CONN_ERR_PEER_NOT_TRUSTED, world().status_against(shown));
}

TEST(Peer, AnIntermediateAuthorityInFile1IsATrustAnchor) {
  Identity intermediate = make_authority("Intermediate", &world().authority);
  Identity shown = issue({}, &intermediate);
  TemporaryFolder folder;
  std::string authority = folder.write("authority.pem", pem_of(intermediate.certificate.get()));
  TlsServer server(echo({.identity = &shown}));
  Client client;
  EXPECT_STATUS(0, client.connect(authority, world().chain_file, world().key_file, "127.0.0.1", server.port()));
}

TEST(Peer, AnIntermediateThatIsNoAuthorityIsRefused) {
  Identity leaf = issue({.common_name = "leaf"}, &world().authority);
  EXPECT_STATUS(CONN_ERR_PEER_PURPOSE, world().status_against(issue({}, &leaf), {&leaf}));
}

TEST(Peer, AnExpiredIntermediateIsRefused) {
  Identity old = issue({.common_name = "old",
                        .alternative_names = "",
                        .extended_key_usage = "",
                        .basic_constraints = "critical, CA:TRUE",
                        .first_day = -10,
                        .last_day = -1},
                       &world().authority);
  EXPECT_STATUS(CONN_ERR_PEER_EXPIRED, world().status_against(issue({}, &old), {&old}));
}

TEST(Peer, AChainLongerThanItsAuthorityAllowsIsRefused) {
  const CertificateSpec last = {.common_name = "last",
                                .alternative_names = "",
                                .extended_key_usage = "",
                                .basic_constraints = "critical, CA:TRUE, pathlen:0"};
  Identity issuer = issue(last, &world().authority);
  Identity further = make_authority("Further", &issuer);
  EXPECT_STATUS(0, world().status_against(issue({}, &issuer), {&issuer}));
  EXPECT_STATUS(CONN_ERR_PEER_CERTIFICATE, world().status_against(issue({}, &further), {&further, &issuer}));
}

// What file 1 holds is judged like all others.
TEST(Peer, ATrustedAuthorityThatCannotBeOneIsRefused) {
  constexpr const char *kIsAuthority = "critical, CA:TRUE";
  struct {
    int status;
    CertificateSpec spec;
  } const kAuthorities[] = {
      {CONN_ERR_PEER_EXPIRED,
       {.common_name = "Old", .basic_constraints = kIsAuthority, .first_day = -10, .last_day = -1}},
      {CONN_ERR_PEER_PURPOSE, {.common_name = "None", .basic_constraints = "critical, CA:FALSE"}},
      {CONN_ERR_PEER_WEAK, {.common_name = "Weak", .basic_constraints = kIsAuthority, .rsa_bits = 1024}},
  };
  for (const auto &[status, spec] : kAuthorities) {
    Identity authority = issue(spec, nullptr);
    Identity shown = issue({}, &authority);
    TemporaryFolder folder;
    std::string file = folder.write("authority.pem", pem_of(authority.certificate.get()));
    TlsServer server(echo({.identity = &shown}));
    Client client;
    EXPECT_STATUS(status, client.connect(file, world().chain_file, world().key_file, "127.0.0.1", server.port()));
  }
}

TEST(Peer, TheEnvironmentTrustsNobody) {
  Identity stranger = make_authority("Stranger");
  Identity shown = issue({}, &stranger);
  TemporaryFolder folder;
  std::string file = folder.write("stranger.pem", pem_of(stranger.certificate.get()));
  setenv("SSL_CERT_FILE", file.c_str(), 1);
  setenv("SSL_CERT_DIR", folder.path("").c_str(), 1);
  EXPECT_STATUS(CONN_ERR_PEER_NOT_TRUSTED, world().status_against(shown));
  unsetenv("SSL_CERT_FILE");
  unsetenv("SSL_CERT_DIR");
}

TEST(Peer, TheTraceTellsWhichNamesTheCertificateHas) {
  TraceText trace;
  Identity shown = issue({.alternative_names = "DNS:elsewhere"}, &world().authority);
  ASSERT_STATUS(CONN_ERR_PEER_NAME, world().status_against(shown, {}, "localhost"));
  EXPECT_THAT(trace.text(), HasSubstr("wanted <localhost>, the certificate is for <DNS:elsewhere>"));
}

TEST(Peer, TheTraceTellsWhichCertificateExpiredWhen) {
  TraceText trace;
  Identity shown = issue({.common_name = "old server", .first_day = -10, .last_day = -1}, &world().authority);
  ASSERT_STATUS(CONN_ERR_PEER_EXPIRED, world().status_against(shown));
  EXPECT_THAT(trace.text(), testing::ContainsRegex("certificate <CN=old server> .* until 20[0-9-]*T[0-9:]*Z"));
}

std::string server_name_seen_for(const std::string &host) {
  std::string seen = "nothing";
  {
    TlsServer server([&](Line &line) {
      if (!line.accept_tls(world().settings())) return;
      const char *name = SSL_get_servername(line.ssl(), TLSEXT_NAMETYPE_host_name);
      seen = name ? name : "none";
    });
    Client client;
    EXPECT_STATUS(0, world().connect(client, server, host));
  }
  return seen;
}

TEST(Peer, ANamedServerIsToldItsNameAndAnAddressIsNot) {
  EXPECT_EQ("localhost", server_name_seen_for("localhost"));
  EXPECT_EQ("none", server_name_seen_for("127.0.0.1"));
}

}  // namespace
}  // namespace tests
