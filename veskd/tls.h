// Mutual TLS: with clients, and with the mirrors whose client this server is.
#pragma once

#include <asio/ssl/context.hpp>
#include <filesystem>

#include "veskd/tickets.h"

namespace veskd {

// The PEM files that the server shows and trusts.
struct TlsFiles {
  std::filesystem::path certificate_chain;
  std::filesystem::path private_key;
  std::filesystem::path authority;
};

// TLS 1.2 at least, a client certificate always, no renegotiation; sessions are resumed by tickets, if at all.
asio::ssl::context make_tls_context(const TlsFiles &files, const TicketOptions &tickets);

// Throws FileError unless the file holds certificates.
void check_authority(const std::filesystem::path &file);

// For this server's connections to its mirrors, with the certificate that carries the mirror role.
asio::ssl::context make_mirror_tls_context(const TlsFiles &files);

}  // namespace veskd
