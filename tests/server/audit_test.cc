// The audit: what is recorded, that nothing happens without it, and that tampering is found.
#include "veskd/audit_records.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "orn/vesk.h"
#include "tests/server/program.h"
#include "tests/server/test_server.h"
#include "veskd/certificates.h"
#include "veskd/return_codes.h"

namespace veskd::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char *kConstant = "CONSTANT_000015";

class Audit : public testing::Test {
 protected:
  explicit Audit(bool audit_reads = true) : server(Limits{}, Machine{}, audit_reads) {}

  int create(const char *name) { return qCreateSymKey(server.paths(), server.host(), server.port(), name, 'N'); }
  int retrieve(const char *name) {
    KeyRecord record{};
    return qRetrieveKey(server.paths(), server.host(), server.port(), name, "", &record);
  }

  std::vector<AuditEntry> entries() {
    Store::Reader reader(server.store());
    std::vector<AuditEntry> all;
    for_each_audit_entry((*reader).database, 1, [&](const AuditEntry &entry) { all.push_back(entry); });
    return all;
  }

  // Function, object and return code of each entry.
  std::vector<std::string> told() {
    std::vector<std::string> lines;
    for (const AuditEntry &entry : entries())
      lines.push_back(entry.event.function + " " + entry.event.object + " " + std::to_string(entry.event.return_code));
    return lines;
  }

  std::vector<std::string> faults() {
    std::vector<std::string> all;
    Store::Reader reader(server.store());
    verify_audit(*reader, [&](const std::string &fault) { all.push_back(fault); });
    return all;
  }

  // As someone does who can write to the store.
  void tamper(const char *sql) { Database(store_address(server.directory())).execute(sql); }

  TestServer server;
};

TEST_F(Audit, TellsWhoDidWhatAndHowItEnded) {
  EXPECT_EQ(create("K1"), 0);
  EXPECT_EQ(create("K1"), RC_KEY_EXISTS);
  EXPECT_EQ(retrieve("K1"), 0);
  EXPECT_EQ(retrieve("K2"), RC_KEY_UNKNOWN);
  EXPECT_EQ(server.ping(), 0);
  EXPECT_THAT(told(),
              ElementsAre("CreateSymKey K1 0", "CreateSymKey K1 202", "RetrieveKey K1 0", "RetrieveKey K2 204"));
  const Identity client = read_identity(server.directory() / "client.pem", server.directory() / "client-key.pem");
  for (const AuditEntry &entry : entries()) {
    EXPECT_EQ(entry.event.caller, "CN=veskd development client,O=veskd dev");
    EXPECT_EQ(entry.event.fingerprint, fingerprint_of(client.certificate.get()));
    EXPECT_THAT(entry.event.peer, testing::StartsWith("127.0.0.1:"));
    EXPECT_EQ(entry.time.size(), std::string("20261121T134507").size());
  }
  EXPECT_EQ(entries().front().event.tran_id, "1001");
  EXPECT_THAT(faults(), IsEmpty());
}

TEST_F(Audit, NamesTheKeyThatATemplateServed) {
  ASSERT_EQ(qAutoGenKeys(server.paths(), server.host(), server.port(), kConstant, 'i', 1), 0);
  char name[41] = {};
  unsigned char value[32] = {};
  std::uint32_t increment = 0;
  ASSERT_EQ(qGetNextKey(server.paths(), server.host(), server.port(), kConstant, name, value, &increment), 0);
  EXPECT_EQ(qGetNextKey(server.paths(), server.host(), server.port(), kConstant, name, value, &increment),
            RC_TEMPLATE_EXHAUSTED);
  EXPECT_THAT(told(), ElementsAre("AutoGenKeys CONSTANT_000015 0", "GetNextKey CONSTANT_000015000000 0",
                                  "GetNextKey CONSTANT_000015 309"));
}

using AuditInFiles = Audit;

TEST_F(AuditInFiles, HoldsNoKeyValue) {
  ASSERT_EQ(create("K1"), 0);
  KeyRecord record{};
  ASSERT_EQ(qRetrieveKey(server.paths(), server.host(), server.port(), "K1", "", &record), 0);
  for (const char *file : {"store.db", "store.db-wal"}) {
    std::ifstream stream(server.directory() / file, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(stream), {}};
    EXPECT_EQ(content.find(std::string(record.caKeyValue, 32)), std::string::npos) << file;
  }
}

TEST_F(Audit, RecordsWhomTheServerTurnedAway) {
  EXPECT_EQ(ask(server, "000049001"), "0000890010605");
  EXPECT_THAT(told(), ElementsAre("ReplicateKeys  605"));
}

