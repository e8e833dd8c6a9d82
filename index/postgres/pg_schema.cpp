#include "index/postgres/pg_schema.h"

#include <cstdlib>
#include <vector>

#include "index/postgres/pg_connection.h"
#include "rules/patterns/folding.h"

namespace trovix::engine::index {
namespace {

// The keys of layout 4 on items and texts, plain or partitioned: ids stay unique through the
// writer (it hands them out under its lock), so lookups by id alone have an index of their own.
constexpr const char* kShareKeys = R"sql(
ALTER TABLE items ADD PRIMARY KEY (share, id);
CREATE INDEX items_id ON items(id);
CREATE UNIQUE INDEX items_place ON items(share, folder, name);
CREATE INDEX items_folder ON items(folder, name);
ALTER TABLE texts ADD PRIMARY KEY (share, item, piece);
CREATE INDEX texts_item ON texts(item);
)sql";

// A text piece goes with its item. On partitioned tables each texts partition refers to its
// share's items partition, not the whole table: the two then detach and attach as a pair.
std::string TextsReferItems(const std::string& texts, const std::string& items) {
  return "ALTER TABLE " + texts + " ADD FOREIGN KEY (share, item) REFERENCES " + items +
         "(share, id) ON DELETE CASCADE;\n";
}

// Who may read a row (see step 1 -> 2): the policies of items and texts, on the tables and on
// each of their partitions (a partition queried by its own name is held by its own policies).
std::string ItemsPolicy(const std::string& table) {
  return "ALTER TABLE " + table + " ENABLE ROW LEVEL SECURITY; CREATE POLICY items_listed ON " + table +
         " FOR SELECT USING (trovix_may_list(current_user, chain_owner, chain_group, chain_mode));\n";
}
std::string TextsPolicy(const std::string& table) {
  return "ALTER TABLE " + table + " ENABLE ROW LEVEL SECURITY; CREATE POLICY texts_listed ON " + table +
         " FOR SELECT USING (EXISTS (SELECT 1 FROM items i WHERE i.share = " + table + ".share AND i.id = " + table +
         ".item));\n";
}

// Each step takes the layout from its index to the next; steps are never edited once
// released, only added.
const std::string kSteps[] = {
    // 0 -> 1
    R"sql(
CREATE EXTENSION IF NOT EXISTS pg_trgm;
CREATE TABLE meta(key text PRIMARY KEY, value text NOT NULL);
CREATE TABLE prop_names(id serial PRIMARY KEY, name text NOT NULL UNIQUE);
CREATE TABLE items(
  id bigint PRIMARY KEY,
  folder bytea NOT NULL,
  name bytea NOT NULL,
  name_key text NOT NULL,
  folder_key text NOT NULL,
  path_key text NOT NULL,
  extension text,
  is_folder boolean NOT NULL DEFAULT false,
  size bigint,
  modified bigint,
  created bigint,
  attributes bigint,
  kind text,
  mime text,
  state smallint NOT NULL DEFAULT 0,
  props jsonb NOT NULL DEFAULT '{}',
  prop_keys jsonb NOT NULL DEFAULT '{}');
CREATE UNIQUE INDEX items_place ON items(folder, name);
CREATE INDEX items_name_trgm ON items USING gin (name_key gin_trgm_ops);
CREATE INDEX items_path_trgm ON items USING gin (path_key gin_trgm_ops);
CREATE INDEX items_size ON items(size);
CREATE INDEX items_modified ON items(modified);
CREATE TABLE texts(
  item bigint NOT NULL REFERENCES items(id) ON DELETE CASCADE,
  piece integer NOT NULL,
  body text NOT NULL,
  words tsvector GENERATED ALWAYS AS (to_tsvector('simple', body)) STORED,
  PRIMARY KEY(item, piece));
CREATE INDEX texts_words ON texts USING gin (words);
CREATE INDEX texts_trgm ON texts USING gin (body gin_trgm_ops);
)sql",
    // 1 -> 2: who may read what. Each row keeps its item's owner, group and mode and those of
    // every folder from "/" down to its own, as the indexer saw them; a database role reads a
    // row only when the user that reader_roles maps it to could list the item: search (x) on
    // every folder of the chain and read (r) on the item's own folder, by the owner, group or
    // other bits as POSIX chooses them. Rows without a chain are nobody's but the superuser's.
    R"sql(
ALTER TABLE items ADD COLUMN owner integer, ADD COLUMN grp integer, ADD COLUMN mode integer,
  ADD COLUMN chain_owner integer[], ADD COLUMN chain_group integer[], ADD COLUMN chain_mode integer[];
CREATE TABLE reader_roles(role name PRIMARY KEY, uid integer NOT NULL, gids integer[] NOT NULL DEFAULT '{}');
CREATE FUNCTION trovix_may_list(who name, owners integer[], groups integer[], modes integer[]) RETURNS boolean
LANGUAGE sql STABLE SECURITY DEFINER SET search_path = public, pg_temp AS $$
  SELECT coalesce((
    SELECT r.uid = 0 OR (owners IS NOT NULL AND NOT EXISTS (
      SELECT 1 FROM unnest(owners, groups, modes) WITH ORDINALITY AS c(o, g, m, n),
           LATERAL (SELECT CASE WHEN c.n = cardinality(modes) THEN 5 ELSE 1 END AS need) k
      WHERE NOT (CASE WHEN c.o = r.uid THEN (c.m >> 6) & k.need = k.need
                      WHEN c.g = ANY(r.gids) THEN (c.m >> 3) & k.need = k.need
                      ELSE c.m & k.need = k.need END)))
    FROM reader_roles r WHERE r.role = who), false)
$$;
ALTER TABLE items ENABLE ROW LEVEL SECURITY;
CREATE POLICY items_listed ON items FOR SELECT USING (trovix_may_list(current_user, chain_owner, chain_group, chain_mode));
ALTER TABLE texts ENABLE ROW LEVEL SECURITY;
CREATE POLICY texts_listed ON texts FOR SELECT USING (EXISTS (SELECT 1 FROM items i WHERE i.id = texts.item));
)sql",
    // 2 -> 3: the indexer writes here itself. What its walk compares (device, inode, change
    // time, the file system's catalogue), which folders it listed, its scope, the names its
    // exclusions took out and the file systems it saw, as the local index keeps them; paths as
    // exact bytes. Rows still to be read are found through a partial index.
    R"sql(
