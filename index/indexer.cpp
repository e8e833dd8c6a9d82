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
#include "index/sqlite/index_schema.h"
#include "index/sqlite/text_pieces.h"
#include "index/volume_catalogue.h"
#include "platform/sqlite_statement.h"
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
using platform::Statement;
namespace {

using Clock = std::chrono::steady_clock;

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

bool RereadPluginValues(IndexDatabase& db, const PluginFields& plugins, const std::stop_token& stop);

// Binds a value as the database keeps it: text as the rules see it, numbers as numbers.
void BindValue(Statement& s, int i, const props::PropValue* value) {
  if (value == nullptr) {
    s.BindNull(i);
    return;
  }
  const uint16_t base = value->tag() & props::kVarTypeMask;
  if (value->IsText() || value->tag() == (props::VT_VECTOR | props::VT_LPWSTR)) {
    s.Bind(i, rules::RuleText(*value));
  } else if (value->IsVector()) {
    s.BindNull(i);  // number lists (GPS degrees, minutes, seconds) are compared through their decimal forms
  } else if (base == props::VT_R8 || base == props::VT_R4) {
    s.Bind(i, value->AsDouble());
  } else {
    s.Bind(i, value->AsInt64());
  }
}

// Takes an item's text out of the index: its pieces' entries in the contents table (a table
// without content must be told the very text it indexed to take it out again, so each piece
// is inflated once more) and the pieces themselves. This is what a changed or vanished file
// costs: one range read of its pieces and one tokenizing pass over its old text.
class TextDropper {
 public:
  explicit TextDropper(sqlite3* db)
      : pieces_(db, "SELECT id, body FROM texts WHERE id >= ? AND id < ?"),
        unindex_(db, "INSERT INTO contents(contents, rowid, text) VALUES('delete', ?, ?)"),
        drop_(db, "DELETE FROM texts WHERE id >= ? AND id < ?") {}

  bool Drop(int64_t item) {
    const int64_t lo = TextPieceId(item, 0), hi = TextPieceId(item + 1, 0);
    pieces_.Bind(1, lo).Bind(2, hi);
    bool any = false, ok = true;
    std::string text;
    while (ok && pieces_.Step() == SQLITE_ROW) {
      any = true;
      const std::string_view body = pieces_.Blob(1);
      // A piece that cannot be inflated cannot be told back to the table: its entry stays,
      // which can only propose a candidate that the kept text then refuses.
      if (!InflateText(body, &text)) continue;
      ok = unindex_.Bind(1, pieces_.Int(0)).Bind(2, text).Run() == SQLITE_DONE;
    }
    pieces_.Reset();
    if (!ok) return false;
    return !any || drop_.Bind(1, lo).Bind(2, hi).Run() == SQLITE_DONE;
  }

 private:
  Statement pieces_, unindex_, drop_;
};

struct DbRow {
  int64_t id = 0;
  bool is_folder = false;
  int64_t size = 0, modified = 0, change = 0, inode = 0;
  bool seen = false;
  int64_t volume = 0;  // 0: not known yet (an index from before catalogues)
};

// The catalogue of one device number, as far as a walk needs it.
struct VolumeRow {
  int64_t id = 0;  // 0: none (a file system that cannot be identified)
  bool keeps_inodes = true;
};

int64_t Now() { return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()); }

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

// What a walk holds while it writes: the statements, prepared once, and the batch clock.
struct Indexer::Impl {
  explicit Impl(Indexer& owner)
      : owner(owner),
        db(owner.db_),
        children(db.db(),
                 "SELECT id, name, is_folder, size, modified, change_ns, inode, volume FROM items WHERE parent=?"),
        insert(db.db(),
               "INSERT INTO items(parent, name, name_key, extension, is_folder, size, modified, created, attributes, "
               "kind, mime, device, inode, change_ns, volume, state) VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,0)"),
        update(db.db(),
               "UPDATE items SET name_key=?, extension=?, is_folder=?, size=?, modified=?, created=?, attributes=?, "
               "kind=?, mime=?, device=?, inode=?, change_ns=?, volume=?, state=0 WHERE id=?"),
        insert_names(db.db(),
                     "INSERT INTO names(rowid, key) SELECT id, coalesce(name_key, name) FROM items "
                     "WHERE id >= ? AND parent <> 0"),
        insert_folder(db.db(), "INSERT OR REPLACE INTO folders(id, path) VALUES(?, ?)"),
        drop_props(db.db(), "DELETE FROM props WHERE item=?"),
        known_excluded(db.db(), "SELECT name FROM excluded WHERE parent=? ORDER BY name"),
        forget_excluded(db.db(), "DELETE FROM excluded WHERE parent=?"),
        add_excluded(db.db(), "INSERT OR IGNORE INTO excluded(parent, name) VALUES(?, ?)"),
        set_volume(db.db(), "UPDATE items SET volume=? WHERE id=?") {}

