#include "app/settings/registry_store.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "platform/no_replace_rename.h"

#include "platform/sqlite_statement.h"

namespace trovix::app {
namespace {

constexpr const char* kSchema =
    "CREATE TABLE IF NOT EXISTS reg_keys("
    "  path TEXT NOT NULL PRIMARY KEY COLLATE NOCASE);"
    "CREATE TABLE IF NOT EXISTS reg_values("
    "  key TEXT NOT NULL COLLATE NOCASE,"
    "  name TEXT NOT NULL COLLATE NOCASE,"
    "  type INTEGER NOT NULL,"
    "  data BLOB NOT NULL,"
    "  PRIMARY KEY(key, name));";

using platform::Statement;

// "A\B\" and "\A\B" name the key "A\B".
std::string_view NormaliseKey(std::string_view key) {
  while (!key.empty() && key.front() == '\\') key.remove_prefix(1);
  while (!key.empty() && key.back() == '\\') key.remove_suffix(1);
  return key;
}

bool IsDamage(int code) {
  code &= 0xFF;
  return code == SQLITE_NOTADB || code == SQLITE_CORRUPT;
}

// The settings are the user's own: a new database file is readable by its owner only, and
// SQLite gives its -wal and -shm the same mode.
void MakePrivateFile(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd >= 0) ::close(fd);
}

}  // namespace

RegistryStore::RegistryStore(const std::string& database) : path_(database) {
  const bool in_memory = path_ == ":memory:";
  if (!in_memory) {
    platform::MakePrivateFolders(std::filesystem::path(path_).parent_path().string());
    MakePrivateFile(path_);
  }

  std::string why;
  bool damaged = false;
  if (OpenAndCheck(&why)) return;
  damaged = why.rfind("damaged:", 0) == 0;
  Close();
  if (damaged) {
    // Keep the damaged database for whoever wants to look at it (its -wal may hold the last
    // changes), under a name no earlier damaged copy has, and start a clean one, so that
    // settings can be kept again from this start on.
    int err = 0;
    const std::string aside = platform::SetAsideNumbered(path_, {"-wal", "-shm"}, &err);
    if (aside.empty()) {
      problem_ = "The settings database " + path_ + " is damaged (" + why.substr(8) +
                 ") and cannot be set aside (" + std::strerror(err) +
                 "); the default settings are used and none are kept.";
      return;
    }
    problem_ = "The settings database " + path_ + " is damaged (" + why.substr(8) +
               "); it was set aside as " + aside + " and the default settings are used.";
    MakePrivateFile(path_);
    std::string why_again;
    if (OpenAndCheck(&why_again)) return;
    Close();
  }
  problem_ = "The settings database " + path_ + " cannot be opened (" + why +
             "); the default settings are used and none are kept.";
}

RegistryStore::~RegistryStore() {
  Commit();
  Close();
}

