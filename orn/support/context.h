// The settings of every TLS connection.
#ifndef ORN_SUPPORT_CONTEXT_H
#define ORN_SUPPORT_CONTEXT_H

#include "orn/support/credentials.h"
#include "orn/support/openssl_ptr.h"

namespace orn {

// Makes the context of connections with these credentials; without a chain they show the server no certificate. Returns
// a status.
int make_context(const Credentials &credentials, SslContextPtr &made);

}  // namespace orn

#endif
