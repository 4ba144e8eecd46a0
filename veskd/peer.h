// One connection: handshake, one request, its reply, close. The peer is hostile until it has proved otherwise, and it
// gets a finite time for each stage.
#pragma once

#include <asio/awaitable.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/ssl/stream.hpp>
#include <asio/steady_timer.hpp>
#include <atomic>
#include <chrono>
#include <memory>
#include <string>

#include "veskd/handlers.h"
#include "veskd/log.h"
#include "veskd/metrics.h"
#include "veskd/roles.h"
#include "veskd/sensors.h"
#include "veskd/server.h"
#include "veskd/store.h"

namespace veskd {

struct Fault;

// Runs on the strand of its socket. What it refers to must outlive it.
class Peer : public std::enable_shared_from_this<Peer> {
 public:
  Peer(asio::ip::tcp::socket socket, std::shared_ptr<Terms> terms, Store &store, const Machine &machine,
       Metrics &metrics, const Log &log);

  // The whole of the connection. Never throws for what the peer does.
  asio::awaitable<void> serve();

  using Clock = std::chrono::steady_clock;

  // Both may be called from any thread. From when on this connection is one to end when there are too many: its peer
  // has not said a word for longer than it takes to begin, or not sent its request for longer than it takes those who
  // mean to. Never, once the request is there.
  Clock::time_point gives_way_at() const;
  // Has the connection ended if that time has come, and it is the peer that is waited for and not this server.
  void ask_to_give_way();

 private:
  enum class Stage { kSilent, kSpeaking, kWorking, kGivenWay };

  // What the peer sent: the text of its one request, or why there is none.
  struct Request;

  void give_way();
  asio::awaitable<bool> wait_for_a_word();
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
  asio::awaitable<bool> write(std::string_view bytes);
  asio::awaitable<void> let_others_run();
  asio::awaitable<void> end_tls();
  asio::awaitable<void> close();

  // What is done wrong on purpose.
  void choose_fault(std::string_view tran_id);
  asio::awaitable<bool> write_wrongly(Reply &reply);
  asio::awaitable<void> pause(std::chrono::milliseconds time);
  void end_wrongly();
  void log_fault(const Fault *fault, std::string_view of) const;

  // From now on the peer has this long; then its socket is closed, which ends whatever waits for it.
  void allow(std::chrono::milliseconds time);
  void allow_any_time();

  void count_and_log(const Request &request, const Reply &reply, bool sent) const;
  std::string reason(const asio::error_code &error) const;

  const std::shared_ptr<Terms> terms_;
  const Limits &limits_;
  const Clock::time_point start_ = Clock::now();
  std::atomic<Stage> stage_ = Stage::kSilent;  // changes on the strand
  asio::ssl::stream<asio::ip::tcp::socket> stream_;
  asio::steady_timer watchdog_;
  bool timed_out_ = false;
  Store &store_;
  const Machine &machine_;
  Metrics &metrics_;
  const Log &log_;
  std::string address_;
  std::string subject_;
  Permissions permissions_;
  std::string fingerprint_;
  const Fault *fault_ = nullptr;  // of the reply; null for nothing
  std::size_t num_written_ = 0;   // bytes of the reply, if it has a fault
};

}  // namespace veskd
