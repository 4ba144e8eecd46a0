// The operations as callers of libvesk see them.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "orn/support.h"
#include "orn/vesk.h"
#include "tests/server/test_server.h"
#include "veskd/dates.h"
#include "veskd/return_codes.h"

namespace veskd::test {
namespace {

constexpr const char *kConstant = "CONSTANT_000015";
constexpr const char *kDeveloper = "CN=veskd development client,O=veskd dev";

// The operations on one server, without the arguments that are always the same.
class Operations : public testing::Test {
 protected:
  int create(const char *name) { return qCreateSymKey(server.paths(), server.host(), server.port(), name, 'N'); }
  int retrieve(const char *name, const char *instance, KeyRecord &record) {
    return qRetrieveKey(server.paths(), server.host(), server.port(), name, instance, &record);
  }
  int remove(const char *name) { return qDeleteKey(server.paths(), server.host(), server.port(), name); }
  int generate(const char *constant, char mode, std::uint32_t count) {
    return qAutoGenKeys(server.paths(), server.host(), server.port(), constant, mode, count);
  }
  int next(const char *constant = kConstant) {
    return qGetNextKey(server.paths(), server.host(), server.port(), constant, name, value, &increment);
  }
  int depth(const char *constant = kConstant) {
    return qGetTemplateDepth(server.paths(), server.host(), server.port(), constant, &size, &sequence);
  }
  int set_next(std::uint32_t to) {
    return qSetNextIncrement(server.paths(), server.host(), server.port(), kConstant, to);
  }
  int remove_template(const char *constant) {
    return qRemoveTemplate(server.paths(), server.host(), server.port(), constant);
  }
  std::string value_of(const char *key) {
    KeyRecord record{};
    EXPECT_EQ(retrieve(key, "", record), 0);
    return std::string(record.caKeyValue, 32);
  }
  std::vector<std::string> constants() {
    const std::unique_ptr<LinkedList, decltype(&ll_free)> list(ll_create(40), ll_free);
    EXPECT_EQ(qGetTemplateList(server.paths(), server.host(), server.port(), list.get()), 0);
    std::vector<std::string> names;
    for (const LinkedListNode *node = ll_first(list.get()); node != nullptr; node = ll_next(node))
      names.emplace_back(static_cast<const char *>(ll_element(node)));
    return names;
  }

