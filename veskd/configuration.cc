#include "veskd/configuration.h"

#include <fmt/format.h>

#include "veskd/configuration_section.h"
#include "veskd/files.h"
#include "veskd/sealing.h"

namespace veskd {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr int kMaxPort = 65535;
constexpr std::size_t kMaxConnections = 100000;
constexpr std::size_t kMaxPageBytes = 99999;  // what the count of a page can tell
constexpr std::size_t kMaxThreads = 1024;

void read_listen(Section section, ServerOptions &server) {
  section.text("address", server.address);
  section.check("address", [&] { require_address(server.address); });
  section.require("port");
  section.number("port", server.port, 0, kMaxPort);
  section.end();
}

// The three files that a connection needs, which also have to fit one another.
void read_tls_files(Section &section, TlsFiles &files) {
  const bool all_there =
      section.file("certificate", files.certificate_chain) && section.private_file("private_key", files.private_key);
  if (!all_there || files.authority.empty()) return;
  try {
    make_mirror_tls_context(files);
  } catch (const FileError &error) {
    section.mistake(error.file() == files.certificate_chain ? "certificate" : "private_key", error.what());
  }
}

void read_tickets(Section section, TicketOptions &tickets) {
  section.flag("enabled", tickets.enabled);
  if (section.private_file("key_file", tickets.key_file))
    section.check("key_file", [&] { check_ticket_key_file(tickets.key_file); });
  section.duration("rotate", tickets.rotate, 1s, 7 * 24h);
  section.end();
}

void read_tls(Section section, TlsFiles &files, TicketOptions &tickets) {
  for (const char *key : {"certificate", "private_key", "client_authority"}) section.require(key);
  if (section.file("client_authority", files.authority))
    section.check("client_authority", [&] { check_authority(files.authority); });
  read_tls_files(section, files);
  read_tickets(section.section("tickets"), tickets);
  section.end();
}

void read_mirrors(Section section, const fs::path &authority, std::optional<TlsFiles> &files) {
  if (!section.is_there()) return;
  for (const char *key : {"certificate", "private_key"}) section.require(key);
  files.emplace().authority = authority;
  read_tls_files(section, *files);
  section.end();
}

// Only a configuration that says so in as many words shows the server's state to the network.
void read_watch(Section section, std::optional<WatchOptions> &watch) {
  if (!section.is_there()) return;
  WatchOptions &options = watch.emplace();
  bool beyond_loopback = false;
  section.flag("beyond_loopback", beyond_loopback);
  section.text("address", options.address);
  section.check("address", [&] {
    require_address(options.address);
    if (!beyond_loopback && !is_loopback(options.address))
      throw StartError(
          fmt::format("'{}' is no loopback address: set beyond_loopback to let others watch without "
                      "encryption and without saying who they are",
                      options.address));
  });
  section.require("port");
  section.number("port", options.port, 0, kMaxPort);
  section.end();
}

// Of a store in a database, it is seen at the start whether it needs the master key.
void read_store(Section &root, ServiceSettings &settings) {
  root.store("store", settings.store);
  root.path("master_key", settings.master_key);
  const StoreAddress &store = settings.store;
  if (!store.is_shared()) root.check("store", [&] { require_directory_of(store.text()); });
  root.check("master_key", [&] {
    const bool is_needed = !store.is_shared() && fs::exists(store.text());
    if (is_needed || fs::exists(settings.master_key)) MasterKey::read(settings.master_key);
    require_directory_of(settings.master_key);
  });
  settings.server.machine.store_directory = settings.master_key.parent_path();
}

void read_limits(Section section, Limits &limits) {
  section.number("connections", limits.max_connections, 1, kMaxConnections);
  section.number("threads", limits.num_threads, 0, kMaxThreads);
  section.number("page_bytes", limits.max_page_bytes, 1, kMaxPageBytes);
  section.duration("handshake", limits.handshake, 1ms, 1h);
  section.duration("request", limits.request, 1ms, 1h);
  section.duration("begin", limits.begin, 1ms, 1h);
  section.duration("ask", limits.ask, 1ms, 1h);
  section.duration("reply", limits.reply, 1ms, 1h);
  section.duration("list", limits.list, 1ms, 24h);
  section.duration("closing", limits.closing, 1ms, 1h);
  section.duration("stopping", limits.stopping, 1ms, 1h);
  section.end();
}

void read_log(Section section, LogOptions &log) {
  section.choice<LogForm>("form", log.form, {{"text", LogForm::kText}, {"json", LogForm::kJson}});
  section.choice<LogLevel>("level", log.level,
                           {{"error", LogLevel::kError}, {"warning", LogLevel::kWarning}, {"info", LogLevel::kInfo}});
  section.end();
}

struct MarkKey {
  const char *key;
  Mark mark;
};

constexpr MarkKey kMarkKeys[] = {{"subject", Mark::kSubject}, {"dns", Mark::kDns}, {"uri", Mark::kUri},
                                 {"email", Mark::kEmail},     {"ip", Mark::kIp},   {"fingerprint", Mark::kFingerprint}};

void read_role(Section section, RoleRules &rules) {
  RoleRule rule;
  section.require("role");
  section.choice<Role>("role", rule.role,
                       {{"storage-client", kStorageClient},
                        {"administrator", kAdministrator},
                        {"auditor", kAuditor},
                        {"mirror", kMirror}});
  int num_marks = 0;
  for (const MarkKey &row : kMarkKeys) {
    std::string value;
    section.text(row.key, value);
    num_marks += section.check(row.key, [&] { rule.mark = make_mark(row.mark, value); }) ? 1 : 0;
  }
  if (num_marks != 1) section.mistake("role", "needs one of subject, dns, uri, email, ip and fingerprint, and no more");
  std::vector<std::string> prefixes;
  section.texts("prefixes", prefixes);
  if (!prefixes.empty() && rule.role != kStorageClient) section.mistake("prefixes", "are for storage clients");
  rule.scope = Scope(std::move(prefixes));
  rules.add(std::move(rule));
  section.end();
}

}  // namespace

ServiceSettings read_configuration(const fs::path &file) {
  ConfigurationFile configuration(file);
  Section root = configuration.root();
  ServiceSettings settings;
  root.directory("directory");
  root.path("ready_file", settings.ready_file);
  root.check("ready_file", [&] { require_directory_of(settings.ready_file); });
  root.file("sensor_file", settings.server.machine.sensor_file);
  for (const char *section : {"listen", "tls", "store", "master_key"}) root.require(section);
  read_listen(root.section("listen"), settings.server);
  read_tls(root.section("tls"), settings.server.tls, settings.server.tickets);
  read_mirrors(root.section("mirrors"), settings.server.tls.authority, settings.mirror_tls);
  read_store(root, settings);
  read_limits(root.section("limits"), settings.server.limits);
  read_log(root.section("log"), settings.log);
  read_watch(root.section("watch"), settings.watch);
  for (Section &section : root.sections("roles")) read_role(std::move(section), settings.server.roles);
  root.end();
  configuration.throw_mistakes();
  return settings;
}

}  // namespace veskd
