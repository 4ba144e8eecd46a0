// What the client leaves in memory: of calls to a server in a process of its own (memory_test.cc), and of replies that
// break off.
#include <fstream>

#include "orn/vesk.h"
#include "orn/vesk/wiped.h"
#include "tests/secrets/expectations.h"
#include "tests/secrets/running_server.h"

namespace secrets_test {

const bool kServerIsHere = false;

namespace {

using vesk::Wiped;
using veskd::test::TemporaryDirectory;

// A connection that breaks off within the value, and one that leaves it unread.
TEST(MemoryOfBrokenReplies, HoldsNothing) {
  const TemporaryDirectory folder;
  std::ofstream(folder / "faults.toml")
      << "[[fault]]\noperation = 'RetrieveKey'\nnth = 2\ndo = 'cut'\nafter_bytes = 124\n"
         "[[fault]]\noperation = 'RetrieveKey'\nnth = 3\ndo = 'length'\ndigits = '99999'\n";
  RunningServer server({"--faults", folder / "faults.toml"});
  const auto call = [&](auto function, auto... arguments) {
    return function(server.paths(), server.host(), server.port(), arguments...);
  };
  ASSERT_EQ(call(qCreateSymKey, "K", 'N'), 0);
  Wiped<KeyRecord> record;
  ASSERT_EQ(call(qRetrieveKey, "K", "", &*record), 0);
  const Needle needle = needle_of(*record);
  ASSERT_EQ(call(qRetrieveKey, "K", "", &*record), CONN_ERR_CLOSED);
  expect_nowhere(needle);
  ASSERT_EQ(call(qRetrieveKey, "K", "", &*record), ERR_TRANSACTION_SIZE);
  expect_nowhere(needle);
}

}  // namespace
}  // namespace secrets_test
