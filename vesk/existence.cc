#include "vesk/existence.h"

#include <algorithm>

#include "vesk/memory_file.h"
#include "vesk/store_names.h"
#include "vesk/stored_certificate.h"
#include "veskd/return_codes.h"

namespace command {
namespace {

// Metadata is what tells of a key without its value.
int look_for_key(const Connection &connection, const std::string &name) {
  KeyMetadataValues values{};
  return connection.call(qRetrieveKeyMetadata, name.c_str(), &values);
}

int look_for_template(const Connection &connection, const std::string &constant) {
  std::uint32_t last = 0;
  std::uint32_t next = 0;
  return connection.call(qGetTemplateDepth, constant.c_str(), &last, &next);
}

int look_for_certificate(const Connection &connection, const std::string &name) {
  const MemoryFile file;
  return connection.call(qExportCertificate, name.c_str(), kCertificateType, file.path().c_str());
}

int look_for_private_key(const Connection &connection, const std::string &name) {
  int status = 0;
  const std::vector<std::string> names =
      store_names([&](LinkedList *list) { status = connection.call(qGetPrivateKeyList_as_ll, list); });
  if (status != 0) return status;
  return std::ranges::count(names, name) > 0 ? 0 : veskd::RC_PRIVATE_KEY_UNKNOWN;
}

int look_for_mirror(const Connection &connection, const std::string &name) {
  char host[257] = {};
  std::uint32_t port = 0;
  return connection.call(qGetMirrorAddress, name.c_str(), host, static_cast<std::uint32_t>(sizeof host), &port);
}

}  // namespace

const NamedKind kKeys = {look_for_key, veskd::RC_KEY_UNKNOWN, veskd::RC_KEY_EXISTS};
const NamedKind kTemplates = {look_for_template, veskd::RC_TEMPLATE_UNKNOWN, veskd::RC_TEMPLATE_EXISTS};
const NamedKind kCertificates = {look_for_certificate, veskd::RC_CERTIFICATE_UNKNOWN, veskd::RC_CERTIFICATE_EXISTS};
const NamedKind kPrivateKeys = {look_for_private_key, veskd::RC_PRIVATE_KEY_UNKNOWN, veskd::RC_PRIVATE_KEY_EXISTS};
// A mirror that is there is given another address.
const NamedKind kMirrors = {look_for_mirror, veskd::RC_MIRROR_UNKNOWN, 0};

int status_of_existing(const Connection &connection, const NamedKind &kind, const std::string &name) {
  return kind.look(connection, name);
}

int status_of_new(const Connection &connection, const NamedKind &kind, const std::string &name) {
  const int status = kind.look(connection, name);
  if (status == 0) return kind.exists;
  return status == kind.unknown ? 0 : status;
}

}  // namespace command
