// Every public call with what it sends, written out: the cases of the tests that hold for all of them.
#pragma once

#include <functional>
#include <ostream>
#include <span>
#include <string>
#include <vector>

#include "orn/vesk.h"

struct CallCase {
  const char *function;  // the transaction function
  std::function<int(const CertificatePaths &)> call;
  std::string request;
  std::string tran_id;
  int reply_timeout;
  int oversize_status;
  const char *oversize_name;
  bool paged = false;                // a reply is a page with a block behind it
  int status_of_empty = 0;           // of a reply of length 0
  const char *payload = nullptr;     // what a second write sends behind the request, if there is one
  bool traces_header = true;         // the reply's length and identifier too, not only its return code
  bool ignores_return_code = false;  // it never becomes the status
};

// How a test's parameter is shown.
inline void PrintTo(const CallCase &call, std::ostream *out) {
  *out << call.function;
}

// Key name "K1", instance "I1", constant "TEMPLATE0000001".
const std::vector<CallCase> &all_calls();

// What a call writes to: buffers of its caller.
struct Outputs {
  std::vector<std::span<char>> buffers;
  bool zeroed_first = false;  // what was not received is zero; otherwise it stays as it was
  // Whether they hold what was received when the call returns this.
  bool (*hold_reply)(int status) = [](int status) { return status == 0; };
};
Outputs outputs_of(const CallCase &call);

// The list of all calls that have one.
LinkedList &list_of_calls();