ALTER TABLE items ADD COLUMN device bigint, ADD COLUMN inode bigint, ADD COLUMN change_ns bigint,
  ADD COLUMN volume bigint, ADD COLUMN listed boolean NOT NULL DEFAULT false;
CREATE INDEX items_unread ON items(id) WHERE state = 0;
CREATE TABLE scope(path bytea PRIMARY KEY, include boolean NOT NULL);
CREATE TABLE excluded(folder bytea NOT NULL, name bytea NOT NULL, PRIMARY KEY(folder, name));
CREATE TABLE volumes(id bigserial PRIMARY KEY, identity text NOT NULL UNIQUE, fs_type text, mount_point bytea NOT NULL,
  device bigint, mount_id bigint, seen bigint);
)sql",
    // 3 -> 4: every item and text piece carries its share (the crawl root it lies under) in
    // its keys, so that the two tables can be partitioned by share (PostgreSQL wants the
    // partition key in every unique key). Rows already there take the share of their root;
    // the keys themselves are kShareKeys, which a partitioned layout makes the same way.
    R"sql(
CREATE TABLE shares(id serial PRIMARY KEY, path bytea NOT NULL UNIQUE);
INSERT INTO shares(path) SELECT path FROM scope WHERE include ORDER BY path;
ALTER TABLE items ADD COLUMN share integer NOT NULL DEFAULT 0;
UPDATE items i SET share = s.id FROM shares s
  WHERE s.path = '\x2f'::bytea OR i.folder = s.path OR substring(i.folder FROM 1 FOR length(s.path) + 1) = s.path || '\x2f'::bytea;
ALTER TABLE texts ADD COLUMN share integer NOT NULL DEFAULT 0;
UPDATE texts t SET share = i.share FROM items i WHERE i.id = t.item AND i.share <> 0;
ALTER TABLE texts DROP CONSTRAINT texts_item_fkey, DROP CONSTRAINT texts_pkey;
ALTER TABLE items DROP CONSTRAINT items_pkey;
DROP INDEX items_place;
DROP POLICY texts_listed ON texts;
)sql" + std::string(kShareKeys) +
        TextsReferItems("texts", "items") + TextsPolicy("texts"),
};
static_assert(std::size(kSteps) == kPgSchemaVersion);

