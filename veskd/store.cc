#include "veskd/store.h"

#include <fmt/format.h>

#include <array>
#include <iterator>

#include "veskd/errors.h"
#include "veskd/schema.h"

namespace veskd {
namespace {

// Changes of one commit: enough to share the flush among all who wait, few enough that the first need not wait long.
constexpr std::size_t kMaxChangesPerCommit = 256;

// What is sealed to recognise the master key by.
constexpr std::array<std::uint8_t, 16> kCheckValue = {'v', 'e', 's', 'k', 'd', ' ', 'm', 'a',
                                                      's', 't', 'e', 'r', ' ', 'k', 'e', 'y'};
constexpr std::string_view kCheckContext = "master key check";

// Of a transaction that another one undid.
constexpr int kMaxAttempts = 5;

// A transaction that is rolled back unless it was committed.
class Transaction {
 public:
  explicit Transaction(Database &database) : database_(database) {
    try {
      version_ = database_.begin();
    } catch (...) {
      database_.rollback();
      throw;
    }
  }
  ~Transaction() {
    if (!committed_) database_.rollback();
  }
  Transaction(const Transaction &) = delete;
  Transaction &operator=(const Transaction &) = delete;

  std::int64_t version() const { return version_; }
  void commit() {
    database_.commit();
    committed_ = true;
  }

 private:
  Database &database_;
  std::int64_t version_ = 0;
  bool committed_ = false;
};

// What the constructor of a store throws when the database cannot be used.
StartError unusable(const StoreAddress &address, const DatabaseError &error) {
  return StartError(fmt::format("cannot use the key store {}: {}", address.name(), error.what()));
}

Database open_writer(const StoreAddress &address) {
  try {
    return Database(address);
  } catch (const DatabaseError &error) {
    throw unusable(address, error);
  }
}

}  // namespace

Store::Store(const StoreAddress &address, const MasterKey &master, const Log &log)
    : address_(address), log_(log), sealer_(master), writer_{open_writer(address), sealer_} {
  try {
    prepare();
  } catch (const DatabaseError &error) {
    throw unusable(address, error);
  }
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

// In one transaction: of servers that start on a new database at the same time, one makes it and the others find it.
void Store::prepare() {
  Transaction transaction(writer_.database);
  migrate(writer_.database, transaction.version(), address_.name());
  check_master_key();
  transaction.commit();
}

void Store::check_master_key() {
  Query query(writer_.database, "SELECT sealed FROM master_key_check");
  if (!query.next()) {
    const std::vector<std::uint8_t> sealed = sealer_.seal(kCheckValue, kCheckContext);
    Query(writer_.database, "INSERT INTO master_key_check VALUES (?1)", std::span(sealed)).run();
    return;
  }
  std::array<std::uint8_t, kCheckValue.size()> value;
  if (!sealer_.unseal(query.blob(0), kCheckContext, value) || value != kCheckValue)
    throw StartError(
        fmt::format("the master key does not belong to the key store {}: restore the master key file that "
                    "was made with this store",
                    address_.name()));
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
  return std::make_unique<StoreConnection>(Database(address_, DatabaseUse::kReads), sealer_);
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
  for (const Change &change : changes) outcomes.push_back(try_apply(change));
  transaction.commit();
  return outcomes;
}

ChangeOutcome Store::try_apply(const Change &change) {
  Database &database = writer_.database;
  database.begin_change();
  ChangeOutcome outcome = ChangeOutcome::kDone;
  try {
    if (change.apply(writer_)) {
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
