// The engine of a store that several servers may share.
//
// Whoever changes the store locks the one row of store_version first and holds it to the end of the transaction: there
// is one writer at a time, as in a file, whatever the number of servers.
#include <fmt/format.h>

#include <functional>
#include <optional>
#include <utility>

#include "veskd/database_engine.h"
#include "veskd/postgres_connection.h"
#include "veskd/postgres_schema.h"

namespace veskd {
namespace {

// PostgreSQL's numbers for types.
constexpr Oid kBytes = 17;
constexpr Oid kInteger = 20;

// A reader holds up a thread that serves clients; a writer waits for those of the other servers.
constexpr std::chrono::seconds kReadTime{10};
constexpr std::chrono::seconds kChangeTime{30};

// Statements under way within a transaction; a bound on the memory that they take.
constexpr std::size_t kMaxUnanswered = 128;

constexpr const char *kBeginSnapshot = "BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY";

// Of a streamed query.
constexpr int kRowsAtOnce = 256;
const std::string kFetch = fmt::format("FETCH {} FROM list", kRowsAtOnce);

// In the network's order.
std::string bytes_of(std::int64_t value) {
  std::string bytes(sizeof value, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i)
    bytes[i] = static_cast<char>(static_cast<std::uint64_t>(value) >> (8 * (bytes.size() - 1 - i)));
  return bytes;
}

std::int64_t number_in(const PGresult *result, int row, int column) {
  const auto *bytes = reinterpret_cast<const unsigned char *>(PQgetvalue(result, row, column));
  const int length = PQgetlength(result, row, column);
  std::uint64_t value = length > 0 && (bytes[0] & 0x80) != 0 ? ~std::uint64_t{0} : 0;
  for (int i = 0; i < length; ++i) value = value << 8 | bytes[i];
  return static_cast<std::int64_t>(value);
}

std::int64_t version_in(const PGresult *rows) {
  if (PQntuples(rows) != 1) throw DatabaseError("the table store_version has not one row");
  return number_in(rows, 0, 0);
}

using Sender = std::function<void(PostgresConnection &)>;

class PostgresDatabase final : public DatabaseEngine {
 public:
  // A reader connects when it has something to ask.
  PostgresDatabase(const StoreAddress &address, DatabaseUse use) : uri_(address.text()), use_(use) {
    if (use == DatabaseUse::kReads) return;
    connect();
    make_version_table();
  }

  std::unique_ptr<Statement> prepare(std::string_view sql, bool streamed) override;

  void execute(const std::string &sql) override { connection().execute(sql); }

  std::int64_t version() override {
    const PostgresResult found = ask([](PostgresConnection &connection) {
      connection.send_once("SELECT to_regclass('store_version') IS NOT NULL");
    });
    if (number_in(found.get(), 0, 0) == 0) return 0;
    const PostgresResult version =
        ask([](PostgresConnection &connection) { connection.send_once("SELECT version FROM store_version"); });
    return version_in(version.get());
  }

  std::int64_t begin() override {
    const PostgresResult version = ask([](PostgresConnection &connection) {
      connection.send_once("BEGIN ISOLATION LEVEL READ COMMITTED");
      connection.send_once("SELECT version FROM store_version FOR UPDATE");
    });
    in_transaction_ = true;
    return version_in(version.get());
  }

  // A transaction that failed takes COMMIT for ROLLBACK, and says so.
  void commit() override {
    PostgresResult answer;
    try {
      connection().send_once("COMMIT");
      answer = connection().finish();
    } catch (const DatabaseError &error) {
      if (connection_ && connection_->is_open()) throw;
      throw OutcomeUnknown(error.what());
    }
    in_transaction_ = false;
    if (std::string_view(PQcmdStatus(answer.get())) != "COMMIT") throw DatabaseError("the transaction was rolled back");
  }

  // With the connection, the transaction is gone too.
  void rollback() noexcept override {
    in_transaction_ = false;
    try {
      settle();
      connection().send_once("ROLLBACK");
      connection().finish();
    } catch (const DatabaseError &) {
    }
  }

