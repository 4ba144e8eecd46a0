#include "veskd/peer.h"

#include <fmt/format.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <asio/associated_executor.hpp>
#include <asio/async_result.hpp>
#include <asio/post.hpp>
#include <asio/read.hpp>
#include <asio/redirect_error.hpp>
#include <asio/use_awaitable.hpp>
#include <asio/write.hpp>
#include <chrono>
#include <optional>

#include "veskd/audit_records.h"
#include "veskd/certificates.h"
#include "veskd/faults.h"
#include "veskd/faulty_tls.h"
#include "veskd/fields.h"
#include "veskd/request_header.h"

namespace veskd {
namespace {

using vesk::wire::kLengthDigits;
using vesk::wire::Transaction;

// Answers a request whose identifier cannot be told.
constexpr std::string_view kNoTranId = "0000";

// What a peer may still send when the reply is out; a bound on the work of reading it away.
constexpr std::size_t kMaxLeftoverBytes = 65536;

// The names that a request carries, and that are not blank because it carries none.
bool is_within(const Scope &scope, const RequestFields &fields) {
  const auto allows = [&](const auto &field) { return field[0] == '\0' || scope.has(trimmed(field)); };
  return allows(fields.caKeyName) && allows(fields.caConstant);
}

constexpr bool is_denial(ReturnCode code) {
  return code == RC_NO_ROLE || code == RC_ROLE_FORBIDS || code == RC_NAME_FORBIDDEN || code == RC_NOT_A_MIRROR;
}

std::string name_of(const asio::ip::tcp::socket &socket) {
  asio::error_code error;
  const auto endpoint = socket.remote_endpoint(error);
  return error ? "unknown" : fmt::format("{}:{}", endpoint.address().to_string(), endpoint.port());
}

// Lets a reply out without waiting for more to send with it.
void send_at_once(asio::ip::tcp::socket &socket) {
  const int on = 1;
  ::setsockopt(socket.native_handle(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

// A client that holds back its request until the end of its handshake was acknowledged would otherwise wait for the
// system's delayed acknowledgement, 40 milliseconds: nothing is sent to it in between.
void acknowledge_at_once(asio::ip::tcp::socket &socket) {
  const int on = 1;
  ::setsockopt(socket.native_handle(), IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on);
}

// As it may stand in the audit, whatever a peer calls things.
std::string printable(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return !is_name(std::string_view(&c, 1)); }, '?');
  return text;
}

ReturnCode code_of_failure(ChangeOutcome outcome) {
  return outcome == ChangeOutcome::kFailed ? RC_SERVER_FAILURE : RC_OUTCOME_UNKNOWN;
}

}  // namespace

struct Peer::Request {
  std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
  bool arrived = false;             // nothing can be answered unless it is set
  ReturnCode refused = RC_SUCCESS;  // what reading found wrong with it
  std::string tran_id{kNoTranId};
  const Transaction *transaction = nullptr;
  Scope scope;  // of the client, for this transaction
  WipedText text;
  WipedText payload;
};

Peer::Peer(asio::ip::tcp::socket socket, std::shared_ptr<Terms> terms, Store &store, const Machine &machine,
           Metrics &metrics, const Log &log)
    : terms_(std::move(terms)),
      limits_(terms_->limits),
      stream_(std::move(socket), terms_->tls),
      watchdog_(stream_.get_executor()),
      store_(store),
      machine_(machine),
      metrics_(metrics),
      log_(log),
      address_(name_of(stream_.next_layer())) {}

asio::awaitable<void> Peer::serve() {
  const auto self = shared_from_this();
  allow(limits_.handshake);
  if (co_await wait_for_a_word() && co_await do_handshake()) {
    allow(limits_.request);
    const Request request = co_await read_request();
    if (request.arrived) {
      stage_ = Stage::kWorking;
      allow_any_time();
      if (terms_->faults) choose_fault(request.tran_id);
      Reply reply = co_await answer(request);
      const bool sent = co_await send(request.tran_id, reply);
      count_and_log(request, reply, sent);
    }
    allow(limits_.closing);
    if (fault_ != nullptr && fault_->ends_connection()) {
      end_wrongly();
    } else {
      co_await end_tls();
    }
  }
  allow(limits_.closing);
  co_await close();
  allow_any_time();
}

Peer::Clock::time_point Peer::gives_way_at() const {
  switch (stage_) {
    case Stage::kSilent:
      return start_ + limits_.begin;
    case Stage::kSpeaking:
      return start_ + limits_.ask;
    default:
      return Clock::time_point::max();
  }
}

void Peer::ask_to_give_way() {
  asio::post(stream_.get_executor(), [self = shared_from_this()] { self->give_way(); });
}

void Peer::give_way() {
  asio::error_code ignored;
  const bool has_said_more = stream_.next_layer().available(ignored) > 0;
  if (has_said_more && stage_ == Stage::kSilent) stage_ = Stage::kSpeaking;
  if (has_said_more || gives_way_at() > Clock::now()) return;
  stage_ = Stage::kGivenWay;
  stream_.next_layer().close(ignored);
}

asio::awaitable<bool> Peer::wait_for_a_word() {
  asio::error_code error;
  co_await stream_.next_layer().async_wait(asio::ip::tcp::socket::wait_read,
                                           asio::redirect_error(asio::use_awaitable, error));
  if (error) log_.info(fmt::format("{} no handshake: {}", address_, reason(error)));
  if (!error) stage_ = Stage::kSpeaking;
  co_return !error;
}

asio::awaitable<bool> Peer::do_handshake() {
  asio::error_code error;
  send_at_once(stream_.next_layer());
  co_await stream_.async_handshake(asio::ssl::stream_base::server, asio::redirect_error(asio::use_awaitable, error));
  if (terms_->faults) log_fault(FaultyTls::played_on(stream_.native_handle()), "handshake");
  if (error) {
    metrics_.count_handshake(Handshake::kFailed);
    log_.info(fmt::format("{} no handshake: {}", address_, reason(error)));
    co_return false;
  }
  acknowledge_at_once(stream_.next_layer());
  metrics_.count_handshake(SSL_session_reused(stream_.native_handle()) == 1 ? Handshake::kResumed : Handshake::kFull);
  const CertificatePtr certificate(SSL_get1_peer_certificate(stream_.native_handle()));
  if (!certificate) co_return false;
  subject_ = subject_of(certificate.get());
  fingerprint_ = fingerprint_of(certificate.get());
  permissions_ = terms_->roles.permissions_of(certificate.get());
  co_return true;
}

// The length is one that the transaction allows: that is checked before anything of that length is read or allocated.
asio::awaitable<Peer::Request> Peer::read_request() {
  Request request;
  std::array<char, kRequestHeaderBytes> bytes;
  if (!co_await read_exactly(bytes.data(), bytes.size())) co_return request;
  request.arrived = true;
  request.start = std::chrono::steady_clock::now();
  const RequestHeader header = read_header({bytes.data(), bytes.size()});
  if (!header.tran_id.empty()) request.tran_id = header.tran_id;
  request.refused = header.refused;
  if (request.refused != RC_SUCCESS) co_return request;
  const Handler &handler = *header.handler;
  request.transaction = &handler.transaction;
  request.refused = admit(handler, request);
  if (request.refused != RC_SUCCESS) co_return request;
  const std::optional<std::size_t> length = declared_length(header.digits, handler);
  if (!length) {
    request.refused = RC_MALFORMED_REQUEST;
    co_return request;
  }
  std::string text(kLengthDigits + *length, '\0');
  std::copy(bytes.begin(), bytes.end(), text.begin());
  request.text = WipedText(std::move(text));
  request.arrived =
      co_await read_exactly(request.text.text().data() + bytes.size(), request.text.text().size() - bytes.size());
  if (request.arrived && handler.max_payload_bytes != 0) co_await read_payload(handler, request);
  co_return request;
}

asio::awaitable<void> Peer::read_payload(const Handler &handler, Request &request) {
  std::size_t length = 0;
  request.refused = read_payload_length(handler, request.text.text(), length);
  if (request.refused != RC_SUCCESS) co_return;
  request.payload = WipedText(std::string(length, '\0'));
  request.arrived = co_await read_exactly(request.payload.text().data(), length);
}

asio::awaitable<bool> Peer::read_exactly(char *bytes, std::size_t count) {
  asio::error_code error;
  co_await asio::async_read(stream_, asio::buffer(bytes, count), asio::redirect_error(asio::use_awaitable, error));
  if (error) log_.info(fmt::format("{} {} no request: {}", address_, subject_, reason(error)));
  co_return !error;
}

// Whether the client may ask for this at all.
ReturnCode Peer::admit(const Handler &handler, Request &request) const {
  if (permissions_.are_none()) return RC_NO_ROLE;
  const std::optional<Scope> scope = permissions_.scope_for(handler.roles);
  if (!scope) return handler.roles == kMirror ? RC_NOT_A_MIRROR : RC_ROLE_FORBIDS;
  request.scope = *scope;
  return RC_SUCCESS;
}

asio::awaitable<Reply> Peer::answer(const Request &request) {
  Wiped<RequestFields> fields;
  if (const ReturnCode code = check(request, *fields); code != RC_SUCCESS) {
    Reply reply = refusal(request.tran_id, code);
    if (is_denial(code)) co_await record(*find_handler(request.tran_id), *fields, reply);
    co_return reply;
  }
  co_return co_await run(*find_handler(request.tran_id), request, *fields);
}

// Every operation passes here before anything is done for it: it is allowed with RC_SUCCESS, or refused.
ReturnCode Peer::check(const Request &request, RequestFields &fields) const {
  if (request.refused != RC_SUCCESS) return request.refused;
  if (fault_ != nullptr && fault_->return_code != RC_SUCCESS) return fault_->return_code;
  if (!find_handler(request.tran_id)->parse(request.text.text(), fields)) return RC_MALFORMED_REQUEST;
  return is_within(request.scope, fields) ? RC_SUCCESS : RC_NAME_FORBIDDEN;
}

asio::awaitable<Reply> Peer::run(const Handler &handler, const Request &request, const RequestFields &fields) {
  if (handler.access == Access::kChanges) co_return co_await run_change(handler, request, fields);
  Reply reply = read(handler.transaction.tran_id,
                     [&](StoreConnection &store) { return handler.handle(call(request, fields, store)); });
  co_await record(handler, fields, reply);
  co_return reply;
}

Call Peer::call(const Request &request, const RequestFields &fields, StoreConnection &store) const {
  return {request.text.text(), request.payload.text(), fields,  store, store_, subject_,
          request.scope,       limits_.max_page_bytes, machine_};
}

Reply Peer::read(std::string_view tran_id, const std::function<Reply(StoreConnection &)> &make_reply) {
  try {
    Store::Reader reader(store_);
    return make_reply(*reader);
  } catch (const std::exception &error) {
    log_.error(fmt::format("{} {}: {}", address_, tran_id, error.what()));
    return refusal(tran_id, RC_SERVER_FAILURE);
  }
}

asio::awaitable<Reply> Peer::run_change(const Handler &handler, const Request &request, const RequestFields &fields) {
  Reply reply;
  Change change;
  change.apply = [&, this](StoreConnection &store) {
    // What the record tells if this throws, also when it went well in a transaction that was undone.
    reply = refusal(handler.transaction.tran_id, RC_SERVER_FAILURE);
    reply = handler.handle(call(request, fields, store));
    return reply.code == RC_SUCCESS;
  };
  if (is_audited(handler)) {
    change.record = [&, this](StoreConnection &store) { write_audit(store, handler, fields, reply); };
  }
  const ChangeOutcome outcome = co_await make_durable(change);
  if (outcome != ChangeOutcome::kDone) reply = refusal(handler.transaction.tran_id, code_of_failure(outcome));
  co_return reply;
}

asio::awaitable<void> Peer::record(const Handler &handler, const RequestFields &fields, Reply &reply) {
  if (!is_audited(handler) && !is_denial(reply.code)) co_return;
  Change change;
  change.apply = [&, this](StoreConnection &store) {
    write_audit(store, handler, fields, reply);
    return true;
  };
  const ChangeOutcome outcome = co_await make_durable(change);
  if (outcome != ChangeOutcome::kDone) reply = refusal(handler.transaction.tran_id, code_of_failure(outcome));
}

// Waits, without holding a thread, until the writer is done. What the change refers to must live as long as the wait.
asio::awaitable<ChangeOutcome> Peer::make_durable(Change &change) {
  ChangeOutcome outcome = ChangeOutcome::kUnknown;
  const auto queue_change = [&](auto resume) {
    const auto resume_later = std::make_shared<decltype(resume)>(std::move(resume));
    change.done = [&, resume_later](ChangeOutcome known) {
      outcome = known;
      const auto executor = asio::get_associated_executor(*resume_later);
      asio::post(executor, [resume_later] { (*resume_later)(); });
    };
    store_.change(std::move(change));
  };
  co_await asio::async_initiate<const asio::use_awaitable_t<> &, void()>(queue_change, asio::use_awaitable);
  co_return outcome;
}

bool Peer::is_audited(const Handler &handler) const {
  return handler.audited_object != nullptr && (terms_->audit_reads || handler.access == Access::kChanges);
}

void Peer::write_audit(StoreConnection &store, const Handler &handler, const RequestFields &fields,
                       const Reply &reply) const {
  AuditEvent event{.caller = subject_,
                   .fingerprint = fingerprint_,
                   .peer = address_,
                   .tran_id = handler.transaction.tran_id,
                   .function = handler.transaction.function,
                   .object = {},
                   .return_code = {}};
  const std::string object = handler.audited_object != nullptr ? printable(handler.audited_object(fields)) : "";
  const std::vector<Outcome> whole = {{object, reply.code}};
  for (const Outcome &outcome : reply.outcomes.empty() ? whole : reply.outcomes) {
    event.object = outcome.object;
    event.return_code = outcome.code;
    append_audit_entry(store, event);
  }
}

asio::awaitable<bool> Peer::send(std::string_view tran_id, Reply &reply) {
  const Clock::time_point end_of_list = Clock::now() + limits_.list;
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end_of_list - Clock::now());
    allow(std::min(limits_.reply, left));
    bool written = false;
    if (fault_ == nullptr) {
      written = co_await write(reply.bytes.text());
    } else {
      written = co_await write_wrongly(reply);
    }
    if (!written) co_return false;
    if (!reply.next_page) co_return true;
    if (reply.bytes.text().empty()) co_await let_others_run();
    const auto next_page = std::move(reply.next_page);
    reply = read(tran_id, next_page);
  }
}

