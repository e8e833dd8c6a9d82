// The index database: where it lives, how it is opened, and what is done when it is damaged.
//
// One writer at a time: the indexer holds an advisory lock on "<db>.lock" for as long as it
// writes (update, watch); searches only read. The database runs in WAL mode, so a search
// reads a consistent state while the indexer writes, and an indexer killed at any moment
// leaves the last committed state behind.
//
// A file that SQLite calls damaged (or that is no database) is moved aside as "<db>.bad.N" (the
// first free N, with its -wal and -shm; nothing is deleted) and a new index is made in its
// place; the caller says so once. The list of indexed folders survives: it is read from the
// damaged file when its folder table can still be read, else from the side file
// "<db>.folders", which every commit that changes the list rewrites.
//
// An index of a layout from kOldestMigratedVersion on is read as it is and brought forward in
// place by the next writer (nothing it holds is lost). One older still is never read: a search
// is told so and walks, and the next writer builds it anew with its folders, saying so.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/file_lock.h"

namespace trovix::engine::index {

// $XDG_CACHE_HOME/trovix/index.db, or ~/.cache/trovix/index.db.
std::string DefaultIndexPath();

class IndexDatabase {
 public:
  enum class Access { kRead, kWrite };

  ~IndexDatabase();
  IndexDatabase(const IndexDatabase&) = delete;
  IndexDatabase& operator=(const IndexDatabase&) = delete;

  // Opens the database at `path`. kWrite creates the folder and the tables when missing and
  // may replace a damaged file (then *notice says what was done); kRead fails when there is
  // no index. Null with *error on failure.
  static std::unique_ptr<IndexDatabase> Open(const std::string& path, Access access, std::string* error,
                                             std::string* notice = nullptr);

  sqlite3* db() const { return db_; }
  const std::string& path() const { return path_; }

  // Runs statements without results; false with *error (when given) on failure.
  bool Exec(std::string_view sql, std::string* error = nullptr);
  bool Begin() { return Exec("BEGIN IMMEDIATE"); }
  // Commits, and keeps the side file of the folder list up to date.
  bool Commit();

  std::string Meta(std::string_view key, std::string_view fallback = {}) const;
  bool SetMeta(std::string_view key, std::string_view value);

  // The id of a canonical property name in prop_names, made when `create` and missing; 0
  // when missing and not made.
  int64_t PropertyId(std::string_view name, bool create);

  // The last SQLite error text of the connection.
  std::string LastError() const;

 private:
  IndexDatabase() = default;
  // *outdated: the file is an index of an older layout (kWrite then builds it anew).
  bool Configure(Access access, std::string* error, bool* outdated);
  bool CheckVersion(int64_t version, std::string* error, bool* outdated);
  bool Migrate(int from, std::string* error);
  void KeepFolderList();

  sqlite3* db_ = nullptr;
  std::string path_;
  std::optional<std::string> kept_folders_;  // the folder list as last written to the side file
};

// The side file that keeps the list of indexed folders of the index at `db_path`.
std::string FolderListPath(const std::string& db_path);

// Whether an SQLite result code says that the file is damaged or not a database.
bool IsDamaged(int sqlite_code);

// The writer's lock. Held while the object lives.
class WriterLock {
 public:
  // Tries to take the lock beside the database at `db_path` without waiting. On failure
  // *holder is the process id of the holder when it wrote one (0 otherwise).
  static std::unique_ptr<WriterLock> TryAcquire(const std::string& db_path, int64_t* holder);

 private:
  explicit WriterLock(std::unique_ptr<platform::FileLock> lock) : lock_(std::move(lock)) {}
  std::unique_ptr<platform::FileLock> lock_;
};

}  // namespace trovix::engine::index
