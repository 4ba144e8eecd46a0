// The file that a transaction writes what it receives to.
#pragma once

#include <array>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <string_view>

#include "orn/vesk/wiped.h"

namespace vesk::skeys {

// The buffer is also how soon a full disk shows: at the first write that fills it.
template <std::size_t kBufferBytes>
class BufferedFile {
 public:
  // Creates or truncates. Returns whether the file could be opened.
  bool open(const char *path) {
    file_.reset(std::fopen(path, "we"));
    if (is_open()) std::setvbuf(file_.get(), buffer_->data(), _IOFBF, buffer_->size());
    return is_open();
  }
  bool is_open() const { return file_ != nullptr; }

  // Returns how many bytes were taken.
  std::size_t write(std::string_view bytes) { return fwrite_unlocked(bytes.data(), 1, bytes.size(), file_.get()); }

  // As fprintf: how many characters, or a negative number.
  __attribute__((format(printf, 2, 3))) int print(const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const int written = std::vfprintf(file_.get(), format, arguments);
    va_end(arguments);
    return written;
  }

  // The stream's indicators.
  int error_indicator() const { return std::ferror(file_.get()); }
  int end_indicator() const { return std::feof(file_.get()); }

  // Writes what is still buffered. Returns whether all of it went out; the file is closed either way.
  bool close() { return std::fclose(file_.release()) == 0; }

 private:
  struct Closer {
    void operator()(std::FILE *file) const { std::fclose(file); }
  };
  Wiped<std::array<char, kBufferBytes>> buffer_;  // the stream's, which may pass key values; outlives it
  std::unique_ptr<std::FILE, Closer> file_;
};

using OutputFile = BufferedFile<4096>;

}  // namespace vesk::skeys
