#include "vesk/secret_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <optional>
#include <system_error>

#include "vesk/failure.h"
#include "vesk/text.h"
#include "vesk/watch.h"

namespace command {
namespace {

Failure failed(std::string_view step, const std::string &path) {
  return Failure(ExitCode::kOther,
                 fmt::format("cannot {} {}: {}", step, printable(path), std::generic_category().message(errno)));
}

Failure exists(const std::string &path) {
  return Failure(ExitCode::kOther, fmt::format("{} exists already and was left as it is", printable(path)),
                 "give another name, or replace it with --force");
}

std::string directory_of(const std::string &path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// By how making one failed.
bool has_no_links(int error) {
  return error == EPERM || error == EOPNOTSUPP;
}

// A file of mode 0600 beside the one to be; gone with its owner unless it was renamed.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string &path) : name_(directory_of(path) + "/.vesk-XXXXXX") {
    const Uninterrupted both;
    descriptor_ = mkostemp(name_.data(), O_CLOEXEC);
    if (descriptor_ < 0) throw failed("make a file beside", path);
    unfinished_.emplace(name_);
  }
  ~TemporaryFile() {
    const Uninterrupted both;
    if (descriptor_ >= 0) close(descriptor_);
    if (!was_renamed_) unlink(name_.c_str());
    unfinished_.reset();
  }
  TemporaryFile(const TemporaryFile &) = delete;
  TemporaryFile &operator=(const TemporaryFile &) = delete;

  void write(std::string_view bytes, const std::string &path) {
    while (!bytes.empty()) {
      const ssize_t written = ::write(descriptor_, bytes.data(), bytes.size());
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) throw failed("write", path);
      bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    if (fsync(descriptor_) != 0) throw failed("write", path);
  }

  void share(const std::string &path) {
    const mode_t mask = umask(0);
    umask(mask);
    constexpr mode_t kForAll = 0666;
    if (fchmod(descriptor_, kForAll & ~mask) != 0) throw failed("write", path);
  }

  // A link is made only where nothing is; a rename replaces, unless it is told not to, which not every file system can
  // do. Those of memory sticks can, and have no links.
  void become(const std::string &path, bool replace) {
    const Uninterrupted both;
    if (replace) {
      if (rename(name_.c_str(), path.c_str()) != 0) throw failed("replace", path);
    } else if (link(name_.c_str(), path.c_str()) == 0) {
      return;
    } else if (!has_no_links(errno) ||
               renameat2(AT_FDCWD, name_.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) != 0) {
      throw errno == EEXIST ? exists(path) : failed("create", path);
    }
    was_renamed_ = true;
    unfinished_.reset();
  }

 private:
  std::string name_;
  int descriptor_ = -1;
  bool was_renamed_ = false;
  std::optional<UnfinishedFile> unfinished_;
};

void flush_directory(const std::string &path) {
  const int directory = open(directory_of(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const bool flushed = directory >= 0 && fsync(directory) == 0;
  const int error = errno;
  if (directory >= 0) close(directory);
  errno = error;
  if (!flushed) throw failed("flush the directory of", path);
}

}  // namespace

void check_secret_file(const std::string &path, bool force) {
  if (path.empty()) throw Failure(ExitCode::kUsage, "the name of the file to write is empty");
  struct stat there {};
  if (lstat(path.c_str(), &there) == 0) {
    if (!S_ISREG(there.st_mode))
      throw Failure(ExitCode::kOther, fmt::format("{} is not a regular file and was left as it is", printable(path)));
    if (!force) throw exists(path);
  } else if (errno != ENOENT) {
    throw failed("create", path);
  }
  if (access(directory_of(path).c_str(), W_OK | X_OK) != 0) throw failed("create", path);
}

bool others_may_read(const std::string &path) {
  struct stat file {};
  if (path == "-" || stat(path.c_str(), &file) != 0 || !S_ISREG(file.st_mode)) return false;
  return (file.st_mode & (S_IRWXG | S_IRWXO)) != 0;
}

void warn_of_readers(const std::string &path) {
  if (!others_may_read(path)) return;
  fmt::print(stderr, "warning: others may read {}: chmod 600 {}\n", printable(path), printable(path));
}

void write_secret_file(const std::string &path, std::string_view bytes, bool force) {
  {
    TemporaryFile file(path);
    file.write(bytes, path);
    file.become(path, force);
  }
  flush_directory(path);
}

void write_whole_file(const std::string &path, std::string_view bytes) {
  {
    TemporaryFile file(path);
    file.write(bytes, path);
    file.share(path);
    file.become(path, true);
  }
  flush_directory(path);
}

}  // namespace command
