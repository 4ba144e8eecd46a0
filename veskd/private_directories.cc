#include "veskd/private_directories.h"

#include <sys/stat.h>

#include <cerrno>

namespace veskd {

std::error_code make_private_directories(const std::filesystem::path &directory) {
  std::error_code error;
  if (std::filesystem::is_directory(directory, error)) return {};
  const std::filesystem::path above = directory.parent_path();
  if (!above.empty() && above != directory) {
    error = make_private_directories(above);
    if (error) return error;
  }
  if (::mkdir(directory.c_str(), S_IRWXU) == 0) return {};
  // Made by another meanwhile, or named with a slash at its end.
  const std::error_code reason(errno, std::generic_category());
  return std::filesystem::is_directory(directory, error) ? std::error_code() : reason;
}

}  // namespace veskd