asio::awaitable<void> Peer::let_others_run() {
  co_await asio::post(stream_.get_executor(), asio::use_awaitable);
}

asio::awaitable<bool> Peer::write(std::string_view bytes) {
  if (bytes.empty()) co_return stream_.next_layer().is_open();
  asio::error_code error;
  co_await asio::async_write(stream_, asio::buffer(bytes), asio::redirect_error(asio::use_awaitable, error));
  co_return !error;
}

void Peer::choose_fault(std::string_view tran_id) {
  fault_ = terms_->faults->next_request(tran_id);
  log_fault(fault_, tran_id);
}

// False where the fault ends the connection.
asio::awaitable<bool> Peer::write_wrongly(Reply &reply) {
  distort(*fault_, reply);
  if (fault_->deviation == Deviation::kDelay && num_written_ == 0) co_await pause(fault_->time);
  const bool ends = fault_->ends_connection();
  const std::string_view bytes =
      std::string_view(reply.bytes.text()).substr(0, ends ? fault_->bytes - num_written_ : std::string::npos);
  const std::size_t piece = fault_->deviation == Deviation::kDribble ? 1 : bytes.size();
  std::size_t at = 0;
  do {
    if (at != 0) co_await pause(fault_->time);
    if (!co_await write(bytes.substr(at, piece))) co_return false;
    at += piece;
  } while (at < bytes.size());
  num_written_ += bytes.size();
  co_return !ends || num_written_ < fault_->bytes;
}

