// How the server is, at one moment: what the status page shows and the metrics measure. Nothing in it is secret.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "veskd/audit_records.h"
#include "veskd/certificates.h"
#include "veskd/mirror_records.h"
#include "veskd/sensors.h"
#include "veskd/store.h"
#include "veskd/template_records.h"

namespace veskd {

// Something that has to hold for the server to do its work.
struct Check {
  std::string name;
  std::string fault;  // empty when it holds

  bool holds() const { return fault.empty(); }
};

bool all_hold(const std::vector<Check> &checks);

// One that the server shows, or trusts.
struct NamedCertificate {
  const char *name;
  bool serves_clients;  // no client is served without it
  CertificatePtr certificate;
};

struct CertificateStatus {
  std::string name;
  std::string subject;
  std::string end;
  double days_left;
};

std::vector<CertificateStatus> status_of(const std::vector<NamedCertificate> &certificates);

struct MirrorStatus {
  Mirror mirror;
  std::int64_t num_waiting;  // changes in its queue
};

std::vector<MirrorStatus> mirrors_in(StoreConnection &store);

struct TemplateStatus {
  Template family;
  bool is_full;  // every key was served
};

// What the store tells.
struct StoreStatus {
  std::vector<MirrorStatus> mirrors;
  std::vector<TemplateStatus> templates;  // the first kMaxTemplates
  bool has_more_templates = false;
  std::vector<AuditEntry> audit;  // the last kMaxAuditEntries, newest first
};

inline constexpr std::int64_t kMaxTemplates = 200;
inline constexpr std::int64_t kMaxAuditEntries = 20;

StoreStatus status_of(StoreConnection &store);

struct ServerStatus {
  std::string time;
  std::string address;  // where keys are served
  std::vector<Check> checks;
  std::vector<CertificateStatus> certificates;
  Store::Load load;
  // None when the store cannot be read.
  std::optional<StoreStatus> store;
  // None when the store or the sensor file cannot be read.
  std::optional<std::vector<Reading>> readings;
};

}  // namespace veskd
