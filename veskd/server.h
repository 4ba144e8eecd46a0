// The listener: accepts connections, bounds their number, and stops cleanly.
#pragma once

#include <asio/any_io_executor.hpp>
#include <asio/awaitable.hpp>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/signal_set.hpp>
#include <asio/ssl/context.hpp>
#include <asio/steady_timer.hpp>
#include <asio/strand.hpp>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <list>
#include <memory>
#include <string>

#include "veskd/log.h"
#include "veskd/metrics.h"
#include "veskd/roles.h"
#include "veskd/sensors.h"
#include "veskd/store.h"
#include "veskd/tls.h"

namespace veskd {

class Faults;
class FaultyTls;

// How long a peer may take for each stage of its connection, and how much of the server it may use.
struct Limits {
  std::chrono::milliseconds handshake{10000};
  std::chrono::milliseconds request{30000};
  // When there are more connections than allowed, those end first whose peer has not begun, or not sent its request,
  // within these times.
  std::chrono::milliseconds begin{100};
  std::chrono::milliseconds ask{3000};
  std::chrono::milliseconds reply{30000};  // of each page
  std::chrono::milliseconds list{600000};  // of all pages
  std::chrono::milliseconds closing{2000};
  std::chrono::milliseconds stopping{5000};  // what runs when the server is told to stop may take this long
  std::size_t max_connections = 512;         // more wait, or take the place of those that keep silent
  std::size_t max_page_bytes = 16384;        // of the entries on a page of a list
  std::size_t num_threads = 0;               // 0: as many as the machine has processors, but two at least
};

// What the server does wrong on purpose, and the key of its authority for certificates that are.
struct FaultFiles {
  std::filesystem::path script;  // none when empty
  std::filesystem::path authority_key;
};

struct ServerOptions {
  TlsFiles tls;
  TicketOptions tickets;
  std::string address = "127.0.0.1";
  std::uint16_t port = 0;  // 0: a free one
  Machine machine;
  Limits limits;
  RoleRules roles;
  bool audit_reads = true;  // what hands out a secret is audited; what changes one always is
  FaultFiles faults;
};

// What connections are served under. One keeps those that it began with when others are put in their place.
struct Terms {
  asio::ssl::context tls;
  Limits limits;
  RoleRules roles;
  bool audit_reads = true;
  std::shared_ptr<Faults> faults = nullptr;  // null for a server that behaves
  std::shared_ptr<FaultyTls> faulty_tls = nullptr;
};

// Throws StartError when the files cannot be used.
std::shared_ptr<Terms> make_terms(const ServerOptions &options);

class Peer;

class Server {
 public:
  // Listens; throws StartError. The store and the log must outlive the server.
  Server(const ServerOptions &options, Store &store, const Log &log);
  ~Server();
  Server(const Server &) = delete;
  Server &operator=(const Server &) = delete;

  std::uint16_t port() const { return port_; }

  // Not any more once it was told to stop. From any thread.
  bool is_accepting() const { return !stopping_; }
  const Metrics &metrics() const { return metrics_; }

  // Serves until told to stop. Call it once.
  void run();

  // Tells run() to return: no connection is accepted any more, those that run are finished within Limits::stopping.
  void stop();

  // New connections are served under these terms. The number of threads stays.
  void use(std::shared_ptr<Terms> terms);

  // Has a function called each time that one of the signals arrives, while the server runs.
  void on_signals(std::initializer_list<int> signals, const std::function<void()> &action);

 private:
  void listen(const ServerOptions &options);
  void start_accepting();
  asio::awaitable<void> accept_connections();
  asio::awaitable<void> make_room();
  std::chrono::steady_clock::time_point end_oldest();
  asio::awaitable<void> pause_after(const asio::error_code &error);
  void start_connection(asio::ip::tcp::socket socket);
  using Peers = std::list<std::shared_ptr<Peer>>;
  void end_connection(Peers::iterator peer, const std::exception_ptr &failure);
  void begin_stop();
  void await_signal(asio::signal_set &signals, const std::function<void()> &action);
  void run_thread();

  // Kept first: what waits for an event goes when the context goes, after everything else.
  asio::io_context io_;
  asio::executor_work_guard<asio::io_context::executor_type> work_;
  // The members below, up to the store, are touched on this strand alone.
  asio::any_io_executor strand_;
  asio::ip::tcp::acceptor acceptor_;
  asio::steady_timer room_;
  asio::steady_timer stop_timer_;
  std::list<asio::signal_set> signals_;
  std::shared_ptr<Terms> terms_;
  Peers peers_;                         // the oldest first
  std::atomic<bool> stopping_ = false;  // read on any thread

  Store &store_;
  const Log &log_;
  Metrics metrics_;
  const Machine machine_;
  const std::size_t num_threads_;
  std::uint16_t port_ = 0;
};

}  // namespace veskd
