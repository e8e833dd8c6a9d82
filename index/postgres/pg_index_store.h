// A file server's shared index as the indexer's store: `index add|update|watch --server NAME`
// walks and reads with the same Indexer as the local index and writes here, with no local copy
// in between.
//
// Batches: the indexer's transactions are the server's. New rows are held back and sent in
// one COPY per batch (a first build is all new rows; its search indexes are dropped while it
// runs and made once at its end, which is many times faster than keeping them up to date);
// what the read phase found goes the same way, changed and removed rows as statements.
//
// Shares: each crawl root is a share; every row carries the id of its share, so that the tables
// can be partitioned by share.
//
// An unchanged folder costs no round trip of its own: the children of a folder's subfolders are
// asked for all at once when the walk takes the folder (Children).
//
// One writer per shared index: the store holds a session-level advisory lock while it lives.
// A dropped connection, a session the server ended (an administrator, its idle or statement
// time-outs) or a conflict makes the failure Retryable: the indexer calls Reconnect, which
// connects anew and takes the lock again, and does its work again from what was committed.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "index/index_store.h"
#include "index/postgres/pg_connection.h"
#include "index/postgres/pg_index_writer.h"

namespace trovix::engine::index {

class PgIndexStore final : public IndexStore {
 public:
  // Connects (within `timeout`), makes or migrates the tables and takes the writer's lock.
  // Null with *error when the server cannot be reached or another indexer writes there.
  static std::unique_ptr<PgIndexStore> Open(const std::string& conninfo, std::chrono::milliseconds timeout,
                                            std::string* error);
  ~PgIndexStore() override;

  bool Begin() override;
  bool Commit() override;
  void Rollback() override;
  std::string LastError() const override { return error_; }
  bool Retryable() const override { return retryable_; }
  bool Reconnect() override;
  void StopWith(std::stop_token stop) override;
  std::string Meta(std::string_view key, std::string_view fallback = {}) override;
  bool SetMeta(std::string_view key, std::string_view value) override;

  void ReadScope(std::vector<std::string>* roots, std::vector<std::string>* exclusions) override;
  bool SetScope(const std::string& path, bool include) override;
  bool DropScope(const std::string& path) override;
  std::vector<std::string> Tops() override;
  bool UpdateStarting() override;
  bool UpdateEnded(bool finished) override;

  int64_t FolderRow(const std::string& path, bool root) override;
  bool Children(int64_t folder_id, const std::string& folder, std::unordered_map<std::string, StoredChild>* out) override;
  int64_t AddItem(int64_t folder_id, const std::string& folder, const ItemFacts& facts) override;
  bool ChangeItem(int64_t id, const std::string& folder, const ItemFacts& facts, bool was_folder) override;
  bool SetVolume(int64_t id, int64_t volume) override;
  bool KeepExcluded(int64_t folder_id, const std::string& folder, const std::vector<std::string>& names) override;
  int64_t Volume(const platform::MountEntry& mount, const std::function<std::string()>& identity) override;
  bool Forget(const std::string& path, bool with_self) override;

  bool Rows(int64_t after, size_t limit, bool pending, std::vector<StoredItem>* out) override;
  bool PendingRow(int64_t id, std::vector<StoredItem>* out) override;
  bool WriteRead(const ReadRow& row) override;
  bool AddValues(int64_t id, const std::vector<std::pair<std::string, SqlParam>>& values) override;
  bool ForgetProperty(const std::string& name) override;

  void Folders(const std::string& top, const std::function<void(const std::string&, int64_t)>& each) override;

  // Whether this store began a first build (the index was empty).
  bool first_build() const { return began_first_build_; }

  // Partitions the shared index by share (pg_schema.h), in one transaction, keeping its rows;
  // from then on each share added gets partitions of its own and a share removed loses them.
  // *shares: how many shares it has. False with LastError(), also when it is partitioned already.
  bool PartitionByShare(int* shares);
  bool partitioned() const { return partitioned_; }

  // How many stored rows may wait for the walk in memory (Children); 200,000 unless set.
  void set_prefetch_rows(size_t rows) { prefetch_rows_ = rows; }

 private:
  PgIndexStore(std::string conninfo, std::chrono::milliseconds timeout)
      : conninfo_(std::move(conninfo)), timeout_(timeout) {}
  bool Connect();
  // Runs a statement; null after noting why it failed.
  PgResult Run(const std::string& sql, const std::vector<PgParam>& params);
  bool Failed(const std::string& error);
  // Sends what the batch held back.
  bool Flush();
  PgItemRow RowOf(int64_t id, const std::string& folder, const ItemFacts& facts);
  const std::vector<PgAccess>& Chain(const std::string& folder);
  // The id of the share that holds `folder` (0: none).
  int ShareOf(const std::string& folder);

  std::string conninfo_;
  std::chrono::milliseconds timeout_;
  std::stop_token stop_;
  std::unique_ptr<PgConnection> conn_;
  std::unique_ptr<PgIndexWriter> writer_;
  std::string error_;
  bool retryable_ = false;
  int64_t next_id_ = 0;    // the last id handed out
  bool first_build_ = false;
  bool began_first_build_ = false;
  // Held back until the batch's Commit.
  std::vector<PgItemRow> new_rows_;
  std::string read_rows_;  // COPY text of read_rows
  std::vector<std::pair<int64_t, std::vector<std::string>>> read_texts_;
  // The folders that have names taken out by the exclusions (null: not read yet).
  std::optional<std::set<std::string>> excluded_folders_;
  // The stored children of folders the walk has not come to yet, asked for many folders in one
  // query (see Children); each is handed out once, and all are dropped when a batch begins or
  // ends undone, and where the batch changes a folder.
  std::unordered_map<std::string, std::unordered_map<std::string, StoredChild>> prefetched_;
  size_t prefetched_rows_ = 0;
  size_t prefetch_rows_ = 200000;  // some 130 bytes each
  // Reads the children of `folders` into prefetched_ (those whose rows all came within `limit`).
  bool Prefetch(const std::vector<std::string>& folders, size_t limit);
  // Forgets what was read of `path` and below (the batch changes it).
  void DropPrefetched(const std::string& path);
  bool partitioned_ = false;
  // The shares' paths and ids (null: not read yet, or changed by a batch that may be undone).
  std::optional<std::vector<std::pair<std::string, int>>> shares_;
  // The owner, group and mode of every folder from "/" down to a folder, as stat tells now.
  std::unordered_map<std::string, std::vector<PgAccess>> chains_;
};

}  // namespace trovix::engine::index
