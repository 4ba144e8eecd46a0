// Completion, as the real shells do it and as they are answered.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ostream>

#include "tests/command/command_test.h"
#include "vesk/shell_words.h"

namespace command_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StrEq;

class Completion : public ServedCommandTest {
 protected:
  // The words of a line up to the cursor, as a shell passes them on that keeps no part of the last.
  Outcome completed(std::vector<std::string> words) const { return vesk(request(std::move(words))); }

  Invocation request(std::vector<std::string> words) const {
    words.insert(words.begin(), {"complete", "zsh", "", "vesk"});
    return invocation(std::move(words));
  }

  // A busy machine is no slow server.
  Invocation invocation(std::vector<std::string> arguments) const override {
    Invocation made = ServedCommandTest::invocation(std::move(arguments));
    made.environment["VESK_COMPLETION_SECONDS"] = "20";
    return made;
  }

  void create(const std::vector<std::string> &names) const {
    std::string lines;
    for (const std::string &name : names) lines += name + "\n";
    write_file(files_.path("names"), lines);
    ASSERT_EQ(vesk({"key", "create", "--from", files_.path("names")}).exit_code, 0);
  }
};

TEST_F(Completion, OffersWhatTheCommandLineMaySay) {
  EXPECT_THAT(completed({"ke"}),
              Ends(0, StrEq("words\nkey\tCreate, fetch, draw, list, delete and describe keys\n"), IsEmpty()));
  EXPECT_EQ(completed({"key", "ge"}).out, "words\nget\tFetch a key: its facts, or with --out its value\n");
  EXPECT_EQ(completed({"--output", "csv", "key", "pol"}).out, "words\npolicy\tShow the metadata fields of a key\n");
  EXPECT_EQ(completed({"key", "list", "--output", ""}).out, "words\ntable\njson\nplain\ncsv\n");
  EXPECT_EQ(completed({"key", "list", "--output=j"}).out, "words\n--output=json\n");
  EXPECT_EQ(completed({"completion", ""}).out, "words\nbash\nzsh\nfish\n");
  EXPECT_EQ(completed({"help", "private-key", "im"}).out,
            "words\nimport\tSend a private key to the server, which never gives it back\n");
  EXPECT_EQ(completed({"key", "get", "K", "--out", ""}).out, "files\n");
  EXPECT_EQ(completed({"--certificates", "x"}).out, "directories\n");
  EXPECT_EQ(completed({"key", "get", "K", "--instance", ""}).out, "words\n");
  EXPECT_EQ(completed({"bogus", ""}).exit_code, 0);
  // Where nothing else may follow, options do; the inner --certificate is the one that counts.
  EXPECT_THAT(completed({"key", "export", "K", ""}).out,
              AllOf(HasSubstr("--certificate\tthe name of the certificate to wrap under"), HasSubstr("--out\t"),
                    Not(HasSubstr("client certificate's file"))));
}

TEST_F(Completion, LeavesOutOptionsThatAreGivenOrExcluded) {
  EXPECT_THAT(
      completed({"key", "import", "K", "--base64", "--"}).out,
      AllOf(HasSubstr("--hex\t"), HasSubstr("--in\t"), Not(HasSubstr("--base64")), Not(HasSubstr("--wrapped"))));
  EXPECT_EQ(completed({"metadata", "set", "K", "--md", "1=a", "--m"}).out.substr(0, 11), "words\n--md\t");
  EXPECT_EQ(completed({"key", "get", "--", "--o"}).out, "words\n");
}

TEST_F(Completion, OffersNamesOfTheServer) {
  create({"alpha", "alpine", "beta"});
  ASSERT_EQ(vesk({"template", "generate", "tape-library-01", "--count", "1001"}).exit_code, 0);
  ASSERT_EQ(vesk({"mirror", "set", "west", "localhost", "1"}).exit_code, 0);
  EXPECT_THAT(completed({"key", "get", "al"}), Ends(0, StrEq("words\nalpha\nalpine\n"), IsEmpty()));
  EXPECT_EQ(completed({"key", "delete", "alpha", "al"}).out, "words\nalpine\n");
  EXPECT_EQ(completed({"key", "list", "--prefix=be"}).out, "words\n--prefix=beta\n");
  EXPECT_EQ(completed({"key", "next", ""}).out, "words\ntape-library-01\n");
  EXPECT_EQ(completed({"mirror", "status", ""}).out, "words\nwest\n");
  // Too many to choose from, until more is typed.
  EXPECT_EQ(completed({"key", "get", "tape"}).out, "words\n");
  EXPECT_EQ(completed({"key", "get", "tape-library-010003E8"}).out, "words\ntape-library-010003E8\n");
  // What begins with a dash is an option, unless it cannot be one.
  ASSERT_EQ(vesk({"key", "create", "--", "-dash"}).exit_code, 0);
  EXPECT_THAT(completed({"key", "list", "--prefix=-"}).out, "words\n--prefix=-dash\n");
  EXPECT_EQ(completed({"key", "get", "--", "-"}).out, "words\n-dash\n");
  EXPECT_THAT(completed({"key", "get", "-"}).out, Not(HasSubstr("-dash")));
  // A name that there is not yet is nothing to choose.
  EXPECT_EQ(completed({"key", "create", "al"}).out, "words\n");
}

