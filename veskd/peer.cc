#include "veskd/peer.h"

#include <fmt/format.h>
#include <netinet/tcp.h>
#include <openssl/bio.h>
#include <openssl/x509.h>
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

#include "veskd/certificates.h"
#include "veskd/fields.h"

namespace veskd {
namespace {

using vesk::wire::kLengthDigits;
using vesk::wire::Transaction;

constexpr std::size_t kTranIdDigits = 4;

// Answers a request whose identifier cannot be told.
constexpr std::string_view kNoTranId = "0000";

// What a peer may still send when the reply is out; a bound on the work of reading it away.
constexpr std::size_t kMaxLeftoverBytes = 65536;

// The bytes behind the length digits, if the transaction allows a request to be of that length. Some requests set their
// own.
std::optional<std::size_t> declared_length(std::string_view digits, const Handler &handler) {
  const Transaction &transaction = handler.transaction;
  const auto length = static_cast<std::size_t>(vesk::wire::to_int(digits));
  const bool allowed = transaction.length.empty()
                           ? length >= kTranIdDigits && kLengthDigits + length <= handler.max_request_bytes
                           : digits == transaction.length;
  return allowed ? std::optional(length) : std::nullopt;
}

// RFC 2253 form, control characters escaped.
std::string subject_of(SSL *tls) {
  const std::unique_ptr<X509, void (*)(X509 *)> certificate(SSL_get1_peer_certificate(tls), X509_free);
  const std::unique_ptr<BIO, int (*)(BIO *)> text(BIO_new(BIO_s_mem()), BIO_free);
  if (!certificate || !text) return {};
  X509_NAME_print_ex(text.get(), X509_get_subject_name(certificate.get()), 0, XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB);
  char *bytes = nullptr;
  const long length = BIO_get_mem_data(text.get(), &bytes);
  return std::string(bytes, static_cast<std::size_t>(length));
}

bool shows_mirror_role(SSL *tls) {
  const CertificatePtr certificate(SSL_get1_peer_certificate(tls));
  return certificate && has_mirror_role(certificate.get());
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

}  // namespace

struct Peer::Request {
  std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
  bool arrived = false;             // nothing can be answered unless it is set
  ReturnCode refused = RC_SUCCESS;  // what reading found wrong with it
  std::string tran_id{kNoTranId};
  const Transaction *transaction = nullptr;
  WipedText text;
  WipedText payload;
};

Peer::Peer(asio::ip::tcp::socket socket, asio::ssl::context &tls, const Limits &limits, Store &store,
           const Machine &machine, const Log &log)
    : stream_(std::move(socket), tls),
      watchdog_(stream_.get_executor()),
      limits_(limits),
      store_(store),
      machine_(machine),
      log_(log),
      address_(name_of(stream_.next_layer())) {}

asio::awaitable<void> Peer::serve() {
  const auto self = shared_from_this();
  allow(limits_.handshake);
  if (co_await do_handshake()) {
    allow(limits_.request);
    const Request request = co_await read_request();
    if (request.arrived) {
      allow_any_time();
      Reply reply = co_await answer(request);
      const bool sent = co_await send(request.tran_id, reply);
      log_request(request, reply, sent);
    }
    allow(limits_.closing);
    co_await end_tls();
  }
  allow(limits_.closing);
  co_await close();
  allow_any_time();
}

asio::awaitable<bool> Peer::do_handshake() {
  asio::error_code error;
  send_at_once(stream_.next_layer());
  co_await stream_.async_handshake(asio::ssl::stream_base::server, asio::redirect_error(asio::use_awaitable, error));
  if (error) {
    log_.info(fmt::format("{} no handshake: {}", address_, reason(error)));
    co_return false;
  }
  acknowledge_at_once(stream_.next_layer());
  subject_ = subject_of(stream_.native_handle());
  is_mirror_ = shows_mirror_role(stream_.native_handle());
  co_return true;
}

// The length is one that the transaction allows: that is checked before anything of that length is read or allocated.
asio::awaitable<Peer::Request> Peer::read_request() {
  Request request;
  std::array<char, kLengthDigits + kTranIdDigits> header;
  if (!co_await read_exactly(header.data(), header.size())) co_return request;
  request.arrived = true;
  request.start = std::chrono::steady_clock::now();
  const std::string_view digits(header.data(), kLengthDigits);
  const std::string_view tran_id(header.data() + kLengthDigits, kTranIdDigits);
  if (!is_all_digits(digits) || !is_all_digits(tran_id)) {
    request.refused = RC_MALFORMED_REQUEST;
    co_return request;
  }
  request.tran_id = tran_id;
  const Handler *handler = find_handler(tran_id);
  if (handler == nullptr) {
    request.refused = RC_UNKNOWN_TRANSACTION;
    co_return request;
  }
  request.transaction = &handler->transaction;
  if (handler->for_mirrors && !is_mirror_) {
    request.refused = RC_NOT_A_MIRROR;
    co_return request;
  }
  const std::optional<std::size_t> length = declared_length(digits, *handler);
  if (!length) {
    request.refused = RC_MALFORMED_REQUEST;
    co_return request;
  }
  std::string text(kLengthDigits + *length, '\0');
  std::copy(header.begin(), header.end(), text.begin());
  request.text = WipedText(std::move(text));
  request.arrived =
      co_await read_exactly(request.text.text().data() + header.size(), request.text.text().size() - header.size());
  if (request.arrived && handler->max_payload_bytes != 0) co_await read_payload(*handler, request);
  co_return request;
}

// The payload's length is believed no sooner than the request's own: what is too long is neither read nor allocated.
asio::awaitable<void> Peer::read_payload(const Handler &handler, Request &request) {
  Wiped<RequestFields> fields;
  const bool well_formed = handler.parse(request.text.text(), *fields);
  const std::string_view digits = vesk::wire::text_in(fields->caByteCount);
  if (!well_formed || !is_all_digits(digits)) {
    request.refused = RC_MALFORMED_REQUEST;
    co_return;
  }
  const auto length = static_cast<std::size_t>(vesk::wire::to_int(digits));
  if (length > handler.max_payload_bytes) {
    request.refused = RC_PAYLOAD_LENGTH;
    co_return;
  }
  request.payload = WipedText(std::string(length, '\0'));
  request.arrived = co_await read_exactly(request.payload.text().data(), length);
}

asio::awaitable<bool> Peer::read_exactly(char *bytes, std::size_t count) {
  asio::error_code error;
  co_await asio::async_read(stream_, asio::buffer(bytes, count), asio::redirect_error(asio::use_awaitable, error));
  if (error) log_.info(fmt::format("{} {} no request: {}", address_, subject_, reason(error)));
  co_return !error;
}

asio::awaitable<Reply> Peer::answer(const Request &request) {
  if (request.refused != RC_SUCCESS) co_return refusal(request.tran_id, request.refused);
  const Handler &handler = *find_handler(request.tran_id);
  Wiped<RequestFields> fields;
  if (!handler.parse(request.text.text(), *fields)) co_return refusal(request.tran_id, RC_MALFORMED_REQUEST);
  co_return co_await run(handler, request, *fields);
}

asio::awaitable<Reply> Peer::run(const Handler &handler, const Request &request, const RequestFields &fields) {
  if (handler.access == Access::kChanges) co_return co_await run_change(handler, request, fields);
  co_return read(handler.transaction.tran_id,
                 [&](StoreConnection &store) { return handler.handle(call(request, fields, store)); });
}

Call Peer::call(const Request &request, const RequestFields &fields, StoreConnection &store) const {
  return {
      request.text.text(), request.payload.text(), fields, store, store_, subject_, limits_.max_page_bytes, machine_};
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

// Waits, without holding a thread, until the writer has made the change durable. The locals live as long as the wait.
asio::awaitable<Reply> Peer::run_change(const Handler &handler, const Request &request, const RequestFields &fields) {
  Reply reply;
  ChangeOutcome outcome = ChangeOutcome::kUnknown;
  const auto queue_change = [&](auto resume) {
    const auto resume_later = std::make_shared<decltype(resume)>(std::move(resume));
    store_.change({.apply =
                       [&, this](StoreConnection &store) {
                         reply = handler.handle(call(request, fields, store));
                         return reply.code == RC_SUCCESS;
                       },
                   .done =
                       [&, resume_later](ChangeOutcome known) {
                         outcome = known;
                         const auto executor = asio::get_associated_executor(*resume_later);
                         asio::post(executor, [resume_later] { (*resume_later)(); });
                       }});
  };
  co_await asio::async_initiate<const asio::use_awaitable_t<> &, void()>(queue_change, asio::use_awaitable);
  if (outcome == ChangeOutcome::kDone) co_return reply;
  const bool is_undone = outcome == ChangeOutcome::kFailed;
  co_return refusal(handler.transaction.tran_id, is_undone ? RC_SERVER_FAILURE : RC_OUTCOME_UNKNOWN);
}

asio::awaitable<bool> Peer::send(std::string_view tran_id, Reply &reply) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point end_of_list = Clock::now() + limits_.list;
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end_of_list - Clock::now());
    allow(std::min(limits_.reply, left));
    if (!co_await write(reply.bytes.text())) co_return false;
    if (!reply.next_page) co_return true;
    if (reply.bytes.text().empty()) co_await let_others_run();
    const auto next_page = std::move(reply.next_page);
    reply = read(tran_id, next_page);
  }
}

asio::awaitable<void> Peer::let_others_run() {
  co_await asio::post(stream_.get_executor(), asio::use_awaitable);
}

asio::awaitable<bool> Peer::write(const std::string &bytes) {
  if (bytes.empty()) co_return stream_.next_layer().is_open();
  asio::error_code error;
  co_await asio::async_write(stream_, asio::buffer(bytes), asio::redirect_error(asio::use_awaitable, error));
  co_return !error;
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

void Peer::log_request(const Request &request, const Reply &reply, bool sent) const {
  const auto duration = std::chrono::steady_clock::now() - request.start;
  const char *function = request.transaction != nullptr ? request.transaction->function : "-";
  const ReturnCodeText *code = find_return_code(reply.code);
  log_.info(fmt::format("{} {} {} {} {:04} {} {}us{}", address_, subject_, request.tran_id, function,
                        static_cast<int>(reply.code), code != nullptr ? code->name : "-",
                        std::chrono::duration_cast<std::chrono::microseconds>(duration).count(),
                        sent ? "" : " reply not sent"));
}

std::string Peer::reason(const asio::error_code &error) const {
  return timed_out_ ? "time-out" : error.message();
}

}  // namespace veskd
