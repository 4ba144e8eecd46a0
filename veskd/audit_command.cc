// veskd audit: shows what was done to the keys of a store, and checks that nothing was taken from it.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "veskd/audit_records.h"
#include "veskd/commands.h"
#include "veskd/errors.h"
#include "veskd/store_option.h"

namespace veskd {
namespace {

struct Options {
  StoreOption store;
  std::int64_t from = 1;
  std::string output = "table";
  std::string contains;
};

void print_line(const AuditEntry &entry) {
  const AuditEvent &event = entry.event;
  std::cout << fmt::format("{}\t{}\t{:04}\t{}\t{}\t{}\t{}\t{}\t{}\n", entry.number, entry.time, event.return_code,
                           event.tran_id, event.function, event.object, event.caller, event.fingerprint, event.peer);
}

std::string json_of(const AuditEntry &entry) {
  const AuditEvent &event = entry.event;
  const nlohmann::json object = {{"number", entry.number},
                                 {"time", entry.time},
                                 {"return_code", event.return_code},
                                 {"transaction", event.tran_id},
                                 {"function", event.function},
                                 {"object", event.object},
                                 {"caller", event.caller},
                                 {"fingerprint", event.fingerprint},
                                 {"peer", event.peer},
                                 {"previous_hash", hexadecimal(entry.previous_hash)},
                                 {"hash", hexadecimal(entry.hash)}};
  return object.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
}

void print_json(Database &database, std::int64_t from) {
  std::cout << "{\"entries\":[";
  const char *separator = "\n";
  for_each_audit_entry(database, from, [&](const AuditEntry &entry) {
    std::cout << separator << json_of(entry);
    separator = ",\n";
  });
  std::cout << "\n]}\n";
}

void require_written() {
  if (!std::cout.flush()) throw StartError("standard output cannot be written");
}

void show(const Options &options) {
  StoreFile store(options.store.files(), DatabaseUse::kReads);
  if (options.output == "json") {
    print_json((*store).database, options.from);
  } else {
    for_each_audit_entry((*store).database, options.from, print_line);
  }
  require_written();
}

std::string head_text(std::int64_t number, const AuditHash &hash) {
  return fmt::format("{}:{}", number, hexadecimal(hash));
}

// Whether the audit still goes on from a head that was noted down earlier.
bool contains_head(Database &database, const std::string &head) {
  bool contained = head == head_text(0, {});
  for_each_audit_entry(database, std::strtoll(head.c_str(), nullptr, 10), [&](const AuditEntry &entry) {
    contained = contained || head == head_text(entry.number, entry.hash);
  });
  return contained;
}

void verify(const Options &options) {
  const StoreFiles files = options.store.files();
  StoreFile store(files, DatabaseUse::kReads);
  std::size_t num_faults = 0;
  const auto report = [&](const std::string &fault) {
    ++num_faults;
    std::cout << fault << '\n';
  };
  const AuditHead head = verify_audit(*store, report);
  if (!options.contains.empty() && !contains_head((*store).database, options.contains))
    report(fmt::format("there is no entry {}", options.contains));
  if (num_faults == 0) std::cout << fmt::format("whole up to {}\n", head_text(head.number, head.hash));
  require_written();
  if (num_faults != 0) throw StartError(fmt::format("the audit of {} is not whole", files.store.name()));
}

CLI::App *add_command(CLI::App &audit, const char *name, const char *text, const std::shared_ptr<Options> &options,
                      void (*run)(const Options &)) {
  CLI::App *command = audit.add_subcommand(name, text);
  options->store.add_to(*command);
  command->callback([options, run] { run(*options); });
  return command;
}

}  // namespace

void add_audit_command(CLI::App &app) {
  CLI::App *audit = app.add_subcommand("audit", "Tell what was done to the keys, while a server runs or not");
  audit->require_subcommand(1);
  const auto options = std::make_shared<Options>();
  CLI::App *show_command = add_command(*audit, "show", "Show the entries, oldest first", options, show);
  show_command->add_option("--from", options->from, "number of the first entry to show");
  show_command->add_option("--output", options->output, "table (fields with tabs between them) or json")
      ->check(CLI::IsMember({"table", "json"}));
  CLI::App *verify_command =
      add_command(*audit, "verify", "Check that no entry was changed or removed, and print the head", options, verify);
  verify_command->add_option("--contains", options->contains, "a head that was printed earlier: find it in the audit");
}

}  // namespace veskd
