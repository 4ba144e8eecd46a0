// Transactions of the store that end with their scope.
#pragma once

#include "veskd/database.h"

namespace veskd {

// Rolled back unless it was committed.
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

  // Of the store's schema.
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

// Reading that sees the store as it is at one moment, whatever is changed meanwhile: otherwise a key
// could be found and its value, which is asked for next, be deleted.
class Snapshot {
 public:
  // Within a transaction it is that.
  explicit Snapshot(Database &database) : database_(database), is_own_(!database.is_in_transaction()) {
    if (is_own_) database_.begin_snapshot();
  }
  ~Snapshot() {
    if (is_own_) database_.rollback();
  }
  Snapshot(const Snapshot &) = delete;
  Snapshot &operator=(const Snapshot &) = delete;

 private:
  Database &database_;
  const bool is_own_;
};

}  // namespace veskd
