// Replication between servers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "orn/support.h"
#include "tests/server/mirror_servers.h"
#include "veskd/audit_records.h"
#include "veskd/certificates.h"
#include "veskd/key_records.h"
#include "veskd/return_codes.h"

namespace veskd::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

// ---- The address book ----

std::vector<std::string> names_at(const MirrorServer &server) {
  std::vector<std::string> names;
  LinkedList *list = ll_create(41);
  EXPECT_EQ(server.call(qListMirrorNames, list), 0);
  for (const LinkedListNode *node = ll_first(list); node; node = ll_next(node))
    names.emplace_back(static_cast<const char *>(ll_element(node)));
  ll_free(list);
  return names;
}

TEST(MirrorBook, KeepsAddressesByName) {
  MirrorServer server;
  EXPECT_EQ(names_at(server).size(), 0u);
  ASSERT_EQ(server.call(qSetMirrorAddress, "b", std::string(256, 'h').c_str(), 65535u), 0);
  ASSERT_EQ(server.call(qSetMirrorAddress, std::string(40, 'a').c_str(), "10.0.0.1", 1u), 0);
  EXPECT_THAT(names_at(server), ElementsAre(std::string(40, 'a'), "b"));
  ASSERT_EQ(server.call(qSetMirrorAddress, "b", "127.0.0.9", 9u), 0);
  char host[257];
  std::uint32_t port = 0;
  ASSERT_EQ(server.call(qGetMirrorAddress, "b", host, sizeof host, &port), 0);
  EXPECT_STREQ(host, "127.0.0.9");
  EXPECT_EQ(port, 9u);
  ASSERT_EQ(server.call(qRemoveMirrorAddress, "b"), 0);
  EXPECT_THAT(names_at(server), ElementsAre(std::string(40, 'a')));
}

TEST(MirrorBook, RefusesWhatIsNoAddressAndKnowsNoOthers) {
  MirrorServer server;
  EXPECT_EQ(server.call(qSetMirrorAddress, "", "h", 1u), RC_MIRROR_NAME_INVALID);
  EXPECT_EQ(server.call(qSetMirrorAddress, "m", "", 1u), RC_MIRROR_ADDRESS_INVALID);
  EXPECT_EQ(server.call(qSetMirrorAddress, "m", "two words", 1u), RC_MIRROR_ADDRESS_INVALID);
  EXPECT_EQ(server.call(qSetMirrorAddress, "m", "h", 0u), RC_MIRROR_ADDRESS_INVALID);
  EXPECT_EQ(server.call(qSetMirrorAddress, "m", "h", 65536u), RC_MIRROR_ADDRESS_INVALID);
  char host[257];
  std::uint32_t port = 0;
  std::int32_t number = 0;
  char status = 0, same = 0;
  EXPECT_EQ(server.call(qGetMirrorAddress, "m", host, sizeof host, &port), RC_MIRROR_UNKNOWN);
  EXPECT_EQ(server.call(qRemoveMirrorAddress, "m"), RC_MIRROR_UNKNOWN);
  EXPECT_EQ(server.call(qGetQueueSize, "m", &number), RC_MIRROR_UNKNOWN);
  EXPECT_EQ(server.call(qGetMirrorStatus, "m", 0, &number, &status, &same), RC_MIRROR_UNKNOWN);
  EXPECT_EQ(server.call(qForceKeySync, "m", nullptr), RC_MIRROR_UNKNOWN);
}

// ---- Replication ----

