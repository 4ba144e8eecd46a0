#include "veskd/errors.h"

#include <openssl/err.h>

namespace veskd {

std::string openssl_error() {
  char text[256] = "no reason given";
  if (const unsigned long code = ERR_peek_last_error(); code != 0) ERR_error_string_n(code, text, sizeof text);
  ERR_clear_error();
  return text;
}

void require_openssl(bool condition, const std::string &what) {
  if (!condition) throw StartError(what + ": " + openssl_error());
}

}  // namespace veskd
