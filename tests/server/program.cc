#include "tests/server/program.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "tests/server/test_server.h"

namespace veskd::test {

Program::Program(const std::vector<std::string> &arguments, unsigned max_descriptors) {
  std::vector<char *> argv = {const_cast<char *>(VESKD_PROGRAM)};
  for (const std::string &argument : arguments) argv.push_back(const_cast<char *>(argument.c_str()));
  argv.push_back(nullptr);
  int output[2];
  errors_ = ::memfd_create("errors", MFD_CLOEXEC);
  if (errors_ < 0 || ::pipe2(output, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  pid_ = ::fork();
  if (pid_ == 0) {
    ::dup2(output[1], STDOUT_FILENO);
    ::dup2(errors_, STDERR_FILENO);
    const rlimit limit{max_descriptors, max_descriptors};
    if (max_descriptors != 0) ::setrlimit(RLIMIT_NOFILE, &limit);
    ::execv(VESKD_PROGRAM, argv.data());
    ::_exit(127);
  }
  ::close(output[1]);
  output_ = output[0];
}

Program::~Program() {
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    wait();
  }
  ::close(output_);
  ::close(errors_);
}

std::string Program::read_line() {
  std::string line;
  for (char c = 0; ::read(output_, &c, 1) == 1 && c != '\n';) line += c;
  return line;
}

std::string Program::read_all() {
  std::string text;
  char buffer[4096];
  for (ssize_t count = 0; (count = ::read(output_, buffer, sizeof buffer)) > 0;)
    text.append(buffer, static_cast<std::size_t>(count));
  return text;
}

void Program::signal(int number) {
  ::kill(pid_, number);
}

int Program::wait() {
  int status = 0;
  ::waitpid(pid_, &status, 0);
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::string Program::errors() {
  std::string text;
  char buffer[4096];
  // Reading must not move the position, at which the program goes on writing.
  for (ssize_t count = 0; (count = ::pread(errors_, buffer, sizeof buffer, static_cast<off_t>(text.size()))) > 0;)
    text.append(buffer, static_cast<std::size_t>(count));
  return text;
}

std::vector<std::string> dev_arguments(const std::filesystem::path &directory) {
  const StoreAddress store = store_address(directory);
  if (store.is_shared()) return dev_arguments(directory, store);
  return {"dev", "--dir", directory.string()};
}

std::vector<std::string> dev_arguments(const std::filesystem::path &directory, const StoreAddress &store) {
  return {"dev", "--dir", directory.string(), "--store", store.text()};
}

namespace {

std::vector<std::string> with_options(std::vector<std::string> arguments, const std::vector<std::string> &options) {
  arguments.insert(arguments.end(), options.begin(), options.end());
  return arguments;
}

}  // namespace

DevServer::DevServer(const std::filesystem::path &directory, unsigned max_descriptors,
                     const std::vector<std::string> &options)
    : DevServer(directory, with_options(dev_arguments(directory), options), max_descriptors) {}

DevServer::DevServer(const std::filesystem::path &directory, const StoreAddress &store)
    : DevServer(directory, dev_arguments(directory, store), 0) {}

DevServer::DevServer(const std::filesystem::path &directory, const std::vector<std::string> &arguments,
                     unsigned max_descriptors)
    : program_(arguments, max_descriptors),
      banner_(program_.read_line()),
      next_command_(program_.read_line()),
      context_command_(program_.read_line()) {
  std::ifstream ready(directory / "ready.json");
  if (!ready) throw std::runtime_error("veskd did not start: " + (program_.wait(), program_.errors()));
  port_ = nlohmann::json::parse(ready).at("port");
}

int DevServer::stop() {
  program_.signal(SIGTERM);
  return program_.wait();
}

}  // namespace veskd::test
