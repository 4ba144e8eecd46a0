// The tables of replication, and the triggers that fill its queues.
//
// A change of a mirror key is queued by the store itself, in the same transaction, so that no handler can forget it.
// The queue names the key; what is sent is the key as it is when its turn comes. What came from a mirror is not queued:
// while such a change is applied, receiving is 1.
#pragma once

namespace veskd {

inline constexpr const char *kMirrorTables = R"sql(
CREATE TABLE replication (
  origin TEXT NOT NULL,                   -- tells this store's changes from others'; new at each start
  receiving INTEGER NOT NULL
) STRICT;
INSERT INTO replication VALUES ('', 0);

CREATE TABLE mirrors (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  name TEXT NOT NULL UNIQUE,
  host TEXT NOT NULL,
  port INTEGER NOT NULL,
  status TEXT NOT NULL DEFAULT 'N',
  fault_count INTEGER NOT NULL DEFAULT 0,
  last_fault INTEGER NOT NULL DEFAULT 0,  -- its return code, 0 when there was no reply
  data_hash_status TEXT NOT NULL DEFAULT '?',
  num_keys_here INTEGER NOT NULL DEFAULT 0,
  num_keys_there INTEGER NOT NULL DEFAULT 0,
  compared_time TEXT NOT NULL DEFAULT '-',
  attempt INTEGER NOT NULL DEFAULT 0      -- counted up to have the mirror tried at once
) STRICT;

CREATE TABLE replication_queue (
  number INTEGER PRIMARY KEY AUTOINCREMENT,
  mirror INTEGER NOT NULL REFERENCES mirrors ON DELETE CASCADE,
  origin TEXT NOT NULL,
  key_name TEXT NOT NULL
) STRICT;
CREATE INDEX replication_queue_by_mirror ON replication_queue (mirror, number);

CREATE TABLE applied_changes (            -- per queue of another server: the last change that was applied
  origin TEXT PRIMARY KEY,
  number INTEGER NOT NULL
) STRICT, WITHOUT ROWID;

CREATE TABLE deleted_mirror_keys (name TEXT PRIMARY KEY) STRICT, WITHOUT ROWID;
)sql";

inline constexpr const char *kMirrorTriggers = R"sql(
CREATE TRIGGER mirror_key_created AFTER INSERT ON keys
WHEN NEW.mirror = 'Y' AND (SELECT receiving FROM replication) = 0 BEGIN
  INSERT INTO replication_queue (mirror, origin, key_name) SELECT id, origin, NEW.name FROM mirrors, replication;
END;

CREATE TRIGGER mirror_key_changed AFTER UPDATE OF deletable, activation_date, expiration_date, revoked_date,
  current_instance, last_rollover_date, mirror ON keys
WHEN NEW.mirror = 'Y' AND (SELECT receiving FROM replication) = 0 BEGIN
  INSERT INTO replication_queue (mirror, origin, key_name) SELECT id, origin, NEW.name FROM mirrors, replication;
END;

CREATE TRIGGER mirror_key_deletion_kept AFTER DELETE ON keys WHEN OLD.mirror = 'Y' BEGIN
  INSERT OR IGNORE INTO deleted_mirror_keys VALUES (OLD.name);
END;

CREATE TRIGGER mirror_key_deleted AFTER DELETE ON keys
WHEN OLD.mirror = 'Y' AND (SELECT receiving FROM replication) = 0 BEGIN
  INSERT INTO replication_queue (mirror, origin, key_name) SELECT id, origin, OLD.name FROM mirrors, replication;
END;

CREATE TRIGGER mirror_metadata_written AFTER INSERT ON metadata
WHEN (SELECT mirror FROM keys WHERE id = NEW.key) = 'Y' AND (SELECT receiving FROM replication) = 0 BEGIN
  INSERT INTO replication_queue (mirror, origin, key_name)
    SELECT mirrors.id, origin, keys.name FROM mirrors, replication, keys WHERE keys.id = NEW.key;
END;

CREATE TRIGGER mirror_metadata_changed AFTER UPDATE ON metadata
WHEN (SELECT mirror FROM keys WHERE id = NEW.key) = 'Y' AND (SELECT receiving FROM replication) = 0 BEGIN
  INSERT INTO replication_queue (mirror, origin, key_name)
    SELECT mirrors.id, origin, keys.name FROM mirrors, replication, keys WHERE keys.id = NEW.key;
END;
)sql";

// The same for PostgreSQL, whose triggers call functions.
inline constexpr const char *kPostgresMirrorTriggers = R"sql(
CREATE FUNCTION queue_mirror_key() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN
  INSERT INTO replication_queue (mirror, origin, key_name)
    SELECT id, origin, NEW.name FROM mirrors, replication WHERE receiving = 0;
  RETURN NULL;
END $$;

CREATE TRIGGER mirror_key_created AFTER INSERT ON keys
FOR EACH ROW WHEN (NEW.mirror = 'Y') EXECUTE FUNCTION queue_mirror_key();

CREATE TRIGGER mirror_key_changed AFTER UPDATE OF deletable, activation_date, expiration_date, revoked_date,
  current_instance, last_rollover_date, mirror ON keys
FOR EACH ROW WHEN (NEW.mirror = 'Y') EXECUTE FUNCTION queue_mirror_key();

CREATE FUNCTION queue_mirror_key_deletion() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN
  INSERT INTO deleted_mirror_keys VALUES (OLD.name) ON CONFLICT DO NOTHING;
  INSERT INTO replication_queue (mirror, origin, key_name)
    SELECT id, origin, OLD.name FROM mirrors, replication WHERE receiving = 0;
  RETURN NULL;
END $$;

CREATE TRIGGER mirror_key_deleted AFTER DELETE ON keys
FOR EACH ROW WHEN (OLD.mirror = 'Y') EXECUTE FUNCTION queue_mirror_key_deletion();

CREATE FUNCTION queue_mirror_metadata() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN
  INSERT INTO replication_queue (mirror, origin, key_name)
    SELECT mirrors.id, origin, keys.name FROM mirrors, replication, keys
    WHERE keys.id = NEW.key AND keys.mirror = 'Y' AND receiving = 0;
  RETURN NULL;
END $$;

CREATE TRIGGER mirror_metadata_written AFTER INSERT OR UPDATE ON metadata
FOR EACH ROW EXECUTE FUNCTION queue_mirror_metadata();
)sql";

}  // namespace veskd
