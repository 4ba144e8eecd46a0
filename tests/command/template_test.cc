// Key templates, and the keys drawn from them.
#include <nlohmann/json.hpp>

#include "tests/command/command_test.h"

namespace command_test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testing::StrEq;

const std::string kConstant = "tape-library-01";

class Templates : public ServedCommandTest {
 protected:
  void generate(const std::string &count) {
    ASSERT_EQ(vesk({"template", "generate", kConstant, "--count", count}).exit_code, 0);
  }
};

TEST_F(Templates, KeysAreGeneratedForANewTemplateAndAddedToOne) {
  EXPECT_THAT(vesk({"template", "generate", kConstant, "--count", "3"}),
              Ends(0, StrEq("generated 3 keys for the new template " + kConstant + "\n"), IsEmpty()));
  EXPECT_THAT(
      vesk({"template", "generate", kConstant, "--count", "3"}),
      Ends(3, IsEmpty(), AllOf(HasSubstr("RC_TEMPLATE_EXISTS"), HasSubstr("\nhint: add keys to it with --add\n"))));
  EXPECT_THAT(vesk({"template", "generate", kConstant, "--count", "1", "--add"}),
              Ends(0, StrEq("generated 1 key for template " + kConstant + "\n"), IsEmpty()));
  const Outcome outcome = vesk({"template", "generate", kConstant, "--count", "2", "--add", "--output", "json"});
  EXPECT_EQ(document_in(outcome), json({{"template", kConstant}, {"generated", 2}, {"new", false}}));
}

TEST_F(Templates, TheListHasOneConstantALine) {
  EXPECT_THAT(vesk({"template", "list"}), Ends(0, IsEmpty(), IsEmpty()));
  generate("1");
  vesk({"template", "generate", "tape-library-02", "--count", "1"});
  EXPECT_THAT(vesk({"template", "list"}), Ends(0, StrEq("tape-library-01\ntape-library-02\n"), IsEmpty()));
  EXPECT_EQ(document_in(vesk({"template", "list", "--output", "json"})),
            json({{"templates", {"tape-library-01", "tape-library-02"}}, {"count", 2}, {"complete", true}}));
}

TEST_F(Templates, TheDepthFollowsTheKeysDrawn) {
  generate("2");
  EXPECT_THAT(vesk({"template", "depth", kConstant}), Ends(0,
                                                           StrEq("template        tape-library-01\n"
                                                                 "last increment  000001\n"
                                                                 "next increment  000000\n"
                                                                 "keys left       2\n"),
                                                           IsEmpty()));
  EXPECT_THAT(vesk({"key", "next", kConstant}), Ends(0,
                                                     StrEq("name       tape-library-01000000\n"
                                                           "increment  000000\n"),
                                                     IsEmpty()));
  EXPECT_EQ(document_in(vesk({"key", "next", kConstant, "--output", "json"})),
            json({{"name", "tape-library-01000001"}, {"increment", 1}}));
  EXPECT_THAT(vesk({"template", "depth", kConstant}), Ends(0,
                                                           StrEq("template        tape-library-01\n"
                                                                 "last increment  000001\n"
                                                                 "next increment  none\n"
                                                                 "keys left       0\n"),
                                                           IsEmpty()));
  EXPECT_EQ(document_in(vesk({"template", "depth", kConstant, "--output", "json"})),
            json({{"template", kConstant}, {"last_increment", 1}, {"next_increment", nullptr}, {"keys_left", 0}}));
  EXPECT_THAT(vesk({"key", "next", kConstant}),
              Ends(3, IsEmpty(), AllOf(HasSubstr("RC_TEMPLATE_EXHAUSTED"), HasSubstr("--count N --add"))));
}

TEST_F(Templates, ADrawnKeyIsTheOneThatItsNameFetches) {
  generate("1");
  EXPECT_THAT(vesk({"key", "next", kConstant, "--out", "drawn"}),
              Ends(0, AllOf(HasSubstr("tape-library-01000000\n"), HasSubstr("written to  drawn\n")), IsEmpty()));
  EXPECT_EQ(vesk({"key", "get", "tape-library-01000000", "--out", "fetched"}).exit_code, 0);
  EXPECT_EQ(contents_of(files_.path("drawn")).size(), 32U);
  EXPECT_EQ(contents_of(files_.path("drawn")), contents_of(files_.path("fetched")));
}

