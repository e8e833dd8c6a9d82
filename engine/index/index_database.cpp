#include "engine/index/index_database.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "engine/index/index_schema.h"
#include "engine/index/sqlite_statement.h"

namespace trovix::engine::index {
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

// The contents table's tokenizer for a new index. Word tokens make a much smaller table but
// find words, not any fragment; the benchmark builds both (TROVIX_INDEX_TOKENIZER=words).
std::string_view NewContentsTokenizer() {
  const char* choice = std::getenv("TROVIX_INDEX_TOKENIZER");
  return choice != nullptr && std::strcmp(choice, "words") == 0 ? kWordTokenizer : kTrigramTokenizer;
}

void RemoveWithCompanions(const std::string& path) {
  ::unlink(path.c_str());
  ::unlink((path + "-wal").c_str());
  ::unlink((path + "-shm").c_str());
}

}  // namespace

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
    if (rc == SQLITE_OK && out->Configure(access, &why)) return out;
    if (rc != SQLITE_OK) {
      why = out->db_ != nullptr ? sqlite3_errmsg(out->db_) : sqlite3_errstr(rc);
      rc = out->db_ != nullptr ? sqlite3_extended_errcode(out->db_) : rc;
    } else {
      rc = sqlite3_extended_errcode(out->db_);
    }
    out.reset();
    if (access != Access::kWrite || attempt > 0 || !IsDamaged(rc)) {
      *error = path + ": " + why;
      return nullptr;
    }
    // A damaged index is worth nothing but the time to rebuild it; keep it for a look.
    const std::string bad = path + ".bad";
    RemoveWithCompanions(bad);
    if (std::rename(path.c_str(), bad.c_str()) != 0) {
      *error = path + " is damaged and cannot be moved aside: " + std::strerror(errno);
      return nullptr;
    }
    ::unlink((path + "-wal").c_str());
    ::unlink((path + "-shm").c_str());
    if (notice != nullptr)
      *notice = "the index at " + path + " was damaged (" + why + "); it was moved aside as " + bad +
                " and a new index is built";
  }
  return nullptr;
}

bool IndexDatabase::Configure(Access access, std::string* error) {
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
    return true;
  }
  if (!Exec("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA cache_size=-32000;", error)) return false;
  Statement version(db_, "SELECT value FROM meta WHERE key='schema'");
  int rc = version.Step();
  if (rc == SQLITE_ROW && version.Int(0) != kSchemaVersion) {
    *error = "the index was made by another version of this program; remove " + path_ + " to rebuild it";
    return false;
  }
  if (rc == SQLITE_ROW) return true;
  if (rc != SQLITE_DONE && !(rc == SQLITE_ERROR && !version.ok())) {
    *error = LastError();
    return false;
  }
  // A new database: the tables, then the version, in one transaction.
  const std::string_view tokenizer = NewContentsTokenizer();
  if (!Exec("BEGIN IMMEDIATE", error)) return false;
  if (!Exec(SchemaSql(tokenizer), error)) {
    Exec("ROLLBACK");
    return false;
  }
  SetMeta("schema", std::to_string(kSchemaVersion));
  SetMeta("contents_tokenizer", tokenizer == kWordTokenizer ? "words" : "trigram");
  return Exec("COMMIT", error);
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
  *holder = 0;
  MakeFolders(db_path);
  const std::string lock_path = db_path + ".lock";
  int fd = ::open(lock_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return nullptr;
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    char buffer[32] = {};
    ssize_t n = ::pread(fd, buffer, sizeof buffer - 1, 0);
    if (n > 0) *holder = std::strtoll(buffer, nullptr, 10);
    ::close(fd);
    return nullptr;
  }
  const std::string pid = std::to_string(::getpid()) + "\n";
  if (::ftruncate(fd, 0) == 0 && ::pwrite(fd, pid.data(), pid.size(), 0) < 0) {
    // The pid is only for the message of a second writer; the lock itself holds.
  }
  return std::unique_ptr<WriterLock>(new WriterLock(fd));
}

WriterLock::~WriterLock() { ::close(fd_); }

}  // namespace trovix::engine::index
