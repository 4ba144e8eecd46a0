#include "veskd/postgres_connection.h"

#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace veskd {
namespace {

// What a statement's time may be exceeded by; then it is PostgreSQL that is given up.
constexpr std::chrono::seconds kGrace{5};

constexpr int kBinary = 1;

// What stands in the URI counts for more than these.
PGconn *connect(const std::string &uri) {
  const std::array keywords = {
      "connect_timeout",  "tcp_user_timeout",          "keepalives_idle", "keepalives_interval",
      "keepalives_count", "fallback_application_name", "dbname",          static_cast<const char *>(nullptr)};
  const std::array values = {"5", "20000", "10", "5", "3", "veskd", uri.c_str(), static_cast<const char *>(nullptr)};
  return PQconnectdbParams(keywords.data(), values.data(), 1);
}

// What follows the first line explains it to beginners.
std::string first_line(std::string_view text) {
  return std::string(text.substr(0, text.find('\n')));
}

// The message alone: its details may quote rows.
[[noreturn]] void fail(const PGresult *result) {
  const auto field = [result](int code) {
    const char *text = PQresultErrorField(result, code);
    return std::string(text != nullptr ? text : "");
  };
  const std::string state = field(PG_DIAG_SQLSTATE);
  const std::string message = fmt::format("{} ({})", field(PG_DIAG_MESSAGE_PRIMARY), state);
  constexpr std::string_view kSerializationFailure = "40001";
  constexpr std::string_view kDeadlockDetected = "40P01";
  if (state == kSerializationFailure || state == kDeadlockDetected) throw TransactionUndone(message);
  throw DatabaseError(message);
}

}  // namespace

PostgresConnection::PostgresConnection(const std::string &uri, std::chrono::seconds statement_time)
    : connection_(connect(uri)), answer_time_(statement_time + kGrace) {
  if (PQstatus(connection_.get()) != CONNECTION_OK) throw DatabaseError(first_line(PQerrorMessage(connection_.get())));
  PQsetnonblocking(connection_.get(), 1);
  PQenterPipelineMode(connection_.get());
  execute(fmt::format("SET client_min_messages = error; SET statement_timeout = '{}s'", statement_time.count()));
}

void PostgresConnection::prepare(const std::string &name, const std::string &sql,
                                 const std::vector<PostgresParameter> &parameters) {
  std::vector<Oid> types;
  types.reserve(parameters.size());
  for (const PostgresParameter &parameter : parameters) types.push_back(parameter.type);
  sent(PQsendPrepare(get(), name.c_str(), sql.c_str(), static_cast<int>(types.size()), types.data()));
  finish();
}

void PostgresConnection::send(const std::string &name, const std::vector<PostgresParameter> &parameters) {
  std::vector<const char *> values;
  std::vector<int> lengths;
  for (const PostgresParameter &parameter : parameters) {
    values.push_back(parameter.bytes ? parameter.bytes->data() : nullptr);
    lengths.push_back(parameter.bytes ? static_cast<int>(parameter.bytes->size()) : 0);
  }
  const std::vector<int> formats(parameters.size(), kBinary);
  sent(PQsendQueryPrepared(get(), name.c_str(), static_cast<int>(parameters.size()), values.data(), lengths.data(),
                           formats.data(), kBinary));
}

void PostgresConnection::send_once(const std::string &sql) {
  sent(PQsendQueryParams(get(), sql.c_str(), 0, nullptr, nullptr, nullptr, nullptr, kBinary));
}

PostgresResult PostgresConnection::finish() {
  if (PQpipelineSync(get()) != 1) lose();
  num_unanswered_ = 0;
  const Clock::time_point deadline = Clock::now() + answer_time_;
  PostgresResult answer, error;
  for (;;) {
    wait_for_answer(deadline);
    PostgresResult result(PQgetResult(get()));
    if (!result) {
      // The end of a statement's results, or of everything.
      if (PQstatus(get()) != CONNECTION_OK) lose();
      continue;
    }
    const ExecStatusType status = PQresultStatus(result.get());
    if (status == PGRES_PIPELINE_SYNC) break;
    if (status == PGRES_TUPLES_OK || status == PGRES_COMMAND_OK) {
      answer = std::move(result);
    } else if (!error) {
      error = std::move(result);
    }
  }
  if (error) fail(error.get());
  return answer;
}

void PostgresConnection::execute(const std::string &script) {
  if (num_unanswered_ > 0) finish();
  PostgresResult error;
  if (PQexitPipelineMode(get()) != 1 || PQsendQuery(get(), script.c_str()) != 1) lose();
  const Clock::time_point deadline = Clock::now() + answer_time_;
  for (;;) {
    wait_for_answer(deadline);
    PostgresResult result(PQgetResult(get()));
    if (!result) break;
    if (PQresultStatus(result.get()) == PGRES_FATAL_ERROR) error = std::move(result);
  }
  if (PQstatus(get()) != CONNECTION_OK) lose();
  PQenterPipelineMode(get());
  if (error) fail(error.get());
}

PGconn *PostgresConnection::get() const {
  if (!connection_) throw ConnectionLost("the connection to the database was lost");
  return connection_.get();
}

void PostgresConnection::sent(int done) {
  if (done != 1) lose();
  ++num_unanswered_;
}

// Until PQgetResult does not block.
void PostgresConnection::wait_for_answer(Clock::time_point deadline) {
  for (;;) {
    const int unsent = PQflush(get());
    if (unsent < 0) lose();
    if (PQisBusy(get()) == 0) return;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) {
      connection_.reset();
      throw DatabaseError("the database does not answer");
    }
    pollfd ready{PQsocket(get()), static_cast<short>(unsent > 0 ? POLLIN | POLLOUT : POLLIN), 0};
    ::poll(&ready, 1, static_cast<int>(left.count()));
    if ((ready.revents & ~POLLOUT) != 0 && PQconsumeInput(get()) != 1) lose();
  }
}

void PostgresConnection::lose() {
  const std::string reason = first_line(PQerrorMessage(get()));
  connection_.reset();
  throw ConnectionLost(reason);
}

}  // namespace veskd
