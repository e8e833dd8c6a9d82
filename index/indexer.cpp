#include "index/indexer.h"

#include <fcntl.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <algorithm>
#include <deque>
#include <mutex>
#include <set>
#include <unordered_map>

#include "base/file_name.h"
#include "base/utf.h"
#include "engine/extraction/contents_reader.h"
#include "engine/walk/folder_enumerator.h"
#include "engine/walk/folder_read_ahead.h"
#include "engine/walk/folder_walk.h"
#include "engine/walk/ignore_patterns.h"
#include "index/indexer_throttle.h"
#include "index/sqlite_index_store.h"
#include "index/sqlite/index_schema.h"
#include "index/sqlite/text_pieces.h"
#include "index/volume_catalogue.h"
#include "platform/dir_reader.h"
#include "platform/file_status.h"
#include "platform/volume_identity.h"
#include "props/catalogue.h"
#include "props/fetcher.h"
#include "props/plugins/plugin_columns.h"
#include "props/shell_item.h"
#include "rules/item_value_provider.h"
#include "rules/patterns/folding.h"

namespace trovix::engine::index {
namespace {

using Clock = std::chrono::steady_clock;

// Text the writing thread inflates again at once for the contents table.
constexpr size_t kWriteSliceBytes = 1u << 20;

// A folder or pattern as given, made absolute from the working folder.
std::string Absolute(const std::string& path) {
  char cwd[4096];
  return AbsolutePath(path, ::getcwd(cwd, sizeof cwd) != nullptr ? std::string(cwd) : std::string("/"));
}

// The columns of items that come from the catalogue's properties, in the order written.
struct FactColumns {
  const props::PropertyInfo* extension = nullptr;
  const props::PropertyInfo* size = nullptr;
  const props::PropertyInfo* modified = nullptr;
  const props::PropertyInfo* created = nullptr;
  const props::PropertyInfo* attributes = nullptr;
  const props::PropertyInfo* kind = nullptr;
  const props::PropertyInfo* mime = nullptr;
  // Indexed properties kept in the props table.
  std::vector<const props::PropertyInfo*> others;

  FactColumns() {
    const props::Catalogue& cat = props::DefaultCatalogue();
    extension = cat.FindProperty("System.FileExtension");
    size = cat.FindProperty("System.Size");
    modified = cat.FindProperty("System.DateModified");
    created = cat.FindProperty("System.DateCreated");
    attributes = cat.FindProperty("System.FileAttributes");
    kind = cat.FindProperty("System.Kind");
    mime = cat.FindProperty("System.MIMEType");
    for (const auto& e : cat.entries()) {
      if (!e->has_flag(props::kPropIndexed) || FindItemColumn(e->name) != nullptr) continue;
      // Plugin fields are taken from the plugins installed when a read starts (PluginFields).
      if (e->provider != 0) continue;
      // Computed by the program (the "Type" has its own translation), or worked out from the
      // place of the row, or the text itself: none is a value to keep.
      if (e->name.rfind("Stock.", 0) == 0 || e->name == "System.ItemPathDisplay" ||
          e->name == "System.ItemFolderPathDisplay" || e->name == "System.Search.Contents")
        continue;
      others.push_back(e.get());
    }
  }
};

const FactColumns& Facts() {
  static const FactColumns facts;
  return facts;
}

const props::PropValue* ValueOf(props::ShellItem& item, const props::PropertyInfo* info) {
  if (info == nullptr) return nullptr;
  const props::CachedValue* node = props::GetCachedValue(item, *info);
  return node == nullptr || node->value.IsEmpty() ? nullptr : &node->value;
}

// The fields of the content plugins installed now, as properties: read with the others, so
// that the index answers a rule on a plugin field as the walk does. Without plugins, none.
struct PluginFields {
  std::vector<std::unique_ptr<props::PropertyInfo>> rows;
  std::vector<const props::PropertyInfo*> fields;
  // What the values kept depend on: each plugin's library and detect string, and its fields.
  std::string signature;

  PluginFields() : rows(props::PluginPropertyRows()) {
    for (const auto& provider : props::ColumnProviders())
      signature += provider->plugin().library_path + '\t' + provider->plugin().detect_text + '\n';
    for (const auto& row : rows) {
      if (row->provider == 0 || !row->has_flag(props::kPropIndexed)) continue;
      fields.push_back(row.get());
      signature += row->name + '\n';
    }
  }
};

bool RereadPluginValues(IndexStore& db, const PluginFields& plugins, const std::stop_token& stop);

// A value as the index keeps it: text as the rules see it, numbers as numbers; none for no
// value.
std::optional<SqlParam> StoreValue(const props::PropValue* value) {
  if (value == nullptr) return std::nullopt;
  const uint16_t base = value->tag() & props::kVarTypeMask;
  if (value->IsText() || value->tag() == (props::VT_VECTOR | props::VT_LPWSTR)) return rules::RuleText(*value);
  // Number lists (GPS degrees, minutes, seconds) are compared through their decimal forms.
  if (value->IsVector()) return std::nullopt;
  if (base == props::VT_R8 || base == props::VT_R4) return value->AsDouble();
  return value->AsInt64();
}

// The catalogue of one device number, as far as a walk needs it.
struct VolumeRow {
  int64_t id = 0;  // 0: none (a file system that cannot be identified)
  bool keeps_inodes = true;
};

bool HeldByAny(const std::string& path, const std::vector<std::string>& tops) {
  for (const std::string& top : tops)
    if (IsAtOrBelow(path, top)) return true;
  return false;
}

}  // namespace

std::string NameKey(std::string_view raw_name) { return rules::detail::FoldText(base::ToDisplayUtf8(raw_name)); }

const std::vector<std::string>& DefaultExclusions() {
  static const std::vector<std::string> list = {".git", ".hg", ".svn", ".bzr", "_darcs", "CVS", ".cache",
                                                "__pycache__", ".Trash-*", "lost+found"};
  return list;
}

// What a walk holds while it writes: the store and the batch clock.
struct Indexer::Impl {
  explicit Impl(Indexer& owner) : owner(owner), db(owner.db_) {}

