// Files of the server's directory: written whole or not at all, private ones with mode 0600 from the first instant.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "orn/support/descriptor.h"

namespace veskd {

inline constexpr int kPrivateMode = 0600;
inline constexpr int kPublicMode = 0644;

using orn::Descriptor;

// A file under a temporary name beside its target, removed unless it was put in place.
class NewFile {
 public:
  NewFile(const std::filesystem::path &target, int mode);
  ~NewFile();
  NewFile(const NewFile &) = delete;
  NewFile &operator=(const NewFile &) = delete;

  // The temporary name, for others to write under.
  const std::filesystem::path &path() const { return path_; }
  void write(std::string_view content);

  // Puts the file in place, whole and durable: replace() whatever is there, create() only if nothing is.
  void replace();
  void create();

 private:
  void put_in_place(int (*give_name)(const char *from, const char *to));

  const std::filesystem::path target_;
  const std::filesystem::path path_;
  Descriptor descriptor_;
};

// Puts the content in place under a temporary name first, then renames: readers see the old file or the new one.
void replace_file(const std::filesystem::path &path, std::string_view content, int mode);

// The same, but refuses to replace a file that exists.
void create_file(const std::filesystem::path &path, std::string_view content, int mode);

// Durable too.
void rename_file(const std::filesystem::path &from, const std::filesystem::path &to);
void remove_file(const std::filesystem::path &path);

// The absolute path of the directory, which is made for its owner alone if it is not there.
std::filesystem::path make_directory(const std::filesystem::path &directory);

// The whole file, of at most 64 KiB. A private file that others may read is refused.
std::string read_file(const std::filesystem::path &path);
void require_private(const std::filesystem::path &path);

// Holds an exclusive lock on the file as long as the descriptor is open; throws when another process holds it.
Descriptor lock_file(const std::filesystem::path &path);

// The same, but waits.
Descriptor wait_for_lock(const std::filesystem::path &path);

}  // namespace veskd
