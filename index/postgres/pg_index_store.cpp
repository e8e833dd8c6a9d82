#include "index/postgres/pg_index_store.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <thread>

#include "base/file_name.h"
#include "engine/walk/folder_enumerator.h"
#include "index/postgres/pg_schema.h"
#include "index/sqlite/index_schema.h"

namespace trovix::engine::index {
namespace {

// Any number: one writer per shared index (the schema's migration takes another).
constexpr int64_t kWriterLock = 7246312002;

// A crawl root has no row of its own on the server (as in the local index, a search never
// returns it); the walk still needs an id to hand back.
constexpr int64_t kRootRow = -1;

// Failures a new connection mends: the connection (class 08), the session ended or the
// statement cut off by the server (57: an administrator, statement_timeout, a shutdown),
// conflicts between transactions, and the idle-in-transaction time-out.
bool RetryableState(const std::string& state) {
  return state.rfind("08", 0) == 0 || state.rfind("57", 0) == 0 || state == "40001" || state == "40P01" ||
         state == "25P03" || state == "53300";
}

std::optional<std::string> TextOf(const std::optional<SqlParam>& v) {
  if (!v) return std::nullopt;
  if (const auto* s = std::get_if<std::string>(&*v)) return *s;
  return std::nullopt;
}

std::optional<int64_t> NumberOf(const std::optional<SqlParam>& v) {
  if (!v) return std::nullopt;
  if (const auto* n = std::get_if<int64_t>(&*v)) return *n;
  if (const auto* d = std::get_if<double>(&*v)) return static_cast<int64_t>(*d);
  return std::nullopt;
}

std::optional<int64_t> NonZero(int64_t v) { return v != 0 ? std::optional<int64_t>(v) : std::nullopt; }

int64_t Number(const PGresult* r, int row, int column) {
  return PQgetisnull(r, row, column) ? 0 : std::atoll(PQgetvalue(r, row, column));
}

std::pair<std::string, std::string> Split(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return {std::string(), path};
  return {slash == 0 ? std::string("/") : path.substr(0, slash), path.substr(slash + 1)};
}

void TakeRows(const PGresult* r, std::vector<StoredItem>* out) {
  for (int i = 0; i < PQntuples(r); ++i)
    out->push_back(StoredItem{Number(r, i, 0), PgBytesOf(r, i, 1), PgBytesOf(r, i, 2), PQgetvalue(r, i, 3)[0] == 't'});
}

}  // namespace

std::unique_ptr<PgIndexStore> PgIndexStore::Open(const std::string& conninfo, std::chrono::milliseconds timeout,
                                                 std::string* error) {
  std::unique_ptr<PgIndexStore> store(new PgIndexStore(conninfo, timeout));
  if (!store->Connect()) return *error = store->error_, nullptr;
  return store;
}

PgIndexStore::~PgIndexStore() = default;

bool PgIndexStore::Failed(const std::string& error) {
  error_ = error;
  retryable_ = !conn_ || !conn_->ok() || RetryableState(conn_->sqlstate());
  return false;
}

PgResult PgIndexStore::Run(const std::string& sql, const std::vector<PgParam>& params) {
  // Without a connection, why the last one could not be made.
  if (!conn_) return Failed(error_.empty() ? "no connection" : error_), nullptr;
  std::string error;
  PgResult r = conn_->Query(sql, params, &error);
  if (!r) Failed(error);
  return r;
}

bool PgIndexStore::Connect() {
  writer_.reset();
  conn_.reset();
  std::string error;
  conn_ = PgConnection::Open(conninfo_, timeout_, &error, stop_);
  if (!conn_) {
    error_ = "the server did not answer: " + error;
    retryable_ = true;  // it may be restarting
    return false;
  }
  conn_->set_stop(stop_);
  // The server's notices ("already exists, skipping") are no news to the user.
  if (!conn_->Exec("SET client_min_messages = warning", &error)) return Failed(error);
  writer_ = std::make_unique<PgIndexWriter>(*conn_);
  if (!writer_->Open(&error)) return Failed(error);
  if (!PgPartitioned(*conn_, &partitioned_, &error)) return Failed(error);
  // A writer that has just ended may still hold the lock for a moment: the server lets go of
  // a session's locks when it notices the connection closed, after the process is gone. So a
  // lock held by another session is asked for again for up to two seconds.
  bool locked = false;
  for (int attempt = 0; attempt < 20 && !locked; ++attempt) {
    if (attempt > 0) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    PgResult lock = Run("SELECT pg_try_advisory_lock($1::bigint)", {PgInt(kWriterLock)});
    if (!lock) return false;
    locked = PQgetvalue(lock.get(), 0, 0)[0] == 't';
  }
  if (!locked) {
    error_ = "another indexer is writing this index; try again when it has finished";
    retryable_ = false;
    return false;
  }
  // Ids are handed out here, under the writer's lock: rows of a first build go in by COPY, so
  // their ids are known before the server sees them.
  PgResult last = Run("SELECT coalesce(max(id), 0) FROM items", {});
  if (!last) return false;
  next_id_ = std::max(next_id_, Number(last.get(), 0, 0));
  return true;
}

void PgIndexStore::StopWith(std::stop_token stop) {
  stop_ = std::move(stop);
  if (conn_) conn_->set_stop(stop_);
}

bool PgIndexStore::Reconnect() {
  excluded_folders_.reset();
  prefetched_.clear();
  prefetched_rows_ = 0;
  shares_.reset();
  new_rows_.clear();
  read_rows_.clear();
  read_texts_.clear();
  return Connect();
}

bool PgIndexStore::Begin() {
  // What was read before the batch may have changed since (a watch's next change, another
  // program): a batch reads afresh.
  prefetched_.clear();
  prefetched_rows_ = 0;
  if (!conn_) return Failed(error_.empty() ? "no connection" : error_);
  if (!conn_->ok()) return Failed("the connection to the server was lost");
  return Run("BEGIN", {}) != nullptr;
}

bool PgIndexStore::Flush() {
  if (!new_rows_.empty()) {
    if (!writer_->CopyItems(new_rows_, {})) return Failed(writer_->LastError());
    new_rows_.clear();
  }
  if (!read_rows_.empty()) {
    std::string error;
    // The values and states of the rows read, in one COPY and one UPDATE; their old text goes.
    if (!conn_->Exec("CREATE TEMP TABLE IF NOT EXISTS read_rows(id bigint, state smallint, props jsonb, keys jsonb) "
                     "ON COMMIT DELETE ROWS",
                     &error) ||
        !conn_->CopyIn("COPY read_rows FROM STDIN", read_rows_, &error) ||
        !conn_->Exec("UPDATE items i SET state = r.state, props = i.props || r.props, prop_keys = i.prop_keys || r.keys "
                     "FROM read_rows r WHERE i.id = r.id; "
                     "DELETE FROM texts t USING read_rows r WHERE t.item = r.id; DELETE FROM read_rows",
                     &error))
      return Failed(error);
    read_rows_.clear();
  }
  if (!read_texts_.empty()) {
    if (!writer_->CopyItems({}, read_texts_)) return Failed(writer_->LastError());
    read_texts_.clear();
  }
  return true;
}

bool PgIndexStore::Commit() {
  if (!conn_) return Failed(error_.empty() ? "no connection" : error_);
  return Flush() && Run("COMMIT", {}) != nullptr;
}

void PgIndexStore::Rollback() {
  excluded_folders_.reset();  // what the batch wrote there is undone
  shares_.reset();
  prefetched_.clear();
  prefetched_rows_ = 0;
  new_rows_.clear();
  read_rows_.clear();
  read_texts_.clear();
  if (conn_ && conn_->ok()) conn_->Rollback();
}

std::string PgIndexStore::Meta(std::string_view key, std::string_view fallback) {
  PgResult r = Run("SELECT value FROM meta WHERE key = $1", {PgText(key)});
  if (!r || PQntuples(r.get()) == 0) return std::string(fallback);
  return PQgetvalue(r.get(), 0, 0);
}

bool PgIndexStore::SetMeta(std::string_view key, std::string_view value) {
  return Run("INSERT INTO meta(key, value) VALUES($1, $2) ON CONFLICT (key) DO UPDATE SET value = $2",
             {PgText(key), PgText(value)}) != nullptr;
}

void PgIndexStore::ReadScope(std::vector<std::string>* roots, std::vector<std::string>* exclusions) {
  PgResult r = Run("SELECT path, include FROM scope ORDER BY path", {});
  for (int i = 0; r && i < PQntuples(r.get()); ++i)
    (PQgetvalue(r.get(), i, 1)[0] == 't' ? roots : exclusions)->push_back(PgBytesOf(r.get(), i, 0));
}

bool PgIndexStore::SetScope(const std::string& path, bool include) {
  if (!Run("INSERT INTO scope(path, include) VALUES($1::bytea, $2::boolean) "
           "ON CONFLICT (path) DO UPDATE SET include = $2::boolean",
           {PgBytes(path), PgText(include ? "true" : "false")}))
    return false;
  if (!include) return true;
  shares_.reset();
  PgResult share = Run("INSERT INTO shares(path) VALUES($1::bytea) ON CONFLICT (path) DO NOTHING RETURNING id",
                       {PgBytes(path)});
  if (!share) return false;
  std::string error;
  if (partitioned_ && PQntuples(share.get()) > 0 &&
      !MakeSharePartitions(*conn_, static_cast<int>(Number(share.get(), 0, 0)), &error))
    return Failed(error);
  return true;
}

bool PgIndexStore::DropScope(const std::string& path) {
  if (!Run("DELETE FROM scope WHERE path = $1::bytea", {PgBytes(path)})) return false;
  shares_.reset();
  PgResult share = Run("DELETE FROM shares WHERE path = $1::bytea RETURNING id", {PgBytes(path)});
  if (!share) return false;
  std::string error;
  if (partitioned_ && PQntuples(share.get()) > 0 &&
      !DropSharePartitions(*conn_, static_cast<int>(Number(share.get(), 0, 0)), &error))
    return Failed(error);
  return true;
}

int PgIndexStore::ShareOf(const std::string& folder) {
  if (!shares_) {
    PgResult r = Run("SELECT path, id FROM shares", {});
    if (!r) return 0;
    shares_.emplace();
    for (int i = 0; i < PQntuples(r.get()); ++i)
      shares_->emplace_back(PgBytesOf(r.get(), i, 0), static_cast<int>(Number(r.get(), i, 1)));
  }
  // Roots never nest: the first that holds the folder is its share.
  for (const auto& [path, id] : *shares_)
    if (IsAtOrBelow(folder, path)) return id;
  return 0;
}

bool PgIndexStore::PartitionByShare(int* shares) {
  if (partitioned_) return Failed("the index is partitioned by share already");
  std::string error;
  if (!Begin()) return false;
  if (!index::PartitionByShare(*conn_, shares, &error)) {
    Failed(error);
    Rollback();
    return false;
  }
  if (!Commit()) return false;
  partitioned_ = true;
  return true;
}

// A root removed from the scope loses its rows in the same transaction: none stay behind.
std::vector<std::string> PgIndexStore::Tops() { return {}; }

bool PgIndexStore::UpdateStarting() {
  PgResult r = Run("SELECT NOT EXISTS (SELECT 1 FROM items), EXISTS (SELECT 1 FROM meta WHERE key = 'first_build')", {});
  if (!r) return false;
  const bool empty = PQgetvalue(r.get(), 0, 0)[0] == 't';
  // A first build stopped before its end left its indexes dropped; the next one goes on.
  first_build_ = PQgetvalue(r.get(), 0, 1)[0] == 't';
  if (!empty || first_build_) return true;
  if (!Begin()) return false;
  if (!writer_->BeginFirstBuild() || !SetMeta("first_build", "1")) {
    Failed(writer_->LastError());
    Rollback();
    return false;
  }
  first_build_ = began_first_build_ = true;
  return Commit();
}

bool PgIndexStore::UpdateEnded(bool finished) {
  if (!first_build_ || !finished) return true;
  if (!Begin()) return false;
  if (!writer_->EndFirstBuild() || !Run("DELETE FROM meta WHERE key = 'first_build'", {})) {
    Failed(writer_->LastError());
    Rollback();
    return false;
  }
  first_build_ = false;
  return Commit();
}

int64_t PgIndexStore::FolderRow(const std::string& path, bool root) {
  const auto [folder, name] = Split(path);
  PgResult r = Run("SELECT id FROM items WHERE folder = $1::bytea AND name = $2::bytea AND listed",
                   {PgBytes(folder), PgBytes(name)});
  if (r && PQntuples(r.get()) > 0) return Number(r.get(), 0, 0);
  return root ? kRootRow : 0;
}

bool PgIndexStore::Prefetch(const std::vector<std::string>& folders, size_t limit) {
  // A bytea[] in text form: {"\\x2f61",...}.
  std::string array = "{";
  for (const std::string& folder : folders) {
    if (array.size() > 1) array += ',';
    array += "\"\\" + PgBytes(folder).text + "\"";
  }
  array += "}";
  PgResult r = Run(
      "SELECT folder, id, name, is_folder, coalesce(size, 0), coalesce(modified, 0), coalesce(change_ns, 0), "
      "coalesce(inode, 0), coalesce(volume, 0) FROM items WHERE folder = ANY($1::bytea[]) ORDER BY folder LIMIT $2",
      {PgText(array), PgInt(static_cast<int64_t>(limit) + 1)});
  if (!r) return false;
  const PGresult* p = r.get();
  const int rows = PQntuples(p);
  // Past the limit the last folder may be cut short: it is asked for again on its own.
  std::string cut;
  if (static_cast<size_t>(rows) > limit) cut = PgBytesOf(p, rows - 1, 0);
  std::set<std::string> whole(folders.begin(), folders.end());
  if (!cut.empty()) {
    whole.erase(whole.upper_bound(cut), whole.end());
    whole.erase(cut);
  }
  for (const std::string& folder : whole) prefetched_[folder];
  for (int i = 0; i < rows; ++i) {
    auto entry = prefetched_.find(PgBytesOf(p, i, 0));
    if (entry == prefetched_.end()) continue;
    entry->second.emplace(PgBytesOf(p, i, 2), StoredChild{Number(p, i, 1), PQgetvalue(p, i, 3)[0] == 't',
                                                          Number(p, i, 4), Number(p, i, 5), Number(p, i, 6),
                                                          Number(p, i, 7), false, Number(p, i, 8)});
    ++prefetched_rows_;
  }
  return true;
}

void PgIndexStore::DropPrefetched(const std::string& path) {
  std::erase_if(prefetched_, [&](const auto& entry) {
    if (!IsAtOrBelow(entry.first, path)) return false;
    prefetched_rows_ -= entry.second.size();
    return true;
  });
}

bool PgIndexStore::Children(int64_t, const std::string& folder, std::unordered_map<std::string, StoredChild>* out) {
  // A query names at most this many folders.
  constexpr size_t kPrefetchFolders = 2000;
  auto found = prefetched_.find(folder);
  if (found == prefetched_.end()) {
    if (!Prefetch({folder}, std::numeric_limits<int>::max())) return false;
    found = prefetched_.find(folder);
  }
  prefetched_rows_ -= found->second.size();
  out->merge(found->second);
  prefetched_.erase(found);
  // The walk takes the subfolders soon: their children come in one query for all of them.
  std::vector<std::string> next;
  for (const auto& [name, child] : *out) {
    if (!child.is_folder || next.size() >= kPrefetchFolders) continue;
    std::string path = JoinPath(folder, name);
    if (!prefetched_.count(path)) next.push_back(std::move(path));
  }
  if (next.empty() || prefetched_rows_ >= prefetch_rows_) return true;
  return Prefetch(next, prefetch_rows_ - prefetched_rows_);
}

const std::vector<PgAccess>& PgIndexStore::Chain(const std::string& folder) {
  auto found = chains_.find(folder);
  if (found != chains_.end()) return found->second;
  std::vector<PgAccess> chain;
  if (folder != "/") chain = Chain(Split(folder).first.empty() ? "/" : Split(folder).first);
  struct stat st {};
  // A folder that cannot be asked leaves the chain unknown: its rows are nobody's.
  if (!(folder != "/" && chain.empty()) && stat(folder.c_str(), &st) == 0)
    chain.push_back(PgAccess{st.st_uid, st.st_gid, st.st_mode & 07777});
  else
    chain.clear();
  // Bounded: past this many folders they are asked again.
  if (chains_.size() > 4096) chains_.clear();
  return chains_.emplace(folder, std::move(chain)).first->second;
}

PgItemRow PgIndexStore::RowOf(int64_t id, const std::string& folder, const ItemFacts& f) {
  PgItemRow row;
  row.id = id;
  row.folder = folder;
  row.name = f.name;
  row.is_folder = f.is_folder;
  row.size = NumberOf(f.size);
  row.modified = NumberOf(f.modified);
  row.created = NumberOf(f.created);
  row.attributes = NumberOf(f.attributes);
  row.extension = TextOf(f.extension);
  row.kind = TextOf(f.kind);
  row.mime = TextOf(f.mime);
  row.state = 0;
  row.access = PgAccess{f.uid, f.gid, f.mode};
  row.chain = Chain(folder);
  row.device = f.device;
  row.inode = f.inode;
  row.change = f.change;
  row.volume = NonZero(f.volume);
  row.listed = f.listed;
  row.share = ShareOf(folder);
  return row;
}

int64_t PgIndexStore::AddItem(int64_t, const std::string& folder, const ItemFacts& facts) {
  if (facts.is_folder && !prefetched_.empty()) DropPrefetched(JoinPath(folder, facts.name));
  new_rows_.push_back(RowOf(++next_id_, folder, facts));
  return next_id_;
}

bool PgIndexStore::ChangeItem(int64_t id, const std::string& folder, const ItemFacts& facts, bool was_folder) {
  if ((was_folder || facts.is_folder) && !prefetched_.empty()) DropPrefetched(JoinPath(folder, facts.name));
  // A folder replaced by a file: what was below it goes, the row stays as the file.
  if (was_folder && !facts.listed && !Forget(JoinPath(folder, facts.name), false)) return false;
  // The whole row anew (values read before go with it), and its text.
  if (!writer_->WriteItem(RowOf(id, folder, facts))) return Failed(writer_->LastError());
  return Run("DELETE FROM texts WHERE item = $1", {PgInt(id)}) != nullptr;
}

bool PgIndexStore::SetVolume(int64_t id, int64_t volume) {
  return Run("UPDATE items SET volume = $2 WHERE id = $1", {PgInt(id), PgInt(volume)}) != nullptr;
}

bool PgIndexStore::KeepExcluded(int64_t, const std::string& folder, const std::vector<std::string>& names) {
  // Few folders have names taken out: the others are not asked one by one (a round trip per
  // folder would double what an unchanged tree costs).
  if (!excluded_folders_) {
    PgResult all = Run("SELECT DISTINCT folder FROM excluded", {});
    if (!all) return false;
    excluded_folders_.emplace();
    for (int i = 0; i < PQntuples(all.get()); ++i) excluded_folders_->insert(PgBytesOf(all.get(), i, 0));
  }
  if (names.empty() && !excluded_folders_->count(folder)) return true;
  PgResult r = Run("SELECT name FROM excluded WHERE folder = $1::bytea ORDER BY name", {PgBytes(folder)});
  if (!r) return false;
  std::vector<std::string> before;
  for (int i = 0; i < PQntuples(r.get()); ++i) before.push_back(PgBytesOf(r.get(), i, 0));
  if (before == names) return true;
  if (!Run("DELETE FROM excluded WHERE folder = $1::bytea", {PgBytes(folder)})) return false;
  if (names.empty()) excluded_folders_->erase(folder);
  else excluded_folders_->insert(folder);
  for (const std::string& name : names)
    if (!Run("INSERT INTO excluded(folder, name) VALUES($1::bytea, $2::bytea) ON CONFLICT DO NOTHING",
             {PgBytes(folder), PgBytes(name)}))
      return false;
  return true;
}

int64_t PgIndexStore::Volume(const platform::MountEntry& mount, const std::function<std::string()>& identity) {
  const std::string now = std::to_string(std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()));
  PgResult r;
  // 0: the kernel does not tell a number that is never reused; the identity decides.
  if (mount.mount_id != 0) {
    r = Run("UPDATE volumes SET seen = $3::bigint WHERE mount_id = $1::bigint AND mount_point = $2::bytea RETURNING id",
            {PgInt(mount.mount_id), PgBytes(mount.mount_point), PgText(now)});
    if (!r) return 0;
    if (PQntuples(r.get()) > 0) return Number(r.get(), 0, 0);
  }
  const std::string name = identity();
  if (name.empty()) return 0;
  r = Run("INSERT INTO volumes(identity, fs_type, mount_point, device, mount_id, seen) "
          "VALUES($1, $2, $3::bytea, $4::bigint, $5::bigint, $6::bigint) ON CONFLICT (identity) DO UPDATE SET "
          "fs_type = $2, mount_point = $3::bytea, device = $4::bigint, mount_id = $5::bigint, seen = $6::bigint "
          "RETURNING id",
          {PgText(name), PgText(mount.fs_type), PgBytes(mount.mount_point), PgInt(static_cast<int64_t>(mount.device)),
           PgInt(mount.mount_id), PgText(now)});
  return r && PQntuples(r.get()) > 0 ? Number(r.get(), 0, 0) : 0;
}

