// The checks of vesk doctor that need no server: the certificate files.
#include <fmt/format.h>
#include <pwd.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <ctime>

#include "orn/support/context.h"
#include "vesk/doctor_checks.h"
#include "vesk/secret_file.h"
#include "vesk/text.h"
#include "vesk/validity.h"

namespace command {
namespace {

// In the order of CertificatePaths.
struct ClientFile {
  const char *id;
  int not_pem;  // the statuses from which on a file is there, and can be read
  int (*load)(const char *path, orn::Credentials &credentials);
};

constexpr std::array kFiles = {ClientFile{"authority", CONN_ERR_AUTHORITY_NOT_PEM, orn::load_authorities},
                               ClientFile{"certificate", CONN_ERR_CERTIFICATE_NOT_PEM, orn::load_chain},
                               ClientFile{"key", CONN_ERR_KEY_NOT_PEM, orn::load_key}};

std::string subject_of(X509 *certificate) {
  return printable(info_of(certificate).subject);
}

std::string owner_of(uid_t user) {
  const passwd *known = getpwuid(user);
  return known ? printable(known->pw_name) : std::to_string(user);
}

// Who may read it, as far as its mode says.
std::string mode_of(const char *path) {
  struct stat about {};
  if (stat(path, &about) != 0) return printable(path);
  return fmt::format("{}, mode {:04o}, of user {}", printable(path), about.st_mode & 07777, owner_of(about.st_uid));
}

bool is_about_content(const ClientFile &file, int status) {
  return status == file.not_pem || status == CONN_ERR_KEY_ENCRYPTED;
}

Finding look_at_file(const Connection &connection, const ClientFile &file, const char *path) {
  orn::Credentials unused;
  const int status = file.load(path, unused);
  if (!is_about_content(file, status)) connection.require(status, {});
  return in_order(mode_of(path));
}

Finding look_at_permissions(const char *path) {
  if (!others_may_read(path)) return in_order("its owner alone may read it");
  return warning(fmt::format("others may read {}", printable(path)), fmt::format("chmod 600 {}", printable(path)));
}

std::string content_of(const std::vector<orn::X509Ptr> &certificates) {
  std::string text;
  for (const orn::X509Ptr &certificate : certificates)
    text += fmt::format("{}{}", text.empty() ? "" : "; ", subject_of(certificate.get()));
  return text;
}

std::string content_of(const EVP_PKEY *key) {
  const char *type = EVP_PKEY_get0_type_name(key);
  return fmt::format("{} {} bits", type ? type : "a key of", EVP_PKEY_get_bits(key));
}

Finding look_at_content(const Connection &connection, const ClientFile &file, const char *path,
                        orn::Credentials &credentials) {
  connection.require(file.load(path, credentials), {});
  if (file.load == orn::load_key) return in_order(content_of(credentials.key.get()));
  return in_order(content_of(file.load == orn::load_chain ? credentials.chain : credentials.authorities));
}

struct FreeStore {
  void operator()(X509_STORE_CTX *context) const { X509_STORE_CTX_free(context); }
  void operator()(STACK_OF(X509) * stack) const { sk_X509_free(stack); }
};

// Dates and purpose are checks of their own.
bool leads_to(const std::vector<orn::X509Ptr> &authorities, const std::vector<orn::X509Ptr> &chain) {
  const orn::X509StorePtr store(X509_STORE_new());
  const std::unique_ptr<X509_STORE_CTX, FreeStore> context(X509_STORE_CTX_new());
  const std::unique_ptr<STACK_OF(X509), FreeStore> others(sk_X509_new_null());
  if (!store || !context || !others) throw std::bad_alloc();
  for (const orn::X509Ptr &authority : authorities) X509_STORE_add_cert(store.get(), authority.get());
  for (std::size_t i = 1; i < chain.size(); ++i) sk_X509_push(others.get(), chain[i].get());
  X509_STORE_set_flags(store.get(), X509_V_FLAG_PARTIAL_CHAIN | X509_V_FLAG_TRUSTED_FIRST | X509_V_FLAG_NO_CHECK_TIME);
  return X509_STORE_CTX_init(context.get(), store.get(), chain.front().get(), others.get()) == 1 &&
         X509_verify_cert(context.get()) == 1;
}

// The number of the first certificate that the one behind it has not issued; 0 for none.
std::size_t first_gap(const std::vector<orn::X509Ptr> &chain) {
  for (std::size_t i = 1; i < chain.size(); ++i) {
    if (X509_check_issued(chain[i].get(), chain[i - 1].get()) != X509_V_OK) return i;
  }
  return 0;
}

// The authority file is for the server's certificate. Servers mostly have clients of the same authority, but need not.
Finding look_at_chain(const Connection &connection, const orn::Credentials &credentials) {
  const std::string authority = printable(connection.file(1));
  if (const std::size_t gap = first_gap(credentials.chain)) {
    return warning(fmt::format("certificate {} of the file is not issued by the one behind it", gap),
                   fmt::format("put them in order in {}: the client's own, then the issuer of each",
                               printable(connection.file(2))));
  }
  if (leads_to(credentials.authorities, credentials.chain)) return in_order(fmt::format("leads to {}", authority));
  return in_order(
      fmt::format("issued by {}, who is not in {}: that file is for the server's certificate; whether the "
                  "server takes the client's only the server can tell",
                  printable(info_of(credentials.chain.back().get()).issuer), authority));
}

Finding look_at_strength(const Connection &connection, const orn::Credentials &credentials) {
  orn::SslContextPtr context;
  connection.require(orn::make_context(credentials, context), {});
  return in_order(printable(info_of(credentials.chain.front().get()).key));
}

Finding look_at_purpose(const Connection &connection, X509 *certificate) {
  if (X509_check_purpose(certificate, X509_PURPOSE_SSL_CLIENT, 0) == 1) return in_order("may be a TLS client's");
  const std::string path = printable(connection.file(2));
  throw Failure(ExitCode::kConnection,
                fmt::format("{}: its key usage or extended key usage is not that of a TLS client", path),
                fmt::format("have one issued for clientAuth; this one: openssl x509 -noout -ext "
                            "keyUsage,extendedKeyUsage -in {}",
                            path));
}

// Of several trusted authorities one that has run out need not be the server's.
Finding look_at_authorities(const Connection &connection, const orn::Credentials &credentials) {
  const std::vector<orn::X509Ptr> &all = credentials.authorities;
  const auto has_run_out = [](const orn::X509Ptr &one) { return has_passed(X509_get0_notAfter(one.get())); };
  const auto expired = std::find_if(all.begin(), all.end(), has_run_out);
  if (expired == all.end() || std::all_of(all.begin(), all.end(), has_run_out))
    return validity_of(printable(connection.file(1)), all);
  return warning(
      fmt::format("{} expired on {}", subject_of(expired->get()), date_of(X509_get0_notAfter(expired->get()))),
      fmt::format("take it out of {} when its successor is there", printable(connection.file(1))));
}

Finding look_at_clock(const Connection &connection, const orn::Credentials &credentials) {
  const auto refuse_later = [&](int file, const std::vector<orn::X509Ptr> &certificates) {
    for (const orn::X509Ptr &certificate : certificates) {
      const ASN1_TIME *begin = X509_get0_notBefore(certificate.get());
      if (has_passed(begin)) continue;
      throw Failure(ExitCode::kConnection,
                    fmt::format("{}: {} is valid from {} on, which this machine's clock has not reached",
                                printable(connection.file(file)), subject_of(certificate.get()),
                                info_of(certificate.get()).notBefore),
                    kClockHint);
    }
  };
  refuse_later(1, credentials.authorities);
  refuse_later(2, credentials.chain);
  const std::time_t now = std::time(nullptr);
  tm utc{};
  gmtime_r(&now, &utc);
  return in_order(fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z, behind the beginning of every certificate",
                              utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec));
}

}  // namespace

