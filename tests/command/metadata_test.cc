// vesk metadata: set, get, find.
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

class Metadata : public ServedCommandTest {
 protected:
  void SetUp() override {
    for (const char *name : {"K1", "K2"}) ASSERT_EQ(vesk({"key", "create", name}).exit_code, 0);
  }
  json fields_of(const std::string &key) const {
    return document_in(vesk({"metadata", "get", key, "--output", "json"})).at("metadata");
  }
};

TEST_F(Metadata, KeepsTheFieldsThatAreNotGiven) {
  EXPECT_THAT(vesk({"metadata", "set", "K1", "--md", "1=tape", "--md", "md16=last"}),
              Ends(0, StrEq("set 2 of the sixteen metadata fields of key K1\n"), IsEmpty()));
  EXPECT_EQ(vesk({"metadata", "set", "K1", "--md", "MD02=two"}).exit_code, 0);
  const json fields = fields_of("K1");
  EXPECT_EQ(fields.size(), 16u);
  EXPECT_EQ(fields.at("MD01"), "tape");
  EXPECT_EQ(fields.at("MD02"), "two");
  EXPECT_EQ(fields.at("MD03"), "");
  EXPECT_EQ(fields.at("MD16"), "last");
}

TEST_F(Metadata, BlanksTheOthersWhenItIsReplaced) {
  vesk({"metadata", "set", "K1", "--md", "1=tape", "--md", "2=two"});
  const Outcome outcome =
      vesk({"metadata", "set", "K1", "--md", "2=", "--md", "3=three", "--replace", "--output", "json"});
  EXPECT_EQ(document_in(outcome), json({{"name", "K1"}, {"set", {"MD02", "MD03"}}, {"others_blanked", true}}));
  EXPECT_EQ(fields_of("K1").at("MD01"), "");
  EXPECT_EQ(fields_of("K1").at("MD03"), "three");
  EXPECT_EQ(vesk({"metadata", "set", "K1", "--replace"}).exit_code, 0);
  EXPECT_EQ(fields_of("K1").at("MD03"), "");
}

TEST_F(Metadata, ComesThroughUnharmedInEveryForm) {
  const std::string text = "a, \"b\" 'c'\\ =[1] caf\xc3\xa9";
  ASSERT_EQ(vesk({"metadata", "set", "K1", "--md", "1=" + text, "--md", "2=caf\xe9"}).exit_code, 0);
  EXPECT_EQ(fields_of("K1").at("MD01"), text);
  EXPECT_EQ(fields_of("K1").at("MD02"), "caf\xef\xbf\xbd");
  EXPECT_EQ(fields_of("K1").at("base64"), json::object({{"MD02", "Y2Fm6Q=="}}));
  EXPECT_THAT(vesk({"metadata", "get", "K1"}),
              Ends(0, StartsWith("MD01  a, \"b\" 'c'\\ =[1] caf\\xc3\\xa9\nMD02  caf\\xe9\nMD03  \n"), IsEmpty()));
  EXPECT_THAT(vesk({"metadata", "get", "K1", "--output", "plain"}),
              Ends(0, StrEq("a, \"b\" 'c'\\\\ =[1] caf\\xc3\\xa9\ncaf\\xe9\n" + std::string(14, '\n')), IsEmpty()));
  const json found = document_in(vesk({"metadata", "find", "--where", "md1 eq \"" + text + "\"", "--output", "json"}));
  EXPECT_EQ(found.at("count"), 1);
  EXPECT_EQ(found.at("complete"), true);
  const json key = found.at("keys").at(0);
  EXPECT_EQ(key.at("name"), "K1");
  EXPECT_EQ(key.at("metadata").at("MD01"), text);
  EXPECT_EQ(key.at("metadata").at("MD03"), "");
  EXPECT_EQ(key.at("metadata").at("base64"), json::object({{"MD02", "Y2Fm6Q=="}}));
}

TEST_F(Metadata, IsFoundByEveryOperator) {
  vesk({"metadata", "set", "K1", "--md", "2=alpha"});
  vesk({"metadata", "set", "K2", "--md", "2=beta"});
  const auto found = [&](const std::string &where) {
    return vesk({"metadata", "find", "--output", "plain", "--where", where}).out;
  };
  EXPECT_EQ(found("md2 eq \"alpha\""), "K1\n");
  EXPECT_EQ(found("2 NE alpha"), "K2\n");
  EXPECT_EQ(found("MD02  Ct  et"), "K2\n");
  EXPECT_EQ(found("md2 gt alpha"), "K2\n");
  EXPECT_EQ(found("md2 lt beta"), "K1\n");
  EXPECT_EQ(found("md2 ge alpha"), "K1\nK2\n");
  EXPECT_EQ(found("md2 le \"alpha  \""), "K1\n");
  EXPECT_EQ(found("md2 eq \"\""), "");
  EXPECT_EQ(found("md3 eq \"\""), "K1\nK2\n");
  vesk({"metadata", "set", "K1", "--md", "4='quoted'"});
  EXPECT_EQ(found("md4 eq \"'quoted'\""), "K1\n");
  EXPECT_EQ(found("md4 ct '"), "K1\n");
}