  // The catalogue of the file system with device number `device`: found by its mount's number
  // and place when it was seen in that very mount before, otherwise by its identity (made when
  // new); its mount point, numbers and time seen are brought up to date once per walk.
  const VolumeRow& VolumeFor(uint64_t device);

  // Commits when the batch is big or old enough; a kill loses at most one batch.
  // New rows get their names-table entries in one statement per batch: rows are made with
  // rising ids, so everything from the first new id on is new. Called before every commit and
  // before anything is forgotten (a forgotten row's entry must be there to be deleted).
  void NewRow(int64_t id) {
    if (first_new == 0) first_new = id;
  }
  bool FlushNames() {
    if (first_new == 0) return true;
    insert_names.Bind(1, first_new);
    first_new = 0;
    return insert_names.Run() == SQLITE_DONE;
  }

  bool Tick(bool force = false) {
    ++pending;
    if (!force && pending < 50000 && Clock::now() - started < std::chrono::milliseconds(2000)) return true;
    if (!FlushNames() || !db.Commit()) return false;
    pending = 0;
    started = Clock::now();
    return db.Begin();
  }

  // The steps of a walk, in the order it takes them (Indexer::Walk).
  int64_t FolderRow(const std::string& path);
  std::unordered_map<std::string, DbRow> KnownChildren(int64_t folder_id);
  bool WriteChild(int64_t parent_id, const std::string& folder, const FolderChild& entry,
                  std::unordered_map<std::string, DbRow>& known);
  bool WriteFolder(const QueuedFolder& listed, int64_t id, bool first);
  bool WriteMountPoint(int64_t parent_id, const std::string& folder, const FolderChild& entry,
                       std::unordered_map<std::string, DbRow>& known);
  bool KeepExcluded(int64_t folder_id);
  // Ends the walk's transaction after a failed write, keeping the database's message.
  bool Fail(bool rollback = true) {
    owner.error_ = db.LastError();
    if (rollback) db.Exec("ROLLBACK");
    return false;
  }

  Indexer& owner;
  IndexDatabase& db;
  Statement children, insert, update, insert_names, insert_folder, drop_props;
  Statement known_excluded, forget_excluded, add_excluded, set_volume;
  std::unordered_map<uint64_t, VolumeRow> volumes;  // by device number, for this walk
  std::vector<platform::MountEntry> mounts;
  bool mounts_read = false;
  TextDropper texts{db.db()};
  std::vector<std::string> excluded;  // the names the exclusions took out of the folder at hand
  int64_t first_new = 0;  // the first row made since the names table was last brought up
  int pending = 0;
  Clock::time_point started = Clock::now();

  // What one walk is asked and collects.
  std::vector<IgnorePattern> patterns;
  size_t root_length = 0;  // exclusions with a "/" are anchored at the crawl root
  bool recursive = false;
  UpdateStats* stats = nullptr;
  std::vector<int64_t>* touched = nullptr;
  std::function<void(int64_t id, const std::string& path)> push;  // queues a folder to list
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
  const int64_t mount_id = platform::UniqueMountId(*mount);
  Statement here(db.db(), "SELECT id FROM volumes WHERE mount_id=? AND mount_point=?");
  here.Bind(1, mount_id).Bind(2, mount->mount_point);
  if (mount_id != 0 && here.Step() == SQLITE_ROW) {
    it->second.id = here.Int(0);
    Statement seen(db.db(), "UPDATE volumes SET seen=? WHERE id=?");
    seen.Bind(1, Now()).Bind(2, it->second.id).Run();
    return it->second;
  }
  const std::string identity = platform::VolumeIdentity(*mount);
  if (identity.empty()) return it->second;
  Statement add(db.db(),
                "INSERT INTO volumes(identity, fs_type, mount_point, device, mount_id, seen) "
                "VALUES(?1, ?2, ?3, ?4, ?5, ?6) ON CONFLICT(identity) "
                "DO UPDATE SET fs_type=?2, mount_point=?3, device=?4, mount_id=?5, seen=?6");
  add.Bind(1, identity).Bind(2, mount->fs_type).Bind(3, mount->mount_point);
  add.Bind(4, static_cast<int64_t>(device)).Bind(5, mount_id).Bind(6, Now());
  if (add.Run() != SQLITE_DONE) return it->second;
  Statement id(db.db(), "SELECT id FROM volumes WHERE identity=?");
  id.Bind(1, identity);
  if (id.Step() == SQLITE_ROW) it->second.id = id.Int(0);
  return it->second;
}

