// What is refused before anything is sent: exit code 2 and a message that says what to do.
#include "tests/command/command_test.h"

namespace command_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testing::StrEq;

const std::string kForty(40, 'k');
const std::string kFortyOne(41, 'k');

// Leads to a port on which nobody is asked in these tests.
class Usage : public CommandTest {
 protected:
  Invocation invocation(std::vector<std::string> arguments) const override {
    Invocation made = CommandTest::invocation(std::move(arguments));
    made.environment = {{"VESK_HOST", "127.0.0.1"}, {"VESK_PORT", "1"}, {"VESK_CERTIFICATES", files_.path()}};
    return made;
  }
};

struct Case {
  const char *name;
  std::vector<std::string> arguments;
  std::string err;
};

TEST_F(Usage, WhatCannotBeMeantIsRefusedAndNamed) {
  const std::string long_directory(86, 'd');
  const std::vector<Case> cases = {
      {"no command", {}, "vesk: a subcommand is required\nhint: vesk --help\n"},
      {"no such command", {"bogus"}, "vesk: there is no command 'bogus'\nhint: vesk --help\n"},
      {"no such command of a group",
       {"key", "bogus"},
       "vesk: key: there is no command 'bogus'\nhint: vesk key --help\n"},
      {"no name", {"key", "get"}, "vesk: key get: NAME is required\nhint: vesk key get --help\n"},
      {"a name too many",
       {"key", "get", "K1", "K2"},
       "vesk: key get: the following argument was not expected: K2\nhint: vesk key get --help\n"},
      {"a form without --out",
       {"key", "get", "K1", "--hex"},
       "vesk: key get: --hex requires --out\nhint: vesk key get --help\n"},
      {"an empty key name", {"key", "create", ""}, "vesk: key create: the key name is empty\n"},
      {"a key name of 41 bytes",
       {"key", "create", kFortyOne},
       "vesk: key create: the key name " + kFortyOne + " is 41 bytes long; at most 40 are allowed\n"},
      {"a key name with an escape character",
       {"key", "get", "a\x1b[31m"},
       "vesk: key get: the key name a\\x1b[31m holds a control character\n"},
      {"a key name that ends in a blank",
       {"key", "delete", "K ", "--yes"},
       "vesk: key delete: the key name 'K ' ends in a blank\n"
       "hint: the protocol fills names up with blanks: give it without\n"},
      {"an empty instance", {"key", "get", "K", "--instance", ""}, "vesk: key get: the instance is empty\n"},
      {"an instance of 25 bytes",
       {"key", "get", "K", "--instance", std::string(25, 'i')},
       "vesk: key get: the instance " + std::string(25, 'i') + " is 25 bytes long; at most 24 are allowed\n"},
      {"a constant of 14 bytes",
       {"key", "next", "fourteen-bytes"},
       "vesk: key next: the template constant fourteen-bytes is 14 bytes long; it must have exactly 15\n"},
      {"a constant of 16 bytes",
       {"template", "depth", "sixteen-bytes-16"},
       "vesk: template depth: the template constant sixteen-bytes-16 is 16 bytes long; it must have exactly 15\n"},
      {"more keys than five digits count",
       {"template", "generate", "fifteen-bytes-1", "--count", "100000"},
       "vesk: template generate: the count '100000' is not a number from 1 to 99999\n"
       "hint: for more than 99999 keys run it again with --add\n"},
      {"no keys at all",
       {"template", "generate", "fifteen-bytes-1", "--count", "0"},
       "vesk: template generate: the count '0' is not a number from 1 to 99999\n"
       "hint: for more than 99999 keys run it again with --add\n"},
      {"an increment of seven digits",
       {"template", "set-next", "fifteen-bytes-1", "0x1000000"},
       "vesk: template set-next: the increment '0x1000000' is not a number from 0x0 to 0xFFFFFF\n"
       "hint: decimal as it is, hexadecimal behind 0x; an increment has six hexadecimal digits\n"},
      {"a host name of 41 bytes",
       {"ping", "--host", kFortyOne},
       "vesk: ping: the host name " + kFortyOne + " is 41 bytes long; at most 40 are allowed\n"},
      {"a host with its port",
       {"ping", "--host", "127.0.0.1:4000"},
       "vesk: ping: the host '127.0.0.1:4000' is neither a name nor an address\n"
       "hint: give it alone, an IPv6 address without brackets, and the port with --port PORT (VESK_PORT)\n"},
      {"an IPv6 address in brackets",
       {"ping", "--host", "[::1]"},
       "vesk: ping: the host '[::1]' is neither a name nor an address\n"
       "hint: give it alone, an IPv6 address without brackets, and the port with --port PORT (VESK_PORT)\n"},
      {"a URL",
       {"ping", "--host", "https://kms.example"},
       "vesk: ping: the host 'https://kms.example' is neither a name nor an address\n"
       "hint: give it alone, an IPv6 address without brackets, and the port with --port PORT (VESK_PORT)\n"},
      {"a flag with a value that is none",
       {"key", "create", "K1", "--mirror=maybe"},
       "vesk: key create: a flag is true or false: --mirror = maybe\nhint: vesk key create --help\n"},
      {"an option without its value",
       {"key", "get", "K1", "--out"},
       "vesk: key get: --out: FILE missing\nhint: vesk key get --help\n"},
      {"port 0",
       {"ping", "--port", "0"},
       "vesk: ping: the port '0' is not a number from 1 to 65535\nhint: give it with --port PORT or in VESK_PORT\n"},
      {"port 65536",
       {"ping", "--port", "65536"},
       "vesk: ping: the port '65536' is not a number from 1 to 65535\nhint: give it with --port PORT or in "
       "VESK_PORT\n"},
      {"a port with something behind it",
       {"ping", "--port", "4000x"},
       "vesk: ping: the port '4000x' is not a number from 1 to 65535\nhint: give it with --port PORT or in "
       "VESK_PORT\n"},
      {"a certificate path of 101 bytes",
       {"ping", "--certificates", long_directory},
       "vesk: ping: the certificate path " + long_directory +
           "/client-key.pem is 101 bytes long; at most 100 are allowed\n"
           "hint: change to a directory nearby and give a relative path, or use a symbolic link\n"},
      {"an output form that there is not",
       {"ping", "--output", "xml"},
       "vesk: ping: --output xml is none of table, json, plain, csv\n"},
      {"value and document both on standard output",
       {"key", "get", "K", "--out", "-", "--output", "json"},
       "vesk: key get: --out - is for --output table: both would have standard output\n"
       "hint: write the value to a file: --out FILE\n"},
      {"an empty file name",
       {"key", "get", "K", "--out", ""},
       "vesk: key get: the name of the file to write is empty\n"},
      {"a deletion that nobody can be asked about",
       {"key", "delete", "K"},
       "vesk: key delete: there is no terminal to ask for confirmation on; nothing was deleted\n"
       "hint: add --yes if you are sure\n"},
      {"a removal that nobody can be asked about",
       {"template", "remove", "fifteen-bytes-1"},
       "vesk: template remove: there is no terminal to ask for confirmation on; nothing was removed\n"
       "hint: add --yes if you are sure\n"},
  };
  for (const Case &one : cases) {
    SCOPED_TRACE(one.name);
    EXPECT_THAT(vesk(one.arguments), Ends(2, IsEmpty(), StrEq(one.err)));
  }
}

