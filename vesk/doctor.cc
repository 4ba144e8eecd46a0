// vesk doctor
#include <fmt/format.h>

#include "vesk/commands.h"
#include "vesk/doctor_checks.h"
#include "vesk/target.h"
#include "vesk/text.h"

namespace command {
namespace {

std::string text_of(const Target &target) {
  std::string text;
  for (const TargetMember &member : kTargetMembers) {
    const TargetValue &value = target.*member.value;
    text += fmt::format("{}{} {} ({})", text.empty() ? "" : ", ", member.name,
                        value.text.empty() ? "none" : printable(value.text), origin_of(member, target));
  }
  return text;
}

Finding look_at_settings(const Settings &settings, Target &target) {
  target = target_of(settings);
  try {
    check_target(target);
  } catch (const Failure &failure) {
    throw with_details(failure, {text_of(target)});
  }
  return in_order(text_of(target));
}

void doctor(const Settings &settings) {
  Diagnosis diagnosis(settings);
  Target target;
  diagnosis.check("settings", {}, [&] { return look_at_settings(settings, target); });
  const Connection connection(settings.trace, target);
  orn::Credentials credentials;
  check_client(diagnosis, connection, credentials);
  check_server(diagnosis, connection, credentials);
  diagnosis.conclude();
}

}  // namespace

void add_doctor(Command &root, Settings &settings) {
  Command &command = root.add("doctor", "Find out why there is no connection, or that all is well");
  command.details =
      "Checks the settings, the certificate files, the way to the server, its certificate, a first transaction and\n"
      "the resumption of sessions, in this order, and says of each what is wrong and what to do about it. Goes on\n"
      "behind a failure where that makes sense. The exit code is that of the first check that failed; 7 when there\n"
      "are only warnings. Changes nothing.";
  command.examples = {"vesk doctor --host kms.example --port 4000 --certificates /etc/vesk",
                      "vesk doctor --context production --output json"};
  command.run = [&settings] { doctor(settings); };
}

}  // namespace command
