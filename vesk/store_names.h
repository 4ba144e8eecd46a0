// Names of the certificates and the private keys of the server's store.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "orn/support.h"
#include "vesk/list_output.h"

namespace command {

// What the call appends to the list that it is given.
std::vector<std::string> store_names(const std::function<void(LinkedList *)> &call);

// member is that of the list in a document.
void show_store_names(const Settings &settings, const ListOptions &options, const char *member,
                      const std::vector<std::string> &names);

}  // namespace command