TEST_F(Mirrors, EveryChangeOfAMirrorKeyReachesTheMirror) {
  one_.create_mirror_key("K1");
  ASSERT_TRUE(eventually([&] { return !two_.value_of("K1").empty(); }));
  EXPECT_EQ(two_.value_of("K1"), one_.value_of("K1"));
  ASSERT_EQ(one_.set_metadata("K1", "from one"), 0);
  EXPECT_TRUE(eventually([&] { return two_.metadata_of("K1") == "from one"; }));
  ASSERT_EQ(one_.call(qDeleteKey, "K1"), 0);
  EXPECT_TRUE(eventually([&] { return two_.value_of("K1").empty(); }));
  EXPECT_EQ(two_.call(qCreateSymKey, "K1", 'N'), RC_KEY_NAME_USED);
  EXPECT_TRUE(one_.agrees_with("two"));
  EXPECT_EQ(one_.queue_size("two"), 0);
  EXPECT_EQ(one_.mirror("two").fault_count, 0);
}

// A key that goes to a mirror is handed out.
TEST_F(Mirrors, WhatIsSentIsAudited) {
  one_.create_mirror_key("K1");
  ASSERT_TRUE(eventually([&] { return one_.agrees_with("two"); }));
  Store::Reader reader(one_.store());
  std::vector<std::string> told;
  for_each_audit_entry((*reader).database, 1, [&](const AuditEntry &entry) {
    if (entry.event.function == "ReplicateKeys")
      told.push_back(entry.event.caller + " " + entry.event.object + " " + std::to_string(entry.event.return_code));
  });
  EXPECT_THAT(told, ElementsAre("to mirror two K1 0"));
}

TEST_F(Mirrors, OtherKeysStayWhereTheyAre) {
  ASSERT_EQ(one_.call(qCreateSymKey, "LOCAL", 'N'), 0);
  one_.create_mirror_key("K1");
  ASSERT_TRUE(one_.agrees_with("two"));
  EXPECT_FALSE(two_.value_of("K1").empty());
  EXPECT_EQ(two_.value_of("LOCAL"), "");
}

TEST_F(Mirrors, TheKeysOfATemplateAreReplicatedAndDrawingThemIsNot) {
  ASSERT_EQ(one_.call(qAutoGenKeys, "CONSTANT_000015", 'i', 100u), 0);
  ASSERT_TRUE(one_.agrees_with("two"));
  EXPECT_EQ(two_.value_of("CONSTANT_000015000063"), one_.value_of("CONSTANT_000015000063"));
  char name[41];
  unsigned char value[32];
  std::uint32_t increment = 0;
  two_.stop();
  ASSERT_EQ(one_.call(qGetNextKey, "CONSTANT_000015", name, value, &increment), 0);
  EXPECT_EQ(one_.queue_size("two"), 0);
  two_.start();
  // A constant whose names are taken is refused.
  EXPECT_EQ(two_.call(qAutoGenKeys, "CONSTANT_000015", 'i', 1u), RC_KEY_COLLISION);
  // Removing the template deletes the keys that were not served, there as here.
  ASSERT_EQ(one_.call(qRemoveTemplate, "CONSTANT_000015"), 0);
  EXPECT_TRUE(one_.agrees_with("two"));
  EXPECT_EQ(two_.value_of("CONSTANT_000015000063"), "");
  EXPECT_EQ(two_.value_of(name), std::string(value, value + sizeof value));
}

TEST_F(Mirrors, AMirrorThatIsAwayCostsQueueLengthAndFaults) {
  two_.stop();
  for (int i = 0; i < 5; ++i) one_.create_mirror_key("K" + std::to_string(i));
  EXPECT_EQ(one_.queue_size("two"), 5);
  ASSERT_TRUE(eventually([&] { return one_.mirror("two").fault_count >= 2; }));
  EXPECT_EQ(one_.mirror("two").status, kDown);
  std::int32_t faults = 0;
  char status = 0, same = 0;
  ASSERT_EQ(one_.call(qGetMirrorStatus, "two", 0, &faults, &status, &same), 0);
  EXPECT_GE(faults, 2);
  EXPECT_EQ(status, 'D');
  EXPECT_EQ(same, '?');
  two_.start();
  EXPECT_TRUE(one_.agrees_with("two"));
  EXPECT_EQ(one_.queue_size("two"), 0);
}