  // The catalogue of the file system with device number `device`: found by its mount's number
  // and place when it was seen in that very mount before, otherwise by its identity (made when
  // new); its mount point, numbers and time seen are brought up to date once per walk.
  const VolumeRow& VolumeFor(uint64_t device);

  // Commits when the batch is big or old enough; a kill loses at most one batch.
  bool Tick(bool force = false) {
    ++pending;
    if (!force && pending < 50000 && Clock::now() - started < std::chrono::milliseconds(2000)) return true;
    if (!db.Commit()) return false;
    pending = 0;
    started = Clock::now();
    return db.Begin();
  }

  // The steps of a walk, in the order it takes them (Indexer::Walk).
  bool WriteChild(int64_t parent_id, const std::string& folder, const FolderChild& entry,
                  std::unordered_map<std::string, StoredChild>& known);
  // `fresh`: the folder's row was made by this walk, so nothing is known below it yet.
  bool WriteFolder(const QueuedFolder& listed, int64_t id, bool first, bool fresh);
  bool WriteMountPoint(int64_t parent_id, const std::string& folder, const FolderChild& entry,
                       std::unordered_map<std::string, StoredChild>& known);
  // Ends the walk's transaction after a failed write, keeping the store's message.
  bool Fail() {
    owner.error_ = db.LastError();
    db.Rollback();
    return false;
  }

  Indexer& owner;
  IndexStore& db;
  std::unordered_map<uint64_t, VolumeRow> volumes;  // by device number, for this walk
  std::vector<platform::MountEntry> mounts;
  bool mounts_read = false;
  std::vector<std::string> excluded;  // the names the exclusions took out of the folder at hand
  int pending = 0;
  Clock::time_point started = Clock::now();

