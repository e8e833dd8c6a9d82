// Text helpers of the expression language: characters as code points, locale-aware
// collation, case folding and whole-text wildcard matching.

#include <unicode/coll.h>
#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <memory>
#include <string>

#include "rules/expression/expression_internal.h"

namespace trovix::rules::expr {

std::u32string ToCodePoints(std::string_view utf8) {
  std::u32string out;
  out.reserve(utf8.size());
  const auto* bytes = reinterpret_cast<const uint8_t*>(utf8.data());
  const int32_t length = static_cast<int32_t>(utf8.size());
  int32_t i = 0;
  while (i < length) {
    UChar32 c;
    U8_NEXT(bytes, i, length, c);
    out.push_back(c < 0 ? 0xFFFD : static_cast<char32_t>(c));
  }
  return out;
}

std::string FromCodePoints(std::u32string_view cps) {
  std::string out;
  out.reserve(cps.size());
  for (char32_t c : cps) {
    uint8_t buffer[4];
    int32_t n = 0;
    UBool error = false;
    U8_APPEND(buffer, n, 4, static_cast<UChar32>(c), error);
    if (error) {
      out += "\xEF\xBF\xBD";
    } else {
      out.append(reinterpret_cast<const char*>(buffer), static_cast<size_t>(n));
    }
  }
  return out;
}

int CollateTexts(const std::string& a, const std::string& b) {
  // One collator per thread: a search compares on its own thread, and a collator is cheap
  // next to the values it compares. It follows the process's default locale when that changes.
  struct Cached {
    std::string locale;
    std::unique_ptr<icu::Collator> collator;
  };
  thread_local Cached cached;
  const icu::Locale& locale = icu::Locale::getDefault();
  if (!cached.collator || cached.locale != locale.getName()) {
    UErrorCode status = U_ZERO_ERROR;
    cached.collator.reset(icu::Collator::createInstance(locale, status));
    if (U_FAILURE(status)) cached.collator.reset();
    if (cached.collator) cached.collator->setStrength(icu::Collator::TERTIARY);
    cached.locale = locale.getName();
  }
  UErrorCode status = U_ZERO_ERROR;
  UCollationResult r = cached.collator ? cached.collator->compareUTF8(a, b, status) : UCOL_EQUAL;
  if (!cached.collator || U_FAILURE(status)) r = a < b ? UCOL_LESS : (a == b ? UCOL_EQUAL : UCOL_GREATER);
  return r == UCOL_LESS ? -1 : (r == UCOL_EQUAL ? 0 : 1);
}

std::string FoldCase(std::string_view text) {
  // Simple (one-to-one) folding, the meaning of "ignore case" that the text rules use too.
  std::u32string cps = ToCodePoints(text);
  for (char32_t& c : cps) c = static_cast<char32_t>(u_foldCase(static_cast<UChar32>(c), U_FOLD_CASE_DEFAULT));
  return FromCodePoints(cps);
}

bool WildcardMatch(std::string_view pattern, std::string_view text, bool ignore_case) {
  std::u32string p = ToCodePoints(ignore_case ? FoldCase(pattern) : std::string(pattern));
  std::u32string t = ToCodePoints(ignore_case ? FoldCase(text) : std::string(text));
  // Greedy scan remembering the last "*": linear in practice, never recursive.
  size_t pi = 0, ti = 0, star = std::u32string::npos, resume = 0;
  while (ti < t.size()) {
    if (pi < p.size() && (p[pi] == U'?' || p[pi] == t[ti])) {
      ++pi;
      ++ti;
    } else if (pi < p.size() && p[pi] == U'*') {
      star = pi++;
      resume = ti;
    } else if (star != std::u32string::npos) {
      pi = star + 1;
      ti = ++resume;
    } else {
      return false;
    }
  }
  while (pi < p.size() && p[pi] == U'*') ++pi;
  return pi == p.size();
}

}  // namespace trovix::rules::expr
