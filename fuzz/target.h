// What the fuzz targets share. A target is given bytes, has the project's code read them, and ends the process when
// what came of it breaks a rule; the sanitizers do so for the rules of the language.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace fuzz {

inline void require(bool condition, const char *rule) {
  if (condition) return;
  std::fprintf(stderr, "broken: %s\n", rule);
  std::abort();
}

// A folder, in memory if there is such a place, where files that are written for each input cost little. Removed with
// the process.
class ScratchFolder {
 public:
  ScratchFolder() {
    umask(0077);  // some of the files have to be their owner's alone
    const std::filesystem::path memory = "/dev/shm";
    std::string name = (is_directory(memory) ? memory : std::filesystem::temp_directory_path()) / "vesk-fuzz-XXXXXX";
    require(mkdtemp(name.data()) != nullptr, "there is room for a folder");
    path_ = name;
  }
  ScratchFolder(const ScratchFolder &) = delete;
  ScratchFolder &operator=(const ScratchFolder &) = delete;
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  std::string path(const std::string &name) const { return (path_ / name).string(); }

  // Returns its path.
  std::string write(const std::string &name, std::string_view bytes) const {
    std::ofstream(path(name), std::ios::binary | std::ios::trunc) << bytes;
    return path(name);
  }

 private:
  std::filesystem::path path_;
};

inline const ScratchFolder &scratch() {
  static const ScratchFolder folder;
  return folder;
}

// Takes the first character, which says what the rest is; none for an empty input.
inline char take_kind(std::string_view &input) {
  if (input.empty()) return '\0';
  const char kind = input.front();
  input.remove_prefix(1);
  return kind;
}

}  // namespace fuzz

// The input of a target. Returns -1 for one that is not worth keeping.
int fuzz_one(std::string_view input);

#define FUZZ_TARGET(input)                                                            \
  extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) { \
    return fuzz_one({reinterpret_cast<const char *>(data), size});                    \
  }                                                                                   \
  int fuzz_one(std::string_view input)
