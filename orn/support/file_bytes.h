// A whole file in memory that is wiped when it goes.
#ifndef ORN_SUPPORT_FILE_BYTES_H
#define ORN_SUPPORT_FILE_BYTES_H

#include <cstddef>
#include <memory>

#include "orn/support/openssl_ptr.h"

namespace orn {

class FileBytes {
 public:
  // Far above what certificate files hold, and no burden.
  static constexpr std::size_t kMostBytes = 4 << 20;

  FileBytes() = default;
  FileBytes(const FileBytes &) = delete;
  FileBytes &operator=(const FileBytes &) = delete;
  ~FileBytes();

  // Returns 0 or an errno value: EISDIR for a directory, EINVAL for what is no regular file, EFBIG for one too large.
  int read(const char *path);

  // A BIO that reads the bytes, which must outlive it. Null when out of memory.
  BioPtr new_bio() const;

 private:
  int read_all(int descriptor);

  std::unique_ptr<char[]> bytes_;
  std::size_t capacity_ = 0;
  std::size_t size_ = 0;
};

}  // namespace orn

#endif
