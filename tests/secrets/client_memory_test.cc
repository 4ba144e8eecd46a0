// What the client leaves in memory: of calls to a server in a process of its own (memory_test.cc), of replies that
// break off, and of the client's key.
#include <cstdlib>
#include <fstream>
#include <string>

#include "orn/support.h"
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

// The client's own key stays while it may be used again, and no longer.
TEST(MemoryOfTheClientsKey, HoldsNothingOnceAllIsForgotten) {
  TLSForgetAll();
  RunningServer server;
  const std::string file = server.paths()->caPath[3];
  const std::string der = server / "key.der";
  ASSERT_EQ(std::system(("openssl ec -in " + file + " -outform DER -out " + der + " 2>/dev/null").c_str()), 0);
  constexpr std::size_t kScalarOffset = 7;  // of an ECPrivateKey on P-256
  const Needle scalar = Needle::of_file(der, kScalarOffset, 32);
  const std::vector<Needle> needles = {Needle::of_file(file, 70, 48), scalar, scalar.reversed()};
  // A call that goes no further than to the files, and one that does.
  for (const int status : std::initializer_list<int>{CONN_ERR_REFUSED, 0}) {
    EXPECT_EQ(qAdminNoop(server.paths(), server.host(), status == 0 ? server.port() : 1), status);
    TLSForgetAll();
    expect_nowhere(needles);
  }
}

}  // namespace
}  // namespace secrets_test
