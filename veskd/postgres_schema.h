// The store's schema as PostgreSQL takes it.
#pragma once

#include <string>
#include <string_view>

namespace veskd {

// From the dialect that migrations are written in.
std::string postgres_schema(std::string_view tables);

// The same for a statement's parameters, ?1 being $1.
std::string postgres_parameters(std::string_view sql);

}  // namespace veskd
