// The sixteen metadata fields of a key as they stand in a record: each in a slot of a label, a quote, 64 characters and
// a quote.
#pragma once

#include <array>
#include <cstddef>
#include <utility>

#include "orn/vesk/wire/row.h"

namespace vesk::wire {

inline constexpr std::size_t kMetadataFields = 16;
inline constexpr std::size_t kMetadataSlotBytes = 70;

inline constexpr std::array<const char *, kMetadataFields> kMetadataLabels = {
    "MD01",
    "MD02",
    "MD03",
    "MD04",
    "MD05",
    "MD06",
    "MD07",
    "MD08",
    "MD09",
    "MD10",
    "MD11",
    "MD12",
    "MD13",
    "MD14",
    "MD15",
    "MD16"};

template <auto kMember, std::size_t kIndex, std::size_t kOffset>
constexpr auto metadata_slot(const char *label) {
  using Record = typename internal::MemberOf<decltype(kMember)>::Type;
  return record<Record>(
      lit(kOffset, kMetadataLabels[kIndex]),
      lit(kOffset + 4, "'"),
      element<kMember, kIndex>(kOffset + 5, 64, kMetadataLabels[kIndex], label),
      lit(kOffset + 69, "'"));
}

// The rows of all sixteen slots, the first of which is at kOffset. The first kTraced fields are traced.
template <auto kMember, std::size_t kOffset, std::size_t kTraced = kMetadataFields>
constexpr auto metadata_slots() {
  return []<std::size_t... kIndex>(std::index_sequence<kIndex...>) {
    return joined(metadata_slot<kMember, kIndex, kOffset + kIndex * kMetadataSlotBytes>(
        kIndex < kTraced ? kMetadataLabels[kIndex] : nullptr)...);
  }
  (std::make_index_sequence<kMetadataFields>());
}

}  // namespace vesk::wire
