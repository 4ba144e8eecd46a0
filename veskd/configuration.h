// The configuration file of a server: TOML, every key of which stands in docs/veskd.toml.
#pragma once

#include <filesystem>

#include "veskd/errors.h"
#include "veskd/service.h"

namespace veskd {

// Says file, line and reason of every mistake, a line each.
class ConfigurationError : public StartError {
 public:
  using StartError::StartError;
};

// Reads the file and looks at the files that it names; makes nothing. Throws ConfigurationError.
ServiceSettings read_configuration(const std::filesystem::path &file);

}  // namespace veskd
