// The file that tells scripts that a server listens, and where. It is there while the server serves.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace veskd {

struct Ports {
  std::uint16_t keys;
  std::optional<std::uint16_t> watch;  // if the server can be watched
};

class ReadyFile {
 public:
  // Takes away what a server that was killed left behind. An empty path stands for no file.
  explicit ReadyFile(std::filesystem::path path);
  ~ReadyFile();
  ReadyFile(const ReadyFile &) = delete;
  ReadyFile &operator=(const ReadyFile &) = delete;

  void write(const std::string &host, const Ports &ports, const std::filesystem::path &directory) const;

 private:
  const std::filesystem::path path_;
};

}  // namespace veskd
