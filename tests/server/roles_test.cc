// Who may do what: by the roles that a client's certificate gives it, and by the names that it is confined to.
#include "veskd/roles.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "orn/support.h"
#include "orn/vesk.h"
#include "tests/server/test_server.h"
#include "veskd/audit_records.h"
#include "veskd/handlers.h"
#include "veskd/mirror_wire.h"
#include "veskd/return_codes.h"

namespace veskd::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Pair;

constexpr const char *kTape = "CN=tape,O=veskd dev";
constexpr const char *kOwn = "TAPE_CONSTANT_1";  // constants of templates
constexpr const char *kOther = "DISK_CONSTANT_1";

RoleRule rule(const char *subject, Role role, std::vector<std::string> prefixes = {}) {
  return {make_mark(Mark::kSubject, subject), role, Scope(std::move(prefixes))};
}

ServerOptions options_with(std::vector<RoleRule> rules) {
  ServerOptions options;
  for (RoleRule &rule : rules) options.roles.add(std::move(rule));
  options.roles.add(rule("CN=veskd development client,O=veskd dev", kAdministrator));
  options.limits.num_threads = 2;
  return options;
}

// A server at which the client "tape" has what the rules give it, and the development client is the administrator.
class Client {
 public:
  explicit Client(std::vector<RoleRule> rules)
      : server(options_with(std::move(rules))), paths_(server.add_client({"tape", Purpose::kClient, {}})) {}

  template <typename... Arguments>
  int call(int (*function)(const CertificatePaths *, const char *, std::uint32_t, Arguments...), auto... arguments) {
    return function(&paths_, server.host(), server.port(), arguments...);
  }
  template <typename... Arguments>
  int as_administrator(int (*function)(const CertificatePaths *, const char *, std::uint32_t, Arguments...),
                       auto... arguments) {
    return function(server.paths(), server.host(), server.port(), arguments...);
  }
  int retrieve(const char *name) {
    KeyRecord record{};
    return qRetrieveKey(&paths_, server.host(), server.port(), name, "", &record);
  }
  int next(const char *constant) {
    char name[41];
    unsigned char value[32];
    std::uint32_t last = 0;
    return call(qGetNextKey, constant, name, value, &last);
  }
  std::string ask(const std::string &request) {
    RawConnection connection(server.port());
    EXPECT_TRUE(connection.handshake({server.directory() / "tape.pem", server.directory() / "tape-key.pem",
                                      server.directory() / "authority.pem", 0}));
    connection.send(request);
    return connection.receive_all();
  }

  TestServer server;

 private:
  CertificatePaths paths_;
};

// ---- Roles ----

TEST(Roles, WithoutOneNothingIsAllowed) {
  Client client({rule("CN=tape", kAdministrator), rule("CN=tape,O=veskd", kAdministrator)});
  EXPECT_EQ(client.call(qAdminNoop), RC_NO_ROLE);
  EXPECT_EQ(client.call(qCreateSymKey, "K1", 'N'), RC_NO_ROLE);
  EXPECT_EQ(client.ask("000041037"), "0000810370111");
  EXPECT_EQ(client.server.ping(), 0);
}

TEST(Roles, AStorageClientMakesKeysAndIsServedThemButDestroysNone) {
  Client client({rule(kTape, kStorageClient)});
  EXPECT_EQ(client.call(qCreateSymKey, "K1", 'N'), 0);
  EXPECT_EQ(client.retrieve("K1"), 0);
  EXPECT_EQ(client.call(qDeleteKey, "K1"), RC_ROLE_FORBIDS);
  EXPECT_EQ(client.ask("000041041"), "0000810410112");
  EXPECT_EQ(client.retrieve("K1"), 0);
}

TEST(Roles, ARefusalIsAudited) {
  Client client({rule(kTape, kStorageClient)});
  ASSERT_EQ(client.call(qDeleteKey, "K1"), RC_ROLE_FORBIDS);
  // Also that of what would leave no entry if it were allowed.
  ASSERT_EQ(client.ask("000041041"), "0000810410112");
  std::vector<std::string> refused;
  Store::Reader reader(client.server.store());
  for_each_audit_entry((*reader).database, 1, [&](const AuditEntry &entry) {
    if (entry.event.return_code == RC_ROLE_FORBIDS) refused.push_back(entry.event.caller + " " + entry.event.function);
  });
  EXPECT_EQ(refused, (std::vector<std::string>{std::string(kTape) + " DeleteKey", std::string(kTape) + " ValidateDB"}));
}

TEST(Roles, AnAuditorSeesNamesAndNoValues) {
  Client client({rule(kTape, kAuditor)});
  ASSERT_EQ(client.as_administrator(qCreateSymKey, "K1", 'N'), 0);
  EXPECT_EQ(client.ask("000041037"), "0001410370000N00040" + padded("K1", 40));
  EXPECT_EQ(client.retrieve("K1"), RC_ROLE_FORBIDS);
  EXPECT_EQ(client.call(qCreateSymKey, "K2", 'N'), RC_ROLE_FORBIDS);
}

