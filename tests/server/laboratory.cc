#include "tests/server/laboratory.h"

#include <fmt/format.h>
#include <signal.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace veskd::test {
namespace {

constexpr const char *kEveryServer =
    "directory = '.'\n"
    "ready_file = 'ready.json'\n"
    "store = '{}'\n"
    "master_key = 'master.key'\n"
    "[listen]\n"
    "port = 0\n"
    "[tls]\n"
    "certificate = 'server.pem'\n"
    "private_key = 'server-key.pem'\n"
    "client_authority = 'authority.pem'\n";

}  // namespace

Laboratory::Laboratory() {
  const Log log(true);
  const DevEnvironment made(directory_.path(), {}, log);
  configure("");
}

void Laboratory::configure(const std::string &sections, const std::string &roles) {
  const StoreAddress store = store_address(path());
  const std::string location = store.is_shared() ? store.text() : "store.db";
  write("veskd.toml", fmt::format(kEveryServer, location) + sections + roles);
}

void Laboratory::write(const std::string &name, const std::string &content) const {
  std::ofstream(directory_ / name) << content;
}

ConfiguredServer::ConfiguredServer(const Laboratory &laboratory)
    : paths_(client_paths(laboratory.path())), program_({"serve", "--config", laboratory.file().string()}) {
  if (program_.read_line().empty())
    throw std::runtime_error("veskd did not start: " + (program_.wait(), program_.errors()));
  std::ifstream ready(laboratory / "ready.json");
  port_ = nlohmann::json::parse(ready).at("port");
}

std::size_t ConfiguredServer::times_logged(const std::string &text) {
  const std::string log = program_.errors();
  std::size_t times = 0;
  for (std::size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) ++times;
  return times;
}

bool ConfiguredServer::has_logged(const std::string &text) {
  return eventually([&] { return times_logged(text) > 0; });
}

bool ConfiguredServer::reload(const std::string &outcome) {
  const std::size_t before = times_logged(outcome);
  program_.signal(SIGHUP);
  return eventually([&] { return times_logged(outcome) > before; });
}

int ConfiguredServer::stop() {
  program_.signal(SIGTERM);
  return program_.wait();
}

int ConfiguredServer::ping() const {
  return qAdminNoop(&paths_, "127.0.0.1", port_);
}

}  // namespace veskd::test
