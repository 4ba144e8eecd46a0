// The library's trace: for the user who asks for it, and as the source of an error's details.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace command {

// Receives the library's trace while it exists. One at a time.
class Trace {
 public:
  // path  empty for no trace, "-" for standard error, otherwise a file, which is appended to and made with mode 0600
  explicit Trace(const std::string &path);
  ~Trace();
  Trace(const Trace &) = delete;
  Trace &operator=(const Trace &) = delete;

  // What the connection layer said on this thread since the last call of this function.
  static std::vector<std::string> take_connection_details();

  // The first return code other than 0 that replies had on this thread since the last call of this function; 0 if none.
  static int take_return_code();

 private:
  struct CloseFile {
    void operator()(std::FILE *file) const { std::fclose(file); }
  };
  static void receive(void *trace, const char *line);

  std::unique_ptr<std::FILE, CloseFile> file_;
  std::FILE *stream_ = nullptr;
};

}  // namespace command
