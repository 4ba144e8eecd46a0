// Commands that are ended from outside: by time, by signals.
#include <signal.h>

#include "tests/command/command_test.h"
#include "tests/command/played_server.h"

namespace command_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testing::StrEq;

class Endings : public ServedCommandTest {};

TEST_F(Endings, TheTimeOfACommandIsUp) {
  const SilentServer silent;
  EXPECT_THAT(vesk({"ping", "--timeout", "1", "--port", silent.port()}),
              Ends(6, IsEmpty(),
                   AllOf(StartsWith("vesk: ping: not done within 1 s (--timeout)\n"),
                         HasSubstr("hint: whether the server did the work is not known"))));
  EXPECT_THAT(vesk({"ping", "--timeout", "600"}), Ends(0, HasSubstr("answers"), IsEmpty()));
  for (const char *time : {"0", "-1", "1.5", ""})
    EXPECT_THAT(vesk({"ping", "--timeout", time}), Ends(2, IsEmpty(), HasSubstr("time-out"))) << time;
}

TEST_F(Endings, ASignalEndsACommandThatWaitsForTheServer) {
  const SilentServer silent;
  for (const int signal : {SIGINT, SIGTERM}) {
    Invocation made = invocation({"template", "generate", "tape-library-01", "--count", "1", "--port", silent.port()});
    made.environment["TERM"] = "xterm";
    made.standard_error = Stream::kTerminal;
    made.signal = signal;
    made.signal_when = "generating 1 keys";
    const Outcome outcome = vesk(made);
    EXPECT_EQ(outcome.exit_code, 130);
    EXPECT_THAT(outcome.terminal, HasSubstr("\r\x1b[K\x1b[31mvesk:\x1b[0m template generate: cancelled by signal " +
                                            std::to_string(signal) + "\n"));
  }
}

TEST_F(Endings, ASignalIsAnAnswer) {
  vesk({"key", "create", "K1"});
  Invocation made = invocation({"key", "delete", "K1"});
  made.standard_input = Stream::kTerminal;
  made.standard_error = Stream::kTerminal;
  made.signal = SIGINT;
  made.signal_when = "[y/N] ";
  const Outcome outcome = vesk(made);
  EXPECT_EQ(outcome.exit_code, 130);
  EXPECT_THAT(outcome.terminal, HasSubstr("[y/N] \nvesk: key delete: cancelled by signal 2\n"));
  EXPECT_THAT(vesk({"key", "get", "K1"}), Ends(0, HasSubstr("K1"), IsEmpty()));
}

class Care : public ServedCommandTest {};

TEST_F(Care, SecretFilesThatOthersMayReadAreWarnedOf) {
  const std::string key = server_files_.path("d/client-key.pem");
  std::filesystem::permissions(key, std::filesystem::perms::group_read, std::filesystem::perm_options::add);
  EXPECT_THAT(vesk({"ping"}),
              Ends(0, HasSubstr("answers"), StrEq("warning: others may read " + key + ": chmod 600 " + key + "\n")));
}

TEST_F(Care, ADryRunDoesNothing) {
  ASSERT_EQ(vesk({"template", "generate", "tape-library-01", "--count", "1"}).exit_code, 0);
  EXPECT_THAT(vesk({"template", "remove", "tape-library-01", "--dry-run"}),
              Ends(0, StrEq("would remove template tape-library-01\n"), IsEmpty()));
  EXPECT_THAT(vesk({"template", "remove", "tape-library-01", "--dry-run", "--output", "json"}),
              Ends(0, HasSubstr("\"dry_run\": true"), IsEmpty()));
  EXPECT_THAT(vesk({"template", "list"}), Ends(0, StrEq("tape-library-01\n"), IsEmpty()));
}

}  // namespace
}  // namespace command_test
