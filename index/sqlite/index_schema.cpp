#include "index/sqlite/index_schema.h"

namespace trovix::engine::index {
namespace {

constexpr ItemColumn kItemColumns[] = {
    {"System.ItemNameDisplay", "name", ColumnType::kText},
    {"System.FileExtension", "extension", ColumnType::kText},
    {"System.IsFolder", "is_folder", ColumnType::kBool},
    {"System.Size", "size", ColumnType::kInteger},
    {"System.DateModified", "modified", ColumnType::kDate},
    {"System.DateCreated", "created", ColumnType::kDate},
    {"System.FileAttributes", "attributes", ColumnType::kInteger},
    {"System.Kind", "kind", ColumnType::kText},
    {"System.MIMEType", "mime", ColumnType::kText},
};

// Layout 3: the file systems the items were seen on.
constexpr std::string_view kVolumesSql = R"(
CREATE TABLE IF NOT EXISTS volumes(id INTEGER PRIMARY KEY, identity TEXT NOT NULL UNIQUE, fs_type TEXT,
                                   mount_point TEXT NOT NULL, device INTEGER, mount_id INTEGER, seen INTEGER);
CREATE INDEX IF NOT EXISTS items_volume ON items(volume) WHERE volume IS NOT NULL;
)";

// Layout 4: the rows whose text could not be read, which every contents search counts (the
// walk counts the files it meets and cannot read): without it that count reads every item.
// Layout 5: with their folders and names, which is all the count reads of them, so that it
// reads the index alone (a tree of documents nobody reads has tens of thousands of such rows,
// and a row looked up in the table costs a page each).
std::string UnreadIndexSql() {
  return "CREATE INDEX IF NOT EXISTS items_unread ON items(state, parent, name) WHERE state>=" +
         std::to_string(kStateUnreadTextBase) + ";\n";
}

}  // namespace

std::string MigrationSql(int from) {
  std::string sql;
  // Adding a column rewrites nothing: the existing rows read it as NULL until a walk sees them.
  // A text piece without seams is confirmed by inflating it, as before they were kept.
  if (from < 3)
    sql += "ALTER TABLE items ADD COLUMN volume INTEGER;ALTER TABLE texts ADD COLUMN seams BLOB;" +
           std::string(kVolumesSql);
  if (from < 5) sql += "DROP INDEX IF EXISTS items_unread;" + UnreadIndexSql();
  return sql;
}

std::string SchemaSql(std::string_view contents_tokenizer) {
  std::string sql = R"(
CREATE TABLE IF NOT EXISTS meta(key TEXT PRIMARY KEY, value) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS scope(path TEXT PRIMARY KEY, include INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS folders(id INTEGER PRIMARY KEY, path TEXT NOT NULL UNIQUE);
CREATE TABLE IF NOT EXISTS items(
  id INTEGER PRIMARY KEY,
  parent INTEGER NOT NULL,
  name TEXT NOT NULL,
  name_key TEXT,
  extension TEXT,
  is_folder INTEGER NOT NULL,
  size INTEGER,
  modified INTEGER,
  created INTEGER,
  attributes INTEGER,
  kind TEXT,
  mime TEXT,
  device INTEGER,
  inode INTEGER,
  change_ns INTEGER,
  state INTEGER NOT NULL DEFAULT 0,
  volume INTEGER);
CREATE INDEX IF NOT EXISTS items_parent ON items(parent);
)" + std::string(kVolumesSql) + R"(
CREATE INDEX IF NOT EXISTS items_partial ON items(state) WHERE state=2;
)" + UnreadIndexSql() + R"(CREATE TABLE IF NOT EXISTS texts(id INTEGER PRIMARY KEY, lead INTEGER NOT NULL, seams BLOB, body BLOB NOT NULL);
CREATE TABLE IF NOT EXISTS excluded(parent INTEGER NOT NULL, name TEXT NOT NULL, PRIMARY KEY(parent, name))
  WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS prop_names(id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE);
CREATE TABLE IF NOT EXISTS props(item INTEGER NOT NULL, prop INTEGER NOT NULL, value,
                                 PRIMARY KEY(item, prop)) WITHOUT ROWID;
CREATE INDEX IF NOT EXISTS props_value ON props(prop, value);
CREATE VIRTUAL TABLE IF NOT EXISTS names USING fts5(key, content='', detail=none, columnsize=0,
                                                    tokenize='trigram case_sensitive 1');
)";
  // No content and no positions: texts keeps the text (compressed), which confirms candidates
  // and gives back what a changed file's old entry needs to be deleted.
  sql += "CREATE VIRTUAL TABLE IF NOT EXISTS contents USING fts5(text, content='', detail=none, columnsize=0, "
         "tokenize='";
  sql += contents_tokenizer;
  sql += "');\n";
  return sql;
}

const ItemColumn* FindItemColumn(std::string_view property) {
  for (const ItemColumn& c : kItemColumns)
    if (c.property == property) return &c;
  return nullptr;
}

}  // namespace trovix::engine::index