TEST_F(Audit, LeavesOutWhatIsNoOperation) {
  EXPECT_EQ(ask(server, "000041001"), "0000810010101");
  EXPECT_EQ(ask(server, "000049999"), "0000899990102");
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(Audit, WithoutItNothingHappens) {
  ASSERT_EQ(create("K1"), 0);
  tamper("UPDATE audit_head SET number = 7");
  EXPECT_EQ(create("K2"), RC_SERVER_FAILURE);
  EXPECT_EQ(create("K1"), RC_SERVER_FAILURE);
  EXPECT_EQ(retrieve("K1"), RC_SERVER_FAILURE);
  tamper("UPDATE audit_head SET number = 1");
  EXPECT_EQ(retrieve("K2"), RC_KEY_UNKNOWN);
  EXPECT_EQ(retrieve("K1"), 0);
  EXPECT_THAT(faults(), IsEmpty());
}

TEST_F(Audit, IsOneChainWhenManyWriteToIt) {
  ASSERT_EQ(create("K1"), 0);
  constexpr int kNumClients = 8, kNumCalls = 10;
  std::vector<std::thread> clients(kNumClients);
  for (std::thread &client : clients) {
    client = std::thread([this] {
      for (int i = 0; i < kNumCalls; ++i) EXPECT_EQ(retrieve("K1"), 0);
    });
  }
  for (std::thread &client : clients) client.join();
  EXPECT_EQ(entries().size(), 1u + kNumClients * kNumCalls);
  EXPECT_THAT(faults(), IsEmpty());
}

TEST_F(Audit, ShowsWhatWasTamperedWith) {
  for (const char *name : {"K1", "K2", "K3", "K4", "K5"}) ASSERT_EQ(create(name), 0);
  const struct {
    const char *sql;
    std::vector<std::string> faults;
  } cases[] = {
      {"UPDATE audit SET object = 'K9' WHERE number = 2", {"entry 2 was changed"}},
      {"UPDATE audit SET return_code = 202 WHERE number = 5", {"entry 5 was changed"}},
      {"UPDATE audit SET hash = previous_hash WHERE number = 5",
       {"entry 5 was changed", "entry 5 is not the one that the head names"}},
      {"DELETE FROM audit WHERE number = 1", {"entries 1 to 1 are missing"}},
      {"DELETE FROM audit WHERE number BETWEEN 2 AND 3", {"entries 2 to 3 are missing"}},
      {"DELETE FROM audit WHERE number = 3; UPDATE audit SET number = number - 1 WHERE number > 3",
       {"entry 3 does not follow the one before it", "entry 3 was changed", "entry 4 was changed",
        "entries 5 to 5 are missing at the end"}},
      {"DELETE FROM audit WHERE number > 3", {"entries 4 to 5 are missing at the end"}},
      {"DELETE FROM audit", {"entries 1 to 5 are missing at the end"}},
      {"DELETE FROM audit WHERE number > 3; UPDATE audit_head SET number = 3, "
       "hash = (SELECT hash FROM audit WHERE number = 3)",
       {"the head of the audit is gone or was changed"}},
      {"DELETE FROM audit; DELETE FROM audit_head", {"the head of the audit is gone or was changed"}},
      {"INSERT INTO audit SELECT 6, time, caller, fingerprint, peer, tran_id, function, object, return_code, hash, "
       "hash "
       "FROM audit WHERE number = 5",
       {"entry 6 was changed", "entry 5 is the last, more were put behind it"}},
  };
  tamper("CREATE TABLE saved AS SELECT * FROM audit; CREATE TABLE saved_head AS SELECT * FROM audit_head");
  for (const auto &tampering : cases) {
    tamper(tampering.sql);
    EXPECT_EQ(faults(), tampering.faults) << tampering.sql;
    tamper(
        "DELETE FROM audit; INSERT INTO audit SELECT * FROM saved; "
        "DELETE FROM audit_head; INSERT INTO audit_head SELECT * FROM saved_head");
    EXPECT_THAT(faults(), IsEmpty()) << tampering.sql;
  }
}

class AuditOfChanges : public Audit {
 protected:
  AuditOfChanges() : Audit(false) {}
};

TEST_F(AuditOfChanges, LeavesOutWhatOnlyReads) {
  EXPECT_EQ(create("K1"), 0);
  EXPECT_EQ(retrieve("K1"), 0);
  EXPECT_EQ(retrieve("K2"), RC_KEY_UNKNOWN);
  EXPECT_THAT(told(), ElementsAre("CreateSymKey K1 0"));
}

TEST_F(AuditOfChanges, TellsOfEveryChangeOfKeysAndTemplates) {
  const auto call = [this](auto public_call, auto... arguments) {
    return public_call(server.paths(), server.host(), server.port(), arguments...);
  };
  EXPECT_EQ(call(qCreateDatabase), 0);  // which changes nothing
  EXPECT_EQ(call(qAutoGenKeys, kConstant, 'i', 3u), 0);
  EXPECT_EQ(call(qSetNextIncrement, kConstant, 1u), 0);
  EXPECT_EQ(call(qChangeDeletable, "CONSTANT_000015000000", 'Y'), 0);
  EXPECT_EQ(call(qDeleteKey, "CONSTANT_000015000000"), 0);
  EXPECT_EQ(call(qDeleteKey, "CONSTANT_000015000000"), RC_KEY_UNKNOWN);
  EXPECT_EQ(call(qRemoveTemplate, kConstant), 0);
  EXPECT_THAT(told(), ElementsAre("AutoGenKeys CONSTANT_000015 0", "SetNextIncrement CONSTANT_000015 0",
                                  "ChangeDeletable CONSTANT_000015000000 0", "DeleteKey CONSTANT_000015000000 0",
                                  "DeleteKey CONSTANT_000015000000 204", "RemoveTemplate CONSTANT_000015 0"));
}

// ---- veskd audit, while the server runs ----

class AuditCommandInFiles : public Audit {
 protected:
  struct Run {
    int exit_code;
    std::string output;
    std::string errors;
  };
  Run audit(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "audit");
    arguments.insert(arguments.end(), {"--dir", server.directory().string()});
    Program program(arguments);
    const std::string output = program.read_all();
    return {program.wait(), output, program.errors()};
  }
};