TEST(Roles, AMirrorDeliversChangesAndNothingElse) {
  Client client({rule(kTape, kMirror)});
  EXPECT_EQ(client.retrieve("K1"), RC_ROLE_FORBIDS);
  EXPECT_EQ(client.ask(std::string("00004") + wire::kCompareKeys.tran_id).substr(5, 8),
            std::string(wire::kCompareKeys.tran_id) + "0000");
}

TEST(Roles, OnlyAMirrorDelivers) {
  Client client({rule(kTape, kAdministrator)});
  EXPECT_EQ(client.ask(std::string("00004") + wire::kCompareKeys.tran_id),
            std::string("00008") + wire::kCompareKeys.tran_id + "0605");
}

TEST(Roles, SeveralAddUp) {
  Client client({rule(kTape, kStorageClient), rule(kTape, kAuditor)});
  EXPECT_EQ(client.call(qCreateSymKey, "K1", 'N'), 0);
  EXPECT_EQ(client.ask("000041041").substr(5, 8), "10410000");
}

// Of these lists clients take no return code.
TEST(Roles, ARefusedListOfCertificatesIsEmpty) {
  Client client({rule(kTape, kStorageClient)});
  const std::unique_ptr<LinkedList, decltype(&ll_free)> list(ll_create(65), ll_free);
  EXPECT_EQ(client.call(qGetCertificateList_as_ll, 'C', list.get()), 0);
  EXPECT_EQ(client.call(qGetPrivateKeyList_as_ll, list.get()), 0);
  EXPECT_EQ(ll_count(list.get()), 0u);
  EXPECT_EQ(client.ask("000051049C"), "0000810490112");
}

// The document's table of transactions is the handler table.
TEST(Roles, StandInTheDocumentAsTheyAre) {
  std::ifstream document(VESKD_DOCUMENT);
  ASSERT_TRUE(document);
  int num_rows = 0;
  for (std::string line; std::getline(document, line);) {
    if (line.size() < 10 || line.substr(0, 2) != "| " || line.substr(6, 3) != " | ") continue;
    const Handler *handler = find_handler(line.substr(2, 4));
    if (handler == nullptr || line[9] == '`') continue;
    std::string letters;
    for (const auto &[role, letter] :
         {std::pair(kStorageClient, " S"), {kAdministrator, " A"}, {kAuditor, " U"}, {kMirror, " M"}})
      if ((handler->roles & role) != 0) letters += letter;
    EXPECT_THAT(line, testing::HasSubstr(fmt::format("{} |{} | ", handler->transaction.function, letters)));
    ++num_rows;
  }
  EXPECT_EQ(num_rows, 37);
}

constexpr std::size_t kPageHeader = 5 + 4 + 4 + 1 + 5;

// ---- Names that a storage client is confined to ----

class Confined : public testing::Test {
 protected:
  void SetUp() override {
    for (const char *constant : {kOwn, kOther}) ASSERT_EQ(client.as_administrator(qAutoGenKeys, constant, 'I', 2), 0);
    ASSERT_EQ(client.as_administrator(qCreateSymKey, "DISK", 'N'), 0);
  }
  std::vector<std::string> listed(const std::string &request, std::size_t header, std::size_t entry, std::size_t name) {
    const std::string reply = client.ask(request);
    std::vector<std::string> names;
    for (std::size_t at = header; at < reply.size(); at += entry) names.push_back(reply.substr(at, name));
    return names;
  }

  Client client{{rule(kTape, kStorageClient, {"TAPE_", "POOL"})}};
};

TEST_F(Confined, ItsOwnKeysAreThere) {
  EXPECT_EQ(client.call(qCreateSymKey, "TAPE_1", 'N'), 0);
  EXPECT_EQ(client.call(qCreateSymKey, "POOL", 'N'), 0);
  EXPECT_EQ(client.retrieve("TAPE_1"), 0);
  EXPECT_EQ(client.next(kOwn), 0);
  std::uint32_t size = 0, sequence = 0;
  EXPECT_EQ(client.call(qGetTemplateDepth, kOwn, &size, &sequence), 0);
}

TEST_F(Confined, OthersAreRefusedWhetherTheyExistOrNot) {
  for (const char *name : {"DISK", "DISK2", "TAPE", "tape_1", "XTAPE_1"}) {
    EXPECT_EQ(client.retrieve(name), RC_NAME_FORBIDDEN) << name;
    EXPECT_EQ(client.call(qCreateSymKey, name, 'N'), RC_NAME_FORBIDDEN) << name;
  }
  EXPECT_EQ(client.next(kOther), RC_NAME_FORBIDDEN);
  EXPECT_EQ(client.call(qAutoGenKeys, "DISK_CONSTANT_2", 'I', 1), RC_NAME_FORBIDDEN);
  std::uint32_t size = 0, sequence = 0;
  EXPECT_EQ(client.call(qGetTemplateDepth, kOther, &size, &sequence), RC_NAME_FORBIDDEN);
}