bool PgIndexStore::Forget(const std::string& path, bool with_self) {
  if (!prefetched_.empty()) DropPrefetched(path);
  // Rows held back may lie below the path: they go to the server first, and go with the rest.
  if (!Flush()) return false;
  return writer_->Forget(path, with_self) || Failed(writer_->LastError());
}

bool PgIndexStore::Rows(int64_t after, size_t limit, bool pending, std::vector<StoredItem>* out) {
  if (!Flush()) return false;
  PgResult r = Run(std::string("SELECT id, folder, name, is_folder FROM items WHERE id > $1 AND state ") +
                       (pending ? "= 0" : "<> 0") + " ORDER BY id LIMIT $2",
                   {PgInt(after), PgInt(static_cast<int64_t>(limit))});
  if (!r) return false;
  TakeRows(r.get(), out);
  return true;
}

bool PgIndexStore::PendingRow(int64_t id, std::vector<StoredItem>* out) {
  if (!Flush()) return false;
  PgResult r = Run("SELECT id, folder, name, is_folder FROM items WHERE id = $1 AND state = 0", {PgInt(id)});
  if (!r) return false;
  TakeRows(r.get(), out);
  return true;
}

bool PgIndexStore::WriteRead(const ReadRow& row) {
  if (row.first_piece > 0) {
    // More pieces of the item of the call before.
    if (read_texts_.empty() || read_texts_.back().first != row.id) return Failed("text pieces out of order");
    for (const ReadPiece& piece : row.pieces) read_texts_.back().second.emplace_back(piece.text);
    return true;
  }
  read_rows_ += std::to_string(row.id) + '\t' + std::to_string(row.state) + '\t';
  AppendCopyField(&read_rows_, PropsJson(row.values, false));
  read_rows_ += '\t';
  AppendCopyField(&read_rows_, PropsJson(row.values, true));
  read_rows_ += '\n';
  if (!row.pieces.empty()) {
    std::vector<std::string> pieces;
    for (const ReadPiece& piece : row.pieces) pieces.emplace_back(piece.text);
    read_texts_.emplace_back(row.id, std::move(pieces));
  }
  return true;
}

