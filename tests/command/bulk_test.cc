// Files of names, worked off several at a time.
#include <signal.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "tests/command/command_test.h"

namespace command_test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::StrEq;
using testing::UnorderedElementsAre;

class Bulk : public ServedCommandTest {
 protected:
  Outcome create(const std::string &names, const std::vector<std::string> &options = {}) const {
    write_file(files_.path("names"), names);
    std::vector<std::string> arguments = {"key", "create", "--from", "names"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return vesk(arguments);
  }
  std::vector<std::string> keys() const {
    std::vector<std::string> names;
    const json document = document_in(vesk({"key", "list", "--output", "json"}));
    for (const json &key : document.at("keys")) names.push_back(key.at("name"));
    return names;
  }
  bool has_journal() const { return std::filesystem::exists(files_.path("names.journal")); }
};

TEST_F(Bulk, AllNamesOfAFileAreCreated) {
  std::string names;
  std::string lines;
  for (int i = 10; i < 40; ++i) names += "K" + std::to_string(i) + "\n";
  const Outcome outcome = create(names);
  EXPECT_THAT(outcome, Ends(0, HasSubstr("created key K39\n"), StrEq("created key 30 of 30\n")));
  EXPECT_EQ(std::count(outcome.out.begin(), outcome.out.end(), '\n'), 30);
  EXPECT_EQ(keys().size(), 30u);
  EXPECT_FALSE(has_journal());
}

TEST_F(Bulk, AFailureIsNamedAndASecondRunGoesOn) {
  vesk({"key", "create", "K2"});
  const Outcome first = create("K1\nK2\r\n\nK3\n", {"--jobs", "1"});
  EXPECT_THAT(first, Ends(8, StrEq("created key K1\ncreated key K3\n"),
                          AllOf(StartsWith("failed: key K2: a key of that name exists already"),
                                HasSubstr("\nvesk: key create: created key 2 of 3, 1 failed\nhint: run it again"))));
  struct stat file {};
  ASSERT_EQ(stat(files_.path("names.journal").c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 0777, 0600u);
  const Outcome second = create("K1\nK2\nK3\nK4\n", {"--output", "json"});
  EXPECT_EQ(second.exit_code, 8);
  const json document = document_in(second);
  EXPECT_EQ(document.at("done"), 1);
  EXPECT_EQ(document.at("done_before"), 2);
  EXPECT_EQ(document.at("failed"), 1);
  EXPECT_THAT(keys(), ElementsAre("K1", "K2", "K3", "K4"));
}

TEST_F(Bulk, NoneDoneHasTheExitCodeOfTheFailure) {
  vesk({"key", "create", "K1"});
  EXPECT_THAT(create("K1\n"), Ends(3, IsEmpty(), HasSubstr("created key 0 of 1, 1 failed\n")));
  Invocation gone = invocation({"key", "create", "--from", "names", "--jobs", "1", "--port", "1"});
  std::filesystem::remove(files_.path("names.journal"));
  write_file(files_.path("names"), "K2\nK3\n");
  EXPECT_THAT(vesk(gone), Ends(5, IsEmpty(), HasSubstr("created key 0 of 2, 1 failed, 1 not tried\n")));
}

// K1 was done; K2 was on its way when the run ended, and had arrived; the last line was being written.
TEST_F(Bulk, WhatAnEndedRunLeftOpenIsSettled) {
  vesk({"key", "create", "K2"});
  write_file(files_.path("names.journal"), "#vesk key create 127.0.0.1:" + server_.port() + "\n?K1\n+K1\n?K2\n?K3\n+K");
  EXPECT_THAT(create("K1\nK2\nK3\n", {"--jobs", "1"}),
              Ends(0, StrEq("created key K2\ncreated key K3\n"), StrEq("created key 2 of 3, 1 before\n")));
  EXPECT_THAT(keys(), ElementsAre("K2", "K3"));
  EXPECT_FALSE(has_journal());
}

TEST_F(Bulk, AnInterruptedRunIsGoneOnWith) {
  std::string names;
  for (int i = 0; i < 2000; ++i) names += "K" + std::to_string(i) + "\n";
  write_file(files_.path("names"), names);
  Invocation made = invocation({"key", "create", "--from", "names"});
  made.standard_error = Stream::kTerminal;
  made.environment["TERM"] = "xterm";
  made.signal = SIGINT;
  made.signal_when = "key create: ";
  const Outcome outcome = vesk(made);
  EXPECT_EQ(outcome.exit_code, 130);
  EXPECT_THAT(outcome.terminal, AllOf(HasSubstr("\r\x1b[K"), HasSubstr("key create: cancelled by signal 2\n")));
  ASSERT_TRUE(has_journal());
  // The first names of the file are what the run was about: a short rest is enough to see.
  const std::string rest = names.substr(0, names.find("K40\n"));
  EXPECT_THAT(create(rest), Ends(0, testing::_, StartsWith("created key ")));
  EXPECT_GE(keys().size(), 40u);
}

TEST_F(Bulk, AJournalOfAnotherTaskIsNotTouched) {
  write_file(files_.path("names.journal"), "#vesk key delete kms.example:4000\n+K1\n");
  EXPECT_THAT(create("K1\n"), Ends(2, IsEmpty(), HasSubstr("names.journal is of another task: #vesk key delete")));
  EXPECT_EQ(contents_of(files_.path("names.journal")), "#vesk key delete kms.example:4000\n+K1\n");
  EXPECT_THAT(keys(), IsEmpty());
}

TEST_F(Bulk, AFileThatCannotBeMeantSendsNothing) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", "the file names nothing"},
      {"K1\nK1\n", "entry 2: K1 is there twice"},
      {"K1\n" + std::string(41, 'k') + "\n", "entry 2: the key name "},
      {"a\\b\n", "has a lone backslash"},
  };
  for (const auto &[names, message] : cases) EXPECT_THAT(create(names), Ends(2, IsEmpty(), HasSubstr(message)));
  write_file(files_.path("n.csv"), "name,size\nK1,256\n");
  EXPECT_THAT(vesk({"key", "create", "--from", "n.csv"}), Ends(2, IsEmpty(), HasSubstr("there is no column 'size'")));
  write_file(files_.path("n.csv"), "name,mirror\nK1,maybe\n");
  EXPECT_THAT(vesk({"key", "create", "--from", "n.csv"}), Ends(2, IsEmpty(), HasSubstr("neither true nor false")));
  write_file(files_.path("n.json"), "{\"name\": 1");
  EXPECT_THAT(vesk({"key", "create", "--from", "n.json"}), Ends(2, IsEmpty(), HasSubstr("the file holds no JSON")));
  // Each level takes a call: without a bound the stack ends first.
  write_file(files_.path("n.json"), std::string(200000, '[') + std::string(200000, ']'));
  EXPECT_THAT(vesk({"key", "create", "--from", "n.json"}), Ends(2, IsEmpty(), HasSubstr("more than 16 levels deep")));
  EXPECT_THAT(vesk({"key", "create", "K1", "--from", "names"}), Ends(2, IsEmpty(), HasSubstr("give either NAME or")));
  EXPECT_THAT(vesk({"key", "create"}), Ends(2, IsEmpty(), StartsWith("vesk: key create: NAME is required\n")));
  EXPECT_THAT(create("K1\n", {"--jobs", "0"}), Ends(2, IsEmpty(), HasSubstr("the jobs '0' is not a number")));
  EXPECT_THAT(keys(), IsEmpty());
}