  TestServer server;
  char name[41] = {};
  unsigned char value[32] = {};
  std::uint32_t increment = 0;
  std::uint32_t size = 0;
  std::uint32_t sequence = 0;
};

TEST_F(Operations, ThePingIsAnswered) {
  EXPECT_EQ(server.ping(), 0);
}

TEST_F(Operations, AKeyThatWasCreatedIsRetrieved) {
  ASSERT_EQ(create("K1"), 0);
  KeyRecord record{};
  ASSERT_EQ(retrieve("K1", "", record), 0);
  EXPECT_STREQ(record.caKeyName, "K1");
  EXPECT_STREQ(record.caKeySizeBits, "0256");
  EXPECT_STREQ(record.caKeyFormat, "BIN");
  EXPECT_STREQ(record.caExpirationDate, "00000000");
  EXPECT_STREQ(record.caLastRolledDate, "00000000");
  EXPECT_EQ(std::string(record.caInstance).find(' '), std::string::npos);
  EXPECT_EQ(std::string(record.caInstance).size(), 24u);
  EXPECT_NE(std::string(record.caKeyValue, 32), std::string(32, '\0'));
  EXPECT_EQ(std::string(record.caKeyValue + 32, sizeof record.caKeyValue - 32),
            std::string(sizeof record.caKeyValue - 32, '\0'));
}

TEST_F(Operations, AnInstanceIsRetrievedByItsName) {
  ASSERT_EQ(create("K1"), 0);
  KeyRecord current{}, named{};
  ASSERT_EQ(retrieve("K1", "", current), 0);
  ASSERT_EQ(retrieve("K1", current.caInstance, named), 0);
  EXPECT_EQ(std::string(current.caKeyValue, 32), std::string(named.caKeyValue, 32));
  EXPECT_EQ(retrieve("K1", "20260101T000000-00000000", named), RC_INSTANCE_UNKNOWN);
}

TEST_F(Operations, KeysDiffer) {
  ASSERT_EQ(create("K1"), 0);
  ASSERT_EQ(create("K2"), 0);
  EXPECT_NE(value_of("K1"), value_of("K2"));
}

TEST_F(Operations, AKeyNameHasUpTo40CharactersAndIsTakenOnce) {
  const std::string longest(40, 'k');
  EXPECT_EQ(create(longest.c_str()), 0);
  EXPECT_EQ(create(longest.c_str()), RC_KEY_EXISTS);
  EXPECT_EQ(create("with a blank"), 0);
  EXPECT_EQ(create("with a blank   "), RC_KEY_EXISTS);
  EXPECT_EQ(create(""), RC_KEY_NAME_INVALID);
}

TEST_F(Operations, AnUnknownKeyHasItsReturnCode) {
  KeyRecord record{};
  KeyMetadataValues values{};
  EXPECT_EQ(retrieve("K1", "", record), RC_KEY_UNKNOWN);
  EXPECT_EQ(remove("K1"), RC_KEY_UNKNOWN);
  EXPECT_EQ(qChangeDeletable(server.paths(), server.host(), server.port(), "K1", 'Y'), RC_KEY_UNKNOWN);
  EXPECT_EQ(qRetrieveKeyMetadata(server.paths(), server.host(), server.port(), "K1", &values), RC_KEY_UNKNOWN);
}

TEST_F(Operations, TheMetadataOfANewKeyIsBlank) {
  ASSERT_EQ(create("K1"), 0);
  KeyMetadataValues values{};
  ASSERT_EQ(qRetrieveKeyMetadata(server.paths(), server.host(), server.port(), "K1", &values), 0);
  for (const auto &field : values.md) EXPECT_EQ(std::string(field), std::string(64, ' '));
}

TEST_F(Operations, CreatingTheDatabaseAgainLeavesTheKeys) {
  ASSERT_EQ(create("K1"), 0);
  const std::string before = value_of("K1");
  EXPECT_EQ(qCreateDatabase(server.paths(), server.host(), server.port()), 0);
  EXPECT_EQ(value_of("K1"), before);
}

TEST_F(Operations, ADeletedKeyIsGoneAndItsNameStaysTaken) {
  ASSERT_EQ(create("K1"), 0);
  ASSERT_EQ(remove("K1"), 0);
  KeyRecord record{};
  EXPECT_EQ(retrieve("K1", "", record), RC_KEY_UNKNOWN);
  EXPECT_EQ(remove("K1"), RC_KEY_UNKNOWN);
  EXPECT_EQ(create("K1"), RC_KEY_NAME_USED);
}

TEST_F(Operations, ADeletionIsRecordedWithItsAuthor) {
  ASSERT_EQ(create("K1"), 0);
  ASSERT_EQ(remove("K1"), 0);
  Database database(store_address(server.directory()));
  Query query(database, "SELECT name, deletion_time, deleted_by FROM deleted_keys");
  ASSERT_TRUE(query.next());
  EXPECT_EQ(query.text(0), "K1");
  EXPECT_THAT(query.text(1), testing::StartsWith(today().substr(0, 6)));
  EXPECT_EQ(query.text(2), kDeveloper);
}

// ---- Templates ----

TEST_F(Operations, ATemplateServesItsKeysInOrderEachOnce) {
  ASSERT_EQ(generate(kConstant, 'i', 3), 0);
  for (std::uint32_t expected = 0; expected < 3; ++expected) {
    ASSERT_EQ(next(), 0);
    EXPECT_EQ(increment, expected);
    EXPECT_EQ(name, kConstant + ("00000" + std::to_string(expected)));
    EXPECT_EQ(value_of(name), std::string(std::begin(value), std::end(value)));
  }
  EXPECT_EQ(next(), RC_TEMPLATE_EXHAUSTED);
  EXPECT_EQ(next(), RC_TEMPLATE_EXHAUSTED);
}

TEST_F(Operations, TheDepthTellsWhatWasServed) {
  ASSERT_EQ(generate(kConstant, 'i', 2), 0);
  ASSERT_EQ(depth(), 0);
  EXPECT_EQ(size, 1u);
  EXPECT_EQ(sequence, 0u);
  ASSERT_EQ(next(), 0);
  ASSERT_EQ(depth(), 0);
  EXPECT_EQ(sequence, 1u);
  ASSERT_EQ(next(), 0);
  ASSERT_EQ(depth(), 0);
  EXPECT_EQ(size, 1u);
  EXPECT_EQ(sequence, 2u);
}

TEST_F(Operations, KeysAreAddedBehindTheLastOne) {
  ASSERT_EQ(generate(kConstant, 'i', 1), 0);
  ASSERT_EQ(next(), 0);
  ASSERT_EQ(next(), RC_TEMPLATE_EXHAUSTED);
  ASSERT_EQ(generate(kConstant, 'a', 17), 0);
  ASSERT_EQ(next(), 0);
  EXPECT_EQ(increment, 1u);
  ASSERT_EQ(depth(), 0);
  EXPECT_EQ(size, 17u);
}

TEST_F(Operations, GenerationIsRefusedForWhatItCannotDo) {
  ASSERT_EQ(generate(kConstant, 'i', 1), 0);
  EXPECT_EQ(generate(kConstant, 'i', 1), RC_TEMPLATE_EXISTS);
  EXPECT_EQ(generate("CONSTANT_000016", 'a', 1), RC_TEMPLATE_UNKNOWN);
  EXPECT_EQ(generate("CONSTANT_000016", 'i', 0), RC_KEY_COUNT);
  EXPECT_EQ(generate("SHORT", 'i', 1), RC_TEMPLATE_FORM);
  EXPECT_EQ(generate("CONSTANT_OF_MORE_THAN_15", 'i', 1), RC_TEMPLATE_FORM);
  EXPECT_EQ(constants(), std::vector<std::string>{kConstant});
}

TEST_F(Operations, ABatchThatCollidesMakesNothing) {
  ASSERT_EQ(create("CONSTANT_000015000002"), 0);
  EXPECT_EQ(generate(kConstant, 'i', 4), RC_KEY_COLLISION);
  EXPECT_EQ(depth(), RC_TEMPLATE_UNKNOWN);
  KeyRecord record{};
  EXPECT_EQ(retrieve("CONSTANT_000015000000", "", record), RC_KEY_UNKNOWN);
  EXPECT_EQ(generate(kConstant, 'i', 2), 0);
  EXPECT_EQ(generate(kConstant, 'a', 1), RC_KEY_COLLISION);
}

TEST_F(Operations, NamesThatOnlyLookLikeIncrementsDoNotCollide) {
  ASSERT_EQ(create("CONSTANT_00001500000a"), 0);
  ASSERT_EQ(create("CONSTANT_00001500000:"), 0);
  ASSERT_EQ(create("CONSTANT_0000150000"), 0);
  EXPECT_EQ(generate(kConstant, 'i', 256), 0);
}

TEST_F(Operations, ADeletedNameCollidesToo) {
  ASSERT_EQ(create("CONSTANT_000015000000"), 0);
  ASSERT_EQ(remove("CONSTANT_000015000000"), 0);
  EXPECT_EQ(generate(kConstant, 'i', 1), RC_KEY_COLLISION);
}

TEST_F(Operations, ABatchOfTheMostThatACallCanAskForIsMade) {
  ASSERT_EQ(generate(kConstant, 'i', 99999), 0);
  ASSERT_EQ(depth(), 0);
  EXPECT_EQ(size, 99998u);
  ASSERT_EQ(set_next(99998), 0);
  ASSERT_EQ(next(), 0);
  EXPECT_STREQ(name, "CONSTANT_00001501869E");
}

TEST_F(Operations, NoMoreIncrementsThanSixDigitsCount) {
  ASSERT_EQ(generate(kConstant, 'i', 1), 0);
  Database(store_address(server.directory())).execute("UPDATE templates SET num_generated = 16777215");
  EXPECT_EQ(generate(kConstant, 'a', 2), RC_TEMPLATE_FULL);
  ASSERT_EQ(generate(kConstant, 'a', 1), 0);
  EXPECT_EQ(generate(kConstant, 'a', 1), RC_TEMPLATE_FULL);
  ASSERT_EQ(set_next(0xFFFFFF), 0);
  ASSERT_EQ(next(), 0);
  EXPECT_EQ(increment, 0xFFFFFFu);
  EXPECT_EQ(next(), RC_TEMPLATE_EXHAUSTED);
}

TEST_F(Operations, DeletedKeysArePassedOver) {
  ASSERT_EQ(generate(kConstant, 'i', 4), 0);
  ASSERT_EQ(remove("CONSTANT_000015000000"), 0);
  ASSERT_EQ(remove("CONSTANT_000015000002"), 0);
  ASSERT_EQ(next(), 0);
  EXPECT_EQ(increment, 1u);
  ASSERT_EQ(depth(), 0);
  EXPECT_EQ(sequence, 3u);
  ASSERT_EQ(remove("CONSTANT_000015000003"), 0);
  ASSERT_EQ(depth(), 0);
  EXPECT_EQ(sequence, 4u);
  EXPECT_EQ(next(), RC_TEMPLATE_EXHAUSTED);
}

TEST_F(Operations, TheNextIncrementMovesForwardAndBackToWhatWasNotServed) {
  ASSERT_EQ(generate(kConstant, 'i', 10), 0);
  ASSERT_EQ(next(), 0);
  EXPECT_EQ(set_next(5), 0);
  EXPECT_EQ(set_next(1), 0);
  EXPECT_EQ(set_next(0), RC_INCREMENT_SERVED);
  EXPECT_EQ(set_next(9), 0);
  EXPECT_EQ(set_next(10), RC_INCREMENT_RANGE);
  EXPECT_EQ(set_next(0x1000000), RC_INCREMENT_RANGE);
  ASSERT_EQ(next(), 0);
  EXPECT_EQ(increment, 9u);
  EXPECT_EQ(next(), RC_TEMPLATE_EXHAUSTED);
  EXPECT_EQ(set_next(5), RC_INCREMENT_SERVED);
}

TEST_F(Operations, RemovingATemplateLeavesWhatWasServed) {
  ASSERT_EQ(generate(kConstant, 'i', 4), 0);
  ASSERT_EQ(next(), 0);
  ASSERT_EQ(set_next(2), 0);
  ASSERT_EQ(next(), 0);
  ASSERT_EQ(remove_template(kConstant), 0);
  KeyRecord record{};
  EXPECT_EQ(retrieve("CONSTANT_000015000000", "", record), 0);
  EXPECT_EQ(retrieve("CONSTANT_000015000001", "", record), RC_KEY_UNKNOWN);
  EXPECT_EQ(retrieve("CONSTANT_000015000002", "", record), 0);
  EXPECT_EQ(retrieve("CONSTANT_000015000003", "", record), RC_KEY_UNKNOWN);
  EXPECT_EQ(create("CONSTANT_000015000003"), RC_KEY_NAME_USED);
}

TEST_F(Operations, EachKeyThatGoesWithItsTemplateIsRecordedWithItsAuthor) {
  ASSERT_EQ(generate(kConstant, 'i', 3), 0);
  ASSERT_EQ(next(), 0);
  ASSERT_EQ(remove_template(kConstant), 0);
  Database database(store_address(server.directory()));
  Query query(database, "SELECT name, deletion_time, deleted_by FROM deleted_keys ORDER BY name");
  for (const char *deleted : {"CONSTANT_000015000001", "CONSTANT_000015000002"}) {
    ASSERT_TRUE(query.next());
    EXPECT_EQ(query.text(0), deleted);
    EXPECT_THAT(query.text(1), testing::StartsWith(today().substr(0, 6)));
    EXPECT_EQ(query.text(2), kDeveloper);
  }
  EXPECT_FALSE(query.next());
}

TEST_F(Operations, ARemovedTemplateIsGoneAndItsConstantStaysTaken) {
  ASSERT_EQ(generate(kConstant, 'i', 1), 0);
  ASSERT_EQ(remove_template(kConstant), 0);
  EXPECT_EQ(next(), RC_TEMPLATE_UNKNOWN);
  EXPECT_EQ(depth(), RC_TEMPLATE_UNKNOWN);
  EXPECT_EQ(set_next(0), RC_TEMPLATE_UNKNOWN);
  EXPECT_EQ(remove_template(kConstant), RC_TEMPLATE_UNKNOWN);
  EXPECT_EQ(generate(kConstant, 'a', 1), RC_TEMPLATE_UNKNOWN);
  EXPECT_EQ(generate(kConstant, 'i', 1), RC_TEMPLATE_USED);
  EXPECT_EQ(constants(), std::vector<std::string>{});
}

TEST_F(Operations, AnUnknownTemplateHasItsReturnCode) {
  EXPECT_EQ(next(), RC_TEMPLATE_UNKNOWN);
  EXPECT_EQ(depth(), RC_TEMPLATE_UNKNOWN);
  EXPECT_EQ(set_next(0), RC_TEMPLATE_UNKNOWN);
  EXPECT_EQ(remove_template(kConstant), RC_TEMPLATE_UNKNOWN);
  EXPECT_EQ(next("SHORT"), RC_TEMPLATE_FORM);
}

TEST_F(Operations, TheTemplatesAreListedInOrder) {
  EXPECT_EQ(constants(), std::vector<std::string>{});
  ASSERT_EQ(generate("CONSTANT_000003", 'i', 1), 0);
  ASSERT_EQ(generate("CONSTANT_000001", 'i', 1), 0);
  ASSERT_EQ(generate("CONSTANT_000002", 'i', 1), 0);
  EXPECT_EQ(constants(), (std::vector<std::string>{"CONSTANT_000001", "CONSTANT_000002", "CONSTANT_000003"}));
}

TEST_F(Operations, MoreTemplatesThanAPageHoldsAreAllListed) {
  Database database(store_address(server.directory()));
  database.begin();
  for (int i = 0; i < 1000; ++i)
    Query(database,
          "INSERT INTO templates (constant, num_generated, next_increment, first_unserved) VALUES (?1, 1, 0, 0)",
          fmt::format("CONSTANT_{:06}", i))
        .run();
  database.commit();
  const std::vector<std::string> all = constants();
  ASSERT_EQ(all.size(), 1000u);
  EXPECT_EQ(all.front(), "CONSTANT_000000");
  EXPECT_EQ(all.back(), "CONSTANT_000999");
  EXPECT_EQ(std::set<std::string>(all.begin(), all.end()).size(), 1000u);
}

// ---- What the store cannot do ----

TEST_F(Operations, AChangeThatFailsInTheMiddleLeavesNothing) {
  Database database(store_address(server.directory()));
  database.execute("CREATE UNIQUE INDEX broken ON keys ((CASE WHEN increment = 5 THEN 4 ELSE increment END))");
  EXPECT_EQ(generate(kConstant, 'i', 10), RC_SERVER_FAILURE);
  EXPECT_EQ(depth(), RC_TEMPLATE_UNKNOWN);
  database.execute("DROP INDEX broken");
  EXPECT_EQ(generate(kConstant, 'i', 10), 0);
}

TEST_F(Operations, AStoredValueThatWasTamperedWithIsNotServed) {
  ASSERT_EQ(create("K1"), 0);
  ASSERT_EQ(create("K2"), 0);
  Database database(store_address(server.directory()));
  database.execute(
      "UPDATE instances SET sealed_value = (SELECT sealed_value FROM instances JOIN keys ON key = id WHERE name = "
      "'K2') "
      "WHERE key = (SELECT id FROM keys WHERE name = 'K1')");
  KeyRecord record{};
  EXPECT_EQ(retrieve("K1", "", record), RC_SERVER_FAILURE);
  EXPECT_EQ(std::string(record.caKeyValue, 32), std::string(32, '\0'));
  EXPECT_EQ(retrieve("K2", "", record), 0);
  EXPECT_EQ(server.ping(), 0);
}

TEST_F(Operations, ADamagedKeyStopsItsTemplateUntilItIsPassedOver) {
  ASSERT_EQ(generate(kConstant, 'i', 2), 0);
  Database(store_address(server.directory()))
      .execute(
          "UPDATE instances SET sealed_value = (SELECT sealed FROM store_keys WHERE purpose = 'values') "
          "WHERE key = (SELECT id FROM keys WHERE name = 'CONSTANT_000015000000')");
  EXPECT_EQ(next(), RC_SERVER_FAILURE);
  EXPECT_EQ(next(), RC_SERVER_FAILURE);
  ASSERT_EQ(depth(), 0);
  EXPECT_EQ(sequence, 0u);
  ASSERT_EQ(set_next(1), 0);
  ASSERT_EQ(next(), 0);
  EXPECT_EQ(increment, 1u);
}

}  // namespace
}  // namespace veskd::test
