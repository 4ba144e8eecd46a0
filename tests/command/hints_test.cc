// Every status and every return code that a user can meet: a name, a sentence, and what to do about it.
#include "vesk/hints.h"

#include <fmt/format.h>

#include <regex>
#include <set>

#include "orn/support.h"
#include "tests/command/command_test.h"
#include "tests/command/played_server.h"
#include "veskd/return_codes.h"

namespace command_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

std::vector<int> every_status() {
#define ORN_STATUS_VALUE(name, value, sentence) value,
  std::vector<int> values = {-1, ORN_LIBRARY_STATUSES(ORN_STATUS_VALUE) ORN_CONNECTION_STATUSES(ORN_STATUS_VALUE)};
#undef ORN_STATUS_VALUE
  for (int field = 9984; field <= 9998; ++field) values.push_back(field);
  return values;
}

// What a hint reads like; throws when it names what nobody knows.
std::string filled_in(const std::string &hint) {
  return fmt::format(fmt::runtime(hint), fmt::arg("host", "h"), fmt::arg("port", 1), fmt::arg("authority", "a"),
                     fmt::arg("certificate", "c"), fmt::arg("key", "k"), fmt::arg("file", "f"), fmt::arg("option", "o"),
                     fmt::arg("pem", "p"));
}

TEST(Hints, EveryStatusHasNameSentenceAndHint) {
  for (const int status : every_status()) {
    SCOPED_TRACE(status);
    EXPECT_THAT(std::string(StatusName(status)), testing::StartsWith(status == -1      ? "CALL_"
                                                                     : status >= 30001 ? "CONN_ERR_"
                                                                                       : "ERR_"));
    EXPECT_THAT(std::string(StatusText(status)), Not(IsEmpty()));
    EXPECT_THAT(filled_in(command::hint_for(status)), Not(IsEmpty()));
  }
}

TEST(Hints, EveryReturnCodeHasNameSentenceAndHint) {
  for (const veskd::ReturnCodeText &code : veskd::kReturnCodes) {
    SCOPED_TRACE(code.name);
    EXPECT_THAT(std::string(code.sentence), Not(IsEmpty()));
    EXPECT_THAT(filled_in(command::hint_for(code.value)), Not(IsEmpty()));
    // One word holds both: none of the server's codes may pass for one of the library's.
    EXPECT_STREQ(StatusName(code.value), code.value == 0 ? "OK" : "SERVER_RETURN_CODE");
  }
}

// What the hints say to type is there.
TEST_F(CommandTest, TheCommandsOfHintsAreThere) {
  std::set<std::string> commands;
  std::vector<int> values = every_status();
  for (const veskd::ReturnCodeText &code : veskd::kReturnCodes) values.push_back(code.value);
  for (const int value : values) {
    const std::string hint = command::hint_for(value);
    const std::regex command("vesk ([a-z][a-z-]*( [a-z][a-z-]*)?)");
    for (auto found = std::sregex_iterator(hint.begin(), hint.end(), command); found != std::sregex_iterator(); ++found)
      commands.insert((*found)[1]);
  }
  EXPECT_GT(commands.size(), 8u);
  for (const std::string &words : commands) {
    const std::size_t blank = words.find(' ');
    std::vector<std::string> arguments = {words.substr(0, blank)};
    // What stands behind vesk doctor is the rest of a sentence.
    if (blank != std::string::npos && arguments[0] != "doctor") arguments.push_back(words.substr(blank + 1));
    arguments.push_back("--help");
    EXPECT_THAT(vesk(arguments), Ends(0, HasSubstr("Usage: vesk " + words.substr(0, blank)), IsEmpty())) << words;
  }
}

}  // namespace
}  // namespace command_test