// The folder's row: a root gets one with parent 0 and its whole path as its name.
int64_t Indexer::Impl::FolderRow(const std::string& path) {
  Statement find(db.db(), "SELECT id FROM folders WHERE path=?");
  find.Bind(1, path);
  if (find.Step() == SQLITE_ROW) return find.Int(0);
  bool is_root = false;
  for (const auto& r : owner.roots_) is_root |= r == path;
  if (!is_root) return 0;
  insert.Bind(1, int64_t{0}).Bind(2, path).BindNull(3).BindNull(4).Bind(5, int64_t{1});
  for (int i = 6; i <= 15; ++i) insert.BindNull(i);
  if (insert.Run() != SQLITE_DONE) return 0;
  int64_t id = sqlite3_last_insert_rowid(db.db());
  Statement mark(db.db(), "UPDATE items SET state=1 WHERE id=?");
  mark.Bind(1, id).Run();
  insert_folder.Bind(1, id).Bind(2, path).Run();
  return id;
}

std::unordered_map<std::string, DbRow> Indexer::Impl::KnownChildren(int64_t folder_id) {
  std::unordered_map<std::string, DbRow> known;
  children.Bind(1, folder_id);
  while (children.Step() == SQLITE_ROW) {
    DbRow row{children.Int(0), children.Int(2) != 0, children.Int(3), children.Int(4),
              children.Int(5),  children.Int(6),     false,                children.Int(7)};
    known.emplace(std::string(children.Text(1)), row);
  }
  children.Reset();
  return known;
}

// Adds or updates the row of one listed child; an unchanged one is only marked seen. False
// (the transaction rolled back, or the batch's commit failed) ends the walk.
bool Indexer::Impl::WriteChild(int64_t parent_id, const std::string& folder, const FolderChild& entry,
                               std::unordered_map<std::string, DbRow>& known) {
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
    DbRow& row = it->second;
    // Another object in the same place has another inode or change time; the type need
    // not be compared (and is_folder also holds for links to folders).
    // (A file system that numbers its inodes anew at each mount is compared without them.)
    const bool same = row.size == size && row.modified == st.modified && row.change == st.changed &&
                      (row.inode == static_cast<int64_t>(st.inode) || !volume.keeps_inodes);
    if (same) {
      // A row from before catalogues learns its file system without being read again.
      if (row.volume != volume.id && volume.id != 0 &&
          set_volume.Bind(1, volume.id).Bind(2, row.id).Run() != SQLITE_DONE)
        return Fail();
      if (is_dir && recursive) push(row.id, child);
      return true;
    }
  }
  auto item = props::ShellItem::FromListing(child, st.type);
  item->SetListedStatus(0, st);
  const bool folder_item = item->IsFolder() && is_dir;
  const std::string key = NameKey(name);
  const FactColumns& facts = Facts();
  Statement& s = it == known.end() ? insert : update;
  int i = 1;
  if (it == known.end()) {
    s.Bind(i++, parent_id);
    s.Bind(i++, name);
  }
  if (key != name) s.Bind(i++, key);
  else s.BindNull(i++);
  BindValue(s, i++, ValueOf(*item, facts.extension));
  s.Bind(i++, int64_t{item->IsFolder() ? 1 : 0});
  BindValue(s, i++, ValueOf(*item, facts.size));
  BindValue(s, i++, ValueOf(*item, facts.modified));
  BindValue(s, i++, ValueOf(*item, facts.created));
  BindValue(s, i++, ValueOf(*item, facts.attributes));
  BindValue(s, i++, ValueOf(*item, facts.kind));
  BindValue(s, i++, ValueOf(*item, facts.mime));
  s.Bind(i++, static_cast<int64_t>(st.device));
  s.Bind(i++, static_cast<int64_t>(st.inode));
  s.Bind(i++, st.changed);
  if (volume.id != 0) s.Bind(i++, volume.id);
  else s.BindNull(i++);
  if (it != known.end()) s.Bind(i++, it->second.id);
  if (s.Run() != SQLITE_DONE) return Fail();
  int64_t row_id;
  if (it == known.end()) {
    row_id = sqlite3_last_insert_rowid(db.db());
    NewRow(row_id);
    ++stats->added;
  } else {
    row_id = it->second.id;
    // What was read of the old file goes; the read phase reads the new one.
    drop_props.Bind(1, row_id).Run();
    if (!texts.Drop(row_id)) return Fail();
    if (it->second.is_folder && !folder_item) {
      // A folder replaced by a file: what was below it goes, the row stays as the file.
      if (!FlushNames()) return Fail();
      owner.Forget(child, false);
      Statement unfolder(db.db(), "DELETE FROM folders WHERE id=?");
      unfolder.Bind(1, row_id).Run();
    }
    ++stats->changed;
  }
  if (touched) touched->push_back(row_id);
  if (folder_item) {
    insert_folder.Bind(1, row_id).Bind(2, child).Run();
    if (recursive) push(row_id, child);
  }
  return Tick() || Fail(false);
}