// The search indexes, as the layout makes them: a first build drops them, copies every row,
// and makes them again, which is many times faster than keeping them up to date row by row.
constexpr const char* kSearchIndexes[][2] = {
    {"items_name_trgm", "CREATE INDEX IF NOT EXISTS items_name_trgm ON items USING gin (name_key gin_trgm_ops)"},
    {"items_path_trgm", "CREATE INDEX IF NOT EXISTS items_path_trgm ON items USING gin (path_key gin_trgm_ops)"},
    {"texts_words", "CREATE INDEX IF NOT EXISTS texts_words ON texts USING gin (words)"},
    {"texts_trgm", "CREATE INDEX IF NOT EXISTS texts_trgm ON texts USING gin (body gin_trgm_ops)"},
};

// The other indexes of items, made anew when the tables are partitioned.
constexpr const char* kOtherIndexes[] = {
    "CREATE INDEX items_size ON items(size)",
    "CREATE INDEX items_modified ON items(modified)",
    "CREATE INDEX items_unread ON items(id) WHERE state = 0",
};

std::string SharePartition(const char* table, int share) { return std::string(table) + "_share_" + std::to_string(share); }

// A share's partitions of both tables; their policies name the tables "items" and "texts".
std::string SharePartitionsSql(int share, const std::string& parent_suffix) {
  const std::string values = " FOR VALUES IN (" + std::to_string(share) + ");\n";
  return "CREATE TABLE " + SharePartition("items", share) + " PARTITION OF items" + parent_suffix + values +
         "CREATE TABLE " + SharePartition("texts", share) + " PARTITION OF texts" + parent_suffix + values;
}
// What a share's partitions get once both exist under the tables' own names: the reference
// of its texts to its items, and the policies.
std::string SharePartitionsKeysSql(const std::string& items, const std::string& texts) {
  return TextsReferItems(texts, items) + ItemsPolicy(items) + TextsPolicy(texts);
}
std::string SharePartitionsKeysSql(int share) {
  return SharePartitionsKeysSql(SharePartition("items", share), SharePartition("texts", share));
}

// Any number: the lock only keeps two programs from migrating the same database at once.
constexpr const char* kMigrationLock = "SELECT pg_advisory_xact_lock(7246312001)";

}  // namespace

int PgSchemaVersion(PgConnection& db, std::string* error) {
  PgResult r = db.Query("SELECT to_regclass('trovix_schema') IS NOT NULL", {}, error);
  if (!r) return -1;
  if (std::string(PQgetvalue(r.get(), 0, 0)) != "t") return 0;
  r = db.Query("SELECT max(version) FROM trovix_schema", {}, error);
  if (!r) return -1;
  return PQgetisnull(r.get(), 0, 0) ? 0 : std::atoi(PQgetvalue(r.get(), 0, 0));
}

bool EnsurePgSchema(PgConnection& db, std::string* error, int target) {
  int version = PgSchemaVersion(db, error);
  if (version < 0) return false;
  if (version == target) return true;
  if (version > kPgSchemaVersion) {
    *error = "the shared index has layout " + std::to_string(version) + ", newer than this program's " +
             std::to_string(kPgSchemaVersion);
    return false;
  }
  if (!db.Exec("BEGIN", error)) return false;
  auto fail = [&] {
    db.Rollback();
    return false;
  };
  if (!db.Exec(kMigrationLock, error) ||
      !db.Exec("CREATE TABLE IF NOT EXISTS trovix_schema(version integer NOT NULL)", error))
    return fail();
  // Another program may have migrated while this one waited for the lock.
  version = PgSchemaVersion(db, error);
  if (version < 0) return fail();
  for (int step = version; step < target; ++step) {
    if (!db.Exec(kSteps[step], error)) return fail();
  }
  if (version < target &&
      (!db.Exec("DELETE FROM trovix_schema", error) ||
       !db.Query("INSERT INTO trovix_schema(version) VALUES($1::integer)", {PgInt(target)}, error)))
    return fail();
  return db.Exec("COMMIT", error);
}

bool PgPartitioned(PgConnection& db, bool* partitioned, std::string* error) {
  PgResult r = db.Query("SELECT coalesce((SELECT relkind = 'p' FROM pg_class WHERE oid = to_regclass('items')), false)",
                        {}, error);
  if (!r) return false;
  *partitioned = PQgetvalue(r.get(), 0, 0)[0] == 't';
  return true;
}

