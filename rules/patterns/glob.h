// Wildcard matching (internal to rules/patterns): "*" matches any run of characters including
// none, "?" exactly one character, anything else itself. Works on bytes of ASCII text or on
// decoded code points; the pattern is already lowered, the value's units are lowered by `lower`.
//
// The classic single-backtrack-point algorithm is used instead of trying every split of every
// star recursively: it decides the same question (does some assignment of runs to the stars
// match?) in O(value x pattern) steps, so a pattern such as "*a*a*a*a*b" cannot stall a search.
#pragma once

#include <cstddef>

namespace trovix::rules::detail {

enum class GlobResult {
  kMatch,
  kNoMatch,       // the start position was wrong; a later one may still match
  kNoMatchFinal,  // a star was reached and still no match: no later start can match either
};

// Matches pattern p against the value starting at t. With to_end the whole value must be used
// up; without it, reaching the end of the pattern succeeds whatever follows.
template <typename P, typename V, typename Lower>
GlobResult GlobAt(const P* p, size_t np, const V* t, size_t nt, bool to_end, Lower lower) {
  constexpr size_t kNone = static_cast<size_t>(-1);
  size_t i = 0;
  size_t j = 0;
  size_t star_j = kNone;
  size_t star_i = 0;
  for (;;) {
    if (j == np) {
      if (!to_end || i == nt) return GlobResult::kMatch;
    } else if (p[j] == static_cast<P>('*')) {
      star_j = j++;
      star_i = i;
      continue;
    } else if (i < nt && (p[j] == static_cast<P>('?') || p[j] == static_cast<P>(lower(t[i])))) {
      ++i;
      ++j;
      continue;
    }
    // Mismatch: let the last star swallow one more character and retry after it.
    if (star_j == kNone) return GlobResult::kNoMatch;
    if (star_i >= nt) return GlobResult::kNoMatchFinal;
    j = star_j + 1;
    i = ++star_i;
  }
}

// Finds the first position of t where p (whose first unit is a literal, not a wildcard) matches
// as a prefix. Later starts are only tried while no star has been reached: once the part after a
// star fails from one start it fails from every later start too, since it would have less text.
template <typename P, typename V, typename Lower>
bool GlobSearch(const P* p, size_t np, const V* t, size_t nt, Lower lower, size_t* start) {
  const P first = p[0];
  for (size_t s = 0; s < nt; ++s) {
    if (static_cast<P>(lower(t[s])) != first) continue;
    switch (GlobAt(p, np, t + s, nt - s, /*to_end=*/false, lower)) {
      case GlobResult::kMatch:
        *start = s;
        return true;
      case GlobResult::kNoMatchFinal:
        return false;
      case GlobResult::kNoMatch:
        break;
    }
  }
  return false;
}

}  // namespace trovix::rules::detail
