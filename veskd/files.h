// Files of the server's directory: written whole or not at all, private ones with mode 0600 from the first instant.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>

namespace veskd {

inline constexpr int kPrivateMode = 0600;
inline constexpr int kPublicMode = 0644;

// A file descriptor and its owner.
class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  Descriptor(Descriptor &&other) noexcept : number_(other.release()) {}
  Descriptor(const Descriptor &) = delete;
  Descriptor &operator=(const Descriptor &) = delete;
  ~Descriptor();

  int number() const { return number_; }
  bool is_open() const { return number_ >= 0; }
  int release() { return std::exchange(number_, -1); }

 private:
  int number_;
};

// Puts the content in place under a temporary name first, then renames: readers see the old file or the new one.
void replace_file(const std::filesystem::path &path, std::string_view content, int mode);

// The same, but refuses to replace a file that exists.
void create_file(const std::filesystem::path &path, std::string_view content, int mode);

// The whole file, of at most 64 KiB. A private file that others may read is refused.
std::string read_file(const std::filesystem::path &path);
void require_private(const std::filesystem::path &path);

// Holds an exclusive lock on the file as long as the descriptor is open; throws when another process holds it.
Descriptor lock_file(const std::filesystem::path &path);

}  // namespace veskd
