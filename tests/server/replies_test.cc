// Requests and replies byte by byte, those that libvesk never sends among them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <string>

#include "tests/server/test_server.h"
#include "veskd/dates.h"
#include "veskd/key_records.h"

namespace veskd::test {
namespace {

const std::string kNone = "00000000";
const std::string kConstant = padded("CONSTANT_000015", 39);

struct Policy {
  std::string size = "0256";
  std::string activation = kNone;
  std::string expiration = kNone;
  std::string rollover = "N";
  std::string days = "0000";
  std::string deletable = "Y";
  std::string mirror = "N";

  std::string text() const {
    return size + activation + expiration + rollover + days + deletable + mirror + "1" + padded("User1", 256) +
           padded("Group1", 256);
  }
};

std::string create(const std::string &name, const Policy &policy = {}) {
  return "005841001" + padded(name, 40) + policy.text();
}

std::string retrieve(const std::string &name, const std::string &instance = "", const std::string &format = "BIN") {
  return "000712001" + padded(name, 40) + padded(instance, 24) + format;
}

std::string policy_request(const std::string &name, const std::string &instance = "") {
  return "000681003" + padded(name, 40) + padded(instance, 24);
}

std::string generation(const std::string &count, const std::string &mode, const std::string &shape = "06H15",
                       const Policy &policy = {}) {
  return "005941117" + kConstant + shape + count + mode + policy.text();
}

// The reply that tells the policy of a current instance.
std::string told(const std::string &name, const std::string &instance, const Policy &policy, const std::string &date) {
  std::string reply = "0125810030000" + padded(name, 40) + instance + "Y" + policy.size + date + policy.activation +
                      policy.expiration + policy.rollover + policy.days + kNone + policy.deletable + kNone +
                      policy.mirror + std::string(14, ' ');
  for (const char *label : {"MD01", "MD02", "MD03", "MD04", "MD05", "MD06", "MD07", "MD08", "MD09", "MD10", "MD11",
                            "MD12", "MD13", "MD14", "MD15", "MD16"})
    reply += label + ("'" + std::string(64, ' ') + "'");
  return reply;
}

// Gives a key a further instance, whose value is one byte again and again.
void add_instance(Store &store, const std::string &key, const std::string &instance, std::uint8_t byte) {
  std::promise<ChangeOutcome> outcome;
  store.change({[&](StoreConnection &c) {
                  KeyValue value;
                  value->fill(byte);
                  replace_key_value(c, find_key(c, key).value(), instance, value);
                  return true;
                },
                [&](ChangeOutcome known) { outcome.set_value(known); }});
  ASSERT_EQ(outcome.get_future().get(), ChangeOutcome::kDone);
}

std::string next_key(const std::string &shape = "06H15", const std::string &format = "BIN") {
  return "000512003" + kConstant + shape + format;
}

TEST(Replies, ACreatedKeyIsNamedWithItsInstance) {
  TestServer server;
  const std::string reply = ask(server, create("K1"));
  EXPECT_EQ(reply.substr(0, 53), "0007210010000" + padded("K1", 40));
  ASSERT_EQ(reply.size(), 77u);
  EXPECT_THAT(reply.substr(53), testing::MatchesRegex("........T......-........"));
  EXPECT_EQ(reply.substr(53, 6), today().substr(0, 6));
}

TEST(Replies, ARetrievedKeyIsFollowedByZeros) {
  TestServer server;
  const std::string instance = ask(server, create("K1")).substr(53);
  const std::string reply = ask(server, retrieve("K1"));
  ASSERT_EQ(reply.size(), 356u);
  EXPECT_EQ(reply.substr(0, 100), "0035120010000" + padded("K1", 40) + instance + "00000000000000000256BIN");
  EXPECT_NE(reply.substr(100, 32), std::string(32, '\0'));
  EXPECT_EQ(reply.substr(132), std::string(224, '\0'));
  EXPECT_EQ(ask(server, retrieve("K1", instance)), reply);
}

TEST(Replies, RefusalsAreTheHeaderAlone) {
  TestServer server;
  EXPECT_EQ(ask(server, retrieve("K1")), "0000820010204");
  ask(server, create("K1"));
  EXPECT_EQ(ask(server, create("K1")), "0000810010202");
  EXPECT_EQ(ask(server, retrieve("K1", "20260101T000000-00000000")), "0000820010205");
  EXPECT_EQ(ask(server, retrieve("K1", "", "B64")), "0000820010207");
  EXPECT_EQ(ask(server, policy_request("K1", "20260101T000000-00000000")), "0000810030205");
}

TEST(Replies, APolicyThatTheServerCannotKeepIsRefused) {
  TestServer server;
  struct Case {
    Policy policy;
    const char *code;
  };
  const Case cases[] = {
      {{.size = "0128"}, "0206"},           {{.size = "256 "}, "0206"},
      {{.size = "0512"}, "0206"},           {{.activation = "20260230"}, "0208"},
      {{.activation = "2026 101"}, "0208"}, {{.expiration = "20261301"}, "0208"},
      {{.expiration = "        "}, "0208"}, {{.rollover = "Y"}, "0208"},
      {{.days = "00x0"}, "0208"},           {{.days = "   1"}, "0208"},
      {{.days = "1   "}, "0208"},           {{.deletable = "y"}, "0208"},
      {{.deletable = " "}, "0208"},         {{.mirror = "M"}, "0208"},
  };
  for (const Case &row : cases) {
    EXPECT_EQ(ask(server, create("K1", row.policy)), "000081001" + std::string(row.code)) << row.policy.text();
    EXPECT_EQ(ask(server, generation("00001", "I", "06H15", row.policy)), "000081117" + std::string(row.code))
        << row.policy.text();
  }
  EXPECT_EQ(ask(server, retrieve("K1")), "0000820010204");
  EXPECT_EQ(ask(server, next_key()), "0000820030304");
}

const Policy kSomePolicy{
    .activation = "20240229", .expiration = "20991231", .days = "0030", .deletable = "N", .mirror = "Y"};

TEST(Replies, ThePolicyIsToldAsItWasGiven) {
  TestServer server;
  const std::string date = today();
  const std::string instance = ask(server, create("K1", kSomePolicy)).substr(53);
  EXPECT_EQ(ask(server, policy_request("K1")), told("K1", instance, kSomePolicy, date));
  EXPECT_EQ(ask(server, policy_request("K1", instance)), ask(server, policy_request("K1")));
  // Last rolled, expiration, size and format.
  EXPECT_EQ(ask(server, retrieve("K1")).substr(77, 23), "00000000209912310256BIN");
}

TEST(Replies, AGeneratedKeyHasThePolicyOfItsBatch) {
  TestServer server;
  const std::string date = today();
  ASSERT_EQ(ask(server, generation("00001", "I", "06H15", kSomePolicy)), "0000811170000");
  const std::string reply = ask(server, next_key());
  EXPECT_EQ(reply.substr(77, 23), "00000000209912310256BIN");
  const std::string name = "CONSTANT_000015000000";
  EXPECT_EQ(ask(server, policy_request(name)), told(name, reply.substr(53, 24), kSomePolicy, date));
}

TEST(Replies, DatesThatNoRequestSetsAreToldFromTheStore) {
  TestServer server;
  ASSERT_EQ(ask(server, generation("00001", "I")), "0000811170000");
  Database(store_address(server.directory()))
      .execute(
          "UPDATE keys SET creation_date = '20240101', last_rollover_date = '20250102', revoked_date = '20250304', "
          "size_bits = 128");
  EXPECT_EQ(ask(server, next_key()).substr(77, 20), "20250102000000000128");
  EXPECT_EQ(ask(server, retrieve("CONSTANT_000015000000")).substr(77, 20), "20250102000000000128");
  EXPECT_EQ(ask(server, policy_request("CONSTANT_000015000000")).substr(77, 52),
            "Y0128202401010000000000000000N000020250102Y20250304N");
}

TEST(Replies, AKeyHasInstancesOfWhichOneIsCurrent) {
  TestServer server;
  const std::string first = ask(server, create("K1")).substr(53);
  const std::string second = "20260101T000000-00000001";
  add_instance(server.store(), "K1", second, '2');
  const auto served = [&](const std::string &instance) { return ask(server, retrieve("K1", instance)); };
  // The instance and whether it is current.
  const auto policy = [&](const std::string &instance) {
    return ask(server, policy_request("K1", instance)).substr(53, 25);
  };
  EXPECT_EQ(served(""), served(first));
  EXPECT_EQ(served(second).substr(53, 24), second);
  EXPECT_EQ(served(second).substr(100, 32), std::string(32, '2'));
  EXPECT_EQ(policy(""), first + "Y");
  EXPECT_EQ(policy(first), first + "Y");
  EXPECT_EQ(policy(second), second + "N");

  Database database(store_address(server.directory()));
  Query(database, "UPDATE keys SET current_instance = ?1", second).run();
  EXPECT_EQ(served(""), served(second));
  EXPECT_EQ(served(first).substr(53, 24), first);
  EXPECT_EQ(policy(""), second + "Y");
  EXPECT_EQ(policy(first), first + "N");
}

TEST(Replies, AKeyThatMayNotBeDeletedStaysUntilItIsMadeDeletable) {
  TestServer server;
  const std::string instance = ask(server, create("K1", {.deletable = "N"})).substr(53);
  const std::string delete_key = "000441015" + padded("K1", 40);
  const auto change = [&](const std::string &of, const std::string &flag) {
    return ask(server, "000691005" + padded("K1", 40) + padded(of, 24) + flag);
  };
  EXPECT_EQ(ask(server, delete_key), "0000810150209");
  EXPECT_EQ(change("", "N"), "0000810050208");
  EXPECT_EQ(change("20260101T000000-00000000", "Y"), "0000810050205");
  EXPECT_EQ(ask(server, delete_key), "0000810150209");
  EXPECT_EQ(change(instance, "Y"), "0000810050000");
  const std::string date = today();
  EXPECT_EQ(ask(server, delete_key), "0005610150000" + padded("K1", 40) + date);
}

TEST(Replies, ANextKeyComesWithItsIncrement) {
  TestServer server;
  ASSERT_EQ(ask(server, generation("00002", "I")), "0000811170000");
  ask(server, next_key());
  const std::string reply = ask(server, next_key());
  ASSERT_EQ(reply.size(), 268u);
  EXPECT_EQ(reply.substr(0, 53), "0026320030000" + padded("CONSTANT_000015000001", 40));
  EXPECT_EQ(reply.substr(77, 23), "00000000000000000256BIN");
  EXPECT_NE(reply.substr(100, 32), std::string(32, '\0'));
  EXPECT_EQ(reply.substr(132, 96), std::string(96, '\0'));
  EXPECT_EQ(reply.substr(228), padded("000001", 40));
  EXPECT_EQ(ask(server, next_key()), "0000820030309");
}

TEST(Replies, TheDepthOfATemplateIsToldInHexadecimal) {
  TestServer server;
  const std::string depth = "000471121" + kConstant + "0615";
  EXPECT_EQ(ask(server, depth), "0000811210304");
  ASSERT_EQ(ask(server, generation("00016", "I")), "0000811170000");
  const auto expected = [](const std::string &next, const std::string &served, const std::string &full) {
    return "000931121000006" + padded(next, 40) + padded("00000F", 40) + served + full + "H";
  };
  EXPECT_EQ(ask(server, depth), expected("000000", "N", "N"));
  for (int i = 0; i < 15; ++i) ask(server, next_key());
  EXPECT_EQ(ask(server, depth), expected("00000F", "Y", "N"));
  ask(server, next_key());
  EXPECT_EQ(ask(server, depth), expected("00000F", "Y", "Y"));
}

TEST(Replies, ATemplateHasOneForm) {
  TestServer server;
  ASSERT_EQ(ask(server, generation("00001", "I")), "0000811170000");
  for (const std::string shape : {"05H15", "06D15", "06H14", "  H15", "06 15"}) {
    EXPECT_EQ(ask(server, generation("00001", "A", shape)), "0000811170301") << shape;
    EXPECT_EQ(ask(server, next_key(shape)), "0000820030301") << shape;
  }
  EXPECT_EQ(ask(server, next_key("06H15", "B16")), "0000820030207");
  EXPECT_EQ(ask(server, "000471121" + kConstant + "0515"), "0000811210301");
  EXPECT_EQ(ask(server, "000481125Y" + kConstant + "0615"), "0000811250301");
  EXPECT_EQ(ask(server, "000871159" + kConstant + "0614" + padded("000000", 40)), "0000811590301");
  for (const std::string constant : {"CONSTANT_00001", "CONSTANT_0000015", "CONSTANT_00001 ", "CONSTANT_00001\xe9"})
    EXPECT_EQ(ask(server, "000471121" + padded(constant, 39) + "0615"), "0000811210301") << constant;
}

TEST(Replies, GenerationWantsAModeAndACount) {
  TestServer server;
  EXPECT_EQ(ask(server, generation("00001", "i")), "0000811170305");
  EXPECT_EQ(ask(server, generation("00001", " ")), "0000811170305");
  EXPECT_EQ(ask(server, generation("00000", "I")), "0000811170306");
  EXPECT_EQ(ask(server, generation("    1", "I")), "0000811170306");
  EXPECT_EQ(ask(server, generation("-0001", "I")), "0000811170306");
  EXPECT_EQ(ask(server, generation("0x001", "I")), "0000811170306");
  EXPECT_EQ(ask(server, generation("     ", "I")), "0000811170306");
}

TEST(Replies, TheNextIncrementIsHexadecimalDigitsAlone) {
  TestServer server;
  ASSERT_EQ(ask(server, generation("00032", "I")), "0000811170000");
  const auto set = [&](const std::string &text) {
    return ask(server, "000871159" + kConstant + "0615" + padded(text, 40)).substr(9);
  };
  EXPECT_EQ(set("00001F"), "0000");
  EXPECT_EQ(set("00001f"), "0000");
  for (const std::string text :
       {"000020", "", "00001G", "-00001", " 000001", "0x0001", "100000001", "FFFFFFFFFFFFFFFFFF"})
    EXPECT_EQ(set(text), "0310") << text;
}

TEST(Replies, ATemplateWithAKeyThatMayNotBeDeletedIsNotRemoved) {
  TestServer server;
  ASSERT_EQ(ask(server, generation("00002", "I", "06H15", {.deletable = "N"})), "0000811170000");
  const std::string remove = "000481125Y" + kConstant + "1506";
  EXPECT_EQ(ask(server, remove), "0000811250209");
  ask(server, next_key());
  ask(server, next_key());
  EXPECT_EQ(ask(server, remove), "0000811250000");
}

TEST(Replies, AListOfTemplatesComesInPages) {
  Limits limits;
  limits.max_page_bytes = 1;  // a page has one entry at least
  TestServer server(limits);
  const std::string request = "000041123";
  EXPECT_EQ(ask(server, request), "0001411230000N00000");
  ASSERT_EQ(ask(server, generation("00001", "I")), "0000811170000");
  EXPECT_EQ(ask(server, request), "0001411230000N00044" + padded("CONSTANT_000015", 44));
  ASSERT_EQ(ask(server, "005941117" + padded("A_CONSTANT_0001", 39) + "06H1500001I" + Policy().text()),
            "0000811170000");
  EXPECT_EQ(ask(server, request), "0001411230000Y00044" + padded("A_CONSTANT_0001", 44) + "0001411230000N00044" +
                                      padded("CONSTANT_000015", 44));
}

}  // namespace
}  // namespace veskd::test