  // The first statement fixes the moment.
  void begin_snapshot() override {
    ask([](PostgresConnection &connection) { connection.send_once(kBeginSnapshot); });
    in_transaction_ = true;
  }

  void begin_change() override { connection().send_once("SAVEPOINT change"); }

  void keep_change() override {
    connection().send_once("RELEASE change");
    connection().finish();
  }

  void undo_change() override {
    settle();
    connection().send_once("ROLLBACK TO change");
    keep_change();
  }

  void migrate(const Migration &migration, std::int64_t version) override {
    execute(postgres_schema(migration.tables));
    execute(migration.postgres_triggers);
    execute(fmt::format("UPDATE store_version SET version = {}", version));
  }

  // When and where PostgreSQL keeps what was overwritten is its administrator's affair.
  void forget_overwritten() override {}

  // The answer to the last of what the function sends. Outside of a transaction nothing is lost with a connection: the
  // function is called again with a new one.
  PostgresResult ask(const Sender &send) {
    const bool is_new = !connection_;
    if (is_new) connect();
    try {
      send(connection());
      return connection().finish();
    } catch (const ConnectionLost &) {
      if (in_transaction_ || is_new) throw;
    }
    connect();
    send(connection());
    return connection().finish();
  }

  // Within a transaction, sends without waiting for the answer.
  void tell(const Sender &send) {
    if (!in_transaction_) {
      ask(send);
      return;
    }
    send(connection());
    if (connection().num_unanswered() >= kMaxUnanswered) connection().finish();
  }

  // The first rows of a query, and a transaction that holds the database as it is now until it is rolled back.
  PostgresResult open_cursor(const std::string &sql) {
    try {
      PostgresResult rows = ask([&sql](PostgresConnection &connection) {
        connection.send_once(kBeginSnapshot);
        connection.send_once("DECLARE list NO SCROLL CURSOR FOR " + sql);
        connection.send_once(kFetch);
      });
      in_transaction_ = true;
      return rows;
    } catch (const DatabaseError &) {
      rollback();
      throw;
    }
  }

  // Statements that were prepared on another connection are not on this one.
  int connection_number() const { return connection_number_; }

 private:
  PostgresConnection &connection() {
    if (!connection_) throw ConnectionLost("there is no connection to the database");
    return *connection_;
  }

  // A server that hangs in the middle of a change must not hold up the others. What is committed is on the disk,
  // whatever the database's settings say.
  void connect() {
    connection_.reset();
    connection_.emplace(uri_, use_ == DatabaseUse::kReads ? kReadTime : kChangeTime);
    ++connection_number_;
    connection_->execute(
        use_ == DatabaseUse::kReads
            ? "SET default_transaction_read_only = on"
            : "SET idle_in_transaction_session_timeout = 30000; SELECT set_config('synchronous_commit', "
              "'on', false) WHERE current_setting('synchronous_commit') = 'off'");
  }

  // Of servers that make it at the same time all but one fail; then it is there.
  void make_version_table() {
    constexpr const char *kTable =
        "CREATE TABLE IF NOT EXISTS store_version (one BIGINT PRIMARY KEY, version BIGINT NOT NULL); "
        "INSERT INTO store_version VALUES (1, 0) ON CONFLICT DO NOTHING";
    try {
      execute(kTable);
    } catch (const DatabaseError &) {
      execute(kTable);
    }
  }

  // Waits for what was sent; what went wrong with it is about to be undone.
  void settle() {
    try {
      connection().finish();
    } catch (const ConnectionLost &) {
      throw;
    } catch (const DatabaseError &) {
    }
  }

  const std::string uri_;
  const DatabaseUse use_;
  std::optional<PostgresConnection> connection_;
  int connection_number_ = 0;
  bool in_transaction_ = false;
};

// Both kinds of statements look at rows of results.
class PostgresRows : public Statement {
 public:
  explicit PostgresRows(PostgresDatabase &database) : database_(database) {}

