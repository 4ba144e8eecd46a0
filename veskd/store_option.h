// Where a command finds the store that it is for.
#pragma once

#include <filesystem>
#include <string>

#include "veskd/store_file.h"

namespace CLI {
class App;
}

namespace veskd {

class StoreOption {
 public:
  // One of --dir and --config must be given. Must live as long as the command.
  void add_to(CLI::App &command, const std::string &directory_text = "directory of master key and store");

  // Throws StartError.
  StoreFiles files() const;

 private:
  std::filesystem::path directory_;
  std::filesystem::path configuration_;
};

}  // namespace veskd
