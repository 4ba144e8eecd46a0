// That the search for secrets finds what is there, and not itself.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/crypto.h>

#include <array>
#include <cstdlib>
#include <memory>

#include "orn/vesk/wiped.h"
#include "tests/secrets/memory.h"

namespace secrets_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vesk::Wiped;

constexpr std::size_t kPlanted = 32;
using Planted = Wiped<std::array<unsigned char, kPlanted>>;

// Matches the one place that is this very address.
auto only_at(const void *address) {
  return ElementsAre(testing::Field(&Place::address, reinterpret_cast<std::uintptr_t>(address)));
}

void fill(std::span<unsigned char> bytes) {
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i * i + 7 * i + 13);
}

Needle planted_needle() {
  Planted bytes;
  fill(*bytes);
  return Needle(*bytes);
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
  EXPECT_THAT(places_of(needle), only_at((*bytes)->data()));
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
  Planted bytes;
  fill(*bytes);
  OPENSSL_cleanse(bytes->data(), 16);
  OPENSSL_cleanse(bytes->data() + 24, 8);
  EXPECT_THAT(places_of(needle), only_at(bytes->data()));
}

}  // namespace
}  // namespace secrets_test
