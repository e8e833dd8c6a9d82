// The index database's tables. One SQLite file holds, for every item under the crawl scope,
// its place (parent folder and name), the file-system facts, the properties the handlers
// produce that the catalogue marks indexed, and the item's text for contents queries.
//
//   meta(key, value)            schema version, contents tokenizer, last update times
//   scope(path, include)        crawl roots (include 1) and exclusion patterns (include 0)
//   folders(id, path)           every indexed folder's full path; id is the folder's item id
//   items(id, parent, name, name_key, extension, is_folder, size, modified, created,
//         attributes, kind, mime, device, inode, change_ns, state)
//                               one row per item; parent is the folder's id (0 for a crawl
//                               root); name_key is the name under the matchers' case folding
//                               when it differs from the name (NULL otherwise); times are file
//                               times (100 ns ticks since 1601, UTC); state 0 means the
//                               item's properties and text are still to be read
//   props(item, prop, value)    the other indexed properties: prop is a row of prop_names,
//                               value typed as the property (text as the search sees it,
//                               several values joined by "; "; integers; doubles; file times)
//   prop_names(id, name)        canonical property names
//   names                       FTS5 trigram index of the folded names, no content and no
//                               positions kept (detail=none): a query asks for every
//                               trigram of a literal ("wor" "orl" "rld") to get candidates
//                               and checks them against coalesce(name_key, name)
//   contents                    FTS5 index of the folded item text (rowid = item id)
//
// Paths are never stored per item: an item's path is its folder's path, "/" and its name,
// which keeps the database small (most of a path list is repeated folder prefixes).
#pragma once

#include <string>
#include <utility>
#include <string_view>

namespace trovix::engine::index {

inline constexpr int kSchemaVersion = 1;

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
