// The store, the sealing of key values, and the files that they live in.
#include "veskd/store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <future>
#include <latch>

#include "tests/server/test_server.h"
#include "veskd/certificate_records.h"
#include "veskd/dates.h"
#include "veskd/key_records.h"
#include "veskd/schema.h"

namespace veskd::test {
namespace {

const KeyPolicy kPolicy{"00000000", "00000000", "N", "0000", "Y", "N", "1", "User1", "Group1"};
const Log kLog(true);

void write_text(const std::filesystem::path &path, const std::string &text, std::filesystem::perms mode) {
  std::ofstream(path) << text;
  std::filesystem::permissions(path, mode);
}

// Runs a change and waits for its outcome.
bool change(Store &store, const std::function<bool(StoreConnection &)> &apply) {
  std::promise<ChangeOutcome> outcome;
  store.change({apply, [&](ChangeOutcome known) { outcome.set_value(known); }});
  return outcome.get_future().get() == ChangeOutcome::kDone;
}

std::array<std::uint8_t, kKeyBytes> value_of(Store &store, const std::string &name) {
  Store::Reader reader(store);
  const Key key = find_key(*reader, name).value();
  KeyValue value;
  read_key_value(*reader, key, key.current_instance, value);
  return *value;
}

// ---- Sealing ----

class Sealing : public testing::Test {
 protected:
  TemporaryDirectory directory;
  std::unique_ptr<MasterKey> master = MasterKey::create(directory / "master.key");
  Sealer sealer{master->bytes()};
  const std::vector<std::uint8_t> value = {1, 2, 3, 4};
  std::vector<std::uint8_t> opened = std::vector<std::uint8_t>(4);
};

TEST_F(Sealing, WhatWasSealedOpens) {
  const auto sealed = sealer.seal(value, "context");
  EXPECT_EQ(sealed.size(), 4u + 28u);
  ASSERT_TRUE(sealer.unseal(sealed, "context", opened));
  EXPECT_EQ(opened, value);
}

TEST_F(Sealing, NoTwoSealsAreAlike) {
  EXPECT_NE(sealer.seal(value, "context"), sealer.seal(value, "context"));
}

TEST_F(Sealing, EveryFlippedBitIsNoticed) {
  const auto sealed = sealer.seal(value, "context");
  for (std::size_t bit = 0; bit < sealed.size() * 8; ++bit) {
    auto tampered = sealed;
    tampered[bit / 8] = static_cast<std::uint8_t>(tampered[bit / 8] ^ (1u << (bit % 8)));
    opened = value;
    EXPECT_FALSE(sealer.unseal(tampered, "context", opened)) << bit;
    EXPECT_EQ(opened, std::vector<std::uint8_t>(4)) << bit;
  }
}

TEST_F(Sealing, AnotherLengthIsNoticed) {
  auto sealed = sealer.seal(value, "context");
  sealed.pop_back();
  EXPECT_FALSE(sealer.unseal(sealed, "context", opened));
  EXPECT_FALSE(sealer.unseal({}, "context", opened));
}

TEST_F(Sealing, AnotherContextIsNoticed) {
  EXPECT_FALSE(sealer.unseal(sealer.seal(value, "context"), "contexT", opened));
}

TEST_F(Sealing, AnotherMasterKeyIsNoticed) {
  const auto other = MasterKey::create(directory / "other.key");
  EXPECT_FALSE(Sealer(other->bytes()).unseal(sealer.seal(value, "context"), "context", opened));
}

TEST_F(Sealing, TheMasterKeyIsReadBackFromItsPrivateFile) {
  EXPECT_EQ(mode_of(directory / "master.key"), 0600u);
  const auto again = MasterKey::read(directory / "master.key");
  ASSERT_TRUE(Sealer(again->bytes()).unseal(sealer.seal(value, "context"), "context", opened));
  EXPECT_EQ(opened, value);
}

TEST_F(Sealing, TheMasterKeyIsNeverReplaced) {
  EXPECT_THAT(start_error([&] { MasterKey::create(directory / "master.key"); }), testing::HasSubstr("exists"));
}

TEST_F(Sealing, AMasterKeyFileThatIsNoneIsRefused) {
  using std::filesystem::perms;
  const perms priv = perms::owner_read | perms::owner_write;
  const std::string digits(64, 'a');
  for (const std::string &text :
       {std::string(), digits, digits + "\n\n", digits + "a\n", std::string(63, 'a') + "g\n"}) {
    write_text(directory / "bad.key", text, priv);
    EXPECT_THAT(start_error([&] { MasterKey::read(directory / "bad.key"); }),
                testing::HasSubstr("does not hold 64 hexadecimal digits"));
  }
  write_text(directory / "bad.key", digits + "\n", priv | perms::group_read);
  EXPECT_THAT(start_error([&] { MasterKey::read(directory / "bad.key"); }), testing::HasSubstr("chmod 600"));
}

// ---- The store ----

class StoreTest : public testing::Test {
 protected:
  TemporaryDirectory directory;
  const StoreAddress address = store_address(directory.path());
  std::unique_ptr<MasterKey> master = MasterKey::create(directory / "master.key");
};

TEST_F(StoreTest, KeysOutliveTheStoreObject) {
  std::array<std::uint8_t, kKeyBytes> before;
  {
    Store store(address, *master, kLog);
    ASSERT_TRUE(change(store, [](StoreConnection &c) { return !create_key(c, "K1", kPolicy).empty(); }));
    before = value_of(store, "K1");
  }
  Store store(address, *master, kLog);
  EXPECT_EQ(value_of(store, "K1"), before);
}

using StoreInFiles = StoreTest;

TEST_F(StoreInFiles, ThatArePrivate) {
  Store store(address, *master, kLog);
  ASSERT_TRUE(change(store, [](StoreConnection &c) { return !create_key(c, "K1", kPolicy).empty(); }));
  EXPECT_EQ(mode_of(directory / "store.db"), 0600u);
  EXPECT_EQ(mode_of(directory / "store.db-wal"), 0600u);
}

TEST_F(StoreInFiles, ThatHoldNoKeyValue) {
  Store store(address, *master, kLog);
  ASSERT_TRUE(change(store, [](StoreConnection &c) { return !create_key(c, "K1", kPolicy).empty(); }));
  const auto value = value_of(store, "K1");
  for (const char *name : {"store.db", "store.db-wal"}) {
    std::ifstream file(directory / name, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    EXPECT_EQ(content.find(std::string(value.begin(), value.end())), std::string::npos) << name;
  }
}

// A commit that was told of outlives the end of the machine.
TEST_F(StoreInFiles, ThatAreSyncedAtEveryCommit) {
  constexpr std::int64_t kFull = 2;
  Store store(address, *master, kLog);
  ASSERT_TRUE(change(store, [](StoreConnection &c) {
    Query journal(c.database, "PRAGMA journal_mode");
    Query synchronous(c.database, "PRAGMA synchronous");
    return journal.next() && journal.text(0) == "wal" && synchronous.next() && synchronous.number(0) == kFull;
  }));
}

TEST_F(StoreTest, AnotherMasterKeyIsRecognised) {
  { Store store(address, *master, kLog); }
  const auto other = MasterKey::create(directory / "other.key");
  EXPECT_THAT(start_error([&] { Store store(address, *other, kLog); }),
              testing::HasSubstr("the master key does not belong to the key store"));
}

// A store of before there were store keys: its values are sealed under the master key itself.
class FormerStoreTest : public StoreTest {
 protected:
  FormerStoreTest() {
    Database database(address);
    database.begin();
    for (std::int64_t version : {1, 2, 3, 4})
      database.migrate(kMigrations[static_cast<std::size_t>(version - 1)], version);
    database.execute(
        "INSERT INTO keys (id, name, current_instance, size_bits, creation_date, activation_date, expiration_date, "
        "rollover_code, rollover_days, deletable, mirror, user_group_flag, user_name, group_name) "
        "VALUES (7, 'K1', 'I1', 256, '', '', '', 'N', '0000', 'Y', 'N', '1', '', '')");
    const Sealer former(master->bytes());
    const std::vector<std::uint8_t> check = former.seal(bytes_of("veskd master key"), "master key check");
    Query(database, "INSERT INTO master_key_check VALUES (?1)", std::span(check)).run();
    const std::vector<std::uint8_t> value = former.seal(bytes_of(kFormerValue), "key value\nK1\nI1");
    Query(database, "INSERT INTO instances VALUES (7, 'I1', ?1)", std::span(value)).run();
    const std::vector<std::uint8_t> certificate = former.seal(bytes_of("PEM"), "certificate\nC1");
    Query(database, "INSERT INTO certificate_store VALUES ('certificate', 'C1', ?1)", std::span(certificate)).run();
    database.commit();
  }

  static std::span<const std::uint8_t> bytes_of(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t *>(text.data()), text.size()};
  }

  static constexpr std::string_view kFormerValue = "the value of a key of 256 bits..";
};

TEST_F(FormerStoreTest, HasItsValuesSealedUnderAKeyOfItsOwn) {
  for (int start = 0; start < 2; ++start) {
    Store store(address, *master, kLog);
    const auto value = value_of(store, "K1");
    EXPECT_EQ(std::string(value.begin(), value.end()), kFormerValue);
    Store::Reader reader(store);
    EXPECT_EQ(find_certificate(*reader, "C1"), "PEM");
    Query sealed((*reader).database, "SELECT sealed_value FROM instances");
    ASSERT_TRUE(sealed.next());
    EXPECT_FALSE(opens(Sealer(master->bytes()), "K1", "I1", sealed.blob(0)));
  }
}

TEST_F(FormerStoreTest, IsLeftAsItIsWhenTheMasterKeyIsAnother) {
  const auto other = MasterKey::create(directory / "other.key");
  EXPECT_THAT(start_error([&] { Store store(address, *other, kLog); }),
              testing::HasSubstr("the master key does not belong to the key store"));
  Store store(address, *master, kLog);
  const auto value = value_of(store, "K1");
  EXPECT_EQ(std::string(value.begin(), value.end()), kFormerValue);
}

TEST_F(StoreTest, AStoreOfANewerVersionIsLeftAlone) {
  { Store store(address, *master, kLog); }
  {
    Database database(address);
    database.begin();
    database.migrate({""}, 1000);
    database.commit();
  }
  EXPECT_THAT(start_error([&] { Store store(address, *master, kLog); }), testing::HasSubstr("use a newer veskd"));
}

TEST_F(StoreInFiles, OneThatIsNoStoreIsRefused) {
  std::ofstream(directory / "store.db") << std::string(4096, 'x');
  EXPECT_THAT(start_error([&] { Store store(address, *master, kLog); }),
              testing::HasSubstr("cannot use the key store"));
}

TEST_F(StoreTest, ARefusedChangeIsUndoneAndTheOthersOfItsCommitStand) {
  Store store(address, *master, kLog);
  std::latch queued(1);
  std::promise<ChangeOutcome> first, second, third;
  store.change({[&](StoreConnection &c) {
                  queued.wait();
                  return !create_key(c, "K1", kPolicy).empty();
                },
                [&](ChangeOutcome outcome) { first.set_value(outcome); }});
  store.change({[](StoreConnection &c) { return create_key(c, "K2", kPolicy).empty(); },
                [&](ChangeOutcome outcome) { second.set_value(outcome); }});
  store.change({[](StoreConnection &c) -> bool { throw DatabaseError(create_key(c, "K3", kPolicy)); },
                [&](ChangeOutcome outcome) { third.set_value(outcome); }});
  queued.count_down();
  EXPECT_EQ(first.get_future().get(), ChangeOutcome::kDone);
  EXPECT_EQ(second.get_future().get(), ChangeOutcome::kDone);
  EXPECT_EQ(third.get_future().get(), ChangeOutcome::kFailed);
  Store::Reader reader(store);
  EXPECT_TRUE(find_key(*reader, "K1").has_value());
  EXPECT_FALSE(find_key(*reader, "K2").has_value());
  EXPECT_FALSE(find_key(*reader, "K3").has_value());
}

TEST_F(StoreTest, ARecordStaysWhenItsChangeIsUndone) {
  Store store(address, *master, kLog);
  for (const char *name : {"K1", "K2"}) {
    std::promise<ChangeOutcome> outcome;
    store.change({.apply = [&](StoreConnection &c) -> bool {
                    create_key(c, name, kPolicy);
                    if (std::string(name) == "K2") throw DatabaseError("broken");
                    return false;
                  },
                  .done = [&](ChangeOutcome known) { outcome.set_value(known); },
                  .record = [&](StoreConnection &c) { create_key(c, std::string("record of ") + name, kPolicy); }});
    EXPECT_EQ(outcome.get_future().get(), std::string(name) == "K1" ? ChangeOutcome::kDone : ChangeOutcome::kFailed);
    Store::Reader reader(store);
    EXPECT_FALSE(find_key(*reader, name).has_value());
    EXPECT_TRUE(find_key(*reader, std::string("record of ") + name).has_value());
  }
}

TEST_F(StoreTest, WhatCannotBeRecordedIsUndone) {
  Store store(address, *master, kLog);
  std::promise<ChangeOutcome> outcome;
  store.change({.apply = [](StoreConnection &c) { return !create_key(c, "K1", kPolicy).empty(); },
                .done = [&](ChangeOutcome known) { outcome.set_value(known); },
                .record = [](StoreConnection &) { throw DatabaseError("broken"); }});
  EXPECT_EQ(outcome.get_future().get(), ChangeOutcome::kFailed);
  Store::Reader reader(store);
  EXPECT_FALSE(find_key(*reader, "K1").has_value());
}

TEST_F(StoreTest, WhenTheCommitFailsEveryChangeInItHasFailed) {
  Store store(address, *master, kLog);
  const auto check_references_at_commit = [&](Database &database) {
    database.execute(address.is_shared()
                         ? "ALTER TABLE instances ALTER CONSTRAINT instances_key_fkey DEFERRABLE INITIALLY DEFERRED"
                         : "PRAGMA defer_foreign_keys = ON");
  };
  std::latch entered(1), queued(1);
  std::promise<ChangeOutcome> blocker, good, bad;
  // While the first change is held up, the other two queue up for one commit.
  store.change({[&](StoreConnection &) {
                  entered.count_down();
                  queued.wait();
                  return true;
                },
                [&](ChangeOutcome outcome) { blocker.set_value(outcome); }});
  entered.wait();
  store.change({[](StoreConnection &c) { return !create_key(c, "K1", kPolicy).empty(); },
                [&](ChangeOutcome outcome) { good.set_value(outcome); }});
  store.change({[&](StoreConnection &c) {
                  check_references_at_commit(c.database);
                  const std::vector<std::uint8_t> value(1);
                  Query(c.database, "INSERT INTO instances VALUES (4711, 'of no key', ?1)", std::span(value)).run();
                  return true;
                },
                [&](ChangeOutcome outcome) { bad.set_value(outcome); }});
  queued.count_down();
  EXPECT_EQ(blocker.get_future().get(), ChangeOutcome::kDone);
  EXPECT_EQ(good.get_future().get(), ChangeOutcome::kFailed);
  EXPECT_EQ(bad.get_future().get(), ChangeOutcome::kFailed);
  EXPECT_TRUE(change(store, [](StoreConnection &c) { return !find_key(c, "K1").has_value(); }));
}

TEST_F(StoreTest, ChangesThatWaitAreMadeBeforeTheStoreCloses) {
  int num_durable = 0;
  {
    Store store(address, *master, kLog);
    for (int i = 0; i < 1000; ++i)
      store.change({[i](StoreConnection &c) { return !create_key(c, "K" + std::to_string(i), kPolicy).empty(); },
                    [&](ChangeOutcome outcome) { num_durable += outcome == ChangeOutcome::kDone ? 1 : 0; }});
  }
  EXPECT_EQ(num_durable, 1000);
}

TEST_F(StoreTest, AReaderCannotChangeAnything) {
  Store store(address, *master, kLog);
  Store::Reader reader(store);
  EXPECT_THROW(create_key(*reader, "K1", kPolicy), DatabaseError);
}

// ---- Dates ----

TEST(Dates, AreDaysOfTheCalendar) {
  for (const char *date : {"20260101", "20240229", "99991231", "00010101"}) EXPECT_TRUE(is_date(date)) << date;
  for (const char *date :
       {"", "00000000", "20260229", "20261301", "20260100", "2026011", "202601010", "2026 101", "-0260101", "2026O101"})
    EXPECT_FALSE(is_date(date)) << date;
  EXPECT_TRUE(is_date(today()));
}

}  // namespace
}  // namespace veskd::test
