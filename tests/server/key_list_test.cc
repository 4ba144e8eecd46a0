// Lists that are told page by page: key names, and the keys that meet a metadata query.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "orn/support.h"
#include "orn/vesk.h"
#include "tests/server/test_server.h"
#include "veskd/dates.h"
#include "veskd/return_codes.h"

namespace veskd::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char *kConstant = "CONSTANT_000015";
constexpr const char *kNames = "000041037";
constexpr const char *kAllMetadata = "000041053";

Limits pages_of(std::size_t bytes) {
  Limits limits;
  limits.max_page_bytes = bytes;
  limits.num_threads = 4;
  return limits;
}

int create(const TestServer &server, const std::string &name) {
  return qCreateSymKey(server.paths(), server.host(), server.port(), name.c_str(), 'N');
}

struct Listing {
  int status = 0;
  std::vector<std::string> names;
  std::uint32_t highest = 0;
};

Listing list_names(const TestServer &server, const std::string &prefix = "") {
  const std::unique_ptr<LinkedList, decltype(&ll_free)> list(ll_create(41), ll_free);
  Listing listing;
  listing.status = qRetrieveKeyNameListFiltered_as_ll(server.paths(), server.host(), server.port(), list.get(),
                                                      prefix.c_str(), &listing.highest);
  for (const LinkedListNode *node = ll_first(list.get()); node != nullptr; node = ll_next(node)) {
    const std::string name = static_cast<const char *>(ll_element(node));
    listing.names.push_back(name.substr(0, name.find_last_not_of(' ') + 1));
  }
  return listing;
}

