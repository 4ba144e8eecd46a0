// The file that tells scripts that a server listens, and where. It is there while the server serves.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace veskd {

class ReadyFile {
 public:
  // Takes away what a server that was killed left behind. An empty path stands for no file.
  explicit ReadyFile(std::filesystem::path path);
  ~ReadyFile();
  ReadyFile(const ReadyFile &) = delete;
  ReadyFile &operator=(const ReadyFile &) = delete;

  void write(const std::string &host, std::uint16_t port, const std::filesystem::path &directory) const;

 private:
  const std::filesystem::path path_;
};

}  // namespace veskd
