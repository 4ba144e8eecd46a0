// Files that hold a key: mode 0600, whole or not there, and never in the place of another file by accident.
#pragma once

#include <string>
#include <string_view>

namespace command {

// Refuses a path at which write_secret_file would fail: something exists there (with force, something that is not a
// regular file), or its directory cannot be written.
void check_secret_file(const std::string &path, bool force);

// Writes to a temporary file beside path, flushes it to the disk and then gives it the name.
void write_secret_file(const std::string &path, std::string_view bytes, bool force);

// The same for what is no secret: made or replaced, with the mode that the user's other files have.
void write_whole_file(const std::string &path, std::string_view bytes);

// Whether others than its owner may read the file of a secret. "-" is none.
bool others_may_read(const std::string &path);

// Says on standard error when others than its owner may read the file of a secret. "-" is none.
void warn_of_readers(const std::string &path);

}  // namespace command
