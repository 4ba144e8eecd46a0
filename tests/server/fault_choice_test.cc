// Which requests the faults of a file are played on, and what is wrong with a file.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/server/fault_file.h"
#include "veskd/faults.h"

namespace veskd::test {
namespace {

using testing::HasSubstr;

// A letter for each of so many requests: the fault that it got, a for the first of the file, or a dot for none.
std::string chosen(Faults &faults, int count, const char *tran_id = "2001") {
  std::string letters;
  for (int i = 0; i < count; ++i) {
    const Fault *fault = faults.next_request(tran_id);
    letters +=
        fault == nullptr ? '.' : static_cast<char>(fault->name.at(std::string_view("fault ").size()) - '1' + 'a');
  }
  return letters;
}

std::string chosen(const std::string &file, int count, const char *tran_id = "2001") {
  const FaultFile faults_file(file);
  Faults faults(faults_file.path());
  return chosen(faults, count, tran_id);
}

std::string cut_if(const std::string &selection) {
  return "[[fault]]\ndo = 'cut'\n" + selection + "\n";
}

TEST(FaultChoice, GoesByTheCount) {
  EXPECT_EQ(chosen(cut_if(""), 4), "aaaa");
  EXPECT_EQ(chosen(cut_if("every = 3"), 9), "..a..a..a");
  EXPECT_EQ(chosen(cut_if("nth = 4"), 9), "...a.....");
  EXPECT_EQ(chosen(cut_if("first = 2"), 9), "aa.......");
}

TEST(FaultChoice, GoesByProbability) {
  EXPECT_EQ(chosen(cut_if("probability = 0"), 100), std::string(100, '.'));
  EXPECT_EQ(chosen(cut_if("probability = 1"), 100), std::string(100, 'a'));
  const std::string letters = chosen("seed = 7\n" + cut_if("probability = 0.1"), 10000);
  EXPECT_NEAR(std::count(letters.begin(), letters.end(), 'a'), 1000, 150);
}

TEST(FaultChoice, IsTheSameForTheSameSeed) {
  const std::string half = cut_if("probability = 0.5");
  EXPECT_EQ(chosen("seed = 7\n" + half, 100), chosen("seed = 7\n" + half, 100));
  EXPECT_NE(chosen("seed = 7\n" + half, 100), chosen("seed = 8\n" + half, 100));
  // What the numbers are is a promise as well: a file reproduces on another machine what it did on this one.
  EXPECT_EQ(chosen("seed = 7\n" + half, 24), "..a.a..aa..aa.a.a......a");
}

TEST(FaultChoice, NoFaultChangesWhatTheOthersDo) {
  const std::string half = cut_if("probability = 0.5");
  const std::string alone = chosen("seed = 7\n" + half, 50);
  const std::string behind = chosen("seed = 7\n" + half + cut_if("every = 2") + half, 50);
  for (std::size_t i = 0; i < alone.size(); ++i) EXPECT_EQ(alone[i] == 'a', behind[i] == 'a') << i;
}

TEST(FaultChoice, TheFirstThatIsDueIsPlayedAndAllAreCounted) {
  EXPECT_EQ(chosen(cut_if("every = 2") + cut_if("every = 3"), 12), ".aba.a.aba.a");
}

TEST(FaultChoice, AnOperationIsAFunctionOrItsIdentifier) {
  for (const char *operation : {"RetrieveKey", "2001"}) {
    const FaultFile file(cut_if("every = 2\noperation = '" + std::string(operation) + "'"));
    Faults faults(file.path());
    EXPECT_EQ(chosen(faults, 1, "2001"), ".");
    EXPECT_EQ(chosen(faults, 3, "1043"), "...");
    EXPECT_EQ(chosen(faults, 1, "2001"), "a");
  }
}

TEST(FaultChoice, ListsAloneHavePages) {
  const std::string endless = "[[fault]]\ndo = 'endless'\n";
  EXPECT_EQ(chosen(endless, 2, "2001"), "..");
  EXPECT_EQ(chosen(endless, 2, "1123"), "aa");
}

TEST(FaultChoice, HandshakesAreNoRequests) {
  const FaultFile file("[[fault]]\nnth = 2\ndo = 'wrong-name'\n[[fault]]\nnth = 1\ndo = 'alert-on-ticket'\n");
  Faults faults(file.path());
  EXPECT_EQ(chosen(faults, 3), "...");
  EXPECT_EQ(faults.next_handshake(false), nullptr);
  EXPECT_EQ(faults.next_handshake(false)->deviation, Deviation::kWrongName);
  EXPECT_EQ(faults.next_handshake(true)->deviation, Deviation::kAlertOnTicket);
  EXPECT_EQ(faults.next_handshake(true), nullptr);
}

struct Mistake {
  const char *file;
  int line;
  const char *reason;
};

TEST(FaultMistakes, AreToldWithFileAndLine) {
  const std::vector<Mistake> mistakes = {
      {"seed = 7\n", 1, "fault: is missing"},
      {"seed = -1\n[[fault]]\ndo = 'cut'\n", 1, "seed: must be a whole number from 0"},
      {"[[faults]]\ndo = 'cut'\n", 1, "faults: there is no such key"},
      {"[fault]\ndo = 'cut'\n", 1, "fault: must be a list of tables, each under [[fault]]"},
      {"[[fault]]\nevery = 2\n", 1, "fault.do: is missing"},
      {"[[fault]]\ndo = 'dance'\n", 2, "fault.do: must be one of \"delay\", \"dribble\""},
      {"[[fault]]\ndo = 'cut'\noperation = 'Dance'\n", 3, "fault.operation: 'Dance' is neither a function nor"},
      {"[[fault]]\ndo = 'cut'\nevery = 0\n", 3, "fault.every: must be a whole number from 1"},
      {"[[fault]]\ndo = 'cut'\nevery = 2\nnth = 2\n", 2, "fault.do: takes one of every, nth, first and probability"},
      {"[[fault]]\ndo = 'cut'\nprobability = 1.5\n", 3, "fault.probability: must be a number from 0 to 1"},
      {"[[fault]]\ndo = 'cut'\nprobability = nan\n", 3, "fault.probability: must be a number from 0 to 1"},
      {"[[fault]]\ndo = 'cut'\nprobability = 'half'\n", 3, "fault.probability: must be a number from 0 to 1"},
      {"[[fault]]\ndo = 'cut'\nafter_bytes = -1\n", 3, "fault.after_bytes: must be a whole number from 0"},
      {"[[fault]]\ndo = 'cut'\npause = '1ms'\n", 3, "fault.pause: there is no such key"},
      {"[[fault]]\ndo = 'delay'\n", 1, "fault.time: is missing"},
      {"[[fault]]\ndo = 'dribble'\npause = 5\n", 3, "fault.pause: must be a number and its unit"},
      {"[[fault]]\ndo = 'length'\ndigits = '123456'\n", 3, "fault.digits: must have 5 characters"},
      {"[[fault]]\ndo = 'more-flag'\nflag = 'YY'\n", 3, "fault.flag: must have 1 character"},
      {"[[fault]]\ndo = 'short'\n", 1, "fault.bytes: is missing"},
      {"[[fault]]\ndo = 'return-code'\ncode = 10000\n", 3, "fault.code: must be a whole number from 1 to 9999"},
      {"[[fault]]\ndo = 'endless'\noperation = 'RetrieveKey'\n", 3, "fault.operation: is no list"},
      {"[[fault]]\ndo = 'wrong-name'\noperation = 'RetrieveKey'\n", 3, "fault.operation: there is no such key"},
      {"[[fault]\n", 1, "rror"},
  };
  for (const Mistake &mistake : mistakes) {
    const FaultFile file(mistake.file);
    const std::string said = start_error([&] { Faults faults(file.path()); });
    EXPECT_THAT(said, HasSubstr(fmt::format("{}:{}: ", file.path().string(), mistake.line))) << mistake.file;
    EXPECT_THAT(said, HasSubstr(mistake.reason)) << mistake.file;
  }
}

}  // namespace
}  // namespace veskd::test
