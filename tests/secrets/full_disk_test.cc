// The disk is full, or fails, at each step of what makes a file, one after the other: the programs say so, and no file
// is left half made.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <string>

#include "orn/vesk.h"
#include "tests/secrets/key_transfer.h"
#include "tests/secrets/running_server.h"

namespace secrets_test {
namespace {

namespace fs = std::filesystem;
using testing::AnyOf;
using testing::HasSubstr;
using veskd::test::TemporaryDirectory;

// What files are in a folder, and what is in them.
std::map<std::string, std::string> contents_of(const fs::path &folder) {
  std::map<std::string, std::string> contents;
  for (const fs::directory_entry &entry : fs::recursive_directory_iterator(folder)) {
    std::ifstream file(entry.path(), std::ios::binary);
    if (entry.is_regular_file()) contents[entry.path().filename()] = {std::istreambuf_iterator<char>(file), {}};
  }
  return contents;
}

class FullDisk : public testing::Test {
 protected:
  static constexpr const char *kFunctions[] = {"open",  "mkostemp",  "mkdir", "write", "ftruncate",
                                               "fsync", "fdatasync", "link",  "rename"};

  // In the folder "work", which is all that may change. What the program says is in said_.
  int run(const std::string &command, const std::string &failing = "") {
    fs::create_directories(folder_ / "work");
    fs::remove(folder_ / "failed");
    const std::string environment = failing.empty() ? ""
                                                    : "LD_PRELOAD=" FAILING_FILES_LIBRARY " FAILING='" + failing +
                                                          "' FAILED=" + (folder_ / "failed").string() + " ";
    const std::string line = "cd " + (folder_ / "work").string() + " && unset XDG_CONFIG_HOME && HOME=. " +
                             environment + command + " </dev/null >../out 2>../said";
    const int state = std::system(line.c_str());
    said_ = contents_of(folder_.path())["said"];
    return WEXITSTATUS(state);
  }

  // Has each step of the command fail, or one of every few, in the state that prepare() makes. Returns how many did.
  int fail_each_step(const std::string &command, const std::function<void()> &prepare,
                     const std::function<void(const std::string &step)> &check, int every = 1) {
    int num_steps = 0;
    for (const char *function : kFunctions) {
      for (int number = 0;; number += every) {
        const std::string step = std::string(function) + " " + std::to_string(number);
        fs::remove_all(folder_ / "work");
        fs::create_directories(folder_ / "work");
        prepare();
        exit_code_ = run(command, step);
        if (!fs::exists(folder_ / "failed")) break;
        ++num_steps;
        check(step);
      }
    }
    return num_steps;
  }

  const TemporaryDirectory folder_;
  std::string said_;
  int exit_code_ = 0;
};

class FullDiskOfTheCommand : public FullDisk {
 protected:
  std::string vesk(const std::string &command) const {
    return VESK_PROGRAM " --host 127.0.0.1 --port " + std::to_string(server_.port()) + " --certificates " +
           (server_ / "d").string() + " " + command;
  }

  // A failed step leaves the folder as it was. The flush of the folder, behind the last, comes when the file is there.
  void expect_all_or_nothing(const std::string &command, const std::function<void()> &prepare,
                             const std::string &file) {
    std::map<std::string, std::string> before;
    const auto prepare_and_look = [&] {
      prepare();
      before = contents_of(folder_ / "work");
    };
    EXPECT_GE(fail_each_step(command, prepare_and_look,
                             [&](const std::string &step) {
                               EXPECT_NE(exit_code_, 0) << command << ", " << step;
                               EXPECT_THAT(said_, HasSubstr("No space left on device")) << command << ", " << step;
                               std::map<std::string, std::string> now = contents_of(folder_ / "work");
                               if (step == "fsync 1") now[file] = before[file];
                               if (now[file].empty()) now.erase(file);
                               if (before[file].empty()) before.erase(file);
                               EXPECT_EQ(now, before) << command << ", " << step;
                             }),
              4)
        << command;
  }