TEST_F(Confined, ListsTellItsOwnNames) {
  EXPECT_THAT(listed("000041037", kPageHeader, 40, 21), ElementsAre("TAPE_CONSTANT_1000000", "TAPE_CONSTANT_1000001"));
  EXPECT_THAT(listed("000041123", kPageHeader, 44, 15), ElementsAre(kOwn));
}

TEST_F(Confined, AQueryFindsItsOwnKeys) {
  const std::string reply = client.ask("000041053");
  EXPECT_THAT(reply, testing::HasSubstr("TAPE_CONSTANT_1000001"));
  EXPECT_THAT(reply, testing::Not(testing::HasSubstr("DISK")));
}

TEST(Scopes, OfSeveralRulesAddUp) {
  Client client({rule(kTape, kStorageClient, {"A"}), rule(kTape, kStorageClient, {"B"}), rule(kTape, kAuditor)});
  ASSERT_EQ(client.as_administrator(qCreateSymKey, "C", 'N'), 0);
  EXPECT_EQ(client.call(qCreateSymKey, "A1", 'N'), 0);
  EXPECT_EQ(client.call(qCreateSymKey, "B1", 'N'), 0);
  EXPECT_EQ(client.retrieve("C"), RC_NAME_FORBIDDEN);
  // What the auditor may see is not confined.
  EXPECT_EQ(client.ask("000041037").substr(9, 10), "0000N00120");
}

// ---- What a certificate is recognised by ----

Identity certificate_with(const char *alternative_names) {
  const Identity authority = make_authority("authority", Days(1));
  Identity leaf = make_leaf(authority, {"O=x, client", Purpose::kClient, {}}, Days(1));
  const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
      X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, alternative_names), X509_EXTENSION_free);
  EXPECT_EQ(X509_add_ext(leaf.certificate.get(), extension.get(), -1), 1);
  EXPECT_GT(X509_sign(leaf.certificate.get(), authority.key.get(), EVP_sha256()), 0);
  return leaf;
}

TEST(Marks, AreSubjectAlternativeNamesAndFingerprint) {
  const Identity leaf = certificate_with("DNS:Library.Example,URI:urn:x:Y,email:a@B.example,IP:10.0.0.1,IP:fe80::1");
  const auto marks = marks_of(leaf.certificate.get());
  const std::vector<RoleRule> rules = {{make_mark(Mark::kSubject, "CN=O=x\\, client,O=veskd dev"), kAuditor, Scope()},
                                       {make_mark(Mark::kDns, "LIBRARY.example"), kAuditor, Scope()},
                                       {make_mark(Mark::kUri, "urn:x:Y"), kAuditor, Scope()},
                                       {make_mark(Mark::kEmail, "a@B.example"), kAuditor, Scope()},
                                       {make_mark(Mark::kIp, "10.0.0.1"), kAuditor, Scope()},
                                       {make_mark(Mark::kIp, "FE80:0::1"), kAuditor, Scope()}};
  for (const RoleRule &rule : rules) {
    RoleRules only;
    only.add(rule);
    EXPECT_FALSE(only.permissions_of(leaf.certificate.get()).are_none()) << rule.mark->second;
  }
  std::array<unsigned char, 32> digest;
  ASSERT_EQ(X509_digest(leaf.certificate.get(), EVP_sha256(), digest.data(), nullptr), 1);
  std::string fingerprint;
  for (const unsigned char byte : digest) fingerprint += fmt::format("{:02X}:", byte);
  EXPECT_THAT(marks, Contains(make_mark(Mark::kFingerprint, fingerprint)));
}

TEST(Marks, AreComparedFromEndToEnd) {
  const Identity leaf = certificate_with("DNS:a.example,URI:urn:x");
  for (const auto &mark :
       {make_mark(Mark::kDns, "example"), make_mark(Mark::kDns, "a.example."), make_mark(Mark::kDns, "*.example"),
        make_mark(Mark::kUri, "urn:X"), make_mark(Mark::kUri, "a.example"), make_mark(Mark::kSubject, "a.example")}) {
    RoleRules rules;
    rules.add({mark, kAdministrator, Scope()});
    EXPECT_TRUE(rules.permissions_of(leaf.certificate.get()).are_none()) << mark.second;
  }
}

TEST(Marks, OfACertificateWithoutAlternativeNamesAreTwo) {
  const Identity authority = make_authority("authority", Days(1));
  EXPECT_EQ(marks_of(authority.certificate.get()).size(), 2u);
}

}  // namespace
}  // namespace veskd::test