TEST_F(Mirrors, AStatusHasTheMirrorTriedWhenItsFlagSaysSo) {
  std::int32_t faults = 0;
  char status = 0, same = 0;
  const std::int64_t before = one_.mirror("two").attempt;
  ASSERT_EQ(one_.call(qGetMirrorStatus, "two", 0, &faults, &status, &same), 0);
  EXPECT_EQ(one_.mirror("two").attempt, before);
  ASSERT_EQ(one_.call(qGetMirrorStatus, "two", 1, &faults, &status, &same), 0);
  EXPECT_EQ(one_.mirror("two").attempt, before + 1);
}

// All that a key is but its place in the store.
std::string policy_of(MirrorServer &server, const std::string &name) {
  Store::Reader reader(server.store());
  Query query((*reader).database,
              "SELECT current_instance, creation_date, activation_date, expiration_date, rollover_code, rollover_days, "
              "last_rollover_date, deletable, revoked_date, mirror, user_group_flag, user_name, group_name FROM keys "
              "WHERE name = ?1",
              name);
  std::string policy;
  for (int column = 0, found = query.next() ? 13 : 0; column < found; ++column) policy += query.text(column) + "\n";
  return policy;
}

TEST_F(Mirrors, AKeyArrivesWithItsWholePolicyAndBecomesDeletableThereToo) {
  one_.store().change({.apply =
                           [](StoreConnection &store) {
                             create_key(store, "K1",
                                        {.activation_date = "20270101",
                                         .expiration_date = "20280229",
                                         .rollover_code = "N",
                                         .rollover_days = "0007",
                                         .deletable = "N",
                                         .mirror = "Y",
                                         .user_group_flag = "1",
                                         .user = "user",
                                         .group = "caf\xc3\xa9"});
                             return true;
                           },
                       .done = [](ChangeOutcome) {}});
  ASSERT_TRUE(eventually([&] { return !two_.value_of("K1").empty(); }));
  EXPECT_THAT(policy_of(one_, "K1"), HasSubstr("20270101\n20280229\nN\n0007\n"));
  EXPECT_EQ(policy_of(two_, "K1"), policy_of(one_, "K1"));
  ASSERT_EQ(two_.call(qDeleteKey, "K1"), RC_NOT_DELETABLE);
  ASSERT_EQ(one_.call(qChangeDeletable, "K1", 'Y'), 0);
  EXPECT_TRUE(eventually([&] { return policy_of(two_, "K1") == policy_of(one_, "K1"); }));
  EXPECT_TRUE(one_.agrees_with("two"));
  EXPECT_EQ(two_.call(qDeleteKey, "K1"), 0);
}

TEST_F(Mirrors, WhatWaitsSurvivesARestartOfTheSender) {
  two_.stop();
  one_.create_mirror_key("K1");
  one_.stop();
  one_.start();
  EXPECT_EQ(one_.queue_size("two"), 1);
  two_.start();
  EXPECT_TRUE(one_.agrees_with("two"));
  EXPECT_EQ(two_.value_of("K1"), one_.value_of("K1"));
}

// As a server does that has no mirror certificate yet.
TEST_F(Mirrors, WhatWaitsFromTheTimeBeforeThereWasAReplicatorIsDelivered) {
  one_.stop();
  one_.lose_store();
  {
    const Log log(true);
    Store store(store_address(one_.directory()), *master_key_in(one_.directory()), log);
    store.change({.apply =
                      [&](StoreConnection &connection) {
                        set_mirror(connection, "two", "127.0.0.1", two_.port());
                        create_key(connection, "K1", {"00000000", "00000000", "N", "0000", "Y", "Y", "N", "", ""});
                        return true;
                      },
                  .done = [](ChangeOutcome outcome) { ASSERT_EQ(outcome, ChangeOutcome::kDone); }});
    store.wait_until_idle();
  }
  one_.start();
  EXPECT_TRUE(one_.agrees_with("two"));
  EXPECT_EQ(two_.value_of("K1"), one_.value_of("K1"));
}

