#include "index/sqlite/index_database.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>
#include <vector>

#include "index/sqlite/index_schema.h"
#include "platform/sqlite_statement.h"
#include "platform/atomic_file.h"
#include "platform/no_replace_rename.h"
#include "platform/regular_file.h"

namespace trovix::engine::index {
using platform::Statement;
namespace {

bool MakeFolders(const std::string& file_path) {
  const std::filesystem::path folder = std::filesystem::path(file_path).parent_path();
  if (folder.empty()) return true;
  std::error_code ec;
  const bool made = std::filesystem::create_directories(folder, ec);
  // The index holds the names and the text of the user's files: its own folder is the user's only.
  if (made) std::filesystem::permissions(folder, std::filesystem::perms::owner_all, ec);
  return !ec || std::filesystem::is_directory(folder);
}

// A new database file is made readable by its owner only; SQLite gives its journal files the
// same mode.
void MakePrivateFile(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd >= 0) ::close(fd);
}

// The list of indexed folders as the side file keeps it: one record per folder, '1' (indexed)
// or '0' (left out) and the path, each ended by a NUL (a path may hold any other byte).
using FolderList = std::vector<std::pair<std::string, int64_t>>;

std::string EncodeFolders(const FolderList& folders) {
  std::string text;
  for (const auto& [path, include] : folders) {
    text += include != 0 ? '1' : '0';
    text += path;
    text += '\0';
  }
  return text;
}

FolderList DecodeFolders(std::string_view text) {
  FolderList folders;
  while (!text.empty()) {
    const size_t end = text.find('\0');
    if (end == std::string_view::npos || end < 2 || (text[0] != '0' && text[0] != '1')) break;
    folders.emplace_back(std::string(text.substr(1, end - 1)), text[0] == '1' ? 1 : 0);
    text.remove_prefix(end + 1);
  }
  return folders;
}

bool ReadFolderTable(sqlite3* db, FolderList* folders) {
  Statement s(db, "SELECT path, include FROM scope ORDER BY path");
  int rc;
  while ((rc = s.Step()) == SQLITE_ROW) folders->emplace_back(std::string(s.Text(0)), s.Int(1));
  return rc == SQLITE_DONE;
}

// The folders of a damaged index, when the damage has spared its folder table.
bool ReadFoldersOfDamaged(const std::string& path, FolderList* folders) {
  sqlite3* db = nullptr;
  bool ok = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX,
                            nullptr) == SQLITE_OK &&
            ReadFolderTable(db, folders) && !folders->empty();
  sqlite3_close_v2(db);
  if (!ok) folders->clear();
  return ok;
}

bool ReadFolderFile(const std::string& path, FolderList* folders) {
  std::string text;
  platform::ReadRegularFile(path, &text, platform::kInputFileSizeLimit, platform::Links::kRefuse);
  *folders = DecodeFolders(text);
  return !folders->empty();
}

// Replaces the side file in one step, so that a crash leaves the old list or the new one.
void WriteFolderFile(const std::string& path, const std::string& text) { platform::WriteFileAtomically(path, text); }

}  // namespace

std::string FolderListPath(const std::string& db_path) { return db_path + ".folders"; }

std::string DefaultIndexPath() {
  const char* cache = std::getenv("XDG_CACHE_HOME");
  std::string base;
  if (cache != nullptr && cache[0] == '/') {
    base = cache;
  } else {
    const char* home = std::getenv("HOME");
    base = std::string(home != nullptr ? home : "") + "/.cache";
  }
  return base + "/trovix/index.db";
}

bool IsDamaged(int sqlite_code) {
  int primary = sqlite_code & 0xFF;
  return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
}

IndexDatabase::~IndexDatabase() {
  if (db_ != nullptr) sqlite3_close_v2(db_);
}

