// Key metadata: setting it, and the queries over it.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <fstream>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "orn/support.h"
#include "orn/vesk.h"
#include "tests/server/program.h"
#include "tests/server/test_server.h"
#include "veskd/key_records.h"
#include "veskd/metadata_records.h"
#include "veskd/return_codes.h"
#include "veskd/schema.h"

namespace veskd::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Fields = std::vector<std::string>;

enum Operator { kNone, kEqual, kNotEqual, kContains, kGreater, kLess, kGreaterOrEqual, kLessOrEqual };
struct Term {
  std::string value;
  Operator op;
};
// By number of the field.
using Query = std::map<std::size_t, Term>;

constexpr std::size_t kNumFields = 16;

std::string without_blanks(const char *field) {
  const std::string text = field;
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

template <std::size_t... kIndex>
int set_fields(const CertificatePaths *paths, std::uint16_t port, const std::string &name, const std::string &instance,
               Fields fields, std::index_sequence<kIndex...>) {
  fields.resize(kNumFields);
  return qSetMetadata(paths, "127.0.0.1", port, name.c_str(), instance.c_str(), fields[kIndex].c_str()...);
}

int set_metadata(const CertificatePaths *paths, std::uint16_t port, const std::string &name, const Fields &fields,
                 const std::string &instance = "") {
  return set_fields(paths, port, name, instance, fields, std::make_index_sequence<kNumFields>());
}

template <std::size_t... kIndex>
int query_into(LinkedList *list, const TestServer &server, const Query &query, std::index_sequence<kIndex...>) {
  const auto term = [&](std::size_t index) {
    const auto found = query.find(index + 1);
    return found == query.end() ? std::tuple<const char *, int>(nullptr, kNone)
                                : std::tuple<const char *, int>(found->second.value.c_str(), found->second.op);
  };
  const auto call = [&](auto... terms) {
    return qRetrieveMetadata_as_ll(server.paths(), server.host(), server.port(), terms..., list);
  };
  return std::apply(call, std::tuple_cat(term(kIndex)...));
}

class Metadata : public testing::Test {
 protected:
  void create(const std::string &name) {
    ASSERT_EQ(qCreateSymKey(server.paths(), server.host(), server.port(), name.c_str(), 'N'), 0);
  }
  int set(const std::string &name, const Fields &fields, const std::string &instance = "") {
    return set_metadata(server.paths(), server.port(), name, fields, instance);
  }
  void create(const std::string &name, const Fields &fields) {
    create(name);
    ASSERT_EQ(set(name, fields), 0);
  }
  Fields get(const std::string &name) {
    KeyMetadataValues values{};
    EXPECT_EQ(qRetrieveKeyMetadata(server.paths(), server.host(), server.port(), name.c_str(), &values), 0);
    Fields fields;
    for (const auto &field : values.md) fields.push_back(without_blanks(field));
    return fields;
  }
  // The names of the keys that meet the query, in the order received; status tells how the call ended.
  std::vector<std::string> find(const Query &query) {
    const std::unique_ptr<LinkedList, decltype(&ll_free)> list(ll_create(sizeof(KeyMetadataSummary)), ll_free);
    status = query_into(list.get(), server, query, std::make_index_sequence<kNumFields>());
    std::vector<std::string> names;
    for (const LinkedListNode *node = ll_first(list.get()); node != nullptr; node = ll_next(node))
      names.emplace_back(static_cast<const KeyMetadataSummary *>(ll_element(node))->caKeyName);
    return names;
  }

  TestServer server;
  int status = 0;
};

// ---- Setting ----

TEST_F(Metadata, IsBlankUntilItIsSet) {
  create("K1");
  EXPECT_EQ(get("K1"), Fields(kNumFields));
}

TEST_F(Metadata, IsOverwrittenInAllItsFields) {
  create("K1");
  Fields fields;
  for (int i = 1; i <= 16; ++i) fields.push_back("value " + std::to_string(i));
  ASSERT_EQ(set("K1", fields), 0);
  EXPECT_EQ(get("K1"), fields);
  const Fields full(kNumFields, std::string(64, 'x'));
  ASSERT_EQ(set("K1", full), 0);
  EXPECT_EQ(get("K1"), full);
  ASSERT_EQ(set("K1", {"one"}), 0);
  fields.assign(kNumFields, "");
  fields[0] = "one";
  EXPECT_EQ(get("K1"), fields);
}

TEST_F(Metadata, BelongsToTheKeyWhicheverInstanceIsNamed) {
  const std::string instance =
      ask(server, "005841001" + padded("K1", 40) + "02560000000000000000N0000YN1" + padded("", 512)).substr(53);
  ASSERT_EQ(set("K1", {"by instance"}, instance), 0);
  EXPECT_EQ(get("K1")[0], "by instance");
  EXPECT_EQ(set("K1", {"other"}, "20260101T000000-00000000"), RC_INSTANCE_UNKNOWN);
  EXPECT_EQ(set("K2", {"other"}), RC_KEY_UNKNOWN);
  EXPECT_EQ(get("K1")[0], "by instance");
}

TEST_F(Metadata, GoesWithItsKey) {
  create("K1", {"text"});
  create("K2", {"text"});
  ASSERT_EQ(qDeleteKey(server.paths(), server.host(), server.port(), "K1"), 0);
  EXPECT_THAT(find({{1, {"text", kEqual}}}), ElementsAre("K2"));
  Database database(store_address(server.directory()));
  veskd::Query count(database, "SELECT count(*) FROM metadata");
  ASSERT_TRUE(count.next());
  EXPECT_EQ(count.number(0), 1);
}

// Any byte but control characters, in fields of any length.
TEST_F(Metadata, ComesBackAsItWasSet) {
  std::mt19937 random(1039);
  std::string alphabet;
  for (int c = 0x20; c <= 0xff; ++c) {
    if (c != 0x7f) alphabet += static_cast<char>(c);
  }
  const auto text = [&] {
    std::string made(random() % 65, ' ');
    for (char &c : made) c = alphabet[random() % alphabet.size()];
    return without_blanks(made.c_str());
  };
  create("K0", {"another"});
  create("K1");
  for (int round = 0; round < 200; ++round) {
    Fields fields(kNumFields);
    for (std::string &field : fields) field = text();
    ASSERT_EQ(set("K1", fields), 0) << round;
    ASSERT_EQ(get("K1"), fields) << round;
    Query query;
    for (std::size_t number = 1; number <= kNumFields; ++number) query[number] = {fields[number - 1], kEqual};
    ASSERT_THAT(find(query), ElementsAre("K1")) << round;
  }
}

TEST(MetadataRequest, IsTakenInItsExactFormAlone) {
  TestServer server;
  const std::string instance =
      ask(server, "005841001" + padded("K1", 40) + "02560000000000000000N0000YN1" + padded("", 512)).substr(53);
  std::string request = "011881039" + padded("K1", 40) + padded("", 24);
  for (int number = 1; number <= 16; ++number)
    request += fmt::format("MD{0:02}'{1}'", number, padded(fmt::format("v'{}", number), 64));
  ASSERT_EQ(request.size(), 1193u);
  const std::string reply = "0007210390000" + padded("K1", 40) + instance;
  EXPECT_EQ(ask(server, request), reply);
  EXPECT_EQ(ask(server, std::string(request).replace(49, 24, instance)), reply);
  const std::string policy = ask(server, "000681003" + padded("K1", 40) + padded("", 24));
  EXPECT_EQ(policy.substr(143), request.substr(73));
  struct Case {
    const char *rule;
    std::size_t at;
    char c;
  };
  const Case cases[] = {
      {"a label of another field", 76, '2'},
      {"a letter of a label", 143, 'd'},
      {"the first quote", 77, '"'},
      {"a closing quote", 142, ' '},
      {"the last quote", 1192, ' '},
      {"a control character", 100, '\n'},
      {"a NUL", 1191, '\0'},
      {"a DEL in the last field", 1150, '\x7f'},
  };
  for (const Case &row : cases) {
    std::string wrong = request;
    wrong[row.at] = row.c;
    EXPECT_EQ(ask(server, wrong), "0000810390101") << row.rule;
  }
  EXPECT_EQ(ask(server, "01187" + request.substr(5)), "0000810390101");
}

TEST(MetadataRequest, IsOnTheDiskBeforeTheReply) {
  TemporaryDirectory directory;
  for (int kill = 0; kill < 3; ++kill) {
    DevServer server(directory.path());
    const CertificatePaths paths = client_paths(directory.path());
    const std::string name = "K" + std::to_string(kill);
    ASSERT_EQ(qCreateSymKey(&paths, "127.0.0.1", server.port(), name.c_str(), 'N'), 0);
    ASSERT_EQ(set_metadata(&paths, server.port(), name, {"kept"}), 0);
    server.program().signal(SIGKILL);
    ASSERT_EQ(server.program().wait(), -SIGKILL);
  }
  DevServer server(directory.path());
  const CertificatePaths paths = client_paths(directory.path());
  for (const char *name : {"K0", "K1", "K2"}) {
    KeyMetadataValues values{};
    ASSERT_EQ(qRetrieveKeyMetadata(&paths, "127.0.0.1", server.port(), name, &values), 0);
    EXPECT_EQ(without_blanks(values.md[0]), "kept") << name;
  }
}

// A store that was made before there was metadata.
TEST(MetadataStore, OfAnEarlierVersionIsBroughtForward) {
  TemporaryDirectory directory;
  const Log log(true);
  const auto master = MasterKey::create(directory / "master.key");
  {
    Database database(store_address(directory.path()));
    database.begin();
    database.migrate(kMigrations[0], 1);
    database.commit();
    database.execute(
        "INSERT INTO keys (name, current_instance, size_bits, creation_date, activation_date, expiration_date, "
        "rollover_code, rollover_days, deletable, mirror, user_group_flag, user_name, group_name) "
        "VALUES ('K1', '', 256, '', '', '', 'N', '0000', 'Y', 'N', '1', '', '')");
  }
  Store store(store_address(directory.path()), *master, log);
  Store::Reader reader(store);
  EXPECT_EQ(read_metadata(*reader, find_key(*reader, "K1").value()), "");
}

// ---- Queries ----

TEST_F(Metadata, IsComparedByEveryOperator) {
  enum Order { kLower, kSame, kHigher };
  struct Case {
    const char *field;
    const char *value;
    Order order;
    bool contains;
  };
  const Case cases[] = {
      // the same, also when blanks follow
      {"abc", "abc", kSame, true},
      {"abc", "abc  ", kSame, true},
      {"", "", kSame, true},
      {"", "   ", kSame, true},
      // a blank value is contained in everything
      {"abc", "", kHigher, true},
      {"abc", " ", kHigher, true},
      // a beginning, a middle, an end, and what is longer than the field
      {"abc", "ab", kHigher, true},
      {"abc", "b", kLower, true},
      {"abc", "bc", kLower, true},
      {"abc", "abcd", kLower, false},
      {"", "a", kLower, false},
      // blanks at the beginning and in the middle count
      {"a b", "a b", kSame, true},
      {" b", "b", kLower, true},
      {"ab", " b", kHigher, false},
      {"a b", "ab", kLower, false},
      // the case matters
      {"abc", "ABC", kHigher, false},
      // bytes above ASCII are the greatest
      {"\xff", "z", kHigher, false},
      {"\x80", "\xff", kLower, false},
      // a quote is text
      {"it's", "'", kHigher, true},
      {"' MD02 EQ '", "' MD02 EQ '", kSame, true},
  };
  static_assert(std::size(cases) >= kNumFields);
  create("K1");
  std::size_t number = 0;  // of the field: each has its turn
  for (const Case &row : cases) {
    number = number % kNumFields + 1;
    Fields fields(kNumFields, "another");
    fields[number - 1] = row.field;
    ASSERT_EQ(set("K1", fields), 0);
    const auto is_found = [&](Operator op) { return !find({{number, {row.value, op}}}).empty(); };
    const std::string label = fmt::format("MD{:02} [{}] and [{}]", number, row.field, row.value);
    EXPECT_EQ(is_found(kEqual), row.order == kSame) << label;
    EXPECT_EQ(is_found(kNotEqual), row.order != kSame) << label;
    EXPECT_EQ(is_found(kContains), row.contains) << label;
    EXPECT_EQ(is_found(kGreater), row.order == kHigher) << label;
    EXPECT_EQ(is_found(kLess), row.order == kLower) << label;
    EXPECT_EQ(is_found(kGreaterOrEqual), row.order != kLower) << label;
    EXPECT_EQ(is_found(kLessOrEqual), row.order != kHigher) << label;
    EXPECT_EQ(status, 0) << label;
  }
}

TEST_F(Metadata, MeetsAQueryWhenItMeetsEveryCriterion) {
  create("K3", {"tape", "berlin"});
  create("K1", {"tape", "bern"});
  create("K2", {"disk", "bern"});
  create("K0");
  EXPECT_THAT(find({}), ElementsAre("K0", "K1", "K2", "K3"));
  EXPECT_THAT(find({{1, {"tape", kEqual}}}), ElementsAre("K1", "K3"));
  EXPECT_THAT(find({{1, {"tape", kEqual}}, {2, {"bern", kEqual}}}), ElementsAre("K1"));
  EXPECT_THAT(find({{1, {"tape", kNotEqual}}, {2, {"ber", kContains}}}), ElementsAre("K2"));
  EXPECT_THAT(find({{1, {"", kEqual}}, {16, {"", kEqual}}}), ElementsAre("K0"));
  EXPECT_THAT(find({{1, {"disk", kGreaterOrEqual}}, {2, {"berlin", kGreater}}}), ElementsAre("K1", "K2"));
  EXPECT_THAT(find({{1, {"tape", kEqual}}, {2, {"paris", kEqual}}}), IsEmpty());
  EXPECT_EQ(status, 0);
}

TEST_F(Metadata, IsQueriedByAllSixteenFieldsAtOnce) {
  create("K1", Fields(kNumFields, std::string(64, 'x')));
  Query query;
  for (std::size_t number = 1; number <= kNumFields; ++number) query[number] = {std::string(64, 'x'), kEqual};
  EXPECT_THAT(find(query), ElementsAre("K1"));
  query[16] = {std::string(63, 'x'), kEqual};
  EXPECT_THAT(find(query), IsEmpty());
}

TEST_F(Metadata, QueryWithAValueThatIsTooLongIsRefused) {
  create("K1", {std::string(64, 'x')});
  EXPECT_THAT(find({{1, {std::string(64, 'x'), kEqual}}}), ElementsAre("K1"));
  EXPECT_THAT(find({{1, {std::string(65, 'x'), kEqual}}}), IsEmpty());
  EXPECT_EQ(status, RC_QUERY_FORM);
}

std::string query_request(const std::string &criteria) {
  return fmt::format("{:05}1053{}", 4 + criteria.size(), criteria);
}

TEST(MetadataQuery, IsTakenInItsExactFormAlone) {
  TestServer server;
  const std::string value = "'" + padded("x", 64) + "'";
  const std::string none = "0001410530000N00005";
  EXPECT_EQ(ask(server, query_request("")), none);
  EXPECT_EQ(ask(server, query_request("MD01 EQ " + value + " MD16 LE " + value)), none);
  struct Case {
    const char *rule;
    std::string criteria;
  };
  const Case cases[] = {
      {"no field of that number", "MD17 EQ " + value},
      {"no field of that number", "MD00 EQ " + value},
      {"a label in lower case", "md01 EQ " + value},
      {"the operator that is none", "MD01 XX " + value},
      {"an operator in lower case", "MD01 eq " + value},
      {"an unknown operator", "MD01 == " + value},
      {"no blank before the operator", "MD01_EQ " + value},
      {"no blank behind the operator", "MD01 EQ_" + value},
      {"no opening quote", "MD01 EQ \"" + value.substr(1)},
      {"no closing quote", "MD01 EQ " + value.substr(0, 65) + " "},
      {"a value too long for its quote", "MD01 EQ '" + std::string(65, 'x')},
      {"a value that is not padded", "MD01 EQ 'x'"},
      {"a value of 63 characters", "MD01 EQ '" + std::string(63, 'x') + "'"},
      {"a value of 65 characters", "MD01 EQ '" + std::string(65, 'x') + "'"},
      {"a control character", "MD01 EQ '" + padded("x\ty", 64) + "'"},
      {"a NUL", "MD01 EQ '" + padded(std::string("x\0y", 3), 64) + "'"},
      {"a field twice", "MD01 EQ " + value + " MD01 EQ " + value},
      {"fields in descending order", "MD02 EQ " + value + " MD01 EQ " + value},
      {"no blank between two", "MD01 EQ " + value + "MD02 EQ " + value},
      {"two blanks between two", "MD01 EQ " + value + "  MD02 EQ " + value},
      {"a comma between two", "MD01 EQ " + value + ",MD02 EQ " + value},
      {"a blank behind the last", "MD01 EQ " + value + " "},
      {"a blank before the first", " MD01 EQ " + value},
      {"a blank alone", " "},
      {"half a criterion", "MD01 EQ " + value + " MD02"},
      {"the longest request of anything", std::string(1205, 'x')},
  };
  for (const Case &row : cases) EXPECT_EQ(ask(server, query_request(row.criteria)), "0000810530401") << row.rule;
  // Lengths that no query has.
  EXPECT_EQ(ask(server, "000031053"), "0000810530101");
  EXPECT_EQ(ask(server, "000001053"), "0000810530101");
  EXPECT_EQ(ask(server, "012101053" + std::string(1206, 'x')), "0000810530101");
  EXPECT_EQ(ask(server, "999991053"), "0000810530101");
}

// The most that a process has held of the memory, in kB.
long peak_memory(pid_t process) {
  std::ifstream status(fmt::format("/proc/{}/status", process));
  for (std::string word; status >> word;) {
    long kilobytes = 0;
    if (word == "VmHWM:" && status >> kilobytes) return kilobytes;
  }
  return -1;
}

TEST(MetadataQuery, TakesTheServerTheMemoryOfAPageHoweverManyKeysMeetIt) {
  TemporaryDirectory directory;
  DevServer server(directory.path());
  const CertificatePaths paths = client_paths(directory.path());
  const auto query_all = [&] {
    return qRetrieveMetadata(&paths, "127.0.0.1", server.port(), "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0,
                             "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, "", 0, (directory / "list").c_str());
  };
  ASSERT_EQ(query_all(), 0);
  const long before = peak_memory(server.program().pid());
  ASSERT_GT(before, 0);
  constexpr int kNumKeys = 20000;
  insert_keys(store_address(directory.path()), kNumKeys);
  ASSERT_EQ(query_all(), 0);
  constexpr int kLineBytes = 21 + 7 * (1 + 64) + 1;  // fields of blanks are written whole
  ASSERT_EQ(std::filesystem::file_size(directory / "list"), kNumKeys * kLineBytes);
#ifndef ADDRESS_SANITIZER  // which keeps what was freed
  EXPECT_LT(peak_memory(server.program().pid()) - before, kNumKeys * 1236 / 1024 / 3);
#endif
}

}  // namespace
}  // namespace veskd::test
