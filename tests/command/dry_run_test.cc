// --dry-run: what would be done, as far as the server can be asked, and nothing of it.
#include <nlohmann/json.hpp>

#include "tests/command/command_test.h"
#include "tests/command/key_pair_test.h"

namespace command_test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StrEq;

class DryRuns : public KeyPairTest {
 protected:
  Outcome dry(std::vector<std::string> arguments) const {
    arguments.emplace_back("--dry-run");
    return vesk(arguments);
  }
  // Everything that a dry run could have changed.
  std::string state() const {
    std::string state;
    for (const char *list : {"key", "template", "certificate", "private-key", "mirror"})
      state += vesk({list, "list", "--output", "json"}).out;
    return state;
  }
};

TEST_F(DryRuns, WhatIsNotThereWouldBeMade) {
  make_pair("pair", 1);
  const std::string before = state();
  EXPECT_THAT(dry({"key", "create", "K1", "--mirror"}), Ends(0, StrEq("would create mirror key K1\n"), IsEmpty()));
  EXPECT_THAT(dry({"template", "generate", "tape-library-01", "--count", "2"}),
              Ends(0, StrEq("would generate 2 keys for the new template tape-library-01\n"), IsEmpty()));
  EXPECT_THAT(dry({"mirror", "set", "west", "127.0.0.1", "4000"}),
              Ends(0, StrEq("would add mirror west at 127.0.0.1 port 4000\n"), IsEmpty()));
  EXPECT_THAT(dry({"certificate", "import", "P", "pair.pem"}),
              Ends(0, StrEq("would import certificate P\n"), IsEmpty()));
  EXPECT_THAT(dry({"private-key", "import", "P", "pair-key.pem"}),
              Ends(0, StrEq("would import private key P\n"), IsEmpty()));
  for (std::vector<std::string> command :
       std::vector<std::vector<std::string>>{{"key", "create", "K1"},
                                             {"template", "generate", "tape-library-01", "--count", "2"},
                                             {"mirror", "set", "west", "127.0.0.1", "4000"},
                                             {"certificate", "import", "P", "pair.pem"},
                                             {"private-key", "import", "P", "pair-key.pem"}}) {
    command.insert(command.end(), {"--output", "json"});
    EXPECT_EQ(document_in(dry(command)).at("dry_run"), true) << command[0];
  }
  EXPECT_EQ(state(), before);
}

TEST_F(DryRuns, WhatIsThereWouldBeRefused) {
  store_pair("pair", 1);
  for (const std::vector<std::string> &made :
       std::vector<std::vector<std::string>>{{"key", "create", "K1"},
                                             {"template", "generate", "tape-library-01", "--count", "2"},
                                             {"mirror", "set", "west", "127.0.0.1", "4000"}})
    ASSERT_EQ(vesk(made).exit_code, 0);
  const std::string before = state();
  EXPECT_THAT(dry({"key", "create", "K1"}), Ends(3, IsEmpty(), HasSubstr("RC_KEY_EXISTS")));
  EXPECT_THAT(dry({"template", "generate", "tape-library-01", "--count", "2"}),
              Ends(3, IsEmpty(), HasSubstr("RC_TEMPLATE_EXISTS")));
  EXPECT_THAT(dry({"template", "generate", "tape-library-01", "--count", "1", "--add"}),
              Ends(0, StrEq("would generate 1 key for template tape-library-01\n"), IsEmpty()));
  EXPECT_THAT(dry({"mirror", "set", "west", "127.0.0.2", "4000"}),
              Ends(0, StrEq("would move mirror west to 127.0.0.2 port 4000\n"), IsEmpty()));
  EXPECT_THAT(dry({"mirror", "sync", "west", "--only", "K2"}), Ends(4, IsEmpty(), HasSubstr("RC_KEY_UNKNOWN")));
  EXPECT_THAT(dry({"mirror", "sync", "west", "--only", "K1", "--output", "json"}),
              Ends(0, HasSubstr("\"dry_run\": true"), IsEmpty()));
  EXPECT_THAT(dry({"key", "make-deletable", "K1", "--output", "json"}),
              Ends(0, HasSubstr("\"dry_run\": true"), IsEmpty()));
  EXPECT_THAT(dry({"template", "set-next", "tape-library-01", "1", "--output", "json"}),
              Ends(0, HasSubstr("\"dry_run\": true"), IsEmpty()));
  EXPECT_EQ(document_in(vesk({"template", "depth", "tape-library-01", "--output", "json"})).at("next_increment"), 0);
  EXPECT_THAT(dry({"certificate", "import", "pair", "pair.pem"}),
              Ends(3, IsEmpty(), HasSubstr("RC_CERTIFICATE_EXISTS")));
  EXPECT_THAT(dry({"certificate", "import", "pair", "pair.pem", "--replace"}), Ends(0, HasSubstr("would"), IsEmpty()));
  EXPECT_THAT(dry({"certificate", "import", "other", "pair-key.pem"}),
              Ends(3, IsEmpty(), HasSubstr("RC_CERTIFICATE_INVALID")));
  EXPECT_THAT(dry({"private-key", "import", "pair", "pair-key.pem"}), Ends(3, IsEmpty(), HasSubstr("exists already")));
  EXPECT_THAT(dry({"private-key", "import", "other", "pair.pem"}),
              Ends(3, IsEmpty(), HasSubstr("RC_PRIVATE_KEY_INVALID")));
  write_secret(files_.path("key"), std::string(32, 'k'));
  EXPECT_THAT(dry({"key", "import", "K1", "--certificate", "pair", "--in", "key"}),
              Ends(3, IsEmpty(), HasSubstr("RC_KEY_EXISTS")));
  EXPECT_THAT(dry({"key", "import", "K2", "--certificate", "pair", "--in", "key"}),
              Ends(0, StrEq("would import key K2\n"), IsEmpty()));
  EXPECT_THAT(dry({"key", "import", "K2", "--certificate", "none", "--in", "key"}),
              Ends(4, IsEmpty(), HasSubstr("RC_CERTIFICATE_UNKNOWN")));
  EXPECT_EQ(state(), before);
}

