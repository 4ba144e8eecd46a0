// The server and the certificate files of one run of the command, and calls of the library with them.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "orn/vesk.h"
#include "vesk/settings.h"
#include "vesk/trace.h"

namespace command {

struct Target;

class Connection {
 public:
  // Checks everything that can be checked without connecting, and switches the library's trace on.
  explicit Connection(const Settings &settings);

  // Checks nothing. What cannot be used of the target is empty.
  Connection(const std::string &trace, const Target &target);

  // Makes a public call and returns its status.
  template <typename Call, typename... Arguments>
  int call(Call public_call, Arguments &&...arguments) const {
    Trace::take_connection_details();
    Trace::take_return_code();
    const int status = public_call(&paths_, host_.c_str(), port_, std::forward<Arguments>(arguments)...);
    // Some lists succeed whatever the server says, and tell of it in the trace alone.
    return status != 0 ? status : Trace::take_return_code();
  }

  // Makes a public call, which must succeed. subject is what it is about, as in "key K1"; empty for the server itself.
  template <typename Call, typename... Arguments>
  void run(std::string_view subject, Call public_call, Arguments &&...arguments) const {
    require(call(public_call, std::forward<Arguments>(arguments)...), subject);
  }

  // Fails with the explanation of a status other than 0.
  void require(int status, std::string_view subject) const;

  const std::string &host() const { return host_; }
  std::uint32_t port() const { return port_; }
  std::string server() const;                                           // host:port
  const char *file(int number) const { return paths_.caPath[number]; }  // 1 to 3; 0 is the directory

 private:
  Trace trace_;
  std::string host_;
  std::uint32_t port_ = 0;
  CertificatePaths paths_{};
};

}  // namespace command
