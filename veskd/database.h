// SQLite with owners: a database connection, and queries that are prepared once and reset when they go out of scope.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>

struct sqlite3;
struct sqlite3_stmt;

namespace veskd {

class DatabaseError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Belongs to one thread at a time. Every function throws DatabaseError.
class Database {
 public:
  explicit Database(const std::filesystem::path &path);

  // Statements without parameters, for schema and settings.
  void execute(const char *sql);

 private:
  friend class Query;

  struct Close {
    void operator()(sqlite3 *database) const;
  };
  struct Finalize {
    void operator()(sqlite3_stmt *statement) const;
  };

  sqlite3_stmt *prepared(std::string_view sql);
  [[noreturn]] void fail(std::string_view what) const;

  std::unique_ptr<sqlite3, Close> database_;
  std::unordered_map<std::string_view, std::unique_ptr<sqlite3_stmt, Finalize>> statements_;
};

// One run of a statement. The SQL must be a string literal: the prepared statement is kept under it. A statement must
// not be run while another run of it is in scope.
class Query {
 public:
  template <typename... Values>
  Query(Database &database, std::string_view sql, const Values &...values)
      : database_(database), statement_(database.prepared(sql)) {
    int index = 0;
    (bind(++index, values), ...);
  }
  ~Query();
  Query(const Query &) = delete;
  Query &operator=(const Query &) = delete;

  // Whether there is a row (another row).
  bool next();

  // Runs a statement that gives no rows.
  void run() { next(); }

  // Columns of the row, from 0; valid until the next row.
  std::int64_t number(int column) const;
  std::string text(int column) const;
  std::span<const std::uint8_t> blob(int column) const;
  bool is_null(int column) const;

 private:
  // Texts and blobs must outlive the query.
  void bind(int index, std::int64_t value);
  void bind(int index, const std::optional<std::int64_t> &value);  // NULL when there is none
  void bind(int index, std::string_view value);
  void bind(int index, std::span<const std::uint8_t> value);
  void check(int result) const;

  Database &database_;
  sqlite3_stmt *statement_;
};

}  // namespace veskd
