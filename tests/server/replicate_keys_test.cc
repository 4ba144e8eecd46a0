// What a server makes of the changes that another sends it, byte by byte.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/server/mirror_servers.h"
#include "veskd/audit_records.h"
#include "veskd/mirror_wire.h"
#include "veskd/return_codes.h"

namespace veskd::test {
namespace {

// The fields of a change, each at its full width.
struct WrittenChange {
  std::string number = "0000000000000000001";
  std::string kind = "K";
  std::string name = padded("K1", 40);
  std::string instance = padded("I1", 24);
  std::string size = "0256";
  std::string dates =
      "20260102"
      "00000000"
      "00000000";
  std::string rollover =
      "N"
      "0000"
      "00000000";
  std::string deletable = "Y";
  std::string revoked = "00000000";
  std::string owner = "N" + padded("user", 256) + padded("group", 256);
  std::string metadata = padded("text", 1024);
  std::string value = std::string(32, 'v');

  std::string bytes() const {
    return number + kind + name + instance + size + dates + rollover + deletable + revoked + owner + metadata + value;
  }
};

std::string replicate_keys_request(const std::vector<WrittenChange> &changes) {
  std::string body =
      "9001"
      "0123456789abcdef0123456789abcdef-0000000001";
  for (const WrittenChange &change : changes) body += change.bytes();
  const std::string length = std::to_string(body.size());
  return std::string(5 - length.size(), '0') + length + body;
}

class ReplicateKeys : public testing::Test {
 protected:
  std::string ask(const std::vector<WrittenChange> &changes) {
    return ask_as(mirror_options(server_.directory()), server_.port(), replicate_keys_request(changes));
  }
  MirrorServer server_;
};

TEST_F(ReplicateKeys, ChangesAreAppliedInOrder) {
  WrittenChange deletion;
  deletion.number = "0000000000000000003";
  deletion.kind = "D";
  WrittenChange other;
  other.number = "0000000000000000002";
  other.name = padded("K2", 40);
  EXPECT_EQ(ask({WrittenChange(), other, deletion}),
            "00020"
            "9001"
            "0000"
            "0000"
            "0000"
            "0000");
  EXPECT_EQ(server_.value_of("K2"), std::string(32, 'v'));
  EXPECT_EQ(server_.metadata_of("K2"), "text");
  EXPECT_EQ(server_.call(qCreateSymKey, "K1", 'N'), RC_KEY_NAME_USED);
}

TEST_F(ReplicateKeys, AChangeThatComesAgainIsNotAppliedAgain) {
  const std::string done =
      "00012"
      "9001"
      "0000"
      "0000";
  ASSERT_EQ(ask({WrittenChange()}), done);
  ASSERT_EQ(server_.set_metadata("K1", "changed since"), 0);
  EXPECT_EQ(ask({WrittenChange()}), done);
  EXPECT_EQ(server_.metadata_of("K1"), "changed since");
  WrittenChange next;
  next.number = "0000000000000000002";
  EXPECT_EQ(ask({next}), done);
  EXPECT_EQ(server_.metadata_of("K1"), "text");
}

// Its sender has not seen the reply, and counts refusals from it.
TEST_F(ReplicateKeys, AConflictThatComesAgainIsRefusedAgainAlthoughALaterChangeWasApplied) {
  server_.create_mirror_key("K1");
  WrittenChange deletion, fine;
  deletion.number = "0000000000000000002";
  deletion.kind = "D";
  fine.number = "0000000000000000003";
  fine.name = padded("K3", 40);
  const std::string codes =
      "00020"
      "9001"
      "0000"
      "0606"
      "0606"
      "0000";
  EXPECT_EQ(ask({WrittenChange(), deletion, fine}), codes);
  EXPECT_EQ(ask({WrittenChange(), deletion, fine}), codes);
}

TEST_F(ReplicateKeys, WhatIsDeletableStaysSoAndAnotherValueIsAnotherKey) {
  WrittenChange guarded, other_value;
  guarded.number = "0000000000000000002";
  guarded.deletable = "N";
  guarded.metadata = padded("guarded", 1024);
  other_value.number = "0000000000000000003";
  other_value.value = std::string(32, 'w');
  EXPECT_EQ(ask({WrittenChange(), guarded, other_value}),
            "00020"
            "9001"
            "0000"
            "0000"
            "0000"
            "0606");
  EXPECT_EQ(server_.metadata_of("K1"), "guarded");
  EXPECT_EQ(server_.value_of("K1"), std::string(32, 'v'));
  EXPECT_EQ(server_.call(qDeleteKey, "K1"), 0);
}

TEST_F(ReplicateKeys, EachChangeHasItsOwnReturnCode) {
  server_.create_mirror_key("K1");
  ASSERT_EQ(server_.call(qCreateSymKey, "LOCAL", 'N'), 0);
  WrittenChange local, deletion, fine;
  local.number = "0000000000000000002";
  local.name = padded("LOCAL", 40);
  deletion.number = "0000000000000000003";
  deletion.kind = "D";
  fine.number = "0000000000000000004";
  fine.name = padded("K4", 40);
  EXPECT_EQ(ask({WrittenChange(), local, deletion, fine}),
            "00024"
            "9001"
            "0000"
            "0606"
            "0606"
            "0606"
            "0000");
}

TEST_F(ReplicateKeys, WhatIsNotOfItsFormIsRefusedWhole) {
  using Spoil = std::function<void(WrittenChange &)>;
  const std::vector<std::pair<const char *, Spoil>> rows = {
      {"a number that is none", [](WrittenChange &c) { c.number[3] = 'x'; }},
      {"number zero", [](WrittenChange &c) { c.number.assign(19, '0'); }},
      {"an unknown kind", [](WrittenChange &c) { c.kind = "X"; }},
      {"a blank name", [](WrittenChange &c) { c.name = padded("", 40); }},
      {"a name that is not ASCII", [](WrittenChange &c) { c.name[0] = '\xc3'; }},
      {"a blank instance", [](WrittenChange &c) { c.instance = padded("", 24); }},
      {"another key size", [](WrittenChange &c) { c.size = "0128"; }},
      {"a day that the calendar has not", [](WrittenChange &c) { c.dates.replace(0, 8, "20260230"); }},
      {"keys that roll over", [](WrittenChange &c) { c.rollover[0] = 'A'; }},
      {"a flag that is none", [](WrittenChange &c) { c.deletable = "?"; }},
      {"a control character in the metadata", [](WrittenChange &c) { c.metadata[5] = '\n'; }},
      {"NUL in the group", [](WrittenChange &c) { c.owner[300] = '\0'; }},
      {"a byte missing", [](WrittenChange &c) { c.value.pop_back(); }},
      {"a byte too many", [](WrittenChange &c) { c.value += 'v'; }},
  };
  for (const auto &[rule, spoil] : rows) {
    WrittenChange spoilt;
    spoilt.number = "0000000000000000002";
    spoil(spoilt);
    EXPECT_EQ(ask({WrittenChange(), spoilt}),
              "00008"
              "9001"
              "0101")
        << rule;
  }
  EXPECT_EQ(ask({}),
            "00008"
            "9001"
            "0101");
  EXPECT_EQ(ask(std::vector<WrittenChange>(wire::kMaxChanges + 1)),
            "00008"
            "9001"
            "0101");
  EXPECT_EQ(server_.value_of("K1"), "");
}

// Each change has an entry, with the sender as who made it.
TEST_F(ReplicateKeys, ChangesAreAudited) {
  WrittenChange conflict;
  conflict.number = "0000000000000000002";
  conflict.instance = padded("I2", 24);
  ask({WrittenChange(), conflict});
  Store::Reader reader(server_.store());
  std::vector<std::string> told;
  for_each_audit_entry((*reader).database, 1, [&](const AuditEntry &entry) {
    told.push_back(entry.event.caller + " " + entry.event.object + " " + std::to_string(entry.event.return_code));
  });
  EXPECT_EQ(told, (std::vector<std::string>{"CN=veskd development mirror,O=veskd dev K1 0",
                                            "CN=veskd development mirror,O=veskd dev K1 606"}));
}

}  // namespace
}  // namespace veskd::test
