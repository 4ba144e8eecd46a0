// TLS session tickets: a client that comes again within their lifetime skips the certificates. The server keeps
// nothing: what it has to know of a session, the client's certificate included, is in the ticket, encrypted under keys
// that are derived from a secret for each period of time. The secret is this process's own, or that of a file, which
// other servers may share.
#pragma once

#include <openssl/types.h>

#include <chrono>
#include <filesystem>

namespace veskd {

struct TicketOptions {
  bool enabled = true;
  std::filesystem::path key_file;  // 64 hexadecimal digits and a line end; empty for a secret of this process
  std::chrono::milliseconds rotate = std::chrono::hours(12);  // how long a key encrypts; so long again it decrypts
};

// Throws StartError unless it is such a file.
void check_ticket_key_file(const std::filesystem::path &file);

// Has the server's context issue tickets to clients of TLS 1.3, and take those that it, or a server that shares the
// file, issued under the same authority to a client whose certificate is still valid. Throws StartError.
void issue_tickets(SSL_CTX *tls, const TicketOptions &options, const std::filesystem::path &authority);

void issue_no_tickets(SSL_CTX *tls);

}  // namespace veskd
