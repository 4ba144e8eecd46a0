// The status page: what is known of the server, as HTML for people. It needs no script and nothing from elsewhere.
#pragma once

#include <string>

#include "veskd/server_status.h"

namespace veskd {

std::string status_page(const ServerStatus &status);

// What the page may do, for its header Content-Security-Policy: use the style that it carries, and nothing else.
std::string status_page_policy();

}  // namespace veskd
