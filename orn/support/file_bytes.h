// A whole file in memory that is wiped when it goes.
#ifndef ORN_SUPPORT_FILE_BYTES_H
#define ORN_SUPPORT_FILE_BYTES_H

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "orn/support/openssl_ptr.h"

struct stat;

namespace orn {

// What tells one version of a file from another. Times are in nanoseconds since 1970.
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  std::int64_t modified = 0;  // its contents; whoever writes a file may set it back
  std::int64_t changed = 0;   // anything of it, its permissions too; nobody sets it

  // Nothing if there is no such file.
  static std::optional<FileIdentity> of(const char *path);
  static FileIdentity of(const struct stat &about);

  // Whether a change after a moment is certain to show. The system's file times advance in ticks of some milliseconds:
  // two changes within a tick bear the same time.
  bool is_settled(std::chrono::system_clock::time_point moment) const;

  friend bool operator==(const FileIdentity &, const FileIdentity &) = default;
};

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

  // Of the file before it was read.
  const FileIdentity &identity() const { return identity_; }

  // A BIO that reads the bytes, which must outlive it. Null when out of memory.
  BioPtr new_bio() const;

 private:
  int read_all(int descriptor);

  std::unique_ptr<char[]> bytes_;
  std::size_t capacity_ = 0;
  std::size_t size_ = 0;
  FileIdentity identity_;
};

}  // namespace orn

#endif
