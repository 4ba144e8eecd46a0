// Works off a file of names, several at a time, and goes on where an earlier run has ended.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "vesk/bulk_file.h"
#include "vesk/connection.h"
#include "vesk/options.h"
#include "vesk/settings.h"

namespace command {

struct BulkOptions {
  std::optional<std::string> from;
  std::optional<std::string> jobs;
  bool dry_run = false;  // the task changes nothing; no journal is kept
};

void add_bulk_options(Command &command, BulkOptions &options);

// Refuses names in arguments beside a file of them, and neither.
void require_one_source(bool has_names, const BulkOptions &options);

struct BulkTask {
  const char *words;  // as in "key create"
  const char *done;   // what a name is called that is done, as in "created key"
  int already;        // the return code by which the server says that it is done already; 0 for none
  std::function<int(const BulkItem &)> run;  // returns the status; threads call it at the same time
};

// Ends with a Failure when not all is done: kPartly when some is.
void run_bulk(const Settings &settings, const Connection &connection, const BulkOptions &options,
              const std::vector<BulkItem> &items, const BulkTask &task);

}  // namespace command
