#include "index/dialect/index_query_text.h"

#include <string_view>

namespace trovix::engine::index {
namespace {

std::string UndoublePercents(std::string_view text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    out += text[i];
    if (text[i] == '%' && i + 1 < text.size() && text[i + 1] == '%') ++i;
  }
  return out;
}

}  // namespace

std::string IndexScopeText(const std::string& root, bool search_subfolders, const std::string& column) {
  if (root.empty() || (root.front() != '/' && root.front() != '\\')) return {};
  std::string path;
  for (char c : root) {
    if (c == '%') path += "%%";
    else path += c == '\\' ? '/' : c;
  }
  // The whole computer: no path after "file:" means every indexed folder.
  if (path.find_first_not_of('/') == std::string::npos) path.clear();
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  // Apostrophes are doubled as the dialect's string literals want them.
  std::string literal;
  for (char c : path) {
    literal += c;
    if (c == '\'') literal += '\'';
  }
  return "SELECT " + column + " FROM SystemIndex %s AND " +
         (search_subfolders ? "SCOPE" : "DIRECTORY") + "='file:" + literal + "'";
}

std::string InsertWhere(const std::string& select_text, const std::string& where) {
  const size_t place = select_text.find("%s");
  if (place == std::string::npos) return UndoublePercents(select_text);
  return UndoublePercents(std::string_view(select_text).substr(0, place)) + where +
         UndoublePercents(std::string_view(select_text).substr(place + 2));
}

}  // namespace trovix::engine::index