// Remembers which of the folder's children the exclusions took out, so that a search can walk
// them; written only when that changed (an unchanged tree writes nothing).
bool Indexer::Impl::KeepExcluded(int64_t folder_id) {
  std::sort(excluded.begin(), excluded.end());
  std::vector<std::string> before;
  known_excluded.Bind(1, folder_id);
  while (known_excluded.Step() == SQLITE_ROW) before.emplace_back(known_excluded.Text(0));
  known_excluded.Reset();
  if (before == excluded) return true;
  if (forget_excluded.Bind(1, folder_id).Run() != SQLITE_DONE) return false;
  for (const std::string& name : excluded)
    if (add_excluded.Bind(1, folder_id).Bind(2, name).Run() != SQLITE_DONE) return false;
  return true;
}

bool Indexer::Impl::WriteMountPoint(int64_t parent_id, const std::string& folder, const FolderChild& entry,
                                    std::unordered_map<std::string, DbRow>& known) {
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
bool Indexer::Impl::WriteFolder(const QueuedFolder& listed, int64_t id, bool first) {
  const std::string& path = listed.path;
  std::unordered_map<std::string, DbRow> known = KnownChildren(id);
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
    if (!KeepExcluded(id)) return Fail();
  }
  // Rows whose items are gone (or could not be listed) go with everything below them.
  for (const auto& [name, row] : known) {
    if (row.seen || HeldByAny(JoinPath(path, name), owner.offline_tops_)) continue;
    if (!FlushNames() || !owner.Forget(JoinPath(path, name))) return Fail();
    ++stats->removed;
    if (!Tick()) return Fail(false);
  }
  if (first && rc == ENOENT && !HeldByAny(path, owner.offline_tops_)) {
    // The start folder itself is gone.
    FlushNames();
    owner.Forget(path);
  }
  return true;
}

Indexer::Indexer(IndexDatabase& db) : db_(db) { LoadScope(); }

