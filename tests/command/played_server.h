// A TLS server that plays one part: certificates of the test's choosing, and the same reply to every request.
#pragma once

#include <string>
#include <thread>
#include <vector>

#include "veskd/certificates.h"

namespace command_test {

// What a client of the played server needs, and the server's own pair, as files in one directory.
struct PlayedCertificates {
  std::vector<std::string> server_names = {"127.0.0.1"};
  veskd::Days server_validity{1};
  veskd::Days server_begin{0};  // when it begins, from now on
  bool trusts_server = true;    // the client's authority file holds the authority that issued the server's certificate
};

class PlayedServer {
 public:
  // Speaks TLS and answers every request with the reply. Certificates and keys are made in the directory.
  // The line stays open behind the reply if the server stalls.
  PlayedServer(const std::string &directory, const PlayedCertificates &certificates, std::string reply,
               bool stalls = false);
  // Sends the bytes at once and speaks no TLS.
  explicit PlayedServer(std::string greeting);
  ~PlayedServer();
  PlayedServer(const PlayedServer &) = delete;
  PlayedServer &operator=(const PlayedServer &) = delete;

  std::string port() const;

 private:
  void serve_greeting() const;
  void serve_tls() const;

  std::string directory_;
  bool stalls_ = false;
  std::string reply_;
  int listener_ = -1;
  std::thread thread_;
};

// Accepts no connection although the system completes it: nothing ever answers.
class SilentServer {
 public:
  SilentServer();
  ~SilentServer();
  SilentServer(const SilentServer &) = delete;
  SilentServer &operator=(const SilentServer &) = delete;

  std::string port() const;

 private:
  int listener_ = -1;
};

}  // namespace command_test
