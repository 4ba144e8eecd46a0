// A connection to the database that holds a store, whatever its engine, and queries that are prepared once and reset
// when they go out of scope.
//
// The SQL is what both engines understand. What differs between them is behind DatabaseEngine.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>

#include "veskd/migration.h"
#include "veskd/store_address.h"

namespace veskd {

class DatabaseError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The transaction under way is undone as a whole through no fault of its own, and may be tried again.
class TransactionUndone : public DatabaseError {
 public:
  using DatabaseError::DatabaseError;
};

// The connection was lost while a transaction was being committed: it is done or undone.
class OutcomeUnknown : public DatabaseError {
 public:
  using DatabaseError::DatabaseError;
};

class DatabaseEngine;
class Statement;

enum class DatabaseUse { kReads, kChanges };

// Belongs to one thread at a time. Every function throws DatabaseError.
class Database {
 public:
  explicit Database(const StoreAddress &address, DatabaseUse use = DatabaseUse::kChanges);
  ~Database();
  Database(Database &&) noexcept;
  Database &operator=(Database &&) = delete;
  Database(const Database &) = delete;
  Database &operator=(const Database &) = delete;

  // Statements without parameters and rows, in the engine's own dialect.
  void execute(const std::string &sql);

  // The version of the store's schema; 0 when there is no store yet, which is left so.
  std::int64_t version();

  // Begins a transaction that keeps out whoever else would change the store, and tells the version of its schema.
  std::int64_t begin();
  void commit();
  void rollback() noexcept;

  // Begins a transaction for reading alone, which sees the store as it is at one moment. It ends with rollback().
  void begin_snapshot();

  // From one of the two that begin it to its commit() or rollback().
  bool is_in_transaction() const { return in_transaction_; }

  // Within a transaction: what is done from here on can be undone by itself.
  void begin_change();
  void keep_change();
  void undo_change();

  // Within a transaction: brings the schema to that version.
  void migrate(const Migration &migration, std::int64_t version);

  // Has what was overwritten leave the files of the database, as far as the engine has it in its hands.
  void forget_overwritten();

 private:
  friend class Query;

  Statement &prepared(std::string_view sql, bool streamed);

  std::unique_ptr<DatabaseEngine> engine_;
  std::unordered_map<std::string_view, std::unique_ptr<Statement>> statements_;
  bool in_transaction_ = false;
};

// One run of a statement. The SQL must be a string literal: the prepared statement is kept under it. A statement must
// not be run while another run of it is in scope.
class Query {
 public:
  template <typename... Values>
  Query(Database &database, std::string_view sql, const Values &...values) : Query(database.prepared(sql, false)) {
    int index = 0;
    (bind(++index, values), ...);
  }

  // A query that may have more rows than fit into memory. From its first row to its last it tells the database as it
  // was at the first; a reader runs nothing else meanwhile.
  static Query streamed(Database &database, std::string_view sql) { return Query(database.prepared(sql, true)); }

  ~Query();
  Query(const Query &) = delete;
  Query &operator=(const Query &) = delete;

  // Whether there is a row (another row).
  bool next();

  // Runs a statement that gives no rows. Within a transaction, what is wrong with it may be told by what follows it.
  void run();

  // Columns of the row, from 0; valid until the next row.
  std::int64_t number(int column) const;
  std::string text(int column) const;
  std::span<const std::uint8_t> blob(int column) const;
  bool is_null(int column) const;

 private:
  explicit Query(Statement &statement) : statement_(statement) {}

  // Texts and blobs must outlive the query.
  void bind(int index, std::int64_t value);
  void bind(int index, const std::optional<std::int64_t> &value);  // NULL when there is none
  void bind(int index, std::string_view value);
  void bind(int index, std::span<const std::uint8_t> value);

  Statement &statement_;
};

}  // namespace veskd
