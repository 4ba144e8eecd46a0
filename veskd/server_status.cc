#include "veskd/server_status.h"

#include <algorithm>

namespace veskd {

namespace {

std::vector<AuditEntry> last_audit_entries(Database &database) {
  std::int64_t last = 0;
  {
    Query query(database, "SELECT max(number) FROM audit");
    if (query.next()) last = query.number(0);
  }
  std::vector<AuditEntry> entries;
  for_each_audit_entry(database, last - kMaxAuditEntries + 1,
                       [&](const AuditEntry &entry) { entries.push_back(entry); });
  std::reverse(entries.begin(), entries.end());
  return entries;
}

}  // namespace

bool all_hold(const std::vector<Check> &checks) {
  return std::all_of(checks.begin(), checks.end(), [](const Check &check) { return check.holds(); });
}

std::vector<CertificateStatus> status_of(const std::vector<NamedCertificate> &certificates) {
  std::vector<CertificateStatus> status;
  for (const NamedCertificate &named : certificates) {
    X509 *certificate = named.certificate.get();
    status.push_back({named.name, subject_of(certificate), end_of(certificate), days_left(certificate)});
  }
  return status;
}

std::vector<MirrorStatus> mirrors_in(StoreConnection &store) {
  std::vector<MirrorStatus> mirrors;
  for (const std::int64_t id : list_mirrors(store)) {
    // One that was just removed is left out.
    if (const auto mirror = find_mirror(store, id)) mirrors.push_back({*mirror, queue_size(store, *mirror)});
  }
  return mirrors;
}

StoreStatus status_of(StoreConnection &store) {
  StoreStatus status;
  status.mirrors = mirrors_in(store);
  for (const Template &family : list_templates(store, kMaxTemplates + 1))
    status.templates.push_back({family, !find_next_key(store, family)});
  status.has_more_templates = status.templates.size() > kMaxTemplates;
  if (status.has_more_templates) status.templates.pop_back();
  status.audit = last_audit_entries(store.database);
  return status;
}

}  // namespace veskd
