#include "veskd/store.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "veskd/errors.h"
#include "veskd/files.h"
#include "veskd/schema.h"
#include "veskd/transaction.h"

namespace veskd {
namespace {

// Changes of one commit: enough to share the flush among all who wait, few enough that the first need not wait long.
constexpr std::size_t kMaxChangesPerCommit = 256;

// SQLite gives its journals the mode of the database file, so that file is made first.
Database open_private(const std::filesystem::path &path) {
  const Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kPrivateMode));
  if (!file.is_open())
    throw StartError(
        fmt::format("cannot open the key store {}: {}", path.string(), std::generic_category().message(errno)));
  return Database(path);
}

void migrate(Database &database, const std::filesystem::path &path) {
  std::int64_t version = store_version(database);
  if (version < 0 || version > std::ssize(kMigrations))
    throw StartError(
        fmt::format("the key store {} has version {}, this veskd knows versions up to {}: use a newer veskd",
                    path.string(), version, kMigrations.size()));
  for (; version < std::ssize(kMigrations); ++version) database.execute(kMigrations[static_cast<std::size_t>(version)]);
  database.execute(fmt::format("PRAGMA user_version = {}", version).c_str());
}

// Makes the store if there is none, brings one of an earlier version forward, and opens its keys.
std::unique_ptr<StoreKeys> prepare_store(const std::filesystem::path &path, const MasterKey &master) {
  try {
    Database database = open_private(path);
    database.execute("PRAGMA journal_mode = WAL");
    database.execute("PRAGMA synchronous = FULL");
    Transaction transaction(database);
    migrate(database, path);
    auto keys = open_store_keys(database, master);
    if (!keys)
      throw StartError(
          fmt::format("the master key does not belong to the key store {}: restore the master key file that "
                      "was made with this store",
                      path.string()));
    transaction.commit();
    return keys;
  } catch (const DatabaseError &error) {
    throw StartError(fmt::format("cannot use the key store {}: {}", path.string(), error.what()));
  }
}

}  // namespace

std::int64_t store_version(Database &database) {
  Query query(database, "PRAGMA user_version");
  return query.next() ? query.number(0) : 0;
}

Store::Store(const std::filesystem::path &path, const MasterKey &master, const Log &log)
    : path_(path),
      log_(log),
      keys_(prepare_store(path, master)),
      sealer_(*keys_->values),
      writer_{Database(path), sealer_, keys_->audit} {
  writer_.database.execute("PRAGMA synchronous = FULL");
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
  auto reader = std::make_unique<StoreConnection>(Database(path_), sealer_, keys_->audit);
  reader->database.execute("PRAGMA query_only = ON");
  return reader;
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

// When the commit fails, everything in it has failed, refusals included: they may rest on what was undone.
void Store::commit(std::deque<Change> &changes) {
  std::vector<bool> applied(changes.size(), false);
  try {
    Transaction transaction(writer_.database);
    std::transform(changes.begin(), changes.end(), applied.begin(),
                   [this](const Change &change) { return try_apply(change); });
    transaction.commit();
  } catch (const DatabaseError &error) {
    log_.error(fmt::format("the key store could not be changed: {}", error.what()));
    applied.assign(changes.size(), false);
  }
  for (std::size_t i = 0; i < changes.size(); ++i) changes[i].done(applied[i]);
  const std::lock_guard lock(listener_mutex_);
  if (listener_) listener_();
}

bool Store::try_apply(const Change &change) {
  Database &database = writer_.database;
  const auto undo = [&] { database.execute("ROLLBACK TO change"); };
  database.execute("SAVEPOINT change");
  bool done = attempt([&] {
    if (!change.apply(writer_)) undo();
  });
  if (!done) undo();
  if (change.record && !attempt([&] { change.record(writer_); })) {
    undo();
    done = false;
  }
  database.execute("RELEASE change");
  return done;
}

bool Store::attempt(const std::function<void()> &action) const {
  try {
    action();
  } catch (const std::exception &error) {
    log_.error(fmt::format("a change of the key store failed: {}", error.what()));
    return false;
  }
  return true;
}

}  // namespace veskd
