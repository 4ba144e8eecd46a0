// The replication to one mirror.
#pragma once

#include <asio/any_io_executor.hpp>
#include <asio/steady_timer.hpp>
#include <functional>
#include <optional>
#include <string>

#include "veskd/audit_records.h"
#include "veskd/mirror_records.h"
#include "veskd/replicated_keys.h"
#include "veskd/replicator.h"

namespace veskd {

// Everything happens on the replicator's thread, but for changes of the store.
class Replicator::Task {
 public:
  Task(std::int64_t mirror_id, const asio::any_io_executor &executor, Store &store, asio::ssl::context &tls,
       const Log &log, const ReplicationTimes &times, const bool &delivers);

  // Until the mirror is taken from the book.
  asio::awaitable<void> run();

  // Something may have changed.
  void wake() { timer_.cancel(); }

 private:
  using Clock = std::chrono::steady_clock;

  using StoreChange = std::function<void(StoreConnection &)>;

  // What came of an attempt.
  struct Outcome {
    std::string_view status;  // of the constants, or of the mirror at hand
    std::int64_t num_faults = 0;
    std::int64_t last_fault = 0;
    std::string text;  // for the log, when something is wrong
  };

  asio::awaitable<bool> step();
  asio::awaitable<void> deliver(const Mirror &mirror, const ReplicationBatch &batch);
  AuditEvent event_of(const Mirror &mirror, const std::string &key_name, std::int64_t code) const;
  asio::awaitable<void> compare(const Mirror &mirror);
  // The reply, which tells of success and has that many bytes; otherwise nothing, and what is wrong in the
  // outcome.
  asio::awaitable<std::string> ask(const Mirror &mirror, const WipedText &request, std::size_t reply_bytes,
                                   Outcome &outcome);
  asio::awaitable<void> record_failure(const Mirror &mirror, const Outcome &outcome);
  asio::awaitable<void> change(const StoreChange &apply);
  asio::awaitable<void> sleep_until(Clock::time_point time);
  void log(const Mirror &mirror, const std::string &text) const;
  void try_later();
  void tried_successfully();

  const std::int64_t mirror_id_;
  asio::steady_timer timer_;
  Store &store_;
  asio::ssl::context &tls_;
  const Log &log_;
  const ReplicationTimes &times_;
  const bool &delivers_;  // the replicator's

  std::int64_t attempt_ = -1;  // of those asked for, the last one begun
  Clock::time_point retry_at_ = Clock::time_point::min();
  std::chrono::milliseconds next_retry_;
  Clock::time_point compare_at_ = Clock::time_point::min();
  Clock::time_point compared_at_ = Clock::time_point::min();
};

}  // namespace veskd
