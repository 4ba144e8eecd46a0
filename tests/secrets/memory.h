// Looks for secrets in what a process can write to: heap and what was freed of it, stacks and what is below them, data,
// anonymous memory.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <ostream>
#include <span>
#include <string>
#include <vector>

namespace secrets_test {

// A secret to look for, kept in a form in which it is not found itself. Its last bytes beyond a multiple of eight do
// not count.
class Needle {
 public:
  explicit Needle(std::span<const unsigned char> secret);

  // Of bytes of a file, without a copy of them that stays.
  static Needle of_file(const std::filesystem::path &path, std::size_t offset, std::size_t size);

  // The same bytes from the last to the first, as numbers lie in memory.
  Needle reversed() const;

  // Whether this is one and not zeros.
  bool is_a_secret() const;

  std::vector<std::uint64_t> encoded;  // in pieces of eight bytes
};

// Where a secret, or eight bytes of it, was found: where the whole of it would begin.
struct Place {
  std::uintptr_t address;
  std::string mapping;

  friend bool operator==(const Place &, const Place &) = default;
};
void PrintTo(const Place &place, std::ostream *stream);

// All places in the memory of a process: this one, or another. Throws std::system_error where it may not be read.
std::vector<Place> places_of(const Needle &needle, pid_t process);
std::vector<Place> places_of(const Needle &needle);

}  // namespace secrets_test
