// A file in memory alone, for calls of the library that take a path: what was checked is what is sent, and what is
// fetched touches no disk before it has been seen to be good.
#pragma once

#include <string>
#include <string_view>

namespace command {

class MemoryFile {
 public:
  explicit MemoryFile(std::string_view content = {});
  ~MemoryFile();
  MemoryFile(const MemoryFile &) = delete;
  MemoryFile &operator=(const MemoryFile &) = delete;

  // Under which this process can open it.
  const std::string &path() const { return path_; }

  std::string content() const;

 private:
  int descriptor_;
  std::string path_;
};

}  // namespace command
