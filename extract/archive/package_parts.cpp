#include "extract/archive/package_parts.h"

#include <algorithm>
#include <utility>

namespace trovix::extract {

std::vector<std::string> NumberedParts(const std::vector<std::string>& names, std::string_view prefix,
                                       std::string_view suffix) {
  std::vector<std::pair<uint64_t, std::string>> found;
  for (const std::string& n : names) {
    std::string_view v(n);
    if (v.size() <= prefix.size() + suffix.size() || v.substr(0, prefix.size()) != prefix ||
        v.substr(v.size() - suffix.size()) != suffix)
      continue;
    std::string_view digits = v.substr(prefix.size(), v.size() - prefix.size() - suffix.size());
    if (digits.size() > 9 || !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
      continue;
    found.emplace_back(std::stoull(std::string(digits)), n);
  }
  std::sort(found.begin(), found.end());
  std::vector<std::string> out;
  for (auto& f : found) out.push_back(std::move(f.second));
  return out;
}

std::string PartFolder(std::string_view name) {
  size_t slash = name.find_last_of('/');
  return slash == std::string_view::npos ? std::string() : std::string(name.substr(0, slash + 1));
}

}  // namespace trovix::extract
