// What the help tells, and what is proposed in the place of words that are not known.
#include <wordexp.h>

#include "tests/command/command_test.h"
#include "vesk/command_line.h"
#include "vesk/commands.h"
#include "vesk/failure.h"
#include "vesk/suggestion.h"
#include "vesk/target.h"

namespace command_test {
namespace {

using testing::IsEmpty;
using testing::StartsWith;
using testing::StrEq;

class Help : public CommandTest {
 protected:
  Help() { command::add_commands(root_, settings_); }

  // Visits every command with its words.
  template <typename Visit>
  void walk(const command::Command &command, const std::string &words, const Visit &visit) {
    SCOPED_TRACE(words);
    visit(command, words);
    for (const command::Command &below : command.commands) walk(below, words + " " + below.name, visit);
  }

  command::Settings settings_;
  command::Command root_{"vesk", "Administers a key server."};
};

// The call of vesk in a line of a shell: from there to what belongs to the shell again.
std::string call_in(const std::string &line) {
  const std::size_t begin = line.find("vesk");
  char quote = 0;
  for (std::size_t i = begin; i < line.size(); ++i) {
    if (quote == 0 && std::string("|<>)").find(line[i]) != std::string::npos) return line.substr(begin, i - begin);
    if (line[i] == quote) {
      quote = 0;
    } else if (quote == 0 && (line[i] == '\'' || line[i] == '"')) {
      quote = line[i];
    }
  }
  return line.substr(begin);
}

// The command that a line calls; its options' targets are set.
const command::Command *command_called(const command::Command &root, const std::string &line) {
  wordexp_t words{};
  EXPECT_EQ(wordexp(call_in(line).c_str(), &words, WRDE_NOCMD), 0);
  const command::Command *command = nullptr;
  try {
    command = command::CommandLine(root).parse(static_cast<int>(words.we_wordc), words.we_wordv);
  } catch (const command::Failure &failure) {
    ADD_FAILURE() << failure.what();
  }
  wordfree(&words);
  return command;
}

TEST_F(Help, EveryCommandHasAnExampleAndASummary) {
  walk(root_, "vesk", [](const command::Command &command, const std::string &) {
    EXPECT_THAT(command.examples, testing::Not(IsEmpty()));
    EXPECT_NE(command.summary, "");
    EXPECT_NE(command.commands.empty(), !command.run) << "something to run is what commands have and groups have not";
  });
}

TEST_F(Help, EveryExampleIsACallOfItsCommand) {
  walk(root_, "vesk", [](const command::Command &command, const std::string &words) {
    for (const std::string &example : command.examples) {
      SCOPED_TRACE(example);
      // Values that one call sets are not for the next.
      command::Settings settings;
      command::Command root{"vesk", "Administers a key server."};
      command::add_commands(root, settings);
      const command::Command *called = command_called(root, example);
      ASSERT_TRUE(called);
      EXPECT_THAT(call_in(example), StartsWith(words));
      if (command.run) {
        EXPECT_EQ(called->name, command.name);
      }
    }
  });
}

TEST_F(Help, BeginsWithTheExamples) {
  EXPECT_THAT(vesk({"--help"}), Ends(0, StartsWith("Examples:\n  vesk context add production --host"), IsEmpty()));
  EXPECT_THAT(vesk({"key", "next", "--help"}),
              Ends(0,
                   StartsWith("Example:\n  vesk key next tape-library-01 --out next.key\n\n"
                              "Draw the next key of a key template\nUsage: vesk key next [OPTIONS] CONSTANT\n"),
                   IsEmpty()));
}

TEST_F(Help, OfACommandIsAlsoShownByItsName) {
  EXPECT_EQ(vesk({"help", "key", "get"}).out, vesk({"key", "get", "--help"}).out);
  EXPECT_EQ(vesk({"help", "key"}).out, vesk({"key", "--help"}).out);
  EXPECT_EQ(vesk({"help"}).out, vesk({"--help"}).out);
  EXPECT_THAT(
      vesk({"help", "key", "lst"}),
      Ends(2, IsEmpty(), StrEq("vesk: help: there is no command 'lst'\nhint: did you mean 'vesk key list'?\n")));
}

struct Mistake {
  std::vector<std::string> arguments;
  std::string err;
};

TEST_F(Help, ProposesWhatWasProbablyMeant) {
  const std::vector<Mistake> mistakes = {
      {{"kye"}, "vesk: there is no command 'kye'\nhint: did you mean 'vesk key'?\n"},
      {{"key", "lst"}, "vesk: key: there is no command 'lst'\nhint: did you mean 'vesk key list'?\n"},
      {{"certifcate", "list"}, "vesk: there is no command 'certifcate'\nhint: did you mean 'vesk certificate'?\n"},
      {{"key", "get", "K", "--instnace", "1"},
       "vesk: key get: there is no option '--instnace'\nhint: did you mean '--instance'?\n"},
      {{"key", "list", "--ouput=json"},
       "vesk: key list: there is no option '--ouput'\nhint: did you mean '--output'?\n"},
      {{"key", "get", "--instnace", "1"},
       "vesk: key get: there is no option '--instnace'\nhint: did you mean '--instance'?\n"},
      {{"key", "get", "K", "--", "--weird"},
       "vesk: key get: the following argument was not expected: --weird\nhint: vesk key get --help\n"},
      {{"--vresion"}, "vesk: there is no option '--vresion'\nhint: did you mean '--version'?\n"},
      {{"ping", "--output", "jsno"},
       "vesk: ping: --output jsno is none of table, json, plain, csv\nhint: did you mean '--output json'?\n"},
      {{"completion", "fihs"}, "vesk: completion: SHELL fihs is none of bash, zsh, fish\nhint: did you mean 'fish'?\n"},
      {{"key", "get", "K", "--quiet"}, "vesk: key get: there is no option '--quiet'\nhint: vesk key get --help\n"},
      {{"key", "\x1b[31mlist"}, "vesk: key: there is no command '\\x1b[31mlist'\nhint: vesk key --help\n"},
      {{"completion", "powershell"}, "vesk: completion: SHELL powershell is none of bash, zsh, fish\n"}};
  for (const Mistake &mistake : mistakes) EXPECT_THAT(vesk(mistake.arguments), Ends(2, IsEmpty(), StrEq(mistake.err)));
}

TEST_F(Help, ProposesAContext) {
  Invocation invocation = CommandTest::invocation(
      {"context", "add", "production", "--host", "h", "--port", "1", "--certificates", files_.path()});
  invocation.environment = {{"XDG_CONFIG_HOME", files_.path()}};
  ASSERT_EQ(vesk(invocation).exit_code, 0);
  invocation.arguments = {"ping", "--context", "prodution"};
  EXPECT_THAT(
      vesk(invocation),
      Ends(2, IsEmpty(), StrEq("vesk: ping: there is no context 'prodution'\nhint: did you mean 'production'?\n")));
}

// The page is written by hand.
TEST(ContextPage, TellsEveryMemberAndItsDefault) {
  const std::string page = contents_of(VESK_CONTEXT_PAGE);
  const std::size_t begin = page.find(".SS Members\n");
  ASSERT_NE(begin, std::string::npos);
  const std::string members = page.substr(begin, page.find(".SS", begin + 1) - begin);
  std::size_t place = 0;
  for (const command::TargetMember &member : command::kTargetMembers) {
    place = members.find(std::string(".TP\n.B ") + member.name + "\n", place);
    ASSERT_NE(place, std::string::npos) << member.name;
    const std::string text = members.substr(place, members.find(".TP", place + 1) - place);
    const std::string fallback = member.fallback ? std::string(member.fallback) : "";
    // A minus of the page is written so.
    const std::string written = fallback == "client-key.pem" ? "client\\-key.pem" : fallback;
    EXPECT_EQ(text.find('[') != std::string::npos, member.fallback != nullptr) << text;
    EXPECT_THAT(text, testing::HasSubstr(member.fallback ? "[" + written + "]" : ""));
  }
  std::size_t num_told = 0;
  for (std::size_t at = 0; (at = members.find(".TP\n", at)) != std::string::npos; ++at) ++num_told;
  EXPECT_EQ(num_told, command::kTargetMembers.size());
}

TEST(Suggestion, IsTheNearestAndNothingFarAway) {
  const std::vector<std::string> names = {"list", "next", "get", "policy"};
  EXPECT_EQ(command::nearest("lits", names), "list");
  EXPECT_EQ(command::nearest("polcy", names), "policy");
  EXPECT_EQ(command::nearest("polliyc", names), "policy");
  EXPECT_EQ(command::nearest("lxst", {"last", "list", "lxst"}), "lxst");
  EXPECT_EQ(command::nearest("lxst", {"last", "list"}), "last");
  EXPECT_EQ(command::nearest("tils", names), std::nullopt);
  EXPECT_EQ(command::nearest("g", names), std::nullopt);
  EXPECT_EQ(command::nearest("", names), std::nullopt);
  EXPECT_EQ(command::nearest("list", {}), std::nullopt);
  EXPECT_EQ(command::nearest(std::string(100000, 'l'), names), std::nullopt);
}

}  // namespace
}  // namespace command_test