  // What one walk is asked and collects.
  std::vector<IgnorePattern> patterns;
  size_t root_length = 0;  // exclusions with a "/" are anchored at the crawl root
  bool recursive = false;
  UpdateStats* stats = nullptr;
  std::vector<int64_t>* touched = nullptr;
  std::function<void(int64_t id, const std::string& path, bool fresh)> push;  // queues a folder to list
  // Mount points of file systems that may stop answering (with a time-out), and the stop.
  platform::MountTable silent_mounts;
  std::stop_token stop;
};

const VolumeRow& Indexer::Impl::VolumeFor(uint64_t device) {
  auto [it, fresh] = volumes.try_emplace(device);
  if (!fresh) return it->second;
  if (!mounts_read) {
    mounts = platform::ReadMountTable();
    mounts_read = true;
  }
  const platform::MountEntry* mount = platform::FindMountByDevice(mounts, device);
  if (mount == nullptr) return it->second;
  it->second.keeps_inodes = platform::KeepsInodeNumbers(mount->fs_type);
  // The mount's number that is never reused: the table's own number and the device number
  // may be those of the drive mounted there before.
  platform::MountEntry seen = *mount;
  seen.mount_id = platform::UniqueMountId(*mount);
  it->second.id = db.Volume(seen, [mount] { return platform::VolumeIdentity(*mount); });
  return it->second;
}

// Adds or updates the row of one listed child; an unchanged one is only marked seen. False
// (the transaction rolled back, or the batch's commit failed) ends the walk.
bool Indexer::Impl::WriteChild(int64_t parent_id, const std::string& folder, const FolderChild& entry,
                               std::unordered_map<std::string, StoredChild>& known) {
  const platform::FileStatus& st = *entry.status;
  const std::string name(entry.name);
  const std::string child = JoinPath(folder, name);
  const std::string relative = child.substr(root_length);
  if (Decide(patterns, relative, st.IsDirectory()) == IgnoreVerdict::kIgnored) {
    excluded.push_back(name);
    return true;
  }
  auto it = known.find(name);
  // The mount point of a drive that is not mounted (an empty folder, or one that another
  // file system now has): its catalogue stays as it was.
  if (HeldByAny(child, owner.offline_tops_)) {
    if (it != known.end()) it->second.seen = true;
    return true;
  }
  ++stats->items;
  const VolumeRow& volume = VolumeFor(st.device);
  const int64_t size = st.IsDirectory() || st.IsSymlink() ? 0 : static_cast<int64_t>(st.size);
  const bool is_dir = st.IsDirectory();
  if (it != known.end()) {
    it->second.seen = true;
    StoredChild& row = it->second;
    // Another object in the same place has another inode or change time; the type need
    // not be compared (and is_folder also holds for links to folders).
    // (A file system that numbers its inodes anew at each mount is compared without them.)
    const bool same = row.size == size && row.modified == st.modified && row.change == st.changed &&
                      (row.inode == static_cast<int64_t>(st.inode) || !volume.keeps_inodes);
    if (same) {
      // A row from before catalogues learns its file system without being read again.
      if (row.volume != volume.id && volume.id != 0 && !db.SetVolume(row.id, volume.id)) return Fail();
      if (is_dir && recursive) push(row.id, child, false);
      return true;
    }
  }
  auto item = props::ShellItem::FromListing(child, st.type);
  item->SetListedStatus(0, st);
  const FactColumns& columns = Facts();
  ItemFacts facts;
  facts.name = name;
  facts.name_key = NameKey(name);
  if (facts.name_key == name) facts.name_key.clear();
  facts.is_folder = item->IsFolder();
  facts.listed = facts.is_folder && is_dir;
  facts.extension = StoreValue(ValueOf(*item, columns.extension));
  facts.size = StoreValue(ValueOf(*item, columns.size));
  facts.modified = StoreValue(ValueOf(*item, columns.modified));
  facts.created = StoreValue(ValueOf(*item, columns.created));
  facts.attributes = StoreValue(ValueOf(*item, columns.attributes));
  facts.kind = StoreValue(ValueOf(*item, columns.kind));
  facts.mime = StoreValue(ValueOf(*item, columns.mime));
  facts.device = static_cast<int64_t>(st.device);
  facts.inode = static_cast<int64_t>(st.inode);
  facts.change = st.changed;
  facts.volume = volume.id;
  facts.uid = st.uid;
  facts.gid = st.gid;
  facts.mode = st.mode & 07777;
  int64_t row_id;
  if (it == known.end()) {
    row_id = db.AddItem(parent_id, folder, facts);
    if (row_id == 0) return Fail();
    ++stats->added;
  } else {
    row_id = it->second.id;
    if (!db.ChangeItem(row_id, folder, facts, it->second.is_folder)) return Fail();
    ++stats->changed;
  }
  if (touched) touched->push_back(row_id);
  if (facts.listed && recursive) push(row_id, child, it == known.end());
  return Tick() || Fail();
}

bool Indexer::Impl::WriteMountPoint(int64_t parent_id, const std::string& folder, const FolderChild& entry,
                                    std::unordered_map<std::string, StoredChild>& known) {
  const std::string child = JoinPath(folder, entry.name);
  platform::FileStatus st;
  const int error = StatWithin(platform::DefaultDirSystem(), child, false, owner.answer_timeout_, stop, &st);
  if (error == ETIMEDOUT || error == ECANCELED) {
    // Left behind with its rows as they were, like a folder that does not answer (or when the
    // update was stopped while asking).
    if (auto it = known.find(std::string(entry.name)); it != known.end()) it->second.seen = true;
    if (error == ETIMEDOUT) stats->not_answering.push_back(child);
    return true;
  }
  if (error != 0) return true;  // gone (or stopped): as for any child without a status
  FolderChild answered = entry;
  answered.status = &st;
  return WriteChild(parent_id, folder, answered, known);
}

// Brings the rows below one listed folder in line with its listing: new and changed children
// written, vanished ones forgotten with everything below them.
bool Indexer::Impl::WriteFolder(const QueuedFolder& listed, int64_t id, bool first, bool fresh) {
  const std::string& path = listed.path;
  std::unordered_map<std::string, StoredChild> known;
  // A first build asks the store nothing per folder (a round trip each, for a server's index).
  if (!fresh && !db.Children(id, path, &known)) return Fail();
  const int rc = listed.error;
  if (rc != 0) {
    if (rc != ENOENT) stats->errors.push_back(path + ": " + std::strerror(rc));
  } else {
    excluded.clear();
    for (const FolderChild& entry : listed.children) {
      if (entry.status == nullptr && !entry.status_asked && !silent_mounts.empty()) {
        // A mount point of a file system that may stop answering: its status, the server's,
        // was left out of the listing and is asked here under the time-out.
        if (!WriteMountPoint(id, path, entry, known)) return false;
        continue;
      }
      if (entry.status == nullptr) continue;  // gone between the listing and the status
      if (!WriteChild(id, path, entry, known)) return false;
    }
    if (listed.read_error != 0) stats->errors.push_back(path + ": " + std::strerror(listed.read_error));
    // Which children the exclusions took out, so that a search can walk them; written only
    // when that changed (an unchanged tree writes nothing).
    std::sort(excluded.begin(), excluded.end());
    if (!(fresh && excluded.empty()) && !db.KeepExcluded(id, path, excluded)) return Fail();
  }
  // Rows whose items are gone (or could not be listed) go with everything below them.
  for (const auto& [name, row] : known) {
    if (row.seen || HeldByAny(JoinPath(path, name), owner.offline_tops_)) continue;
    if (!owner.Forget(JoinPath(path, name))) return Fail();
    ++stats->removed;
    if (!Tick()) return Fail();
  }
  if (first && rc == ENOENT && !HeldByAny(path, owner.offline_tops_)) {
    // The start folder itself is gone.
    owner.Forget(path);
  }
  return true;
}

Indexer::Indexer(IndexDatabase& db) : own_store_(std::make_unique<SqliteIndexStore>(db)), db_(*own_store_) {
  LoadScope();
}

Indexer::Indexer(IndexStore& store) : db_(store) { LoadScope(); }

Indexer::~Indexer() = default;

void Indexer::LoadScope() const {
  roots_.clear();
  exclusions_.clear();
  db_.ReadScope(&roots_, &exclusions_);
}

std::vector<ScopeEntry> Indexer::Scope() const {
  LoadScope();
  std::vector<ScopeEntry> out;
  for (const auto& r : roots_) out.push_back({r, true});
  for (const auto& e : exclusions_) out.push_back({e, false});
  return out;
}

bool Indexer::AddRoot(const std::string& folder, std::string* error) {
  const std::string path = Absolute(folder);
  platform::FileStatus st;
  if (path.empty() || platform::StatPath(AT_FDCWD, path, true, &st) != 0 || !st.IsDirectory()) {
    *error = folder + ": not a folder";
    return false;
  }
  for (const auto& root : roots_) {
    if (IsAtOrBelow(path, root)) {
      *error = path + " is already indexed (inside " + root + ")";
      return false;
    }
  }
  if (!db_.Begin()) return *error = db_.LastError(), false;
  auto fail = [&] {
    *error = db_.LastError();
    db_.Rollback();
    return false;
  };
  // A root that holds roots already indexed takes their place.
  for (const auto& root : std::vector<std::string>(roots_))
    if (IsAtOrBelow(root, path) && (!Forget(root) || !db_.DropScope(root))) return fail();
  if (!db_.SetScope(path, true)) return fail();
  if (exclusions_.empty() && db_.Meta("exclusions_set").empty()) {
    for (const auto& pattern : DefaultExclusions())
      if (!db_.SetScope(pattern, false)) return fail();
    db_.SetMeta("exclusions_set", "1");
  }
  if (!db_.Commit()) return *error = db_.LastError(), false;
  LoadScope();
  return true;
}

bool Indexer::AddExclusion(const std::string& pattern, std::string* error) {
  if (!ParseIgnoreLine(pattern)) {
    *error = "\"" + pattern + "\" is no pattern";
    return false;
  }
  if (!db_.Begin()) return *error = db_.LastError(), false;
  if (!db_.SetScope(pattern, false) || !db_.SetMeta("exclusions_set", "1"))
    return *error = db_.LastError(), db_.Rollback(), false;
  if (!db_.Commit()) return *error = db_.LastError(), false;
  LoadScope();
  return true;
}

bool Indexer::Remove(const std::string& path_or_pattern, std::string* error) {
  std::string key = path_or_pattern;
  bool is_root = false;
  const std::string absolute = Absolute(path_or_pattern);
  for (const auto& r : roots_)
    if (r == absolute) key = absolute, is_root = true;
  bool is_exclusion = false;
  for (const auto& e : exclusions_) is_exclusion |= e == path_or_pattern;
  if (!is_root && !is_exclusion) {
    *error = path_or_pattern + " is neither an indexed folder nor an exclusion";
    return false;
  }
  if (!db_.Begin()) return *error = db_.LastError(), false;
  if ((is_root && !Forget(key)) || !db_.DropScope(key)) return *error = db_.LastError(), db_.Rollback(), false;
  if (!db_.Commit()) return *error = db_.LastError(), false;
  LoadScope();
  return true;
}

bool Indexer::InScope(const std::string& path) const { return PathInScope(path, roots_, exclusions_); }

bool PathInScope(const std::string& path, const std::vector<std::string>& roots,
                 const std::vector<std::string>& exclusions) {
  std::vector<IgnorePattern> patterns;
  for (const auto& e : exclusions)
    if (auto p = ParseIgnoreLine(e)) patterns.push_back(*p);
  for (const auto& root : roots) {
    if (!IsAtOrBelow(path, root)) continue;
    // Every step below the root must pass the exclusions, as the indexer's walk applies them.
    size_t pos = root == "/" ? 1 : root.size() + 1;
    while (pos <= path.size()) {
      size_t slash = path.find('/', pos);
      if (slash == std::string::npos) slash = path.size();
      const std::string_view name(path.data() + pos, slash - pos);
      const std::string_view relative(path.data() + (root == "/" ? 1 : root.size() + 1), slash - (root == "/" ? 1 : root.size() + 1));
      if (!name.empty() && (Decide(patterns, name, true) == IgnoreVerdict::kIgnored ||
                            Decide(patterns, relative, true) == IgnoreVerdict::kIgnored))
        return false;
      pos = slash + 1;
    }
    return true;
  }
  return false;
}

bool Indexer::Forget(const std::string& path, bool with_self) { return db_.Forget(path, with_self); }

bool Indexer::Retrying(UpdateStats* stats, const std::stop_token& stop, const std::function<bool()>& work) {
  // A stop ends a statement the store is waiting for too, for this call's length.
  db_.StopWith(stop);
  struct Unstop {
    IndexStore& db;
    ~Unstop() { db.StopWith({}); }
  } unstop{db_};
  for (int attempt = 1;; ++attempt) {
    if (work()) return true;
    if (!db_.Retryable() || attempt >= kAttempts || stop.stop_requested()) return false;
    // A server that ended the session may be restarting: each retry waits a little longer.
    const auto until = Clock::now() + retry_pause_ * attempt;
    while (Clock::now() < until && !stop.stop_requested()) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    if (stop.stop_requested()) return false;
    ++stats->retries;
    if (!db_.Reconnect()) {
      error_ = db_.LastError();
      if (!db_.Retryable()) return false;
      continue;
    }
  }
}

bool Indexer::Update(const std::vector<std::string>& only, UpdateStats* stats, std::stop_token stop,
                     const std::function<void(const UpdateProgress&)>& progress, bool read) {
  return Retrying(stats, stop, [&] { return UpdateOnce(only, stats, stop, progress, read); });
}

bool Indexer::Refresh(const std::string& folder, bool recursive, UpdateStats* stats, std::stop_token stop) {
  return Retrying(stats, stop, [&] { return RefreshOnce(folder, recursive, stats, stop); });
}

bool Indexer::UpdateOnce(const std::vector<std::string>& only, UpdateStats* stats, std::stop_token stop,
                         const std::function<void(const UpdateProgress&)>& progress, bool read) {
  if (!FollowDrives()) return false;
  LoadScope();
  std::vector<std::string> folders;
  if (only.empty()) {
    folders = roots_;
  } else {
    for (const auto& f : only) {
      const std::string path = Absolute(f);
      bool inside = false;
      for (const auto& r : roots_) inside |= IsAtOrBelow(path, r);
      if (!inside) {
        error_ = path + " is not in the index's scope (trovix-cli index add " + path + ")";
        return false;
      }
      folders.push_back(path);
    }
  }
  // Roots that vanished from scope leave no rows behind: rows whose top is no root go (but
  // for the catalogues parked while another drive holds their place).
  if (only.empty()) {
    std::vector<std::string> stale;
    for (const std::string& top : db_.Tops()) {
      bool kept = false;
      for (const auto& r : roots_) kept |= r == top;
      if (!kept && !IsParkedPlace(top)) stale.push_back(top);
    }
    for (const auto& s : stale) {
      if (!db_.Begin()) return error_ = db_.LastError(), false;
      if (!Forget(s) || !db_.Commit()) return error_ = db_.LastError(), db_.Rollback(), false;
    }
    if (!db_.UpdateStarting()) return error_ = db_.LastError(), false;
  }
  db_.SetMeta("update_started", std::to_string(std::chrono::system_clock::to_time_t(std::chrono::system_clock::now())));
  auto since = [](Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
  };
  const auto walk_start = Clock::now();
  for (const auto& folder : folders) {
    if (stop.stop_requested()) break;
    if (!Walk(folder, true, stats, stop, progress)) return false;
  }
  stats->walk_ms += since(walk_start);
  const auto read_start = Clock::now();
  if (read && !RereadPluginValues(db_, PluginFields(), stop)) return error_ = db_.LastError(), false;
  if (read && !ReadPending(stats, stop, progress)) return false;
  stats->read_ms += since(read_start);
  if (!stop.stop_requested() && only.empty())
    db_.SetMeta("update_finished",
                std::to_string(std::chrono::system_clock::to_time_t(std::chrono::system_clock::now())));
  if (only.empty() && !db_.UpdateEnded(!stop.stop_requested() && read)) return error_ = db_.LastError(), false;
  return true;
}

bool Indexer::RefreshOnce(const std::string& folder, bool recursive, UpdateStats* stats, std::stop_token stop) {
  if (!FollowDrives()) return false;
  std::vector<int64_t> touched;
  if (!Walk(Absolute(folder), recursive, stats, stop, {}, &touched)) return false;
  return ReadPending(stats, stop, {}, &touched);
}

bool Indexer::Walk(const std::string& start, bool recursive, UpdateStats* stats, std::stop_token stop,
                   const std::function<void(const UpdateProgress&)>& progress, std::vector<int64_t>* touched) {
  // Below the mount point of a drive that is not mounted there is nothing to compare with.
  if (HeldByAny(start, offline_tops_)) return true;
  Impl impl(*this);
  const bool is_root = std::find(roots_.begin(), roots_.end(), start) != roots_.end();
  if (!db_.Begin()) return error_ = db_.LastError(), false;
  int64_t start_id = db_.FolderRow(start, is_root);
  if (start_id == 0) {
    // A folder below a root that has no row yet: its parent's listing makes it, when it is
    // there at all (a watch may still name a folder that has moved away).
    db_.Rollback();
    platform::FileStatus st;
    const size_t slash = start.find_last_of('/');
    if (slash == std::string::npos || start == "/" || platform::StatPath(AT_FDCWD, start, false, &st) != 0 ||
        !st.IsDirectory())
      return true;
    const std::string parent = slash == 0 ? "/" : start.substr(0, slash);
    if (!InScope(parent)) return true;
    if (!Walk(parent, false, stats, stop, progress, touched)) return false;
    if (!db_.Begin()) return error_ = db_.LastError(), false;
    start_id = db_.FolderRow(start, false);
    if (start_id == 0) return db_.Commit() || (error_ = db_.LastError(), false);
  }
  // Folders are listed, and their children's statuses asked, on reading threads ahead of
  // this one, which compares and writes: the disk and the database work at the same time.
  const int readers = static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1u, 4u));
  // A folder on a mount that stops answering is left behind, its rows kept (see below).
  if (answer_timeout_.count() > 0) impl.silent_mounts = platform::MountTable::Read();
  impl.stop = stop;
  FolderReadAhead queue(readers, 64 * static_cast<size_t>(readers), [stop, mounts = impl.silent_mounts](QueuedFolder& f) {
    FolderEnumerator::Options options;
    options.flags = kEnumerateAll;
    options.stat_children = true;
    options.heartbeat = f.heartbeat;
    // Such a mount point's status is the server's: asked by WriteMountPoint under the time-out.
    if (!mounts.empty())
      options.stat_wanted = [&](std::string_view name) { return !mounts.IsMountPoint(JoinPath(f.path, name)); };
    FolderEnumerator e(platform::DefaultDirSystem(), options);
    f.error = e.Read(f.path, f.through_link, stop);
    f.read_error = e.read_error();
    f.children = std::move(e.children());
    f.names = std::move(e.names());
    f.statuses = std::move(e.statuses());
  }, StallGuard{answer_timeout_, stop});
  // The rows of the queued folders, in the queue's order, and whether each was made by this walk.
  std::deque<std::pair<int64_t, bool>> ids;
  auto push = [&](int64_t id, const std::string& path, bool through_link, bool fresh) {
    auto f = std::make_shared<QueuedFolder>();
    f->path = path;
    f->through_link = through_link;
    queue.Push(std::move(f));
    ids.emplace_back(id, fresh);
  };
  push(start_id, start, true, false);
  impl.push = [&push](int64_t id, const std::string& path, bool fresh) { push(id, path, false, fresh); };
  for (const auto& e : exclusions_)
    if (auto p = ParseIgnoreLine(e)) impl.patterns.push_back(*p);
  // Exclusions with a "/" are anchored at the crawl root, wherever this walk starts.
  impl.root_length = start == "/" ? 1 : start.size() + 1;
  for (const auto& r : roots_)
    if (IsAtOrBelow(start, r)) impl.root_length = r == "/" ? 1 : r.size() + 1;
  impl.recursive = recursive;
  impl.stats = stats;
  impl.touched = touched;
  auto last_progress = Clock::now();
  bool first = true;
  while (!queue.empty() && !stop.stop_requested()) {
    std::shared_ptr<QueuedFolder> listed = queue.TakeHead();
    const auto [id, fresh] = ids.front();
    ids.pop_front();
    const std::string& path = listed->path;
    if (stop.stop_requested()) break;  // a wait for a stuck folder ends here, nothing written
    if (listed->not_answering) {
      // Not an empty folder: its rows stay as they were until it answers again.
      stats->not_answering.push_back(path);
      continue;
    }
    ++stats->folders;
    if (throttle_ != nullptr) {
      // A pause or the budget's sleep commits first: a transaction held open through a pause
      // would keep other writers out and lose the batch to a kill.
      bool waited = false, committed = true;
      throttle_->Checkpoint("walking", stop, [&] {
        waited = true;
        committed = db_.Commit();
      });
      if (waited && (!committed || !db_.Begin())) return error_ = db_.LastError(), false;
    }
    if (progress && Clock::now() - last_progress > std::chrono::milliseconds(250)) {
      last_progress = Clock::now();
      progress(UpdateProgress{"walk", stats, path});
    }
    if (!impl.WriteFolder(*listed, id, first, fresh)) return false;
    first = false;
  }
  if (!db_.Commit()) return error_ = db_.LastError(), db_.Rollback(), false;
  return true;
}

