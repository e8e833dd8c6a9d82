// The local index as the indexer's store: the SQLite database of index/sqlite, its statements
// prepared once and kept for every walk and read the indexer makes.
#pragma once

#include <memory>

#include "index/index_store.h"
#include "index/sqlite/index_database.h"

namespace trovix::platform {
class Statement;
}

namespace trovix::engine::index {

class SqliteIndexStore final : public IndexStore {
 public:
  // The database must outlive the store.
  explicit SqliteIndexStore(IndexDatabase& db);
  ~SqliteIndexStore() override;

  bool Begin() override;
  bool Commit() override;
  void Rollback() override;
  std::string LastError() const override { return db_.LastError(); }
  std::string Meta(std::string_view key, std::string_view fallback = {}) override { return db_.Meta(key, fallback); }
  bool SetMeta(std::string_view key, std::string_view value) override { return db_.SetMeta(key, value); }

  void ReadScope(std::vector<std::string>* roots, std::vector<std::string>* exclusions) override;
  bool SetScope(const std::string& path, bool include) override;
  bool DropScope(const std::string& path) override;
  std::vector<std::string> Tops() override;

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

  IndexDatabase* local() override { return &db_; }

 private:
  struct Statements;
  Statements& S();
  // New rows get their names-table entries in one statement per batch: rows are made with
  // rising ids, so everything from the first new id on is new. Run before every commit and
  // before anything is forgotten (a forgotten row's entry must be there to be deleted).
  bool FlushNames();
  bool Facts(platform::Statement& s, int i, const ItemFacts& facts);

  IndexDatabase& db_;
  std::unique_ptr<Statements> s_;
  int64_t first_new_ = 0;  // the first row made since the names table was last brought up
  std::unordered_map<std::string, int64_t> prop_ids_;
};

}  // namespace trovix::engine::index
