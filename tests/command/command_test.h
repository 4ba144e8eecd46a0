// vesk against veskd, both as programs, in a temporary directory.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/types.h>

#include <filesystem>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "tests/command/program.h"

namespace command_test {

class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory &) = delete;
  TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;

  std::string path(const std::string &name = {}) const { return name.empty() ? path_ : path_ + "/" + name; }

 private:
  std::string path_;
};

// veskd dev on a free port, ready when the constructor returns.
class RunningServer {
 public:
  explicit RunningServer(const std::string &directory, const std::vector<std::string> &options = {});
  ~RunningServer();
  RunningServer(const RunningServer &) = delete;
  RunningServer &operator=(const RunningServer &) = delete;

  const std::string &port() const { return port_; }

 private:
  pid_t process_ = -1;
  std::string port_;
};

// Runs the command without a server, in a directory of its own.
class CommandTest : public testing::Test {
 protected:
  // An invocation with the environment that leads to the server, if there is one.
  virtual Invocation invocation(std::vector<std::string> arguments) const;

  Outcome vesk(std::vector<std::string> arguments) const;
  // Whatever is a document in JSON is checked against its schema.
  static Outcome vesk(const Invocation &invocation);

  TemporaryDirectory files_;
};

class ServedCommandTest : public CommandTest {
 protected:
  Invocation invocation(std::vector<std::string> arguments) const override;

  TemporaryDirectory server_files_;
  RunningServer server_{server_files_.path("d")};
};

// The document on standard output, without its first member, which tells the schema.
nlohmann::json document_in(const Outcome &outcome);

std::string contents_of(const std::string &path);
void write_file(const std::string &path, const std::string &contents);
// For its owner alone.
void write_secret(const std::string &path, const std::string &contents);
std::vector<std::string> names_in(const std::string &directory);

// Matches an outcome by its exit code, standard output and standard error.
MATCHER_P3(Ends, exit_code, out, err,
           "ends with " + testing::PrintToString(exit_code) + ", standard output that " +
               testing::DescribeMatcher<std::string>(out) + " and standard error that " +
               testing::DescribeMatcher<std::string>(err)) {
  return testing::ExplainMatchResult(exit_code, arg.exit_code, result_listener) &&
         testing::ExplainMatchResult(out, arg.out, result_listener) &&
         testing::ExplainMatchResult(err, arg.err, result_listener);
}

}  // namespace command_test
