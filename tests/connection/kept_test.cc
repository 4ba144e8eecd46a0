// The bounds of what is kept, on the parts themselves.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "orn/support/channel.h"
#include "orn/support/file_bytes.h"
#include "orn/support/sessions.h"

namespace orn {
namespace {

Ticket ticket_until(Clock::time_point expires) {
  return {SslSessionPtr(SSL_SESSION_new()), expires, expires};
}

void keep(Sessions &sessions, const std::string &server, int count, Clock::time_point expires) {
  for (int i = 0; i < count; ++i) {
    Ticket ticket = ticket_until(expires);
    sessions.keep(server, {&ticket, 1});
  }
}

int num_kept(Sessions &sessions, const std::string &server) {
  int count = 0;
  while (sessions.take(server).session) ++count;
  return count;
}

const Clock::time_point kSoon = Clock::now() + std::chrono::minutes(5);

TEST(Sessions, AreBoundedInNumber) {
  Sessions sessions;
  keep(sessions, "a 1", 1000, kSoon);
  EXPECT_EQ(Sessions::kMostTickets, static_cast<std::size_t>(num_kept(sessions, "a 1")));
}

TEST(Sessions, AreBoundedInServersOfWhichTheLeastRecentlyUsedGoes) {
  Sessions sessions;
  for (std::size_t i = 0; i < Sessions::kMostServers; ++i) keep(sessions, std::to_string(i), 2, kSoon);
  EXPECT_TRUE(sessions.take("0").session);
  keep(sessions, "one more", 1, kSoon);
  EXPECT_FALSE(sessions.take("1").session);
  EXPECT_TRUE(sessions.take("0").session);
  EXPECT_TRUE(sessions.take("one more").session);
}

TEST(Sessions, AreNotOfferedWhenTheyHaveExpired) {
  Sessions sessions;
  keep(sessions, "a 1", 1, Clock::now());
  keep(sessions, "a 1", 1, Clock::now() - std::chrono::hours(1));
  EXPECT_FALSE(sessions.take("a 1").session);
}

TEST(Sessions, OfAnotherServerAreNotOffered) {
  Sessions sessions;
  keep(sessions, "a 11", 1, kSoon);
  EXPECT_FALSE(sessions.take("a 1").session);
}

TEST(Sessions, AreDroppedByServer) {
  Sessions sessions;
  keep(sessions, "a 1", 3, kSoon);
  keep(sessions, "b 1", 3, kSoon);
  sessions.drop("a 1");
  EXPECT_EQ(0, num_kept(sessions, "a 1"));
  EXPECT_EQ(3, num_kept(sessions, "b 1"));
}

TEST(Sessions, AreNotKeptDuringAPause) {
  Sessions sessions;
  keep(sessions, "a 1", 3, kSoon);
  sessions.pause("a 1");
  keep(sessions, "a 1", 3, kSoon);
  EXPECT_EQ(0, num_kept(sessions, "a 1"));
}

TEST(Files, AreSettledWhenTheirLastChangeIsPast) {
  const auto now = std::chrono::system_clock::now();
  const auto nanoseconds_since_1970 = [](auto moment) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(moment.time_since_epoch()).count();
  };
  const std::int64_t just_now = nanoseconds_since_1970(now);
  const std::int64_t long_ago = nanoseconds_since_1970(now - std::chrono::seconds(1));
  FileIdentity file;
  file.modified = file.changed = long_ago;
  EXPECT_TRUE(file.is_settled(now));
  file.changed = just_now;
  EXPECT_FALSE(file.is_settled(now));
  file.changed = long_ago;
  file.modified = just_now;
  EXPECT_FALSE(file.is_settled(now));
}

bool gives_up_its_port(bool peer_needs_nothing) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return false;
  const Descriptor peer(ends[1]);
  auto socket = std::make_unique<Socket>();
  socket->descriptor = Descriptor(ends[0]);
  Channel channel(std::move(socket));
  channel.prepare_close(peer_needs_nothing);
  linger set{};
  socklen_t bytes = sizeof set;
  getsockopt(channel.descriptor(), SOL_SOCKET, SO_LINGER, &set, &bytes);
  return set.l_onoff == 1 && set.l_linger == 0;
}

// Of some 28,000 local ports that wait a minute each.
TEST(Closing, KeepsPortsUntilTheyCouldRunOut) {
  for (int i = 0; i < 1000; ++i) ASSERT_FALSE(gives_up_its_port(true));
  int num_kept = 1000;
  while (num_kept < 20000 && !gives_up_its_port(true)) ++num_kept;
  // The count may have begun anew in between, at the turn of a minute.
  EXPECT_LE(num_kept, 14000);
  EXPECT_FALSE(gives_up_its_port(false));
}

}  // namespace
}  // namespace orn
