// A transaction of the store that is rolled back unless it was committed.
#pragma once

#include "veskd/database.h"

namespace veskd {

class Transaction {
 public:
  explicit Transaction(Database &database) : database_(database) { database_.execute("BEGIN IMMEDIATE"); }
  ~Transaction() {
    if (!committed_) try_rollback();
  }
  Transaction(const Transaction &) = delete;
  Transaction &operator=(const Transaction &) = delete;

  void commit() {
    database_.execute("COMMIT");
    committed_ = true;
  }

 private:
  // SQLite may have rolled back by itself, as it does when the disk is full.
  void try_rollback() noexcept {
    try {
      database_.execute("ROLLBACK");
    } catch (const DatabaseError &) {
    }
  }

  Database &database_;
  bool committed_ = false;
};

}  // namespace veskd
