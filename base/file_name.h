// Small facts about file names as byte strings.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/ascii.h"

namespace trovix {

// The extension of the last name in `path`, in ASCII small letters and without its dot: "pdf"
// for "/x/Report.PDF". Empty when the name has no dot, or only a leading one (".profile").
inline std::string LowerExtension(std::string_view path) {
  const size_t slash = path.find_last_of('/');
  const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  const size_t dot = name.find_last_of('.');
  if (dot == std::string_view::npos || dot == 0) return {};
  return AsciiLower(name.substr(dot + 1));
}

// Whether `path` is `folder` or lies below it (both absolute, without a trailing "/").
inline bool IsAtOrBelow(std::string_view path, std::string_view folder) {
  if (folder == "/") return !path.empty() && path[0] == '/';
  if (path.size() < folder.size() || path.substr(0, folder.size()) != folder) return false;
  return path.size() == folder.size() || path[folder.size()] == '/';
}

// An absolute path without "." and ".." steps or doubled slashes, worked out from the text as
// a shell shows it (a ".." after a link goes back to the folder the link is in). A relative
// path is taken from `base_folder`. Empty for an empty path.
inline std::string AbsolutePath(const std::string& path, const std::string& base_folder) {
  if (path.empty()) return path;
  const std::string full = path[0] == '/' ? path : base_folder + "/" + path;
  std::vector<std::string_view> parts;
  std::string_view rest(full);
  while (!rest.empty()) {
    const size_t slash = rest.find('/');
    const std::string_view part = rest.substr(0, slash);
    rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      if (!parts.empty()) parts.pop_back();
      continue;
    }
    parts.push_back(part);
  }
  std::string out;
  for (std::string_view part : parts) (out += '/') += part;
  return out.empty() ? "/" : out;
}

}  // namespace trovix
