// A path in a folder of the test's own, removed with it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

class TemporaryFile {
 public:
  TemporaryFile() {
    std::string folder = std::filesystem::temp_directory_path() / "vesk-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) std::abort();
    folder_ = folder;
  }
  TemporaryFile(const TemporaryFile &) = delete;
  TemporaryFile &operator=(const TemporaryFile &) = delete;
  ~TemporaryFile() { std::filesystem::remove_all(folder_); }

  std::string path() const { return folder_ + "/file"; }
  std::string folder() const { return folder_; }
  bool exists() const { return std::filesystem::exists(path()); }

  // Writes the file. Returns its path.
  std::string fill(const std::string &bytes) const {
    std::ofstream(path(), std::ios::binary) << bytes;
    return path();
  }

  std::string contents() const {
    std::ifstream file(path(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

 private:
  std::string folder_;
};