bool PgIndexStore::AddValues(int64_t id, const std::vector<std::pair<std::string, SqlParam>>& values) {
  return Run("UPDATE items SET props = props || $2::jsonb, prop_keys = prop_keys || $3::jsonb WHERE id = $1",
             {PgInt(id), PgText(PropsJson(values, false)), PgText(PropsJson(values, true))}) != nullptr;
}

bool PgIndexStore::ForgetProperty(const std::string& name) {
  return Run("UPDATE items SET props = props - $1, prop_keys = prop_keys - $1 WHERE props ? $1 OR prop_keys ? $1",
             {PgText(name)}) != nullptr;
}

void PgIndexStore::Folders(const std::string& top, const std::function<void(const std::string&, int64_t)>& each) {
  std::vector<std::string> roots, exclusions;
  ReadScope(&roots, &exclusions);
  if (std::find(roots.begin(), roots.end(), top) != roots.end() || FolderRow(top, false) != 0) each(top, 0);
  const auto [lo, hi] = FolderPathsBelow(top);
  PgResult r = Run("SELECT folder, name, coalesce(device, 0) FROM items WHERE listed AND "
                   "(folder = $1::bytea OR (folder >= $2::bytea AND folder < $3::bytea))",
                   {PgBytes(top), PgBytes(lo), PgBytes(hi)});
  for (int i = 0; r && i < PQntuples(r.get()); ++i)
    each(JoinPath(PgBytesOf(r.get(), i, 0), PgBytesOf(r.get(), i, 1)), Number(r.get(), i, 2));
}

}  // namespace trovix::engine::index
