// Keys and their lifecycle, as an administrator sees them.
#include <nlohmann/json.hpp>

#include "tests/command/command_test.h"

namespace command_test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;
using testing::StrEq;

class Keys : public ServedCommandTest {};

TEST_F(Keys, PingSaysThatTheServerAnswers) {
  EXPECT_THAT(vesk({"ping"}), Ends(0, MatchesRegex("127\\.0\\.0\\.1:[0-9]+ answers \\([0-9]+ ms\\)\n"), IsEmpty()));
  const Outcome outcome = vesk({"ping", "--output", "json"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(document_in(outcome).at("server"), "127.0.0.1:" + server_.port());
}

TEST_F(Keys, AKeyIsCreatedOnce) {
  EXPECT_THAT(vesk({"key", "create", "K1"}), Ends(0, StrEq("created key K1\n"), IsEmpty()));
  EXPECT_THAT(vesk({"key", "create", "K1"}),
              Ends(3, IsEmpty(),
                   StrEq("vesk: key create: key K1: a key of that name exists already (return code 0202 RC_KEY_EXISTS "
                         "from 127.0.0.1:" +
                         server_.port() + ")\nhint: choose another name; what there is: vesk key get NAME\n")));
}

TEST_F(Keys, AMirrorKeyIsCalledOne) {
  EXPECT_THAT(vesk({"key", "create", "M1", "--mirror"}), Ends(0, StrEq("created mirror key M1\n"), IsEmpty()));
  const Outcome outcome = vesk({"key", "create", "M2", "--mirror", "--output", "json"});
  EXPECT_EQ(document_in(outcome), json({{"created", "M2"}, {"mirror", true}}));
}

TEST_F(Keys, TheFactsOfAKeyAreShownWithoutItsValue) {
  vesk({"key", "create", "K1"});
  EXPECT_THAT(vesk({"key", "get", "K1"}), Ends(0,
                                               MatchesRegex("name          K1\n"
                                                            "instance      [-0-9A-FT]+\n"
                                                            "size in bits  256\n"
                                                            "format        BIN\n"
                                                            "last rolled   none\n"
                                                            "expires       none\n"),
                                               IsEmpty()));
  const Outcome outcome = vesk({"key", "get", "K1", "--output", "json"});
  json document = document_in(outcome);
  EXPECT_TRUE(document.at("instance").is_string());
  document.erase("instance");
  EXPECT_EQ(
      document,
      json({{"name", "K1"}, {"size_bits", 256}, {"format", "BIN"}, {"last_rolled", nullptr}, {"expires", nullptr}}));
}

TEST_F(Keys, FactsAreForScriptsToo) {
  EXPECT_THAT(vesk({"key", "create", "K,1", "--output", "plain"}), Ends(0, StrEq("K,1\nfalse\n"), IsEmpty()));
  EXPECT_THAT(vesk({"key", "get", "K,1", "--output", "csv"}),
              Ends(0,
                   MatchesRegex("name,instance,size_bits,format,last_rolled,expires\r\n"
                                "\"K,1\",[-0-9A-FT]+,256,BIN,,\r\n"),
                   IsEmpty()));
  EXPECT_THAT(vesk({"metadata", "find", "--where", "md1 eq \"\"", "--output", "csv"}),
              Ends(0,
                   StrEq("name,metadata.MD01,metadata.MD02,metadata.MD03,metadata.MD04,metadata.MD05,metadata.MD06,"
                         "metadata.MD07\r\n\"K,1\",,,,,,,\r\n"),
                   IsEmpty()));
}

TEST_F(Keys, AnInstanceIsFetchedByItsName) {
  vesk({"key", "create", "K1"});
  const std::string instance = document_in(vesk({"key", "get", "K1", "--output", "json"})).at("instance");
  EXPECT_THAT(vesk({"key", "get", "K1", "--instance", instance}), Ends(0, HasSubstr(instance), IsEmpty()));
  EXPECT_THAT(vesk({"key", "get", "K1", "--instance", "other"}),
              Ends(4, IsEmpty(),
                   StartsWith("vesk: key get: key K1, instance other: the key has no such instance (return code 0205 "
                              "RC_INSTANCE_UNKNOWN from ")));
}

TEST_F(Keys, AKeyThatIsNotThereIsNotFound) {
  EXPECT_THAT(vesk({"key", "get", "K1"}),
              Ends(4, IsEmpty(),
                   AllOf(StartsWith("vesk: key get: key K1: there is no key of that name (return code 0204 "),
                         HasSubstr("\nhint: names are case-sensitive"))));
  for (const char *command : {"policy", "make-deletable"}) {
    EXPECT_THAT(vesk({"key", command, "K1"}), Ends(4, IsEmpty(), HasSubstr("RC_KEY_UNKNOWN"))) << command;
  }
}

TEST_F(Keys, NamesThatLookLikeCommandsOrOptionsAreNames) {
  for (const std::string name : {"ping", "key", "get", "--help", "-"}) {
    EXPECT_THAT(vesk({"key", "create", "--", name}), Ends(0, StrEq("created key " + name + "\n"), IsEmpty()));
  }
  EXPECT_THAT(vesk({"key", "get", "ping"}), Ends(0, HasSubstr("ping\n"), IsEmpty()));
}

TEST_F(Keys, ANameWithCharactersThatTheServerDoesNotTakeIsShownEscaped) {
  EXPECT_THAT(vesk({"key", "create", "\xc3\xa9"}),
              Ends(3, IsEmpty(), StartsWith("vesk: key create: key \\xc3\\xa9: the key name is blank or holds")));
}

TEST_F(Keys, ThePolicyShowsTheSixteenMetadataFields) {
  vesk({"key", "create", "K1"});
  const Outcome table = vesk({"key", "policy", "K1"});
  EXPECT_THAT(table, Ends(0, AllOf(StartsWith("MD01  "), HasSubstr("\nMD16  ")), IsEmpty()));
  EXPECT_EQ(std::count(table.out.begin(), table.out.end(), '\n'), 16);
  const json document = document_in(vesk({"key", "policy", "K1", "--output", "json"}));
  EXPECT_EQ(document.at("name"), "K1");
  EXPECT_EQ(document.at("metadata").size(), 16U);
  EXPECT_EQ(document.at("metadata").at("MD16"), "");
}

TEST_F(Keys, MakeDeletableSaysWhatHolds) {
  vesk({"key", "create", "K1"});
  EXPECT_THAT(vesk({"key", "make-deletable", "K1"}), Ends(0, StrEq("key K1 may be deleted now\n"), IsEmpty()));
}

TEST_F(Keys, DeletedKeysAreGoneAndTheirNamesUsedUp) {
  vesk({"key", "create", "K1"});
  vesk({"key", "create", "K2"});
  EXPECT_THAT(vesk({"key", "delete", "K1", "K2", "--yes"}),
              Ends(0, StrEq("deleted key K1\ndeleted key K2\n"), IsEmpty()));
  EXPECT_THAT(vesk({"key", "get", "K1"}), Ends(4, IsEmpty(), HasSubstr("RC_KEY_UNKNOWN")));
  EXPECT_THAT(vesk({"key", "create", "K1"}), Ends(3, IsEmpty(), HasSubstr("RC_KEY_NAME_USED")));
}

TEST_F(Keys, ANameInBracketsIsOneName) {
  for (const char *name : {"a", "[a,b]", "[]"}) ASSERT_EQ(vesk({"key", "create", name}).exit_code, 0);
  EXPECT_THAT(vesk({"key", "delete", "[a,b]", "[]", "--yes"}),
              Ends(0, StrEq("deleted key [a,b]\ndeleted key []\n"), IsEmpty()));
  EXPECT_EQ(vesk({"key", "get", "a"}).exit_code, 0);
  EXPECT_THAT(vesk({"key", "get", "a", "[b]"}), Ends(2, IsEmpty(), HasSubstr("was not expected: [b]\n")));
}

TEST_F(Keys, DeletionStopsAtTheFirstFailureAndSaysHowFarItCame) {
  for (const char *name : {"K1", "K3"}) vesk({"key", "create", name});
  EXPECT_THAT(vesk({"key", "delete", "K1", "K2", "K3", "K4", "--yes"}),
              Ends(4, StrEq("deleted key K1\n"),
                   AllOf(StartsWith("vesk: key delete: key K2: "), HasSubstr("\ndetail: not tried: K3, K4\n"))));
  const Outcome outcome = vesk({"key", "delete", "K3", "K4", "--yes", "--output", "json"});
  EXPECT_EQ(outcome.exit_code, 4);
  EXPECT_EQ(document_in(outcome), json({{"deleted", {"K3"}}, {"complete", false}}));
}

// Each is checked against the published schema when it runs.
TEST_F(Keys, EveryDocumentIsAsPublished) {
  const std::vector<std::vector<std::string>> commands = {
      {"ping"},
      {"server", "certificates"},
      {"key", "create", "K1", "--mirror"},
      {"key", "get", "K1", "--out", "k1"},
      {"key", "list"},
      {"key", "policy", "K1"},
      {"key", "make-deletable", "K1"},
      {"template", "generate", "tape-library-01", "--count", "2"},
      {"template", "list"},
      {"template", "depth", "tape-library-01"},
      {"template", "set-next", "tape-library-01", "1"},
      {"key", "next", "tape-library-01"},
      {"template", "remove", "tape-library-01", "--yes"},
      {"metadata", "set", "K1", "--md", "1=tape"},
      {"metadata", "get", "K1"},
      {"metadata", "find"},
      {"certificate", "list"},
      {"private-key", "list"},
      {"mirror", "set", "west", "127.0.0.1", "1"},
      {"mirror", "get", "west"},
      {"mirror", "list"},
      {"mirror", "queue", "west"},
      {"mirror", "sync", "west", "--all"},
      {"mirror", "remove", "west", "--yes"},
      {"database", "create"},
      {"context", "list"},
      {"context", "show"},
      {"key", "delete", "K1", "--dry-run"},
      {"key", "delete", "K1", "--yes"},
  };
  for (std::vector<std::string> command : commands) {
    const std::string words = command.front() + (command.size() > 1 ? " " + command[1] : "");
    command.insert(command.end(), {"--output", "json"});
    EXPECT_THAT(vesk(command), Ends(0, HasSubstr("\"schema\": \"vesk/1\""), IsEmpty())) << words;
  }
}

TEST_F(Keys, CreatingTheKeyDatabaseKeepsWhatIsThere) {
  vesk({"key", "create", "K1"});
  EXPECT_THAT(vesk({"database", "create"}), Ends(0, StartsWith("created the key database of 127.0.0.1:"), IsEmpty()));
  EXPECT_THAT(vesk({"key", "get", "K1"}), Ends(0, HasSubstr("K1"), IsEmpty()));
}

}  // namespace
}  // namespace command_test
