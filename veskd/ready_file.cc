#include "veskd/ready_file.h"

#include <unistd.h>

#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "veskd/files.h"

namespace veskd {
namespace {

void remove_if_there(const std::filesystem::path &path) {
  std::error_code ignored;
  if (!path.empty()) std::filesystem::remove(path, ignored);
}

}  // namespace

ReadyFile::ReadyFile(std::filesystem::path path) : path_(std::move(path)) {
  remove_if_there(path_);
}

ReadyFile::~ReadyFile() {
  remove_if_there(path_);
}

void ReadyFile::write(const std::string &host, const Ports &ports, const std::filesystem::path &directory) const {
  if (path_.empty()) return;
  nlohmann::json ready = {{"host", host}, {"port", ports.keys}, {"pid", ::getpid()}, {"directory", directory.string()}};
  if (ports.watch) ready["watch_port"] = *ports.watch;
  replace_file(path_, ready.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n", kPublicMode);
}

}  // namespace veskd