TEST_F(Usage, EveryCommandMeasuresTheNameThatItIsGiven) {
  const std::string short_constant = "fourteen-bytes";
  const std::vector<std::vector<std::string>> of_keys = {{"key", "create", kFortyOne},
                                                         {"key", "get", kFortyOne},
                                                         {"key", "policy", kFortyOne},
                                                         {"key", "make-deletable", kFortyOne},
                                                         {"key", "delete", "K1", kFortyOne},
                                                         {"metadata", "get", kFortyOne},
                                                         {"metadata", "set", kFortyOne, "--md", "1=tape"}};
  for (const std::vector<std::string> &command : of_keys) {
    EXPECT_THAT(vesk(command), Ends(2, IsEmpty(), HasSubstr(" is 41 bytes long; at most 40 are allowed\n")))
        << command[1];
  }
  const std::vector<std::vector<std::string>> of_templates = {{"key", "next", short_constant},
                                                              {"template", "generate", short_constant, "--count", "1"},
                                                              {"template", "depth", short_constant},
                                                              {"template", "set-next", short_constant, "1"},
                                                              {"template", "remove", short_constant}};
  for (const std::vector<std::string> &command : of_templates) {
    EXPECT_THAT(vesk(command), Ends(2, IsEmpty(), HasSubstr(" is 14 bytes long; it must have exactly 15\n")))
        << command[1];
  }
}