void Indexer::LoadScope() const {
  roots_.clear();
  exclusions_.clear();
  Statement s(db_.db(), "SELECT path, include FROM scope ORDER BY path");
  while (s.Step() == SQLITE_ROW) (s.Int(1) ? roots_ : exclusions_).emplace_back(s.Text(0));
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
  // A root that holds roots already indexed takes their place.
  for (const auto& root : std::vector<std::string>(roots_))
    if (IsAtOrBelow(root, path)) {
      Forget(root);
      Statement drop(db_.db(), "DELETE FROM scope WHERE path=?");
      drop.Bind(1, root).Run();
    }
  Statement add(db_.db(), "INSERT OR REPLACE INTO scope(path, include) VALUES(?, 1)");
  add.Bind(1, path);
  if (add.Run() != SQLITE_DONE) return *error = db_.LastError(), db_.Exec("ROLLBACK"), false;
  Statement count(db_.db(), "SELECT count(*) FROM scope WHERE include=0");
  if (count.Step() == SQLITE_ROW && count.Int(0) == 0 && db_.Meta("exclusions_set").empty()) {
    Statement ex(db_.db(), "INSERT OR IGNORE INTO scope(path, include) VALUES(?, 0)");
    for (const auto& pattern : DefaultExclusions()) ex.Bind(1, pattern).Run();
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
  Statement add(db_.db(), "INSERT OR REPLACE INTO scope(path, include) VALUES(?, 0)");
  add.Bind(1, pattern);
  if (add.Run() != SQLITE_DONE) return *error = db_.LastError(), false;
  db_.SetMeta("exclusions_set", "1");
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
  if (is_root && !Forget(key)) return *error = db_.LastError(), db_.Exec("ROLLBACK"), false;
  Statement drop(db_.db(), "DELETE FROM scope WHERE path=?");
  drop.Bind(1, key).Run();
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

bool Indexer::Forget(const std::string& path, bool with_self) {
  const auto [lo, hi] = FolderPathsBelow(path);
  sqlite3* db = db_.db();
  // The item itself, and with a folder every row below it.
  db_.Exec("CREATE TEMP TABLE IF NOT EXISTS doomed(id INTEGER PRIMARY KEY); DELETE FROM temp.doomed;");
  if (with_self) {
    Statement self(db, "INSERT OR IGNORE INTO temp.doomed SELECT id FROM folders WHERE path=?");
    self.Bind(1, path).Run();
  }
  Statement below(db,
                  "INSERT OR IGNORE INTO temp.doomed SELECT i.id FROM items i WHERE i.parent IN "
                  "(SELECT id FROM folders WHERE path=?1 OR (path>=?2 AND path<?3))");
  below.Bind(1, path).Bind(2, lo).Bind(3, hi).Run();
  // A file (no folder row): found through its folder and name.
  const size_t slash = path.find_last_of('/');
  if (with_self && slash != std::string::npos) {
    Statement file(db,
                   "INSERT OR IGNORE INTO temp.doomed SELECT i.id FROM items i JOIN folders f ON f.id=i.parent "
                   "WHERE f.path=? AND i.name=?");
    file.Bind(1, slash == 0 ? std::string("/") : path.substr(0, slash)).Bind(2, path.substr(slash + 1)).Run();
  }
  Statement doomed(db, "SELECT id FROM temp.doomed");
  TextDropper texts(db);
  while (doomed.Step() == SQLITE_ROW)
    if (!texts.Drop(doomed.Int(0))) return false;
  return db_.Exec(
      "INSERT INTO names(names, rowid, key) SELECT 'delete', id, coalesce(name_key, name) FROM items "
      "WHERE id IN temp.doomed AND parent<>0;"
      "DELETE FROM excluded WHERE parent IN temp.doomed;"
      "DELETE FROM props WHERE item IN temp.doomed;"
      "DELETE FROM folders WHERE id IN temp.doomed;"
      "DELETE FROM items WHERE id IN temp.doomed;");
}

bool Indexer::Update(const std::vector<std::string>& only, UpdateStats* stats, std::stop_token stop,
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
    Statement tops(db_.db(), "SELECT path FROM folders f JOIN items i ON i.id=f.id WHERE i.parent=0");
    std::vector<std::string> stale;
    while (tops.Step() == SQLITE_ROW) {
      std::string top(tops.Text(0));
      bool kept = false;
      for (const auto& r : roots_) kept |= r == top;
      if (!kept && !IsParkedPlace(top)) stale.push_back(top);
    }
    for (const auto& s : stale) {
      db_.Begin();
      Forget(s);
      db_.Commit();
    }
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
  return true;
}

bool Indexer::Refresh(const std::string& folder, bool recursive, UpdateStats* stats, std::stop_token stop) {
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
  if (!db_.Begin()) return error_ = db_.LastError(), false;
  int64_t start_id = impl.FolderRow(start);
  if (start_id == 0) {
    // A folder below a root that has no row yet: its parent's listing makes it, when it is
    // there at all (a watch may still name a folder that has moved away).
    db_.Exec("ROLLBACK");
    platform::FileStatus st;
    const size_t slash = start.find_last_of('/');
    if (slash == std::string::npos || start == "/" || platform::StatPath(AT_FDCWD, start, false, &st) != 0 ||
        !st.IsDirectory())
      return true;
    const std::string parent = slash == 0 ? "/" : start.substr(0, slash);
    if (!InScope(parent)) return true;
    if (!Walk(parent, false, stats, stop, progress, touched)) return false;
    if (!db_.Begin()) return error_ = db_.LastError(), false;
    start_id = impl.FolderRow(start);
    if (start_id == 0) return db_.Commit();
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
  std::deque<int64_t> ids;  // the rows of the queued folders, in the queue's order
  auto push = [&](int64_t id, const std::string& path, bool through_link) {
    auto f = std::make_shared<QueuedFolder>();
    f->path = path;
    f->through_link = through_link;
    queue.Push(std::move(f));
    ids.push_back(id);
  };
  push(start_id, start, true);
  impl.push = [&push](int64_t id, const std::string& path) { push(id, path, false); };
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
    const int64_t id = ids.front();
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
        committed = impl.FlushNames() && db_.Commit();
      });
      if (waited && (!committed || !db_.Begin())) return error_ = db_.LastError(), false;
    }
    if (progress && Clock::now() - last_progress > std::chrono::milliseconds(250)) {
      last_progress = Clock::now();
      progress(UpdateProgress{"walk", stats, path});
    }
    if (!impl.WriteFolder(*listed, id, first)) return false;
    first = false;
  }
  if (!impl.FlushNames() || !db_.Commit()) return error_ = db_.LastError(), false;
  return true;
}

