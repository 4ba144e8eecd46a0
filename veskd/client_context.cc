#include "veskd/client_context.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace veskd {
namespace {

std::string program_beside(const std::string &name) {
  std::error_code error;
  const std::filesystem::path beside = std::filesystem::read_symlink("/proc/self/exe", error).parent_path() / name;
  return !error && access(beside.c_str(), X_OK) == 0 ? beside.string() : name;
}

}  // namespace

bool run_beside(std::vector<std::string> words) {
  const std::string program = program_beside(words.front());
  std::vector<char *> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string &word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid_t child = -1;
  if (posix_spawnp(&child, program.c_str(), nullptr, nullptr, arguments.data(), environ) != 0) return false;
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return false;
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace veskd