bool RegistryStore::OpenAndCheck(std::string* why) {
  int rc = sqlite3_open_v2(path_.c_str(), &db_,
                           SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                           nullptr);
  auto fail = [&](int code) {
    *why = (IsDamage(code) ? "damaged:" : "") +
           std::string(db_ != nullptr ? sqlite3_errmsg(db_) : sqlite3_errstr(code));
    return false;
  };
  if (rc != SQLITE_OK) return fail(rc);
  // Until the check has passed, closing must not fold the log into a file that may be damaged
  // nor delete it: a damaged database is set aside with its log whole.
  sqlite3_db_config(db_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  sqlite3_extended_result_codes(db_, 1);
  sqlite3_busy_timeout(db_, 2000);
  rc = sqlite3_exec(db_, "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;", nullptr, nullptr,
                    nullptr);
  if (rc != SQLITE_OK) return fail(rc);
  {
    Statement check(db_, "PRAGMA quick_check");
    rc = check.Step();
    if (rc != SQLITE_ROW) return fail(rc);
    std::string verdict(check.Text(0));
    if (verdict != "ok") {
      *why = "damaged:" + verdict;
      return false;
    }
  }
  rc = sqlite3_exec(db_, kSchema, nullptr, nullptr, nullptr);
  if (rc != SQLITE_OK) return fail(rc);
  sqlite3_db_config(db_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0, nullptr);
  return true;
}

void RegistryStore::Close() {
  if (db_ != nullptr) sqlite3_close_v2(db_);
  db_ = nullptr;
  in_transaction_ = false;
}

bool RegistryStore::Exec(const char* sql) {
  return sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool RegistryStore::BeginWrite() {
  if (in_transaction_) return true;
  in_transaction_ = Exec("BEGIN IMMEDIATE");
  return in_transaction_;
}

SettingsStatus RegistryStore::Commit() {
  std::lock_guard lock(mutex_);
  if (db_ == nullptr) return kSettingsNoStore;
  if (!in_transaction_) return kSettingsOk;
  in_transaction_ = false;
  if (Exec("COMMIT")) return kSettingsOk;
  Exec("ROLLBACK");
  return kSettingsNotFound;
}

SettingsStatus RegistryStore::CreateKey(std::string_view key) {
  std::lock_guard lock(mutex_);
  return CreateKeyLocked(key);
}

SettingsStatus RegistryStore::CreateKeyLocked(std::string_view key) {
  if (db_ == nullptr) return kSettingsNoStore;
  key = NormaliseKey(key);
  if (key.empty()) return kSettingsOk;
  if (!BeginWrite()) return kSettingsBadData;
  // Every key above it too, from the top, so that creation order is also tree order.
  size_t from = 0;
  for (;;) {
    size_t slash = key.find('\\', from);
    std::string_view prefix = key.substr(0, slash);
    Statement insert(db_, "INSERT OR IGNORE INTO reg_keys(path) VALUES(?1)");
    if (insert.Bind(1, prefix).Step() != SQLITE_DONE) return kSettingsBadData;
    if (slash == std::string_view::npos) break;
    from = slash + 1;
  }
  return kSettingsOk;
}

bool RegistryStore::KeyExists(std::string_view key) {
  std::lock_guard lock(mutex_);
  if (db_ == nullptr) return false;
  key = NormaliseKey(key);
  if (key.empty()) return true;
  Statement select(db_, "SELECT 1 FROM reg_keys WHERE path = ?1");
  return select.Bind(1, key).Step() == SQLITE_ROW;
}

SettingsStatus RegistryStore::DeleteKeyTree(std::string_view key) {
  std::lock_guard lock(mutex_);
  if (db_ == nullptr) return kSettingsNoStore;
  key = NormaliseKey(key);
  if (key.empty()) return kSettingsBadData;  // the top of the store is not deleted
  if (!BeginWrite()) return kSettingsBadData;
  std::string below = std::string(key) + "\\";
  Statement keys(db_,
                 "DELETE FROM reg_keys WHERE path = ?1 "
                 "OR substr(path, 1, length(?2)) = ?2 COLLATE NOCASE");
  if (keys.Bind(1, key).Bind(2, below).Step() != SQLITE_DONE) return kSettingsBadData;
  bool existed = sqlite3_changes(db_) > 0;
  Statement values(db_,
                   "DELETE FROM reg_values WHERE key = ?1 "
                   "OR substr(key, 1, length(?2)) = ?2 COLLATE NOCASE");
  if (values.Bind(1, key).Bind(2, below).Step() != SQLITE_DONE) return kSettingsBadData;
  return existed ? kSettingsOk : kSettingsNotFound;
}

SettingsStatus RegistryStore::EnumSubKeys(std::string_view key, std::vector<std::string>* names) {
  std::lock_guard lock(mutex_);
  names->clear();
  if (db_ == nullptr) return kSettingsNoStore;
  key = NormaliseKey(key);
  std::string below = key.empty() ? std::string() : std::string(key) + "\\";
  Statement select(db_,
                   "SELECT substr(path, length(?1) + 1) FROM reg_keys "
                   "WHERE substr(path, 1, length(?1)) = ?1 COLLATE NOCASE "
                   "AND length(path) > length(?1) "
                   "AND instr(substr(path, length(?1) + 1), '\\') = 0 ORDER BY rowid");
  select.Bind(1, below);
  int rc;
  while ((rc = select.Step()) == SQLITE_ROW) names->push_back(std::string(select.Blob(0)));
  return rc == SQLITE_DONE ? kSettingsOk : kSettingsBadData;
}

SettingsStatus RegistryStore::SetValue(std::string_view key, std::string_view name,
                                       SettingsValueType type, std::string_view data) {
  std::lock_guard lock(mutex_);
  if (SettingsStatus s = CreateKeyLocked(key)) return s;
  // An update keeps the value's place in the enumeration order.
  Statement upsert(db_,
                   "INSERT INTO reg_values(key, name, type, data) VALUES(?1, ?2, ?3, ?4) "
                   "ON CONFLICT(key, name) DO UPDATE SET type = excluded.type, "
                   "data = excluded.data");
  upsert.Bind(1, NormaliseKey(key)).Bind(2, name).Bind(3, static_cast<int64_t>(type));
  if (type == SettingsValueType::kString) {
    upsert.Bind(4, data);
  } else {
    upsert.BindBlob(4, data);
  }
  return upsert.Step() == SQLITE_DONE ? kSettingsOk : kSettingsBadData;
}

SettingsStatus RegistryStore::QueryValue(std::string_view key, std::string_view name,
                                         RegistryValue* value) {
  std::lock_guard lock(mutex_);
  if (db_ == nullptr) return kSettingsNoStore;
  Statement select(db_, "SELECT name, type, data FROM reg_values WHERE key = ?1 AND name = ?2");
  int rc = select.Bind(1, NormaliseKey(key)).Bind(2, name).Step();
  if (rc == SQLITE_DONE) return kSettingsNotFound;
  if (rc != SQLITE_ROW) return kSettingsBadData;
  value->name = std::string(select.Blob(0));
  value->type = static_cast<SettingsValueType>(select.Int(1));
  value->data = std::string(select.Blob(2));
  return kSettingsOk;
}

SettingsStatus RegistryStore::DeleteValue(std::string_view key, std::string_view name) {
  std::lock_guard lock(mutex_);
  if (db_ == nullptr) return kSettingsNoStore;
  if (!BeginWrite()) return kSettingsBadData;
  Statement del(db_, "DELETE FROM reg_values WHERE key = ?1 AND name = ?2");
  if (del.Bind(1, NormaliseKey(key)).Bind(2, name).Step() != SQLITE_DONE) return kSettingsBadData;
  return sqlite3_changes(db_) > 0 ? kSettingsOk : kSettingsNotFound;
}

SettingsStatus RegistryStore::DeleteValues(std::string_view key,
                                           std::optional<SettingsValueType> only) {
  std::lock_guard lock(mutex_);
  if (db_ == nullptr) return kSettingsNoStore;
  if (!BeginWrite()) return kSettingsBadData;
  Statement del(db_, "DELETE FROM reg_values WHERE key = ?1 AND (?2 < 0 OR type = ?2)");
  del.Bind(1, NormaliseKey(key)).Bind(2, only ? static_cast<int64_t>(*only) : int64_t{-1});
  return del.Step() == SQLITE_DONE ? kSettingsOk : kSettingsBadData;
}

SettingsStatus RegistryStore::EnumValues(std::string_view key, std::vector<RegistryValue>* values) {
  std::lock_guard lock(mutex_);
  values->clear();
  if (db_ == nullptr) return kSettingsNoStore;
  Statement select(db_,
                   "SELECT name, type, data FROM reg_values WHERE key = ?1 ORDER BY rowid");
  select.Bind(1, NormaliseKey(key));
  int rc;
  while ((rc = select.Step()) == SQLITE_ROW) {
    values->push_back(RegistryValue{std::string(select.Blob(0)),
                                    static_cast<SettingsValueType>(select.Int(1)),
                                    std::string(select.Blob(2))});
  }
  return rc == SQLITE_DONE ? kSettingsOk : kSettingsBadData;
}

}  // namespace trovix::app
