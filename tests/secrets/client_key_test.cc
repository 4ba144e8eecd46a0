// What the client leaves in memory of its own key, in a program whose OpenSSL wipes what it frees: decoding a key
// leaves copies there.
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <vector>

#include "orn/support.h"
#include "orn/vesk.h"
#include "tests/secrets/expectations.h"
#include "tests/secrets/running_server.h"

namespace secrets_test {
namespace {

// It stays while it may be used again, and no longer.
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
