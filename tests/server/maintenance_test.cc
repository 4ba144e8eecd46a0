// Backup, restore and the change of the master key: with a server that runs, and cut off at any moment.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <set>
#include <thread>

#include "orn/vesk.h"
#include "tests/server/cut_off.h"
#include "tests/server/program.h"
#include "tests/server/test_server.h"
#include "veskd/audit_records.h"
#include "veskd/key_records.h"
#include "veskd/master_key_rotation.h"
#include "veskd/return_codes.h"
#include "veskd/store_copy.h"
#include "veskd/template_records.h"
#include "veskd/transaction.h"

namespace veskd::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr const char *kConstant = "CONSTANT_000015";
const KeyPolicy kPolicy{"00000000", "00000000", "N", "0000", "Y", "N", "1", "User1", "Group1"};

std::string content_of(const fs::path &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// The value of a key in a store that no server has open; empty when there is no such key.
std::string stored_value(const StoreFiles &files, const std::string &name) {
  StoreFile store(files);
  const auto key = find_key(*store, name);
  if (!key) return {};
  KeyValue value;
  read_key_value(*store, *key, key->current_instance, value);
  return std::string(value->begin(), value->end());
}

std::size_t num_audit_faults(const StoreFiles &files) {
  std::size_t num_faults = 0;
  StoreFile store(files);
  verify_audit(*store, [&](const std::string &) { ++num_faults; });
  return num_faults;
}

// A store with a key and a template whose first two keys were served, and no server.
class StoreOfKeys {
 public:
  StoreOfKeys() {
    const Log log(true);
    const auto master = MasterKey::create(files.master_key);
    const Store store(files.store, *master, log);
    StoreFile file(files);
    Transaction transaction((*file).database);
    create_key(*file, "K1", kPolicy);
    const Template family = create_template(*file, kConstant);
    generate_keys(*file, family, 10, kPolicy);
    mark_served(*file, family, 0);
    mark_served(*file, family, 1);
    transaction.commit();
  }

  TemporaryDirectory directory;
  StoreFiles files = store_files_in(directory.path());
};

void add_key_named(const StoreFiles &files, const std::string &name) {
  StoreFile store(files);
  Transaction transaction((*store).database);
  create_key(*store, name, kPolicy);
  transaction.commit();
}

// ---- Backup ----

class Backup : public testing::Test {
 protected:
  BackupRequest backup_request() const { return {stored.files, backup, key, false}; }
  RestoreRequest restore_request() const { return {backup, restored, key, std::nullopt, false}; }

  StoreOfKeys stored;
  TemporaryDirectory other;
  fs::path backup = other / "backup";
  fs::path key = other / "backup.key";
  StoreFiles restored = store_files_in(other / "keys");
};

TEST_F(Backup, IsOnePrivateFileThatMakesTheStoreAgain) {
  back_up(backup_request());
  EXPECT_EQ(mode_of(backup), 0600u);
  EXPECT_EQ(mode_of(key), 0600u);
  restore(restore_request());
  EXPECT_EQ(stored_value(restored, "K1"), stored_value(stored.files, "K1"));
  EXPECT_EQ(mode_of(restored.store.text()), 0600u);
  EXPECT_EQ(num_audit_faults(restored), 0u);
  std::set<std::string> names;
  for (const auto &entry : fs::directory_iterator(other.path())) names.insert(entry.path().filename());
  EXPECT_EQ(names, (std::set<std::string>{"backup", "backup.key", "keys"}));
}

TEST_F(Backup, HasNoMasterKeyUnlessAskedFor) {
  BackupRequest request = backup_request();
  request.master_key_to.clear();
  back_up(request);
  EXPECT_FALSE(fs::exists(key));
  RestoreRequest without_key = restore_request();
  without_key.master_key.clear();
  EXPECT_THAT(start_error([&] { restore(without_key); }), HasSubstr("there is no master key"));
}

TEST_F(Backup, ReplacesNothingUnasked) {
  std::ofstream(backup) << "precious";
  EXPECT_THAT(start_error([&] { back_up(backup_request()); }), HasSubstr("is there already"));
  EXPECT_EQ(content_of(backup), "precious");
  BackupRequest request = backup_request();
  request.replace = true;
  back_up(request);
  request.to = stored.files.store.text();
  EXPECT_THAT(start_error([&] { back_up(request); }), HasSubstr("is the store itself"));
  restore(restore_request());
  EXPECT_THAT(start_error([&] { restore(restore_request()); }), HasSubstr("is there already"));
}

TEST_F(Backup, IsNotMadeOfValuesThatDoNotOpen) {
  Database(stored.files.store)
      .execute("UPDATE instances SET sealed_value = zeroblob(60) WHERE key = (SELECT id FROM keys WHERE name = 'K1')");
  EXPECT_THAT(start_error([&] { back_up(backup_request()); }),
              HasSubstr("1 values of the store do not open, first that of key K1 instance"));
  EXPECT_TRUE(fs::is_empty(other.path()));
}

TEST_F(Backup, IsRestoredUnderTheMasterKeyOfTheDirectory) {
  back_up(backup_request());
  fs::create_directory(other / "keys");
  MasterKey::create(restored.master_key);
  const std::string own_key = content_of(restored.master_key);
  restore(restore_request());
  EXPECT_EQ(content_of(restored.master_key), own_key);
  EXPECT_EQ(stored_value(restored, "K1"), stored_value(stored.files, "K1"));
}

TEST_F(Backup, IsRefusedUnderAMasterKeyThatIsNotItsOwn) {
  back_up(backup_request());
  RestoreRequest request = restore_request();
  request.master_key = other / "other.key";
  MasterKey::create(request.master_key);
  EXPECT_THAT(start_error([&] { restore(request); }), HasSubstr("the master key does not belong"));
  EXPECT_FALSE(fs::exists(restored.store.text()));
}

// What was served since the backup was made is not known to it.
TEST_F(Backup, ServesNoIncrementTwice) {
  back_up(backup_request());
  const struct {
    std::optional<std::int64_t> skip;
    std::int64_t next, generated;
  } cases[] = {{std::nullopt, 10, 10}, {0, 2, 10}, {3, 5, 10}, {50, 52, 52}, {1LL << 60, 0x1000000, 0x1000000}};
  for (const auto &expected : cases) {
    RestoreRequest request = restore_request();
    request.skip_increments = expected.skip;
    request.replace = true;
    restore(request);
    StoreFile store(restored);
    const Template family = find_template(*store, kConstant).value();
    EXPECT_EQ(family.next_increment, expected.next);
    EXPECT_EQ(family.first_unserved, expected.next);
    EXPECT_EQ(family.num_generated, expected.generated);
    // Keys that may have been served stay when the template goes.
    remove_template(*store, family, "");
    Query kept((*store).database, "SELECT count(*) FROM keys WHERE template = ?1", family.id);
    ASSERT_TRUE(kept.next());
    EXPECT_EQ(kept.number(0), std::min<std::int64_t>(expected.next, 10));
  }
}

TEST_F(Backup, ThatIsCutOffLeavesNothingInPlace) {
  BackupRequest request = backup_request();
  request.master_key_to.clear();
  const int num_killed = cut_off_at_every_step([&] { back_up(request); },
                                               [&] {
                                                 if (!fs::exists(backup)) return;
                                                 RestoreRequest restoring = restore_request();
                                                 restoring.master_key = stored.files.master_key;
                                                 restoring.replace = true;
                                                 restore(restoring);
                                                 EXPECT_NE(stored_value(restored, "K1"), "");
                                                 fs::remove(backup);
                                               });
  EXPECT_GT(num_killed, 3);
}

TEST_F(Backup, RestoringThatIsCutOffLeavesTheOldStoreOrTheNew) {
  back_up(backup_request());
  restore(restore_request());
  add_key_named(restored, "K2");
  RestoreRequest request = restore_request();
  request.replace = true;
  bool is_new = false;
  const int num_killed = cut_off_at_every_step([&] { restore(request); },
                                               [&] {
                                                 EXPECT_NE(stored_value(restored, "K1"), "");
                                                 if (stored_value(restored, "K2").empty()) is_new = true;
                                                 EXPECT_EQ(num_audit_faults(restored), 0u);
                                               });
  EXPECT_GT(num_killed, 3);
  EXPECT_TRUE(is_new);
}

// ---- The change of the master key ----

class Rotation : public testing::Test {
 protected:
  StoreOfKeys stored;
  const StoreFiles &files = stored.files;
};

TEST_F(Rotation, LeavesTheOldMasterKeyWithoutUse) {
  const std::string value = stored_value(files, "K1");
  const auto old = MasterKey::read(files.master_key);
  rotate_master_key(files);
  EXPECT_EQ(mode_of(files.master_key), 0600u);
  EXPECT_FALSE(fs::exists(files.next_master_key()));
  EXPECT_EQ(stored_value(files, "K1"), value);
  Database database(files.store);
  EXPECT_EQ(read_store_keys(database, *old), nullptr);
  EXPECT_EQ(num_audit_faults(files), 0u);
}

TEST_F(Rotation, OfAllKeysSealsTheValuesAnew) {
  const std::string value = stored_value(files, "K1");
  KeyValue old;
  *old = *StoreFile(files).keys().values;
  rotate_all_keys(files);
  EXPECT_EQ(stored_value(files, "K1"), value);
  StoreFile store(files);
  Query sealed((*store).database, "SELECT name, instance, sealed_value FROM keys JOIN instances ON key = id");
  const Sealer old_sealer(*old);
  std::size_t num_values = 0;
  for (; sealed.next(); ++num_values) {
    EXPECT_TRUE(opens((*store).sealer, sealed.text(0), sealed.text(1), sealed.blob(2)));
    EXPECT_FALSE(opens(old_sealer, sealed.text(0), sealed.text(1), sealed.blob(2)));
  }
  EXPECT_EQ(num_values, 11u);
}

// What a start does after each kill.
void rotate_with_kills(const StoreFiles &files, void (*rotation)(const StoreFiles &)) {
  const std::string value = stored_value(files, "K1");
  std::set<std::string> master_keys;
  const int num_killed =
      cut_off_at_every_step([&] { rotation(files); },
                            [&] {
                              EXPECT_EQ(stored_value(files, "K1"), value);
                              open_master_key(files);
                              EXPECT_FALSE(fs::exists(files.next_master_key()));
                              const Log log(true);
                              const Store store(files.store, *MasterKey::read(files.master_key), log);
                              master_keys.insert(content_of(files.master_key));
                              EXPECT_EQ(stored_value(files, "K1"), value);
                              EXPECT_EQ(num_audit_faults(files), 0u);
                            });
  EXPECT_GT(num_killed, 5);
  // Before the change was on the disk, after it, and at the end.
  EXPECT_GE(master_keys.size(), 3u);
}

TEST_F(Rotation, ThatIsCutOffLeavesAMasterKeyThatOpensTheStore) {
  rotate_with_kills(files, rotate_master_key);
}

TEST_F(Rotation, OfAllKeysThatIsCutOffLeavesAMasterKeyThatOpensTheStore) {
  rotate_with_kills(files, rotate_all_keys);
}

TEST_F(Rotation, ThatIsCutOffIsFinishedByTheNext) {
  const std::string value = stored_value(files, "K1");
  const int num_killed = cut_off_at_every_step([&] { rotate_master_key(files); }, [] {});
  EXPECT_GT(num_killed, 5);
  EXPECT_FALSE(fs::exists(files.next_master_key()));
  EXPECT_EQ(stored_value(files, "K1"), value);
}

// ---- Beside a server ----

class BesideAServer : public testing::Test {
 protected:
  int create(const std::string &name) {
    return qCreateSymKey(server.paths(), server.host(), server.port(), name.c_str(), 'N');
  }
  std::string value_of(const char *name) {
    KeyRecord record{};
    EXPECT_EQ(qRetrieveKey(server.paths(), server.host(), server.port(), name, "", &record), 0);
    return std::string(record.caKeyValue, 32);
  }

  TestServer server;
  StoreFiles files = store_files_in(server.directory());
  TemporaryDirectory other;
};

TEST_F(BesideAServer, ABackupIsOfOneMoment) {
  ASSERT_EQ(create("K0"), 0);
  std::atomic<bool> done = false;
  std::atomic<int> num_created = 1;
  std::thread client([&] {
    while (!done && create("K" + std::to_string(num_created)) == 0) ++num_created;
  });
  EXPECT_TRUE(eventually([&] { return num_created > 3; }));
  const int num_before = num_created;
  back_up({files, other / "backup", {}, false});
  done = true;
  client.join();
  const StoreFiles restored = store_files_in(other / "keys");
  restore({other / "backup", restored, files.master_key, 0, false});
  int num_restored = 0;
  while (!stored_value(restored, "K" + std::to_string(num_restored)).empty()) ++num_restored;
  EXPECT_GE(num_restored, num_before);
  EXPECT_LE(num_restored, num_created);
  EXPECT_EQ(stored_value(restored, "K0"), value_of("K0"));
  EXPECT_EQ(num_audit_faults(restored), 0u);
}

TEST_F(BesideAServer, ItsStoreIsNotReplaced) {
  back_up({files, other / "backup", {}, false});
  EXPECT_THAT(start_error([&] {
                restore({other / "backup", files, {}, 0, true});
              }),
              HasSubstr("another veskd serves the directory"));
  EXPECT_THAT(start_error([&] { rotate_all_keys(files); }), HasSubstr("another veskd serves the directory"));
  EXPECT_EQ(create("K1"), 0);
}

TEST_F(BesideAServer, TheMasterKeyChanges) {
  ASSERT_EQ(create("K1"), 0);
  const std::string value = value_of("K1");
  const std::string old = content_of(files.master_key);
  rotate_master_key(files);
  EXPECT_NE(content_of(files.master_key), old);
  EXPECT_EQ(create("K2"), 0);
  EXPECT_EQ(value_of("K1"), value);
  EXPECT_EQ(stored_value(files, "K1"), value);
  EXPECT_EQ(stored_value(files, "K2"), value_of("K2"));
  EXPECT_EQ(num_audit_faults(files), 0u);
}

// ---- As a user types it ----

int run(const std::vector<std::string> &arguments) {
  Program program(arguments);
  const int exit_code = program.wait();
  EXPECT_EQ(program.errors(), "") << testing::PrintToString(arguments);
  return exit_code;
}

TEST(MaintenanceCommands, CarryAStoreOver) {
  const StoreOfKeys stored;
  const TemporaryDirectory other;
  const std::string from = stored.directory.path().string(), to = (other / "keys").string();
  const std::string backup = (other / "backup").string(), key = (other / "key").string();
  EXPECT_EQ(run({"backup", "--dir", from, "--to", backup, "--master-key-to", key}), 0);
  EXPECT_EQ(run({"restore", "--from", backup, "--dir", to, "--master-key", key, "--skip-increments", "1"}), 0);
  EXPECT_EQ(run({"rotate-master-key", "--dir", to, "--reseal-values"}), 0);
  DevServer server(to);
  const CertificatePaths paths = client_paths(to);
  std::uint32_t size = 0, next = 0;
  EXPECT_EQ(qGetTemplateDepth(&paths, "127.0.0.1", server.port(), kConstant, &size, &next), 0);
  EXPECT_EQ(next, 3u);
  EXPECT_EQ(run({"rotate-master-key", "--dir", to}), 0);
  KeyRecord record{};
  EXPECT_EQ(qRetrieveKey(&paths, "127.0.0.1", server.port(), "K1", "", &record), 0);
  EXPECT_EQ(std::string(record.caKeyValue, 32), stored_value(stored.files, "K1"));
  EXPECT_EQ(server.stop(), 0);
}

}  // namespace
}  // namespace veskd::test
