#include "veskd/roles.h"

#include <fmt/format.h>
#include <openssl/evp.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <asio/ip/address.hpp>
#include <memory>

#include "veskd/certificates.h"
#include "veskd/errors.h"

namespace veskd {
namespace {

constexpr std::size_t kFingerprintDigits = 64;

// As host names and hexadecimal digits are compared.
std::string in_lower_case(std::string text) {
  for (char &c : text)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return text;
}

std::string text_of(const ASN1_STRING *string) {
  return {reinterpret_cast<const char *>(ASN1_STRING_get0_data(string)),
          static_cast<std::size_t>(ASN1_STRING_length(string))};
}

// Empty for what is no address of either kind.
std::string address_of(const ASN1_OCTET_STRING *string) {
  const std::string bytes = text_of(string);
  asio::ip::address_v4::bytes_type four{};
  asio::ip::address_v6::bytes_type six{};
  if (bytes.size() == four.size()) {
    std::copy(bytes.begin(), bytes.end(), four.begin());
    return asio::ip::make_address_v4(four).to_string();
  }
  if (bytes.size() != six.size()) return {};
  std::copy(bytes.begin(), bytes.end(), six.begin());
  return asio::ip::make_address_v6(six).to_string();
}

std::optional<CertificateMark> mark_of(const GENERAL_NAME *name) {
  switch (name->type) {
    case GEN_DNS:
      return CertificateMark(Mark::kDns, in_lower_case(text_of(name->d.dNSName)));
    case GEN_URI:
      return CertificateMark(Mark::kUri, text_of(name->d.uniformResourceIdentifier));
    case GEN_EMAIL:
      return CertificateMark(Mark::kEmail, text_of(name->d.rfc822Name));
    case GEN_IPADD:
      return CertificateMark(Mark::kIp, address_of(name->d.iPAddress));
    default:
      return std::nullopt;
  }
}

std::string normal_fingerprint(std::string text) {
  std::erase(text, ':');
  text = in_lower_case(std::move(text));
  if (text.size() != kFingerprintDigits || text.find_first_not_of("0123456789abcdef") != std::string::npos)
    throw StartError("a SHA-256 fingerprint has 64 hexadecimal digits, with or without colons");
  return text;
}

std::string normal_address(const std::string &text) {
  asio::error_code error;
  const auto address = asio::ip::make_address(text, error);
  if (error) throw StartError(fmt::format("'{}' is no numeric address", text));
  return address.to_string();
}

}  // namespace

bool Scope::has(std::string_view name) const {
  return prefixes_.empty() || std::any_of(prefixes_.begin(), prefixes_.end(),
                                          [&](const std::string &prefix) { return name.starts_with(prefix); });
}

void Scope::add(const Scope &other) {
  if (prefixes_.empty()) return;
  if (other.prefixes_.empty()) return prefixes_.clear();
  prefixes_.insert(prefixes_.end(), other.prefixes_.begin(), other.prefixes_.end());
}

std::vector<CertificateMark> marks_of(X509 *certificate) {
  std::vector<CertificateMark> marks = {{Mark::kSubject, subject_of(certificate)},
                                        {Mark::kFingerprint, fingerprint_of(certificate)}};
  const std::unique_ptr<GENERAL_NAMES, void (*)(GENERAL_NAMES *)> names(
      static_cast<GENERAL_NAMES *>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)),
      GENERAL_NAMES_free);
  for (int i = 0; i < sk_GENERAL_NAME_num(names.get()); ++i)
    if (auto mark = mark_of(sk_GENERAL_NAME_value(names.get(), i))) marks.push_back(std::move(*mark));
  return marks;
}

CertificateMark make_mark(Mark mark, std::string value) {
  switch (mark) {
    case Mark::kDns:
      return {mark, in_lower_case(std::move(value))};
    case Mark::kIp:
      return {mark, normal_address(value)};
    case Mark::kFingerprint:
      return {mark, normal_fingerprint(std::move(value))};
    default:
      return {mark, std::move(value)};
  }
}

std::optional<Scope> Permissions::scope_for(Roles roles) const {
  std::optional<Scope> all;
  for (const auto &[role, scope] : granted_) {
    if ((role & roles) == 0) continue;
    if (all) all->add(scope);
    if (!all) all = scope;
  }
  return all;
}

Permissions RoleRules::permissions_of(X509 *certificate) const {
  Permissions permissions;
  const std::vector<CertificateMark> marks = marks_of(certificate);
  for (const RoleRule &rule : rules_) {
    if (!rule.mark || std::find(marks.begin(), marks.end(), *rule.mark) != marks.end())
      permissions.granted_.emplace_back(rule.role, rule.scope);
  }
  return permissions;
}

RoleRules development_roles() {
  RoleRules rules;
  rules.add({std::nullopt, kAdministrator, Scope()});
  rules.add({CertificateMark(Mark::kUri, kMirrorRole), kMirror, Scope()});
  return rules;
}

}  // namespace veskd
