// The file that a transaction sends.
#pragma once

#include <cstdio>
#include <memory>
#include <span>

namespace vesk::skeys {

class InputFile {
 public:
  // Returns whether the file could be opened. It is read without a buffer, in which a key would stay behind.
  bool open(const char *path) {
    file_.reset(std::fopen(path, "rbe"));
    if (is_open()) std::setvbuf(file_.get(), nullptr, _IONBF, 0);
    return is_open();
  }
  bool is_open() const { return file_ != nullptr; }

  // Fills room, or less when the file ends or fails. Returns how much arrived.
  std::size_t read(std::span<char> room) { return std::fread(room.data(), 1, room.size(), file_.get()); }

  // The stream's indicators.
  int error_indicator() const { return std::ferror(file_.get()); }
  int end_indicator() const { return std::feof(file_.get()); }

  // Returns whether closing succeeded; the file is gone either way.
  bool close() { return std::fclose(file_.release()) == 0; }

 private:
  struct Closer {
    void operator()(std::FILE *file) const { std::fclose(file); }
  };
  std::unique_ptr<std::FILE, Closer> file_;
};

}  // namespace vesk::skeys
