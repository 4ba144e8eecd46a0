// The checks of vesk doctor that ask the server.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <memory>

#include "orn/support/connection.h"
#include "orn/support/context.h"
#include "orn/support/resolver.h"
#include "orn/support/socket.h"
#include "vesk/doctor_checks.h"
#include "vesk/text.h"

namespace command {
namespace {

// Of each step.
constexpr int kSeconds = 5;

using Addresses = std::vector<orn::Address>;

Finding look_up(const Connection &connection, Addresses &addresses) {
  const std::string port = std::to_string(connection.port());
  const bool is_address = orn::parse_address(connection.host(), port, addresses);
  if (!is_address)
    connection.require(orn::resolve(connection.host(), port, orn::Deadline::in_seconds(kSeconds), addresses), {});
  std::string text;
  for (const orn::Address &address : addresses) text += fmt::format("{}{}", text.empty() ? "" : ", ", address.text());
  return in_order(is_address ? text + ", which needs no lookup" : text);
}

// Connects to each of the addresses. One that the machine has no way to, as to IPv6 addresses of most names, does no
// harm beside one that accepts.
Finding knock(const Connection &connection, const Addresses &addresses) {
  int worst = 0;
  bool has_accepted = false;
  bool costs_time = false;
  std::string text;
  const orn::Deadline deadline = orn::Deadline::in_seconds(kSeconds);
  for (std::size_t i = 0; i < addresses.size(); ++i) {
    std::unique_ptr<orn::Socket> socket;
    const int status = orn::connect_to({addresses[i]}, deadline.first_part(addresses.size() - i), socket);
    text += fmt::format("{}{}: {}", text.empty() ? "" : ", ", addresses[i].text(),
                        status == 0 ? "accepts" : StatusText(status));
    if (status == 0) has_accepted = true;
    if (status != 0 && (worst == 0 || status != CONN_ERR_UNREACHABLE)) worst = status;
    if (status != 0 && status != CONN_ERR_UNREACHABLE) costs_time = true;
  }
  if (!has_accepted) connection.require(worst, {});
  if (!costs_time) return in_order(text);
  return warning(text, "every call tries these addresses in turn: give --host the one that accepts, or mend the name");
}

// What a handshake is found to be like that finishes whatever is wrong with the server's certificates.
struct Inspection {
  struct Fault {
    long result;  // OpenSSL's
    orn::X509Ptr certificate;
  };

  std::vector<orn::X509Ptr> chain;  // the server's own certificate first
  std::vector<Fault> faults;

  const Fault *find(const std::function<bool(int)> &is_wanted) const {
    const auto found = std::ranges::find_if(
        faults, [&](const Fault &fault) { return is_wanted(orn::status_of_verification(fault.result)); });
    return found == faults.end() ? nullptr : &*found;
  }
};

orn::X509Ptr shared(X509 *certificate) {
  if (certificate) X509_up_ref(certificate);
  return orn::X509Ptr(certificate);
}

void keep_chain(X509_STORE_CTX *store, std::vector<orn::X509Ptr> &chain) {
  chain.push_back(shared(X509_STORE_CTX_get0_cert(store)));
  // What the server sent, in which its own certificate is the first.
  const STACK_OF(X509) *sent = X509_STORE_CTX_get0_untrusted(store);
  for (int i = 1; i < sk_X509_num(sent); ++i) chain.push_back(shared(sk_X509_value(sent, i)));
}

// OpenSSL calls this for every certificate and every fault; all is noted and nothing refused.
int note_fault(int is_good, X509_STORE_CTX *store) {
  const auto *ssl = static_cast<SSL *>(X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
  auto *inspection = static_cast<Inspection *>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl)));
  if (inspection->chain.empty()) keep_chain(store, inspection->chain);
  if (!is_good)
    inspection->faults.push_back({X509_STORE_CTX_get_error(store), shared(X509_STORE_CTX_get_current_cert(store))});
  return 1;
}

// Those of the credentials that can be shown.
orn::Credentials usable(const Diagnosis &diagnosis, const orn::Credentials &given) {
  orn::Credentials made;
  for (const orn::X509Ptr &authority : given.authorities) made.authorities.push_back(shared(authority.get()));
  if (!diagnosis.has_passed("certificate-strength")) return made;
  for (const orn::X509Ptr &certificate : given.chain) made.chain.push_back(shared(certificate.get()));
  EVP_PKEY_up_ref(given.key.get());
  made.key.reset(given.key.get());
  return made;
}

Finding shake_hands(const Connection &connection, const orn::Credentials &credentials, Inspection &inspection) {
  const auto context = std::make_shared<orn::SharedContext>();
  connection.require(orn::make_context(credentials, context->tls), {});
  SSL_CTX_set_app_data(context->tls.get(), &inspection);
  SSL_CTX_set_verify(context->tls.get(), SSL_VERIFY_PEER, note_fault);
  const std::string port = std::to_string(connection.port());
  std::unique_ptr<orn::Connection> opened;
  connection.require(orn::Connection::open({connection.host().c_str(), port.c_str()}, context,
                                           orn::Deadline::in_seconds(kSeconds), opened),
                     {});
  return in_order(fmt::format("{}, {}{}", SSL_get_version(opened->ssl()), SSL_get_cipher_name(opened->ssl()),
                              credentials.chain.empty() ? ", without a client certificate" : ""));
}

