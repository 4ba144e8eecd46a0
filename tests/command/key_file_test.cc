// Where key values go, and where they never go.
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "tests/command/command_test.h"

namespace command_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StrEq;

class KeyFiles : public ServedCommandTest {
 protected:
  void SetUp() override { ASSERT_EQ(vesk({"key", "create", "K1"}).exit_code, 0); }

  // The 32 bytes of K1.
  std::string value() const { return vesk({"key", "get", "K1", "--out", "-"}).out; }

  unsigned mode_of(const std::string &name) const {
    struct stat file {};
    EXPECT_EQ(lstat(files_.path(name).c_str(), &file), 0);
    return file.st_mode & 07777;
  }
};

std::string hex_of(const std::string &bytes) {
  std::string digits;
  for (unsigned char byte : bytes) {
    digits += "0123456789ABCDEF"[byte >> 4];
    digits += "0123456789ABCDEF"[byte & 15];
  }
  return digits;
}

std::string base64_of(const std::string &bytes) {
  constexpr const char *kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  unsigned bits = 0;
  unsigned num_bits = 0;
  for (unsigned char byte : bytes) {
    bits = bits << 8 | byte;
    for (num_bits += 8; num_bits >= 6; num_bits -= 6) text += kDigits[bits >> (num_bits - 6) & 63];
  }
  if (num_bits > 0) text += kDigits[bits << (6 - num_bits) & 63];
  while (text.size() % 4 != 0) text += '=';
  return text;
}

TEST_F(KeyFiles, AFileHoldsTheBytesOfTheKeyForItsOwnerAlone) {
  const mode_t before = umask(0);
  EXPECT_THAT(vesk({"key", "get", "K1", "--out", "k1.key"}), Ends(0, HasSubstr("written to    k1.key\n"), IsEmpty()));
  umask(before);
  EXPECT_EQ(mode_of("k1.key"), 0600U);
  EXPECT_EQ(contents_of(files_.path("k1.key")).size(), 32U);
  EXPECT_EQ(contents_of(files_.path("k1.key")), value());
  EXPECT_THAT(names_in(files_.path()), ElementsAre("k1.key"));
}

