// veskd: the software key server.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "veskd/dev_environment.h"
#include "veskd/log.h"
#include "veskd/replicator.h"
#include "veskd/server.h"
#include "veskd/store.h"

namespace {

constexpr int kUsageError = 2;

struct Options {
  std::filesystem::path directory;
  std::uint16_t port = 0;
  std::vector<std::string> host_names;
  std::filesystem::path authority_from;
  std::filesystem::path sensor_file;
  std::string store;
  bool quiet = false;
};

void serve(const Options &options) {
  // A reader of the log or of standard output that goes away must not take the server with it.
  std::signal(SIGPIPE, SIG_IGN);
  const veskd::Log log(options.quiet);
  veskd::DevEnvironment environment(options.directory, options.host_names, log, options.authority_from);
  veskd::Store store(options.store.empty() ? veskd::StoreAddress(environment.store_path()) : options.store,
                     environment.master_key(), log);
  veskd::ServerOptions server_options;
  server_options.tls = environment.tls_files();
  server_options.port = options.port;
  server_options.machine.sensor_file = options.sensor_file;
  server_options.machine.store_directory = environment.directory();
  veskd::Server server(server_options, store, log);
  server.stop_on_signals({SIGINT, SIGTERM});
  const veskd::Replicator replicator(environment.mirror_tls_files(), store, log);
  environment.write_ready_file(server_options.address, server.port());
  std::cout << fmt::format("veskd serves the keys of {} on {} port {}\n", environment.directory().string(),
                           server_options.address, server.port())
            << environment.next_command(server_options.address, server.port()) << std::endl;
  server.run();
  log.info("stopped");
}

// Empty when the text can stand in a certificate; CLI11 shows what else is returned.
std::string check_host_name(const std::string &name) {
  constexpr const char *kAllowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-_:";
  if (!name.empty() && name.find_first_not_of(kAllowed) == std::string::npos) return {};
  return "'" + name + "' is no host name or address";
}

void add_dev_options(CLI::App &dev, Options &options) {
  dev.add_option("--dir", options.directory, "directory of certificates, master key and store")->required();
  dev.add_option("--port", options.port, "port to listen on; a free one if not given");
  dev.add_option("--host-name", options.host_names, "further host name or address for the server's certificate")
      ->check(check_host_name);
  dev.add_option("--authority-from", options.authority_from,
                 "directory of another server whose authority this one shares, so that they can be mirrors");
  dev.add_option("--sensor-file", options.sensor_file, "file of sensor readings in place of the machine's own");
  dev.add_option("--store", options.store,
                 "where the keys are kept: a file, or postgresql://… for a database that other servers may share; "
                 "store.db in the directory if not given");
  dev.add_flag("--quiet", options.quiet, "log errors and warnings only");
}

}  // namespace

int main(int argc, char **argv) {
  CLI::App app("veskd, a key server: hands keys to clients over mutually authenticated TLS", "veskd");
  app.set_version_flag("--version", "veskd " VESKD_VERSION);
  app.require_subcommand(1);
  Options options;
  CLI::App *dev = app.add_subcommand("dev", "Serve on 127.0.0.1 from one directory, making what is missing in it");
  add_dev_options(*dev, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError &error) {
    return app.exit(error) == 0 ? EXIT_SUCCESS : kUsageError;
  }
  try {
    serve(options);
  } catch (const std::exception &error) {
    std::cerr << "veskd: " << error.what() << std::endl;
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
