// The store's schema, one migration per version. A store of an earlier version is brought forward when it is opened.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "veskd/database.h"
#include "veskd/mirror_schema.h"

namespace veskd {

inline constexpr std::array kMigrations = {
    // 1. A name, and a template's constant, is never used twice: deleted_keys and removed templates remember.
    Migration{R"sql(
CREATE TABLE master_key_check (sealed BLOB NOT NULL) STRICT;

CREATE TABLE templates (
  id INTEGER PRIMARY KEY,
  constant TEXT NOT NULL UNIQUE,
  num_generated INTEGER NOT NULL,         -- the last increment is one less
  next_increment INTEGER NOT NULL,
  first_unserved INTEGER NOT NULL,        -- no increment at or behind it was served
  removed_date TEXT
) STRICT;

CREATE TABLE keys (
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL UNIQUE,
  current_instance TEXT NOT NULL,
  size_bits INTEGER NOT NULL,
  creation_date TEXT NOT NULL,
  activation_date TEXT NOT NULL,
  expiration_date TEXT NOT NULL,
  rollover_code TEXT NOT NULL,
  rollover_days TEXT NOT NULL,
  last_rollover_date TEXT NOT NULL DEFAULT '00000000',
  deletable TEXT NOT NULL,
  revoked_date TEXT NOT NULL DEFAULT '00000000',
  mirror TEXT NOT NULL,
  user_group_flag TEXT NOT NULL,
  user_name TEXT NOT NULL,
  group_name TEXT NOT NULL,
  template INTEGER REFERENCES templates,
  increment INTEGER,
  served_date TEXT                        -- of a template's key: when it was handed out
) STRICT;
CREATE UNIQUE INDEX keys_by_increment ON keys (template, increment) WHERE template IS NOT NULL;

CREATE TABLE instances (
  key INTEGER NOT NULL REFERENCES keys ON DELETE CASCADE,
  instance TEXT NOT NULL,
  sealed_value BLOB NOT NULL,
  PRIMARY KEY (key, instance)
) STRICT, WITHOUT ROWID;

CREATE TABLE deleted_keys (
  name TEXT PRIMARY KEY,
  instance TEXT NOT NULL,
  deletion_time TEXT NOT NULL,
  deleted_by TEXT NOT NULL                -- the subject of the client's certificate
) STRICT, WITHOUT ROWID;
)sql"},

    // 2. Most keys have no metadata, and then no row here.
    Migration{R"sql(
CREATE TABLE metadata (
  key INTEGER PRIMARY KEY REFERENCES keys ON DELETE CASCADE,
  fields BLOB NOT NULL                    -- MD01 to MD16, 64 bytes each, without the blanks at the end
) STRICT;
)sql"},

    // 3. What is sealed is a certificate as it was imported, or a private key as DER.
    Migration{R"sql(
CREATE TABLE certificate_store (
  kind TEXT NOT NULL,                     -- 'certificate' or 'private key'
  name TEXT NOT NULL,
  sealed BLOB NOT NULL,
  PRIMARY KEY (kind, name)
) STRICT;
)sql"},

    // 4. Mirrors, and the queues of what they have yet to get.
    Migration{kMirrorTables, kMirrorTriggers, kPostgresMirrorTriggers},

    // 5. The keys under which the store seals, themselves sealed under the master key; and the audit.
    Migration{R"sql(
CREATE TABLE store_keys (purpose TEXT PRIMARY KEY, sealed BLOB NOT NULL) STRICT, WITHOUT ROWID;

CREATE TABLE audit (
  number INTEGER PRIMARY KEY,
  time TEXT NOT NULL,
  caller TEXT NOT NULL,
  fingerprint TEXT NOT NULL,
  peer TEXT NOT NULL,
  tran_id TEXT NOT NULL,
  function TEXT NOT NULL,
  object TEXT NOT NULL,
  return_code INTEGER NOT NULL,
  previous_hash BLOB NOT NULL,
  hash BLOB NOT NULL
) STRICT;

CREATE TABLE audit_head (number INTEGER NOT NULL, hash BLOB NOT NULL, seal BLOB NOT NULL) STRICT;
)sql"},

    // 6. Which of the servers that share the store delivers the queues; see delivery_lease.h.
    Migration{R"sql(
CREATE TABLE delivery_lease (
  holder TEXT NOT NULL,                   -- empty when nobody has it
  beat INTEGER NOT NULL                   -- counted up by the holder as long as it lives
) STRICT;
INSERT INTO delivery_lease VALUES ('', 0);
)sql"}};

// Brings the store to the newest version, within the transaction that was begun with its version. Throws StartError for
// a store of a version that this program does not know.
void migrate(Database &database, std::int64_t version, const std::string &store_name);

}  // namespace veskd
