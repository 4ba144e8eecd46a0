// How requests name a template.
#pragma once

#include <optional>
#include <string>

#include "orn/skeys.h"
#include "veskd/fields.h"
#include "veskd/return_codes.h"
#include "veskd/template_records.h"

namespace veskd {

inline std::string constant_of(const RequestFields &fields) {
  return trimmed(fields.caConstant);
}

// Every template has the one form; not every request that names one carries the increment code.
inline ReturnCode check_template(const RequestFields &fields) {
  const std::string constant = constant_of(fields);
  const std::string code = trimmed(fields.caIncrementCode);
  const bool valid = constant.size() == kConstantLength && is_name(constant) && trimmed(fields.caConstantLen) == "15" &&
                     trimmed(fields.caIncrementLen) == "06" && (fields.caIncrementCode[0] == '\0' || code == "H");
  return valid ? RC_SUCCESS : RC_TEMPLATE_FORM;
}

// The template that a request names; nothing, and the reason in code, when there is none.
inline std::optional<Template> named_template(StoreConnection &store, const RequestFields &fields, ReturnCode &code) {
  code = check_template(fields);
  if (code != RC_SUCCESS) return std::nullopt;
  std::optional<Template> family = find_template(store, constant_of(fields));
  if (family && !family->removed) return family;
  code = RC_TEMPLATE_UNKNOWN;
  return std::nullopt;
}

}  // namespace veskd
