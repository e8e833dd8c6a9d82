// The shared index's tables on PostgreSQL, made and migrated by the program: a server's
// database starts empty and the writer brings it to kPgSchemaVersion when it connects (in one
// transaction, under an advisory lock, so two writers at once do it once). Clients only read
// the layout they know, and walk when the server has another one.
//
//   trovix_schema(version)   the layout's version: one row
//   meta(key, value)         as the local index's meta table
//   prop_names(id, name)     canonical names of the properties the writer met
//   items(share, id, folder, name, name_key, folder_key, path_key, extension, is_folder, size,
//         modified, created, attributes, kind, mime, state, props, prop_keys, owner, grp,
//         mode, chain_owner, chain_group, chain_mode, device, inode, change_ns, volume, listed)
//       One row per item as the server sees it. folder and name are the exact bytes (bytea:
//       a name that is not UTF-8 comes back as itself); the *_key columns are the same text
//       folded as the walk folds it, with every byte that is not UTF-8 as a private-use
//       character (KeyText), so that they are PostgreSQL text. name_key and path_key carry
//       pg_trgm GIN indexes: LIKE '%fragment%' finds a fragment anywhere, case-blind as the
//       walk is (folded on both sides). Common properties have typed columns (times are file
//       times, 100 ns ticks since 1601); the rest sit in props (jsonb, typed as the property)
//       and, for text, folded in prop_keys.
//   shares(id, path)         each crawl root: the share its rows carry in items.share and
//                            texts.share, part of both tables' keys (see PgPartitioned)
//   texts(share, item, piece, body, words)
//       An item's text folded as the walk reads it, in the same overlapping pieces as the
//       local index (a phrase cut by a piece boundary is whole in one piece). words is the
//       tsvector of the piece under the 'simple' configuration, with a GIN index; body has a
//       pg_trgm GIN index too. Why both, and why 'simple': see pg_translation.h.
//       device, inode and change_ns are what the indexer's walk compares with the disk;
//       listed marks a folder whose children are indexed (a crawl root has no row).
//   scope(path, include), excluded(folder, name), volumes(...)
//       The indexer's crawl roots and exclusions, the names the exclusions took out of each
//       folder, and the file systems it saw, as in the local index (index_schema.h).
//   reader_roles(role, uid, gids)
//       The user and groups each database role searches as, filled by the administrator.
//       Row-level security on items and texts returns a role only the rows that user could
//       list (owner, grp, mode and the chain_* arrays of the folders above; see kSteps). The
//       writer owns the tables and is not held by the policies; clients connect as roles of
//       their own, with SELECT granted.
#pragma once

#include <string>

namespace trovix::engine::index {

class PgConnection;

inline constexpr int kPgSchemaVersion = 4;

// The version of the layout in the connected database (0: none yet).
int PgSchemaVersion(PgConnection& db, std::string* error);

// Creates the tables or migrates them to `version` (an older one only to test a migration).
// False with *error; a database of a newer layout than this program knows is refused, never
// touched.
bool EnsurePgSchema(PgConnection& db, std::string* error, int version = kPgSchemaVersion);

// Partitions by share. A layout of version 4 keeps items and texts either as plain tables or
// partitioned by LIST (share): one partition of each per share (items_share_N, texts_share_N,
// N the share's id in shares) and a default one for rows of no share (items_other,
// texts_other). Each partition has the row-level security policies of its table.
bool PgPartitioned(PgConnection& db, bool* partitioned, std::string* error);
// Turns the plain tables into partitioned ones, inside the caller's transaction: the rows,
// keys, indexes, policies and the readers' grants are kept. *shares: how many shares.
bool PartitionByShare(PgConnection& db, int* shares, std::string* error);
// A new share's partitions, and a share's partitions when it goes (rows and all; a partition
// the administrator detached is left alone).
bool MakeSharePartitions(PgConnection& db, int share, std::string* error);
bool DropSharePartitions(PgConnection& db, int share, std::string* error);

// A first build's bracket, inside its transaction: the trigram and word indexes are dropped
// before the rows are copied and made again after.
bool DropSearchIndexes(PgConnection& db, std::string* error);
bool MakeSearchIndexes(PgConnection& db, std::string* error);

// The text form of the *_key columns: ill-formed bytes (in the walk's folding, stand-ins above
// Unicode) become U+10FE00 + the byte, which PostgreSQL keeps as text and no file name holds.
std::string KeyText(std::string_view folded);

}  // namespace trovix::engine::index
