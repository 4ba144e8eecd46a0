// The options that every command understands.
#pragma once

#include <functional>
#include <string>

namespace CLI {
class App;
}

namespace command {

struct Settings {
  std::string host;
  std::string port;
  std::string certificates;
  std::string authority = "authority.pem";
  std::string certificate = "client.pem";
  std::string key = "client-key.pem";
  std::string trace;
  std::string output = "table";

  // What the command line asks for, set while it is parsed.
  std::function<void()> action;

  // Set with action by the commands whose result is lines to go on working with.
  bool offers_plain = false;

  bool json() const { return output == "json"; }
  bool plain() const { return output == "plain"; }
};

void add_settings(CLI::App &app, Settings &settings);

}  // namespace command
