// What an engine does for Database and Query. Their comments hold here too.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "veskd/database.h"

namespace veskd {

// A prepared statement, run after run. Its parameters are written ?1, ?2, …
class Statement {
 public:
  virtual ~Statement() = default;

  virtual void bind(int index, const std::optional<std::int64_t> &value) = 0;
  virtual void bind(int index, std::string_view value) = 0;
  virtual void bind(int index, std::span<const std::uint8_t> value) = 0;

  virtual bool next() = 0;
  virtual void run() = 0;

  virtual std::int64_t number(int column) const = 0;
  virtual std::span<const std::uint8_t> bytes(int column) const = 0;  // of a text or blob
  virtual bool is_null(int column) const = 0;

  // Ends the run.
  virtual void reset() noexcept = 0;
};

class DatabaseEngine {
 public:
  virtual ~DatabaseEngine() = default;

  virtual std::unique_ptr<Statement> prepare(std::string_view sql, bool streamed) = 0;
  virtual void execute(const std::string &sql) = 0;

  virtual std::int64_t version() = 0;

  virtual std::int64_t begin() = 0;
  virtual void commit() = 0;
  virtual void rollback() noexcept = 0;

  virtual void begin_snapshot() = 0;

  virtual void begin_change() = 0;
  virtual void keep_change() = 0;
  virtual void undo_change() = 0;

  virtual void migrate(const Migration &migration, std::int64_t version) = 0;

  virtual void forget_overwritten() = 0;
};

std::unique_ptr<DatabaseEngine> open_sqlite(const StoreAddress &address, DatabaseUse use);
std::unique_ptr<DatabaseEngine> open_postgres(const StoreAddress &address, DatabaseUse use);

}  // namespace veskd
