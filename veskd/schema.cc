#include "veskd/schema.h"

#include <fmt/format.h>

#include <iterator>

#include "veskd/errors.h"

namespace veskd {

void migrate(Database &database, std::int64_t version, const std::string &store_name) {
  if (version < 0 || version > std::ssize(kMigrations))
    throw StartError(
        fmt::format("the key store {} has version {}, this veskd knows versions up to {}: use a newer veskd",
                    store_name, version, kMigrations.size()));
  for (; version < std::ssize(kMigrations); ++version)
    database.migrate(kMigrations[static_cast<std::size_t>(version)], version + 1);
}

}  // namespace veskd
