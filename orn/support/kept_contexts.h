// What one call leaves for the next: contexts with what their files hold, shared between threads.
//
// A context belongs to three paths and to what the files were when they were read. A changed file takes effect with the
// next call; what failed is not kept.
#ifndef ORN_SUPPORT_KEPT_CONTEXTS_H
#define ORN_SUPPORT_KEPT_CONTEXTS_H

#include <memory>

#include "orn/support/credentials.h"
#include "orn/support/openssl_ptr.h"
#include "orn/support/sessions.h"

namespace orn {

// Connections share it; it lives as long as one of them, also when it is kept no more.
struct SharedContext {
  SslContextPtr tls;
  Sessions sessions;
};

// The context of connections with these files as they are now. Returns a status.
int context_for(const CertificateFiles &files, std::shared_ptr<SharedContext> &context);

// Both for all threads; connections that are open are not touched.
void forget_sessions();
void forget_contexts();
// Drops this one, if it is kept.
void forget_context(const SharedContext &context);

}  // namespace orn

#endif
