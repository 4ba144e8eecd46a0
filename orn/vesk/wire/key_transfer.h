// Key transfer: symmetric keys that come from outside, and keys that leave, wrapped.
#pragma once

#include <algorithm>
#include <array>

#include "orn/vesk/wire/policy_fields.h"
#include "orn/vesk/wire/text.h"

namespace vesk::wire {

// What a transferred value may take; a wrapped value always takes all of it.
inline constexpr std::size_t kTransferValueBytes = 256;

// A form that a key value may come in, and how many bytes it takes.
struct KeyFormat {
  std::string_view name;
  const char *description;
  std::size_t bytes_of_128_bits, bytes_of_192_bits, bytes_of_256_bits, bytes_of_other_sizes;

  constexpr std::size_t value_bytes(int key_size_bits) const {
    switch (key_size_bits) {
      case 128:
        return bytes_of_128_bits;
      case 192:
        return bytes_of_192_bits;
      case 256:
        return bytes_of_256_bits;
      default:
        return bytes_of_other_sizes;
    }
  }
};

// In the order of their numbers, from 1.
inline constexpr std::array kKeyFormats = {
    KeyFormat{"BIN", "Binary value", 16, 24, 32, 0},
    KeyFormat{"B16", "Base16 value", 32, 48, 64, 0},
    KeyFormat{"B64", "Base64 value", 24, 32, 44, 0},
    KeyFormat{"RSA", "RSA encrypted value", 256, 256, 256, 256},
};

inline constexpr Transaction kImportSymKey = transaction("ImportSymKey");

inline constexpr std::array kBlanks = [] {
  std::array<char, 256> blanks{};
  blanks.fill(' ');
  return blanks;
}();

// Imported keys belong to no user and no group.
inline constexpr auto kImportSymKeyRequest = request(
    kImportSymKey,
    joined(
        record<RequestFields>(field<&RequestFields::caKeyName>(9, 40)),
        kPolicyFields<49>,
        record<RequestFields>(
            lit(76, "1"),
            lit(77, {kBlanks.data(), 256}),
            lit(333, {kBlanks.data(), 256}),
            field<&RequestFields::caKeyFormat>(589, 3),
            field<&RequestFields::caCertificateName>(592, 64),
            field<&RequestFields::caRSAPaddingMode>(656, 1),
            bytes<&RequestFields::caKeyValue>(657, kTransferValueBytes))));

// What stands before the value, which takes as many bytes as its format says.
inline constexpr auto kImportSymKeyHead = without_last(kImportSymKeyRequest);

inline constexpr auto kImportSymKeyReply = reply<KeyRecord>(
    field<&KeyRecord::caKeyName>(13, 40, "Key Name"), field<&KeyRecord::caInstance>(53, 24, "Instance"));

inline constexpr Transaction kExportSymKey = transaction("ExportSymKey");

inline constexpr auto kExportSymKeyRequest = request(
    kExportSymKey,
    field<&RequestFields::caKeyName>(9, 40),
    field<&RequestFields::caInstance>(49, 24),
    field<&RequestFields::caKeyFormat>(73, 3),
    field<&RequestFields::caRSAPublicCertName>(76, 64),
    field<&RequestFields::caRSAPaddingMode>(140, 1));

// Zero bytes that are sent behind the export request and not counted by its length digits.
inline constexpr std::size_t kExportSymKeyUncounted = 5;

// The most bytes that a reply's four digits declare as the value's.
inline constexpr std::size_t kMaxExportedBytes = 9999;

struct ExportedKey {
  char caTranLen[6];
  char caTranId[5];
  char caReturnCode[5];
  char caKeyName[41];
  char caInstance[25];
  char caKeySizeBits[5];
  char caKeyFormat[4];
  char caRSAPaddingMode[2];
  char caKeyValueLen[5];
  char caKeyValue[kTransferValueBytes];
};

inline constexpr auto kExportSymKeyReply = reply<ExportedKey>(
    field<&ExportedKey::caKeyName>(13, 40, "Key Name"),
    field<&ExportedKey::caInstance>(53, 24, "Instance"),
    field<&ExportedKey::caKeySizeBits>(77, 4, "Key size in bits"),
    field<&ExportedKey::caKeyFormat>(81, 3, "Format"),
    field<&ExportedKey::caRSAPaddingMode>(84, 1, "RSAPaddingMode"),
    field<&ExportedKey::caKeyValueLen>(85, 4),
    bytes<&ExportedKey::caKeyValue>(89, kTransferValueBytes));

}  // namespace vesk::wire
