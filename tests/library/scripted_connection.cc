#include "tests/library/scripted_connection.h"

#include <openssl/ssl.h>

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <gtest/gtest.h>

std::vector<std::string> LinkedList::texts() const {
  std::vector<std::string> result;
  for (const std::string &element : elements) result.emplace_back(element.c_str());
  return result;
}

namespace script {

namespace {

Connection current;
STACK_OF(X509) *chain = nullptr;

// The session that a handle is part of.
const Session &session_of(void **phTls) {
  return *reinterpret_cast<const Session *>(reinterpret_cast<const char *>(phTls) - offsetof(Session, hTls));
}

void release_chain() {
  if (chain != nullptr) sk_X509_pop_free(chain, X509_free);
  chain = nullptr;
}

}  // namespace

Connection &connection() {
  return current;
}

void reset() {
  release_chain();
  current = {};
}

std::vector<std::string> Connection::traces_of(std::string_view path) const {
  std::vector<std::string> result;
  const std::string prefix = std::string(path) + "|";
  for (const std::string &trace : traces) {
    if (trace.starts_with(prefix)) result.push_back(trace.substr(prefix.size()));
  }
  return result;
}

}  // namespace script

using script::connection;

int SetupConnection(void **phTls, void **phTlsAux, void **phTlsRead, const char *certPath2, const char *certPath1,
                    int reserved, const char *certPath3, const char *host, const char *port, int connectTimeout) {
  auto &c = connection();
  c.setups.push_back({certPath2, certPath1, certPath3, host, port, reserved, connectTimeout});
  c.events.emplace_back("setup");
  if (c.at_setup) c.at_setup(script::session_of(phTls), certPath3);
  if (c.setup_status != 0) return c.setup_status;
  *phTls = script::kTls;
  *phTlsAux = script::kTlsAux;
  *phTlsRead = script::kTlsRead;
  return 0;
}

int TLSWrite(void *hTls, const void *buffer, int count) {
  auto &c = connection();
  EXPECT_EQ(hTls, script::kTls);
  EXPECT_GE(count, 0);
  const int ordinal = static_cast<int>(c.writes.size());
  c.writes.emplace_back(static_cast<const char *>(buffer), static_cast<std::size_t>(count));
  c.events.emplace_back("write");
  const auto failure = c.failing_writes.find(ordinal);
  return failure == c.failing_writes.end() ? 0 : failure->second;
}

int TLSRead(void *hTls, void *hTlsRead, void *buffer, int count, int timeout, int *bytesRead) {
  auto &c = connection();
  EXPECT_EQ(hTls, script::kTls);
  EXPECT_EQ(hTlsRead, script::kTlsRead);
  EXPECT_NE(bytesRead, nullptr);
  EXPECT_GE(count, 0) << "a negative length reached the connection layer";
  const int ordinal = static_cast<int>(c.reads.size());
  if (c.before_read) c.before_read(ordinal);
  c.reads.push_back({count, timeout});
  c.events.emplace_back("read");
  const auto failure = c.failing_reads.find(ordinal);
  if (failure != c.failing_reads.end()) return failure->second;
  const std::size_t wanted = static_cast<std::size_t>(std::max(count, 0));
  const std::size_t arrived = std::min(wanted, c.replies.size());
  std::memcpy(buffer, c.replies.data(), arrived);
  c.replies.erase(0, arrived);
  *bytesRead = static_cast<int>(arrived);
  return arrived == wanted ? 0 : script::kClosed;
}

int TLSTeardown(void *hTls, void *hTlsAux, void *hTlsRead) {
  auto &c = connection();
  ++c.teardowns;
  c.events.emplace_back("teardown");
  c.torn_down_with_handles = hTls == script::kTls && hTlsAux == script::kTlsAux && hTlsRead == script::kTlsRead;
  EXPECT_TRUE(c.torn_down_with_handles || (hTls == nullptr && hTlsAux == nullptr && hTlsRead == nullptr));
  return 17;  // ignored
}

void TraceT(int reserved, const char *path, int line, const char *format, ...) {
  EXPECT_EQ(reserved, 0);
  EXPECT_GT(line, 0);
  va_list arguments;
  va_start(arguments, format);
  char text[8192];
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  connection().traces.push_back(std::string(path) + "|" + text);
  connection().events.push_back(std::string("trace ") + text);
}

void DumpBuffer(int reserved, const char *path, int line, const void *bytes, int count, const char *label) {
  EXPECT_EQ(reserved, 0);
  EXPECT_GT(line, 0);
  ASSERT_GE(count, 0);
  connection().dumps.push_back({path, label, {static_cast<const char *>(bytes), static_cast<std::size_t>(count)}});
  connection().events.push_back(std::string("dump ") + label);
}

void X509_get_info(X509 *certificate, CertificateInfo *info) {
  *info = {};
  X509_NAME_oneline(X509_get_subject_name(certificate), info->subject, sizeof info->subject);
  connection().events.emplace_back(std::string("info ") + info->subject);
}

char *CertificateInfo_to_string(const CertificateInfo *info) {
  return strdup(info->subject);
}

int ll_append(LinkedList *list, const void *element) {
  list->elements.emplace_back(static_cast<const char *>(element), list->element_size);
  return 0;
}

size_t ll_get_element_size(const LinkedList *list) {
  return list->element_size;
}

// The chain belongs to the connection: the library takes certificates off the stack and never frees the stack.
extern "C" STACK_OF(X509) * SSL_get_peer_cert_chain(const SSL *ssl) {
  auto &c = connection();
  EXPECT_EQ(static_cast<const void *>(ssl), script::kTls);
  c.events.emplace_back("chain");
  if (!c.has_peer_chain) return nullptr;
  if (script::chain == nullptr) {
    script::chain = sk_X509_new_null();
    for (X509 *certificate : c.peer_chain) sk_X509_push(script::chain, certificate);
  }
  return script::chain;
}
