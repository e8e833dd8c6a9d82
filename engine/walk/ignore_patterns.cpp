#include "engine/walk/ignore_patterns.h"

#include <vector>

namespace trovix::engine {
namespace {

// A "[...]" class at p[i] (just after "["): whether `c` is in it; `*end` is the index after
// "]". False with *end = npos when the class is not closed (the "[" is then a literal).
bool ClassMatches(std::string_view p, size_t i, char c, size_t* end) {
  bool negated = false;
  if (i < p.size() && (p[i] == '!' || p[i] == '^')) {
    negated = true;
    ++i;
  }
  bool matched = false;
  bool first = true;
  while (i < p.size() && (p[i] != ']' || first)) {
    first = false;
    char low = p[i];
    if (low == '\\' && i + 1 < p.size()) low = p[++i];
    ++i;
    char high = low;
    if (i + 1 < p.size() && p[i] == '-' && p[i + 1] != ']') {
      high = p[i + 1];
      if (high == '\\' && i + 2 < p.size()) high = p[++i + 1];
      i += 2;
    }
    if (static_cast<unsigned char>(c) >= static_cast<unsigned char>(low) &&
        static_cast<unsigned char>(c) <= static_cast<unsigned char>(high))
      matched = true;
  }
  if (i >= p.size()) {
    *end = std::string_view::npos;
    return false;
  }
  *end = i + 1;
  return matched != negated && c != '/';
}

// Matching with backtracking at every star; `failed` remembers the (pattern, text) positions
// already known not to match, so that a pattern with many stars costs at most pattern x text
// steps per star instead of growing exponentially (an ignore file is input from anyone).
struct Matcher;
bool MatchFrom(Matcher& m, size_t pi, size_t ti);

struct Matcher {
  std::string_view p, t;
  std::vector<bool> failed;  // empty when the pattern has at most one star run

  bool Match(size_t pi, size_t ti);
};

bool Matcher::Match(size_t pi, size_t ti) {
  const size_t key = pi * (t.size() + 1) + ti;
  if (!failed.empty() && failed[key]) return false;
  const bool matched = MatchFrom(*this, pi, ti);
  if (!matched && !failed.empty()) failed[key] = true;
  return matched;
}

bool MatchFrom(Matcher& m, size_t pi, size_t ti) {
  const std::string_view p = m.p, t = m.t;
  while (pi < p.size()) {
    const char c = p[pi];
    if (c == '*') {
      const bool double_star = pi + 1 < p.size() && p[pi + 1] == '*';
      const bool starts_component = pi == 0 || p[pi - 1] == '/';
      if (double_star && starts_component && (pi + 2 == p.size() || p[pi + 2] == '/')) {
        if (pi + 2 == p.size()) return true;  // "x/**": everything inside
        // "**/": no folder at all, or any number of them.
        const size_t rest = pi + 3;
        if (m.Match(rest, ti)) return true;
        for (size_t k = ti; k < t.size(); ++k)
          if (t[k] == '/' && m.Match(rest, k + 1)) return true;
        return false;
      }
      while (pi < p.size() && p[pi] == '*') ++pi;
      // Any run of characters within one component.
      for (size_t k = ti;; ++k) {
        if (m.Match(pi, k)) return true;
        if (k == t.size() || t[k] == '/') return false;
      }
    }
    if (ti >= t.size()) return false;
    if (c == '?') {
      if (t[ti] == '/') return false;
      ++pi, ++ti;
      continue;
    }
    if (c == '[') {
      size_t end = 0;
      const bool in = ClassMatches(p, pi + 1, t[ti], &end);
      if (end != std::string_view::npos) {
        if (!in) return false;
        pi = end, ++ti;
        continue;
      }
    }
    char literal = c;
    if (c == '\\' && pi + 1 < p.size()) literal = p[++pi];
    if (t[ti] != literal) return false;
    ++pi, ++ti;
  }
  return ti == t.size();
}

}  // namespace

bool GlobMatches(std::string_view glob, std::string_view text) {
  Matcher m{glob, text, {}};
  size_t star_runs = 0;
  for (size_t i = 0; i < glob.size(); ++i)
    if (glob[i] == '*' && (i == 0 || glob[i - 1] != '*')) ++star_runs;
  if (star_runs > 1) m.failed.assign((glob.size() + 1) * (text.size() + 1), false);
  return m.Match(0, 0);
}

std::optional<IgnorePattern> ParseIgnoreLine(std::string_view line) {
  if (line.size() > kMaxPatternBytes + 1) return std::nullopt;  // + 1: a "\r" before the newline
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  // Trailing blanks go unless the last is escaped.
  while (!line.empty() && line.back() == ' ' && !(line.size() >= 2 && line[line.size() - 2] == '\\'))
    line.remove_suffix(1);
  if (line.empty() || line[0] == '#') return std::nullopt;
  IgnorePattern pattern;
  if (line[0] == '!') {
    pattern.negated = true;
    line.remove_prefix(1);
  }
  if (!line.empty() && line.back() == '/') {
    pattern.folders_only = true;
    line.remove_suffix(1);
  }
  if (line.empty()) return std::nullopt;
  pattern.anchored = line.find('/') != std::string_view::npos;
  if (line[0] == '/') line.remove_prefix(1);
  if (line.empty()) return std::nullopt;
  pattern.glob = std::string(line);
  return pattern;
}

std::vector<IgnorePattern> ParseIgnoreText(std::string_view text) {
  std::vector<IgnorePattern> patterns;
  while (!text.empty()) {
    const size_t end = text.find('\n');
    if (auto p = ParseIgnoreLine(text.substr(0, end))) patterns.push_back(std::move(*p));
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
  }
  return patterns;
}

IgnoreVerdict Decide(const std::vector<IgnorePattern>& patterns, std::string_view relative_path, bool is_folder) {
  const size_t slash = relative_path.find_last_of('/');
  const std::string_view name = slash == std::string_view::npos ? relative_path : relative_path.substr(slash + 1);
  for (auto it = patterns.rbegin(); it != patterns.rend(); ++it) {
    if (it->folders_only && !is_folder) continue;
    if (GlobMatches(it->glob, it->anchored ? relative_path : name))
      return it->negated ? IgnoreVerdict::kIncluded : IgnoreVerdict::kIgnored;
  }
  return IgnoreVerdict::kNone;
}

}  // namespace trovix::engine
