// libpq with owners and deadlines. Statements are sent without waiting for the answers of those before them, so that a
// change costs a round trip for what it must know, and none for what it writes.
#pragma once

#include <libpq-fe.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "veskd/database.h"

namespace veskd {

struct PostgresClear {
  void operator()(PGresult *result) const { PQclear(result); }
};
using PostgresResult = std::unique_ptr<PGresult, PostgresClear>;

// The connection is gone, and with it the transaction that was under way.
class ConnectionLost : public TransactionUndone {
 public:
  using TransactionUndone::TransactionUndone;
};

// In PostgreSQL's binary form; NULL without bytes.
struct PostgresParameter {
  Oid type;
  std::optional<std::string> bytes;
};

class PostgresConnection {
 public:
  // PostgreSQL gives up a statement, or the wait for a lock, after that time. Throws DatabaseError; whatever is done
  // later throws that too, ConnectionLost and TransactionUndone among it.
  PostgresConnection(const std::string &uri, std::chrono::seconds statement_time);

  // False once it was lost.
  bool is_open() const { return connection_ != nullptr; }

  // Prepares a statement.
  void prepare(const std::string &name, const std::string &sql, const std::vector<PostgresParameter> &parameters);

  // Sends a prepared statement, or one that is used once.
  void send(const std::string &name, const std::vector<PostgresParameter> &parameters);
  void send_once(const std::string &sql);
  std::size_t num_unanswered() const { return num_unanswered_; }

  // Waits for the answers to all that was sent; the last one's rows. Throws the first error: what was sent behind the
  // statement that failed was not done.
  PostgresResult finish();

  // Several statements, without rows.
  void execute(const std::string &script);

 private:
  using Clock = std::chrono::steady_clock;

  struct Finish {
    void operator()(PGconn *connection) const { PQfinish(connection); }
  };

  PGconn *get() const;
  void sent(int done);
  void wait_for_answer(Clock::time_point deadline);
  [[noreturn]] void lose();

  std::unique_ptr<PGconn, Finish> connection_;
  const std::chrono::seconds answer_time_;
  std::size_t num_unanswered_ = 0;
};

}  // namespace veskd
