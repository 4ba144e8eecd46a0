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
#include "veskd/private_directories.h"

namespace veskd {
namespace {

constexpr std::size_t kMaxFileBytes = 65536;

[[noreturn]] void fail(std::string_view what, const std::filesystem::path &path) {
  throw StartError(fmt::format("{} {}: {}", what, path.string(), std::generic_category().message(errno)));
}

void sync_directory_of(const std::filesystem::path &path) {
  const std::filesystem::path directory = path.has_parent_path() ? path.parent_path() : ".";
  const Descriptor descriptor(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!descriptor || ::fsync(descriptor.number()) != 0) fail("cannot write to directory", directory);
}

}  // namespace

// What an earlier process left behind goes first; O_EXCL then makes the file ours, with its mode, from the start.
NewFile::NewFile(const std::filesystem::path &target, int mode) : target_(target), path_(target.string() + ".new") {
  ::unlink(path_.c_str());
  descriptor_ = Descriptor(::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode));
  if (!descriptor_) fail("cannot create", path_);
}

NewFile::~NewFile() {
  ::unlink(path_.c_str());
}

void NewFile::write(std::string_view content) {
  while (!content.empty()) {
    const ssize_t written = ::write(descriptor_.number(), content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) fail("cannot write", path_);
    content.remove_prefix(static_cast<std::size_t>(written));
  }
}

void NewFile::replace() {
  put_in_place(::rename);
}

void NewFile::create() {
  put_in_place(::link);
}

void NewFile::put_in_place(int (*give_name)(const char *from, const char *to)) {
  if (::fsync(descriptor_.number()) != 0) fail("cannot write", path_);
  if (give_name(path_.c_str(), target_.c_str()) != 0) fail("cannot put in place", target_);
  sync_directory_of(target_);
}

void replace_file(const std::filesystem::path &path, std::string_view content, int mode) {
  NewFile file(path, mode);
  file.write(content);
  file.replace();
}

void create_file(const std::filesystem::path &path, std::string_view content, int mode) {
  NewFile file(path, mode);
  file.write(content);
  file.create();
}

void rename_file(const std::filesystem::path &from, const std::filesystem::path &to) {
  if (::rename(from.c_str(), to.c_str()) != 0) fail("cannot put in place", to);
  sync_directory_of(to);
}

void remove_file(const std::filesystem::path &path) {
  if (::unlink(path.c_str()) != 0) fail("cannot remove", path);
  sync_directory_of(path);
}

std::filesystem::path make_directory(const std::filesystem::path &directory) {
  namespace fs = std::filesystem;
  std::error_code error = make_private_directories(directory);
  if (error) throw StartError(fmt::format("cannot make the directory {}: {}", directory.string(), error.message()));
  fs::path absolute = fs::canonical(directory, error);
  if (error) throw StartError(fmt::format("cannot use the directory {}: {}", directory.string(), error.message()));
  return absolute;
}

std::string read_file(const std::filesystem::path &path) {
  const Descriptor descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!descriptor) fail("cannot open", path);
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

namespace {

Descriptor open_lock(const std::filesystem::path &path) {
  Descriptor descriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kPrivateMode));
  if (!descriptor) fail("cannot open", path);
  return descriptor;
}

}  // namespace

Descriptor lock_file(const std::filesystem::path &path) {
  Descriptor descriptor = open_lock(path);
  if (::flock(descriptor.number(), LOCK_EX | LOCK_NB) == 0) return descriptor;
  if (errno != EWOULDBLOCK) fail("cannot lock", path);
  throw StartError(
      fmt::format("another veskd serves the directory {} already: stop it first, or choose another directory",
                  path.parent_path().string()));
}

Descriptor wait_for_lock(const std::filesystem::path &path) {
  Descriptor descriptor = open_lock(path);
  while (::flock(descriptor.number(), LOCK_EX) != 0) {
    if (errno != EINTR) fail("cannot lock", path);
  }
  return descriptor;
}

}  // namespace veskd
