// What to do about a status: a hint for each that there is.
#pragma once

namespace command {

// May name, in braces, what explain() knows: host, port, authority, certificate, key, file, option, pem. Empty for a
// value that nobody uses.
const char *hint_for(int status);

}  // namespace command
