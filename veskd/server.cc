#include "veskd/server.h"

#include <fmt/format.h>

#include <algorithm>
#include <asio/bind_executor.hpp>
#include <asio/co_spawn.hpp>
#include <asio/post.hpp>
#include <asio/redirect_error.hpp>
#include <asio/use_awaitable.hpp>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "veskd/certificates.h"
#include "veskd/errors.h"
#include "veskd/faults.h"
#include "veskd/faulty_tls.h"
#include "veskd/peer.h"

namespace veskd {
namespace {

// After an accept that failed for want of descriptors or memory: time for a connection to end.
constexpr std::chrono::milliseconds kAcceptPause{100};

// Between a connection that was asked to give way and the next: the first may have had a reason not to.
constexpr std::chrono::milliseconds kPatience{10};

constexpr std::size_t kMinThreads = 2;

void log_failure(const Log &log, std::string_view what, const std::exception_ptr &failure) {
  try {
    if (failure) std::rethrow_exception(failure);
  } catch (const std::exception &error) {
    log.error(fmt::format("{}: {}", what, error.what()));
  }
}

void add_faults(Terms &terms, const ServerOptions &options) {
  terms.faults = std::make_shared<Faults>(options.faults.script);
  terms.faulty_tls = std::make_shared<FaultyTls>(terms.tls.native_handle(), *terms.faults,
                                                 read_identity(options.tls.authority, options.faults.authority_key));
}

}  // namespace

std::shared_ptr<Terms> make_terms(const ServerOptions &options) {
  auto terms = std::make_shared<Terms>(
      Terms{make_tls_context(options.tls, options.tickets), options.limits, options.roles, options.audit_reads});
  if (!options.faults.script.empty()) add_faults(*terms, options);
  return terms;
}

Server::Server(const ServerOptions &options, Store &store, const Log &log)
    : work_(asio::make_work_guard(io_)),
      strand_(asio::make_strand(io_)),
      acceptor_(strand_),
      room_(strand_),
      stop_timer_(strand_),
      terms_(make_terms(options)),
      store_(store),
      log_(log),
      machine_(options.machine),
      num_threads_(options.limits.num_threads) {
  listen(options);
  start_accepting();
}

Server::~Server() = default;

void Server::listen(const ServerOptions &options) {
  asio::error_code error;
  const asio::ip::tcp::endpoint endpoint(asio::ip::make_address(options.address, error), options.port);
  if (!error) acceptor_.open(endpoint.protocol(), error);
  if (!error) acceptor_.set_option(asio::ip::tcp::acceptor::reuse_address(true), error);
  if (!error) acceptor_.bind(endpoint, error);
  if (!error) acceptor_.listen(asio::ip::tcp::acceptor::max_listen_connections, error);
  if (error)
    throw StartError(fmt::format("cannot listen on {} port {}: {}", options.address, options.port, error.message()));
  port_ = acceptor_.local_endpoint().port();
}

void Server::run() {
  const std::size_t wanted = num_threads_ != 0 ? num_threads_ : std::thread::hardware_concurrency();
  std::vector<std::thread> threads(std::max(wanted, kMinThreads) - 1);
  for (std::thread &thread : threads) thread = std::thread([this] { run_thread(); });
  run_thread();
  for (std::thread &thread : threads) thread.join();
  // A change under way resumes a connection of this server when it is done.
  store_.wait_until_idle();
}

void Server::run_thread() {
  for (;;) {
    try {
      io_.run();
      return;
    } catch (const std::exception &error) {
      log_.error(fmt::format("internal failure: {}", error.what()));
    }
  }
}

// Whatever goes wrong, want of memory included, accepting goes on.
void Server::start_accepting() {
  asio::co_spawn(strand_, accept_connections(), [this](const std::exception_ptr &failure) {
    log_failure(log_, "accepting connections failed", failure);
    if (!stopping_) start_accepting();
  });
}

asio::awaitable<void> Server::accept_connections() {
  while (!stopping_) {
    asio::error_code error;
    asio::ip::tcp::socket socket = co_await acceptor_.async_accept(asio::any_io_executor(asio::make_strand(io_)),
                                                                   asio::redirect_error(asio::use_awaitable, error));
    while (!stopping_ && !error && peers_.size() >= terms_->limits.max_connections) co_await make_room();
    if (stopping_) break;
    if (error) {
      co_await pause_after(error);
    } else {
      start_connection(std::move(socket));
    }
  }
}

// Returns when a connection has ended, or may be ended.
asio::awaitable<void> Server::make_room() {
  asio::error_code cancelled;
  room_.expires_at(end_oldest());
  co_await room_.async_wait(asio::redirect_error(asio::use_awaitable, cancelled));
}

// Ends the oldest connection that may be ended. Tells when to look again if none has ended until then.
std::chrono::steady_clock::time_point Server::end_oldest() {
  const auto now = Peer::Clock::now();
  auto next = Peer::Clock::time_point::max();
  for (const std::shared_ptr<Peer> &peer : peers_) {
    const auto time = peer->gives_way_at();
    next = std::min(next, time);
    if (time > now) continue;
    peer->ask_to_give_way();
    return now + kPatience;
  }
  return next;
}

asio::awaitable<void> Server::pause_after(const asio::error_code &error) {
  if (error == asio::error::connection_aborted) co_return;
  log_.warning(fmt::format("a connection could not be accepted: {}", error.message()));
  end_oldest();
  asio::error_code cancelled;
  room_.expires_after(kAcceptPause);
  co_await room_.async_wait(asio::redirect_error(asio::use_awaitable, cancelled));
}

void Server::start_connection(asio::ip::tcp::socket socket) {
  const asio::any_io_executor executor = socket.get_executor();
  const auto peer = std::make_shared<Peer>(std::move(socket), terms_, store_, machine_, metrics_, log_);
  const auto place = peers_.insert(peers_.end(), peer);
  metrics_.begin_connection();
  asio::co_spawn(
      executor, [peer]() -> asio::awaitable<void> { return peer->serve(); },
      asio::bind_executor(strand_,
                          [this, place](const std::exception_ptr &failure) { end_connection(place, failure); }));
}

void Server::end_connection(Peers::iterator peer, const std::exception_ptr &failure) {
  peers_.erase(peer);
  metrics_.end_connection();
  room_.cancel();
  log_failure(log_, "a connection failed", failure);
  if (stopping_ && peers_.empty()) io_.stop();
}

void Server::stop() {
  asio::post(strand_, [this] { begin_stop(); });
}

void Server::use(std::shared_ptr<Terms> terms) {
  asio::post(strand_, [this, terms = std::move(terms)] { terms_ = terms; });
}

void Server::on_signals(std::initializer_list<int> signals, const std::function<void()> &action) {
  asio::signal_set &set = signals_.emplace_back(strand_);
  for (const int signal : signals) set.add(signal);
  await_signal(set, action);
}

void Server::await_signal(asio::signal_set &signals, const std::function<void()> &action) {
  signals.async_wait([this, &signals, action](const asio::error_code &error, int) {
    if (error) return;
    action();
    await_signal(signals, action);
  });
}

void Server::begin_stop() {
  if (stopping_.exchange(true)) return;
  asio::error_code ignored;
  acceptor_.close(ignored);
  room_.cancel();
  if (peers_.empty()) return io_.stop();
  stop_timer_.expires_after(terms_->limits.stopping);
  stop_timer_.async_wait([this](const asio::error_code &error) {
    if (!error) io_.stop();
  });
}

}  // namespace veskd