TEST_F(Mirrors, ServersThatListOneAnotherDoNotSendChangesBack) {
  two_.add_mirror("one", one_.port());
  one_.create_mirror_key("K1");
  two_.create_mirror_key("K2");
  ASSERT_TRUE(one_.agrees_with("two"));
  ASSERT_TRUE(two_.agrees_with("one"));
  EXPECT_EQ(one_.value_of("K2"), two_.value_of("K2"));
  // Its own change was the only one that two ever queued: another would be the second.
  Database database(store_address(two_.directory()));
  database.begin();
  Query query(database,
              "INSERT INTO replication_queue (mirror, origin, key_name) SELECT id, '', 'K2' FROM mirrors "
              "RETURNING number");
  ASSERT_TRUE(query.next());
  EXPECT_EQ(query.number(0), 2);
  database.rollback();
}

// ---- Faults and conflicts ----

TEST_F(Mirrors, AMirrorKeepsItsOwnKeyAndTheConflictIsAFault) {
  two_.create_mirror_key("K1");
  one_.create_mirror_key("K1");
  one_.create_mirror_key("K2");
  ASSERT_TRUE(eventually([&] { return one_.queue_size("two") == 0; }));
  EXPECT_NE(two_.value_of("K1"), one_.value_of("K1"));
  EXPECT_EQ(two_.value_of("K2"), one_.value_of("K2"));
  EXPECT_EQ(one_.mirror("two").fault_count, 1);
  EXPECT_EQ(one_.mirror("two").last_fault, RC_MIRROR_CONFLICT);
  EXPECT_TRUE(eventually([&] { return one_.mirror("two").data_hash_status == kOtherData; }));
  const std::string reply = ask_as(raw_options(one_.directory()), one_.port(), "000451135" + padded("two", 40) + "N");
  EXPECT_EQ(reply.substr(0, 53),
            "001041135"
            "0000" +
                padded("two", 40));
  EXPECT_THAT(reply.substr(53), StartsWith("0000000001"
                                           "U"
                                           " "
                                           "N 0606 2/2 "));
  EXPECT_EQ(reply.size(), 5u + 104);
}

TEST_F(Mirrors, ADeletedKeyDoesNotComeBack) {
  one_.create_mirror_key("K1");
  ASSERT_TRUE(one_.agrees_with("two"));
  ASSERT_EQ(two_.call(qDeleteKey, "K1"), 0);
  ASSERT_EQ(one_.call(qForceKeySync, "two", "K1"), 0);
  ASSERT_TRUE(eventually([&] { return one_.mirror("two").last_fault == RC_MIRROR_KEY_DELETED; }));
  EXPECT_EQ(two_.value_of("K1"), "");
}

TEST(MirrorTrust, AServerOfAnotherAuthorityGetsNothing) {
  MirrorServer one;
  MirrorServer stranger;
  one.add_mirror("stranger", stranger.port());
  one.create_mirror_key("K1");
  ASSERT_TRUE(eventually([&] { return one.mirror("stranger").fault_count >= 2; }));
  EXPECT_EQ(one.mirror("stranger").status, kDown);
  EXPECT_EQ(stranger.value_of("K1"), "");
  EXPECT_EQ(one.queue_size("stranger"), 1);
}

TEST_F(Mirrors, AClientsCertificateDoesNotReplicate) {
  const std::string refused =
      "00008"
      "9001"
      "0605";
  EXPECT_EQ(ask_as(raw_options(two_.directory()), two_.port(),
                   "00004"
                   "9001"),
            refused);
  EXPECT_EQ(ask_as(raw_options(two_.directory()), two_.port(),
                   "00004"
                   "9003"),
            "00008"
            "9003"
            "0605");
  EXPECT_THAT(ask_as(mirror_options(two_.directory()), two_.port(),
                     "00004"
                     "9003"),
              StartsWith("00082"
                         "9003"
                         "0000"));
}

