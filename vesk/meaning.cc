#include "vesk/meaning.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "orn/support.h"
#include "orn/vesk/wire/key_transfer.h"
#include "orn/vesk/wire/text.h"
#include "vesk/protocol.h"
#include "vesk/record_view.h"
#include "vesk/states.h"
#include "vesk/text.h"
#include "veskd/return_codes.h"

namespace command {
namespace {

namespace wire = vesk::wire;

Meaning not_digits(std::string_view value, const char *what) {
  return {.fault = fmt::format("{}; it is read as {}", what, wire::to_int(value))};
}

Meaning number(std::string_view value) {
  if (!are_digits(value)) return not_digits(value, "not a decimal number");
  return {};
}

Meaning bytes(std::string_view value) {
  if (!are_digits(value)) return not_digits(value, "not a decimal number");
  return {.text = fmt::format("{} bytes", wire::to_int(value))};
}

Meaning bits(std::string_view value) {
  if (!are_digits(value)) return not_digits(value, "not a decimal number");
  return {.text = fmt::format("{} bits", wire::to_int(value))};
}

Meaning date(std::string_view value) {
  if (value.size() != 8 || !are_digits(value)) return {.fault = "not a date, which is YYYYMMDD"};
  const std::string readable = readable_date(value);
  return {.text = readable.empty() ? "none" : readable};
}

Meaning increment(std::string_view value) {
  std::uint64_t served = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), served, 16);
  if (error != std::errc() || end != value.data() + value.size()) return {.fault = "not a hexadecimal number"};
  return {.text = std::to_string(served)};
}

Meaning identifier(std::string_view value) {
  const Protocol *known = find_protocol(value);
  if (known == nullptr) return {.fault = "no transaction has this identifier"};
  return {.text = known->transaction.function};
}

Meaning return_code(std::string_view value) {
  if (value.size() != 4 || !are_digits(value)) return not_digits(value, "not four digits");
  const veskd::ReturnCodeText *known = veskd::find_return_code(wire::to_int(value));
  if (known == nullptr) return {.text = "a code that this command does not know"};
  return {.text = fmt::format("{}: {}", known->name, known->sentence)};
}

Meaning key_format(std::string_view value) {
  const auto *known = std::find_if(wire::kKeyFormats.begin(), wire::kKeyFormats.end(),
                                   [&](const wire::KeyFormat &format) { return format.name == value; });
  return {.text = known == wire::kKeyFormats.end() ? "" : known->description};
}

Meaning machine(std::string_view value) {
  return {.text = machine_state(value).word};
}

Meaning mirror(std::string_view value) {
  return {.text = value.empty() ? "" : mirror_state(value.front()).word};
}

Meaning mirror_detail(std::string_view value) {
  return {.text = value.empty() ? "" : mirror_data(value.front()).word};
}

struct KnownField {
  std::string_view name;
  Meaning (*meaning)(std::string_view value);
};

constexpr std::array kKnownFields = {
    KnownField{"caTranId", identifier},       KnownField{"caReturnCode", return_code},
    KnownField{"caKeySizeBits", bits},        KnownField{"caRolloverDays", number},
    KnownField{"caKeyFormat", key_format},    KnownField{"caConstantLen", number},
    KnownField{"caIncrementLen", number},     KnownField{"caKeyCount", number},
    KnownField{"caNextIncrement", increment}, KnownField{"caLastIncrement", increment},
    KnownField{"caMirrorPort", number},       KnownField{"caPort", number},
    KnownField{"caFaultCount", number},       KnownField{"caQueueSize", number},
    KnownField{"caStatus", mirror},           KnownField{"caMirrorDetail", mirror_detail},
    KnownField{"caAppStatus", machine},       KnownField{"caDiskStatus", machine},
    KnownField{"caCoreStatus", machine},      KnownField{"caVoltageStatus", machine},
    KnownField{"caBatteryStatus", machine},   KnownField{"caFanStatus", machine},
    KnownField{"caTemperature", machine},     KnownField{"caListCount", bytes},
    KnownField{"caDataSize", number},         KnownField{"caCertLength", bytes},
    KnownField{"caByteCount", bytes},         KnownField{"caKeyValueLen", bytes},
};

struct KnownValue {
  std::string_view name;
  std::string_view value;
  const char *meaning;
};

constexpr std::array kKnownValues = {
    KnownValue{"caRolloverCode", "N", "no rollover"},
    KnownValue{"caDeletable", "Y", "may be deleted"},
    KnownValue{"caDeletable", "N", "may not be deleted"},
    KnownValue{"caMirrorKey", "Y", "a mirror key"},
    KnownValue{"caMirrorKey", "N", "no mirror key"},
    KnownValue{"caCurrent", "Y", "the current instance"},
    KnownValue{"caRSAPaddingMode", "1", "PKCS#1 v1.5"},
    KnownValue{"caRSAPaddingMode", "2", "OAEP with SHA-256"},
    KnownValue{"caIncrementCode", "H", "hexadecimal"},
    KnownValue{"caGenMode", "I", "a new template"},
    KnownValue{"caGenMode", "A", "more keys for a template"},
    KnownValue{"caKeyServed", "Y", "keys have been served"},
    KnownValue{"caKeyServed", "N", "no key has been served"},
    KnownValue{"caTemplateFull", "Y", "every increment has been served"},
    KnownValue{"caTemplateFull", "N", "increments are left"},
    KnownValue{"caMirrorStatusFlag", "Y", "the server tries the mirror"},
    KnownValue{"caAllKeys", "Y", "all mirror keys"},
    KnownValue{"caAllKeys", "N", "one key"},
    KnownValue{"caCertType", "C", "a certificate to wrap keys under"},
    KnownValue{"caImportFlag", "Y", "replaces what has the name"},
    KnownValue{"caImportFlag", "N", "replaces nothing"},
    KnownValue{"caFipsMode", "F", "FIPS mode"},
    KnownValue{"caMoreFlag", "Y", "a page follows"},
    KnownValue{"caMoreFlag", "N", "the last page"},
};

}  // namespace

Meaning meaning_of(std::string_view field, std::string_view value) {
  for (const KnownValue &known : kKnownValues) {
    if (known.name == field && known.value == value) return {.text = known.meaning};
  }
  for (const KnownField &known : kKnownFields) {
    if (known.name == field) return known.meaning(value);
  }
  return field.ends_with("Date") ? date(value) : Meaning{};
}

std::string status_text(int status) {
  return fmt::format("{}: {}", StatusName(status), StatusText(status));
}

}  // namespace command