namespace {

// A piece of an item's text as it waits to be written: compressed, with its seam set.
struct KeptPiece {
  size_t lead = 0;
  size_t length = 0;  // of its text, lead included
  std::string body, seams;
};

// What reading one item gave: its indexed properties and its text, as the index keeps it
// (text_pieces.h), or nothing.
struct ReadItem {
  int64_t id = 0;
  size_t source = 0;  // its place in the list of ids asked for, when one was given
  std::string path;
  bool folder = false;
  std::vector<std::pair<const props::PropertyInfo*, props::PropValue>> values;
  // Only compressed: a batch holds many items' text until it is written, and the text itself
  // (four times its UTF-8 while it is folded) is what once made a large file cost gigabytes.
  std::vector<KeptPiece> pieces;
  bool partial = false;             // the text went on past what is kept
  int state = 1;                    // items.state once written (see index_schema.h)
  bool not_answering = false;       // on a mount whose server said nothing: left to read later
};

// What a kept piece holds in memory.
size_t HeldBytes(const KeptPiece& p) { return sizeof p + p.body.capacity() + p.seams.capacity(); }

// What a read item holds in memory beside its pieces until its batch is written, near enough.
size_t HeldBytes(const ReadItem& r) {
  size_t bytes = sizeof r + r.path.size();
  for (const auto& [info, value] : r.values) {
    bytes += sizeof info + sizeof value;
    if (value.IsText()) bytes += value.text().size();
    if (value.IsVector())
      for (const std::string& t : value.texts()) bytes += t.size();
  }
  return bytes;
}

// What the workers of a batch share to bound what it holds in total, finished items and items
// being read alike. An item may hold `small_item` bytes of compressed pieces on its own; past
// that it takes `large`, so that one large item at most is read at a time, and when what the
// others hold has reached the batch's bound by then, it is set aside: its pieces go, and it
// and the items after it are read by the next batch, where it comes first. The first item of
// a batch is never set aside, so every batch writes at least one.
struct ReadBudget {
  explicit ReadBudget(size_t batch_bytes) : bound(batch_bytes), small_item(std::min<size_t>(4u << 20, batch_bytes / 8)) {}
  const size_t bound, small_item;
  std::atomic<size_t> held{0};
  std::mutex large;
  std::atomic<size_t> set_aside{SIZE_MAX};  // the first item set aside
};

// The values read, by canonical name, as the index keeps them.
std::vector<std::pair<std::string, SqlParam>> StoreValues(const ReadItem& r) {
  std::vector<std::pair<std::string, SqlParam>> out;
  out.reserve(r.values.size());
  for (const auto& [info, value] : r.values)
    if (std::optional<SqlParam> kept = StoreValue(&value)) out.emplace_back(info->name, std::move(*kept));
  return out;
}

}  // namespace

