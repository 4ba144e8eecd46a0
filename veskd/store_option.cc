#include "veskd/store_option.h"

#include <CLI/CLI.hpp>

#include "veskd/configuration.h"

namespace veskd {

void StoreOption::add_to(CLI::App &command, const std::string &directory_text) {
  CLI::Option_group *where = command.add_option_group("Store", "where the store is");
  where->add_option("--dir", directory_, directory_text);
  where->add_option("--config", configuration_, "configuration file of the server that has the store");
  where->require_option(1);
}

StoreFiles StoreOption::files() const {
  if (configuration_.empty()) return store_files_in(directory_);
  const ServiceSettings settings = read_configuration(configuration_);
  return {settings.store, settings.master_key};
}

}  // namespace veskd
