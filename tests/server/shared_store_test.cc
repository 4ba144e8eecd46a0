// A store in a database, as the administrator's commands and a configured server use it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "orn/vesk.h"
#include "tests/server/laboratory.h"

namespace veskd::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

struct Ended {
  int exit_code;
  std::string output;
  std::string errors;
};

Ended run(const std::vector<std::string> &arguments) {
  Program program(arguments);
  const std::string output = program.read_all();
  return {program.wait(), output, program.errors()};
}

class SharedStore : public testing::Test {
 protected:
  Ended with_configuration(std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--config", laboratory.file().string()});
    return run(arguments);
  }
  int create(const ConfiguredServer &server, const char *name) {
    const CertificatePaths paths = client_paths(laboratory.path());
    return qCreateSymKey(&paths, "127.0.0.1", server.port(), name, 'N');
  }
  int retrieve(const ConfiguredServer &server, const char *name) {
    const CertificatePaths paths = client_paths(laboratory.path());
    KeyRecord record{};
    return qRetrieveKey(&paths, "127.0.0.1", server.port(), name, "", &record);
  }
  std::string master_key() const {
    std::ifstream file(laboratory / "master.key");
    return {std::istreambuf_iterator<char>(file), {}};
  }

  Laboratory laboratory;
};

TEST_F(SharedStore, TellsItsAudit) {
  ConfiguredServer server(laboratory);
  ASSERT_EQ(create(server, "K1"), 0);
  const Ended show = with_configuration({"audit", "show"});
  EXPECT_EQ(show.exit_code, 0) << show.errors;
  EXPECT_THAT(show.output, HasSubstr("\tCreateSymKey\tK1\t"));
  const Ended verify = with_configuration({"audit", "verify"});
  EXPECT_EQ(verify.exit_code, 0) << verify.errors;
  EXPECT_THAT(verify.output, testing::StartsWith("whole up to 1:"));
  Database(store_address(laboratory.path())).execute("UPDATE audit SET object = 'K2'");
  EXPECT_EQ(with_configuration({"audit", "verify"}).output, "entry 1 was changed\n");
}

TEST_F(SharedStore, IsServedUnderItsNewMasterKeyAlone) {
  std::string old;
  {
    ConfiguredServer server(laboratory);
    ASSERT_EQ(create(server, "K1"), 0);
    old = master_key();
    const Ended rotation = with_configuration({"rotate-master-key"});
    EXPECT_EQ(rotation.exit_code, 0) << rotation.errors;
    EXPECT_NE(master_key(), old);
    EXPECT_EQ(create(server, "K2"), 0);
  }
  {
    ConfiguredServer server(laboratory);
    EXPECT_EQ(retrieve(server, "K1"), 0);
    EXPECT_EQ(retrieve(server, "K2"), 0);
    EXPECT_THAT(with_configuration({"audit", "verify"}).output, testing::StartsWith("whole up to "));
  }
  std::ofstream(laboratory / "master.key") << old;
  for (const char *command : {"serve", "rotate-master-key"}) {
    const Ended refused = with_configuration({command});
    EXPECT_EQ(refused.exit_code, 1) << command;
    EXPECT_THAT(refused.errors, HasSubstr("does not belong to the key store postgresql://")) << command;
  }
}

TEST_F(SharedStore, IsNotServedWithoutItsMasterKey) {
  { ConfiguredServer server(laboratory); }
  fs::remove(laboratory / "master.key");
  const Ended refused = with_configuration({"serve"});
  EXPECT_EQ(refused.exit_code, 1);
  EXPECT_THAT(refused.errors, HasSubstr("master.key is missing"));
  EXPECT_FALSE(fs::exists(laboratory / "master.key"));
}

TEST_F(SharedStore, LeavesToPostgresWhatItsToolsDo) {
  { ConfiguredServer server(laboratory); }
  const std::string file = (laboratory / "backup").string();
  const Ended backup = with_configuration({"backup", "--to", file});
  EXPECT_EQ(backup.exit_code, 1);
  EXPECT_THAT(backup.errors, HasSubstr("use pg_dump for it, and keep its master key"));
  EXPECT_FALSE(fs::exists(file));
  const Ended restore = with_configuration({"restore", "--from", file});
  EXPECT_EQ(restore.exit_code, 1);
  EXPECT_THAT(restore.errors, HasSubstr("use pg_restore for it, and keep its master key"));
}

TEST_F(SharedStore, KeepsTheKeyOfItsValues) {
  { ConfiguredServer server(laboratory); }
  const std::string before = master_key();
  const Ended refused = with_configuration({"rotate-master-key", "--reseal-values"});
  EXPECT_EQ(refused.exit_code, 1);
  EXPECT_THAT(refused.errors, HasSubstr("other servers may have the key store postgresql://"));
  EXPECT_EQ(master_key(), before);
}

TEST_F(SharedStore, ThatIsNotThereIsNotMade) {
  const Ended show = with_configuration({"audit", "show"});
  EXPECT_EQ(show.exit_code, 1);
  EXPECT_THAT(show.errors, HasSubstr("there is no key store postgresql://"));
  EXPECT_FALSE(store_exists(store_address(laboratory.path())));
}

}  // namespace
}  // namespace veskd::test
