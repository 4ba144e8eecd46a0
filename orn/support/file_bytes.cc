#include "orn/support/file_bytes.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "orn/support/descriptor.h"

namespace orn {
namespace {

std::int64_t nanoseconds_of(const timespec &time) {
  return (std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec)).count();
}

// By which file times advance.
std::int64_t file_time_tick() {
  timespec tick{};
  clock_getres(CLOCK_REALTIME_COARSE, &tick);
  return nanoseconds_of(tick);
}

}  // namespace

std::optional<FileIdentity> FileIdentity::of(const char *path) {
  struct stat about {};
  if (stat(path, &about) < 0) return std::nullopt;
  return of(about);
}

FileIdentity FileIdentity::of(const struct stat &about) {
  return {about.st_dev, about.st_ino, about.st_size, nanoseconds_of(about.st_mtim), nanoseconds_of(about.st_ctim)};
}

bool FileIdentity::is_settled(std::chrono::system_clock::time_point moment) const {
  return std::chrono::nanoseconds(moment.time_since_epoch()).count() - std::max(modified, changed) >= file_time_tick();
}

FileBytes::~FileBytes() {
  if (bytes_) OPENSSL_cleanse(bytes_.get(), capacity_);
}

int FileBytes::read(const char *path) {
  // Without O_NONBLOCK the opening of a pipe that nobody writes to would hang.
  Descriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  if (!file) return errno;
  struct stat about {};
  if (fstat(file.number(), &about) < 0) return errno;
  if (S_ISDIR(about.st_mode)) return EISDIR;
  if (!S_ISREG(about.st_mode)) return EINVAL;
  if (about.st_size > static_cast<off_t>(kMostBytes)) return EFBIG;
  identity_ = FileIdentity::of(about);
  // One byte more than the file has, to see whether it grows meanwhile.
  capacity_ = static_cast<std::size_t>(about.st_size) + 1;
  bytes_ = std::make_unique<char[]>(capacity_);
  return read_all(file.number());
}

int FileBytes::read_all(int descriptor) {
  for (;;) {
    ssize_t got = ::read(descriptor, bytes_.get() + size_, capacity_ - size_);
    if (got == 0) return 0;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return errno;
    size_ += static_cast<std::size_t>(got);
    if (size_ == capacity_) return EFBIG;
  }
}

BioPtr FileBytes::new_bio() const {
  return BioPtr(BIO_new_mem_buf(bytes_.get(), static_cast<int>(size_)));
}

}  // namespace orn
