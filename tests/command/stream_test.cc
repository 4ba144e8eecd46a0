// Standard streams that are full, gone, closed or a terminal.
#include "tests/command/command_test.h"

namespace command_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::StrEq;

class Streams : public ServedCommandTest {};

TEST_F(Streams, AReaderThatWentAwayIsNoNews) {
  vesk({"key", "create", "K1"});
  for (const std::vector<std::string> &command :
       {std::vector<std::string>{"ping"}, {"--help"}, {"key", "get", "K1", "--out", "-"}}) {
    Invocation gone = invocation(command);
    gone.reader_of_output_is_gone = true;
    EXPECT_THAT(vesk(gone), Ends(1, IsEmpty(), IsEmpty())) << command.back();
  }
}

TEST_F(Streams, AFullDiskIsAnError) {
  Invocation full = invocation({"ping"});
  full.standard_output_path = "/dev/full";
  EXPECT_THAT(vesk(full),
              Ends(1, IsEmpty(), StrEq("vesk: ping: cannot write to standard output: No space left on device\n")));
}

TEST_F(Streams, AClosedStandardOutputIsAnErrorAndNotTheConnection) {
  Invocation closed = invocation({"ping"});
  closed.standard_output = Stream::kClosed;
  EXPECT_THAT(vesk(closed),
              Ends(1, IsEmpty(), StrEq("vesk: ping: cannot write to standard output: Bad file descriptor\n")));
}

TEST_F(Streams, ClosedStandardInputAndErrorDoNotMatter) {
  Invocation closed = invocation({"ping"});
  closed.standard_input = Stream::kClosed;
  closed.standard_error = Stream::kClosed;
  EXPECT_THAT(vesk(closed), Ends(0, HasSubstr("answers"), IsEmpty()));
}

// The lines on a terminal of an error, under further variables of the environment.
class Colours : public CommandTest {
 protected:
  std::string error_on_terminal(const std::map<std::string, std::string> &environment) const {
    Invocation made = invocation({"ping", "--output", "xml"});
    made.environment = environment;
    made.standard_error = Stream::kTerminal;
    const Outcome outcome = vesk(made);
    EXPECT_EQ(outcome.exit_code, 2);
    return outcome.terminal;
  }
};

TEST_F(Colours, AreForTerminalsThatWantThem) {
  EXPECT_THAT(error_on_terminal({{"TERM", "xterm"}}), StartsWith("\x1b[31mvesk:\x1b[0m ping: "));
  EXPECT_THAT(error_on_terminal({{"TERM", "xterm"}, {"NO_COLOR", ""}}), StartsWith("\x1b[31mvesk:\x1b[0m ping: "));
  EXPECT_THAT(error_on_terminal({{"TERM", "xterm"}, {"NO_COLOR", "1"}}), StartsWith("vesk: ping: "));
  EXPECT_THAT(error_on_terminal({{"TERM", "dumb"}}), StartsWith("vesk: ping: "));
  EXPECT_THAT(error_on_terminal({}), StartsWith("vesk: ping: "));
}

TEST_F(Colours, AreNotForPipes) {
  Invocation made = invocation({"ping", "--output", "xml"});
  made.environment = {{"TERM", "xterm"}};
  EXPECT_THAT(vesk(made), Ends(2, IsEmpty(), StartsWith("vesk: ping: ")));
}

TEST_F(Streams, ProgressIsForTerminals) {
  Invocation made = invocation({"template", "generate", "tape-library-01", "--count", "2"});
  EXPECT_THAT(vesk(made), Ends(0, StrEq("generated 2 keys for the new template tape-library-01\n"), IsEmpty()));
  made.arguments.push_back("--add");
  made.environment["TERM"] = "xterm";
  made.standard_error = Stream::kTerminal;
  const Outcome outcome = vesk(made);
  EXPECT_EQ(outcome.out, "generated 2 keys for template tape-library-01\n");
  EXPECT_THAT(outcome.terminal, AllOf(StartsWith("\rgenerating 2 keys: 0 s"), testing::EndsWith("\r\x1b[K")));
  made.arguments = {"template", "remove", "tape-library-01", "--yes"};
  EXPECT_THAT(vesk(made).terminal,
              AllOf(StartsWith("\rremoving template tape-library-01: 0 s"), testing::EndsWith("\r\x1b[K")));
}

TEST_F(Streams, TheTraceGoesWhereItIsSent) {
  EXPECT_THAT(vesk({"ping", "--trace", "-"}),
              Ends(0, HasSubstr("answers"), AllOf(HasSubstr("F: AdminNoop"), HasSubstr("Return Code <0000>"))));
  write_file(files_.path("trace"), "earlier\n");
  EXPECT_THAT(vesk({"ping", "--trace", "trace"}), Ends(0, HasSubstr("answers"), IsEmpty()));
  EXPECT_THAT(contents_of(files_.path("trace")), AllOf(StartsWith("earlier\n2"), HasSubstr("F: AdminNoop")));
  EXPECT_THAT(
      vesk({"ping", "--trace", "nowhere/trace"}),
      Ends(1, IsEmpty(), StrEq("vesk: ping: cannot open the trace file nowhere/trace: No such file or directory\n")));
}

}  // namespace
}  // namespace command_test