// The mounts of a read phase whose server stopped answering; shared by its workers.
struct Indexer::SilentMounts {
  platform::MountTable mounts;
  std::mutex mutex;
  std::set<std::string, std::less<>> silent;
  std::vector<std::string> named;  // the first file left behind on each
};

bool Indexer::Answers(const std::string& path, SilentMounts& s, const std::stop_token& stop) const {
  const std::string_view point = s.mounts.MountPointOf(path);
  if (point.empty()) return true;
  {
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.silent.count(point)) return false;
  }
  if (ProbeWithin(path, answer_timeout_, stop) != ETIMEDOUT) return true;
  std::lock_guard<std::mutex> lock(s.mutex);
  if (s.silent.emplace(point).second) s.named.push_back(path);
  return false;
}

namespace {

// The values of `fields` the index keeps for the item.
void ReadValues(ReadItem& r, props::ShellItem& item, const std::vector<const props::PropertyInfo*>& fields) {
  for (const props::PropertyInfo* info : fields) {
    const props::PropValue* value = ValueOf(item, info);
    if (value == nullptr || (value->IsVector() && !(value->tag() & props::VT_LPWSTR))) continue;
    r.values.emplace_back(info, *value);
  }
}

// The whole text kept fits the pieces an item may have.
static_assert(Indexer::kMaxTextBytes / (Indexer::kTextPieceBytes - Indexer::kTextPieceOverlap) < kMaxTextPieces);

// Reads item `at` of a batch into r.
void ReadOne(ReadItem& r, size_t at, ContentsReader& contents, const PluginFields& plugins, size_t piece_bytes,
             size_t max_text, ReadBudget& budget, const std::stop_token& stop) {
  auto item = props::ShellItem::FromPath(r.path);
  if (item->Status() == nullptr) return;  // gone: the next walk removes its row
  ReadValues(r, *item, Facts().others);
  ReadValues(r, *item, plugins.fields);
  if (r.folder || item->Status()->type != platform::FileType::kRegular) return;
  size_t taken = 0;       // bytes of text read
  size_t held = 0;        // bytes of its pieces, counted in budget.held too
  bool any_text = false;  // a character other than NUL and blanks was seen
  bool set_aside = false;
  std::unique_lock<std::mutex> large(budget.large, std::defer_lock);
  // Folded, cut and compressed as it comes (here, on the reading threads: the writing thread
  // is the one that waits), so that only the compressed pieces stay.
  TextPieceStream stream(piece_bytes, Indexer::kTextPieceOverlap, [&](const TextPiece& piece) {
    if (set_aside) return;
    if (r.pieces.size() >= static_cast<size_t>(kMaxTextPieces)) {
      r.partial = true;
      return;
    }
    KeptPiece& kept = r.pieces.emplace_back();
    kept.lead = piece.lead;
    kept.length = piece.text.size();
    kept.body = CompressText(piece.text);
    kept.seams = SeamSet(piece.text);
    held += HeldBytes(kept);
    budget.held.fetch_add(HeldBytes(kept));
    if (held > budget.small_item && !large.owns_lock()) {
      large.lock();
      set_aside = at > 0 && budget.held.load() - held >= budget.bound;
    }
  });
  props::ContentsResult result = contents.Read(*item, [&](std::string_view piece) {
    if (stop.stop_requested() || set_aside) return false;  // the batch, or this item, is not written
    for (char c : piece) any_text |= c != '\0' && c != ' ' && c != '\n' && c != '\r' && c != '\t';
    piece = piece.substr(0, max_text - std::min(max_text, taken));
    taken += piece.size();
    stream.Add(piece);
    // A file of zeros (a sparse or preallocated file) decodes as NULs: no words in it for
    // anyone to find, so it is not read to its end.
    if (!any_text && taken >= Indexer::kZeroProbeBytes) return false;
    // At the bound the reading stops; what may follow is the file reader's to find.
    if (taken >= max_text) r.partial = true;
    return !r.partial && !set_aside;
  });
  if (set_aside || result.status != props::ContentsStatus::kText || !any_text) {
    r.partial = false;
    r.pieces = {};
    budget.held.fetch_sub(held);
    if (set_aside) {
      size_t first = budget.set_aside.load();
      while (at < first && !budget.set_aside.compare_exchange_weak(first, at)) {
      }
      return;
    }
    // A file the reading failed on is kept with why, for a search's count of files not read.
    UnreadReason reason;
    if (UnreadReasonOf(result.status, item->name(), contents.options(), &reason)) r.state = UnreadTextState(result.status);
    return;
  }
  stream.Finish();
}

// Plugin values kept under other plugins, or none: when the installed plugins are not those
// the kept values were read under, the values of the old and the new fields go, and every
// item read before gets the new fields' values (its text and other values stay). Items still
// to be read get them from the read phase. Stopped half-way, it starts again next time.
bool RereadPluginValues(IndexStore& db, const PluginFields& plugins, const std::stop_token& stop) {
  const std::string kept = db.Meta(kPluginSignatureMeta);
  if (kept == plugins.signature) return true;
  if (!db.Begin()) return false;
  bool forgot = true;
  auto forget_lines = [&](const std::string& signature) {
    size_t start = 0;
    for (size_t end; (end = signature.find('\n', start)) != std::string::npos; start = end + 1) {
      const std::string line(signature.data() + start, end - start);
      if (line.find('\t') != std::string::npos) continue;  // a plugin's line, not a field
      forgot = forgot && db.ForgetProperty(line);
    }
  };
  forget_lines(kept);
  forget_lines(plugins.signature);
  if (!forgot || !db.Commit()) return db.Rollback(), false;
  int64_t after = 0;
  while (!plugins.fields.empty()) {
    if (stop.stop_requested()) return true;  // the signature stays as it was: done again next time
    std::vector<StoredItem> rows;
    if (!db.Rows(after, Indexer::kReadBatchItems, false, &rows)) return false;
    if (rows.empty()) break;
    std::vector<ReadItem> batch;
    for (const StoredItem& row : rows) {
      ReadItem& r = batch.emplace_back();
      r.id = after = row.id;
      r.path = JoinPath(row.folder, row.name);
    }
    for (ReadItem& r : batch) {
      auto item = props::ShellItem::FromPath(r.path);
      if (item->Status() != nullptr) ReadValues(r, *item, plugins.fields);
    }
    if (!db.Begin()) return false;
    for (const ReadItem& r : batch)
      if (!db.AddValues(r.id, StoreValues(r))) return db.Rollback(), false;
    if (!db.Commit()) return db.Rollback(), false;
  }
  return db.SetMeta(kPluginSignatureMeta, plugins.signature);
}

}  // namespace

