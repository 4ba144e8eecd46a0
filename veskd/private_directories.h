// Directories that only their owner looks into.
#pragma once

#include <filesystem>
#include <system_error>

namespace veskd {

// Makes the directory, and those above it that are missing, for their owner alone from the first instant. One that is
// there stays as it is.
std::error_code make_private_directories(const std::filesystem::path &directory);

}  // namespace veskd