TEST_F(Mirrors, ASenderWithoutTheRoleIsRefusedAndKeepsItsQueue) {
  one_.stop();
  for (const char *end : {".pem", "-key.pem"}) {
    const auto file = [&](const std::string &name) { return one_.directory() / (name + end); };
    std::filesystem::copy_file(file("client"), file("mirror"), std::filesystem::copy_options::overwrite_existing);
  }
  one_.start();
  one_.create_mirror_key("K1");
  ASSERT_TRUE(eventually([&] { return one_.mirror("two").last_fault == RC_NOT_A_MIRROR; }));
  EXPECT_EQ(one_.mirror("two").status, kRefuses);
  EXPECT_EQ(one_.queue_size("two"), 1);
  EXPECT_EQ(two_.value_of("K1"), "");
}

TEST(MirrorTrust, ACertificateWithoutTheNameInTheBookIsNotTrusted) {
  MirrorServer one;
  MirrorServer two(one.directory());
  // Its certificate is for localhost and two addresses, not for this one.
  Line line(two.port(), "127.0.0.2");
  ASSERT_EQ(one.call(qSetMirrorAddress, "two", "127.0.0.2", std::uint32_t{line.port()}), 0);
  one.create_mirror_key("K1");
  ASSERT_TRUE(eventually([&] { return one.mirror("two").fault_count >= 2; }));
  EXPECT_GE(line.num_connections(), 1);
  EXPECT_EQ(two.value_of("K1"), "");
  ASSERT_EQ(one.call(qSetMirrorAddress, "two", "localhost", std::uint32_t{two.port()}), 0);
  EXPECT_TRUE(one.agrees_with("two"));
}

TEST(MirrorTrust, TheMirrorCertificateAloneCarriesTheRole) {
  MirrorServer one;
  const auto has_role = [&](const std::string &name) {
    const std::filesystem::path &directory = one.directory();
    const Identity identity = read_identity(directory / (name + ".pem"), directory / (name + "-key.pem"));
    const auto marks = marks_of(identity.certificate.get());
    return std::count(marks.begin(), marks.end(), CertificateMark(Mark::kUri, kMirrorRole)) == 1;
  };
  EXPECT_TRUE(has_role("mirror"));
  EXPECT_FALSE(has_role("client"));
  EXPECT_FALSE(has_role("server"));
  EXPECT_FALSE(has_role("authority"));
}

TEST(MirrorTrust, AnAuthorityIsCopiedOnceAndNeverReplaced) {
  const Log log(true);
  TemporaryDirectory one, two, three;
  const auto serve = [&](const TemporaryDirectory &directory, const std::filesystem::path &authority_from) {
    const DevEnvironment environment(directory.path(), {}, log, authority_from);
  };
  EXPECT_THAT(start_error([&] { serve(two, one.path()); }), HasSubstr("authority.pem is not there: --authority-from"));
  serve(one, {});
  serve(two, one.path());
  EXPECT_EQ(mode_of(two / "authority-key.pem"), 0600u);
  serve(two, one.path());
  serve(two, {});
  serve(three, {});
  EXPECT_THAT(start_error([&] { serve(two, three.path()); }), HasSubstr("is another authority than"));
}

// ---- Forced synchronisation ----

