#include "vesk/journal.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>
#include <system_error>

#include "vesk/bulk_file.h"
#include "vesk/failure.h"
#include "vesk/input_file.h"
#include "vesk/output.h"
#include "vesk/text.h"

namespace command {
namespace {

constexpr std::size_t kMaxBytes = std::size_t{1} << 28;

// The first character of a line tells what it is.
constexpr char kTask = '#';
constexpr char kBegun = '?';
constexpr char kDone = '+';
constexpr char kWithdrawn = '-';

Failure failed(std::string_view step, const std::string &path) {
  return Failure(ExitCode::kOther,
                 fmt::format("cannot {} {}: {}", step, printable(path), std::generic_category().message(errno)));
}

}  // namespace

Journal::Journal(const std::string &path, const std::string &task) {
  if (path.empty()) return;
  path_ = path + ".journal";
  descriptor_ = open(path_.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (descriptor_ < 0) throw failed("open", path_);
  try {
    if (flock(descriptor_, LOCK_EX | LOCK_NB) != 0)
      throw Failure(ExitCode::kOther, fmt::format("another run works on {}", printable(path)), "wait for it");
    read(task);
  } catch (const Failure &) {
    close(descriptor_);
    throw;
  }
}

Journal::~Journal() {
  if (descriptor_ >= 0) close(descriptor_);
}

void Journal::read(const std::string &task) {
  std::string text = read_text(path_, kMaxBytes, "journal");
  const std::string header = kTask + escaped(task) + "\n";
  if (text.substr(0, header.size()) != header.substr(0, text.size())) {
    throw Failure(
        ExitCode::kUsage,
        fmt::format("{} is of another task: {}", printable(path_), printable(text.substr(0, text.find('\n')))),
        "finish that first, or remove the journal");
  }
  // A last line without an end was being written when its run ended.
  text.resize(text.find_last_of('\n') + 1);
  if (ftruncate(descriptor_, static_cast<off_t>(text.size())) != 0) throw failed("mend", path_);
  if (text.empty()) {
    append(kTask, task);
    return flush();
  }
  std::istringstream lines(text.substr(header.size()));
  std::string line;
  while (std::getline(lines, line)) {
    if (line.empty()) continue;
    const std::string name = unescaped(std::string_view(line).substr(1));
    if (line.front() == kDone) earlier_.insert(name);
    if (line.front() == kBegun) begun_.insert(name);
    if (line.front() == kWithdrawn) begun_.erase(name);
  }
}

void Journal::append(char mark, const std::string &text) {
  const std::string line = mark + escaped(text) + "\n";
  // All of a short line, or nothing that counts.
  if (write(descriptor_, line.data(), line.size()) != static_cast<ssize_t>(line.size())) throw failed("write", path_);
}

void Journal::flush() {
  if (fdatasync(descriptor_) != 0) throw failed("write", path_);
}

void Journal::note(char mark, const std::string &name, bool flushes) {
  if (path_.empty()) return;
  const std::lock_guard lock(mutex_);
  append(mark, name);
  if (flushes) flush();
}

void Journal::begin(const std::string &name) {
  note(kBegun, name, false);
}

void Journal::add(const std::string &name) {
  note(kDone, name, true);
}

void Journal::withdraw(const std::string &name) {
  note(kWithdrawn, name, false);
}

void Journal::remove() {
  if (!path_.empty()) unlink(path_.c_str());
}

}  // namespace command