CertificateInfo info_of(X509 *certificate) {
  CertificateInfo info;
  X509_get_info(certificate, &info);
  return info;
}

Finding validity_of(const std::string &subject, const std::vector<orn::X509Ptr> &certificates) {
  const auto ends_sooner = [](const orn::X509Ptr &one, const orn::X509Ptr &other) {
    return ASN1_TIME_compare(X509_get0_notAfter(one.get()), X509_get0_notAfter(other.get())) < 0;
  };
  X509 *first = std::min_element(certificates.begin(), certificates.end(), ends_sooner)->get();
  const ASN1_TIME *end = X509_get0_notAfter(first);
  if (has_passed(end)) {
    throw Failure(ExitCode::kConnection, fmt::format("{}: {} expired on {}", subject, subject_of(first), date_of(end)),
                  "have a new one issued; if it should still be good, look at this clock: date -u");
  }
  const std::string left = fmt::format("valid until {}, {} left", date_of(end), days_text(days_until(end)));
  if (days_until(end) >= kWarningDays) return in_order(left);
  return warning(fmt::format("{}: {}", subject_of(first), left), "have a new one issued in time");
}

void check_client(Diagnosis &diagnosis, const Connection &connection, orn::Credentials &credentials) {
  const orn::CleanErrorQueue queue;
  // A host that is missing does not keep anyone from looking at files.
  const bool has_files = *connection.file(1) != '\0';
  for (std::size_t i = 0; i < kFiles.size(); ++i) {
    const ClientFile &file = kFiles[i];
    const char *path = connection.file(static_cast<int>(i) + 1);
    const std::string id = file.id;
    diagnosis.check(id + "-file", has_files ? std::vector<std::string>() : std::vector<std::string>{"settings"},
                    [&] { return look_at_file(connection, file, path); });
    if (file.load == orn::load_key)
      diagnosis.check("key-permissions", {"key-file"}, [&] { return look_at_permissions(path); });
    diagnosis.check(id + "-pem", {id + "-file"}, [&] { return look_at_content(connection, file, path, credentials); });
  }
  diagnosis.check("key-pair", {"certificate-pem", "key-pem"}, [&] {
    const orn::CertificateFiles files = {connection.file(1), connection.file(2), connection.file(3)};
    connection.require(orn::check_pair(files, credentials), {});
    return in_order("the key is the certificate's");
  });
  diagnosis.check("certificate-strength", {"key-pair"}, [&] { return look_at_strength(connection, credentials); });
  diagnosis.check("certificate-chain", {"authority-pem", "certificate-pem"},
                  [&] { return look_at_chain(connection, credentials); });
  diagnosis.check("certificate-purpose", {"certificate-pem"},
                  [&] { return look_at_purpose(connection, credentials.chain.front().get()); });
  diagnosis.check("certificate-validity", {"certificate-pem"},
                  [&] { return validity_of(printable(connection.file(2)), credentials.chain); });
  diagnosis.check("authority-validity", {"authority-pem"},
                  [&] { return look_at_authorities(connection, credentials); });
  diagnosis.check("clock", {"certificate-pem"}, [&] { return look_at_clock(connection, credentials); });
}

}  // namespace command
