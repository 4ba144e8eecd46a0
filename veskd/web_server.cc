#include "veskd/web_server.h"

#include <fmt/format.h>
#include <microhttpd.h>

#include <array>
#include <asio/ip/tcp.hpp>
#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

#include "veskd/errors.h"

namespace veskd {
namespace {

constexpr unsigned kMaxConnections = 16;
constexpr unsigned kMaxSilenceSeconds = 10;
constexpr std::size_t kMaxHeaderBytes = 16384;  // of a request, with what is kept of it

WebPage refusal(unsigned status, const char *text) {
  WebPage page;
  page.status = status;
  page.content = text;
  return page;
}

// GET and HEAD alone get here with a status of 200; the library leaves the content of an answer to HEAD out.
MHD_Result send(MHD_Connection *connection, const WebPage &page) {
  const std::unique_ptr<MHD_Response, void (*)(MHD_Response *)> response(
      MHD_create_response_from_buffer(page.content.size(), const_cast<char *>(page.content.data()),
                                      MHD_RESPMEM_MUST_COPY),
      MHD_destroy_response);
  if (!response) return MHD_NO;
  const auto add_header = [&](const char *name, const char *value) {
    MHD_add_response_header(response.get(), name, value);
  };
  add_header(MHD_HTTP_HEADER_CONTENT_TYPE, page.content_type);
  add_header("Content-Security-Policy", page.security_policy.c_str());
  add_header("X-Content-Type-Options", "nosniff");
  add_header("Referrer-Policy", "no-referrer");
  add_header(MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
  add_header(MHD_HTTP_HEADER_CONNECTION, "close");
  if (page.status == MHD_HTTP_METHOD_NOT_ALLOWED) add_header(MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
  return MHD_queue_response(connection, page.status, response.get());
}

std::string_view without_port(std::string_view host) {
  const std::size_t colon = host.rfind(':');
  const bool has_port = colon != std::string_view::npos && host.find(']', colon) == std::string_view::npos;
  return has_port ? host.substr(0, colon) : host;
}

}  // namespace

bool is_loopback(const std::string &address) {
  asio::error_code error;
  const asio::ip::address parsed = asio::ip::make_address(address, error);
  return !error && parsed.is_loopback();
}

void WebServer::Stop::operator()(MHD_Daemon *daemon) const {
  MHD_stop_daemon(daemon);
}

WebServer::WebServer(const std::string &address, std::uint16_t port, Pages pages, const Log &log)
    : pages_(std::move(pages)), on_loopback_(is_loopback(address)), log_(log) {
  const asio::ip::tcp::endpoint endpoint(asio::ip::make_address(address), port);
  const auto answer_request = [](void *self, MHD_Connection *connection, const char *path, const char *method,
                                 const char *, const char *, std::size_t *, void **) {
    return send(connection, static_cast<WebServer *>(self)->answer(connection, path, method));
  };
  unsigned flags = MHD_USE_AUTO_INTERNAL_THREAD | MHD_USE_ITC;
  if (endpoint.address().is_v6()) flags |= MHD_USE_IPv6;
  daemon_.reset(MHD_start_daemon(flags, port, nullptr, nullptr, answer_request, this, MHD_OPTION_SOCK_ADDR,
                                 endpoint.data(), MHD_OPTION_CONNECTION_LIMIT, kMaxConnections,
                                 MHD_OPTION_CONNECTION_TIMEOUT, kMaxSilenceSeconds, MHD_OPTION_CONNECTION_MEMORY_LIMIT,
                                 kMaxHeaderBytes, MHD_OPTION_END));
  if (!daemon_)
    throw StartError(fmt::format("cannot listen on {} port {} for those who watch: {}", address, port,
                                 std::generic_category().message(errno)));
  port_ = MHD_get_daemon_info(daemon_.get(), MHD_DAEMON_INFO_BIND_PORT)->port;
}

// No exception may reach the library, which is C.
WebPage WebServer::answer(MHD_Connection *connection, const char *path, const char *method) const {
  try {
    return find(connection, path, method);
  } catch (const std::exception &error) {
    log_.error(fmt::format("the page {} could not be made: {}", path, error.what()));
    return refusal(MHD_HTTP_INTERNAL_SERVER_ERROR, "the page could not be made: the log tells more\n");
  }
}

WebPage WebServer::find(MHD_Connection *connection, std::string_view path, std::string_view method) const {
  if (method != MHD_HTTP_METHOD_GET && method != MHD_HTTP_METHOD_HEAD)
    return refusal(MHD_HTTP_METHOD_NOT_ALLOWED, "pages are read with GET and HEAD\n");
  if (!is_meant(connection))
    return refusal(MHD_HTTP_FORBIDDEN, "this server goes by localhost and loopback addresses alone\n");
  const auto page = pages_.find(path);
  return page != pages_.end() ? page->second() : refusal(MHD_HTTP_NOT_FOUND, "there is no such page\n");
}

// A site of the network can give its own name the address of this machine, and so have a browser here read these pages
// for it. The browser still tells that name.
bool WebServer::is_meant(MHD_Connection *connection) const {
  const char *host = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_HOST);
  if (!on_loopback_ || host == nullptr) return true;
  std::string name(without_port(host));
  if (name.starts_with('[') && name.ends_with(']')) name = name.substr(1, name.size() - 2);
  return name == "localhost" || is_loopback(name);
}

}  // namespace veskd
