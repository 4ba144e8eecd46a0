// Named servers in the user's configuration folder.
#include <signal.h>
#include <sys/stat.h>

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

// The user's folder is the directory in which the command runs.
class Contexts : public CommandTest {
 protected:
  Invocation invocation(std::vector<std::string> arguments) const override {
    Invocation made = CommandTest::invocation(std::move(arguments));
    made.environment = {{"XDG_CONFIG_HOME", files_.path()}};
    return made;
  }
  Outcome vesk_with(const std::string &variable, const std::string &value, std::vector<std::string> arguments) const {
    Invocation made = invocation(std::move(arguments));
    made.environment[variable] = value;
    return vesk(made);
  }
  using CommandTest::vesk;

  void add(const std::string &name, const std::string &host, const std::vector<std::string> &options = {}) const {
    std::vector<std::string> arguments = {"context",        "add",         name, "--host", host, "--port", "4000",
                                          "--certificates", "/etc/" + name};
    arguments.insert(arguments.end(), options.begin(), options.end());
    ASSERT_EQ(vesk(arguments).exit_code, 0);
  }
  std::string host_of(const std::vector<std::string> &options) const {
    std::vector<std::string> arguments = {"context", "show", "--output", "json"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return document_in(vesk(arguments)).at("host").at("value");
  }

  const std::string file_ = files_.path("vesk/contexts.toml");
};

class ServedContexts : public ServedCommandTest {};

TEST_F(ServedContexts, LeadToTheServer) {
  Invocation made = invocation({"context", "add", "dev", "--host", "127.0.0.1", "--port", server_.port(),
                                "--certificates", server_files_.path("d")});
  made.environment = {{"HOME", files_.path()}};
  EXPECT_THAT(vesk(made), Ends(0, StrEq("added context dev, which is the current one\n"), IsEmpty()));
  made.arguments = {"ping"};
  EXPECT_THAT(vesk(made), Ends(0, HasSubstr("answers"), IsEmpty()));
  EXPECT_EQ(names_in(files_.path(".config/vesk")), std::vector<std::string>{"contexts.toml"});
}

TEST_F(Contexts, AreInAFileForTheUserAlone) {
  add("west", "kms-west.example");
  struct stat file {};
  ASSERT_EQ(stat(file_.c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 0777, 0600u);
  ASSERT_EQ(stat(files_.path("vesk").c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 0777, 0700u);
  EXPECT_THAT(contents_of(file_), AllOf(HasSubstr("current = 'west'"), HasSubstr("host = 'kms-west.example'")));
}

TEST_F(Contexts, AreListedUsedAndRemoved) {
  add("west", "kms-west.example");
  add("east", "kms-east.example");
  EXPECT_THAT(vesk({"context", "list"}), Ends(0,
                                              StrEq("  east  kms-east.example port 4000, /etc/east\n"
                                                    "* west  kms-west.example port 4000, /etc/west\n"),
                                              IsEmpty()));
  EXPECT_THAT(vesk({"context", "use", "east"}), Ends(0, StrEq("context east is the current one\n"), IsEmpty()));
  EXPECT_EQ(host_of({}), "kms-east.example");
  EXPECT_THAT(vesk({"context", "remove", "east"}),
              Ends(0, StrEq("removed context east; its certificate files stay\n"), IsEmpty()));
  const json document = document_in(vesk({"context", "list", "--output", "json"}));
  EXPECT_EQ(document.at("contexts"), json::array({{{"name", "west"},
                                                   {"current", false},
                                                   {"host", "kms-west.example"},
                                                   {"port", "4000"},
                                                   {"certificates", "/etc/west"}}}));
}

TEST_F(Contexts, AFlagComesFirstThenTheEnvironmentThenTheContextThenTheDefault) {
  add("west", "kms-west.example", {"--key", "west-key.pem"});
  add("east", "kms-east.example");
  EXPECT_THAT(vesk_with("VESK_PORT", "5000", {"context", "show", "--host", "kms.example"}),
              Ends(0,
                   StrEq("context       west\n"
                         "host          kms.example  (--host)\n"
                         "port          5000  (VESK_PORT)\n"
                         "certificates  /etc/west  (context west)\n"
                         "authority     authority.pem  (default)\n"
                         "certificate   client.pem  (default)\n"
                         "key           west-key.pem  (context west)\n"),
                   IsEmpty()));
  EXPECT_EQ(host_of({"--context", "east"}), "kms-east.example");
  EXPECT_EQ(host_of({"east"}), "kms-east.example");
  EXPECT_THAT(vesk_with("VESK_CONTEXT", "east", {"context", "show"}),
              Ends(0, StartsWith("context       east"), IsEmpty()));
  EXPECT_THAT(vesk_with("VESK_HOST", "other.example", {"context", "show", "--context", "east"}),
              Ends(0, HasSubstr("other.example  (VESK_HOST)"),
                   StrEq("warning: VESK_HOST is set and comes before context east\n")));
}

// The key of one server must not be looked for among the files of another.
TEST_F(Contexts, NamesOfFilesBelongToTheirDirectory) {
  add("west", "kms-west.example", {"--key", "west-key.pem"});
  const json document = document_in(vesk({"context", "show", "--certificates", "/etc/other", "--output", "json"}));
  EXPECT_EQ(document.at("key"), json({{"value", "client-key.pem"}, {"from", "default"}}));
  EXPECT_EQ(document.at("host").at("from"), "context west");
}

TEST_F(Contexts, ADirectoryIsKeptFromTheRoot) {
  EXPECT_EQ(vesk({"context", "add", "here", "--host", "h", "--port", "1", "--certificates", "./keys/"}).exit_code, 0);
  const json document = document_in(vesk({"context", "show", "--output", "json"}));
  EXPECT_EQ(document.at("certificates").at("value"), files_.path("keys"));
}

TEST_F(Contexts, WhatCannotBeMeantIsRefused) {
  add("west", "kms-west.example");
  const std::string before = contents_of(file_);
  EXPECT_THAT(vesk({"context", "add", "west", "--host", "h", "--port", "1", "--certificates", "c"}),
              Ends(2, IsEmpty(), StartsWith("vesk: context add: there is a context west already\nhint: ")));
  EXPECT_THAT(vesk({"context", "add", "east", "--host", "h"}), Ends(2, IsEmpty(), HasSubstr("not given: the port")));
  EXPECT_THAT(vesk({"context", "use", "east"}),
              Ends(2, IsEmpty(),
                   StrEq("vesk: context use: there is no context 'east'\nhint: which there are: vesk context list\n")));
  EXPECT_THAT(vesk({"ping", "--context", "east"}), Ends(2, IsEmpty(), HasSubstr("there is no context 'east'")));
  EXPECT_EQ(contents_of(file_), before);
  EXPECT_EQ(
      vesk({"context", "add", "west", "--host", "h", "--port", "1", "--certificates", "c", "--replace"}).exit_code, 0);
  EXPECT_EQ(host_of({}), "h");
}

TEST_F(Contexts, ADamagedFileIsNamedAndLeftAlone) {
  std::filesystem::create_directory(files_.path("vesk"));
  write_file(file_, "current = \"west\"\n[contexts\n");
  EXPECT_THAT(vesk({"ping"}), Ends(1, IsEmpty(), StartsWith("vesk: ping: " + file_ + ": line 2: ")));
  write_file(file_, "[contexts]\nwest = 1\n");
  EXPECT_THAT(vesk({"context", "add", "east", "--host", "h", "--port", "1", "--certificates", "c"}),
              Ends(1, IsEmpty(), HasSubstr(file_ + ": context west is no table")));
  EXPECT_EQ(contents_of(file_), "[contexts]\nwest = 1\n");
}

// veskd dev --context has the command make it.
class ServersOfContexts : public Contexts {
 protected:
  // Until the server has shown the words.
  Outcome serve_until(const std::string &words, const std::string &path) const {
    Invocation made = invocation({"dev", "--dir", files_.path("d"), "--context", "here"});
    made.environment["PATH"] = path;
    made.standard_output = Stream::kTerminal;
    made.signal = SIGTERM;
    made.signal_when = words;
    return run_program(VESKD_PROGRAM, made);
  }
};

TEST_F(ServersOfContexts, AServerIsMadeAContext) {
  const std::string folder = std::filesystem::path(VESK_PROGRAM).parent_path();
  add("here", "other.example");
  const Outcome served = serve_until("added context here, which is the current one", folder);
  EXPECT_EQ(served.exit_code, 0);
  EXPECT_THAT(served.terminal, testing::Not(HasSubstr("vesk context add")));
  EXPECT_EQ(host_of({}), "127.0.0.1");
}

TEST_F(ServersOfContexts, WithoutTheCommandItIsShownWhatToType) {
  const Outcome served = serve_until(" --use", "/nowhere");
  EXPECT_EQ(served.exit_code, 0);
  EXPECT_THAT(served.terminal, HasSubstr("vesk context add here --host 127.0.0.1 --port "));
  EXPECT_THAT(served.err, HasSubstr("vesk has not made the context here"));
}

}  // namespace
}  // namespace command_test
