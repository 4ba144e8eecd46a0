// Keeps the mirrors up to date: a task for each mirror of the address book sends it what waits in its queue, tries
// again when that fails, and compares the stores when nothing waits.
#pragma once

#include <asio/awaitable.hpp>
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/ssl/context.hpp>
#include <asio/steady_timer.hpp>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>
#include <unordered_map>

#include "veskd/delivery_lease.h"
#include "veskd/log.h"
#include "veskd/store.h"
#include "veskd/tls.h"

namespace veskd {

struct ReplicationTimes {
  std::chrono::milliseconds first_retry{500};
  std::chrono::milliseconds longest_retry{30000};  // retries double up to this, each shortened at random
  std::chrono::milliseconds exchange{30000};       // from connecting to the end of the reply
  std::chrono::milliseconds compare_every{60000};  // while nothing changes
  std::chrono::milliseconds compare_pause{5000};   // between comparisons at least, while things change
  // Of servers that share a store:
  std::chrono::milliseconds look_every{1000};  // for what others changed
  std::chrono::milliseconds lease{5000};       // after which another delivers in the place of one that is gone
};

class Replicator {
 public:
  // Begins. Throws StartError. The store and the log must outlive the replicator.
  Replicator(const TlsFiles &files, Store &store, const Log &log, const ReplicationTimes &times = {});

  // Ends what is under way; the queues keep what was not delivered.
  ~Replicator();

  // Shows the certificate of these files from the next exchange on. Throws StartError.
  void use(const TlsFiles &files);

  Replicator(const Replicator &) = delete;
  Replicator &operator=(const Replicator &) = delete;

 private:
  class Task;

  void run_thread();
  // Keeps the lease, or tries to get it, and looks for what the other servers of the store changed.
  void look_regularly();
  void take_lease();
  // Gives every mirror of the book its task, and has each look at its queue.
  void look_around();
  void start_missing_tasks();

  Store &store_;
  const Log &log_;
  const ReplicationTimes times_;
  asio::ssl::context tls_;
  asio::io_context io_;
  asio::executor_work_guard<asio::io_context::executor_type> work_;
  asio::steady_timer look_timer_;
  DeliveryLease lease_;
  std::atomic<bool> look_is_due_ = false;
  bool delivers_;  // this server, and not another one of the store; touched on the thread alone
  std::unordered_map<std::int64_t, std::shared_ptr<Task>> tasks_;  // by mirror; touched on the thread alone
  std::thread thread_;
};

}  // namespace veskd
