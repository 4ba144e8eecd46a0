#include "veskd/files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <openssl/crypto.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "veskd/errors.h"

namespace veskd {
namespace {

constexpr std::size_t kMaxFileBytes = 65536;

[[noreturn]] void fail(std::string_view what, const std::filesystem::path &path) {
  throw StartError(fmt::format("{} {}: {}", what, path.string(), std::generic_category().message(errno)));
}

// A file under a temporary name, removed unless it was put in place.
class TemporaryFile {
 public:
  TemporaryFile(const std::filesystem::path &target, int mode)
      : path_(target.string() + ".new"), descriptor_(open_new(path_, mode)) {
    if (!descriptor_.is_open()) fail("cannot create", path_);
  }
  ~TemporaryFile() { ::unlink(path_.c_str()); }

  void write(std::string_view content) {
    while (!content.empty()) {
      const ssize_t written = ::write(descriptor_.number(), content.data(), content.size());
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) fail("cannot write", path_);
      content.remove_prefix(static_cast<std::size_t>(written));
    }
    if (::fsync(descriptor_.number()) != 0) fail("cannot write", path_);
  }

  const char *path() const { return path_.c_str(); }

 private:
  // What an earlier process left behind goes first; O_EXCL then makes the file ours, with its mode, from the start.
  static int open_new(const std::filesystem::path &path, int mode) {
    ::unlink(path.c_str());
    const int number = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode);
    return number;
  }

  std::filesystem::path path_;
  Descriptor descriptor_;
};

void sync_directory_of(const std::filesystem::path &path) {
  const std::filesystem::path directory = path.has_parent_path() ? path.parent_path() : ".";
  const Descriptor descriptor(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!descriptor.is_open() || ::fsync(descriptor.number()) != 0) fail("cannot write to directory", directory);
}

}  // namespace

Descriptor::~Descriptor() {
  if (is_open()) ::close(number_);
}

void replace_file(const std::filesystem::path &path, std::string_view content, int mode) {
  TemporaryFile file(path, mode);
  file.write(content);
  if (::rename(file.path(), path.c_str()) != 0) fail("cannot put in place", path);
  sync_directory_of(path);
}

void create_file(const std::filesystem::path &path, std::string_view content, int mode) {
  TemporaryFile file(path, mode);
  file.write(content);
  if (::link(file.path(), path.c_str()) != 0) fail("cannot put in place", path);
  sync_directory_of(path);
}

std::string read_file(const std::filesystem::path &path) {
  const Descriptor descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!descriptor.is_open()) fail("cannot open", path);
  std::string content(kMaxFileBytes + 1, '\0');
  std::size_t length = 0;
  while (length < content.size()) {
    const ssize_t got = ::read(descriptor.number(), content.data() + length, content.size() - length);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) fail("cannot read", path);
    if (got == 0) break;
    length += static_cast<std::size_t>(got);
  }
  if (length > kMaxFileBytes) throw StartError(fmt::format("{} is longer than {} bytes", path.string(), kMaxFileBytes));
  content.resize(length);
  return content;
}

void require_private(const std::filesystem::path &path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) fail("cannot examine", path);
  if ((status.st_mode & 077) != 0)
    throw StartError(
        fmt::format("others than its owner may read or change {}: type  chmod 600 {}", path.string(), path.string()));
}

Descriptor lock_file(const std::filesystem::path &path) {
  Descriptor descriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kPrivateMode));
  if (!descriptor.is_open()) fail("cannot open", path);
  if (::flock(descriptor.number(), LOCK_EX | LOCK_NB) == 0) return descriptor;
  if (errno != EWOULDBLOCK) fail("cannot lock", path);
  throw StartError(
      fmt::format("another veskd serves the directory {} already: stop it first, or choose another directory",
                  path.parent_path().string()));
}

}  // namespace veskd
