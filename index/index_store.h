// What the indexer writes through: the rows of an index, wherever they are kept.
//
// The indexer walks, compares and reads; a store keeps what it found. Two stores exist: the
// local SQLite index (SqliteIndexStore) and a file server's shared index in PostgreSQL
// (PgIndexStore). Both take the same calls in the same order, so the walk, the read phase,
// their resumable batches, the time-outs for mounts that stop answering, the budget and the
// pause are one code path for both.
//
// Batches: every write happens between Begin and Commit; a failed write is followed by
// Rollback. A store may hold writes back until Commit (the shared index sends new rows in
// one COPY per batch), so what a batch wrote is read back only after its Commit, with one
// exception the walk relies on: Forget sees everything written before it.
//
// Folder rows: an indexed folder has an id (FolderRow) that its children's calls pass back
// with the folder's path; a store keys children by whichever of the two it keeps.
//
// One writer per store; not thread-safe.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "index/sqlite/sqlite_translation.h"
#include "platform/mount_table.h"

namespace trovix::engine::index {

class IndexDatabase;

// A child row as the walk compares it with the listing.
struct StoredChild {
  int64_t id = 0;
  bool is_folder = false;
  int64_t size = 0, modified = 0, change = 0, inode = 0;
  bool seen = false;    // set by the walk: the listing still has it
  int64_t volume = 0;   // 0: not known yet
};

// What the walk found of one item: its place, its file-system facts, and the values of the
// properties that have columns of their own (each as the index keeps it, or none).
struct ItemFacts {
  std::string name;      // exact bytes
  std::string name_key;  // the name under the matchers' folding; empty when it is the name
  bool is_folder = false;
  bool listed = false;   // a folder whose children are indexed (not a link to one)
  std::optional<SqlParam> extension, size, modified, created, attributes, kind, mime;
  int64_t device = 0, inode = 0, change = 0;
  int64_t volume = 0;    // 0: none
  uint32_t uid = 0, gid = 0, mode = 0;  // who owns it and what its mode allows
};

// A row still to be read (or one read before), as the read phase takes it.
struct StoredItem {
  int64_t id = 0;
  std::string folder;  // the folder's path
  std::string name;
  bool is_folder = false;
};

// One piece of an item's text: `text` folded, `body` the same compressed, `seams` its seam set,
// `lead` the bytes it repeats of the piece before.
struct ReadPiece {
  int64_t lead = 0;
  std::string_view text, body, seams;
};

// What the read phase found of one item.
struct ReadRow {
  int64_t id = 0;
  std::vector<std::pair<std::string, SqlParam>> values;  // canonical name, value
  // An item's pieces may come in several rows, in order, each after the first with no values
  // and with the number of its first piece here.
  std::vector<ReadPiece> pieces;
  int64_t first_piece = 0;
  int state = 1;  // items.state once written
};

class IndexStore {
 public:
  virtual ~IndexStore() = default;

  virtual bool Begin() = 0;
  virtual bool Commit() = 0;
  virtual void Rollback() = 0;
  virtual std::string LastError() const = 0;
  // Whether the last failure was the connection's or the server's (dropped, ended, timed
  // out, a conflict), not the data's: the work is done again after Reconnect.
  virtual bool Retryable() const { return false; }
  // Makes a new connection after a retryable failure; false when the server cannot be reached.
  virtual bool Reconnect() { return false; }
  // The stop the store's statements honour from now on: a server's statement that runs when it
  // is asked for (waiting on a lock, or over many rows) ends at once and fails its batch, which
  // is undone; none is sent after it. The local index's statements are short and take none.
  virtual void StopWith(std::stop_token /*stop*/) {}

  virtual std::string Meta(std::string_view key, std::string_view fallback = {}) = 0;
  virtual bool SetMeta(std::string_view key, std::string_view value) = 0;

  // Crawl roots (include) and exclusion patterns.
  virtual void ReadScope(std::vector<std::string>* roots, std::vector<std::string>* exclusions) = 0;
  virtual bool SetScope(const std::string& path, bool include) = 0;
  virtual bool DropScope(const std::string& path) = 0;
  // The paths of the top rows (a crawl root's own row), to find rows of roots no longer in scope.
  virtual std::vector<std::string> Tops() = 0;

  // An update of the whole scope starts or ends (finished is false when it stopped early).
  virtual bool UpdateStarting() { return true; }
  virtual bool UpdateEnded(bool /*finished*/) { return true; }

  // The walk. FolderRow: the id of an indexed folder; with `root` a row is made for it when
  // missing (a crawl root); 0 when there is none.
  virtual int64_t FolderRow(const std::string& path, bool root) = 0;
  virtual bool Children(int64_t folder_id, const std::string& folder,
                        std::unordered_map<std::string, StoredChild>* out) = 0;
  // A new row; its id, or 0 on failure.
  virtual int64_t AddItem(int64_t folder_id, const std::string& folder, const ItemFacts& facts) = 0;
  // Replaces a row's facts and forgets what was read of it (values and text); a folder that
  // became something else loses the rows below it.
  virtual bool ChangeItem(int64_t id, const std::string& folder, const ItemFacts& facts, bool was_folder) = 0;
  virtual bool SetVolume(int64_t id, int64_t volume) = 0;
  // The names an exclusion took out of a folder (sorted), written when they changed.
  virtual bool KeepExcluded(int64_t folder_id, const std::string& folder, const std::vector<std::string>& names) = 0;
  // The catalogue of a mounted file system, found by its mount or made from `identity` (asked
  // only when needed; empty: none); 0 when there is none.
  virtual int64_t Volume(const platform::MountEntry& mount, const std::function<std::string()>& identity) = 0;
  // Removes the row at `path` (when `with_self`) and everything below it.
  virtual bool Forget(const std::string& path, bool with_self) = 0;

  // The read phase. Rows after `after` in id order, at most `limit`: those still to be read
  // (`pending`) or those read before.
  virtual bool Rows(int64_t after, size_t limit, bool pending, std::vector<StoredItem>* out) = 0;
  // The row `id` when it is still to be read.
  virtual bool PendingRow(int64_t id, std::vector<StoredItem>* out) = 0;
  virtual bool WriteRead(const ReadRow& row) = 0;
  // Adds values to a row read before (a content plugin's fields).
  virtual bool AddValues(int64_t id, const std::vector<std::pair<std::string, SqlParam>>& values) = 0;
  // Drops every row's value of a property.
  virtual bool ForgetProperty(const std::string& name) = 0;

  // The watch: every indexed folder at or below `top`, with its device (0: not known).
  virtual void Folders(const std::string& top, const std::function<void(const std::string&, int64_t)>& each) = 0;

  // The local database behind the store, for what only it keeps (the catalogues of drives
  // that come and go); null for a server's index.
  virtual IndexDatabase* local() { return nullptr; }
};

}  // namespace trovix::engine::index