namespace {

// What reading one item gave: its indexed properties and its text, as the index keeps it
// (text_pieces.h), or nothing.
struct ReadItem {
  int64_t id = 0;
  size_t source = 0;  // its place in the list of ids asked for, when one was given
  std::string path;
  bool folder = false;
  std::vector<std::pair<const props::PropertyInfo*, props::PropValue>> values;
  std::string text;                 // folded
  std::vector<TextPiece> pieces;    // into `text`
  std::vector<std::string> bodies;  // each piece compressed
  std::vector<std::string> seams;   // each piece's seam set
  bool partial = false;             // the text went on past what is kept
  int state = 1;                    // items.state once written (see index_schema.h)
  bool not_answering = false;       // on a mount whose server said nothing: left to read later
};

// What a read item holds in memory until its batch is written, near enough.
size_t HeldBytes(const ReadItem& r) {
  size_t bytes = sizeof r + r.path.size() + r.text.size();
  for (const std::string& b : r.bodies) bytes += b.size();
  bytes += r.seams.size() * kSeamBytes;
  for (const auto& [info, value] : r.values) {
    bytes += sizeof info + sizeof value;
    if (value.IsText()) bytes += value.text().size();
    if (value.IsVector())
      for (const std::string& t : value.texts()) bytes += t.size();
  }
  return bytes;
}

void WriteValues(IndexDatabase& db, Statement& add_prop,
                 std::unordered_map<const props::PropertyInfo*, int64_t>& prop_ids, const ReadItem& r) {
  for (const auto& [info, value] : r.values) {
    auto [it, fresh] = prop_ids.emplace(info, 0);
    if (fresh) it->second = db.PropertyId(info->name, true);
    add_prop.Bind(1, r.id).Bind(2, it->second);
    BindValue(add_prop, 3, &value);
    add_prop.Run();
  }
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

void ReadOne(ReadItem& r, ContentsReader& contents, const PluginFields& plugins, size_t piece_bytes,
             size_t max_text) {
  auto item = props::ShellItem::FromPath(r.path);
  if (item->Status() == nullptr) return;  // gone: the next walk removes its row
  ReadValues(r, *item, Facts().others);
  ReadValues(r, *item, plugins.fields);
  if (r.folder || item->Status()->type != platform::FileType::kRegular) return;
  std::string text;
  bool any_text = false;  // a character other than NUL and blanks was seen
  props::ContentsResult result = contents.Read(*item, [&](std::string_view piece) {
    for (char c : piece) any_text |= c != '\0' && c != ' ' && c != '\n' && c != '\r' && c != '\t';
    text.append(piece.substr(0, max_text - std::min(max_text, text.size())));
    // A file of zeros (a sparse or preallocated file) decodes as NULs: no words in it for
    // anyone to find, so it is not read to its end.
    if (!any_text && text.size() >= Indexer::kZeroProbeBytes) return false;
    // At the bound the reading stops; what may follow is the file reader's to find.
    if (text.size() >= max_text) r.partial = true;
    return !r.partial;
  });
  if (result.status != props::ContentsStatus::kText || !any_text) {
    r.partial = false;
    // A file the reading failed on is kept with why, for a search's count of files not read.
    UnreadReason reason;
    if (UnreadReasonOf(result.status, item->name(), contents.options(), &reason)) r.state = UnreadTextState(result.status);
    return;
  }
  r.text = IndexedText(text);
  text = std::string();
  r.pieces = SplitTextPieces(r.text, piece_bytes, Indexer::kTextPieceOverlap);
  if (r.pieces.size() > static_cast<size_t>(kMaxTextPieces)) {
    r.pieces.resize(static_cast<size_t>(kMaxTextPieces));
    r.partial = true;
  }
  // Compressed here, on the reading threads: the writing thread is the one that waits.
  for (const TextPiece& piece : r.pieces) {
    r.bodies.push_back(CompressText(piece.text));
    r.seams.push_back(SeamSet(piece.text));
  }
}

// Plugin values kept under other plugins, or none: when the installed plugins are not those
// the kept values were read under, the values of the old and the new fields go, and every
// item read before gets the new fields' values (its text and other values stay). Items still
// to be read get them from the read phase. Stopped half-way, it starts again next time.
bool RereadPluginValues(IndexDatabase& db, const PluginFields& plugins, const std::stop_token& stop) {
  const std::string kept = db.Meta(kPluginSignatureMeta);
  if (kept == plugins.signature) return true;
  if (!db.Begin()) return false;
  Statement forget(db.db(), "DELETE FROM props WHERE prop=?");
  auto forget_lines = [&](const std::string& signature) {
    size_t start = 0;
    for (size_t end; (end = signature.find('\n', start)) != std::string::npos; start = end + 1) {
      const std::string_view line(signature.data() + start, end - start);
      if (line.find('\t') != std::string_view::npos) continue;  // a plugin's line, not a field
      if (const int64_t id = db.PropertyId(line, false); id != 0) forget.Bind(1, id).Run();
    }
  };
  forget_lines(kept);
  forget_lines(plugins.signature);
  if (!db.Commit()) return false;
  Statement read(db.db(),
                 "SELECT i.id, f.path, i.name FROM items i JOIN folders f ON f.id=i.parent "
                 "WHERE i.id>? AND i.state<>0 ORDER BY i.id LIMIT " +
                     std::to_string(Indexer::kReadBatchItems));
  Statement add_prop(db.db(), "INSERT OR REPLACE INTO props(item, prop, value) VALUES(?,?,?)");
  std::unordered_map<const props::PropertyInfo*, int64_t> prop_ids;
  int64_t after = 0;
  while (!plugins.fields.empty()) {
    if (stop.stop_requested()) return true;  // the signature stays as it was: done again next time
    std::vector<ReadItem> batch;
    read.Bind(1, after);
    while (read.Step() == SQLITE_ROW) {
      ReadItem& r = batch.emplace_back();
      r.id = after = read.Int(0);
      r.path = JoinPath(std::string(read.Text(1)), read.Text(2));
    }
    read.Reset();
    if (batch.empty()) break;
    for (ReadItem& r : batch) {
      auto item = props::ShellItem::FromPath(r.path);
      if (item->Status() != nullptr) ReadValues(r, *item, plugins.fields);
    }
    if (!db.Begin()) return false;
    for (const ReadItem& r : batch) WriteValues(db, add_prop, prop_ids, r);
    if (!db.Commit()) return false;
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
  Statement pending(
      db_.db(),
      "SELECT i.id, f.path, i.name, i.is_folder FROM items i JOIN folders f ON f.id=i.parent "
      "WHERE i.id>? AND i.state=0 ORDER BY i.id LIMIT " +
          std::to_string(kReadBatchItems));
  int64_t after = 0;
  Statement one(db_.db(),
                "SELECT i.id, f.path, i.name, i.is_folder FROM items i JOIN folders f ON f.id=i.parent "
                "WHERE i.id=? AND i.state=0");
  size_t next_id = 0;  // into `ids`
  Statement add_prop(db_.db(), "INSERT OR REPLACE INTO props(item, prop, value) VALUES(?,?,?)");
  Statement add_piece(db_.db(), "INSERT OR REPLACE INTO texts(id, lead, seams, body) VALUES(?, ?, ?, ?)");
  Statement add_text(db_.db(), "INSERT INTO contents(rowid, text) VALUES(?, ?)");
  Statement done(db_.db(), "UPDATE items SET state=? WHERE id=?");
  std::unordered_map<const props::PropertyInfo*, int64_t> prop_ids;
  // Documents wait on the extraction helpers, which run as a pool: several are read at once
  // while this thread writes what came back.
  const unsigned workers = std::clamp(std::thread::hardware_concurrency(), 1u, 4u);
  auto last_progress = Clock::now();
  while (!stop.stop_requested()) {
    std::vector<ReadItem> batch;
    int64_t last_taken = 0;  // the last pending row seen, read now or not
    auto take = [&batch, &last_taken, this](Statement& rows) {
      while (rows.Step() == SQLITE_ROW) {
        ReadItem r;
        r.id = last_taken = rows.Int(0);
        r.path = JoinPath(std::string(rows.Text(1)), rows.Text(2));
        r.folder = rows.Int(3) != 0;
        // A row of a drive that is not mounted stays to be read: reading it now would find
        // nothing and mark it read, and the drive's return would not read it again.
        if (HeldByAny(r.path, offline_tops_)) continue;
        batch.push_back(std::move(r));
      }
      rows.Reset();
    };
    if (ids != nullptr) {
      for (; next_id < ids->size() && batch.size() < kReadBatchItems; ++next_id) {
        const size_t before = batch.size();
        take(one.Bind(1, (*ids)[next_id]));
        for (size_t k = before; k < batch.size(); ++k) batch[k].source = next_id;
      }
      if (batch.empty() && next_id >= ids->size()) break;
      if (batch.empty()) continue;
    } else {
      take(pending.Bind(1, after));
      if (batch.empty() && last_taken == 0) break;
      if (batch.empty()) {
        after = last_taken;
        continue;
      }
    }
    // The workers take items in order until what the batch read holds reaches its bound;
    // the items they are reading then still finish (see kReadBatchBytes).
    std::atomic<size_t> next{0};
    std::atomic<size_t> held{0};
    auto work = [&] {
      while (!stop.stop_requested() && held.load() < read_batch_bytes_) {
        if (throttle_ != nullptr) throttle_->Checkpoint("reading", stop);
        if (stop.stop_requested()) break;
        const size_t i = next.fetch_add(1);
        if (i >= batch.size()) break;
        if (!Answers(batch[i].path, silent, stop)) {
          batch[i].not_answering = true;
          continue;
        }
        ReadOne(batch[i], contents, plugins, text_piece_bytes_, max_text_bytes_);
        held.fetch_add(HeldBytes(batch[i]));
      }
    };
    std::vector<std::thread> threads;
    for (unsigned t = 1; t < workers; ++t) threads.emplace_back(work);
    work();
    for (auto& t : threads) t.join();
    if (stop.stop_requested()) break;  // the batch stays marked and is read next time
    // Every item taken was read; those after them stay marked for the next batch.
    const size_t taken = std::min(next.load(), batch.size());
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
    for (ReadItem& r : batch) {
      if (r.not_answering) continue;  // still marked: read by a later update
      WriteValues(db_, add_prop, prop_ids, r);
      for (size_t k = 0; k < r.pieces.size(); ++k) {
        const int64_t piece_id = TextPieceId(r.id, static_cast<int64_t>(k));
        add_piece.Bind(1, piece_id).Bind(2, static_cast<int64_t>(r.pieces[k].lead)).BindBlob(3, r.seams[k]);
        add_piece.BindBlob(4, r.bodies[k]).Run();
        add_text.Bind(1, piece_id).Bind(2, r.pieces[k].text).Run();
        stats->text_bytes += static_cast<int64_t>(r.pieces[k].text.size() - r.pieces[k].lead);
      }
      stats->partial += r.partial;
      done.Bind(1, int64_t{r.partial ? kStatePartialText : r.state}).Bind(2, r.id).Run();
      ++stats->read;
    }
    if (!db_.Commit()) return error_ = db_.LastError(), false;
    ++stats->read_batches;
  }
  stats->not_answering.insert(stats->not_answering.end(), silent.named.begin(), silent.named.end());
  return true;
}

std::string InstalledPluginSignature() { return PluginFields().signature; }

}  // namespace trovix::engine::index
