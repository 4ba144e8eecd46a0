// Where the tests expect secrets in memory.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <vector>

#include "orn/records.h"
#include "tests/secrets/memory.h"
#include "tests/server/test_server.h"

namespace secrets_test {

// Whether the tests of calls have their server in this process, so that what it leaves is found here too, without a
// right to look at others. It wipes what OpenSSL frees, as the server's own program does. Otherwise it is a process of
// its own, and what is found here is what the client has left.
extern const bool kServerIsHere;

inline Needle needle_of(const KeyRecord &record) {
  return Needle({reinterpret_cast<const unsigned char *>(record.caKeyValue), veskd::kKeyBytes});
}

// The places where a secret stays. A server wipes what it has sent a moment after the client has it.
inline std::vector<Place> places_that_stay(const Needle &needle, std::size_t num_expected, pid_t process = ::getpid()) {
  EXPECT_TRUE(needle.is_a_secret());
  std::vector<Place> places;
  veskd::test::eventually(
      [&] {
        places = places_of(needle, process);
        return places.size() == num_expected;
      },
      std::chrono::seconds(5));
  return places;
}

inline void expect_only_in(const void *buffer, const Needle &needle) {
  EXPECT_THAT(places_that_stay(needle, 1),
              testing::ElementsAre(testing::Field(&Place::address, reinterpret_cast<std::uintptr_t>(buffer))));
}

inline void expect_nowhere(const Needle &needle) {
  EXPECT_THAT(places_that_stay(needle, 0), testing::IsEmpty());
}

inline void expect_nowhere(const std::vector<Needle> &needles) {
  for (std::size_t i = 0; i < needles.size(); ++i) {
    SCOPED_TRACE(i);
    expect_nowhere(needles[i]);
  }
}

}  // namespace secrets_test