bool Indexer::ReadPending(UpdateStats* stats, std::stop_token stop,
                          const std::function<void(const UpdateProgress&)>& progress, const std::vector<int64_t>* ids) {
  // Files on mounts that may stop answering are asked first, under the time-out; after one
  // said nothing, the rest of its mount waits for a later update without being asked.
  SilentMounts silent;
  if (answer_timeout_.count() > 0) silent.mounts = platform::MountTable::Read();
  ContentsReader contents(ContentsOptions{});
  const PluginFields plugins;
  // Pending rows are found in id order from where the last batch ended: one pass over the
  // table, with no index of its own to keep up for every row written.
  int64_t after = 0;
  size_t next_id = 0;  // into `ids`
  std::vector<StoredItem> rows;
  // Documents wait on the extraction helpers, which run as a pool: several are read at once
  // while this thread writes what came back.
  const unsigned workers = std::clamp(std::thread::hardware_concurrency(), 1u, 4u);
  auto last_progress = Clock::now();
  while (!stop.stop_requested()) {
    std::vector<ReadItem> batch;
    int64_t last_taken = 0;  // the last pending row seen, read now or not
    auto take = [&batch, &last_taken, &rows, this] {
      for (StoredItem& row : rows) {
        ReadItem r;
        r.id = last_taken = row.id;
        r.path = JoinPath(row.folder, row.name);
        r.folder = row.is_folder;
        // A row of a drive that is not mounted stays to be read: reading it now would find
        // nothing and mark it read, and the drive's return would not read it again.
        if (HeldByAny(r.path, offline_tops_)) continue;
        batch.push_back(std::move(r));
      }
      rows.clear();
    };
    if (ids != nullptr) {
      for (; next_id < ids->size() && batch.size() < kReadBatchItems; ++next_id) {
        const size_t before = batch.size();
        if (!db_.PendingRow((*ids)[next_id], &rows)) return error_ = db_.LastError(), false;
        take();
        for (size_t k = before; k < batch.size(); ++k) batch[k].source = next_id;
      }
      if (batch.empty() && next_id >= ids->size()) break;
      if (batch.empty()) continue;
    } else {
      if (!db_.Rows(after, kReadBatchItems, true, &rows)) return error_ = db_.LastError(), false;
      take();
      if (batch.empty() && last_taken == 0) break;
      if (batch.empty()) {
        after = last_taken;
        continue;
      }
    }
    // The workers take items in order until what the batch holds reaches its bound; the items
    // they are reading then still finish, or are set aside (see ReadBudget, kReadBatchBytes).
    std::atomic<size_t> next{0};
    ReadBudget budget(read_batch_bytes_);
    auto work = [&] {
      while (!stop.stop_requested() && budget.held.load() < budget.bound) {
        if (throttle_ != nullptr) throttle_->Checkpoint("reading", stop);
        if (stop.stop_requested()) break;
        const size_t i = next.fetch_add(1);
        if (i >= batch.size() || i > budget.set_aside.load()) break;
        if (!Answers(batch[i].path, silent, stop)) {
          batch[i].not_answering = true;
          continue;
        }
        ReadOne(batch[i], i, contents, plugins, text_piece_bytes_, max_text_bytes_, budget, stop);
        budget.held.fetch_add(HeldBytes(batch[i]));
      }
    };
    std::vector<std::thread> threads;
    for (unsigned t = 1; t < workers; ++t) threads.emplace_back(work);
    work();
    for (auto& t : threads) t.join();
    if (stop.stop_requested()) break;  // the batch stays marked and is read next time
    // Every item taken was read; those after them stay marked for the next batch.
    const size_t taken = std::min({next.load(), batch.size(), budget.set_aside.load()});
    if (taken < batch.size()) {
      if (ids != nullptr) next_id = batch[taken].source;
      batch.resize(taken);
    }
    after = batch.back().id;
    if (progress && Clock::now() - last_progress > std::chrono::milliseconds(250)) {
      last_progress = Clock::now();
      progress(UpdateProgress{"read", stats, batch.back().path});
    }
    if (!db_.Begin()) return error_ = db_.LastError(), false;
    ReadRow row;
    std::vector<std::string> texts;
    for (ReadItem& r : batch) {
      if (r.not_answering) continue;  // still marked: read by a later update
      row.id = r.id;
      row.values = StoreValues(r);
      row.state = r.partial ? kStatePartialText : r.state;
      // The text goes to the contents table as it is inflated again, a slice at a time: a
      // large file's whole text is never held here either.
      size_t k = 0;
      do {
        row.first_piece = static_cast<int64_t>(k);
        row.pieces.clear();
        texts.clear();
        for (size_t slice = 0; k < r.pieces.size() && slice < kWriteSliceBytes; ++k) {
          const KeptPiece& piece = r.pieces[k];
          if (!InflateText(piece.body, &texts.emplace_back()))
            return error_ = "a text piece could not be inflated again", db_.Rollback(), false;
          slice += piece.length;
          stats->text_bytes += static_cast<int64_t>(piece.length - piece.lead);
        }
        for (size_t j = 0; j < texts.size(); ++j) {
          const KeptPiece& piece = r.pieces[static_cast<size_t>(row.first_piece) + j];
          row.pieces.push_back(ReadPiece{static_cast<int64_t>(piece.lead), texts[j], piece.body, piece.seams});
        }
        if (!db_.WriteRead(row)) return error_ = db_.LastError(), db_.Rollback(), false;
        row.values.clear();  // written with the first slice
      } while (k < r.pieces.size());
      r.pieces = {};
      stats->partial += r.partial;
      ++stats->read;
    }
    if (!db_.Commit()) return error_ = db_.LastError(), db_.Rollback(), false;
    ++stats->read_batches;
  }
  stats->not_answering.insert(stats->not_answering.end(), silent.named.begin(), silent.named.end());
  return true;
}

std::string InstalledPluginSignature() { return PluginFields().signature; }

}  // namespace trovix::engine::index
