// vesk key list: every form, every cut.
#include <nlohmann/json.hpp>

#include "tests/command/command_test.h"
#include "tests/command/played_server.h"

namespace command_test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testing::StrEq;

class KeyList : public ServedCommandTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(vesk({"template", "generate", "CONSTANT_000015", "--count", "3"}).exit_code, 0);
    for (const char *name : {"a \"q\", \\ name", "b"}) ASSERT_EQ(vesk({"key", "create", name}).exit_code, 0);
  }
};

TEST_F(KeyList, ShowsAllNamesInOrderAndTheHighestSequence) {
  EXPECT_THAT(vesk({"key", "list"}), Ends(0,
                                          StrEq("CONSTANT_000015000000\n"
                                                "CONSTANT_000015000001\n"
                                                "CONSTANT_000015000002\n"
                                                "a \"q\", \\ name\n"
                                                "b\n"
                                                "5 keys, highest sequence 000002\n"),
                                          IsEmpty()));
}

TEST_F(KeyList, IsOneDocumentInJson) {
  const Outcome outcome = vesk({"key", "list", "--output", "json"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(document_in(outcome), json({{"keys",
                                         {{{"name", "CONSTANT_000015000000"}},
                                          {{"name", "CONSTANT_000015000001"}},
                                          {{"name", "CONSTANT_000015000002"}},
                                          {{"name", "a \"q\", \\ name"}},
                                          {{"name", "b"}}}},
                                        {"count", 5},
                                        {"complete", true},
                                        {"highest_sequence", 2}}));
}

TEST_F(KeyList, IsOneNameALineInPlainForm) {
  EXPECT_THAT(vesk({"key", "list", "--output", "plain", "--prefix", "a"}),
              Ends(0, StrEq("a \"q\", \\\\ name\n"), StrEq("1 key, highest sequence 000000\n")));
  EXPECT_THAT(vesk({"key", "list", "--output", "plain", "--null", "--prefix", "a"}),
              Ends(0, StrEq(std::string("a \"q\", \\ name\0", 14)), StrEq("1 key, highest sequence 000000\n")));
}

TEST_F(KeyList, IsCutByAPrefix) {
  EXPECT_THAT(vesk({"key", "list", "--prefix", "CONSTANT_000015000001"}),
              Ends(0, StrEq("CONSTANT_000015000001\n1 key, highest sequence 000001\n"), IsEmpty()));
  EXPECT_THAT(vesk({"key", "list", "--prefix", "b "}), Ends(0, StartsWith("b\n1 key, "), IsEmpty()));
  EXPECT_THAT(vesk({"key", "list", "--prefix", "x"}), Ends(0, StrEq("0 keys, highest sequence none\n"), IsEmpty()));
  const Outcome none = vesk({"key", "list", "--prefix", "x", "--output", "json"});
  EXPECT_EQ(document_in(none),
            json({{"keys", json::array()}, {"count", 0}, {"complete", true}, {"highest_sequence", nullptr}}));
  EXPECT_THAT(vesk({"key", "list", "--prefix", ""}), Ends(0, HasSubstr("\n5 keys, "), IsEmpty()));
  EXPECT_THAT(vesk({"key", "list", "--prefix", std::string(40, ' ')}), Ends(0, StartsWith("0 keys, "), IsEmpty()));
  EXPECT_THAT(vesk({"key", "list", "--prefix", std::string(40, 'x') + " "}),
              Ends(2, IsEmpty(),
                   StrEq("vesk: key list: the prefix " + std::string(40, 'x') +
                         "  is 41 bytes long; at most 40 are allowed\n")));
  EXPECT_THAT(vesk({"key", "list", "--prefix", "a\t"}),
              Ends(2, IsEmpty(), StrEq("vesk: key list: the prefix a\\x09 holds a control character\n")));
}

TEST_F(KeyList, IsATableOfOneColumnInCsv) {
  EXPECT_THAT(vesk({"key", "list", "--output", "csv", "--prefix", "a"}),
              Ends(0, StrEq("name\r\n\"a \"\"q\"\", \\\\ name\"\r\n"), IsEmpty()));
  EXPECT_THAT(vesk({"key", "list", "--output", "csv", "--prefix", "x"}), Ends(0, StrEq("name\r\n"), IsEmpty()));
}

TEST_F(KeyList, SaysThatALimitCutIt) {
  EXPECT_THAT(vesk({"key", "list", "--limit", "1"}),
              Ends(0, StrEq("CONSTANT_000015000000\n1 of 5 keys shown, highest sequence 000002\n"),
                   StrEq("note: --limit shows the first 1 of 5\n")));
  EXPECT_THAT(vesk({"key", "list", "--limit", "5"}),
              Ends(0, HasSubstr("\n5 keys, highest sequence 000002\n"), IsEmpty()));
  const json document = document_in(vesk({"key", "list", "--limit", "2", "--output", "json"}));
  EXPECT_EQ(document.at("keys").size(), 2u);
  EXPECT_EQ(document.at("count"), 5);
  EXPECT_EQ(document.at("complete"), false);
  for (const char *limit : {"0", "-1", "x", ""})
    EXPECT_THAT(vesk({"key", "list", "--limit", limit}), Ends(2, IsEmpty(), HasSubstr("limit"))) << limit;
}

TEST_F(KeyList, EndsQuietlyWhenItsReaderHasGone) {
  ASSERT_EQ(vesk({"template", "generate", "CONSTANT_000016", "--count", "20000"}).exit_code, 0);
  for (const char *form : {"table", "json", "plain", "csv"}) {
    Invocation gone = invocation({"key", "list", "--output", form});
    gone.reader_of_output_is_gone = true;
    EXPECT_THAT(vesk(gone), Ends(1, IsEmpty(), IsEmpty())) << form;
  }
}

TEST_F(KeyList, RefusesFormsThatDoNotGoTogether) {
  EXPECT_THAT(vesk({"key", "list", "--null"}),
              Ends(2, IsEmpty(), StrEq("vesk: key list: --null is for --output plain\nhint: add --output plain\n")));
}

// Servers that are not ours may have names of any bytes, and may fail.
class PlayedKeyList : public CommandTest {
 protected:
  Outcome list(const std::string &reply, std::vector<std::string> arguments) const {
    TemporaryDirectory directory;
    const PlayedServer server(directory.path(), {}, reply);
    arguments.insert(arguments.begin(), {"key", "list", "--host", "127.0.0.1", "--port", server.port(),
                                         "--certificates", directory.path()});
    return vesk(arguments);
  }
  static std::string name(const std::string &text) { return text + std::string(40 - text.size(), ' '); }

  const std::string strange_ = "0001410370000N00040" + name("caf\xe9\n\x1b[1m\\");
};

TEST_F(PlayedKeyList, ShowsNamesOfAnyBytesUnharmed) {
  EXPECT_THAT(list(strange_, {}), Ends(0, StartsWith("caf\\xe9\\x0a\\x1b[1m\\\n1 key, "), IsEmpty()));
  EXPECT_THAT(list(strange_, {"--output", "plain"}),
              Ends(0, StrEq("caf\\xe9\\x0a\\x1b[1m\\\\\n"), StartsWith("1 key, ")));
  EXPECT_THAT(list(strange_, {"--output", "plain", "--null"}),
              Ends(0, StrEq(std::string("caf\xe9\n\x1b[1m\\\0", 11)), StartsWith("1 key, ")));
  EXPECT_THAT(list(strange_, {"--output", "csv"}), Ends(0, StrEq("name\r\ncaf\\xe9\\x0a\\x1b[1m\\\\\r\n"), IsEmpty()));
  const json key = document_in(list(strange_, {"--output", "json"})).at("keys").at(0);
  EXPECT_EQ(key,
            json({{"name", "caf\xef\xbf\xbd\n\x1b[1m\\"}, {"base64", json::object({{"name", "Y2Fm6QobWzFtXA=="}})}}));
}

TEST_F(PlayedKeyList, SaysThatAListWhichFailedIsNotComplete) {
  const std::string fails = "0001410370000Y00040" + name("K1") + "0000810370104";
  EXPECT_THAT(list(fails, {}), Ends(3, StrEq("K1\n"), HasSubstr("RC_SERVER_FAILURE")));
  const Outcome document = list(fails, {"--output", "json"});
  EXPECT_EQ(document.exit_code, 3);
  EXPECT_EQ(document_in(document),
            json({{"keys", json::array({json::object({{"name", "K1"}})})}, {"complete", false}}));
  EXPECT_THAT(list("0000810370105", {"--output", "json"}), Ends(3, IsEmpty(), HasSubstr("RC_TOO_MANY_LISTS")));
}

}  // namespace
}  // namespace command_test
