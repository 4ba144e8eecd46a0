// Who may do what: a client's certificate gives it roles, and the handler table says which roles a transaction is for.
#pragma once

#include <openssl/x509.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace veskd {

enum Role : unsigned {
  kStorageClient = 1,  // makes keys and is served them
  kAdministrator = 2,
  kAuditor = 4,  // sees everything but key values, and changes nothing
  kMirror = 8,   // another server
};

// Any of several, as bits.
using Roles = unsigned;

// The names of keys, and of templates' constants, that a client may use.
class Scope {
 public:
  // All names that begin with one of the prefixes; without prefixes, all names.
  explicit Scope(std::vector<std::string> prefixes = {}) : prefixes_(std::move(prefixes)) {}

  bool has(std::string_view name) const;
  void add(const Scope &other);

 private:
  std::vector<std::string> prefixes_;
};

// What a certificate is recognised by. Its subject is in the form of RFC 2253, as the log has it; its SHA-256
// fingerprint is 64 lower-case hexadecimal digits.
enum class Mark { kSubject, kDns, kUri, kEmail, kIp, kFingerprint };
using CertificateMark = std::pair<Mark, std::string>;

// All that the certificate has.
std::vector<CertificateMark> marks_of(X509 *certificate);

// The form in which a certificate has it. Throws StartError for what no certificate can have.
CertificateMark make_mark(Mark mark, std::string value);

// A role for those who have the mark; for everybody when there is none.
struct RoleRule {
  std::optional<CertificateMark> mark;
  Role role = kStorageClient;
  Scope scope;
};

// What the rules that fit a client give it, together.
class Permissions {
 public:
  bool are_none() const { return granted_.empty(); }

  // The names over which the client may do what these roles may; nothing when it has none of them.
  std::optional<Scope> scope_for(Roles roles) const;

 private:
  friend class RoleRules;
  std::vector<std::pair<Role, Scope>> granted_;
};

// Without rules nobody may do anything.
class RoleRules {
 public:
  void add(RoleRule rule) { rules_.push_back(std::move(rule)); }
  bool are_none() const { return rules_.empty(); }
  Permissions permissions_of(X509 *certificate) const;

 private:
  std::vector<RoleRule> rules_;
};

// Every certificate of the authority is an administrator's, and one with the mirror role also a mirror's.
RoleRules development_roles();

}  // namespace veskd