  std::int64_t number(int column) const override { return number_in(result_.get(), row_, column); }
  std::span<const std::uint8_t> bytes(int column) const override {
    return {reinterpret_cast<const std::uint8_t *>(PQgetvalue(result_.get(), row_, column)),
            static_cast<std::size_t>(PQgetlength(result_.get(), row_, column))};
  }
  bool is_null(int column) const override { return PQgetisnull(result_.get(), row_, column) == 1; }

 protected:
  bool has_result() const { return result_ != nullptr; }
  bool is_full() const { return PQntuples(result_.get()) == kRowsAtOnce; }
  void look_at(PostgresResult result) {
    result_ = std::move(result);
    row_ = -1;
  }
  bool to_next_row() { return ++row_ < PQntuples(result_.get()); }

  PostgresDatabase &database_;

 private:
  PostgresResult result_;
  int row_ = -1;
};

class PostgresStatement : public PostgresRows {
 public:
  PostgresStatement(PostgresDatabase &database, std::string_view sql)
      : PostgresRows(database), sql_(postgres_parameters(sql)), name_(fmt::format("{}", static_cast<void *>(this))) {}

  void bind(int index, const std::optional<std::int64_t> &value) override {
    put(index, {kInteger, value ? std::optional(bytes_of(*value)) : std::nullopt});
  }
  void bind(int index, std::string_view value) override { put(index, {kBytes, std::string(value)}); }
  void bind(int index, std::span<const std::uint8_t> value) override {
    put(index, {kBytes, std::string(value.begin(), value.end())});
  }

  bool next() override {
    if (!has_result()) look_at(database_.ask(sender()));
    return to_next_row();
  }
  void run() override { database_.tell(sender()); }

  void reset() noexcept override {
    look_at(nullptr);
    parameters_.clear();
  }

 private:
  void put(int index, PostgresParameter parameter) {
    if (static_cast<std::size_t>(index) > parameters_.size()) parameters_.resize(static_cast<std::size_t>(index));
    parameters_[static_cast<std::size_t>(index) - 1] = std::move(parameter);
  }

  Sender sender() {
    return [this](PostgresConnection &connection) {
      if (prepared_on_ != database_.connection_number()) connection.prepare(name_, sql_, parameters_);
      prepared_on_ = database_.connection_number();
      connection.send(name_, parameters_);
    };
  }

  const std::string sql_;
  const std::string name_;
  int prepared_on_ = 0;
  std::vector<PostgresParameter> parameters_;
};

class PostgresCursor : public PostgresRows {
 public:
  PostgresCursor(PostgresDatabase &database, std::string_view sql) : PostgresRows(database), sql_(sql) {}

  // Cursors have no parameters.
  void bind(int, const std::optional<std::int64_t> &) override { refuse(); }
  void bind(int, std::string_view) override { refuse(); }
  void bind(int, std::span<const std::uint8_t>) override { refuse(); }

  bool next() override {
    if (!has_result()) {
      look_at(database_.open_cursor(sql_));
      is_open_ = true;
    }
    if (to_next_row()) return true;
    if (!is_full()) {
      close();
      return false;
    }
    look_at(database_.ask([](PostgresConnection &connection) { connection.send_once(kFetch); }));
    return to_next_row();
  }
  void run() override { next(); }

  void reset() noexcept override {
    close();
    look_at(nullptr);
  }

 private:
  [[noreturn]] static void refuse() { throw DatabaseError("a streamed query takes no parameters"); }
  void close() noexcept {
    if (std::exchange(is_open_, false)) database_.rollback();
  }

  const std::string sql_;
  bool is_open_ = false;
};

std::unique_ptr<Statement> PostgresDatabase::prepare(std::string_view sql, bool streamed) {
  if (streamed) return std::make_unique<PostgresCursor>(*this, sql);
  return std::make_unique<PostgresStatement>(*this, sql);
}

}  // namespace

std::unique_ptr<DatabaseEngine> open_postgres(const StoreAddress &address, DatabaseUse use) {
  return std::make_unique<PostgresDatabase>(address, use);
}

}  // namespace veskd