// Not of the time that the peer has.
asio::awaitable<void> Peer::pause(std::chrono::milliseconds time) {
  allow_any_time();
  asio::error_code ignored;
  asio::steady_timer timer(stream_.get_executor(), time);
  co_await timer.async_wait(asio::redirect_error(asio::use_awaitable, ignored));
  allow(limits_.reply);
}

// Without TLS's own end. Closed with nothing left to send, a connection is reset.
void Peer::end_wrongly() {
  if (fault_->deviation != Deviation::kReset) return;
  asio::error_code ignored;
  stream_.next_layer().set_option(asio::socket_base::linger(true, 0), ignored);
  stream_.next_layer().close(ignored);
}

void Peer::log_fault(const Fault *fault, std::string_view of) const {
  if (fault != nullptr) log_.warning(fmt::format("{} {} {}", address_, of, fault->name));
}

asio::awaitable<void> Peer::end_tls() {
  asio::error_code ignored;
  co_await stream_.async_shutdown(asio::redirect_error(asio::use_awaitable, ignored));
}

// Reads away what the peer still sends: closing on unread bytes would reset the connection, and the peer could lose the
// reply, or the alert that refuses it, while it is on its way.
asio::awaitable<void> Peer::close() {
  asio::error_code error;
  asio::ip::tcp::socket &socket = stream_.next_layer();
  socket.shutdown(asio::ip::tcp::socket::shutdown_send, error);
  std::array<char, 4096> leftover;
  for (std::size_t total = 0; !error && total < kMaxLeftoverBytes;)
    total += co_await socket.async_read_some(asio::buffer(leftover), asio::redirect_error(asio::use_awaitable, error));
  socket.close(error);
}

