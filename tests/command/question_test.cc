// Questions on a terminal before something is destroyed.
#include "tests/command/command_test.h"

namespace command_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testing::StrEq;

const std::string kConstant = "tape-library-01";
// Ends the input of a terminal at the beginning of a line.
const std::string kEndOfInput = "\x04";

class Questions : public ServedCommandTest {
 protected:
  Outcome vesk_asks(std::vector<std::string> arguments, const std::string &typed) const {
    Invocation made = invocation(std::move(arguments));
    made.standard_input = Stream::kTerminal;
    made.standard_error = Stream::kTerminal;
    made.input = typed;
    return vesk(made);
  }
};

TEST_F(Questions, AKeyIsDeletedWhenTheAnswerIsYes) {
  for (const char *name : {"K1", "K2"}) vesk({"key", "create", name});
  const Outcome outcome = vesk_asks({"key", "delete", "K1", "K2"}, "y\n");
  EXPECT_THAT(outcome, Ends(0, StrEq("deleted key K1\ndeleted key K2\n"), IsEmpty()));
  EXPECT_EQ(outcome.terminal, "Delete keys K1, K2? What they protect can never be read again. [y/N] ");
}

TEST_F(Questions, AKeyIsKeptOnAnyOtherAnswer) {
  vesk({"key", "create", "K1"});
  for (const std::string &answer : {std::string("n\n"), std::string("\n"), std::string("yess\n"), kEndOfInput}) {
    const Outcome outcome = vesk_asks({"key", "delete", "K1"}, answer);
    EXPECT_THAT(outcome, Ends(130, IsEmpty(), IsEmpty()));
    EXPECT_THAT(outcome.terminal, HasSubstr("vesk: key delete: cancelled; nothing was deleted\n"));
  }
  EXPECT_THAT(vesk({"key", "get", "K1"}), Ends(0, HasSubstr("K1"), IsEmpty()));
}

TEST_F(Questions, YesIsNotAskedAgain) {
  vesk({"key", "create", "K1"});
  const Outcome outcome = vesk_asks({"key", "delete", "K1", "--yes"}, "");
  EXPECT_THAT(outcome, Ends(0, StrEq("deleted key K1\n"), IsEmpty()));
  EXPECT_EQ(outcome.terminal, "");
}

TEST_F(Questions, AQuestionThatNobodySeesIsNotAsked) {
  vesk({"key", "create", "K1"});
  Invocation half = invocation({"key", "delete", "K1"});
  half.standard_input = Stream::kTerminal;
  half.input = "y\n";
  EXPECT_THAT(vesk(half), Ends(2, IsEmpty(), HasSubstr("add --yes if you are sure")));
  EXPECT_THAT(vesk({"key", "get", "K1"}), Ends(0, HasSubstr("K1"), IsEmpty()));
}

TEST_F(Questions, ATemplateIsRemovedWhenItsConstantIsTyped) {
  vesk({"template", "generate", kConstant, "--count", "1"});
  for (const std::string &answer : {std::string("y\n"), std::string("tape-library-02\n"), kEndOfInput}) {
    const Outcome outcome = vesk_asks({"template", "remove", kConstant}, answer);
    EXPECT_THAT(outcome, Ends(130, IsEmpty(), IsEmpty()));
    EXPECT_THAT(outcome.terminal, AllOf(StartsWith("Remove template tape-library-01? Its constant can never be used "
                                                   "again. Type the constant to go on: "),
                                        HasSubstr("vesk: template remove: cancelled; nothing was removed\n")));
  }
  EXPECT_THAT(vesk_asks({"template", "remove", kConstant}, kConstant + "\n"),
              Ends(0, StrEq("removed template tape-library-01\n"), IsEmpty()));
}

}  // namespace
}  // namespace command_test
