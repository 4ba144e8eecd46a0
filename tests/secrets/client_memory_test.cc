// What a call of the library leaves in the memory of its process: a key is in the caller's buffer, and nowhere else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "orn/skeys.h"
#include "orn/support.h"
#include "orn/vesk.h"
#include "orn/vesk/libvesk/default_policy.h"
#include "orn/vesk/wiped.h"
#include "tests/secrets/memory.h"
#include "tests/secrets/server_files.h"

namespace secrets_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using vesk::Wiped;

template <std::size_t kSize>
using Buffer = Wiped<std::array<unsigned char, kSize>>;

template <std::size_t kSize>
Needle needle_of(const Buffer<kSize> &buffer) {
  return Needle(std::span(*buffer));
}

Needle needle_of(const KeyRecord &record) {
  return Needle(std::span(reinterpret_cast<const unsigned char *>(record.caKeyValue), 32));
}

// Matches the one place that is this very buffer.
auto only_in(const void *buffer) {
  return ElementsAre(testing::Field(&Place::address, reinterpret_cast<std::uintptr_t>(buffer)));
}

// ---- The search itself ----

constexpr std::size_t kPlanted = 32;

void fill(std::span<unsigned char> bytes) {
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i * i + 7 * i + 13);
}

Needle planted_needle() {
  Buffer<kPlanted> bytes;
  fill(*bytes);
  return needle_of(bytes);
}

// Deeper than what is called next.
[[gnu::noinline]] std::uintptr_t leave_on_the_stack() {
  unsigned char bytes[0x10000];
  fill({bytes, kPlanted});
  return reinterpret_cast<std::uintptr_t>(bytes);
}

TEST(Search, DoesNotFindItself) {
  const Needle needle = planted_needle();
  EXPECT_THAT(places_of(needle), IsEmpty());
}

TEST(Search, FindsWhatIsInTheHeap) {
  const Needle needle = planted_needle();
  Wiped<std::array<unsigned char, 100>> *bytes = new Wiped<std::array<unsigned char, 100>>;
  fill(std::span(**bytes).first(kPlanted));
  EXPECT_THAT(places_of(needle), only_in((*bytes)->data()));
  delete bytes;
  EXPECT_THAT(places_of(needle), IsEmpty());
}

// Of a size that is not given out again at once, nor back to the system.
TEST(Search, FindsWhatWasFreed) {
  const Needle needle = planted_needle();
  constexpr std::size_t kBytes = 60'000;
  auto *bytes = static_cast<unsigned char *>(std::malloc(kBytes));
  const std::unique_ptr<char> keeps_the_heap_up(new char);
  fill({bytes + kBytes - kPlanted, kPlanted});
  const auto address = reinterpret_cast<std::uintptr_t>(bytes) + kBytes - kPlanted;
  std::free(bytes);
  const std::vector<Place> places = places_of(needle);
  OPENSSL_cleanse(reinterpret_cast<void *>(address), kPlanted);
  EXPECT_THAT(places, ElementsAre(Place{address, "[heap]"}));
}

TEST(Search, FindsWhatIsBelowTheStack) {
  const Needle needle = planted_needle();
  const std::uintptr_t address = leave_on_the_stack();
  const std::vector<Place> places = places_of(needle);
  OPENSSL_cleanse(reinterpret_cast<void *>(address), kPlanted);
  EXPECT_THAT(places, ElementsAre(Place{address, "[stack]"}));
}

TEST(Search, FindsEightBytesOfASecret) {
  const Needle needle = planted_needle();
  Buffer<kPlanted> bytes;
  fill(*bytes);
  OPENSSL_cleanse(bytes->data(), 16);
  OPENSSL_cleanse(bytes->data() + 24, 8);
  EXPECT_THAT(places_of(needle), only_in(bytes->data()));
}

// ---- The calls ----

class ClientMemory : public testing::Test {
 protected:
  static void SetUpTestSuite() { server = std::make_unique<RunningServer>(); }
  static void TearDownTestSuite() { server.reset(); }

  template <typename Call, typename... Arguments>
  static int call(Call call, Arguments... arguments) {
    return call(server->paths(), server->host(), server->port(), arguments...);
  }

  static inline std::unique_ptr<RunningServer> server;
};

TEST_F(ClientMemory, ARetrievedKeyIsInTheCallersRecordAlone) {
  ASSERT_EQ(call(qCreateSymKey, "retrieved", 'N'), 0);
  Wiped<KeyRecord> record;
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(call(qRetrieveKey, "retrieved", "", &*record), 0);
    const Needle needle = needle_of(*record);
    ASSERT_TRUE(needle.is_a_secret());
    EXPECT_THAT(places_of(needle), only_in(record->caKeyValue));
  }
}

TEST_F(ClientMemory, ADrawnKeyIsInTheCallersBufferAlone) {
  ASSERT_EQ(call(qAutoGenKeys, "CONSTANT_000015", 'i', 3u), 0);
  for (int round = 0; round < 3; ++round) {
    char name[41];
    Buffer<32> value;
    std::uint32_t increment = 0;
    ASSERT_EQ(call(qGetNextKey, "CONSTANT_000015", name, value->data(), &increment), 0);
    const Needle needle = needle_of(value);
    ASSERT_TRUE(needle.is_a_secret());
    EXPECT_THAT(places_of(needle), only_in(value->data()));
  }
}

}  // namespace
}  // namespace secrets_test
