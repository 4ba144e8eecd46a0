// The trace's lines, dumps and masks.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "tests/connection/client.h"

namespace tests {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

TEST(Trace, ALineHasTimeThreadPathAndLine) {
  TraceText trace;
  TraceT(0, "orn/vesk/skeys", 42, "Return Code <%s> %d", "0000", 7);
  EXPECT_THAT(trace.text(), MatchesRegex("20[0-9][0-9]-[0-9][0-9]-[0-9][0-9]T[0-9][0-9]:[0-9][0-9]:[0-9][0-9]"
                                         "\\.[0-9][0-9][0-9][0-9][0-9][0-9]Z [0-9]+ orn/vesk/skeys:42 "
                                         "Return Code <0000> 7\n"));
}

TEST(Trace, TextCannotBreakLinesOrTerminals) {
  TraceText trace;
  TraceT(0, "p", 1, "%s", "a\r\x1b[2J\x80\xff\t<end>");
  EXPECT_THAT(trace.text(), EndsWith(" p:1 a\\x0d\\x1b[2J\\x80\\xff\\x09<end>\n"));
}

TEST(Trace, ALineFeedBeginsAnIndentedLine) {
  TraceText trace;
  TraceT(0, "p", 1, "%s\n%s", "label", "text");
  EXPECT_THAT(trace.text(), EndsWith(" p:1 label\n    text\n"));
}

TEST(Trace, LongMessagesAreWhole) {
  TraceText trace;
  std::string text(100'000, 'x');
  TraceT(0, "p", 1, "%s", text.c_str());
  EXPECT_THAT(trace.text(), EndsWith(" " + text + "\n"));
}

TEST(Trace, LeavesErrnoAlone) {
  TraceText trace;
  errno = EXDEV;
  TraceT(0, "p", 1, "x");
  DumpBuffer(0, "p", 1, "x", 1, "x");
  EXPECT_EQ(EXDEV, errno);
}

TEST(Trace, AfterOffNothingIsWritten) {
  TraceText trace;
  TraceOff();
  TraceT(0, "p", 1, "x");
  DumpBuffer(0, "p", 1, "x", 1, "x");
  EXPECT_EQ("", trace.text());
}

TEST(Trace, AFileIsAppendedToAndPrivate) {
  TemporaryFolder folder;
  std::string path = folder.path("trace");
  for (const char *text : {"one", "two"}) {
    ASSERT_EQ(0, TraceToFile(path.c_str()));
    TraceT(0, "p", 1, "%s", text);
    TraceOff();
  }
  EXPECT_THAT(contents_of(path), MatchesRegex("[^\n]* p:1 one\n[^\n]* p:1 two\n"));
  struct stat about {};
  ASSERT_EQ(0, stat(path.c_str(), &about));
  EXPECT_EQ(0600U, about.st_mode & 0777);
}

TEST(Trace, AFileThatCannotBeOpenedChangesNothing) {
  TraceText trace;
  EXPECT_STATUS(CONN_ERR_SYSTEM, TraceToFile("/nowhere/trace"));
  EXPECT_STATUS(CONN_ERR_SYSTEM, TraceToFile(nullptr));
  TraceT(0, "p", 1, "still here");
  EXPECT_THAT(trace.text(), HasSubstr("still here"));
}

TEST(Trace, AStreamGetsEveryLineAtOnce) {
  char *text = nullptr;
  std::size_t length = 0;
  FILE *stream = open_memstream(&text, &length);
  TraceToStream(stream);
  TraceT(0, "p", 1, "line");
  EXPECT_THAT(std::string(text, length), EndsWith(" p:1 line\n"));
  TraceOff();
  fclose(stream);
  free(text);
}

// Whose default action would end this process.
TEST(Trace, AReaderThatHasGoneRaisesNoSignal) {
  struct sigaction default_action {};
  default_action.sa_handler = SIG_DFL;
  sigaction(SIGPIPE, &default_action, nullptr);
  int ends[2];
  ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
  const std::string path = "/dev/fd/" + std::to_string(ends[1]);
  FILE *stream = fdopen(ends[1], "w");
  ASSERT_EQ(0, TraceToFile(path.c_str()));
  close(ends[0]);
  TraceT(0, "p", 1, "into the file");
  TraceToStream(stream);
  DumpBuffer(0, "p", 1, "into", 4, "the stream");
  TraceOff();
  sigset_t pending;
  sigpending(&pending);
  EXPECT_FALSE(sigismember(&pending, SIGPIPE));
  sigset_t mask;
  pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  EXPECT_FALSE(sigismember(&mask, SIGPIPE));
  __fpurge(stream);
  fclose(stream);
}

TEST(Trace, LeavesASignalPendingThatWasSo) {
  sigset_t broken_pipe;
  sigemptyset(&broken_pipe);
  sigaddset(&broken_pipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &broken_pipe, nullptr);
  raise(SIGPIPE);
  TemporaryFolder folder;
  ASSERT_EQ(0, TraceToFile(folder.path("trace").c_str()));
  TraceT(0, "p", 1, "x");
  TraceOff();
  const timespec at_once{};
  EXPECT_EQ(SIGPIPE, sigtimedwait(&broken_pipe, nullptr, &at_once));
  pthread_sigmask(SIG_UNBLOCK, &broken_pipe, nullptr);
}

std::string dump(const std::string &bytes, const char *label) {
  TraceText trace;
  DumpBuffer(0, "p", 1, bytes.data(), static_cast<int>(bytes.size()), label);
  return trace.text().substr(trace.text().find("p:1 ") + 4);
}

TEST(Dump, ShowsOffsetDigitsAndText) {
  EXPECT_EQ(
      "caReqBuf (18 bytes)\n"
      "    0000  30 30 30 31 33 31 30 31  35 00 0a ff 41 42 43 44  |000131015...ABCD|\n"
      "    0010  45 46                                             |EF|\n",
      dump(std::string("000131015\0\n\xff"
                       "ABCDEF",
                       18),
           "caReqBuf"));
}

TEST(Dump, WithoutBytesIsTheLabelAlone) {
  EXPECT_EQ("label (0 bytes)\n", dump("", "label"));
  TraceText trace;
  DumpBuffer(0, "p", 1, "abc", -5, "negative");
  DumpBuffer(0, "p", 1, nullptr, 5, "null");
  EXPECT_THAT(trace.text(), MatchesRegex("[^\n]* negative \\(0 bytes\\)\n[^\n]* null \\(0 bytes\\)\n"));
}

TEST(Dump, KeyValuesAreMasked) {
  for (const char *label : {"Key Value", "KeyValue", "Key value", "caKeyValue"}) {
    EXPECT_EQ(std::string(label) + " (6 bytes)\n    ******** 6 secret bytes\n", dump("secret", label));
  }
}

TEST(Dump, AnImportRequestIsMaskedFromItsKeyValueOn) {
  std::string request = "009081023" + std::string(648, ' ') + std::string(256, 'S');
  std::string text = dump(request, "caReqBuf");
  EXPECT_THAT(text, HasSubstr("\n    0290  20   "));
  EXPECT_THAT(text, EndsWith("\n    ******** 256 secret bytes\n"));
  EXPECT_THAT(text, Not(HasSubstr("53")));
  // Another transaction of the same length holds nothing secret.
  EXPECT_THAT(dump("009081024" + request.substr(9), "caReqBuf"), HasSubstr("53 53 53"));
}

TEST(Dump, SecretsAreShownOnRequest) {
  TraceRevealSecrets(1);
  std::string text = dump("secret", "Key Value");
  TraceRevealSecrets(0);
  EXPECT_THAT(text, HasSubstr("|secret|"));
}

}  // namespace
}  // namespace tests
