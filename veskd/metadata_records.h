// The metadata fields of keys in the store. They belong to the key: all its instances show the same.
#pragma once

#include <string>
#include <string_view>

#include "orn/records.h"
#include "veskd/key_records.h"

namespace veskd {

using MetadataFields = decltype(KeyRecord::md);

// The sixteen fields side by side, each at its full width, without the blanks at the end: what the store keeps of them.
using MetadataText = std::string;

// One of the fields of a metadata text, without its trailing blanks.
std::string_view metadata_field(std::string_view text, std::size_t index);

void put_metadata(std::string_view text, MetadataFields &fields);

// Overwrites all sixteen fields.
void write_metadata(StoreConnection &store, const Key &key, const MetadataFields &fields);

// All blank if none were ever written.
MetadataText read_metadata(StoreConnection &store, const Key &key);

}  // namespace veskd