std::unique_ptr<IndexDatabase> IndexDatabase::Open(const std::string& path, Access access, std::string* error,
                                                   std::string* notice) {
  if (access == Access::kRead && ::access(path.c_str(), R_OK) != 0) {
    *error = "no index at " + path + " (trovix-cli index add FOLDER makes one)";
    return nullptr;
  }
  if (access == Access::kWrite && !MakeFolders(path)) {
    *error = "cannot make the folder of " + path + ": " + std::strerror(errno);
    return nullptr;
  }
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (access == Access::kWrite) MakePrivateFile(path);
    std::unique_ptr<IndexDatabase> out(new IndexDatabase());
    out->path_ = path;
    int flags = access == Access::kWrite ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE : SQLITE_OPEN_READONLY;
    int rc = sqlite3_open_v2(path.c_str(), &out->db_, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    std::string why;
    // Until the file has proved sound, closing must neither fold the log into it nor delete
    // the log: a damaged index is set aside with its log whole.
    if (out->db_ != nullptr)
      sqlite3_db_config(out->db_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    bool outdated = false;
    if (rc == SQLITE_OK && out->Configure(access, &why, &outdated)) {
      sqlite3_db_config(out->db_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0, nullptr);
      return out;
    }
    if (rc != SQLITE_OK) {
      why = out->db_ != nullptr ? sqlite3_errmsg(out->db_) : sqlite3_errstr(rc);
      rc = out->db_ != nullptr ? sqlite3_extended_errcode(out->db_) : rc;
    } else {
      rc = sqlite3_extended_errcode(out->db_);
    }
    if (outdated && access == Access::kWrite && attempt == 0) {
      // An index of an older layout is a cache that no longer fits: it is made again, with
      // the folders the user chose, rather than read wrongly.
      FolderList folders;
      ReadFolderTable(out->db_, &folders);
      sqlite3_db_config(out->db_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0, nullptr);
      out.reset();
      for (const char* suffix : {"", "-wal", "-shm"}) ::unlink((path + suffix).c_str());
      std::string retry_error;
      std::unique_ptr<IndexDatabase> rebuilt = Open(path, access, &retry_error, nullptr);
      if (!rebuilt) {
        *error = retry_error;
        return nullptr;
      }
      rebuilt->Begin();
      for (const auto& [folder, include] : folders) {
        Statement add(rebuilt->db(), "INSERT OR REPLACE INTO scope(path, include) VALUES(?, ?)");
        add.Bind(1, folder).Bind(2, include).Run();
      }
      if (!folders.empty()) rebuilt->SetMeta("exclusions_set", "1");
      rebuilt->Commit();
      if (notice != nullptr)
        *notice = "the index at " + path + " was made by an older version of this program; it is built anew" +
                  (folders.empty() ? std::string()
                                   : " with its " + std::to_string(folders.size()) + " folder(s) and exclusion(s)");
      return rebuilt;
    }
    out.reset();
    if (access != Access::kWrite || attempt > 0 || !IsDamaged(rc)) {
      *error = path + ": " + why;
      return nullptr;
    }
    // A damaged index is kept for a look under a name no earlier one has, its -wal with it;
    // nothing is deleted.
    int err = 0;
    const std::string bad = platform::SetAsideNumbered(path, {"-wal", "-shm"}, &err);
    if (bad.empty()) {
      *error = path + " is damaged and cannot be moved aside: " + std::strerror(err);
      return nullptr;
    }
    // The folders the user chose to index outlive the damage: from the damaged file when its
    // folder table can still be read, else from the side file written at every change.
    FolderList folders;
    std::string from;
    if (ReadFoldersOfDamaged(bad, &folders)) {
      from = "read from the damaged index";
    } else if (ReadFolderFile(FolderListPath(path), &folders)) {
      from = "read from " + FolderListPath(path);
    }
    if (notice != nullptr) {
      *notice = "the index at " + path + " was damaged (" + why + "); it was moved aside as " + bad +
                " and a new index is built";
      if (!folders.empty()) {
        *notice += "; its " + std::to_string(folders.size()) + " folder(s) were kept (" + from +
                   "): trovix-cli index update indexes them again";
      }
    }
    if (folders.empty()) continue;
    std::string retry_error;
    std::unique_ptr<IndexDatabase> rebuilt = Open(path, access, &retry_error, nullptr);
    if (!rebuilt) {
      *error = retry_error;
      return nullptr;
    }
    rebuilt->Begin();
    for (const auto& [folder, include] : folders) {
      Statement add(rebuilt->db(), "INSERT OR REPLACE INTO scope(path, include) VALUES(?, ?)");
      add.Bind(1, folder).Bind(2, include);
      add.Run();
    }
    rebuilt->Commit();
    return rebuilt;
  }
  return nullptr;
}

bool IndexDatabase::Commit() {
  if (!Exec("COMMIT")) return false;
  KeepFolderList();
  return true;
}

void IndexDatabase::KeepFolderList() {
  FolderList folders;
  if (!ReadFolderTable(db_, &folders)) return;
  std::string text = EncodeFolders(folders);
  if (text == kept_folders_) return;
  // An index without folders needs no copy of its list (and a rebuild must not bring back
  // folders the user removed).
  if (folders.empty()) {
    ::unlink(FolderListPath(path_).c_str());
  } else {
    WriteFolderFile(FolderListPath(path_), text);
  }
  kept_folders_ = std::move(text);
}

bool IndexDatabase::Configure(Access access, std::string* error, bool* outdated) {
  sqlite3_extended_result_codes(db_, 1);
  sqlite3_busy_timeout(db_, 5000);
  // The index is data, never code: no triggers or views from the file run with our rights.
  sqlite3_db_config(db_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  if (!Exec("PRAGMA trusted_schema=OFF", error)) return false;
  if (access == Access::kRead) {
    // Reading the version proves the file is a database of ours.
    Statement check(db_, "SELECT value FROM meta WHERE key='schema'");
    int rc = check.Step();
    if (rc != SQLITE_ROW) {
      *error = rc == SQLITE_DONE ? "not an index of this program" : LastError();
      return false;
    }
    // A layout that a writer brings forward is read as it is: what it lacks (the catalogues of
    // drives) the readers do without until then.
    if (check.Int(0) >= kOldestMigratedVersion && check.Int(0) < kSchemaVersion) return true;
    return CheckVersion(check.Int(0), error, outdated);
  }
  if (!Exec("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA cache_size=-32000;", error)) return false;
  Statement version(db_, "SELECT value FROM meta WHERE key='schema'");
  int rc = version.Step();
  if (rc == SQLITE_ROW) {
    const int64_t found = version.Int(0);
    version.Reset();
    if (found >= kOldestMigratedVersion && found < kSchemaVersion) return Migrate(static_cast<int>(found), error);
    return CheckVersion(found, error, outdated);
  }
  if (rc != SQLITE_DONE && !(rc == SQLITE_ERROR && !version.ok())) {
    *error = LastError();
    return false;
  }
  // A new database: the tables, then the version, in one transaction.
  const std::string_view tokenizer = kTrigramTokenizer;
  if (!Exec("BEGIN IMMEDIATE", error)) return false;
  if (!Exec(SchemaSql(tokenizer), error)) {
    Exec("ROLLBACK");
    return false;
  }
  SetMeta("schema", std::to_string(kSchemaVersion));
  SetMeta("contents_tokenizer", tokenizer == kWordTokenizer ? "words" : "trigram");
  return Exec("COMMIT", error);
}

bool IndexDatabase::Migrate(int from, std::string* error) {
  // One transaction: a writer killed halfway leaves the old layout, which the next one migrates.
  if (!Exec("BEGIN IMMEDIATE", error)) return false;
  if (!Exec(MigrationSql(from), error) || !SetMeta("schema", std::to_string(kSchemaVersion))) {
    if (error != nullptr && error->empty()) *error = LastError();
    Exec("ROLLBACK");
    return false;
  }
  return Exec("COMMIT", error);
}

bool IndexDatabase::CheckVersion(int64_t version, std::string* error, bool* outdated) {
  if (version == kSchemaVersion) return true;
  if (version < kSchemaVersion) {
    *outdated = true;
    *error = "the index was made by an older version of this program: trovix-cli index update builds it anew";
  } else {
    *error = "the index was made by a newer version of this program";
  }
  return false;
}

bool IndexDatabase::Exec(std::string_view sql, std::string* error) {
  char* message = nullptr;
  std::string text(sql);
  if (sqlite3_exec(db_, text.c_str(), nullptr, nullptr, &message) == SQLITE_OK) return true;
  if (error != nullptr) *error = message != nullptr ? message : LastError();
  sqlite3_free(message);
  return false;
}

std::string IndexDatabase::Meta(std::string_view key, std::string_view fallback) const {
  Statement s(db_, "SELECT value FROM meta WHERE key=?");
  s.Bind(1, key);
  if (s.Step() == SQLITE_ROW) return std::string(s.Text(0));
  return std::string(fallback);
}

bool IndexDatabase::SetMeta(std::string_view key, std::string_view value) {
  Statement s(db_, "INSERT INTO meta(key, value) VALUES(?, ?) ON CONFLICT(key) DO UPDATE SET value=excluded.value");
  s.Bind(1, key).Bind(2, value);
  return s.Run() == SQLITE_DONE;
}

int64_t IndexDatabase::PropertyId(std::string_view name, bool create) {
  Statement find(db_, "SELECT id FROM prop_names WHERE name=?");
  find.Bind(1, name);
  if (find.Step() == SQLITE_ROW) return find.Int(0);
  if (!create) return 0;
  Statement add(db_, "INSERT INTO prop_names(name) VALUES(?)");
  add.Bind(1, name);
  return add.Run() == SQLITE_DONE ? sqlite3_last_insert_rowid(db_) : 0;
}

std::string IndexDatabase::LastError() const { return db_ != nullptr ? sqlite3_errmsg(db_) : "no database"; }

std::unique_ptr<WriterLock> WriterLock::TryAcquire(const std::string& db_path, int64_t* holder) {
  MakeFolders(db_path);
  int error = 0;
  auto lock = platform::FileLock::Acquire(db_path + ".lock", std::chrono::milliseconds(0), &error, holder);
  if (!lock) return nullptr;
  return std::unique_ptr<WriterLock>(new WriterLock(std::move(lock)));
}

}  // namespace trovix::engine::index
