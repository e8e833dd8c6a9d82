// The indexer's side of drives that come and go: following a catalogue to the place its drive
// is mounted now, and dropping a catalogue on request (see indexer.h).
#include "base/file_name.h"
#include "engine/walk/folder_enumerator.h"
#include "index/indexer.h"
#include "index/volume_catalogue.h"
#include "platform/sqlite_statement.h"
#include "platform/volume_identity.h"

namespace trovix::engine::index {
using platform::Statement;

// Only the local index keeps catalogues of drives that come and go; a file server's shared
// index is of the server's own disks.
bool Indexer::FollowDrives(std::vector<std::string>* moved) {
  offline_tops_.clear();
  IndexDatabase* local = db_.local();
  if (local == nullptr) return true;
  VolumeCatalogues catalogues(local->db());
  if (catalogues.list().empty()) return true;
  catalogues.Check(platform::ReadMountTable());
  // Those that leave a place first, so that a drive coming back finds its place free.
  for (const Catalogue& c : catalogues.list()) {
    if (!c.online && c.moved_to.empty() && c.displaced && !c.parked && !Park(c.identity, c.mount_point)) return false;
  }
  for (const Catalogue& c : catalogues.list()) {
    if (c.online && !c.parked) continue;
    const std::string place = c.online ? c.mount_point : c.moved_to;
    if (place.empty()) {
      // Not mounted: every walk leaves its rows alone, at its place or parked.
      offline_tops_.push_back(c.displaced || c.parked ? ParkedPlace(c.identity) : c.mount_point);
      continue;
    }
    if (c.parked ? !Unpark(c.identity, place) : !Relocate(c.mount_point, place)) return false;
    if (place == c.mount_point) continue;
    Statement where(local->db(), "UPDATE volumes SET mount_point=? WHERE id=?");
    where.Bind(1, place).Bind(2, c.id);
    if (where.Run() != SQLITE_DONE) return error_ = db_.LastError(), false;
    if (moved != nullptr) moved->push_back(c.mount_point + " -> " + place);
  }
  return true;
}

bool Indexer::MoveFolderPaths(const std::string& from, const std::string& to) {
  // Paths are compared and cut as bytes: a name need not be UTF-8.
  const auto [lo, hi] = FolderPathsBelow(from);
  Statement s(db_.local()->db(),
              "UPDATE folders SET path=?1 || substr(CAST(path AS BLOB), length(CAST(?2 AS BLOB)) + 1) "
              "WHERE path=?2 OR (path>=?3 AND path<?4)");
  return s.Bind(1, to).Bind(2, from).Bind(3, lo).Bind(4, hi).Run() == SQLITE_DONE;
}

bool Indexer::LinkTop(int64_t top_id, const std::string& to) {
  sqlite3* db = db_.local()->db();
  const size_t slash = to.find_last_of('/');
  const std::string parent_path = slash == 0 ? std::string("/") : to.substr(0, slash);
  const std::string name = to.substr(slash + 1);
  Statement parent(db, "SELECT id FROM folders WHERE path=?");
  parent.Bind(1, parent_path);
  LoadScope();
  if (parent.Step() == SQLITE_ROW && InScope(to)) {
    const std::string key = NameKey(name);
    Statement place(db, "UPDATE items SET parent=?, name=?, name_key=? WHERE id=?");
    place.Bind(1, parent.Int(0)).Bind(2, name);
    if (key != name) place.Bind(3, key);
    else place.BindNull(3);
    place.Bind(4, top_id);
    Statement rename(db, "INSERT INTO names(rowid, key) VALUES(?, ?)");
    return place.Run() == SQLITE_DONE && rename.Bind(1, top_id).Bind(2, key).Run() == SQLITE_DONE;
  }
  Statement place(db, "UPDATE items SET parent=0, name=?, name_key=NULL WHERE id=?");
  Statement root(db, "INSERT OR REPLACE INTO scope(path, include) VALUES(?, 1)");
  return place.Bind(1, to).Bind(2, top_id).Run() == SQLITE_DONE && root.Bind(1, to).Run() == SQLITE_DONE;
}

bool Indexer::Abandon() {
  error_ = db_.LastError();
  db_.Rollback();
  return false;
}

bool Indexer::Relocate(const std::string& from, const std::string& to) {
  sqlite3* db = db_.local()->db();
  if (!db_.Begin()) return error_ = db_.LastError(), false;
  // What the index holds at the new place (the empty folder the drive is mounted on, as a
  // walk saw it before) gives way to the drive.
  if (!Forget(to)) return Abandon();
  Statement top(db, "SELECT i.id, i.parent, coalesce(i.name_key, i.name) FROM items i JOIN folders f ON f.id=i.id "
                    "WHERE f.path=?");
  top.Bind(1, from);
  const bool has_top = top.Step() == SQLITE_ROW;
  const int64_t top_id = has_top ? top.Int(0) : 0;
  const int64_t top_parent = has_top ? top.Int(1) : 0;
  const std::string old_key = has_top ? std::string(top.Text(2)) : std::string();
  top.Reset();
  const auto [lo, hi] = FolderPathsBelow(from);
  if (!MoveFolderPaths(from, to)) return Abandon();
  // Crawl roots have their whole path as their name.
  for (const char* sql : {"UPDATE items SET name=?1 || substr(CAST(name AS BLOB), length(CAST(?2 AS BLOB)) + 1) "
                          "WHERE parent=0 AND (name=?2 OR (name>=?3 AND name<?4))",
                          "UPDATE scope SET path=?1 || substr(CAST(path AS BLOB), length(CAST(?2 AS BLOB)) + 1) "
                          "WHERE include=1 AND (path=?2 OR (path>=?3 AND path<?4))"}) {
    Statement s(db, sql);
    s.Bind(1, to).Bind(2, from).Bind(3, lo).Bind(4, hi);
    if (s.Run() != SQLITE_DONE) return Abandon();
  }
  if (has_top && top_parent != 0) {
    // The drive's top folder was a folder of an indexed tree: it goes into the folder of its
    // new place when that is indexed too, else its new place becomes a crawl root.
    Statement unname(db, "INSERT INTO names(names, rowid, key) VALUES('delete', ?, ?)");
    if (unname.Bind(1, top_id).Bind(2, old_key).Run() != SQLITE_DONE || !LinkTop(top_id, to)) return Abandon();
  }
  if (!db_.Commit()) return error_ = db_.LastError(), false;
  LoadScope();
  return true;
}

bool Indexer::Park(const std::string& identity, const std::string& mount_point) {
  sqlite3* db = db_.local()->db();
  const std::string place = ParkedPlace(identity);
  if (!db_.Begin()) return error_ = db_.LastError(), false;
  // Its top folder leaves the folder it was in (and the names table, as every row without a
  // parent): the drive mounted there now gets a row of its own. A crawl root stays one, for
  // that drive.
  Statement top(db, "SELECT i.id, i.parent, coalesce(i.name_key, i.name) FROM items i JOIN folders f ON f.id=i.id "
                    "WHERE f.path=?");
  top.Bind(1, mount_point);
  if (top.Step() == SQLITE_ROW) {
    const int64_t id = top.Int(0);
    if (top.Int(1) != 0) {
      Statement unname(db, "INSERT INTO names(names, rowid, key) VALUES('delete', ?, ?)");
      if (unname.Bind(1, id).Bind(2, std::string(top.Text(2))).Run() != SQLITE_DONE) return Abandon();
    }
    Statement aside(db, "UPDATE items SET parent=0, name=?, name_key=NULL WHERE id=?");
    if (aside.Bind(1, place).Bind(2, id).Run() != SQLITE_DONE) return Abandon();
  }
  top.Reset();
  if (!MoveFolderPaths(mount_point, place)) return Abandon();
  if (!db_.Commit()) return error_ = db_.LastError(), false;
  return true;
}

bool Indexer::Unpark(const std::string& identity, const std::string& to) {
  sqlite3* db = db_.local()->db();
  const std::string place = ParkedPlace(identity);
  if (!db_.Begin()) return error_ = db_.LastError(), false;
  // What is left at its place (what a walk saw there while the drive was away) gives way.
  if (!Forget(to)) return Abandon();
  Statement top(db, "SELECT id FROM folders WHERE path=?");
  top.Bind(1, place);
  const int64_t top_id = top.Step() == SQLITE_ROW ? top.Int(0) : 0;
  top.Reset();
  if (!MoveFolderPaths(place, to)) return Abandon();
  LoadScope();
  bool root = false;
  for (const std::string& r : roots_) root |= r == to;
  if (top_id != 0) {
    Statement named(db, "UPDATE items SET name=? WHERE id=?");
    if (root ? named.Bind(1, to).Bind(2, top_id).Run() != SQLITE_DONE : !LinkTop(top_id, to)) return Abandon();
  }
  if (!db_.Commit()) return error_ = db_.LastError(), false;
  LoadScope();
  return true;
}

bool Indexer::ForgetCatalogue(const std::string& identity, std::string* error) {
  IndexDatabase* local = db_.local();
  if (local == nullptr) return *error = "a server's index keeps no catalogues of drives", false;
  Statement find(local->db(),
                 "SELECT id, identity, mount_point FROM volumes WHERE identity=?1 OR identity='uuid:' || ?1 OR "
                 "identity='fsid:' || ?1");
  find.Bind(1, identity);
  if (find.Step() != SQLITE_ROW) {
    *error = "no catalogue " + identity + " (trovix-cli index status lists them)";
    return false;
  }
  const int64_t id = find.Int(0);
  const std::string parked = ParkedPlace(find.Text(1));
  std::string mount_point(find.Text(2));
  find.Reset();
  // Parked while another drive holds its place: its rows are all at the parked place, and the
  // crawl roots at its mount point are the other drive's now.
  Statement at(db_.local()->db(), "SELECT 1 FROM folders WHERE path=?");
  if (at.Bind(1, parked).Step() == SQLITE_ROW) mount_point = parked;
  at.Reset();
  LoadScope();
  if (!db_.Begin()) return *error = db_.LastError(), false;
  auto fail = [&] {
    *error = db_.LastError();
    db_.Rollback();
    return false;
  };
  // Crawl roots at or below its mount point go with it (a root's row is no folder's child).
  for (const std::string& root : std::vector<std::string>(roots_)) {
    if (!IsAtOrBelow(root, mount_point) || root == mount_point) continue;
    Statement drop(local->db(), "DELETE FROM scope WHERE path=?");
    if (!Forget(root) || drop.Bind(1, root).Run() != SQLITE_DONE) return fail();
  }
  if (!Forget(mount_point)) return fail();
  Statement drop_root(local->db(), "DELETE FROM scope WHERE include=1 AND path=?");
  if (drop_root.Bind(1, mount_point).Run() != SQLITE_DONE) return fail();
  // Rows of the file system seen elsewhere (a bind mount) go as well, each with what is below it.
  Statement stray(local->db(),
                  "SELECT f.path, i.name FROM items i JOIN folders f ON f.id=i.parent WHERE i.volume=? LIMIT 1");
  for (int guard = 0; guard < 100000; ++guard) {
    stray.Bind(1, id);
    if (stray.Step() != SQLITE_ROW) break;
    const std::string path = JoinPath(std::string(stray.Text(0)), stray.Text(1));
    stray.Reset();
    if (!Forget(path)) return fail();
  }
  stray.Reset();
  Statement drop(local->db(), "DELETE FROM volumes WHERE id=?");
  if (drop.Bind(1, id).Run() != SQLITE_DONE) return fail();
  if (!db_.Commit()) return *error = db_.LastError(), false;
  LoadScope();
  return true;
}

}  // namespace trovix::engine::index