TEST_F(Completion, AsksTheServerThatTheLineMeans) {
  create({"alpha"});
  Invocation invocation = request({"--host", "127.0.0.1", "--port=" + server_.port(), "--certificates",
                                   server_files_.path("d"), "--trace", "trace", "key", "get", "a"});
  invocation.environment = {
      {"VESK_HOST", "elsewhere.invalid"}, {"XDG_CONFIG_HOME", files_.path()}, {"VESK_COMPLETION_SECONDS", "20"}};
  EXPECT_THAT(vesk(invocation), Ends(0, StrEq("words\nalpha\n"), IsEmpty()));
  EXPECT_THAT(names_in(files_.path()), testing::ElementsAre("names"));

  invocation.arguments = {"context",
                          "add",
                          "two words",
                          "--host",
                          "127.0.0.1",
                          "--port",
                          server_.port(),
                          "--certificates",
                          server_files_.path("d")};
  invocation.environment.erase("VESK_HOST");
  ASSERT_EQ(vesk(invocation).exit_code, 0);
  invocation.arguments = request({"--context", ""}).arguments;
  EXPECT_EQ(vesk(invocation).out, "words\ntwo words\n");
  invocation.arguments = request({"--context", "'two words'", "key", "get", ""}).arguments;
  EXPECT_EQ(vesk(invocation).out, "words\nalpha\n");
}

TEST_F(CommandTest, CompletionIsSilentWithoutAServer) {
  Invocation nowhere = invocation({"complete", "zsh", "", "vesk", "key", "get", ""});
  EXPECT_THAT(vesk(nowhere), Ends(0, IsEmpty(), IsEmpty()));
  nowhere.environment = {{"VESK_HOST", "127.0.0.1"}, {"VESK_PORT", "1"}, {"VESK_CERTIFICATES", files_.path()}};
  EXPECT_THAT(vesk(nowhere), Ends(0, IsEmpty(), IsEmpty()));
  EXPECT_THAT(vesk({"complete"}), Ends(0, IsEmpty(), IsEmpty()));
  EXPECT_THAT(vesk({"complete", "bash", ""}), Ends(0, IsEmpty(), IsEmpty()));
}

TEST_F(Completion, DoesNotWaitForAServerThatIsSilent) {
  const int silent = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ASSERT_EQ(bind(silent, reinterpret_cast<sockaddr *>(&address), size), 0);
  ASSERT_EQ(listen(silent, 1), 0);
  ASSERT_EQ(getsockname(silent, reinterpret_cast<sockaddr *>(&address), &size), 0);
  Invocation invocation = request({"key", "get", ""});
  invocation.environment.erase("VESK_COMPLETION_SECONDS");
  invocation.environment["VESK_PORT"] = std::to_string(ntohs(address.sin_port));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_THAT(vesk(invocation), Ends(0, IsEmpty(), IsEmpty()));
  // A command would wait for ten.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(8));
  close(silent);
}

struct Shell {
  const char *name;
  std::vector<std::string> arguments;
  std::string loads;    // the script
  std::string records;  // has vesk note down its arguments in place of running
};

void PrintTo(const Shell &shell, std::ostream *stream) {
  *stream << shell.name;
}

const Shell kShells[] = {
    {"bash",
     {BASH_PROGRAM, "--norc", "--noprofile", "-i"},
     "source <(command vesk completion bash)\n",
     "vesk() { printf '<%s>' \"$@\" >> called; echo >> called; }\n"},
    {"zsh",
     {ZSH_PROGRAM, "-f", "-i"},
     "autoload -U compinit; compinit -D -u; source <(command vesk completion zsh)\n",
     "vesk() { printf '<%s>' \"$@\" >> called; echo >> called; }\n"},
    {"fish",
     {FISH_PROGRAM, "--no-config", "-i"},
     "command vesk completion fish | source\n",
     "function vesk; printf '<%s>' $argv >> called; echo >> called; end\n"},
};