// The explanation of a fault in the server's certificates.
Failure explained(const Connection &connection, const Inspection::Fault &fault, const std::string &detail) {
  try {
    connection.require(orn::status_of_verification(fault.result), {});
  } catch (const Failure &failure) {
    return with_details(failure, {detail});
  }
  return Failure(ExitCode::kConnection, detail);
}

std::string described(const Inspection::Fault &fault) {
  const CertificateInfo info = info_of(fault.certificate.get());
  return fmt::format("certificate <{}> of <{}>, valid from {} until {}: {}", printable(info.subject),
                     printable(info.issuer), info.notBefore, info.notAfter,
                     X509_verify_cert_error_string(fault.result));
}

bool is_about_time(int status) {
  return status == CONN_ERR_PEER_EXPIRED || status == CONN_ERR_PEER_NOT_YET_VALID;
}

bool is_about_name(int status) {
  return status == CONN_ERR_PEER_NAME;
}

Finding look_at_chain(const Connection &connection, const Inspection &inspection) {
  const auto is_about_trust = [](int status) { return !is_about_time(status) && !is_about_name(status); };
  if (const Inspection::Fault *fault = inspection.find(is_about_trust))
    throw explained(connection, *fault, described(*fault));
  const CertificateInfo info = info_of(inspection.chain.front().get());
  return in_order(fmt::format("{} of {} leads to {}", printable(info.subject), printable(info.issuer),
                              printable(connection.file(1))));
}

Finding look_at_validity(const Connection &connection, const Inspection &inspection) {
  if (const Inspection::Fault *fault = inspection.find(is_about_time))
    throw explained(connection, *fault, described(*fault));
  return validity_of(connection.server(), inspection.chain);
}

Finding look_at_name(const Connection &connection, const Inspection &inspection) {
  const CertificateInfo info = info_of(inspection.chain.front().get());
  const std::string names = fmt::format("wanted <{}>, the certificate is for <{}>", printable(connection.host()),
                                        *info.names ? printable(info.names) : "nobody");
  if (const Inspection::Fault *fault = inspection.find(is_about_name)) throw explained(connection, *fault, names);
  return in_order(names);
}

Finding ask(const Connection &connection) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  connection.run({}, qAdminNoop);
  const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(Clock::now() - start).count();
  return in_order(fmt::format("{} answers ({} ms)", connection.server(), milliseconds));
}

// What the first call has left for the next.
Finding connect_again(const Connection &connection) {
  void *tls = nullptr;
  void *aux = nullptr;
  void *reading = nullptr;
  const std::string port = std::to_string(connection.port());
  connection.require(SetupConnection(&tls, &aux, &reading, connection.file(2), connection.file(1), 0,
                                     connection.file(3), connection.host().c_str(), port.c_str(), kSeconds),
                     {});
  const bool is_resumed = SSL_session_reused(static_cast<SSL *>(tls)) == 1;
  const std::string version = SSL_get_version(static_cast<SSL *>(tls));
  TLSTeardown(tls, aux, reading);
  if (is_resumed) return in_order("a second call resumes the session");
  return warning(fmt::format("a second call ({}) needs a full handshake again", version),
                 "calls are slower than they could be: have the server speak TLS 1.3 and issue tickets, [tls.tickets]");
}

}  // namespace

void check_server(Diagnosis &diagnosis, const Connection &connection, const orn::Credentials &credentials) {
  using Needed = std::vector<std::string>;
  const orn::CleanErrorQueue queue;
  const bool has_server = !connection.host().empty() && connection.port() != 0;
  Addresses addresses;
  Inspection inspection;
  diagnosis.check("name", has_server ? Needed() : Needed{"settings"}, [&] { return look_up(connection, addresses); });
  diagnosis.check("connect", {"name"}, [&] { return knock(connection, addresses); });
  diagnosis.check("tls", {"connect"},
                  [&] { return shake_hands(connection, usable(diagnosis, credentials), inspection); });
  // A server that ends the handshake may have said before who it is.
  const Needed seen = inspection.chain.empty() ? Needed{"tls"} : Needed();
  Needed seen_and_trusted = seen;
  seen_and_trusted.push_back("authority-pem");
  diagnosis.check("server-chain", seen_and_trusted, [&] { return look_at_chain(connection, inspection); });
  diagnosis.check("server-validity", seen, [&] { return look_at_validity(connection, inspection); });
  diagnosis.check("server-name", seen, [&] { return look_at_name(connection, inspection); });
  diagnosis.check("transaction", {"certificate-strength", "tls", "server-chain", "server-validity", "server-name"},
                  [&] { return ask(connection); });
  diagnosis.check("resumption", {"transaction"}, [&] { return connect_again(connection); });
}

}  // namespace command