TEST_F(KeyFiles, ThePipeGetsTheBytesAndNothingElse) {
  const Outcome outcome = vesk({"key", "get", "K1", "--out", "-"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.out.size(), 32U);
  EXPECT_EQ(outcome.err, "");
}

TEST_F(KeyFiles, TheTextFormsSayTheSameBytes) {
  const std::string bytes = value();
  EXPECT_THAT(vesk({"key", "get", "K1", "--out", "-", "--hex"}), Ends(0, StrEq(hex_of(bytes) + "\n"), IsEmpty()));
  EXPECT_THAT(vesk({"key", "get", "K1", "--out", "-", "--base64"}), Ends(0, StrEq(base64_of(bytes) + "\n"), IsEmpty()));
  vesk({"key", "get", "K1", "--out", "k1.hex", "--hex"});
  EXPECT_EQ(contents_of(files_.path("k1.hex")), hex_of(bytes) + "\n");
  EXPECT_EQ(mode_of("k1.hex"), 0600U);
  EXPECT_THAT(vesk({"key", "get", "K1", "--out", "-", "--base64", "--hex"}),
              Ends(2, IsEmpty(), HasSubstr("--hex excludes --base64")));
}

TEST_F(KeyFiles, TheDocumentNamesTheFile) {
  const Outcome outcome = vesk({"key", "get", "K1", "--out", "k1.key", "--output", "json"});
  EXPECT_EQ(document_in(outcome).at("file"), "k1.key");
}

TEST_F(KeyFiles, AFileThatIsThereIsLeftAloneWithoutForce) {
  write_file(files_.path("k1.key"), "kept");
  EXPECT_THAT(vesk({"key", "get", "K1", "--out", "k1.key"}),
              Ends(1, IsEmpty(),
                   StrEq("vesk: key get: k1.key exists already and was left as it is\n"
                         "hint: give another name, or replace it with --force\n")));
  EXPECT_EQ(contents_of(files_.path("k1.key")), "kept");
  EXPECT_EQ(vesk({"key", "get", "K1", "--out", "k1.key", "--force"}).exit_code, 0);
  EXPECT_EQ(contents_of(files_.path("k1.key")), value());
  EXPECT_EQ(mode_of("k1.key"), 0600U);
  EXPECT_THAT(names_in(files_.path()), ElementsAre("k1.key"));
}

TEST_F(KeyFiles, ForceReplacesNothingButFiles) {
  write_file(files_.path("target"), "kept");
  ASSERT_EQ(symlink("target", files_.path("link").c_str()), 0);
  EXPECT_THAT(vesk({"key", "get", "K1", "--out", "link", "--force"}),
              Ends(1, IsEmpty(), StrEq("vesk: key get: link is not a regular file and was left as it is\n")));
  EXPECT_EQ(contents_of(files_.path("target")), "kept");
  EXPECT_THAT(vesk({"key", "get", "K1", "--out", files_.path(), "--force"}),
              Ends(1, IsEmpty(), HasSubstr("is not a regular file")));
}

TEST_F(KeyFiles, ADirectoryThatIsNotThereIsSaidAtOnce) {
  EXPECT_THAT(vesk({"key", "get", "K1", "--out", "nowhere/k1.key"}),
              Ends(1, IsEmpty(), StrEq("vesk: key get: cannot create nowhere/k1.key: No such file or directory\n")));
}

TEST_F(KeyFiles, AFailedCallLeavesNoFile) {
  EXPECT_EQ(vesk({"key", "get", "K2", "--out", "k2.key"}).exit_code, 4);
  EXPECT_THAT(names_in(files_.path()), IsEmpty());
}

TEST_F(KeyFiles, ADirectoryThatTheUserMayNotWriteIsSaidAtOnce) {
  Invocation other = invocation({"key", "get", "K1", "--out", "k1.key"});
  if (geteuid() == 0) {
    constexpr uid_t kNobody = 65534;
    other.user = kNobody;
    other.directory = "/";
  } else {
    ASSERT_EQ(chmod(files_.path().c_str(), 0500), 0);
  }
  EXPECT_THAT(vesk(other), Ends(1, IsEmpty(), StrEq("vesk: key get: cannot create k1.key: Permission denied\n")));
}

TEST_F(KeyFiles, RawBytesAreNotWrittenToATerminal) {
  Invocation terminal = invocation({"key", "get", "K1", "--out", "-"});
  terminal.standard_output = Stream::kTerminal;
  const Outcome outcome = vesk(terminal);
  EXPECT_THAT(outcome, Ends(2, IsEmpty(),
                            StrEq("vesk: key get: the raw bytes of a key are not written to a terminal\n"
                                  "hint: add --hex or --base64, or write them to a file: --out FILE\n")));
  EXPECT_EQ(outcome.terminal, "");
}

TEST_F(KeyFiles, TextFormsMayBeWrittenToATerminal) {
  Invocation terminal = invocation({"key", "get", "K1", "--out", "-", "--hex"});
  terminal.standard_output = Stream::kTerminal;
  const Outcome outcome = vesk(terminal);
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.terminal, hex_of(value()) + "\n");
}

TEST_F(KeyFiles, TheValueIsInNoTraceAndNoMessage) {
  const std::string bytes = value();
  const std::vector<std::vector<std::string>> commands = {
      {"key", "get", "K1", "--trace", "trace"},
      {"key", "get", "K1", "--out", "k1.key", "--trace", "trace"},
      {"key", "get", "K1", "--out", "k1.key", "--trace", "trace"},  // fails: the file exists
  };
  std::string seen;
  for (const std::vector<std::string> &command : commands) {
    const Outcome outcome = vesk(command);
    seen += outcome.out + outcome.err;
  }
  seen += vesk({"key", "get", "K1", "--trace", "-"}).err + contents_of(files_.path("trace"));
  // The trace was on, and the bytes would be found if they were there.
  EXPECT_THAT(seen, HasSubstr("F: RetrieveKey"));
  EXPECT_THAT(seen, Not(HasSubstr(bytes)));
  EXPECT_THAT(seen, Not(HasSubstr(bytes.substr(0, 8))));
  for (const std::size_t begin : {0U, 8U, 16U, 24U}) {
    const std::string part = hex_of(bytes.substr(begin, 4));
    std::string spaced;
    for (std::size_t i = 0; i < part.size(); i += 2) spaced += (i ? " " : "") + part.substr(i, 2);
    for (std::string text : {part, spaced}) {
      EXPECT_THAT(seen, Not(HasSubstr(text)));
      for (char &character : text) character = static_cast<char>(std::tolower(character));
      EXPECT_THAT(seen, Not(HasSubstr(text)));
    }
  }
  EXPECT_EQ(mode_of("trace"), 0600U);
}

}  // namespace
}  // namespace command_test