// Just inside every limit: the next thing that is wrong is that nothing answers, or that there are no certificates.
TEST_F(Usage, WhatJustFitsIsNotRefused) {
  const std::vector<Case> cases = {
      {"a key name of 40 bytes", {"key", "get", kForty}, {}},
      {"an instance of 24 bytes", {"key", "get", "K", "--instance", std::string(24, 'i')}, {}},
      {"a constant of 15 bytes", {"template", "depth", "fifteen-bytes-1"}, {}},
      {"99999 keys", {"template", "generate", "fifteen-bytes-1", "--count", "99999"}, {}},
      {"the last increment", {"template", "set-next", "fifteen-bytes-1", "16777215"}, {}},
      {"the last increment, hexadecimal", {"template", "set-next", "fifteen-bytes-1", "0xFFFFFF"}, {}},
      {"a host name of 40 bytes", {"ping", "--host", kForty}, {}},
      {"an IPv6 address with an interface", {"ping", "--host", "fe80::1%eth0"}, {}},
      {"a certificate path of 100 bytes", {"ping", "--certificates", std::string(85, 'd')}, {}},
      {"port 65535", {"ping", "--port", "65535"}, {}},
  };
  for (const Case &one : cases) {
    SCOPED_TRACE(one.name);
    EXPECT_THAT(vesk(one.arguments), Ends(5, IsEmpty(), HasSubstr("(CONN_ERR_AUTHORITY_MISSING 30020)")));
  }
}

TEST_F(CommandTest, EverythingThatIsNotGivenIsNamedAtOnce) {
  EXPECT_THAT(vesk({"ping"}),
              Ends(2, IsEmpty(),
                   StrEq("vesk: ping: not given: the host, the port, the certificate directory\n"
                         "hint: give --host HOST (or set VESK_HOST); --port PORT (VESK_PORT); --certificates DIR "
                         "(VESK_CERTIFICATES); or once for all: vesk context add --help\n")));
  EXPECT_THAT(vesk({"ping", "--host", "h", "--certificates", "d"}),
              Ends(2, IsEmpty(),
                   StrEq("vesk: ping: not given: the port\nhint: give --port PORT (VESK_PORT); or once for all: vesk "
                         "context add --help\n")));
}

TEST_F(CommandTest, HelpIsOnStandardOutputAtEveryLevel) {
  EXPECT_THAT(vesk({"--help"}), Ends(0,
                                     AllOf(HasSubstr("Usage: vesk [OPTIONS] COMMAND"), HasSubstr("Exit codes:"),
                                           HasSubstr("  6    a time-out ran out")),
                                     IsEmpty()));
  for (const std::string group : {"server", "key", "template", "database"}) {
    EXPECT_THAT(vesk({group, "--help"}), Ends(0, HasSubstr("Usage: vesk " + group + " [OPTIONS] COMMAND"), IsEmpty()));
  }
  const std::vector<std::vector<std::string>> commands = {{"ping"},
                                                          {"server", "certificates"},
                                                          {"key", "create"},
                                                          {"key", "get"},
                                                          {"key", "next"},
                                                          {"key", "policy"},
                                                          {"key", "delete"},
                                                          {"key", "make-deletable"},
                                                          {"template", "generate"},
                                                          {"template", "list"},
                                                          {"template", "depth"},
                                                          {"template", "set-next"},
                                                          {"template", "remove"},
                                                          {"key", "import"},
                                                          {"key", "export"},
                                                          {"certificate", "import"},
                                                          {"certificate", "export"},
                                                          {"certificate", "delete"},
                                                          {"certificate", "list"},
                                                          {"private-key", "import"},
                                                          {"private-key", "delete"},
                                                          {"private-key", "list"},
                                                          {"context", "add"},
                                                          {"context", "list"},
                                                          {"context", "use"},
                                                          {"context", "show"},
                                                          {"context", "remove"},
                                                          {"database", "create"},
                                                          {"decode"}};
  for (std::vector<std::string> command : commands) {
    std::string words = "vesk";
    for (const std::string &word : command) words += " " + word;
    SCOPED_TRACE(words);
    command.push_back("--help");
    EXPECT_THAT(vesk(command), Ends(0,
                                    AllOf(HasSubstr("Usage: " + words + " [OPTIONS]"), HasSubstr("Example"),
                                          HasSubstr("  " + words), HasSubstr("vesk --help")),
                                    IsEmpty()));
  }
}

TEST_F(CommandTest, TheVersionIsOneLine) {
  EXPECT_THAT(vesk({"--version"}), Ends(0, testing::MatchesRegex("vesk [0-9]+\\.[0-9]+\\.[0-9]+\n"), IsEmpty()));
}

}  // namespace
}  // namespace command_test
