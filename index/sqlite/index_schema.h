// The index database's tables. One SQLite file holds, for every item under the crawl scope,
// its place (parent folder and name), the file-system facts, the properties the handlers
// produce that the catalogue marks indexed, and the item's text for contents queries.
//
//   meta(key, value)            schema version, contents tokenizer, last update times
//   scope(path, include)        crawl roots (include 1) and exclusion patterns (include 0)
//   folders(id, path)           every indexed folder's full path; id is the folder's item id
//   items(id, parent, name, name_key, extension, is_folder, size, modified, created,
//         attributes, kind, mime, device, inode, change_ns, state, volume)
//                               one row per item; parent is the folder's id (0 for a crawl
//                               root); name_key is the name under the matchers' case folding
//                               when it differs from the name (NULL otherwise); times are file
//                               times (100 ns ticks since 1601, UTC); state 0 means the
//                               item's properties and text are still to be read; volume the
//                               row of volumes its file system is (NULL until a walk saw it)
//   volumes(id, identity, fs_type, mount_point, device, mount_id, seen)
//                               the file systems items were seen on, one catalogue each:
//                               identity as platform/volume_identity.h makes it, the mount
//                               point, device number and mount number (mount_table.h) it
//                               had when last seen, and when that was (seconds since 1970). A drive that is not mounted
//                               keeps its rows; mounted elsewhere, its paths follow it
//   props(item, prop, value)    the other indexed properties: prop is a row of prop_names,
//                               value typed as the property (text as the search sees it,
//                               several values joined by "; "; integers; doubles; file times)
//   prop_names(id, name)        canonical property names
//   names                       FTS5 trigram index of the folded names, no content and no
//                               positions kept (detail=none): a query asks for every
//                               trigram of a literal ("wor" "orl" "rld") to get candidates
//                               and checks them against coalesce(name_key, name)
//   texts(id, lead, body)       an item's text, folded (case and runs of white space, as the
//                               walk reads a phrase), in pieces of at most the indexer's
//                               piece size, each compressed with deflate; id is
//                               TextPieceId(item, piece); lead the bytes at the start of the
//                               piece that repeat the end of the one before (so a phrase cut
//                               by the piece boundary is still whole in one piece)
//   contents                    FTS5 trigram (or word) index of the pieces' text, rowid = the
//                               piece's id, with no content and no positions (detail=none): a
//                               query asks it for candidates and confirms them on the kept
//                               text (tx_piece_holds), which also makes a phrase exact. The
//                               table keeps no copy of the text; deleting a piece's entry
//                               needs that text again, and texts is where it comes from
//   excluded(parent, name)      items the crawl passed over because an exclusion pattern
//                               names them, by the folder they are in: a search walks them
//
// items.state: 0 still to be read; 1 read; 2 read, but its text is longer than the indexer
// keeps (kMaxTextBytes): the index holds only the start of it and a contents query re-tests
// the row through the file's own reader; kStateUnreadTextBase and above: its text could not be
// read. Partial indexes find the rows of state 2 (items_partial) and the unread ones
// (items_unread) without reading every item.
//
// Paths are never stored per item: an item's path is its folder's path, "/" and its name,
// which keeps the database small (most of a path list is repeated folder prefixes).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <string_view>

namespace trovix::engine::index {

inline constexpr int kSchemaVersion = 5;
// The oldest layout that is brought forward in place (MigrationSql) rather than built anew.
inline constexpr int kOldestMigratedVersion = 2;

// A text piece's row id: the item's id and the piece's number below it. An item has at most
// kMaxTextPieces pieces.
inline constexpr int kTextPieceBits = 16;
inline constexpr int64_t kMaxTextPieces = int64_t{1} << kTextPieceBits;
inline constexpr int64_t TextPieceId(int64_t item, int64_t piece) { return (item << kTextPieceBits) | piece; }
inline constexpr int64_t ItemOfTextPiece(int64_t piece_id) { return piece_id >> kTextPieceBits; }
// Bytes each text piece repeats of the one before: a phrase up to this long is whole in some
// piece; a longer one the index does not answer (the walk does).
inline constexpr size_t kTextOverlapBytes = 1024;
// The state of a row whose text was cut short (see above).
inline constexpr int kStatePartialText = 2;
// The state of a row whose text could not be read: this base plus the reading's status
// (props::ContentsStatus as a number), so that a contents search the index answers counts the
// files it could not read as the walk counts them.
inline constexpr int kStateUnreadTextBase = 16;
template <typename Status>
constexpr int UnreadTextState(Status status) {
  return kStateUnreadTextBase + static_cast<int>(status);
}

// The paths of folders strictly below `folder` in folders.path sort between these two bounds
// ("0" is the character after "/"); the root "/" has every other folder below it.
inline std::pair<std::string, std::string> FolderPathsBelow(const std::string& folder) {
  if (folder == "/") return {"/", "0"};
  return {folder + "/", folder + "0"};
}

// Tokenizers the contents table can be built with (meta key "contents_tokenizer").
inline constexpr std::string_view kTrigramTokenizer = "trigram case_sensitive 1";
inline constexpr std::string_view kWordTokenizer = "unicode61 remove_diacritics 0";

// The statements that create every table, for a database built with the given contents
// tokenizer. Safe to run on an existing database of the same version.
std::string SchemaSql(std::string_view contents_tokenizer);

// The statements that bring a database of layout `from` (kOldestMigratedVersion or later) to
// kSchemaVersion without touching what it holds; run in one transaction with the new version.
std::string MigrationSql(int from);

// The value type of an indexed property as the database keeps it.
enum class ColumnType { kText, kInteger, kFloat, kDate, kBool };

// A property that has a column of its own in `items`.
struct ItemColumn {
  std::string_view property;  // canonical name
  std::string_view column;    // column of items
  ColumnType type;
};

// The properties with a column of their own: System.ItemNameDisplay (name),
// System.FileExtension (extension), System.IsFolder (is_folder), System.Size (size),
// System.DateModified (modified), System.DateCreated (created), System.FileAttributes
// (attributes), System.Kind (kind), System.MIMEType (mime). System.ItemPathDisplay and
// System.ItemFolderPathDisplay are worked out from folders.path. Null for any other name.
const ItemColumn* FindItemColumn(std::string_view property);

}  // namespace trovix::engine::index