TEST_F(AuditCommandInFiles, ShowsEntries) {
  ASSERT_EQ(create("K1"), 0);
  ASSERT_EQ(retrieve("K1"), 0);
  const Run table = audit({"show", "--from", "2"});
  EXPECT_EQ(table.exit_code, 0) << table.errors;
  EXPECT_THAT(table.output, testing::StartsWith("2\t"));
  EXPECT_THAT(table.output, HasSubstr("\t0000\t2001\tRetrieveKey\tK1\tCN=veskd development client,O=veskd dev\t"));
  const Run json = audit({"show", "--output", "json"});
  const auto document = nlohmann::json::parse(json.output);
  ASSERT_EQ(document.at("entries").size(), 2u);
  EXPECT_EQ(document.at("entries")[0].at("function"), "CreateSymKey");
  EXPECT_EQ(document.at("entries")[1].at("number"), 2);
  EXPECT_EQ(document.at("entries")[1].at("return_code"), 0);
  EXPECT_EQ(document.at("entries")[1].at("previous_hash"), document.at("entries")[0].at("hash"));
}

TEST_F(AuditCommandInFiles, VerifiesTheChain) {
  ASSERT_EQ(create("K1"), 0);
  const Run whole = audit({"verify"});
  EXPECT_EQ(whole.exit_code, 0) << whole.errors;
  ASSERT_THAT(whole.output, testing::StartsWith("whole up to 1:"));
  const std::string head = whole.output.substr(12, whole.output.size() - 13);
  ASSERT_EQ(create("K2"), 0);
  EXPECT_EQ(audit({"verify", "--contains", head}).exit_code, 0);
  const Run other = audit({"verify", "--contains", "2" + head.substr(1)});
  EXPECT_EQ(other.exit_code, 1);
  EXPECT_THAT(other.output, HasSubstr("there is no entry 2:"));
  tamper("DELETE FROM audit WHERE number = 2");
  const Run broken = audit({"verify"});
  EXPECT_EQ(broken.exit_code, 1);
  EXPECT_EQ(broken.output, "entries 2 to 2 are missing at the end\n");
  EXPECT_THAT(broken.errors, HasSubstr("is not whole"));
}

TEST_F(AuditCommandInFiles, NeedsAStoreAndItsMasterKey) {
  fs::remove(server.directory() / "master.key");
  EXPECT_THAT(audit({"verify"}).errors, HasSubstr("does not belong to the key store"));
  TemporaryDirectory empty;
  Program program({"audit", "show", "--dir", empty.path().string()});
  EXPECT_EQ(program.wait(), 1);
  EXPECT_THAT(program.errors(), HasSubstr("there is no key store"));
  EXPECT_TRUE(fs::is_empty(empty.path()));
}

}  // namespace
}  // namespace veskd::test
