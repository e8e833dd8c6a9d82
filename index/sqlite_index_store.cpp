#include "index/sqlite_index_store.h"

#include <chrono>

#include "base/file_name.h"
#include "engine/walk/folder_enumerator.h"
#include "index/sqlite/index_schema.h"
#include "index/sqlite/text_pieces.h"
#include "platform/sqlite_statement.h"

namespace trovix::engine::index {
using platform::Statement;
namespace {

int64_t Now() { return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()); }

void Bind(Statement& s, int i, const std::optional<SqlParam>& value) {
  if (!value) {
    s.BindNull(i);
  } else if (const auto* n = std::get_if<int64_t>(&*value)) {
    s.Bind(i, *n);
  } else if (const auto* d = std::get_if<double>(&*value)) {
    s.Bind(i, *d);
  } else {
    s.Bind(i, std::string_view(std::get<std::string>(*value)));
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

constexpr const char* kRowsSql = "SELECT i.id, f.path, i.name, i.is_folder FROM items i JOIN folders f ON f.id=i.parent ";

void TakeRows(Statement& s, std::vector<StoredItem>* out) {
  while (s.Step() == SQLITE_ROW)
    out->push_back(StoredItem{s.Int(0), std::string(s.Text(1)), std::string(s.Text(2)), s.Int(3) != 0});
  s.Reset();
}

}  // namespace

// Prepared once, on first use, and kept while the store lives.
struct SqliteIndexStore::Statements {
  explicit Statements(sqlite3* db)
      : children(db, "SELECT id, name, is_folder, size, modified, change_ns, inode, volume FROM items WHERE parent=?"),
        insert(db,
               "INSERT INTO items(parent, name, name_key, extension, is_folder, size, modified, created, attributes, "
               "kind, mime, device, inode, change_ns, volume, state) VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,0)"),
        update(db,
               "UPDATE items SET name_key=?, extension=?, is_folder=?, size=?, modified=?, created=?, attributes=?, "
               "kind=?, mime=?, device=?, inode=?, change_ns=?, volume=?, state=0 WHERE id=?"),
        insert_names(db,
                     "INSERT INTO names(rowid, key) SELECT id, coalesce(name_key, name) FROM items "
                     "WHERE id >= ? AND parent <> 0"),
        insert_folder(db, "INSERT OR REPLACE INTO folders(id, path) VALUES(?, ?)"),
        drop_props(db, "DELETE FROM props WHERE item=?"),
        known_excluded(db, "SELECT name FROM excluded WHERE parent=? ORDER BY name"),
        forget_excluded(db, "DELETE FROM excluded WHERE parent=?"),
        add_excluded(db, "INSERT OR IGNORE INTO excluded(parent, name) VALUES(?, ?)"),
        set_volume(db, "UPDATE items SET volume=? WHERE id=?"),
        pending(db, std::string(kRowsSql) + "WHERE i.id>? AND i.state=0 ORDER BY i.id LIMIT ?"),
        read_before(db, std::string(kRowsSql) + "WHERE i.id>? AND i.state<>0 ORDER BY i.id LIMIT ?"),
        one(db, std::string(kRowsSql) + "WHERE i.id=? AND i.state=0"),
        add_prop(db, "INSERT OR REPLACE INTO props(item, prop, value) VALUES(?,?,?)"),
        add_piece(db, "INSERT OR REPLACE INTO texts(id, lead, seams, body) VALUES(?, ?, ?, ?)"),
        add_text(db, "INSERT INTO contents(rowid, text) VALUES(?, ?)"),
        done(db, "UPDATE items SET state=? WHERE id=?"),
        texts(db) {}

  Statement children, insert, update, insert_names, insert_folder, drop_props;
  Statement known_excluded, forget_excluded, add_excluded, set_volume;
  Statement pending, read_before, one, add_prop, add_piece, add_text, done;
  TextDropper texts;
};

SqliteIndexStore::SqliteIndexStore(IndexDatabase& db) : db_(db) {}
SqliteIndexStore::~SqliteIndexStore() = default;

SqliteIndexStore::Statements& SqliteIndexStore::S() {
  if (!s_) s_ = std::make_unique<Statements>(db_.db());
  return *s_;
}

bool SqliteIndexStore::Begin() { return db_.Begin(); }

bool SqliteIndexStore::Commit() { return FlushNames() && db_.Commit(); }

void SqliteIndexStore::Rollback() {
  db_.Exec("ROLLBACK");
  first_new_ = 0;
  prop_ids_.clear();  // a name made in the batch is gone with it
}

bool SqliteIndexStore::FlushNames() {
  if (first_new_ == 0) return true;
  S().insert_names.Bind(1, first_new_);
  first_new_ = 0;
  return S().insert_names.Run() == SQLITE_DONE;
}

void SqliteIndexStore::ReadScope(std::vector<std::string>* roots, std::vector<std::string>* exclusions) {
  Statement s(db_.db(), "SELECT path, include FROM scope ORDER BY path");
  while (s.Step() == SQLITE_ROW) (s.Int(1) ? roots : exclusions)->emplace_back(s.Text(0));
}

bool SqliteIndexStore::SetScope(const std::string& path, bool include) {
  Statement add(db_.db(), "INSERT OR REPLACE INTO scope(path, include) VALUES(?, ?)");
  return add.Bind(1, path).Bind(2, int64_t{include ? 1 : 0}).Run() == SQLITE_DONE;
}

bool SqliteIndexStore::DropScope(const std::string& path) {
  Statement drop(db_.db(), "DELETE FROM scope WHERE path=?");
  return drop.Bind(1, path).Run() == SQLITE_DONE;
}

std::vector<std::string> SqliteIndexStore::Tops() {
  Statement tops(db_.db(), "SELECT path FROM folders f JOIN items i ON i.id=f.id WHERE i.parent=0");
  std::vector<std::string> out;
  while (tops.Step() == SQLITE_ROW) out.emplace_back(tops.Text(0));
  return out;
}

// A root's row has parent 0 and its whole path as its name.
int64_t SqliteIndexStore::FolderRow(const std::string& path, bool root) {
  Statement find(db_.db(), "SELECT id FROM folders WHERE path=?");
  find.Bind(1, path);
  if (find.Step() == SQLITE_ROW) return find.Int(0);
  if (!root) return 0;
  Statement& insert = S().insert;
  insert.Bind(1, int64_t{0}).Bind(2, path).BindNull(3).BindNull(4).Bind(5, int64_t{1});
  for (int i = 6; i <= 15; ++i) insert.BindNull(i);
  if (insert.Run() != SQLITE_DONE) return 0;
  int64_t id = sqlite3_last_insert_rowid(db_.db());
  Statement mark(db_.db(), "UPDATE items SET state=1 WHERE id=?");
  mark.Bind(1, id).Run();
  S().insert_folder.Bind(1, id).Bind(2, path).Run();
  return id;
}

bool SqliteIndexStore::Children(int64_t folder_id, const std::string&, std::unordered_map<std::string, StoredChild>* out) {
  Statement& children = S().children;
  children.Bind(1, folder_id);
  while (children.Step() == SQLITE_ROW) {
    StoredChild row{children.Int(0), children.Int(2) != 0, children.Int(3), children.Int(4),
                    children.Int(5), children.Int(6),      false,           children.Int(7)};
    out->emplace(std::string(children.Text(1)), row);
  }
  children.Reset();
  return true;
}

// Binds the facts from the name key on, as insert and update both list them.
bool SqliteIndexStore::Facts(Statement& s, int i, const ItemFacts& f) {
  if (!f.name_key.empty()) s.Bind(i++, f.name_key);
  else s.BindNull(i++);
  Bind(s, i++, f.extension);
  s.Bind(i++, int64_t{f.is_folder ? 1 : 0});
  Bind(s, i++, f.size);
  Bind(s, i++, f.modified);
  Bind(s, i++, f.created);
  Bind(s, i++, f.attributes);
  Bind(s, i++, f.kind);
  Bind(s, i++, f.mime);
  s.Bind(i++, f.device);
  s.Bind(i++, f.inode);
  s.Bind(i++, f.change);
  if (f.volume != 0) s.Bind(i++, f.volume);
  else s.BindNull(i++);
  return true;
}

int64_t SqliteIndexStore::AddItem(int64_t folder_id, const std::string& folder, const ItemFacts& facts) {
  Statement& insert = S().insert;
  insert.Bind(1, folder_id).Bind(2, facts.name);
  Facts(insert, 3, facts);
  if (insert.Run() != SQLITE_DONE) return 0;
  const int64_t id = sqlite3_last_insert_rowid(db_.db());
  if (first_new_ == 0) first_new_ = id;
  if (facts.listed && S().insert_folder.Bind(1, id).Bind(2, JoinPath(folder, facts.name)).Run() != SQLITE_DONE) return 0;
  return id;
}

bool SqliteIndexStore::ChangeItem(int64_t id, const std::string& folder, const ItemFacts& facts, bool was_folder) {
  Statements& s = S();
  Facts(s.update, 1, facts);
  s.update.Bind(14, id);
  if (s.update.Run() != SQLITE_DONE) return false;
  // What was read of the old file goes; the read phase reads the new one.
  s.drop_props.Bind(1, id).Run();
  if (!s.texts.Drop(id)) return false;
  const std::string path = JoinPath(folder, facts.name);
  if (was_folder && !facts.listed) {
    // A folder replaced by a file: what was below it goes, the row stays as the file.
    if (!Forget(path, false)) return false;
    Statement unfolder(db_.db(), "DELETE FROM folders WHERE id=?");
    unfolder.Bind(1, id).Run();
  }
  return !facts.listed || s.insert_folder.Bind(1, id).Bind(2, path).Run() == SQLITE_DONE;
}

bool SqliteIndexStore::SetVolume(int64_t id, int64_t volume) {
  return S().set_volume.Bind(1, volume).Bind(2, id).Run() == SQLITE_DONE;
}

bool SqliteIndexStore::KeepExcluded(int64_t folder_id, const std::string&, const std::vector<std::string>& names) {
  Statements& s = S();
  std::vector<std::string> before;
  s.known_excluded.Bind(1, folder_id);
  while (s.known_excluded.Step() == SQLITE_ROW) before.emplace_back(s.known_excluded.Text(0));
  s.known_excluded.Reset();
  if (before == names) return true;
  if (s.forget_excluded.Bind(1, folder_id).Run() != SQLITE_DONE) return false;
  for (const std::string& name : names)
    if (s.add_excluded.Bind(1, folder_id).Bind(2, name).Run() != SQLITE_DONE) return false;
  return true;
}

int64_t SqliteIndexStore::Volume(const platform::MountEntry& mount, const std::function<std::string()>& identity) {
  Statement here(db_.db(), "SELECT id FROM volumes WHERE mount_id=? AND mount_point=?");
  here.Bind(1, mount.mount_id).Bind(2, mount.mount_point);
  // 0: the kernel does not tell a number that is never reused; the identity decides.
  if (mount.mount_id != 0 && here.Step() == SQLITE_ROW) {
    const int64_t id = here.Int(0);
    Statement seen(db_.db(), "UPDATE volumes SET seen=? WHERE id=?");
    seen.Bind(1, Now()).Bind(2, id).Run();
    return id;
  }
  const std::string name = identity();
  if (name.empty()) return 0;
  Statement add(db_.db(),
                "INSERT INTO volumes(identity, fs_type, mount_point, device, mount_id, seen) "
                "VALUES(?1, ?2, ?3, ?4, ?5, ?6) ON CONFLICT(identity) "
                "DO UPDATE SET fs_type=?2, mount_point=?3, device=?4, mount_id=?5, seen=?6");
  add.Bind(1, name).Bind(2, mount.fs_type).Bind(3, mount.mount_point);
  add.Bind(4, static_cast<int64_t>(mount.device)).Bind(5, mount.mount_id).Bind(6, Now());
  if (add.Run() != SQLITE_DONE) return 0;
  Statement id(db_.db(), "SELECT id FROM volumes WHERE identity=?");
  id.Bind(1, name);
  return id.Step() == SQLITE_ROW ? id.Int(0) : 0;
}

bool SqliteIndexStore::Forget(const std::string& path, bool with_self) {
  if (!FlushNames()) return false;
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
  while (doomed.Step() == SQLITE_ROW)
    if (!S().texts.Drop(doomed.Int(0))) return false;
  return db_.Exec(
      "INSERT INTO names(names, rowid, key) SELECT 'delete', id, coalesce(name_key, name) FROM items "
      "WHERE id IN temp.doomed AND parent<>0;"
      "DELETE FROM excluded WHERE parent IN temp.doomed;"
      "DELETE FROM props WHERE item IN temp.doomed;"
      "DELETE FROM folders WHERE id IN temp.doomed;"
      "DELETE FROM items WHERE id IN temp.doomed;");
}

bool SqliteIndexStore::Rows(int64_t after, size_t limit, bool pending, std::vector<StoredItem>* out) {
  Statement& s = pending ? S().pending : S().read_before;
  TakeRows(s.Bind(1, after).Bind(2, static_cast<int64_t>(limit)), out);
  return true;
}

bool SqliteIndexStore::PendingRow(int64_t id, std::vector<StoredItem>* out) {
  TakeRows(S().one.Bind(1, id), out);
  return true;
}

bool SqliteIndexStore::AddValues(int64_t id, const std::vector<std::pair<std::string, SqlParam>>& values) {
  Statement& add = S().add_prop;
  for (const auto& [name, value] : values) {
    auto [it, fresh] = prop_ids_.try_emplace(name, 0);
    if (fresh) it->second = db_.PropertyId(name, true);
    add.Bind(1, id).Bind(2, it->second);
    Bind(add, 3, value);
    add.Run();
  }
  return true;
}

bool SqliteIndexStore::WriteRead(const ReadRow& row) {
  Statements& s = S();
  AddValues(row.id, row.values);
  for (size_t k = 0; k < row.pieces.size(); ++k) {
    const ReadPiece& piece = row.pieces[k];
    const int64_t piece_id = TextPieceId(row.id, row.first_piece + static_cast<int64_t>(k));
    s.add_piece.Bind(1, piece_id).Bind(2, piece.lead).BindBlob(3, piece.seams).BindBlob(4, piece.body).Run();
    s.add_text.Bind(1, piece_id).Bind(2, piece.text).Run();
  }
  s.done.Bind(1, int64_t{row.state}).Bind(2, row.id).Run();
  return true;
}

bool SqliteIndexStore::ForgetProperty(const std::string& name) {
  const int64_t id = db_.PropertyId(name, false);
  if (id == 0) return true;
  Statement forget(db_.db(), "DELETE FROM props WHERE prop=?");
  return forget.Bind(1, id).Run() == SQLITE_DONE;
}

void SqliteIndexStore::Folders(const std::string& top, const std::function<void(const std::string&, int64_t)>& each) {
  const auto [lo, hi] = FolderPathsBelow(top);
  Statement folders(db_.db(),
                    "SELECT f.path, coalesce(i.device, 0) FROM folders f JOIN items i ON i.id=f.id "
                    "WHERE f.path=? OR (f.path>=? AND f.path<?)");
  folders.Bind(1, top).Bind(2, lo).Bind(3, hi);
  while (folders.Step() == SQLITE_ROW) each(std::string(folders.Text(0)), folders.Int(1));
}

}  // namespace trovix::engine::index
