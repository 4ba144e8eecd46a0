#include "veskd/database.h"

#include "veskd/database_engine.h"

namespace veskd {

Database::Database(const StoreAddress &address, DatabaseUse use)
    : engine_(address.is_shared() ? open_postgres(address, use) : open_sqlite(address, use)) {}

// Statements go before the engine that they are of.
Database::~Database() {
  statements_.clear();
}

Database::Database(Database &&) noexcept = default;

void Database::execute(const std::string &sql) {
  engine_->execute(sql);
}

std::int64_t Database::version() {
  return engine_->version();
}

std::int64_t Database::begin() {
  in_transaction_ = true;
  return engine_->begin();
}

void Database::commit() {
  engine_->commit();
  in_transaction_ = false;
}

void Database::rollback() noexcept {
  in_transaction_ = false;
  engine_->rollback();
}

void Database::begin_snapshot() {
  engine_->begin_snapshot();
  in_transaction_ = true;
}

void Database::begin_change() {
  engine_->begin_change();
}

void Database::keep_change() {
  engine_->keep_change();
}

void Database::undo_change() {
  engine_->undo_change();
}

void Database::migrate(const Migration &migration, std::int64_t version) {
  engine_->migrate(migration, version);
}

void Database::forget_overwritten() {
  engine_->forget_overwritten();
}

Statement &Database::prepared(std::string_view sql, bool streamed) {
  auto &statement = statements_[sql];
  if (!statement) statement = engine_->prepare(sql, streamed);
  return *statement;
}

Query::~Query() {
  statement_.reset();
}

bool Query::next() {
  return statement_.next();
}

void Query::run() {
  statement_.run();
}

std::int64_t Query::number(int column) const {
  return statement_.number(column);
}

std::string Query::text(int column) const {
  const std::span<const std::uint8_t> bytes = statement_.bytes(column);
  return std::string(bytes.begin(), bytes.end());
}

std::span<const std::uint8_t> Query::blob(int column) const {
  return statement_.bytes(column);
}

bool Query::is_null(int column) const {
  return statement_.is_null(column);
}

void Query::bind(int index, std::int64_t value) {
  statement_.bind(index, std::optional(value));
}

void Query::bind(int index, const std::optional<std::int64_t> &value) {
  statement_.bind(index, value);
}

void Query::bind(int index, std::string_view value) {
  statement_.bind(index, value);
}

void Query::bind(int index, std::span<const std::uint8_t> value) {
  statement_.bind(index, value);
}

}  // namespace veskd
