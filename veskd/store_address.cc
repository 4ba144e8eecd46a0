#include "veskd/store_address.h"

#include <libpq-fe.h>

#include <memory>
#include <string_view>

#include "veskd/errors.h"

namespace veskd {
namespace {

bool is_postgres(const std::string &text) {
  return text.starts_with("postgresql://") || text.starts_with("postgres://");
}

// What tells one database from another. What libpq says about a URI that it cannot read may quote a password.
std::string name_of_database(const std::string &uri) {
  const std::unique_ptr<PQconninfoOption, void (*)(PQconninfoOption *)> options(PQconninfoParse(uri.c_str(), nullptr),
                                                                                PQconninfoFree);
  if (!options) throw StartError("the store's postgresql:// address is not a valid one");
  std::string host, port, database;
  for (const PQconninfoOption *option = options.get(); option->keyword != nullptr; ++option) {
    const std::string_view keyword(option->keyword);
    if (option->val == nullptr) continue;
    if (keyword == "host") host = option->val;
    if (keyword == "port") port = std::string(":") + option->val;
    if (keyword == "dbname") database = option->val;
  }
  return "postgresql://" + host + port + "/" + database;
}

}  // namespace

StoreAddress::StoreAddress(const std::string &text)
    : text_(text), is_shared_(is_postgres(text)), name_(is_shared_ ? name_of_database(text) : text) {}

}  // namespace veskd
