// Whether the server is who was asked for.
#ifndef ORN_SUPPORT_VERIFY_H
#define ORN_SUPPORT_VERIFY_H

#include <string>

#include "orn/support/openssl_ptr.h"

namespace orn {

// Who is asked for: a name, or the octets of an address.
struct PeerName {
  std::string name;
  std::string octets;
};

// Makes every handshake of the context depend on the server's certificate chain: dates, purpose, CA flags, strength.
// Every certificate of the trusted authority's file is a trust anchor, whether it is self-signed or not.
void require_verified_peer(SSL_CTX *context, int security_level);

// Makes the handshake depend on the name, and tells a named server which name is meant. False when out of memory.
bool require_peer_name(SSL *ssl, const PeerName &peer);

// The status of a chain that was refused with OpenSSL's verification result.
int status_of_verification(long result);

}  // namespace orn

#endif
