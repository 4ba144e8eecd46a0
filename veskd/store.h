// The store of keys: one database, many readers, one writer.
//
// Making a change durable costs a flush to the disk, whatever the number of changes. So changes queue up for a single
// writer, which takes all that wait, makes each so that it can be undone by itself, and commits them together. A change
// is reported done only when it is on the disk. Where several servers share the database, their writers take turns.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "veskd/database.h"
#include "veskd/errors.h"
#include "veskd/log.h"
#include "veskd/sealing.h"
#include "veskd/store_keys.h"

namespace veskd {

// What a handler works with: the records, and what opens and closes their sealed values.
struct StoreConnection {
  Database database;
  const Sealer &sealer;
  const KeyValue &audit_key;
};

enum class ChangeOutcome {
  kDone,     // as apply left it, and durable
  kFailed,   // undone
  kUnknown,  // the connection to the database was lost at the worst moment: durable or undone
};

struct Change {
  // Runs on the writer's thread; false undoes what it did. So does throwing, and then the change has failed. It may run
  // again when the transaction around it was undone for another reason.
  std::function<bool(StoreConnection &)> apply;
  // Called on the writer's thread at the end.
  std::function<void(ChangeOutcome)> done;
  // Runs behind apply, whatever became of that, and stays. When it throws, both are undone and the change has failed.
  // Empty when nothing is to be recorded.
  std::function<void(StoreConnection &)> record = {};
};

// What to throw when the database of a store cannot be used.
StartError unusable(const StoreAddress &store, const DatabaseError &error);

class Store {
 public:
  // Opens the store, making it if there is none. Throws StartError when it cannot, and when the store was sealed under
  // another master key.
  Store(const StoreAddress &address, const MasterKey &master, const Log &log);

  // Changes that wait are made first.
  ~Store();
  Store(const Store &) = delete;
  Store &operator=(const Store &) = delete;

  // Whether other servers may change the store too.
  bool is_shared() const { return address_.is_shared(); }

  // Queues a change.
  void change(Change change);

  // Has a function called, on the writer's thread, after each commit; an empty one ends that, and when it has returned
  // no call is under way.
  void on_commit(std::function<void()> listener);

  // How many changes wait for the writer, and how many lists are being told.
  struct Load {
    std::size_t num_waiting_changes;
    std::size_t num_lists;
  };
  Load load();

  // Returns when no change is waiting or under way.
  void wait_until_idle();

  // A reader for the time of one call.
  class Reader {
   public:
    explicit Reader(Store &store) : store_(store), connection_(store.take_reader()) {}
    ~Reader() { store_.give_back(std::move(connection_)); }
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;
    StoreConnection &operator*() { return *connection_; }

   private:
    Store &store_;
    std::unique_ptr<StoreConnection> connection_;
  };

  // How many lists may be told at once. Each keeps what is changed meanwhile from being merged into the database, and
  // holds open files.
  static constexpr std::size_t kMaxLists = 32;

  // A reader for the time of a list, which lasts as long as its peer takes to read it.
  class ListReader {
   public:
    // Null when kMaxLists are taken.
    static std::unique_ptr<ListReader> take(Store &store);
    ~ListReader();
    ListReader(const ListReader &) = delete;
    ListReader &operator=(const ListReader &) = delete;
    StoreConnection &operator*() { return *reader_; }

   private:
    // One of the kMaxLists.
    class Place;
    ListReader(std::unique_ptr<Place> place, Store &store);

    const std::unique_ptr<Place> place_;
    Reader reader_;
  };

 private:
  Store(const StoreAddress &address, Database database, const MasterKey &master, const Log &log);

  std::unique_ptr<StoreConnection> take_reader();
  void give_back(std::unique_ptr<StoreConnection> connection);

  void write_changes();
  void commit(std::deque<Change> &changes);
  std::vector<ChangeOutcome> make_durable(const std::deque<Change> &changes);
  std::vector<ChangeOutcome> try_commit(const std::deque<Change> &changes);
  ChangeOutcome try_apply(const Change &change);
  ChangeOutcome attempt(const std::function<bool(StoreConnection &)> &action);

  const StoreAddress address_;
  const Log &log_;
  const std::unique_ptr<const StoreKeys> keys_;
  const Sealer sealer_;
  StoreConnection writer_;

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Change> waiting_;
  bool writing_ = false;
  bool stopping_ = false;
  std::vector<std::unique_ptr<StoreConnection>> readers_;
  std::size_t num_lists_ = 0;

  std::mutex listener_mutex_;
  std::function<void()> listener_;

  std::thread writer_thread_;
};

}  // namespace veskd
