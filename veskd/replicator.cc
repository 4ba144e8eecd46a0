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
    : store_(store), log_(log), times_(times), tls_(make_mirror_tls_context(files)), work_(asio::make_work_guard(io_)) {
  store_.change({.apply =
                     [](StoreConnection &connection) {
                       renew_origin(connection);
                       return true;
                     },
                 .done = [](ChangeOutcome) {}});
  store_.wait_until_idle();
  store_.on_commit([this] {
    if (!look_is_due_.exchange(true)) asio::post(io_, [this] { look_around(); });
  });
  asio::post(io_, [this] { look_around(); });
  thread_ = std::thread([this] { run_thread(); });
}

Replicator::~Replicator() {
  store_.on_commit({});
  io_.stop();
  thread_.join();
  // A change under way tells its task when it is done.
  store_.wait_until_idle();
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

void Replicator::look_around() {
  look_is_due_ = false;
  start_missing_tasks();
  for (const auto &[id, task] : tasks_) task->wake();
}

void Replicator::start_missing_tasks() {
  Store::Reader reader(store_);
  for (const std::int64_t id : list_mirrors(*reader)) {
    if (tasks_.contains(id)) continue;
    const auto task = std::make_shared<Task>(id, io_.get_executor(), store_, tls_, log_, times_);
    tasks_.emplace(id, task);
    asio::co_spawn(
        io_, [task]() -> asio::awaitable<void> { return task->run(); },
        [this, id](std::exception_ptr) { tasks_.erase(id); });
  }
}

}  // namespace veskd
