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

// Its flushes to the disk stall, and then it is ended.
class EndingsOfFiles : public Endings {
 protected:
  Outcome ended(const std::vector<std::string> &arguments, int flush, int signal) const {
    Invocation made = invocation(arguments);
    made.environment["XDG_CONFIG_HOME"] = files_.path();
    made.environment["LD_PRELOAD"] = STALLED_DISK;
    made.environment["ASAN_OPTIONS"] = "verify_asan_link_order=0";
    made.environment["STALL_AT"] = std::to_string(flush);
    made.signal = signal;
    made.signal_when = "stalled";
    return vesk(made);
  }
};

TEST_F(EndingsOfFiles, NothingHalfWrittenStaysBehind) {
  ASSERT_EQ(vesk({"key", "create", "K1"}).exit_code, 0);
  const std::vector<std::vector<std::string>> commands = {
      {"key", "get", "K1", "--out", "file"},
      {"appliance", "sensors", "--out", "file"},
      {"context", "add", "here"},
  };
  for (const std::vector<std::string> &command : commands) {
    for (const int signal : {SIGINT, SIGTERM}) {
      EXPECT_THAT(ended(command, 1, signal),
                  Ends(130, IsEmpty(), HasSubstr("cancelled by signal " + std::to_string(signal) + "\n")));
      std::filesystem::remove(files_.path("vesk"));
      EXPECT_THAT(names_in(files_.path()), IsEmpty()) << command[0];
    }
  }
}

TEST_F(EndingsOfFiles, WhatWasThereStaysAsItWas) {
  ASSERT_EQ(vesk({"key", "create", "K1"}).exit_code, 0);
  write_file(files_.path("file"), "old");
  EXPECT_THAT(ended({"key", "get", "K1", "--out", "file", "--force"}, 1, SIGTERM),
              Ends(130, IsEmpty(), HasSubstr("cancelled by signal 15\n")));
  EXPECT_EQ(contents_of(files_.path("file")), "old");
  // Behind the flush of the file it has its name, and is whole.
  EXPECT_THAT(ended({"key", "get", "K1", "--out", "file", "--force"}, 2, SIGTERM),
              Ends(130, IsEmpty(), HasSubstr("cancelled by signal 15\n")));
  EXPECT_EQ(contents_of(files_.path("file")).size(), 32u);
  EXPECT_THAT(names_in(files_.path()), testing::ElementsAre("file"));
}

TEST_F(EndingsOfFiles, AReplyThatStallsMidwayLeavesNoFile) {
  const TemporaryDirectory played;
  const PlayedServer server(played.path(), {}, "0040000000712", true);
  Invocation made = invocation(
      {"key", "get", "K1", "--out", "file", "--trace", "-", "--port", server.port(), "--certificates", played.path()});
  made.signal = SIGINT;
  made.signal_when = "connected to ";
  EXPECT_THAT(vesk(made), Ends(130, IsEmpty(), HasSubstr("cancelled by signal 2\n")));
  EXPECT_THAT(names_in(files_.path()), IsEmpty());
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
