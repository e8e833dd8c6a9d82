// The outer text of a SystemIndex query: which columns, from which folder, with the rule set's
// WHERE part (rules/query/query_builder.h) put in its place. The select text is written first, with
// "%s" where the WHERE part goes; a folder path's own "%" is doubled there so that it cannot be
// taken for that place, and InsertWhere undoes the doubling. Pure functions.
#pragma once

#include <string>

namespace trovix::engine::index {

// "SELECT <column> FROM SystemIndex %s AND SCOPE='file:<root>'" (DIRECTORY instead of SCOPE
// when the subfolders are not searched). Every "%" of the path is doubled and "\" becomes "/".
// The root "/" stands for the whole index and gives "file:" with no path. Empty for a root that
// is not an absolute path.
std::string IndexScopeText(const std::string& root, bool search_subfolders, const std::string& column);

// The select text with its first "%s" replaced by `where` and every "%%" outside `where` turned
// back into "%". The WHERE text is copied untouched: its own "%" are LIKE wildcards.
std::string InsertWhere(const std::string& select_text, const std::string& where);

}  // namespace trovix::engine::index
