#include "veskd/database.h"

#include <fmt/format.h>
#include <sqlite3.h>

namespace veskd {
namespace {

constexpr int kBusyTimeoutMilliseconds = 10000;

}  // namespace

void Database::Close::operator()(sqlite3 *database) const {
  sqlite3_close_v2(database);
}
void Database::Finalize::operator()(sqlite3_stmt *statement) const {
  sqlite3_finalize(statement);
}

Database::Database(const std::filesystem::path &path) {
  sqlite3 *database = nullptr;
  const int result = sqlite3_open_v2(path.c_str(), &database,
                                     SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
  database_.reset(database);
  if (result != SQLITE_OK)
    throw DatabaseError(fmt::format("cannot open {}: {}", path.string(), sqlite3_errstr(result)));
  sqlite3_extended_result_codes(database, 1);
  sqlite3_busy_timeout(database, kBusyTimeoutMilliseconds);
  execute("PRAGMA foreign_keys = ON");
}

void Database::execute(const char *sql) {
  if (sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) fail(sql);
}

sqlite3_stmt *Database::prepared(std::string_view sql) {
  auto &statement = statements_[sql];
  if (!statement) {
    sqlite3_stmt *fresh = nullptr;
    const int result = sqlite3_prepare_v3(database_.get(), sql.data(), static_cast<int>(sql.size()),
                                          SQLITE_PREPARE_PERSISTENT, &fresh, nullptr);
    statement.reset(fresh);
    if (result != SQLITE_OK) fail(sql);
  }
  return statement.get();
}

void Database::fail(std::string_view what) const {
  throw DatabaseError(
      fmt::format("{} ({}): {}", sqlite3_errmsg(database_.get()), sqlite3_extended_errcode(database_.get()), what));
}

Query::~Query() {
  sqlite3_reset(statement_);
  sqlite3_clear_bindings(statement_);
}

bool Query::next() {
  const int result = sqlite3_step(statement_);
  if (result != SQLITE_ROW && result != SQLITE_DONE) database_.fail(sqlite3_sql(statement_));
  return result == SQLITE_ROW;
}

std::int64_t Query::number(int column) const {
  return sqlite3_column_int64(statement_, column);
}

std::string Query::text(int column) const {
  const auto *text = reinterpret_cast<const char *>(sqlite3_column_text(statement_, column));
  return text == nullptr ? std::string() : std::string(text, sqlite3_column_bytes(statement_, column));
}

std::span<const std::uint8_t> Query::blob(int column) const {
  const auto *bytes = static_cast<const std::uint8_t *>(sqlite3_column_blob(statement_, column));
  return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column))};
}

bool Query::is_null(int column) const {
  return sqlite3_column_type(statement_, column) == SQLITE_NULL;
}

void Query::bind(int index, std::int64_t value) {
  check(sqlite3_bind_int64(statement_, index, value));
}

void Query::bind(int index, const std::optional<std::int64_t> &value) {
  if (value) bind(index, *value);
}

void Query::bind(int index, std::string_view value) {
  check(sqlite3_bind_text(statement_, index, value.data(), static_cast<int>(value.size()), SQLITE_STATIC));
}

void Query::bind(int index, std::span<const std::uint8_t> value) {
  check(sqlite3_bind_blob(statement_, index, value.data(), static_cast<int>(value.size()), SQLITE_STATIC));
}

void Query::check(int result) const {
  if (result != SQLITE_OK) database_.fail(sqlite3_sql(statement_));
}

}  // namespace veskd
