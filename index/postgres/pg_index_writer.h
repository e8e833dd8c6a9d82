// The writer of the shared index: takes the item rows the local indexer writes (an item's
// place, file-system facts, properties and text pieces) and keeps them in PostgreSQL.
//
// Its transaction and meta calls have the names and shapes of IndexDatabase's (Begin, Commit,
// Exec, Meta, SetMeta, PropertyId, LastError), and the rows go in whole (WriteItem, WriteText,
// Forget, CopyItems). The indexer writes through PgIndexStore (pg_index_store.h), which keeps
// the connection and uses this writer's rows.
//
// One writer per connection; not thread-safe.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "index/postgres/pg_connection.h"
#include "index/sqlite/sqlite_translation.h"

namespace trovix::engine::index {

// Who owns an item and what its mode allows, as stat tells.
struct PgAccess {
  uint32_t uid = 0, gid = 0, mode = 0;
};

// One item as the index keeps it.
struct PgItemRow {
  int64_t id = 0;
  std::string folder;  // the folder's path, exact bytes
  std::string name;    // exact bytes
  bool is_folder = false;
  std::optional<int64_t> size, modified, created, attributes;
  std::optional<std::string> extension, kind, mime;
  int state = 0;
  std::vector<std::pair<std::string, SqlParam>> props;  // canonical name, value as the local index types it
  std::optional<PgAccess> access;  // the item's own
  std::vector<PgAccess> chain;     // every folder from "/" down to the item's own; empty: not known
  std::optional<int64_t> device, inode, change, volume;  // what the indexer's walk compares
  bool listed = false;             // a folder whose children are indexed
  int share = 0;                   // the id of the share (crawl root) it lies under; 0: none
};

class PgIndexWriter {
 public:
  // The connection must outlive the writer; the schema is made or migrated here.
  explicit PgIndexWriter(PgConnection& db) : db_(db) {}
  bool Open(std::string* error);

  bool Exec(std::string_view sql, std::string* error = nullptr);
  bool Begin() { return Exec("BEGIN"); }
  bool Commit() { return Exec("COMMIT"); }
  bool Rollback() { return db_.Rollback(&error_); }
  std::string Meta(std::string_view key, std::string_view fallback = {});
  bool SetMeta(std::string_view key, std::string_view value);
  int64_t PropertyId(std::string_view name, bool create);
  std::string LastError() const { return error_; }

  // Adds or replaces an item (by share and id).
  bool WriteItem(const PgItemRow& row);
  // Replaces an item's text pieces (each folded as the local index keeps it); they take the
  // item's share.
  bool WriteText(int64_t item, const std::vector<std::string>& pieces);
  // Removes the item at `path` (when `with_self`) and everything below it.
  bool Forget(const std::string& path, bool with_self = true);

  // A first build: BeginFirstBuild (in a transaction) drops the search indexes, CopyItems
  // (any number of times) copies rows and pieces, EndFirstBuild makes the indexes again.
  bool BeginFirstBuild();
  bool EndFirstBuild();
  // Every row and piece in one COPY each; their ids must be new, and the pieces' items written.
  bool CopyItems(const std::vector<PgItemRow>& rows,
                 const std::vector<std::pair<int64_t, std::vector<std::string>>>& texts);

 private:
  bool Failed(const std::string& error) {
    error_ = error;
    return false;
  }
  PgConnection& db_;
  std::string error_;
};

// The jsonb texts of a row's properties: values typed as the search sees them, and the
// folded text values (for case-blind queries).
std::string PropsJson(const std::vector<std::pair<std::string, SqlParam>>& props, bool folded);

}  // namespace trovix::engine::index