TEST_F(Bulk, ColumnsSayMore) {
  write_file(files_.path("n.csv"), "NAME,Mirror\r\n\"K,\"\"1\"\"\",true\r\nK2,\r\n");
  EXPECT_EQ(vesk({"key", "create", "--from", "n.csv"}).exit_code, 0);
  write_file(files_.path("n.json"), R"(["K3", {"name": "K4", "mirror": true}])");
  EXPECT_EQ(vesk({"key", "create", "--from", "n.json"}).exit_code, 0);
  EXPECT_THAT(keys(), UnorderedElementsAre("K,\"1\"", "K2", "K3", "K4"));

  write_file(files_.path("m.csv"), "name,md1,md02\nK2,tape,\nK3,,\"shelf 14\"\n");
  EXPECT_THAT(vesk({"metadata", "set", "--from", "m.csv", "--md", "16=all"}),
              Ends(0, HasSubstr("set metadata of key K2\n"), StrEq("set metadata of key 2 of 2\n")));
  const json metadata = document_in(vesk({"metadata", "get", "K3", "--output", "json"})).at("metadata");
  EXPECT_EQ(metadata.at("MD02"), "shelf 14");
  EXPECT_EQ(metadata.at("MD16"), "all");

  write_file(files_.path("m.json"), R"([{"name": "K2", "md3": 18446744073709551615}])");
  EXPECT_EQ(vesk({"metadata", "set", "--from", "m.json"}).exit_code, 0);
  EXPECT_EQ(document_in(vesk({"metadata", "get", "K2", "--output", "json"})).at("metadata").at("MD03"),
            "18446744073709551615");
}

TEST_F(Bulk, WhatAListShowsCanBeDeleted) {
  write_file(files_.path("n.json"), R"(["a\\b", "K2"])");
  ASSERT_EQ(vesk({"key", "create", "--from", "n.json"}).exit_code, 0);
  write_file(files_.path("names"), vesk({"key", "list", "--output", "plain"}).out);
  EXPECT_THAT(vesk({"key", "delete", "--from", "names"}), Ends(2, IsEmpty(), HasSubstr("add --yes if you are sure")));
  EXPECT_THAT(vesk({"key", "delete", "--from", "names", "--dry-run", "--jobs", "1"}),
              Ends(0, StrEq("would delete key K2\nwould delete key a\\b\n"), StrEq("would delete key 2 of 2\n")));
  EXPECT_EQ(keys().size(), 2u);
  EXPECT_THAT(vesk({"key", "delete", "--from", "names", "--yes"}),
              Ends(0, HasSubstr("deleted key a\\b\n"), StrEq("deleted key 2 of 2\n")));
  EXPECT_THAT(keys(), IsEmpty());
}

TEST_F(Bulk, ManyAreDeletedWhenTheirNumberIsTyped) {
  std::string names;
  for (int i = 10; i < 21; ++i) names += "K" + std::to_string(i) + "\n";
  ASSERT_EQ(create(names).exit_code, 0);
  Invocation made = invocation({"key", "delete", "--from", "names"});
  made.standard_input = Stream::kTerminal;
  made.standard_error = Stream::kTerminal;
  made.input = "y\n";
  EXPECT_EQ(vesk(made).exit_code, 130);
  EXPECT_EQ(keys().size(), 11u);
  made.input = "11\n";
  const Outcome outcome = vesk(made);
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.terminal,
              StartsWith("Delete 11 keys? What they protect can never be read again. Type 11 to go on: "));
  EXPECT_THAT(keys(), IsEmpty());
}

}  // namespace
}  // namespace command_test
