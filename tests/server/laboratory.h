// A directory with all that a configured server needs, its configuration file, and the server as a child process.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "tests/server/program.h"
#include "tests/server/test_server.h"

namespace veskd::test {

class Laboratory {
 public:
  Laboratory();

  std::filesystem::path operator/(const std::string &name) const { return directory_ / name; }
  const std::filesystem::path &path() const { return directory_.path(); }
  std::filesystem::path file() const { return directory_ / "veskd.toml"; }

  static constexpr const char *kClientIsAdministrator =
      "[[roles]]\nrole = 'administrator'\nsubject = 'CN=veskd development client,O=veskd dev'\n";

  // The whole configuration: the ten lines that every server has, sections, and who may do what.
  void configure(const std::string &sections, const std::string &roles = kClientIsAdministrator);
  void write(const std::string &name, const std::string &content) const;

 private:
  TemporaryDirectory directory_;
};

// veskd serve on the laboratory's configuration; it listens when the constructor returns.
class ConfiguredServer {
 public:
  explicit ConfiguredServer(const Laboratory &laboratory);

  std::uint16_t port() const { return port_; }
  Program &program() { return program_; }
  bool has_logged(const std::string &text);

  // Sends SIGHUP and waits until the log has that text once more.
  bool reload(const std::string &outcome);

  // Asks it to stop and returns its exit code.
  int stop();

  int ping() const;

 private:
  std::size_t times_logged(const std::string &text);

  CertificatePaths paths_;
  Program program_;
  std::uint16_t port_ = 0;
};

}  // namespace veskd::test