// An import needs the private key; the server's certificate is one way to wrap for it.
TEST_F(DryRuns, AKeyThatIsWrappedElsewhereNeedsNoCertificate) {
  store_pair("pair", 1);
  ASSERT_EQ(vesk({"certificate", "delete", "pair", "--yes"}).exit_code, 0);
  write_secret(files_.path("key"), std::string(32, 'k'));
  write_secret(files_.path("wrapped"), std::string(256, 'w'));
  EXPECT_THAT(dry({"key", "import", "K1", "--certificate", "pair", "--in", "wrapped", "--wrapped"}),
              Ends(0, StrEq("would import key K1\n"), IsEmpty()));
  EXPECT_THAT(dry({"key", "import", "K1", "--certificate", "pair", "--certificate-file", "pair.pem", "--in", "key"}),
              Ends(0, StrEq("would import key K1\n"), IsEmpty()));
  EXPECT_THAT(dry({"key", "import", "K1", "--certificate", "none", "--in", "wrapped", "--wrapped"}),
              Ends(4, IsEmpty(), HasSubstr("private key none: there is no private key of that name")));
}

TEST_F(DryRuns, WhatIsNotThereCannotBeChangedOrDeleted) {
  for (const std::vector<std::string> &command :
       std::vector<std::vector<std::string>>{{"key", "delete", "K1"},
                                             {"metadata", "set", "K1", "--md", "1=tape"},
                                             {"template", "remove", "tape-library-01"},
                                             {"template", "generate", "tape-library-01", "--count", "1", "--add"},
                                             {"certificate", "delete", "P"},
                                             {"private-key", "delete", "P"},
                                             {"mirror", "remove", "west"},
                                             {"mirror", "sync", "west", "--all"},
                                             {"key", "make-deletable", "K1"},
                                             {"template", "set-next", "tape-library-01", "1"}})
    EXPECT_THAT(dry(command), Ends(4, IsEmpty(), HasSubstr("there is no "))) << command[0] << " " << command[1];
}

TEST_F(DryRuns, OfAFileEachNameIsLookedUp) {
  write_file(files_.path("one"), "K1\n");
  write_file(files_.path("both"), "K1\nK2\n");
  EXPECT_THAT(dry({"key", "create", "--from", "both", "--jobs", "1"}),
              Ends(0, StrEq("would create key K1\nwould create key K2\n"), StrEq("would create key 2 of 2\n")));
  ASSERT_EQ(vesk({"key", "create", "--from", "one"}).exit_code, 0);
  const std::string before = state();
  EXPECT_THAT(dry({"key", "create", "--from", "both"}),
              Ends(3, StrEq("would create key K2\n"),
                   AllOf(HasSubstr("failed: key K1: "), HasSubstr("would create key 1 of 2, 1 failed\n"))));
  EXPECT_THAT(dry({"key", "delete", "--from", "both"}),
              Ends(4, StrEq("would delete key K1\n"), HasSubstr("would delete key 1 of 2, 1 failed\n")));
  const Outcome set = dry({"metadata", "set", "--from", "both", "--md", "1=tape", "--jobs", "1", "--output", "json"});
  EXPECT_EQ(set.exit_code, 4);
  EXPECT_EQ(document_in(set).at("results").at(0), json({{"name", "K1"}, {"outcome", "possible"}, {"error", nullptr}}));
  EXPECT_EQ(document_in(set).at("done"), 0);
  EXPECT_EQ(document_in(set).at("dry_run"), true);
  // No journal is left beside the files.
  EXPECT_THAT(names_in(files_.path()), Not(testing::Contains(HasSubstr("journal"))));
  EXPECT_EQ(state(), before);
  EXPECT_THAT(dry({"metadata", "set", "K1", "--md", "1=tape", "--replace"}),
              Ends(0, StrEq("would set 1 of the sixteen metadata fields of key K1 and blank the others\n"), IsEmpty()));
  EXPECT_THAT(vesk({"metadata", "get", "K1"}).out, Not(HasSubstr("tape")));
}

}  // namespace
}  // namespace command_test
