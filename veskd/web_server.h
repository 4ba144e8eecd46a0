// A small web server for pages that are read and change nothing: GET and HEAD, one request a connection, on a thread of
// its own. How many connect, how much they send and how long they are silent is bounded.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "veskd/log.h"

struct MHD_Connection;
struct MHD_Daemon;

namespace veskd {

struct WebPage {
  unsigned status = 200;
  const char *content_type = "text/plain; charset=utf-8";
  std::string content;
  std::string security_policy = "default-src 'none'; frame-ancestors 'none'";
};

bool is_loopback(const std::string &address);

class WebServer {
 public:
  // What is answered at each path, made on the server's thread.
  using Pages = std::map<std::string, std::function<WebPage()>, std::less<>>;

  // Answers from now on; port 0 stands for a free one. Throws StartError. The log must outlive the server.
  WebServer(const std::string &address, std::uint16_t port, Pages pages, const Log &log);

  std::uint16_t port() const { return port_; }

 private:
  struct Stop {
    void operator()(MHD_Daemon *daemon) const;
  };

  WebPage answer(MHD_Connection *connection, const char *path, const char *method) const;
  WebPage find(MHD_Connection *connection, std::string_view path, std::string_view method) const;
  bool is_meant(MHD_Connection *connection) const;

  const Pages pages_;
  const bool on_loopback_;
  const Log &log_;
  std::uint16_t port_ = 0;
  std::unique_ptr<MHD_Daemon, Stop> daemon_;  // the last member: its thread uses the others
};

}  // namespace veskd