class InShell : public Completion, public testing::WithParamInterface<Shell> {
 protected:
  // Types the lines into the shell on a terminal; returns what vesk was called with, a line for each call.
  std::string calls(const std::vector<std::string> &lines) const {
    Invocation typed = invocation({"--ctty", "--wait"});
    typed.arguments.insert(typed.arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
    typed.environment["PATH"] = std::string(VESK_PROGRAM, std::string_view(VESK_PROGRAM).rfind('/')) + ":/usr/bin:/bin";
    typed.environment["HOME"] = files_.path();
    typed.environment["TERM"] = "dumb";
    typed.environment["LANG"] = "C.UTF-8";
    typed.environment["INPUTRC"] = "/dev/null";
    typed.input = GetParam().loads + GetParam().records;
    for (const std::string &line : lines) typed.input += line + "\n";
    typed.input += "exit\n";
    typed.standard_input = typed.standard_output = typed.standard_error = Stream::kTerminal;
    const Outcome outcome = run_program(SETSID_PROGRAM, typed);
    const std::string called = contents_of(files_.path("called"));
    if (std::ranges::count(called, '\n') != std::ssize(lines)) ADD_FAILURE() << outcome.terminal;
    return called;
  }
};

TEST_P(InShell, CompletesWords) {
  create({"alpha", "alpine", "my key", "my key's", "a\\\\b$c\"d", "x:y:1", "x:y:2", "p=q", "two  blanks"});
  write_file(files_.path("list of names"), "");
  std::filesystem::create_directory(files_.path("a folder"));
  struct Line {
    std::string typed;
    std::string called;
  };
  const std::vector<Line> cases = {
      {"vesk ke\tge\talph\t", "<key><get><alpha>"},
      {"vesk --output csv key ge\talpi\t", "<--output><csv><key><get><alpine>"},
      {"vesk key list --output=pl\t", "<key><list><--output=plain>"},
      {"vesk key list --prefix=alpi\t", "<key><list><--prefix=alpine>"},
      {"vesk key delete alpha alpi\t", "<key><delete><alpha><alpine>"},
      {"vesk key get my\\ key\\'\t", "<key><get><my key's>"},
      {"vesk key get 'my key'\\''\t", "<key><get><my key's>"},
      {"vesk key get \"my key'\t", "<key><get><my key's>"},
      {"vesk key get tw\t", "<key><get><two  blanks>"},
      {"vesk key get 'tw\t", "<key><get><two  blanks>"},
      {"vesk key get two\\ \t", "<key><get><two  blanks>"},
      {"vesk key get a\\\\\t", "<key><get><a\\b$c\"d>"},
      {"vesk key get \"a\\\\\t", "<key><get><a\\b$c\"d>"},
      {"vesk key get x:\t1", "<key><get><x:y:1>"},
      {"vesk key get x:y:2\t", "<key><get><x:y:2>"},
      {"vesk key get p\t", "<key><get><p=q>"},
      {"vesk key get p=\t", "<key><get><p=q>"},
      {"vesk key get alpha --out lis\t", "<key><get><alpha><--out><list of names>"},
      {"vesk key get alpha --out=lis\t", "<key><get><alpha><--out=list of names>"},
      {"vesk key get al --certificates a\\ f\t", "<key><get><al><--certificates><a folder/>"},
      {"vesk --context none key get alph\t", "<--context><none><key><get><alph>"},
      {"vesk key get zz\t", "<key><get><zz>"},
      {"vesk help key lis\t", "<help><key><list>"},
  };
  std::vector<std::string> lines;
  std::string expected;
  for (const Line &line : cases) {
    lines.push_back(line.typed);
    expected += line.called + "\n";
  }
  std::string called = calls(lines);
  // zsh takes the slash away again when the line is entered.
  if (const std::size_t folder = called.find("a folder>"); folder != std::string::npos) called.insert(folder + 8, "/");
  EXPECT_EQ(called, expected);
}

INSTANTIATE_TEST_SUITE_P(Real, InShell, testing::ValuesIn(kShells),
                         [](const auto &shell) { return std::string(shell.param.name); });

TEST(ShellWords, AreReadAndWrittenAsAShellDoes) {
  EXPECT_EQ(command::unquoted(R"(a\ b'c "d'"e '\"f\\\g")"), R"(a bc "de '"f\\g)");
  EXPECT_EQ(command::unquoted("'open \\"), "open \\");
  EXPECT_EQ(command::unquoted("bare\\"), "bare");
  EXPECT_EQ(command::unquoted(""), "");
  EXPECT_EQ(command::quoted_as("", "a b's$x\xc3\xa9"), "a\\ b\\'s\\$x\xc3\xa9");
  EXPECT_EQ(command::quoted_as("'", "a b's"), "a b'\\''s");
  EXPECT_EQ(command::quoted_as("\"", "a b\"`$\\"), "a b\\\"\\`\\$\\\\");
  EXPECT_EQ(command::behind_last_quote("'a'b"), 3u);
  EXPECT_EQ(command::behind_last_quote("a\\'b"), 0u);
}

}  // namespace
}  // namespace command_test
