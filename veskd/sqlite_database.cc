// The engine of a store in a file.
#include <fcntl.h>
#include <fmt/format.h>
#include <sqlite3.h>

#include <cerrno>
#include <system_error>

#include "veskd/database_engine.h"
#include "veskd/files.h"

namespace veskd {
namespace {

constexpr int kBusyTimeoutMilliseconds = 10000;

struct Close {
  void operator()(sqlite3 *database) const { sqlite3_close_v2(database); }
};
struct Finalize {
  void operator()(sqlite3_stmt *statement) const { sqlite3_finalize(statement); }
};

[[noreturn]] void fail(sqlite3 *database, std::string_view what) {
  throw DatabaseError(fmt::format("{} ({}): {}", sqlite3_errmsg(database), sqlite3_extended_errcode(database), what));
}

class SqliteStatement : public Statement {
 public:
  SqliteStatement(sqlite3 *database, std::string_view sql) : database_(database) {
    sqlite3_stmt *fresh = nullptr;
    const int result = sqlite3_prepare_v3(database, sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT,
                                          &fresh, nullptr);
    statement_.reset(fresh);
    if (result != SQLITE_OK) fail(database, sql);
  }

  void bind(int index, const std::optional<std::int64_t> &value) override {
    check(value ? sqlite3_bind_int64(get(), index, *value) : sqlite3_bind_null(get(), index));
  }
  // What is empty is not NULL, also when there is no place where it would begin.
  void bind(int index, std::string_view value) override {
    check(sqlite3_bind_text(get(), index, value.empty() ? "" : value.data(), static_cast<int>(value.size()),
                            SQLITE_STATIC));
  }
  void bind(int index, std::span<const std::uint8_t> value) override {
    const void *bytes = value.empty() ? static_cast<const void *>("") : value.data();
    check(sqlite3_bind_blob(get(), index, bytes, static_cast<int>(value.size()), SQLITE_STATIC));
  }

  bool next() override {
    const int result = sqlite3_step(get());
    if (result != SQLITE_ROW && result != SQLITE_DONE) fail(database_, sqlite3_sql(get()));
    return result == SQLITE_ROW;
  }
  void run() override { next(); }

  std::int64_t number(int column) const override { return sqlite3_column_int64(get(), column); }
  std::span<const std::uint8_t> bytes(int column) const override {
    const auto *bytes = static_cast<const std::uint8_t *>(sqlite3_column_blob(get(), column));
    return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(get(), column))};
  }
  bool is_null(int column) const override { return sqlite3_column_type(get(), column) == SQLITE_NULL; }

  void reset() noexcept override {
    sqlite3_reset(get());
    sqlite3_clear_bindings(get());
  }

 private:
  sqlite3_stmt *get() const { return statement_.get(); }
  void check(int result) const {
    if (result != SQLITE_OK) fail(database_, sqlite3_sql(get()));
  }

  sqlite3 *database_;
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

class SqliteDatabase final : public DatabaseEngine {
 public:
  SqliteDatabase(const StoreAddress &address, DatabaseUse use) {
    const std::string &path = address.text();
    create_private(path);
    sqlite3 *database = nullptr;
    const int result = sqlite3_open_v2(path.c_str(), &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    database_.reset(database);
    if (result != SQLITE_OK) throw DatabaseError(fmt::format("cannot open {}: {}", path, sqlite3_errstr(result)));
    sqlite3_extended_result_codes(database, 1);
    sqlite3_busy_timeout(database, kBusyTimeoutMilliseconds);
    execute("PRAGMA foreign_keys = ON");
    execute(use == DatabaseUse::kReads ? "PRAGMA query_only = ON"
                                       : "PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL");
  }

  // A statement holds the database as it was at its first step anyway, and gives its rows one by one.
  std::unique_ptr<Statement> prepare(std::string_view sql, bool) override {
    return std::make_unique<SqliteStatement>(database_.get(), sql);
  }

  void execute(const std::string &sql) override {
    if (sqlite3_exec(database_.get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) fail(database_.get(), sql);
  }

  std::int64_t version() override {
    SqliteStatement version(database_.get(), "PRAGMA user_version");
    return version.next() ? version.number(0) : 0;
  }

  std::int64_t begin() override {
    execute("BEGIN IMMEDIATE");
    return version();
  }
  void commit() override { execute("COMMIT"); }
  // SQLite may have rolled back by itself, as it does when the disk is full.
  void rollback() noexcept override { sqlite3_exec(database_.get(), "ROLLBACK", nullptr, nullptr, nullptr); }

  // The first look at a table fixes the moment.
  void begin_snapshot() override { execute("BEGIN"); }

  void begin_change() override { execute("SAVEPOINT change"); }
  void keep_change() override { execute("RELEASE change"); }
  void undo_change() override { execute("ROLLBACK TO change; RELEASE change"); }

  void migrate(const Migration &migration, std::int64_t version) override {
    execute(migration.tables);
    execute(migration.sqlite_triggers);
    execute(fmt::format("PRAGMA user_version = {}", version));
  }

  // Who still reads what was overwritten keeps it a while.
  void forget_overwritten() override { execute("PRAGMA wal_checkpoint(TRUNCATE)"); }

 private:
  // SQLite gives its journals the mode of the database file, so that file is made first.
  static void create_private(const std::string &path) {
    const Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kPrivateMode));
    if (!file) throw DatabaseError(fmt::format("cannot open {}: {}", path, std::generic_category().message(errno)));
  }

  std::unique_ptr<sqlite3, Close> database_;
};

}  // namespace

std::unique_ptr<DatabaseEngine> open_sqlite(const StoreAddress &address, DatabaseUse use) {
  return std::make_unique<SqliteDatabase>(address, use);
}

}  // namespace veskd
