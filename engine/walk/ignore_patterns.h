// Git's ignore patterns, as its documentation gives them: blank lines and "#" comments skipped,
// "\#" and "\!" for literal ones, trailing blanks dropped unless escaped, "!" re-includes, a
// trailing "/" matches folders only, a slash at the start or in the middle anchors the pattern
// to the folder of the file that holds it (otherwise it matches a name at any level), "*" and
// "?" never match "/", "[...]" classes with "!" or "^" negation and ranges, and "**" as a whole
// path component matches any number of folders. Matching is by bytes and case-sensitive.
// A line longer than kMaxPatternBytes is skipped as a blank line would be: no path a pattern
// could be meant for is that long, and matching one costs memory in proportion to its length
// for every name tested (an ignore file is input from anyone who can write to a folder).
//
// Immutable once parsed; thread-safe.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace trovix::engine {

// The longest ignore line read as a pattern: the longest path the system opens (PATH_MAX).
inline constexpr size_t kMaxPatternBytes = 4096;

struct IgnorePattern {
  std::string glob;       // without "!", the anchoring "/" and the trailing "/"
  bool negated = false;   // "!": re-includes what an earlier pattern ignored
  bool folders_only = false;
  bool anchored = false;  // matched against the path from the pattern's folder, not the name
};

// One line of an ignore file; nullopt for blank lines, comments and lines longer than
// kMaxPatternBytes.
std::optional<IgnorePattern> ParseIgnoreLine(std::string_view line);
// Every pattern of an ignore file's text, in order.
std::vector<IgnorePattern> ParseIgnoreText(std::string_view text);

// Whether `glob` matches the whole of `text` ("*" and "?" stop at "/", "**" components cross it).
bool GlobMatches(std::string_view glob, std::string_view text);

enum class IgnoreVerdict { kNone, kIgnored, kIncluded };

// The verdict of the last pattern in `patterns` that matches `relative_path` (the path from the
// patterns' folder, "/"-separated; its last component is the name).
IgnoreVerdict Decide(const std::vector<IgnorePattern>& patterns, std::string_view relative_path, bool is_folder);

}  // namespace trovix::engine
