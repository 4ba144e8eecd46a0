// How the command ends: one exit code for each class of outcome.
#pragma once

#include <array>

namespace command {

enum class ExitCode : int {
  kDone = 0,
  kOther = 1,
  kUsage = 2,
  kRefused = 3,
  kNotFound = 4,
  kConnection = 5,
  kTimeOut = 6,
  kHealth = 7,
  kPartly = 8,
  kCancelled = 130,
};

struct ExitCodeText {
  ExitCode code;
  const char *sentence;
};

inline constexpr std::array kExitCodes = {
    ExitCodeText{ExitCode::kDone, "done"},
    ExitCodeText{ExitCode::kOther, "anything that has no code of its own, a file that cannot be written for example"},
    ExitCodeText{ExitCode::kUsage, "the command line is wrong; nothing was sent"},
    ExitCodeText{ExitCode::kRefused, "the server refused, with a return code"},
    ExitCodeText{ExitCode::kNotFound,
                 "the server has no such key, instance, key template, certificate, private key or mirror"},
    ExitCodeText{ExitCode::kConnection, "no connection: host, certificate files, TLS"},
    ExitCodeText{ExitCode::kTimeOut, "a time-out ran out; whether the server did the work is not known"},
    ExitCodeText{ExitCode::kHealth,
                 "what was asked about is not in order: a fault, a mirror that is down, a damaged key, a warning"},
    ExitCodeText{ExitCode::kPartly, "of many things some are done and some are not"},
    ExitCodeText{ExitCode::kCancelled, "cancelled: by your answer, or by Ctrl-C or another signal"},
};

}  // namespace command
