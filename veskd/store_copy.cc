#include "veskd/store_copy.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <memory>

#include "veskd/audit_records.h"
#include "veskd/certificate_records.h"
#include "veskd/errors.h"
#include "veskd/files.h"
#include "veskd/key_records.h"
#include "veskd/template_records.h"
#include "veskd/transaction.h"

namespace veskd {
namespace {

namespace fs = std::filesystem;

struct Close {
  void operator()(sqlite3 *database) const { sqlite3_close_v2(database); }
};
using Handle = std::unique_ptr<sqlite3, Close>;

Handle open_existing(const fs::path &path) {
  sqlite3 *database = nullptr;
  const int result = sqlite3_open_v2(path.c_str(), &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  Handle handle(database);
  if (result != SQLITE_OK) throw StartError(fmt::format("cannot open {}: {}", path.string(), sqlite3_errstr(result)));
  return handle;
}

fs::path file_of(const StoreFiles &files) {
  return files.store.text();
}

// PostgreSQL has tools of its own, which know of its users and versions.
void require_file(const StoreFiles &files, const char *tool) {
  if (files.store.is_shared())
    throw StartError(fmt::format("the key store {} is in PostgreSQL: use {} for it, and keep its master key {} apart",
                                 files.store.name(), tool, files.master_key.string()));
}

// All pages in one step, which sees the database as it is at one moment and holds up no writer.
void copy_database(const fs::path &from, const fs::path &to) {
  const Handle source = open_existing(from);
  const Handle target = open_existing(to);
  sqlite3_backup *backup = sqlite3_backup_init(target.get(), "main", source.get(), "main");
  const int stepped = backup != nullptr ? sqlite3_backup_step(backup, -1) : sqlite3_errcode(target.get());
  sqlite3_backup_finish(backup);
  if (stepped != SQLITE_DONE)
    throw StartError(fmt::format("cannot copy {} to {}: {}", from.string(), to.string(), sqlite3_errstr(stepped)));
}

// What SQLite keeps beside a database belongs to that one: to another in its place it would be poison.
void remove_journals_of(const fs::path &database) {
  for (const char *suffix : {"-journal", "-wal", "-shm"}) fs::remove(database.string() + suffix);
}

void check_structure(Database &database, const fs::path &path) {
  Query integrity(database, "PRAGMA integrity_check");
  if (!integrity.next() || integrity.text(0) != "ok")
    throw StartError(fmt::format("{} is damaged: {}", path.string(), integrity.text(0)));
  if (Query(database, "PRAGMA foreign_key_check").next())
    throw StartError(fmt::format("{} is damaged: it refers to what is not in it", path.string()));
}

void check_values(StoreConnection &store) {
  std::size_t num_damaged = 0;
  std::string first;
  const auto count = [&](const std::string &what) {
    if (num_damaged++ == 0) first = what;
  };
  for_each_damaged_value(store, count);
  for_each_damaged_entry(store, count);
  if (num_damaged > 0)
    throw StartError(
        fmt::format("{} values of the store do not open, first that of {}: delete what they belong to, or "
                    "have a mirror synchronise it",
                    num_damaged, first));
}

// Also makes one file of it: what its journals hold is merged into it.
void check_copy(StoreFile &copy, const fs::path &path) {
  check_structure((*copy).database, path);
  check_values(*copy);
  (*copy).database.execute("PRAGMA journal_mode = DELETE");
}

void record(StoreConnection &store, const char *function, const fs::path &object) {
  Transaction transaction(store.database);
  append_audit_entry(store, local_event(function, object.string()));
  transaction.commit();
}

void require_free(const fs::path &path, bool replace) {
  if (!replace && fs::exists(path))
    throw StartError(fmt::format("{} is there already: --replace replaces it", path.string()));
}

// The store's master key; that of the backup when there is none.
std::unique_ptr<MasterKey> future_master_key(const StoreFiles &files, const RestoreRequest &request) {
  if (fs::exists(files.master_key)) return MasterKey::read(files.master_key);
  if (request.master_key.empty())
    throw StartError(
        fmt::format("there is no master key {}: --master-key names that of the backup", files.master_key.string()));
  auto master = MasterKey::read(request.master_key);
  master->write(files.master_key);
  return master;
}

// Brings a backup of an earlier version forward, as a server does at its start.
void bring_forward(const StoreFiles &copy) {
  const Log log(true);
  const Store store(copy.store, *MasterKey::read(copy.master_key), log);
}

void adapt(StoreFile &copy, const MasterKey &master, const RestoreRequest &request) {
  Transaction transaction((*copy).database);
  write_store_keys((*copy).database, master, copy.keys());
  skip_increments(*copy, request.skip_increments);
  append_audit_entry(*copy, local_event("Restore", request.from.string()));
  transaction.commit();
}

void make_restored_copy(const StoreFiles &copy, const MasterKey &master, const RestoreRequest &request) {
  remove_journals_of(file_of(copy));
  copy_database(request.from, file_of(copy));
  bring_forward(copy);
  StoreFile store(copy);
  adapt(store, master, request);
  check_copy(store, file_of(copy));
}

}  // namespace

void back_up(const BackupRequest &request) {
  require_file(request.store, "pg_dump");
  const fs::path original = file_of(request.store);
  require_free(request.to, request.replace);
  if (fs::exists(request.to) && fs::equivalent(request.to, original))
    throw StartError(fmt::format("{} is the store itself", request.to.string()));
  StoreFile store(request.store);
  record(*store, "Backup", request.to);
  NewFile file(request.to, kPrivateMode);
  remove_journals_of(file.path());
  copy_database(original, file.path());
  {
    StoreFile copy({file.path(), request.store.master_key});
    check_copy(copy, file.path());
    if (!request.master_key_to.empty()) copy.master_key().write(request.master_key_to);
  }
  request.replace ? file.replace() : file.create();
}

void restore(const RestoreRequest &request) {
  const StoreFiles &files = request.store;
  require_file(files, "pg_restore");
  if (!fs::exists(request.from)) throw StartError(fmt::format("there is no backup {}", request.from.string()));
  make_directory(files.master_key.parent_path());
  const Descriptor lock = lock_file(files.lock());
  require_free(file_of(files), request.replace);
  const auto master = future_master_key(files, request);
  NewFile file(file_of(files), kPrivateMode);
  make_restored_copy({file.path(), request.master_key.empty() ? files.master_key : request.master_key}, *master,
                     request);
  remove_journals_of(file_of(files));
  file.replace();
}

}  // namespace veskd
