// Regular expressions of text rules (internal to rules/patterns), on PCRE2 with JIT.
//
// Dialect: PCRE2 in UTF mode with Unicode properties, so POSIX classes such as [[:alpha:]] and
// \w take in non-ASCII letters; ill-formed bytes in a value never match anything but do not stop
// the search elsewhere in the value. Caseless matching is PCRE2's, which is simple case folding,
// the meaning of "ignore case" throughout these matchers.
//
// Every match runs under a match, depth and heap limit: a pattern that backtracks
// catastrophically on some value gives "no match" for that value in bounded time.
//
// Thread-safety: Find may run on many threads at once (match data is per thread).
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "rules/patterns/text_pattern.h"

struct pcre2_real_code_8;
struct pcre2_real_match_context_8;

namespace trovix::rules::detail {

class RegexMatcher {
 public:
  // whole_value: the expression must match the whole value (anchored at both ends).
  static std::unique_ptr<RegexMatcher> Compile(std::string_view pattern, bool caseless,
                                               bool whole_value, std::string* error);
  ~RegexMatcher();
  RegexMatcher(const RegexMatcher&) = delete;
  RegexMatcher& operator=(const RegexMatcher&) = delete;

  bool Find(std::string_view value, MatchRange* hit) const;

 private:
  RegexMatcher() = default;
  pcre2_real_code_8* code_ = nullptr;
  pcre2_real_match_context_8* context_ = nullptr;
};

}  // namespace trovix::rules::detail