  RunningServer server_;
  const std::function<void()> nothing_ = [] {};
};

TEST_F(FullDiskOfTheCommand, LeavesAWholeKeyFileOrNone) {
  ASSERT_EQ(run(vesk("key create K")), 0);
  expect_all_or_nothing(vesk("key get K --out value"), nothing_, "value");
  const auto old_file = [this] { std::ofstream(folder_ / "work/value") << "what was there"; };
  expect_all_or_nothing(vesk("key get K --out value --force"), old_file, "value");
  expect_all_or_nothing(vesk("key get K --out value --hex"), nothing_, "value");
}

// As on a memory stick: the file has its name by a rename, which replaces nothing either.
TEST_F(FullDiskOfTheCommand, NeedsNoLinksForANewFile) {
  ASSERT_EQ(run(vesk("key create K")), 0);
  for (const int error : {EPERM, EOPNOTSUPP}) {
    const std::string name = "value" + std::to_string(error);
    EXPECT_EQ(run(vesk("key get K --out " + name), "link 0 " + std::to_string(error)), 0) << said_;
    EXPECT_TRUE(fs::exists(folder_ / "failed"));
    EXPECT_EQ(contents_of(folder_ / "work")[name].size(), 32U);
  }
  EXPECT_EQ(contents_of(folder_ / "work").size(), 2U) << "nothing else is left";
}

TEST_F(FullDiskOfTheCommand, LeavesTheContextsAsTheyWere) {
  const std::string add = VESK_PROGRAM " context add two --host 127.0.0.1 --port 1 --certificates .";
  const auto one = [&] {
    ASSERT_EQ(run(VESK_PROGRAM " context add one --host 127.0.0.1 --port 1 --certificates ."), 0);
  };
  expect_all_or_nothing(add, one, "contexts.toml");
}

// Without a journal nothing is done, and with one whatever is done is in it, or was answered with an error.
TEST_F(FullDiskOfTheCommand, KeepsTheJournalTrue) {
  int run_number = 0;
  const auto names = [&] {
    ++run_number;
    std::ofstream(folder_ / "work/names") << "A" << run_number << "\nB" << run_number << "\n";
  };
  // The names differ from step to step, as the server keeps what it has done.
  EXPECT_GE(fail_each_step(vesk("key create --from names --jobs 1"), names,
                           [&](const std::string &step) {
                             EXPECT_NE(exit_code_, 0) << step;
                             EXPECT_THAT(said_, HasSubstr("No space left on device")) << step;
                             // A second run comes to the same end, whatever the first one had done.
                             EXPECT_EQ(run(vesk("key create --from names --jobs 1")), 0) << step << ": " << said_;
                             EXPECT_FALSE(fs::exists(folder_ / "work/names.journal")) << step;
                           }),
            4);
}

TEST_F(FullDiskOfTheCommand, OfTheTraceStopsNoWork) {
  EXPECT_EQ(run(vesk("--trace /dev/full ping")), 0) << said_;
}

// A start that fails says so; the next one needs no repair. Both end in any case: the port is taken.
TEST_F(FullDisk, LeavesADirectoryThatTheServerStartsOn) {
  const RunningServer other;
  const std::string start = VESKD_PROGRAM " dev --dir d --quiet --port " + std::to_string(other.port());
  const auto check = [&](const std::string &step) {
    EXPECT_EQ(exit_code_, 1) << step;
    // Not every flush that SQLite makes is one that it needs.
    const bool may_go_on = step.starts_with("fdatasync");
    EXPECT_THAT(said_, AnyOf(HasSubstr("No space left on device"), HasSubstr("disk"),
                             HasSubstr(may_go_on ? "Address already in use" : "disk")))
        << step;
    EXPECT_EQ(run(start), 1) << step;
    EXPECT_THAT(said_, HasSubstr("Address already in use")) << step;
  };
  // The steps of the four pairs of files are alike: a third of them is every one.
  EXPECT_GE(fail_each_step(
                start, [] {}, check, 3),
            15);
}

}  // namespace
}  // namespace secrets_test
