#include "veskd/replicator.h"

#include <fmt/format.h>

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/post.hpp>
#include <exception>
#include <future>

#include "veskd/mirror_records.h"
#include "veskd/mirror_task.h"

namespace veskd {

Replicator::Replicator(const TlsFiles &files, Store &store, const Log &log, const ReplicationTimes &times)
    : store_(store),
      log_(log),
      times_(times),
      tls_(make_mirror_tls_context(files)),
      work_(asio::make_work_guard(io_)),
      look_timer_(io_),
      lease_(times.lease),
      delivers_(!store.is_shared()) {
  store_.on_commit([this] {
    if (!look_is_due_.exchange(true)) asio::post(io_, [this] { look_around(); });
  });
  asio::post(io_, [this] { look_around(); });
  if (store_.is_shared()) asio::post(io_, [this] { take_lease(); });
  thread_ = std::thread([this] { run_thread(); });
}

Replicator::~Replicator() {
  store_.on_commit({});
  io_.stop();
  thread_.join();
  if (store_.is_shared())
    store_.change({.apply =
                       [this](StoreConnection &connection) {
                         lease_.give_back(connection);
                         return true;
                       },
                   .done = [](ChangeOutcome) {}});
  // A change under way tells its task when it is done.
  store_.wait_until_idle();
}

// A connection keeps what it needs of the context that it was made with.
void Replicator::use(const TlsFiles &files) {
  const auto tls = std::make_shared<asio::ssl::context>(make_mirror_tls_context(files));
  asio::post(io_, [this, tls] { tls_ = std::move(*tls); });
}

void Replicator::run_thread() {
  for (;;) {
    try {
      io_.run();
      return;
    } catch (const std::exception &error) {
      log_.error(fmt::format("replication: internal failure: {}", error.what()));
    }
  }
}

void Replicator::look_regularly() {
  look_timer_.expires_after(times_.look_every);
  look_timer_.async_wait([this](const asio::error_code &error) {
    if (!error) take_lease();
  });
}

// The commit has everything looked around for.
void Replicator::take_lease() {
  const auto is_taken = std::make_shared<bool>(false);
  store_.change({.apply =
                     [this, is_taken](StoreConnection &connection) {
                       *is_taken = lease_.take(connection);
                       return true;
                     },
                 .done =
                     [this, is_taken](ChangeOutcome outcome) {
                       const bool delivers = *is_taken && outcome == ChangeOutcome::kDone;
                       asio::post(io_, [this, delivers] {
                         delivers_ = delivers;
                         look_regularly();
                       });
                     }});
}

void Replicator::look_around() {
  look_is_due_ = false;
  start_missing_tasks();
  for (const auto &[id, task] : tasks_) task->wake();
}

void Replicator::start_missing_tasks() {
  Store::Reader reader(store_);
  for (const std::int64_t id : list_mirrors(*reader)) {
    if (tasks_.contains(id)) continue;
    const auto task = std::make_shared<Task>(id, io_.get_executor(), store_, tls_, log_, times_, delivers_);
    tasks_.emplace(id, task);
    asio::co_spawn(
        io_, [task]() -> asio::awaitable<void> { return task->run(); },
        [this, id](const std::exception_ptr &) { tasks_.erase(id); });
  }
}

}  // namespace veskd
