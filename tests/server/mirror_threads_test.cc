// Many clients at three servers that are all one another's mirrors.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "tests/server/mirror_servers.h"

namespace veskd::test {
namespace {

TEST(MirrorThreads, ServersOfAMeshEndWithTheSameKeys) {
  MirrorServer one;
  MirrorServer two(one.directory());
  MirrorServer three(one.directory());
  const std::vector<MirrorServer *> servers = {&one, &two, &three};
  for (MirrorServer *from : servers) {
    for (std::size_t to = 0; to < servers.size(); ++to) {
      if (servers[to] != from) from->add_mirror(std::to_string(to), servers[to]->port());
    }
  }
  std::vector<std::thread> clients;
  for (int client = 0; client < 6; ++client) {
    clients.emplace_back([&, client] {
      const MirrorServer &server = *servers[static_cast<std::size_t>(client) % servers.size()];
      for (int i = 0; i < 6; ++i) {
        const std::string name = "K" + std::to_string(client) + "-" + std::to_string(i);
        server.create_mirror_key(name);
        ASSERT_EQ(server.set_metadata(name, "text " + name), 0);
        if (i % 3 == 0) {
          ASSERT_EQ(server.call(qDeleteKey, name.c_str()), 0);
        }
      }
    });
  }
  for (std::thread &client : clients) client.join();
  for (MirrorServer *from : servers) {
    for (std::size_t to = 0; to < servers.size(); ++to) {
      if (servers[to] == from) continue;
      EXPECT_TRUE(from->agrees_with(std::to_string(to)));
      EXPECT_EQ(from->mirror(std::to_string(to)).fault_count, 0);
    }
  }
  EXPECT_EQ(three.value_of("K0-1"), one.value_of("K0-1"));
}

TEST(MirrorThreads, MirrorsComeAndGoWhileChangesFlow) {
  MirrorServer one;
  MirrorServer two(one.directory());
  std::thread client([&] {
    for (int i = 0; i < 20; ++i) one.create_mirror_key("K" + std::to_string(i));
  });
  for (int i = 0; i < 10; ++i) {
    one.add_mirror("two", two.port());
    ASSERT_EQ(one.call(qRemoveMirrorAddress, "two"), 0);
  }
  client.join();
  one.add_mirror("two", two.port());
  ASSERT_EQ(one.call(qForceKeySync, "two", nullptr), 0);
  EXPECT_TRUE(one.agrees_with("two"));
}

}  // namespace
}  // namespace veskd::test
