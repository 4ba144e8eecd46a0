// The memory of a process that holds key values.
#pragma once

namespace veskd {

// Call it first of all: from then on there is
// - no core dump, in a file or through a program that collects them, and no look for other processes of the same user;
// - nothing in what OpenSSL has freed, which does not wipe all that it decoded keys and records with.
void protect_process_memory();

// The latter alone. False when OpenSSL has memory already, and nothing changes.
bool wipe_what_openssl_frees();

}  // namespace veskd
