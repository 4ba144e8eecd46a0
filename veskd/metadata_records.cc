#include "veskd/metadata_records.h"

#include <algorithm>
#include <iterator>

#include "orn/vesk/wire/key_metadata.h"
#include "veskd/fields.h"

namespace veskd {

using vesk::wire::kMetadataBytes;

std::string_view metadata_field(std::string_view text, std::size_t index) {
  const std::size_t start = std::min(index * kMetadataBytes, text.size());
  return without_trailing_blanks(text.substr(start, kMetadataBytes));
}

void put_metadata(std::string_view text, MetadataFields &fields) {
  for (std::size_t i = 0; i < std::size(fields); ++i) vesk::wire::put_padded(fields[i], metadata_field(text, i));
}

void write_metadata(StoreConnection &store, const Key &key, const MetadataFields &fields) {
  std::string text;
  for (const auto &field : fields) text.append(field, kMetadataBytes);
  const std::string_view kept = without_trailing_blanks(text);
  Query(store.database, "INSERT INTO metadata VALUES (?1, ?2) ON CONFLICT (key) DO UPDATE SET fields = ?2", key.id,
        std::span(reinterpret_cast<const std::uint8_t *>(kept.data()), kept.size()))
      .run();
}

MetadataText read_metadata(StoreConnection &store, const Key &key) {
  Query query(store.database, "SELECT fields FROM metadata WHERE key = ?1", key.id);
  return query.next() ? query.text(0) : MetadataText();
}

}  // namespace veskd
