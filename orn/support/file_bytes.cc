#include "orn/support/file_bytes.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "orn/support/socket.h"

namespace orn {

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
