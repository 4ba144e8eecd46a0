// The real program as a child process.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "veskd/store_address.h"

namespace veskd::test {

class Program {
 public:
  // Starts veskd. max_descriptors bounds its open files; 0 leaves the bound as it is.
  explicit Program(const std::vector<std::string> &arguments, unsigned max_descriptors = 0);

  // Kills the program if it still runs.
  ~Program();
  Program(const Program &) = delete;
  Program &operator=(const Program &) = delete;

  // The next line of its standard output, without line end; empty at the end.
  std::string read_line();

  // All of its standard output that is left.
  std::string read_all();

  void signal(int number);

  // Waits for its end. The exit code, or minus the signal that ended it.
  int wait();

  // All of standard error so far.
  std::string errors();

  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
  int output_ = -1;
  int errors_ = -1;
};

// What has veskd serve a directory, with its store where the tests have it, or elsewhere.
std::vector<std::string> dev_arguments(const std::filesystem::path &directory);
std::vector<std::string> dev_arguments(const std::filesystem::path &directory, const StoreAddress &store);

// A program that serves a directory.
class DevServer {
 public:
  explicit DevServer(const std::filesystem::path &directory, unsigned max_descriptors = 0,
                     const std::vector<std::string> &options = {});
  DevServer(const std::filesystem::path &directory, const StoreAddress &store);

  std::uint16_t port() const { return port_; }
  const std::string &banner() const { return banner_; }
  const std::string &next_command() const { return next_command_; }
  const std::string &context_command() const { return context_command_; }
  Program &program() { return program_; }

  // Asks it to stop and returns its exit code.
  int stop();

 private:
  DevServer(const std::filesystem::path &directory, const std::vector<std::string> &arguments,
            unsigned max_descriptors);

  Program program_;
  std::string banner_;
  std::string next_command_;
  std::string context_command_;
  std::uint16_t port_ = 0;
};

}  // namespace veskd::test
