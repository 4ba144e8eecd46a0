// What stops the server from starting: what failed, on which file, why, and what to do about it.
#pragma once

#include <stdexcept>
#include <string>

namespace veskd {

class StartError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The newest error of OpenSSL's queue as text; empties the queue.
std::string openssl_error();

// Throws StartError with OpenSSL's reason unless the condition holds.
void require_openssl(bool condition, const std::string &what);

}  // namespace veskd
