#include "tests/command/command_test.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "tests/command/schema.h"

namespace command_test {
namespace {

// Becomes veskd with its standard output in the pipe; never returns.
[[noreturn]] void become_server(const std::string &directory, const std::vector<std::string> &options, int output) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  dup2(output, STDOUT_FILENO);
  std::vector<std::string> arguments = {"veskd", "dev", "--dir", directory, "--quiet"};
  arguments.insert(arguments.end(), options.begin(), options.end());
  std::vector<char *> argv;
  for (std::string &argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  execv(VESKD_PROGRAM, argv.data());
  _exit(127);
}

// Until the server has said that it serves, or has gone.
std::string first_line(int from) {
  std::string line;
  char character = 0;
  while (read(from, &character, 1) == 1 && character != '\n') line += character;
  return line;
}

}  // namespace

TemporaryDirectory::TemporaryDirectory() {
  // In memory where that is possible: flushing to the disk is most of what a server does when it starts.
  const bool has_memory = access("/dev/shm", W_OK | X_OK) == 0;
  std::string name = std::string(has_memory ? "/dev/shm" : "/tmp") + "/vesk-command-XXXXXX";
  if (!mkdtemp(name.data())) throw std::runtime_error("no temporary directory");
  path_ = name;
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

RunningServer::RunningServer(const std::string &directory, const std::vector<std::string> &options) {
  std::array<int, 2> output{};
  if (pipe2(output.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  process_ = fork();
  if (process_ == 0) become_server(directory, options, output[1]);
  close(output[1]);
  const std::string line = first_line(output[0]);
  close(output[0]);
  if (line.empty()) throw std::runtime_error("veskd did not start");
  port_ = std::to_string(nlohmann::json::parse(contents_of(directory + "/ready.json")).at("port").get<int>());
}

RunningServer::~RunningServer() {
  kill(process_, SIGTERM);
  int status = 0;
  waitpid(process_, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "veskd ended with wait status " << status;
}

Invocation CommandTest::invocation(std::vector<std::string> arguments) const {
  return {.arguments = std::move(arguments), .environment = {}, .input = {}, .directory = files_.path()};
}

Outcome CommandTest::vesk(std::vector<std::string> arguments) const {
  return vesk(invocation(std::move(arguments)));
}

Outcome CommandTest::vesk(const Invocation &invocation) {
  const Outcome outcome = run_program(VESK_PROGRAM, invocation);
  const std::vector<std::string> &arguments = invocation.arguments;
  const auto form = std::ranges::find(arguments, "--output");
  if (form != arguments.end() && std::next(form) != arguments.end() && *std::next(form) == "json" &&
      !outcome.out.empty()) {
    EXPECT_EQ(schema_fault(arguments, nlohmann::json::parse(outcome.out)), "") << outcome.out;
  }
  return outcome;
}

Invocation ServedCommandTest::invocation(std::vector<std::string> arguments) const {
  Invocation made = CommandTest::invocation(std::move(arguments));
  made.environment = {
      {"VESK_HOST", "127.0.0.1"}, {"VESK_PORT", server_.port()}, {"VESK_CERTIFICATES", server_files_.path("d")}};
  return made;
}

nlohmann::json document_in(const Outcome &outcome) {
  nlohmann::json document = nlohmann::json::parse(outcome.out);
  EXPECT_EQ(document.at("schema"), "vesk/1");
  document.erase("schema");
  return document;
}

std::string contents_of(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream contents;
  contents << file.rdbuf();
  return contents.str();
}

void write_file(const std::string &path, const std::string &contents) {
  std::ofstream(path, std::ios::binary) << contents;
}

void write_secret(const std::string &path, const std::string &contents) {
  write_file(path, contents);
  std::filesystem::permissions(path, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

std::vector<std::string> names_in(const std::string &directory) {
  std::vector<std::string> names;
  for (const auto &entry : std::filesystem::directory_iterator(directory)) names.push_back(entry.path().filename());
  std::ranges::sort(names);
  return names;
}

}  // namespace command_test
