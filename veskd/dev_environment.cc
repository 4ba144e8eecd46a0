#include "veskd/dev_environment.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <system_error>

#include "veskd/certificates.h"
#include "veskd/errors.h"

namespace veskd {
namespace {

namespace fs = std::filesystem;

constexpr Days kAuthorityValidity{3652};
constexpr Days kLeafValidity{365};

// A certificate and its private key.
struct Pair {
  fs::path certificate;
  fs::path key;
};

Pair pair_named(const fs::path &directory, std::string_view name) {
  return {directory / fmt::format("{}.pem", name), directory / fmt::format("{}-key.pem", name)};
}

// Nothing when neither file is there; half of a pair is nothing to guess about.
std::optional<Identity> read_pair(const Pair &pair) {
  const bool has_certificate = fs::exists(pair.certificate);
  const bool has_key = fs::exists(pair.key);
  if (!has_certificate && !has_key) return std::nullopt;
  if (has_certificate && has_key) return read_identity(pair.certificate, pair.key);
  const fs::path &present = has_certificate ? pair.certificate : pair.key;
  const fs::path &missing = has_certificate ? pair.key : pair.certificate;
  throw StartError(fmt::format("{} is there but {} is missing: restore it, or remove {} so that both are made anew",
                               present.string(), missing.string(), present.string()));
}

// The key first: a certificate in place means that its key is. A key alone does not stay.
void write_pair(const Pair &pair, const Identity &identity, const std::string &certificates) {
  try {
    replace_file(pair.key, private_key_pem(identity.key.get()).text(), kPrivateMode);
    replace_file(pair.certificate, certificates, kPublicMode);
  } catch (const StartError &) {
    std::error_code ignored;
    if (!fs::exists(pair.certificate, ignored)) fs::remove(pair.key, ignored);
    throw;
  }
}

Identity open_authority(const Pair &pair, const Log &log) {
  if (std::optional<Identity> authority = read_pair(pair)) {
    if (!is_valid_now(authority->certificate.get()))
      throw StartError(
          fmt::format("the authority {} is not valid today: remove it and {}; new ones are made, and every "
                      "client needs the new certificates",
                      pair.certificate.string(), pair.key.string()));
    return std::move(*authority);
  }
  Identity authority = make_authority("veskd development authority", kAuthorityValidity);
  write_pair(pair, authority, certificate_pem(authority.certificate.get()));
  log.info(fmt::format("made the authority {}", pair.certificate.string()));
  return authority;
}

// An authority that is there already stays, and must be the other server's.
void copy_authority(const fs::path &from, const fs::path &to, const Log &log) {
  const Pair theirs = pair_named(from, "authority");
  const Pair ours = pair_named(to, "authority");
  const std::optional<Identity> authority = read_pair(theirs);
  if (!authority)
    throw StartError(fmt::format("{} is not there: --authority-from names the directory of a server that was started",
                                 theirs.certificate.string()));
  if (const std::optional<Identity> own = read_pair(ours)) {
    if (X509_cmp(own->certificate.get(), authority->certificate.get()) == 0) return;
    throw StartError(fmt::format("{} is another authority than {}: the authority of a directory does not change",
                                 ours.certificate.string(), theirs.certificate.string()));
  }
  write_pair(ours, *authority, certificate_pem(authority->certificate.get()));
  log.info(fmt::format("copied the authority {}", theirs.certificate.string()));
}

// A leaf that ran out, or that does not have every name asked for, is made anew.
bool is_usable(const Identity &leaf, const LeafRequest &request) {
  return is_valid_now(leaf.certificate.get()) &&
         std::all_of(request.names.begin(), request.names.end(),
                     [&](const std::string &name) { return is_for_host(leaf.certificate.get(), name); });
}

void open_leaf(const Pair &pair, const Identity &authority, const LeafRequest &request, const Log &log) {
  if (const std::optional<Identity> leaf = read_pair(pair)) {
    if (!is_issued_by(leaf->certificate.get(), authority.certificate.get()))
      throw StartError(
          fmt::format("{} was not issued by the authority of this directory: remove it and {}; new ones are "
                      "made",
                      pair.certificate.string(), pair.key.string()));
    if (is_usable(*leaf, request)) return;
  }
  const Identity leaf = make_leaf(authority, request, kLeafValidity);
  write_pair(pair, leaf, certificate_pem(leaf.certificate.get()) + certificate_pem(authority.certificate.get()));
  log.info(fmt::format("made the certificate {}", pair.certificate.string()));
}

// As a shell reads it back: quoted only when it must be.
std::string shell_word(const std::string &text) {
  constexpr std::string_view kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-+=:@%,";
  if (!text.empty() && text.find_first_not_of(kPlain) == std::string::npos) return text;
  std::string word = "'";
  for (const char c : text) word += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return word + "'";
}

}  // namespace

DevEnvironment::DevEnvironment(const fs::path &directory, const std::vector<std::string> &host_names, const Log &log,
                               const fs::path &authority_from)
    : directory_(make_directory(directory)), lock_(lock_file(directory_ / "veskd.lock")) {
  if (!authority_from.empty()) copy_authority(authority_from, directory_, log);
  make_certificates(host_names, log);
}

void DevEnvironment::make_certificates(const std::vector<std::string> &host_names, const Log &log) {
  LeafRequest server{"veskd", Purpose::kServer, {"localhost", "127.0.0.1", "::1"}};
  server.names.insert(server.names.end(), host_names.begin(), host_names.end());
  const LeafRequest client{"veskd development client", Purpose::kClient, {}};
  const LeafRequest mirror{"veskd development mirror", Purpose::kClient, {}, true};
  const Identity authority = open_authority(pair_named(directory_, "authority"), log);
  open_leaf(pair_named(directory_, "server"), authority, server, log);
  open_leaf(pair_named(directory_, "client"), authority, client, log);
  open_leaf(pair_named(directory_, "mirror"), authority, mirror, log);
}

TlsFiles DevEnvironment::tls_files() const {
  return {directory_ / "server.pem", directory_ / "server-key.pem", directory_ / "authority.pem"};
}

TlsFiles DevEnvironment::mirror_tls_files() const {
  return {directory_ / "mirror.pem", directory_ / "mirror-key.pem", directory_ / "authority.pem"};
}

std::string DevEnvironment::next_command(const std::string &host, std::uint16_t port) const {
  return fmt::format("vesk --host {} --port {} --certificates {} ping", host, port, shell_word(directory_.string()));
}

std::vector<std::string> DevEnvironment::context_words(const std::string &name, const std::string &host,
                                                       std::uint16_t port) const {
  return {"vesk",           "context",           "add",  name, "--host", host, "--port", std::to_string(port),
          "--certificates", directory_.string(), "--use"};
}

std::string DevEnvironment::context_command(const std::string &name, const std::string &host,
                                            std::uint16_t port) const {
  std::string command;
  for (const std::string &word : context_words(name, host, port))
    command += fmt::format("{}{}", command.empty() ? "" : " ", shell_word(word));
  return command;
}

}  // namespace veskd
