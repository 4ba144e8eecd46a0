// veskd rotate-master-key.
#include <CLI/CLI.hpp>
#include <memory>

#include "veskd/commands.h"
#include "veskd/master_key_rotation.h"
#include "veskd/store_option.h"

namespace veskd {

void add_rotation_command(CLI::App &app) {
  struct Options {
    StoreOption store;
    bool reseal_values = false;
  };
  const auto options = std::make_shared<Options>();
  CLI::App *rotate = app.add_subcommand("rotate-master-key", "Change the master key, while a server runs or not");
  options->store.add_to(*rotate);
  rotate->add_flag("--reseal-values", options->reseal_values,
                   "seal every key value anew too; no server may have the store, which must be in a file");
  rotate->callback([options] {
    const StoreFiles files = options->store.files();
    options->reseal_values ? rotate_all_keys(files) : rotate_master_key(files);
  });
}

}  // namespace veskd
