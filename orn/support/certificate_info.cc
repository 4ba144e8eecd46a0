// Certificate summaries. A certificate is hostile text: whatever could act on a terminal, break a line or pass for more
// than it is gets escaped.
#include <arpa/inet.h>
#include <openssl/ec.h>
#include <openssl/objects.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <span>
#include <string>
#include <string_view>

#include "orn/support.h"
#include "orn/support/openssl_ptr.h"
#include "orn/support/utf8.h"

namespace orn {
namespace {

std::string hexadecimal(std::span<const unsigned char> bytes, const char *separator) {
  std::string text;
  std::array<char, 3> digits{};
  for (unsigned char byte : bytes) {
    std::snprintf(digits.data(), digits.size(), "%02X", static_cast<unsigned>(byte));
    if (!text.empty()) text += separator;
    text += digits.data();
  }
  return text;
}

std::span<const unsigned char> bytes_of(const ASN1_STRING *string) {
  return {ASN1_STRING_get0_data(string), static_cast<std::size_t>(ASN1_STRING_length(string))};
}

std::string printed(const X509_NAME *name, unsigned long flags) {
  BioPtr bio(BIO_new(BIO_s_mem()));
  if (!bio || X509_NAME_print_ex(bio.get(), name, 0, flags) < 0) return {};
  char *data = nullptr;
  long length = BIO_get_mem_data(bio.get(), &data);
  return {data, static_cast<std::size_t>(length)};
}

std::string name_text(const X509_NAME *name) {
  constexpr unsigned long kUtf8 = XN_FLAG_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
  // A name that is not in the encoding that it claims is shown byte by byte.
  constexpr unsigned long kBytes = XN_FLAG_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_UTF8_CONVERT);
  std::string text = printed(name, kUtf8);
  return text.empty() ? printed(name, kBytes) : text;
}

std::string serial_text(const X509 *certificate) {
  BignumPtr number(ASN1_INTEGER_to_BN(X509_get0_serialNumber(certificate), nullptr));
  char *digits = number ? BN_bn2hex(number.get()) : nullptr;
  std::string text = digits ? digits : "";
  OPENSSL_free(digits);
  return text;
}

std::string time_text(const ASN1_TIME *time) {
  tm utc{};
  if (!time || ASN1_TIME_to_tm(time, &utc) != 1) return {};
  std::array<char, 32> text{};
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc)};
}

std::string address_text(std::span<const unsigned char> octets) {
  constexpr std::size_t kIpv4Bytes = 4;
  constexpr std::size_t kIpv6Bytes = 16;
  std::array<char, INET6_ADDRSTRLEN> text{};
  if (octets.size() == kIpv4Bytes) return inet_ntop(AF_INET, octets.data(), text.data(), text.size());
  if (octets.size() == kIpv6Bytes) return inet_ntop(AF_INET6, octets.data(), text.data(), text.size());
  return hexadecimal(octets, "");
}

// An entry cannot pass for two.
std::string entry_text(const ASN1_STRING *string) {
  std::string text;
  for (unsigned char byte : bytes_of(string)) {
    if (byte == ',' || byte == '\\') {
      text += "\\" + hexadecimal({&byte, 1}, "");
    } else {
      text += static_cast<char>(byte);
    }
  }
  return text;
}

std::string alternative_name_text(const GENERAL_NAME *name) {
  switch (name->type) {
    case GEN_DNS:
      return "DNS:" + entry_text(name->d.dNSName);
    case GEN_IPADD:
      return "IP:" + address_text(bytes_of(name->d.iPAddress));
    case GEN_EMAIL:
      return "email:" + entry_text(name->d.rfc822Name);
    case GEN_URI:
      return "URI:" + entry_text(name->d.uniformResourceIdentifier);
    case GEN_DIRNAME:
      return "directory name:" + name_text(name->d.directoryName);
    default:
      return "other name";
  }
}

std::string names_text(const X509 *certificate) {
  GeneralNamesPtr names(
      static_cast<GENERAL_NAMES *>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
  std::string text;
  for (int i = 0; names && i < sk_GENERAL_NAME_num(names.get()); ++i) {
    if (!text.empty()) text += ", ";
    text += alternative_name_text(sk_GENERAL_NAME_value(names.get(), i));
  }
  return text;
}

std::string curve_text(const EVP_PKEY *key) {
  std::array<char, 64> group{};
  if (EVP_PKEY_get_group_name(key, group.data(), group.size(), nullptr) != 1) return {};
  const char *nist_name = EC_curve_nid2nist(OBJ_sn2nid(group.data()));
  return nist_name ? nist_name : group.data();
}

std::string key_text(X509 *certificate) {
  const EVP_PKEY *key = X509_get0_pubkey(certificate);
  if (!key) return {};
  if (EVP_PKEY_is_a(key, "EC")) {
    const std::string curve = curve_text(key);
    return curve.empty() ? "EC" : "EC " + curve;
  }
  const char *type = EVP_PKEY_get0_type_name(key);
  return std::string(type ? type : "") + " " + std::to_string(EVP_PKEY_get_bits(key));
}

std::string fingerprint_text(const X509 *certificate) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  if (X509_digest(certificate, EVP_sha256(), digest.data(), &length) != 1) return {};
  return hexadecimal({digest.data(), length}, ":");
}

template <std::size_t kSize>
void put(char (&field)[kSize], std::string_view text) {
  std::string escaped = escaped_utf8(text, kSize - 1);
  std::memcpy(field, escaped.data(), escaped.size());
}

template <std::size_t kSize>
void add_line(std::string &lines, const char *label, const char (&field)[kSize]) {
  if (!lines.empty()) lines += '\n';
  lines += label;
  lines.append(field, strnlen(field, kSize));
}

std::string text_of(const CertificateInfo &info) {
  std::string lines;
  add_line(lines, "Subject: ", info.subject);
  add_line(lines, "Issuer: ", info.issuer);
  add_line(lines, "Serial number: ", info.serialNumber);
  add_line(lines, "Not before: ", info.notBefore);
  add_line(lines, "Not after: ", info.notAfter);
  add_line(lines, "Names: ", info.names);
  add_line(lines, "Key: ", info.key);
  add_line(lines, "SHA-256 fingerprint: ", info.sha256Fingerprint);
  return lines;
}

}  // namespace
}  // namespace orn

void X509_get_info(X509 *certificate, CertificateInfo *info) {
  if (!info) return;
  std::memset(info, 0, sizeof *info);
  if (!certificate) return;
  orn::CleanErrorQueue queue;
  try {
    orn::put(info->subject, orn::name_text(X509_get_subject_name(certificate)));
    orn::put(info->issuer, orn::name_text(X509_get_issuer_name(certificate)));
    orn::put(info->serialNumber, orn::serial_text(certificate));
    orn::put(info->notBefore, orn::time_text(X509_get0_notBefore(certificate)));
    orn::put(info->notAfter, orn::time_text(X509_get0_notAfter(certificate)));
    orn::put(info->names, orn::names_text(certificate));
    orn::put(info->key, orn::key_text(certificate));
    orn::put(info->sha256Fingerprint, orn::fingerprint_text(certificate));
  } catch (const std::exception &) {
    // Without memory the rest stays empty.
  }
}

char *CertificateInfo_to_string(const CertificateInfo *info) {
  try {
    return strdup(info ? orn::text_of(*info).c_str() : "");
  } catch (const std::exception &) {
    return nullptr;
  }
}
