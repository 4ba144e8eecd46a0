// What the server leaves in memory: of calls to a server in this process (memory_test.cc), of keys on their way to
// mirrors, and in its own program.
#include <cstdlib>

#include "orn/vesk.h"
#include "orn/vesk/wiped.h"
#include "tests/secrets/expectations.h"
#include "tests/secrets/running_server.h"
#include "tests/server/mirror_servers.h"
#include "veskd/process_memory.h"

namespace secrets_test {

const bool kServerIsHere = true;

namespace {

using vesk::Wiped;
using veskd::test::MirrorServer;

// Before anything of the test program uses OpenSSL.
[[gnu::constructor]] void prepare() {
  if (!veskd::wipe_what_openssl_frees()) std::abort();
}

TEST(MemoryOfMirrors, HoldsNoKeysThatTravelled) {
  MirrorServer east;
  MirrorServer west(east.directory());
  east.add_mirror("west", west.port());
  east.create_mirror_key("K");
  Wiped<KeyRecord> record;
  ASSERT_TRUE(veskd::test::eventually([&] { return west.call(qRetrieveKey, "K", "", &*record) == 0; }));
  expect_only_in(record->caKeyValue, needle_of(*record));
}

// The program does not let other processes of its user look.
TEST(MemoryOfTheServersProgram, HoldsNoKeysThatWereServed) {
  RunningServer server;
  const pid_t program = server.program().pid();
  Wiped<KeyRecord> record;
  ASSERT_EQ(qCreateSymKey(server.paths(), server.host(), server.port(), "K", 'N'), 0);
  ASSERT_EQ(qRetrieveKey(server.paths(), server.host(), server.port(), "K", "", &*record), 0);
  const Needle needle = needle_of(*record);
  try {
    EXPECT_THAT(places_that_stay(needle, 0, program), testing::IsEmpty());
  } catch (const std::system_error &) {
    GTEST_SKIP() << "only root may look into its memory";
  }
}

}  // namespace
}  // namespace secrets_test