TEST_F(Metadata, IsFoundWhenItMeetsEveryCriterion) {
  vesk({"metadata", "set", "K1", "--md", "1=tape", "--md", "2=alpha"});
  vesk({"metadata", "set", "K2", "--md", "1=tape", "--md", "2=beta"});
  EXPECT_THAT(vesk({"metadata", "find", "--where", "md2 ct \"a\"", "--where", "md1 eq tape"}),
              Ends(0,
                   StrEq("K1  MD01=\"tape\"  MD02=\"alpha\"\n"
                         "K2  MD01=\"tape\"  MD02=\"beta\"\n"
                         "2 keys\n"),
                   IsEmpty()));
  EXPECT_THAT(
      vesk({"metadata", "find", "--where", "md1 eq tape", "--where", "md2 eq beta", "--output", "plain", "--null"}),
      Ends(0, StrEq(std::string("K2\0", 3)), IsEmpty()));
  EXPECT_THAT(vesk({"metadata", "find"}), Ends(0, HasSubstr("2 keys\n"), IsEmpty()));
}

TEST_F(Metadata, IsFoundUpToALimit) {
  EXPECT_THAT(vesk({"metadata", "find", "--limit", "1"}),
              Ends(0, StrEq("K1\n1 of 2 keys\n"), StrEq("note: --limit shows the first 1 of 2\n")));
  const json document = document_in(vesk({"metadata", "find", "--limit", "1", "--output", "json"}));
  EXPECT_EQ(document.at("keys").size(), 1u);
  EXPECT_EQ(document.at("count"), 2);
  EXPECT_EQ(document.at("complete"), false);
}

TEST_F(Metadata, EndsQuietlyWhenItsReaderHasGone) {
  for (const char *form : {"table", "json", "plain", "csv"}) {
    Invocation gone = invocation({"metadata", "find", "--output", form});
    gone.reader_of_output_is_gone = true;
    EXPECT_THAT(vesk(gone), Ends(1, IsEmpty(), IsEmpty())) << form;
  }
}

TEST_F(Metadata, OfWhatIsNotThereIsNotFound) {
  const auto not_found = [](const char *words, const char *name) {
    return Ends(4, IsEmpty(), AllOf(StartsWith(words), HasSubstr(name)));
  };
  EXPECT_THAT(vesk({"metadata", "get", "K9"}), not_found("vesk: metadata get: key K9: ", "RC_KEY_UNKNOWN"));
  EXPECT_THAT(vesk({"metadata", "set", "K9", "--replace"}),
              not_found("vesk: metadata set: key K9: ", "RC_KEY_UNKNOWN"));
  EXPECT_THAT(vesk({"metadata", "set", "K1", "--md", "1=x", "--instance", "I9"}),
              not_found("vesk: metadata set: key K1: ", "RC_INSTANCE_UNKNOWN"));
}

TEST_F(Metadata, RefusesWhatTheProtocolHasNoRoomFor) {
  struct Case {
    std::vector<std::string> arguments;
    const char *message;
  };
  const std::string too_long(65, 'x');
  const std::vector<Case> cases = {
      {{"set", "K1"}, "no field is given"},
      {{"set", "K1", "--md", "tape"}, "not N=TEXT"},
      {{"set", "K1", "--md", "0=x"}, "not N=TEXT"},
      {{"set", "K1", "--md", "17=x"}, "not N=TEXT"},
      {{"set", "K1", "--md", "1=x", "--md", "md01=y"}, "MD01 is given twice"},
      {{"set", "K1", "--md", "1=" + too_long}, "65 bytes long; at most 64"},
      {{"set", "K1", "--md", "1=a\tb"}, "control character"},
      {{"set", "K1", "--md", "1=x", "--instance", std::string(25, 'x')}, "25 bytes long"},
      {{"find", "--where", "md1 eq"}, "not a field, an operator and a text"},
      {{"find", "--where", "md1 xx \"a\""}, "not a field, an operator and a text"},
      {{"find", "--where", "md1 = a"}, "not a field, an operator and a text"},
      {{"find", "--where", "md17 eq a"}, "not a field, an operator and a text"},
      {{"find", "--where", "md0 eq a"}, "fields: md1 to md16; operators: eq ne ct gt lt ge le"},
      {{"find", "--where", "md1 eq \"a"}, "not a field, an operator and a text"},
      {{"find", "--where", "md1 eq 'tape' "}, "the text 'tape' of --where stands in single quotes"},
      {{"find", "--where", ""}, "not a field, an operator and a text"},
      {{"find", "--where", "md1 eq a", "--where", "md1 ne b"}, "MD01 is given twice"},
      {{"find", "--where", "md1 eq " + too_long}, "65 bytes long; at most 64"},
      {{"find", "--where", "md1 eq \"a\x7f\""}, "control character"},
      {{"find", "--null"}, "--null is for --output plain"},
  };
  for (Case row : cases) {
    row.arguments.insert(row.arguments.begin(), "metadata");
    EXPECT_THAT(vesk(row.arguments), Ends(2, IsEmpty(), HasSubstr(row.message))) << row.arguments.back();
  }
}