TEST_F(Templates, NoIncrementIsUsedUpWhenTheKeyCouldNotBeWrittenAnyway) {
  generate("1");
  write_file(files_.path("there"), "kept");
  EXPECT_THAT(vesk({"key", "next", kConstant, "--out", "there"}), Ends(1, IsEmpty(), HasSubstr("exists already")));
  EXPECT_THAT(vesk({"template", "depth", kConstant}), Ends(0, HasSubstr("keys left       1\n"), IsEmpty()));
}

TEST_F(Templates, AKeyThatWasDrawnInVainIsNamed) {
  generate("3");
  Invocation full = invocation({"key", "next", kConstant});
  full.standard_output_path = "/dev/full";
  EXPECT_THAT(vesk(full), Ends(1, IsEmpty(),
                               StrEq("vesk: key next: cannot write to standard output: No space left on device\n"
                                     "hint: the increment is used up, but the key is not lost: vesk key get "
                                     "tape-library-01000000 --out FILE\n")));
  // Also when its reader has gone, which is no news otherwise.
  for (const std::vector<std::string> &arguments :
       {std::vector<std::string>{"key", "next", kConstant}, {"key", "next", kConstant, "--out", "-"}}) {
    Invocation gone = invocation(arguments);
    gone.reader_of_output_is_gone = true;
    EXPECT_THAT(
        vesk(gone),
        Ends(1, IsEmpty(),
             AllOf(StartsWith("vesk: key next: the reader of standard output has gone away\nhint: the increment"),
                   HasSubstr(": vesk key get tape-library-0100000"))));
  }
}

TEST_F(Templates, TheNextIncrementIsSetInEitherBase) {
  generate("20");
  EXPECT_THAT(vesk({"template", "set-next", kConstant, "10"}),
              Ends(0, StrEq("template tape-library-01 serves 00000A next\n"), IsEmpty()));
  EXPECT_THAT(vesk({"key", "next", kConstant}), Ends(0, HasSubstr("tape-library-0100000A\n"), IsEmpty()));
  EXPECT_EQ(document_in(vesk({"template", "set-next", kConstant, "0x10", "--output", "json"})),
            json({{"template", kConstant}, {"next_increment", 16}}));
  EXPECT_THAT(vesk({"key", "next", kConstant}), Ends(0, HasSubstr("tape-library-01000010\n"), IsEmpty()));
}

TEST_F(Templates, AnIncrementThatTheTemplateHasNotIsRefused) {
  generate("2");
  EXPECT_THAT(vesk({"template", "set-next", kConstant, "2"}),
              Ends(3, IsEmpty(),
                   StartsWith("vesk: template set-next: template tape-library-01, increment 000002: the increment is "
                              "not one of the template's (return code 0310 RC_INCREMENT_RANGE from ")));
  vesk({"key", "next", kConstant});
  EXPECT_THAT(vesk({"template", "set-next", kConstant, "0"}),
              Ends(3, IsEmpty(), HasSubstr("increment 000000: keys at or behind that increment have been served")));
}

TEST_F(Templates, ARemovedTemplateIsGoneButForTheKeysThatWereDrawn) {
  generate("2");
  vesk({"key", "next", kConstant});
  EXPECT_THAT(vesk({"template", "remove", kConstant, "--yes"}),
              Ends(0, StrEq("removed template tape-library-01\n"), IsEmpty()));
  EXPECT_THAT(vesk({"template", "list"}), Ends(0, IsEmpty(), IsEmpty()));
  EXPECT_THAT(vesk({"key", "list", "--output", "plain"}), Ends(0, StrEq("tape-library-01000000\n"), testing::_));
  EXPECT_THAT(vesk({"template", "generate", kConstant, "--count", "1"}),
              Ends(3, IsEmpty(), HasSubstr("RC_TEMPLATE_USED")));
}

TEST_F(Templates, ATemplateThatIsNotThereIsNotFound) {
  const std::vector<std::vector<std::string>> commands = {{"template", "depth", kConstant},
                                                          {"template", "set-next", kConstant, "1"},
                                                          {"template", "remove", kConstant, "--yes"},
                                                          {"template", "generate", kConstant, "--count", "1", "--add"},
                                                          {"key", "next", kConstant}};
  for (const std::vector<std::string> &command : commands) {
    EXPECT_THAT(vesk(command), Ends(4, IsEmpty(), HasSubstr("(return code 0304 RC_TEMPLATE_UNKNOWN from ")))
        << command[0] << " " << command[1];
  }
}

}  // namespace
}  // namespace command_test
