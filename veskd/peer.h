// One connection: handshake, one request, its reply, close. The peer is hostile until it has proved otherwise, and it
// gets a finite time for each stage.
#pragma once

#include <asio/awaitable.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/ssl/stream.hpp>
#include <asio/steady_timer.hpp>
#include <memory>
#include <string>

#include "veskd/handlers.h"
#include "veskd/log.h"
#include "veskd/roles.h"
#include "veskd/sensors.h"
#include "veskd/server.h"
#include "veskd/store.h"

namespace veskd {

// Runs on the strand of its socket. What it refers to must outlive it.
class Peer : public std::enable_shared_from_this<Peer> {
 public:
  Peer(asio::ip::tcp::socket socket, std::shared_ptr<Terms> terms, Store &store, const Machine &machine,
       const Log &log);

  // The whole of the connection. Never throws for what the peer does.
  asio::awaitable<void> serve();

 private:
  // What the peer sent: the text of its one request, or why there is none.
  struct Request;

  asio::awaitable<bool> do_handshake();
  asio::awaitable<Request> read_request();
  asio::awaitable<void> read_payload(const Handler &handler, Request &request);
  asio::awaitable<bool> read_exactly(char *bytes, std::size_t count);
  ReturnCode admit(const Handler &handler, Request &request) const;
  asio::awaitable<Reply> answer(const Request &request);
  ReturnCode check(const Request &request, RequestFields &fields) const;
  asio::awaitable<Reply> run(const Handler &handler, const Request &request, const RequestFields &fields);
  asio::awaitable<Reply> run_change(const Handler &handler, const Request &request, const RequestFields &fields);
  // Whether it stays, and the reply may go out.
  asio::awaitable<ChangeOutcome> make_durable(Change &change);
  bool is_audited(const Handler &handler) const;
  // Makes the reply a refusal when it cannot be recorded.
  asio::awaitable<void> record(const Handler &handler, const RequestFields &fields, Reply &reply);
  void write_audit(StoreConnection &store, const Handler &handler, const RequestFields &fields,
                   const Reply &reply) const;
  Call call(const Request &request, const RequestFields &fields, StoreConnection &store) const;
  Reply read(std::string_view tran_id, const std::function<Reply(StoreConnection &)> &make_reply);
  asio::awaitable<bool> send(std::string_view tran_id, Reply &reply);
  asio::awaitable<bool> write(const std::string &bytes);
  asio::awaitable<void> let_others_run();
  asio::awaitable<void> end_tls();
  asio::awaitable<void> close();

  // From now on the peer has this long; then its socket is closed, which ends whatever waits for it.
  void allow(std::chrono::milliseconds time);
  void allow_any_time();

  void log_request(const Request &request, const Reply &reply, bool sent) const;
  std::string reason(const asio::error_code &error) const;

  const std::shared_ptr<Terms> terms_;
  const Limits &limits_;
  asio::ssl::stream<asio::ip::tcp::socket> stream_;
  asio::steady_timer watchdog_;
  bool timed_out_ = false;
  Store &store_;
  const Machine &machine_;
  const Log &log_;
  std::string address_;
  std::string subject_;
  Permissions permissions_;
  std::string fingerprint_;
};

}  // namespace veskd