// Servers that are not ours may have names and fields of any bytes.
class PlayedMetadata : public CommandTest {
 protected:
  static std::string padded(std::string text, std::size_t width) {
    text.resize(width, ' ');
    return text;
  }
  static std::string record(const std::string &name, const std::string &first_field) {
    std::string text = padded(name, 116);  // instance, dates and flags blank
    for (const char *label : {"MD01", "MD02", "MD03", "MD04", "MD05", "MD06", "MD07", "MD08", "MD09", "MD10", "MD11",
                              "MD12", "MD13", "MD14", "MD15", "MD16"})
      text += std::string(label) + "'" + padded(text.size() == 116 ? first_field : "", 64) + "'";
    return text;
  }
  Outcome find(const std::string &reply, std::vector<std::string> arguments) const {
    TemporaryDirectory directory;
    const PlayedServer server(directory.path(), {}, reply);
    arguments.insert(arguments.begin(), {"metadata", "find", "--host", "127.0.0.1", "--port", server.port(),
                                         "--certificates", directory.path()});
    return vesk(arguments);
  }

  const std::string strange_ = "0001410530000N01241" + record("n\xe9\n\x1b[1m,\"\\", "f\xe9\r\n\x1b[1m,\"\\");
};

TEST_F(PlayedMetadata, IsShownUnharmedWhateverItsBytes) {
  EXPECT_THAT(find(strange_, {}),
              Ends(0, StrEq("n\\xe9\\x0a\\x1b[1m,\"\\  MD01=\"f\\xe9\\x0d\\x0a\\x1b[1m,\"\\\"\n1 key\n"), IsEmpty()));
  EXPECT_THAT(find(strange_, {"--output", "plain"}), Ends(0, StrEq("n\\xe9\\x0a\\x1b[1m,\"\\\\\n"), IsEmpty()));
  EXPECT_THAT(find(strange_, {"--output", "plain", "--null"}),
              Ends(0, StrEq(std::string("n\xe9\n\x1b[1m,\"\\\0", 11)), IsEmpty()));
  EXPECT_THAT(find(strange_, {"--output", "csv"}),
              Ends(0,
                   StrEq("name,metadata.MD01,metadata.MD02,metadata.MD03,metadata.MD04,metadata.MD05,metadata.MD06,"
                         "metadata.MD07\r\n"
                         "\"n\\xe9\\x0a\\x1b[1m,\"\"\\\\\",\"f\\xe9\\x0d\\x0a\\x1b[1m,\"\"\\\\\",,,,,,\r\n"),
                   IsEmpty()));
  const json key = document_in(find(strange_, {"--output", "json"})).at("keys").at(0);
  EXPECT_EQ(key.at("name"), "n\xef\xbf\xbd\n\x1b[1m,\"\\");
  EXPECT_EQ(key.at("base64").at("name"), "bukKG1sxbSwiXA==");
  EXPECT_EQ(key.at("metadata").at("MD01"), "f\xef\xbf\xbd\r\n\x1b[1m,\"\\");
  EXPECT_EQ(key.at("metadata").at("base64").at("MD01"), "ZukNChtbMW0sIlw=");
}

TEST_F(PlayedMetadata, ShowsNothingOfAQueryThatFailed) {
  const std::string fails = "0001410530000Y01241" + record("K1", "") + "0000810530104";
  for (const char *form : {"table", "json", "plain", "csv"})
    EXPECT_THAT(find(fails, {"--output", form}), Ends(3, IsEmpty(), HasSubstr("RC_SERVER_FAILURE"))) << form;
}

}  // namespace
}  // namespace command_test
