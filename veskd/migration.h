// A step from one version of the store's schema to the next.
#pragma once

namespace veskd {

struct Migration {
  // The tables, in SQLite's dialect. Other engines take the words for what they call the same.
  const char *tables;
  // Triggers, which have nothing in common.
  const char *sqlite_triggers = "";
  const char *postgres_triggers = "";
};

}  // namespace veskd
