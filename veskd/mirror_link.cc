#include "veskd/mirror_link.h"

#include <fmt/format.h>
#include <openssl/x509v3.h>

#include <array>
#include <asio/connect.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/read.hpp>
#include <asio/redirect_error.hpp>
#include <asio/ssl/stream.hpp>
#include <asio/steady_timer.hpp>
#include <asio/this_coro.hpp>
#include <asio/use_awaitable.hpp>
#include <asio/write.hpp>
#include <memory>

#include "orn/vesk/wire/row.h"
#include "orn/vesk/wire/text.h"
#include "orn/vesk/wire/transactions.h"
#include "veskd/fields.h"

namespace veskd {
namespace {

using asio::ip::tcp;
using vesk::wire::kLengthDigits;

// Shared with the watchdog, which may come due when the exchange is over.
struct Link : std::enable_shared_from_this<Link> {
  Link(const asio::any_io_executor &executor, asio::ssl::context &tls)
      : resolver(executor), stream(executor, tls), watchdog(executor) {}

  void close() {
    asio::error_code ignored;
    resolver.cancel();
    stream.next_layer().close(ignored);
  }

  void allow(std::chrono::milliseconds time) {
    watchdog.expires_after(time);
    watchdog.async_wait([self = shared_from_this()](const asio::error_code &cancelled) {
      if (cancelled) return;
      self->timed_out = true;
      self->close();
    });
  }

  tcp::resolver resolver;
  asio::ssl::stream<tcp::socket> stream;
  asio::steady_timer watchdog;
  bool timed_out = false;
};

// The end of the exchange, on every path.
class EndOfExchange {
 public:
  explicit EndOfExchange(Link &link) : link_(link) {}
  EndOfExchange(const EndOfExchange &) = delete;
  EndOfExchange &operator=(const EndOfExchange &) = delete;
  ~EndOfExchange() {
    link_.watchdog.cancel();
    link_.close();
  }

 private:
  Link &link_;
};

void check(const Link &link, const asio::error_code &error, const char *stage) {
  if (error) throw ExchangeError(fmt::format("{}: {}", stage, link.timed_out ? "time-out" : error.message()));
}

// The mirror must prove the very name or address that the book has.
void expect_name(SSL *tls, const std::string &host) {
  asio::error_code no_address;
  asio::ip::make_address(host, no_address);
  const bool set = no_address
                       ? SSL_set_tlsext_host_name(tls, host.c_str()) == 1 && SSL_set1_host(tls, host.c_str()) == 1
                       : X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(tls), host.c_str()) == 1;
  if (!set) throw ExchangeError("the host name cannot be verified");
}

asio::awaitable<void> connect(Link &link, const MirrorAddress &address) {
  asio::error_code error;
  const auto endpoints = co_await link.resolver.async_resolve(address.host, std::to_string(address.port),
                                                              asio::redirect_error(asio::use_awaitable, error));
  check(link, error, "finding its address");
  co_await asio::async_connect(link.stream.next_layer(), endpoints, asio::redirect_error(asio::use_awaitable, error));
  check(link, error, "connecting");
  link.stream.next_layer().set_option(tcp::no_delay(true), error);
  expect_name(link.stream.native_handle(), address.host);
  co_await link.stream.async_handshake(asio::ssl::stream_base::client,
                                       asio::redirect_error(asio::use_awaitable, error));
  check(link, error, "handshake");
}

// The reply is measured before anything of its length is allocated.
asio::awaitable<std::string> read_reply(Link &link) {
  asio::error_code error;
  std::string reply(kLengthDigits, '\0');
  co_await asio::async_read(link.stream, asio::buffer(reply), asio::redirect_error(asio::use_awaitable, error));
  check(link, error, "reading the reply");
  const int length = vesk::wire::to_int(reply);
  if (!is_all_digits(reply) || length > vesk::wire::kMaxReplyLength)
    throw ExchangeError("the reply has no valid length");
  reply.resize(kLengthDigits + static_cast<std::size_t>(length));
  co_await asio::async_read(link.stream, asio::buffer(reply.data() + kLengthDigits, reply.size() - kLengthDigits),
                            asio::redirect_error(asio::use_awaitable, error));
  check(link, error, "reading the reply");
  co_return reply;
}

}  // namespace

asio::awaitable<std::string> exchange(asio::ssl::context &tls, const MirrorAddress &address, const WipedText &request,
                                      std::chrono::milliseconds time) {
  const auto link = std::make_shared<Link>(co_await asio::this_coro::executor, tls);
  const EndOfExchange end(*link);
  link->allow(time);
  co_await connect(*link, address);
  asio::error_code error;
  co_await asio::async_write(link->stream, asio::buffer(request.text()),
                             asio::redirect_error(asio::use_awaitable, error));
  check(*link, error, "sending");
  co_return co_await read_reply(*link);
}

}  // namespace veskd
