// From what OpenSSL says of a failure to a status.
#ifndef ORN_SUPPORT_FAILURE_H
#define ORN_SUPPORT_FAILURE_H

#include <string>

#include "orn/support/channel.h"
#include "orn/support/openssl_ptr.h"

namespace orn {

// The last entry of OpenSSL's error queue in words.
std::string openssl_reason();

// Empties OpenSSL's error queue and tells whether memory was wanting.
bool took_out_of_memory();

// What an operation was about when it failed.
struct FailedOperation {
  const char *name;               // for the trace
  int timed_out;                  // the status of its time-out
  bool client_certificate_asked;  // the server has asked for the client's certificate
};

// The status of an operation that OpenSSL gave up with ssl_error. Empties the error queue into the trace.
int status_of_failure(const FailedOperation &operation, const SSL *ssl, int ssl_error, const Channel &channel);

}  // namespace orn

#endif
