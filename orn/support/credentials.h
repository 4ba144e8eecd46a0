// What the three certificate files hold.
#ifndef ORN_SUPPORT_CREDENTIALS_H
#define ORN_SUPPORT_CREDENTIALS_H

#include <array>
#include <vector>

#include "orn/support/file_bytes.h"
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
  std::array<FileIdentity, 3> identities;  // of files 1, 2 and 3 as they were read
};

// Reads the files as they are now. Returns a status.
int load_credentials(const CertificateFiles &files, Credentials &credentials);

// Its steps, for who wants to know of each. All return a status.
int load_authorities(const char *path, Credentials &credentials);
int load_chain(const char *path, Credentials &credentials);
int load_key(const char *path, Credentials &credentials);
int check_pair(const CertificateFiles &files, const Credentials &credentials);

}  // namespace orn

#endif
