// What brings keys to a server.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>

#include "orn/skeys.h"
#include "orn/support.h"
#include "orn/vesk.h"
#include "orn/vesk/libvesk/default_policy.h"
#include "orn/vesk/wiped.h"
#include "tests/server/test_server.h"

namespace secrets_test {

// Files of a key pair, made by another program so that nothing of it is in this one's memory.
class KeyPair {
 public:
  KeyPair() {
    const std::string command =
        "cd " + folder_.path().string() +
        " && openssl req -x509 -newkey rsa:2048 -nodes -subj /CN=pair -days 30 -keyout key.pem -out certificate.pem "
        "2>errors && openssl pkey -in key.pem -outform DER -out key.der && cat certificate.pem key.pem >both.pem";
    if (std::system(command.c_str()) != 0) throw std::runtime_error("no key pair");
  }

  std::string file(const std::string &name) const { return folder_ / name; }

 private:
  veskd::test::TemporaryDirectory folder_;
};

// Imports a key that is not wrapped, as a program does that fills a session itself.
inline int import_plain(const CertificatePaths *paths, std::uint16_t port, const char *name, const char *format,
                        std::span<const unsigned char> value) {
  const auto owner = std::make_unique<vesk::Wiped<Session>>();
  Session &session = **owner;
  vesk::put_default_policy(session.request);
  vesk::wire::put_padded(session.request.caTranId, "1023");
  vesk::wire::put_padded(session.request.caKeyName, name);
  vesk::wire::put_padded(session.request.caMirrorKey, "N");
  vesk::wire::put_padded(session.request.caKeyFormat, format);
  vesk::wire::put_padded(session.request.caCertificateName, "");
  vesk::wire::put_padded(session.request.caRSAPaddingMode, "");
  std::memcpy(session.request.caKeyValue, value.data(), value.size());
  const auto &path = paths->caPath;
  int status = SetupConnection(&session.hTls, &session.hTlsAux, &session.hTlsRead, path[2], path[1], 0, path[3],
                               "127.0.0.1", std::to_string(port).c_str(), 10);
  if (status == 0) {
    ImportSymKey(&session);
    status = session.iStatus;
  }
  TLSTeardown(session.hTls, session.hTlsAux, session.hTlsRead);
  return status;
}

}  // namespace secrets_test
