// veskd: the software key server.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "veskd/client_context.h"
#include "veskd/commands.h"
#include "veskd/configuration.h"
#include "veskd/dev_environment.h"
#include "veskd/files.h"
#include "veskd/log.h"
#include "veskd/process_memory.h"
#include "veskd/service.h"
#include "veskd/store_file.h"

namespace {

constexpr int kUsageError = 2;

struct DevOptions {
  std::filesystem::path directory;
  std::uint16_t port = 0;
  std::vector<std::string> host_names;
  std::filesystem::path authority_from;
  std::filesystem::path sensor_file;
  std::optional<std::uint16_t> watch_port;
  std::string store;
  bool audit = false;
  bool no_tickets = false;
  std::string context;
  std::filesystem::path faults;
  bool quiet = false;
};

struct ServeOptions {
  std::filesystem::path configuration;
  bool check = false;
};

veskd::ServiceSettings settings_of(const DevOptions &options, const veskd::DevEnvironment &environment) {
  veskd::ServiceSettings settings;
  settings.server.tls = environment.tls_files();
  settings.server.tickets.enabled = !options.no_tickets;
  settings.server.port = options.port;
  settings.server.roles = veskd::development_roles();
  settings.server.audit_reads = options.audit;
  settings.server.machine.sensor_file = options.sensor_file;
  settings.server.faults = {options.faults, environment.authority_key_path()};
  settings.server.machine.store_directory = environment.directory();
  settings.store = options.store.empty() ? environment.store_files().store : veskd::StoreAddress(options.store);
  settings.master_key = environment.store_files().master_key;
  settings.mirror_tls = environment.mirror_tls_files();
  if (options.watch_port) settings.watch.emplace().port = *options.watch_port;
  settings.ready_file = environment.ready_file_path();
  settings.log.level = options.quiet ? veskd::LogLevel::kWarning : veskd::LogLevel::kInfo;
  return settings;
}

void say_what_is_served(const veskd::ServiceSettings &settings, const veskd::Ports &ports) {
  std::cout << fmt::format("veskd serves the keys of {} on {} port {}\n",
                           settings.server.machine.store_directory.string(), settings.server.address, ports.keys)
            << std::flush;
}

void say_where_to_watch(const veskd::ServiceSettings &settings, const veskd::Ports &ports) {
  if (ports.watch)
    std::cout << veskd::watch_url(settings.watch->address, *ports.watch) << " shows how it is" << std::endl;
}

// The command that names the server for vesk is run, or else shown to be typed.
void offer_context(const DevOptions &options, const veskd::DevEnvironment &environment, const std::string &host,
                   std::uint16_t port, const veskd::Log &log) {
  const std::string name = options.context.empty() ? "dev" : options.context;
  if (!options.context.empty()) {
    // The port is another with each start.
    std::vector<std::string> words = environment.context_words(name, host, port);
    words.emplace_back("--replace");
    if (veskd::run_beside(words)) return;
    log.warning("vesk has not made the context " + name);
  }
  std::cout << environment.context_command(name, host, port) << std::endl;
}

void run_dev(const DevOptions &options) {
  veskd::Log log(options.quiet);
  const veskd::DevEnvironment environment(options.directory, options.host_names, log, options.authority_from);
  veskd::ServiceSettings settings = settings_of(options, environment);
  if (!options.faults.empty()) log.warning(options.faults.string() + " says what this server does wrong on purpose");
  const auto announce = [&](const veskd::Ports &ports) {
    say_what_is_served(settings, ports);
    std::cout << environment.next_command(settings.server.address, ports.keys) << std::endl;
    offer_context(options, environment, settings.server.address, ports.keys, log);
    say_where_to_watch(settings, ports);
  };
  run_service(settings, log, announce, [&] { return settings; });
}

void run_serve(const ServeOptions &options) {
  const auto read_settings = [&] { return veskd::read_configuration(options.configuration); };
  const veskd::ServiceSettings settings = read_settings();
  if (options.check) {
    std::cout << options.configuration.string() << " is valid" << std::endl;
    return;
  }
  veskd::Log log(settings.log);
  const veskd::Descriptor lock = veskd::lock_file(veskd::StoreFiles{settings.store, settings.master_key}.lock());
  const auto announce = [&](const veskd::Ports &ports) {
    say_what_is_served(settings, ports);
    say_where_to_watch(settings, ports);
  };
  run_service(settings, log, announce, read_settings);
}

// Empty when the text can stand in a certificate; CLI11 shows what else is returned.
std::string check_host_name(const std::string &name) {
  constexpr const char *kAllowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-_:";
  if (!name.empty() && name.find_first_not_of(kAllowed) == std::string::npos) return {};
  return "'" + name + "' is no host name or address";
}

std::string check_port(const std::string &text) {
  constexpr unsigned kMostPort = 65535;
  unsigned port = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  if (error == std::errc() && end == text.data() + text.size() && port <= kMostPort) return {};
  return "'" + text + "' is no port: a number up to 65535, or 0 for a free one";
}

void add_dev_options(CLI::App &dev, DevOptions &options) {
  dev.add_option("--dir", options.directory, "directory of certificates, master key and store")->required();
  dev.add_option("--port", options.port, "port to listen on; a free one if not given")->check(check_port);
  dev.add_option("--host-name", options.host_names, "further host name or address for the server's certificate")
      ->check(check_host_name);
  dev.add_option("--authority-from", options.authority_from,
                 "directory of another server whose authority this one shares, so that they can be mirrors");
  dev.add_option("--sensor-file", options.sensor_file, "file of sensor readings in place of the machine's own");
  dev.add_option("--watch-port", options.watch_port, "port to watch the server at; 0: a free one; none if not given")
      ->check(check_port);
  dev.add_option("--store", options.store,
                 "where the keys are kept: a file, or postgresql://… for a database that other servers may share; "
                 "store.db in the directory if not given");
  dev.add_flag("--audit", options.audit, "audit also what hands out keys without changing anything");
  dev.add_flag("--no-tickets", options.no_tickets, "issue no TLS session tickets: every handshake is a full one");
  dev.add_option("--context", options.context, "make the server a context of that name for vesk, and the current one");
  dev.add_option("--faults", options.faults, "file that says what the server does wrong on purpose, to test clients");
  dev.add_flag("--quiet", options.quiet, "log errors and warnings only");
}

void add_serve_options(CLI::App &serve, ServeOptions &options) {
  serve.add_option("--config", options.configuration, "the configuration file")->required();
  serve.add_flag("--check", options.check, "say what is wrong with the configuration, or that it is valid, and end");
}

// A word that is no subcommand would pass for none given.
int end_with(const CLI::App &app, const CLI::ParseError &error) {
  const std::vector<std::string> unknown = app.remaining();
  const bool is_unknown = app.get_subcommands().empty() && !unknown.empty();
  if (is_unknown && error.get_exit_code() == static_cast<int>(CLI::ExitCodes::RequiredError)) {
    std::cerr << "'" << unknown.front() << "' is no subcommand\nRun with --help for more information." << std::endl;
    return kUsageError;
  }
  return app.exit(error) == 0 ? EXIT_SUCCESS : kUsageError;
}

int run(int argc, char **argv) {
  CLI::App app("veskd, a key server: hands keys to clients over mutually authenticated TLS", "veskd");
  app.set_version_flag("--version", "veskd " VESKD_VERSION);
  app.require_subcommand(1);
  DevOptions dev_options;
  ServeOptions serve_options;
  CLI::App *dev = app.add_subcommand("dev", "Serve on 127.0.0.1 from one directory, making what is missing in it");
  CLI::App *serve = app.add_subcommand("serve", "Serve as a configuration file says");
  add_dev_options(*dev, dev_options);
  add_serve_options(*serve, serve_options);
  dev->callback([&] { run_dev(dev_options); });
  serve->callback([&] { run_serve(serve_options); });
  veskd::add_audit_command(app);
  veskd::add_backup_commands(app);
  veskd::add_rotation_command(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError &error) {
    return end_with(app, error);
  }
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char **argv) {
  veskd::protect_process_memory();
  try {
    return run(argc, argv);
  } catch (const veskd::ConfigurationError &error) {
    std::fprintf(stderr, "%s\n", error.what());
  } catch (const std::exception &error) {
    std::fprintf(stderr, "veskd: %s\n", error.what());
  }
  return EXIT_FAILURE;
}