Listing find_by_first_field(const TestServer &server, const char *value) {
  const std::unique_ptr<LinkedList, decltype(&ll_free)> list(ll_create(sizeof(KeyMetadataSummary)), ll_free);
  Listing listing;
  constexpr int kEqual = 1;
  listing.status =
      qRetrieveMetadata_as_ll(server.paths(), server.host(), server.port(), value, kEqual, "", 0, "", 0, "", 0, "", 0,
                              "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, list.get());
  for (const LinkedListNode *node = ll_first(list.get()); node != nullptr; node = ll_next(node))
    listing.names.emplace_back(static_cast<const KeyMetadataSummary *>(ll_element(node))->caKeyName);
  return listing;
}

int set_first_field(const TestServer &server, const char *name, const char *value) {
  return qSetMetadata(server.paths(), server.host(), server.port(), name, "", value, "", "", "", "", "", "", "", "", "",
                      "", "", "", "", "", "");
}

// ---- Pages ----

TEST(KeyNameList, IsOnePageWithoutEntriesWhenThereAreNoKeys) {
  TestServer server;
  EXPECT_EQ(ask(server, kNames), "0001410370000N00000");
  const Listing listing = list_names(server);
  EXPECT_EQ(listing.status, 0);
  EXPECT_THAT(listing.names, IsEmpty());
  EXPECT_EQ(listing.highest, 0xFFFFFFu);
}

// A page has one name at least.
TEST(KeyNameList, ComesInPagesOfOneName) {
  for (const std::size_t bytes : {1, 40, 79}) {
    TestServer server(pages_of(bytes));
    for (const char *name : {"K2", "K 3", "K1"}) ASSERT_EQ(create(server, name), 0);
    EXPECT_EQ(ask(server, kNames), "0001410370000Y00040" + padded("K 3", 40) + "0001410370000Y00040" +
                                       padded("K1", 40) + "0001410370000N00040" + padded("K2", 40));
    EXPECT_THAT(list_names(server).names, ElementsAre("K 3", "K1", "K2"));
  }
}

TEST(KeyNameList, KnowsItsLastPageWhenThatIsFull) {
  TestServer server(pages_of(80));
  for (const char *name : {"K1", "K2"}) ASSERT_EQ(create(server, name), 0);
  const std::string first_two = padded("K1", 40) + padded("K2", 40);
  EXPECT_EQ(ask(server, kNames), "0001410370000N00080" + first_two);
  ASSERT_EQ(create(server, std::string(40, 'x')), 0);
  EXPECT_EQ(ask(server, kNames), "0001410370000Y00080" + first_two + "0001410370000N00040" + std::string(40, 'x'));
}

TEST(KeyNameList, HasPagesThatFitTheClientsBuffer) {
  TestServer server;
  insert_keys(store_address(server.directory()), 410);
  const std::string list = ask(server, kNames);
  EXPECT_EQ(list.substr(0, 19), "0001410370000Y16360");
  EXPECT_EQ(list.substr(19 + 16360, 19), "0001410370000N00040");
}

// However large the pages may be, their size has five digits.
TEST(KeyNameList, HasPagesThatItsCountCanTell) {
  TestServer server(pages_of(10'000'000));
  insert_keys(store_address(server.directory()), 2500);
  const std::string list = ask(server, kNames);
  EXPECT_EQ(list.substr(0, 19), "0001410370000Y99960");
  EXPECT_EQ(list.substr(19 + 99960), "0001410370000N00040" + padded("INSERTED_______0009C4", 40));
  EXPECT_THAT(list_names(server).names, SizeIs(2500));
}

TEST(KeyNameList, TellsAHundredThousandNamesInOrder) {
  TestServer server;
  ASSERT_EQ(qAutoGenKeys(server.paths(), server.host(), server.port(), kConstant, 'i', 99999), 0);
  ASSERT_EQ(qAutoGenKeys(server.paths(), server.host(), server.port(), kConstant, 'a', 1), 0);
  const Listing listing = list_names(server);
  EXPECT_EQ(listing.status, 0);
  EXPECT_EQ(listing.highest, 99999u);
  ASSERT_EQ(listing.names.size(), 100000u);
  for (std::size_t i = 0; i < listing.names.size(); ++i) {
    ASSERT_EQ(listing.names[i], fmt::format("{}{:06X}", kConstant, i));
  }
}

// policy is what stands between the date of creation and the fields.
std::string metadata_record(const std::string &name, const std::string &instance, const std::string &first_field,
                            const std::string &policy = "0000000000000000N000000000000Y00000000N") {
  std::string record = padded(name, 40) + instance + "Y0256" + today() + policy;
  for (int number = 1; number <= 16; ++number)
    record += fmt::format("MD{:02}'{}'", number, padded(number == 1 ? first_field : "", 64));
  return record;
}

TEST(MetadataList, ComesInPagesOfWholeRecords) {
  const std::string creation = "02560000000000000000N0000YN1" + padded("", 512);
  for (const std::size_t bytes : {1, 1236, 2471}) {
    TestServer server(pages_of(bytes));
    const std::string instance1 = ask(server, "005841001" + padded("K1", 40) + creation).substr(53);
    const std::string instance2 = ask(server, "005841001" + padded("K2", 40) + creation).substr(53);
    ASSERT_EQ(set_first_field(server, "K2", "text"), 0);
    const std::string record1 = metadata_record("K1", instance1, "");
    const std::string record2 = metadata_record("K2", instance2, "text");
    ASSERT_EQ(record1.size(), 1236u);
    EXPECT_EQ(ask(server, kAllMetadata), "0001410530000Y01241" + record1 + "0001410530000N01241" + record2);
    const std::string of_text = "000781053MD01 EQ '" + padded("text", 64) + "'";
    EXPECT_EQ(ask(server, of_text), "0001410530000N01241" + record2);
  }
  TestServer server(pages_of(2472));
  const std::string instance1 = ask(server, "005841001" + padded("K1", 40) + creation).substr(53);
  const std::string instance2 = ask(server, "005841001" + padded("K2", 40) + creation).substr(53);
  EXPECT_EQ(ask(server, kAllMetadata),
            "0001410530000N02477" + metadata_record("K1", instance1, "") + metadata_record("K2", instance2, ""));
}

TEST(MetadataList, TellsEveryFactOfAKeyInItsPlace) {
  TestServer server;
  const std::string creation = "02562020010120991231N0030NY1" + padded("", 512);
  const std::string instance = ask(server, "005841001" + padded("K1", 40) + creation).substr(53);
  Database(store_address(server.directory()))
      .execute("UPDATE keys SET last_rollover_date = '20210203', revoked_date = '20210405'");
  EXPECT_EQ(ask(server, kAllMetadata), "0001410530000N01241" + metadata_record("K1", instance, "",
                                                                               "2020010120991231"
                                                                               "N0030"
                                                                               "20210203"
                                                                               "N"
                                                                               "20210405"
                                                                               "Y"));
}

TEST(MetadataList, HasPagesThatItsSizeCanTell) {
  for (const auto &[bytes, size] : {std::pair(std::size_t{16384}, "16073"), {std::size_t{10'000'000}, "98885"}}) {
    TestServer server(pages_of(bytes));
    insert_keys(store_address(server.directory()), 81);
    EXPECT_EQ(ask(server, kAllMetadata).substr(0, 19), "0001410530000Y" + std::string(size));
    const Listing listing = find_by_first_field(server, "");
    EXPECT_EQ(listing.status, 0);
    EXPECT_THAT(listing.names, SizeIs(81));
  }
}

TEST(MetadataList, FindsWhatIsFarApart) {
  TestServer server(pages_of(1));
  insert_keys(store_address(server.directory()), 10000);
  EXPECT_THAT(find_by_first_field(server, "text").names, IsEmpty());
  const char *const names[] = {"INSERTED_______000001", "INSERTED_______001000", "INSERTED_______002710"};
  for (const char *name : names) ASSERT_EQ(set_first_field(server, name, "text"), 0);
  const Listing listing = find_by_first_field(server, "text");
  EXPECT_EQ(listing.status, 0);
  EXPECT_THAT(listing.names, testing::ElementsAreArray(names));
}

// ---- What happens meanwhile ----

// A token moves from name to name, to the front and the back of the list by turns. It is created under its new name
// before it is deleted under the old one, so that at any moment there are one or two names, and these follow each
// other.
TEST(List, TellsTheStoreAsItWasWhenItBegan) {
  constexpr std::size_t kNumStill = 5000;
  TestServer server(pages_of(400));
  insert_keys(store_address(server.directory()), kNumStill);
  const auto token = [](int turn) { return fmt::format("{}{:08}", turn % 2 == 0 ? 'A' : 'Z', turn); };
  ASSERT_EQ(create(server, token(0)), 0);
  std::atomic<int> turn = 0;
  std::atomic<bool> stopping = false;
  std::thread mover([&] {
    while (!stopping) {
      ASSERT_EQ(create(server, token(turn + 1)), 0);
      ASSERT_EQ(qDeleteKey(server.paths(), server.host(), server.port(), token(turn).c_str()), 0);
      ++turn;
      turn.notify_all();
    }
  });
  const auto list_while_it_moves = [&](const std::function<Listing()> &list) {
    const int before = turn;
    turn.wait(before);
    const Listing listing = list();
    ASSERT_EQ(listing.status, 0);
    std::vector<int> seen;
    for (const std::string &name : listing.names) {
      if (name[0] != 'I') seen.push_back(std::stoi(name.substr(1)));
    }
    ASSERT_EQ(listing.names.size(), kNumStill + seen.size());
    std::sort(seen.begin(), seen.end());
    ASSERT_TRUE(seen.size() == 1 || (seen.size() == 2 && seen[0] + 1 == seen[1])) << testing::PrintToString(seen);
  };
  for (int i = 0; i < 5; ++i) {
    list_while_it_moves([&] { return list_names(server); });
    list_while_it_moves([&] { return find_by_first_field(server, ""); });
  }
  stopping = true;
  mover.join();
}

TEST(List, IsRefusedWhenTheServerTellsAsManyAsItCan) {
  TestServer server;
  ASSERT_EQ(create(server, "K1"), 0);
  std::vector<std::unique_ptr<Store::ListReader>> taken;
  while (auto reader = Store::ListReader::take(server.store())) taken.push_back(std::move(reader));
  EXPECT_EQ(taken.size(), Store::kMaxLists);
  EXPECT_EQ(list_names(server).status, RC_TOO_MANY_LISTS);
  EXPECT_EQ(find_by_first_field(server, "").status, RC_TOO_MANY_LISTS);
  // Nobody else waits for a list.
  KeyRecord record{};
  EXPECT_EQ(qRetrieveKey(server.paths(), server.host(), server.port(), "K1", "", &record), 0);
  EXPECT_EQ(create(server, "K2"), 0);
  taken.pop_back();
  EXPECT_THAT(list_names(server).names, ElementsAre("K1", "K2"));
  EXPECT_THAT(find_by_first_field(server, "").names, ElementsAre("K1", "K2"));
}

TEST(List, IsNotHeldForeverByAPeerThatDoesNotRead) {
  struct Case {
    const char *rule;
    std::chrono::milliseconds reply, list;
  };
  // A page has its time, and so have all pages together.
  for (const Case &row : {Case{"a page", std::chrono::milliseconds(1000), std::chrono::milliseconds(60000)},
                          Case{"the list", std::chrono::milliseconds(60000), std::chrono::milliseconds(1000)}}) {
    SCOPED_TRACE(row.rule);
    Limits limits;
    limits.reply = row.reply;
    limits.list = row.list;
    TestServer server(limits);
    insert_keys(store_address(server.directory()), 13000);  // more than the buffers between the two hold
    std::vector<std::unique_ptr<Store::ListReader>> taken;
    while (taken.size() + 1 < Store::kMaxLists) taken.push_back(Store::ListReader::take(server.store()));
    RawConnection connection(server.port());
    ASSERT_TRUE(connection.handshake(raw_options(server.directory())));
    connection.send(kAllMetadata);
    ASSERT_GT(connection.receive_some(), 0U);  // the list has begun
    EXPECT_EQ(Store::ListReader::take(server.store()), nullptr);
    EXPECT_TRUE(eventually([&] { return Store::ListReader::take(server.store()) != nullptr; }));
    connection.receive_all();
    EXPECT_FALSE(connection.closed_cleanly());
    EXPECT_EQ(server.ping(), 0);
  }
}

TEST(List, OfManyClientsAtOnceIsWholeForEach) {
  TestServer server(pages_of(400));
  insert_keys(store_address(server.directory()), 1000);
  std::vector<std::thread> clients;
  for (int i = 0; i < 8; ++i) {
    clients.emplace_back([&, i] {
      for (int round = 0; round < 3; ++round) {
        const Listing listing = i % 2 == 0 ? list_names(server, "INSERTED") : find_by_first_field(server, "");
        EXPECT_EQ(listing.status, 0);
        EXPECT_THAT(listing.names, SizeIs(1000));
      }
    });
  }
  for (std::thread &client : clients) client.join();
}

TEST(List, EndsWithTheServersReturnCodeWhenTheStoreFails) {
  TestServer server;
  Database(store_address(server.directory())).execute("ALTER TABLE keys RENAME COLUMN name TO lost");
  EXPECT_EQ(list_names(server).status, RC_SERVER_FAILURE);
  EXPECT_EQ(find_by_first_field(server, "").status, RC_SERVER_FAILURE);
  EXPECT_EQ(server.ping(), 0);
}

}  // namespace
}  // namespace veskd::test
