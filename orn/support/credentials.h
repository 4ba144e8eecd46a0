// What the three certificate files hold.
#ifndef ORN_SUPPORT_CREDENTIALS_H
#define ORN_SUPPORT_CREDENTIALS_H

#include <vector>

#include "orn/support/openssl_ptr.h"

namespace orn {

struct CertificateFiles {
  const char *authority;     // file 1
  const char *certificates;  // file 2
  const char *key;           // file 3
};

struct Credentials {
  std::vector<X509Ptr> authorities;
  std::vector<X509Ptr> chain;  // the client's own certificate first
  KeyPtr key;
};

// Reads the files as they are now. Returns a status.
int load_credentials(const CertificateFiles &files, Credentials &credentials);

}  // namespace orn

#endif
