#include "veskd/store.h"

#include <fmt/format.h>

#include <iterator>

#include "veskd/mirror_records.h"
#include "veskd/schema.h"
#include "veskd/transaction.h"

namespace veskd {
namespace {

// Changes of one commit: enough to share the flush among all who wait, few enough that the first need not wait long.
constexpr std::size_t kMaxChangesPerCommit = 256;

// Of a transaction that another one undid.
constexpr int kMaxAttempts = 5;

Database open_writer(const StoreAddress &address) {
  try {
    return Database(address);
  } catch (const DatabaseError &error) {
    throw unusable(address, error);
  }
}

// Makes the store if there is none, brings one of an earlier version forward, opens its keys, and gives its changes a
// new origin, whether or not they are delivered soon. In one transaction: of servers that start on a new database at
// the same time, one makes it and the others find it.
std::unique_ptr<StoreKeys> prepare_store(const StoreAddress &address, Database &database, const MasterKey &master) {
  try {
    Transaction transaction(database);
    migrate(database, transaction.version(), address.name());
    auto keys = open_store_keys(database, master);
    if (!keys)
      throw StartError(
          fmt::format("the master key does not belong to the key store {}: restore the master key file that "
                      "was made with this store",
                      address.name()));
    renew_origin(database);
    transaction.commit();
    return keys;
  } catch (const DatabaseError &error) {
    throw unusable(address, error);
  }
}

}  // namespace

StartError unusable(const StoreAddress &store, const DatabaseError &error) {
  return StartError(fmt::format("cannot use the key store {}: {}", store.name(), error.what()));
}

Store::Store(const StoreAddress &address, const MasterKey &master, const Log &log)
    : Store(address, open_writer(address), master, log) {}

Store::Store(const StoreAddress &address, Database database, const MasterKey &master, const Log &log)
    : address_(address),
      log_(log),
      keys_(prepare_store(address, database, master)),
      sealer_(*keys_->values),
      writer_{std::move(database), sealer_, keys_->audit} {
  writer_thread_ = std::thread([this] { write_changes(); });
}

Store::~Store() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  writer_thread_.join();
}

std::unique_ptr<StoreConnection> Store::take_reader() {
  {
    const std::lock_guard lock(mutex_);
    if (!readers_.empty()) {
      auto reader = std::move(readers_.back());
      readers_.pop_back();
      return reader;
    }
  }
  return std::unique_ptr<StoreConnection>(
      new StoreConnection{Database(address_, DatabaseUse::kReads), sealer_, keys_->audit});
}

void Store::give_back(std::unique_ptr<StoreConnection> connection) {
  const std::lock_guard lock(mutex_);
  readers_.push_back(std::move(connection));
}

class Store::ListReader::Place {
 public:
  static std::unique_ptr<Place> take(Store &store) {
    const std::lock_guard lock(store.mutex_);
    if (store.num_lists_ == kMaxLists) return nullptr;
    return std::unique_ptr<Place>(new Place(store));
  }
  Place(const Place &) = delete;
  Place &operator=(const Place &) = delete;
  ~Place() {
    const std::lock_guard lock(store_.mutex_);
    --store_.num_lists_;
  }

 private:
  explicit Place(Store &store) : store_(store) { ++store.num_lists_; }
  Store &store_;
};

std::unique_ptr<Store::ListReader> Store::ListReader::take(Store &store) {
  auto place = Place::take(store);
  if (!place) return nullptr;
  return std::unique_ptr<ListReader>(new ListReader(std::move(place), store));
}

Store::ListReader::ListReader(std::unique_ptr<Place> place, Store &store) : place_(std::move(place)), reader_(store) {}

Store::ListReader::~ListReader() = default;

void Store::change(Change change) {
  {
    const std::lock_guard lock(mutex_);
    waiting_.push_back(std::move(change));
  }
  changed_.notify_all();
}

void Store::on_commit(std::function<void()> listener) {
  const std::lock_guard lock(listener_mutex_);
  listener_ = std::move(listener);
}

Store::Load Store::load() {
  const std::lock_guard lock(mutex_);
  return {waiting_.size(), num_lists_};
}

void Store::wait_until_idle() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return waiting_.empty() && !writing_; });
}

void Store::write_changes() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return stopping_ || !waiting_.empty(); });
    if (waiting_.empty()) return;
    std::deque<Change> changes;
    while (!waiting_.empty() && changes.size() < kMaxChangesPerCommit) {
      changes.push_back(std::move(waiting_.front()));
      waiting_.pop_front();
    }
    writing_ = true;
    lock.unlock();
    commit(changes);
    changes.clear();
    lock.lock();
    writing_ = false;
    changed_.notify_all();
  }
}

void Store::commit(std::deque<Change> &changes) {
  const std::vector<ChangeOutcome> outcomes = make_durable(changes);
  for (std::size_t i = 0; i < changes.size(); ++i) changes[i].done(outcomes[i]);
  const std::lock_guard lock(listener_mutex_);
  if (listener_) listener_();
}

// When the commit fails, everything in it has failed, refusals included: they may rest on what was undone.
std::vector<ChangeOutcome> Store::make_durable(const std::deque<Change> &changes) {
  for (int attempt = 1;; ++attempt) {
    try {
      return try_commit(changes);
    } catch (const OutcomeUnknown &error) {
      log_.error(fmt::format("the key store was changed or not: {}", error.what()));
      return std::vector(changes.size(), ChangeOutcome::kUnknown);
    } catch (const TransactionUndone &error) {
      log_.warning(fmt::format("a transaction of the key store was undone: {}", error.what()));
      if (attempt == kMaxAttempts) return std::vector(changes.size(), ChangeOutcome::kFailed);
    } catch (const DatabaseError &error) {
      log_.error(fmt::format("the key store could not be changed: {}", error.what()));
      return std::vector(changes.size(), ChangeOutcome::kFailed);
    }
  }
}

std::vector<ChangeOutcome> Store::try_commit(const std::deque<Change> &changes) {
  Transaction transaction(writer_.database);
  if (transaction.version() != std::ssize(kMigrations))
    throw DatabaseError("another veskd brought it to another version; use that one");
  std::vector<ChangeOutcome> outcomes;
  outcomes.reserve(changes.size());
  for (const Change &change : changes) outcomes.push_back(try_apply(change));
  transaction.commit();
  return outcomes;
}

// What was applied and its record stand or fall together, also when the database tells only behind both that one of
// them went wrong. The record of what was not applied stands by itself.
ChangeOutcome Store::try_apply(const Change &change) {
  bool applied = false;
  const ChangeOutcome outcome = attempt([&](StoreConnection &store) {
    applied = change.apply(store);
    if (applied && change.record) change.record(store);
    return applied;
  });
  if (applied || !change.record) return outcome;
  const ChangeOutcome recorded = attempt([&](StoreConnection &store) {
    change.record(store);
    return true;
  });
  return recorded == ChangeOutcome::kDone ? outcome : recorded;
}

// Undoes what the action did when it returns false or throws. Throwing is a failure.
ChangeOutcome Store::attempt(const std::function<bool(StoreConnection &)> &action) {
  Database &database = writer_.database;
  database.begin_change();
  ChangeOutcome outcome = ChangeOutcome::kDone;
  try {
    if (action(writer_)) {
      database.keep_change();
      return outcome;
    }
  } catch (const TransactionUndone &) {
    throw;
  } catch (const std::exception &error) {
    log_.error(fmt::format("a change of the key store failed: {}", error.what()));
    outcome = ChangeOutcome::kFailed;
  }
  database.undo_change();
  return outcome;
}

}  // namespace veskd
