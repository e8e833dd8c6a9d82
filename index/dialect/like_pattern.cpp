#include "index/dialect/like_pattern.h"

#include "rules/patterns/folding.h"

namespace trovix::engine::index {

LikePattern::LikePattern(std::string_view pattern) {
  const std::u32string chars = rules::detail::DecodeChars(pattern, false);
  for (size_t i = 0; i < chars.size(); ++i) {
    const char32_t c = chars[i];
    if (c == '"' && i + 1 < chars.size() && chars[i + 1] == '"') {
      elements_ += c;
      ++i;
    } else if (c == '[' && i + 2 < chars.size() && chars[i + 2] == ']') {
      elements_ += chars[i + 1];
      i += 2;
    } else if (c == '%') {
      // Runs of "%" mean no more than one.
      if (elements_.empty() || elements_.back() != kAnyRun) elements_ += kAnyRun;
    } else if (c == '_') {
      elements_ += kAnyOne;
    } else {
      elements_ += c;
    }
  }
}

// The classic greedy match that remembers the last "%": on a mismatch it lets that "%" take
// one more character. Never recursive; O(pattern x value) at worst.
bool LikePattern::Match(std::string_view value) const {
  const std::u32string text = rules::detail::DecodeChars(value, false);
  size_t p = 0, t = 0;
  size_t star = std::u32string::npos, star_text = 0;
  while (t < text.size()) {
    if (p < elements_.size() && elements_[p] == kAnyRun) {
      star = p++;
      star_text = t;
    } else if (p < elements_.size() && (elements_[p] == kAnyOne || elements_[p] == text[t])) {
      ++p;
      ++t;
    } else if (star != std::u32string::npos) {
      p = star + 1;
      t = ++star_text;
    } else {
      return false;
    }
  }
  while (p < elements_.size() && elements_[p] == kAnyRun) ++p;
  return p == elements_.size();
}

std::vector<std::string> LikePattern::LiteralRuns() const {
  std::vector<std::string> runs;
  std::u32string run;
  for (size_t i = 0; i <= elements_.size(); ++i) {
    if (i == elements_.size() || elements_[i] == kAnyRun || elements_[i] == kAnyOne) {
      if (!run.empty()) runs.push_back(rules::detail::EncodeChars(run));
      run.clear();
    } else {
      run += elements_[i];
    }
  }
  return runs;
}

}  // namespace trovix::engine::index
