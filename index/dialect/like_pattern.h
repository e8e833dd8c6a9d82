// LIKE patterns of the SystemIndex dialect: "%" any run of characters, "_" any one character,
// and a character in square brackets stands for itself ("[%]", "[_]", "[[]"); any other "[" is
// an ordinary character. A doubled quotation mark ("") stands for one: the query builder
// doubles every quotation mark of a wildcard pattern it writes as LIKE text, and a name
// holding one must come back as it went in (a single one, as typed by hand, is one too).
// Matching counts code points, not bytes, and compares them as given: callers fold both sides
// first (the index keeps names folded). Reentrant; a compiled pattern is immutable.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace trovix::engine::index {

class LikePattern {
 public:
  explicit LikePattern(std::string_view pattern);

  bool Match(std::string_view value) const;
  // The runs of ordinary characters between the wildcards, UTF-8, in pattern order: every
  // value that matches holds each of them.
  std::vector<std::string> LiteralRuns() const;

 private:
  static constexpr char32_t kAnyRun = 0xFFFFFFFF;
  static constexpr char32_t kAnyOne = 0xFFFFFFFE;
  std::u32string elements_;  // characters, kAnyRun and kAnyOne
};

}  // namespace trovix::engine::index
