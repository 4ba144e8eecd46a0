// vesk ping
#include <fmt/format.h>

#include <chrono>

#include "vesk/commands.h"
#include "vesk/connection.h"
#include "vesk/output.h"

namespace command {
namespace {

void ping(const Settings &settings) {
  using Clock = std::chrono::steady_clock;
  const Connection connection(settings);
  const Clock::time_point start = Clock::now();
  connection.run({}, qAdminNoop);
  const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(Clock::now() - start).count();
  show(settings, fmt::format("{} answers ({} ms)", connection.server(), milliseconds),
       {{"server", connection.server()}, {"milliseconds", milliseconds}});
}

}  // namespace

void add_ping(Command &root, Settings &settings) {
  Command &command = root.add("ping", "Prove that the server can be reached, accepts you and answers");
  command.examples = {"vesk ping --host kms.example --port 4000 --certificates /etc/vesk"};
  command.run = [&settings] { ping(settings); };
}

}  // namespace command