void Peer::allow(std::chrono::milliseconds time) {
  watchdog_.expires_after(time);
  watchdog_.async_wait([self = shared_from_this()](const asio::error_code &cancelled) {
    // A wait that ran out just before the time was set anew still arrives here.
    if (cancelled || self->watchdog_.expiry() > asio::steady_timer::clock_type::now()) return;
    self->timed_out_ = true;
    asio::error_code ignored;
    self->stream_.next_layer().close(ignored);
  });
}

void Peer::allow_any_time() {
  watchdog_.expires_at(asio::steady_timer::time_point::max());
}

void Peer::count_and_log(const Request &request, const Reply &reply, bool sent) const {
  const auto duration = std::chrono::steady_clock::now() - request.start;
  const char *function = request.transaction != nullptr ? request.transaction->function : "-";
  metrics_.count_operation(function, reply.code, duration);
  const ReturnCodeText *code = find_return_code(reply.code);
  const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(duration).count();
  log_.write(is_denial(reply.code) ? LogLevel::kWarning : LogLevel::kInfo,
             {{"peer", address_},
              {"client", subject_},
              {"transaction", request.tran_id},
              {"function", function},
              {"return_code", return_code_text(reply.code)},
              {"return_code_name", code != nullptr ? code->name : "-"},
              {"duration", fmt::format("{}us", microseconds)},
              {"reply", sent ? "" : "reply not sent"}});
}

std::string Peer::reason(const asio::error_code &error) const {
  if (stage_ == Stage::kGivenWay) return "gave way to others";
  return timed_out_ ? "time-out" : error.message();
}

}  // namespace veskd
