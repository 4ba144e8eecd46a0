#pragma once

#include <filesystem>
#include <fstream>
#include <string>

#include "tests/server/test_server.h"

namespace veskd::test {

// A file of faults in a directory of its own.
class FaultFile {
 public:
  explicit FaultFile(const std::string &text) { std::ofstream(path()) << text; }
  std::filesystem::path path() const { return directory_ / "faults.toml"; }

 private:
  TemporaryDirectory directory_;
};

}  // namespace veskd::test
