// What the checks of a diagnosis find, told one by one as they are done.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "vesk/failure.h"
#include "vesk/list_output.h"
#include "vesk/settings.h"

namespace command {

enum class Verdict { kOk, kWarning, kFailed, kSkipped };

struct Finding {
  Verdict verdict;
  std::string text;
  std::string hint = {};  // what to do about it; may be empty
  std::vector<std::string> details = {};
};

Finding in_order(std::string text);
Finding warning(std::string text, std::string hint);

// A failure of the connection with what is known of it.
Failure with_details(const Failure &failure, std::vector<std::string> details);

class Diagnosis {
 public:
  explicit Diagnosis(const Settings &settings);

  // Makes a check, unless one that it needs was not passed, and tells. A Failure is what a check ends with that fails.
  // Scripts know the check by its identifier, which stays.
  void check(const std::string &id, const std::vector<std::string> &needed, const std::function<Finding()> &look);

  // Whether the check was made and has not failed.
  bool has_passed(const std::string &id) const { return made_.contains(id) && !open_.contains(id); }

  // Fails with the exit code of the first check that failed, or with kHealth when there are only warnings.
  void conclude();

 private:
  Finding finding_of(const std::string &id, const std::vector<std::string> &needed,
                     const std::function<Finding()> &look);
  void tell(const std::string &id, const Finding &finding);

  const Settings &settings_;
  ListOutput output_;
  std::map<std::string, Verdict> made_;
  std::map<std::string, std::string> open_;  // the checks that were not passed, and the failed one that is to blame
  ExitCode code_ = ExitCode::kDone;
};

}  // namespace command