bool PartitionByShare(PgConnection& db, int* shares, std::string* error) {
  PgResult ids = db.Query("SELECT id FROM shares ORDER BY id", {}, error);
  if (!ids) return false;
  *shares = PQntuples(ids.get());
  // New tables beside the old ones (the search indexes' names are the old tables' until these
  // go), with a partition per share and one for rows of no share; the rows and the readers'
  // grants are carried over, then the new tables take the old ones' names, keys and policies.
  std::string sql =
      "LOCK TABLE items, texts IN ACCESS EXCLUSIVE MODE;\n"
      "CREATE TABLE items_next (LIKE items INCLUDING DEFAULTS) PARTITION BY LIST (share);\n"
      "CREATE TABLE texts_next (LIKE texts INCLUDING DEFAULTS INCLUDING GENERATED) PARTITION BY LIST (share);\n"
      "CREATE TABLE items_other PARTITION OF items_next DEFAULT;\n"
      "CREATE TABLE texts_other PARTITION OF texts_next DEFAULT;\n";
  std::vector<int> share_ids;
  for (int i = 0; i < *shares; ++i) share_ids.push_back(std::atoi(PQgetvalue(ids.get(), i, 0)));
  for (int share : share_ids) sql += SharePartitionsSql(share, "_next");
  sql += R"sql(
DO $$ DECLARE g record; BEGIN
  FOR g IN SELECT grantee, privilege_type, table_name FROM information_schema.role_table_grants
           WHERE table_schema = current_schema() AND table_name IN ('items', 'texts') AND grantee <> current_user LOOP
    EXECUTE format('GRANT %s ON %I TO %s', g.privilege_type, g.table_name || '_next',
                   CASE WHEN g.grantee = 'PUBLIC' THEN 'PUBLIC' ELSE quote_ident(g.grantee) END);
  END LOOP;
END $$;
INSERT INTO items_next SELECT * FROM items;
INSERT INTO texts_next(share, item, piece, body) SELECT share, item, piece, body FROM texts;
DROP TABLE texts;
DROP TABLE items;
ALTER TABLE items_next RENAME TO items;
ALTER TABLE texts_next RENAME TO texts;
)sql";
  sql += kShareKeys;
  for (const char* index : kOtherIndexes) sql += std::string(index) + ";\n";
  for (const auto& index : kSearchIndexes) sql += std::string(index[1]) + ";\n";
  sql += ItemsPolicy("items") + TextsPolicy("texts") + SharePartitionsKeysSql("items_other", "texts_other");
  for (int share : share_ids) sql += SharePartitionsKeysSql(share);
  return db.Exec("SET LOCAL maintenance_work_mem = '512MB'", error) && db.Exec(sql, error);
}

bool MakeSharePartitions(PgConnection& db, int share, std::string* error) {
  return db.Exec(SharePartitionsSql(share, "") + SharePartitionsKeysSql(share), error);
}

bool DropSharePartitions(PgConnection& db, int share, std::string* error) {
  // Texts first: they refer to the items. A partition the administrator detached is theirs now.
  for (const char* table : {"texts", "items"}) {
    const std::string partition = SharePartition(table, share);
    PgResult attached = db.Query(
        "SELECT 1 FROM pg_inherits WHERE inhrelid = to_regclass($1) AND inhparent = to_regclass($2)",
        {PgText(partition), PgText(table)}, error);
    if (!attached) return false;
    if (PQntuples(attached.get()) == 0) continue;
    if (!db.Exec(std::string("ALTER TABLE ") + table + " DETACH PARTITION " + partition + "; DROP TABLE " + partition,
                 error))
      return false;
  }
  return true;
}

bool DropSearchIndexes(PgConnection& db, std::string* error) {
  for (const auto& index : kSearchIndexes)
    if (!db.Exec(std::string("DROP INDEX IF EXISTS ") + index[0], error)) return false;
  return true;
}

bool MakeSearchIndexes(PgConnection& db, std::string* error) {
  // Building a GIN index sorts its entries in this memory: the default 64 MB spills to disk.
  if (!db.Exec("SET LOCAL maintenance_work_mem = '512MB'", error)) return false;
  for (const auto& index : kSearchIndexes)
    if (!db.Exec(index[1], error)) return false;
  return true;
}

std::string KeyText(std::string_view folded) {
  std::u32string chars = rules::detail::DecodeChars(folded, false);
  bool changed = false;
  for (char32_t& c : chars) {
    if (c >= rules::detail::kIllFormedBase) {
      c = 0x10FE00 + ((c - rules::detail::kIllFormedBase) & 0xFF);
      changed = true;
    }
  }
  return changed ? rules::detail::EncodeChars(chars) : std::string(folded);
}

}  // namespace trovix::engine::index
