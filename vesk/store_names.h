// Names of the certificates and the private keys of the server's store.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "orn/support.h"
#include "vesk/settings.h"

namespace command {

// What the call appends to the list that it is given.
std::vector<std::string> store_names(const std::function<void(LinkedList *)> &call);

// One a line, or a document with one member of that name.
void show_store_names(const Settings &settings, const char *member, const std::vector<std::string> &names);

}  // namespace command
