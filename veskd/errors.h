// What stops the server from starting: what failed, on which file, why, and what to do about it.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>

namespace veskd {

class StartError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The same, when it is the content of one file that is at fault.
class FileError : public StartError {
 public:
  FileError(std::filesystem::path file, const std::string &what) : StartError(what), file_(std::move(file)) {}
  const std::filesystem::path &file() const { return file_; }

 private:
  std::filesystem::path file_;
};

// The newest error of OpenSSL's queue as text; empties the queue.
std::string openssl_error();

// Throws StartError with OpenSSL's reason unless the condition holds.
void require_openssl(bool condition, const std::string &what);

}  // namespace veskd
