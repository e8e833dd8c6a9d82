#include "index/postgres/pg_schema.h"

#include <cstdlib>

#include "index/postgres/pg_connection.h"
#include "rules/patterns/folding.h"

namespace trovix::engine::index {
namespace {

// Each step takes the layout from its index to the next; steps are never edited once
// released, only added.
constexpr const char* kSteps[] = {
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

bool EnsurePgSchema(PgConnection& db, std::string* error) {
  int version = PgSchemaVersion(db, error);
  if (version < 0) return false;
  if (version == kPgSchemaVersion) return true;
  if (version > kPgSchemaVersion) {
    *error = "the shared index has layout " + std::to_string(version) + ", newer than this program's " +
             std::to_string(kPgSchemaVersion);
    return false;
  }
  if (!db.Exec("BEGIN", error)) return false;
  auto fail = [&] {
    db.Exec("ROLLBACK");
    return false;
  };
  if (!db.Exec(kMigrationLock, error) ||
      !db.Exec("CREATE TABLE IF NOT EXISTS trovix_schema(version integer NOT NULL)", error))
    return fail();
  // Another program may have migrated while this one waited for the lock.
  version = PgSchemaVersion(db, error);
  if (version < 0) return fail();
  for (int step = version; step < kPgSchemaVersion; ++step) {
    if (!db.Exec(kSteps[step], error)) return fail();
  }
  if (version < kPgSchemaVersion &&
      (!db.Exec("DELETE FROM trovix_schema", error) ||
       !db.Query("INSERT INTO trovix_schema(version) VALUES($1::integer)", {PgInt(kPgSchemaVersion)}, error)))
    return fail();
  return db.Exec("COMMIT", error);
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
