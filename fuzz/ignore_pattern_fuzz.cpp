// Fuzzes git's ignore patterns: an ignore file's text, then paths to judge against it. Every
// pattern must parse or be skipped, and matching must end without reading past either string
// (the "**" and class rules backtrack; a bad bound there would show here).
//
// Input: the ignore file's text, a NUL byte, then NUL-separated paths (a path ending in "/"
// is asked as a folder).
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "engine/walk/ignore_patterns.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace trovix::engine;
  std::string_view input(reinterpret_cast<const char*>(data), size);
  const size_t split = input.find('\0');
  const std::vector<IgnorePattern> patterns = ParseIgnoreText(input.substr(0, split));
  if (split == std::string_view::npos) return 0;
  std::string_view paths = input.substr(split + 1);
  // Long inputs of stars can make any glob matcher slow; the limit keeps runs on the logic.
  if (patterns.size() > 64 || paths.size() > 1024) return 0;
  while (!paths.empty()) {
    const size_t end = paths.find('\0');
    std::string_view path = paths.substr(0, end);
    const bool folder = !path.empty() && path.back() == '/';
    if (folder) path.remove_suffix(1);
    Decide(patterns, path, folder);
    for (const IgnorePattern& p : patterns) GlobMatches(p.glob, path);
    paths = end == std::string_view::npos ? std::string_view() : paths.substr(end + 1);
  }
  return 0;
}