TEST_F(Mirrors, AForcedSynchronisationMendsAMirrorThatLostItsStore) {
  for (int i = 0; i < 40; ++i) one_.create_mirror_key("K" + std::to_string(i));
  ASSERT_EQ(one_.set_metadata("K0", "kept"), 0);
  ASSERT_EQ(one_.call(qDeleteKey, "K1"), 0);
  ASSERT_TRUE(one_.agrees_with("two"));
  two_.stop();
  two_.lose_store();
  two_.start();
  ASSERT_EQ(two_.value_of("K0"), "");
  ASSERT_EQ(one_.call(qForceKeySync, "two", nullptr), 0);
  EXPECT_TRUE(one_.agrees_with("two"));
  EXPECT_EQ(two_.value_of("K39"), one_.value_of("K39"));
  EXPECT_EQ(two_.metadata_of("K0"), "kept");
  // The names of deleted keys stay taken there too.
  EXPECT_EQ(two_.call(qCreateSymKey, "K1", 'N'), RC_KEY_NAME_USED);
}

TEST_F(Mirrors, TheNameOfADeletedKeyIsSynchronisedAlone) {
  one_.create_mirror_key("K1");
  ASSERT_EQ(one_.call(qDeleteKey, "K1"), 0);
  ASSERT_TRUE(eventually([&] { return one_.queue_size("two") == 0; }));
  two_.stop();
  two_.lose_store();
  two_.start();
  ASSERT_EQ(one_.call(qForceKeySync, "two", "K1"), 0);
  ASSERT_TRUE(eventually([&] { return one_.queue_size("two") == 0; }));
  EXPECT_EQ(two_.call(qCreateSymKey, "K1", 'N'), RC_KEY_NAME_USED);
}

TEST_F(Mirrors, OneKeyIsSynchronisedWhenItIsAMirrorKey) {
  ASSERT_EQ(one_.call(qCreateSymKey, "LOCAL", 'N'), 0);
  EXPECT_EQ(one_.call(qForceKeySync, "two", "LOCAL"), RC_NOT_A_MIRROR_KEY);
  EXPECT_EQ(one_.call(qForceKeySync, "two", "NONE"), RC_KEY_UNKNOWN);
  one_.create_mirror_key("K1");
  ASSERT_TRUE(one_.agrees_with("two"));
  ASSERT_EQ(two_.set_metadata("K1", "changed there"), 0);
  ASSERT_TRUE(differs());
  ASSERT_EQ(one_.call(qForceKeySync, "two", "K1"), 0);
  EXPECT_TRUE(one_.agrees_with("two"));
  EXPECT_EQ(two_.metadata_of("K1"), "");
}

TEST_F(Mirrors, AForcedSynchronisationReplacesAValueThatWasTamperedWith) {
  one_.create_mirror_key("K1");
  ASSERT_TRUE(one_.agrees_with("two"));
  two_.stop();
  Database(store_address(two_.directory()))
      .execute("UPDATE instances SET sealed_value = (SELECT sealed FROM store_keys WHERE purpose = 'values')");
  two_.start();
  ASSERT_EQ(two_.value_of("K1"), "");
  ASSERT_EQ(one_.call(qForceKeySync, "two", "K1"), 0);
  EXPECT_TRUE(eventually([&] { return two_.value_of("K1") == one_.value_of("K1"); }));
}

TEST_F(Mirrors, AKeyThatIsDamagedHereIsAFaultAndHoldsUpNothing) {
  two_.stop();
  one_.create_mirror_key("K1");
  one_.create_mirror_key("K2");
  one_.stop();
  Database(store_address(one_.directory()))
      .execute(
          "UPDATE instances SET sealed_value = (SELECT sealed FROM store_keys WHERE purpose = 'values') "
          "WHERE key = (SELECT id FROM keys WHERE name = 'K1')");
  two_.start();
  one_.start();
  EXPECT_TRUE(eventually([&] { return !two_.value_of("K2").empty(); }));
  EXPECT_TRUE(eventually([&] { return one_.queue_size("two") == 0; }));
  EXPECT_EQ(two_.value_of("K1"), "");
  EXPECT_EQ(one_.mirror("two").last_fault, RC_SERVER_FAILURE);
}

}  // namespace
}  // namespace veskd::test
