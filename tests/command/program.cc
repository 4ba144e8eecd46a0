#include "tests/command/program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <utility>

#include "orn/support/descriptor.h"

namespace command_test {
namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kMaxDuration{30};

using orn::Descriptor;

Descriptor opened(int number) {
  if (number < 0) throw std::runtime_error("no descriptor for a stream");
  return Descriptor(number);
}

// The test's end and the program's end of a stream.
struct Ends {
  Descriptor ours;
  Descriptor theirs;
};

Ends make_pipe(bool we_read) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  return we_read ? Ends{opened(ends[0]), opened(ends[1])} : Ends{opened(ends[1]), opened(ends[0])};
}

// Shows what is written to it byte for byte and does not echo.
Ends make_terminal() {
  int ours = -1;
  int theirs = -1;
  termios settings{};
  settings.c_lflag = ICANON;
  settings.c_cc[VEOF] = 4;
  if (openpty(&ours, &theirs, nullptr, &settings, nullptr) != 0) throw std::runtime_error("no terminal");
  fcntl(ours, F_SETFD, FD_CLOEXEC);
  fcntl(theirs, F_SETFD, FD_CLOEXEC);
  return {opened(ours), opened(theirs)};
}

struct Streams {
  Ends in, out, err, terminal;
};

Ends make_output(const Invocation &invocation) {
  if (!invocation.standard_output_path.empty())
    return {Descriptor(), opened(open(invocation.standard_output_path.c_str(), O_WRONLY | O_CLOEXEC))};
  Ends ends = make_pipe(true);
  if (invocation.reader_of_output_is_gone) ends.ours = Descriptor();
  return ends;
}

void put_in_place(const Streams &streams, Stream kind, const Ends &ends, int number) {
  if (kind == Stream::kClosed) {
    close(number);
    return;
  }
  dup2(kind == Stream::kTerminal ? streams.terminal.theirs.number() : ends.theirs.number(), number);
}

std::vector<char *> pointers_to(std::vector<std::string> &texts) {
  std::vector<char *> pointers;
  for (std::string &text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// Runs in the child; never returns.
[[noreturn]] void become(int program, const Invocation &invocation, const Streams &streams, char **arguments,
                         char **environment) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  // A program is started with the signal as users have it, whatever the test does.
  signal(SIGPIPE, SIG_DFL);
  put_in_place(streams, invocation.standard_input, streams.in, STDIN_FILENO);
  put_in_place(streams, invocation.standard_output, streams.out, STDOUT_FILENO);
  put_in_place(streams, invocation.standard_error, streams.err, STDERR_FILENO);
  const bool is_there = invocation.directory.empty() || chdir(invocation.directory.c_str()) == 0;
  const bool is_user = !invocation.user || (setgid(*invocation.user) == 0 && setuid(*invocation.user) == 0);
  if (is_there && is_user) fexecve(program, arguments, environment);
  _exit(127);
}

pid_t start(const std::string &path, const Invocation &invocation, const Streams &streams) {
  // Opened here, because another user may not be able to reach it by its path.
  const Descriptor program = opened(open(path.c_str(), O_PATH | O_CLOEXEC));
  std::vector<std::string> arguments = {path.substr(path.rfind('/') + 1)};
  arguments.insert(arguments.end(), invocation.arguments.begin(), invocation.arguments.end());
  std::vector<std::string> environment;
  for (const auto &[name, value] : invocation.environment) environment.push_back(name + "=" + value);
  const std::vector<char *> argument_pointers = pointers_to(arguments);
  const std::vector<char *> environment_pointers = pointers_to(environment);
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("no process");
  if (child == 0)
    become(program.number(), invocation, streams, const_cast<char **>(argument_pointers.data()),
           const_cast<char **>(environment_pointers.data()));
  return child;
}

// Reads what there is into text; false at the end, which a terminal reports as an error.
bool read_some(const Descriptor &from, std::string &text) {
  char bytes[4096];
  const ssize_t count = read(from.number(), bytes, sizeof bytes);
  if (count > 0) text.append(bytes, static_cast<std::size_t>(count));
  return count > 0 || (count < 0 && errno == EINTR);
}

// False when the time is up. Calls looked after each read.
bool read_all(std::vector<std::pair<Descriptor *, std::string *>> sources, const std::function<void()> &looked) {
  const Clock::time_point end = Clock::now() + kMaxDuration;
  while (!sources.empty()) {
    std::vector<pollfd> waiting;
    for (const auto &[descriptor, text] : sources) waiting.push_back({descriptor->number(), POLLIN, 0});
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
    if (left <= 0 || poll(waiting.data(), waiting.size(), static_cast<int>(left)) == 0) return false;
    for (std::size_t i = waiting.size(); i-- > 0;) {
      if (waiting[i].revents != 0 && !read_some(*sources[i].first, *sources[i].second))
        sources.erase(sources.begin() + static_cast<std::ptrdiff_t>(i));
    }
    looked();
  }
  return true;
}

}  // namespace

void PrintTo(const Outcome &outcome, std::ostream *stream) {
  *stream << "exit code " << outcome.exit_code << "\nstandard output:\n"
          << outcome.out << "\nstandard error:\n"
          << outcome.err;
}

Outcome run_program(const std::string &path, const Invocation &invocation) {
  Streams streams;
  streams.in = make_pipe(false);
  streams.out = make_output(invocation);
  streams.err = make_pipe(true);
  const bool has_terminal =
      std::ranges::count(std::array{invocation.standard_input, invocation.standard_output, invocation.standard_error},
                         Stream::kTerminal) > 0;
  if (has_terminal) streams.terminal = make_terminal();
  const bool types = invocation.standard_input == Stream::kTerminal;
  const Descriptor &input = types ? streams.terminal.ours : streams.in.ours;
  // The pipe's and the terminal's buffers are larger than what tests write.
  if (write(input.number(), invocation.input.data(), invocation.input.size()) !=
      static_cast<ssize_t>(invocation.input.size()))
    throw std::runtime_error("no room for the input");

  const pid_t child = start(path, invocation, streams);
  for (Ends *ends : {&streams.in, &streams.out, &streams.err, &streams.terminal}) ends->theirs = Descriptor();
  streams.in.ours = Descriptor();

  Outcome outcome;
  std::vector<std::pair<Descriptor *, std::string *>> sources = {{&streams.err.ours, &outcome.err}};
  if (streams.out.ours) sources.emplace_back(&streams.out.ours, &outcome.out);
  if (has_terminal) sources.emplace_back(&streams.terminal.ours, &outcome.terminal);
  int signal = invocation.signal;
  const auto send_signal = [&] {
    if (signal == 0) return;
    const auto has_shown = [&](const std::string &text) { return text.find(invocation.signal_when) != text.npos; };
    if (has_shown(outcome.err) || has_shown(outcome.terminal)) kill(child, std::exchange(signal, 0));
  };
  if (!read_all(sources, send_signal)) {
    ADD_FAILURE() << path << " runs for too long";
    kill(child, SIGKILL);
  }
  int status = 0;
  waitpid(child, &status, 0);
  outcome.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return outcome;
}

}  // namespace command_test
