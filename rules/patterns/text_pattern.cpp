#include "rules/patterns/text_pattern.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <cstring>

#include <unicode/edits.h>

#include "rules/patterns/folding.h"
#include "rules/patterns/glob.h"
#include "rules/patterns/regex_matcher.h"

namespace trovix::rules {

using detail::AsciiLower;
using detail::DecodedText;

struct TextPattern::Impl {
  // What the value is compared with: the prepared pattern, folded when the comparison is
  // case-blind (for modes 1 to 100 preparation has already lowered it).
  std::string needle;
  std::u32string needle_chars;
  bool fold = false;
  // The needle can be searched byte by byte in any value, even one with non-ASCII characters
  // (see ByteSafe below); with needle_has_ks, only in values free of the two trap characters.
  bool byte_safe = false;
  bool needle_has_ks = false;
  bool needle_ascii = false;
  size_t pattern_chars = 0;  // length of the prepared pattern, for the wildcard excerpt
  // Wildcard, not exact: the pattern after its leading "*" and "?".
  size_t glob_skip_bytes = 0;
  size_t glob_skip_chars = 0;
  // Similarity: the adjacent character pairs of the pattern.
  std::vector<uint64_t> pairs;
  std::unique_ptr<detail::RegexMatcher> regex;
};

namespace {

constexpr char kRegexChars[] = "[\\^$|+({";
constexpr char kWildcardChars[] = "*?";

// Only two characters outside ASCII fold onto ASCII: the Kelvin sign (to "k") and the long s
// (to "s"). A folded ASCII needle without "k" and "s" therefore meets every non-ASCII byte of a
// value as a plain mismatch, and can be searched bytewise without decoding the value.
// (A test enumerates the code points to keep this claim honest across ICU versions.)
bool ByteSafe(std::string_view folded_ascii_needle) {
  return folded_ascii_needle.find_first_of("ks") == std::string_view::npos;
}

// Whether a value holds the long s (C5 BF) or the Kelvin sign (E2 84 AA). Each is looked for
// with memchr on its lead byte, which the C library runs many bytes at a time: a byte loop
// here cost as much as the search it guards, over every block of a document's text. E2 also
// leads common punctuation (dashes, curly quotes), where the look goes on from each.
bool HoldsSequence(std::string_view value, std::string_view sequence) {
  const char* p = value.data();
  const char* const end = p + value.size();
  while (static_cast<size_t>(end - p) >= sequence.size()) {
    p = static_cast<const char*>(std::memchr(p, sequence[0], static_cast<size_t>(end - p) - sequence.size() + 1));
    if (p == nullptr) return false;
    if (std::memcmp(p, sequence.data(), sequence.size()) == 0) return true;
    ++p;
  }
  return false;
}

bool MayHoldFoldTraps(std::string_view value) {
  return HoldsSequence(value, "\xC5\xBF") || HoldsSequence(value, "\xE2\x84\xAA");
}

std::string UndoubleQuotes(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    out.push_back(text[i]);
    if (text[i] == '"' && i + 1 < text.size() && text[i + 1] == '"') ++i;
  }
  return out;
}

// Bytes of the first `chars` characters of text starting at `offset`.
size_t BytesOfChars(std::string_view text, size_t offset, size_t chars) {
  size_t i = offset;
  while (i < text.size() && chars > 0) {
    ++i;
    while (i < text.size() && (static_cast<uint8_t>(text[i]) & 0xC0) == 0x80) ++i;
    --chars;
  }
  return i - offset;
}

// Case-blind search of a lowered ASCII needle.
// Whether the needle matches at v[i..i+m), its first byte already known to match.
inline bool LoweredAt(const uint8_t* v, const uint8_t* p, size_t m) {
  size_t k = 1;
  while (k < m && AsciiLower(v[k]) == p[k]) ++k;
  return k == m;
}

size_t AsciiFindLowered(std::string_view value, std::string_view needle) {
  const size_t n = value.size();
  const size_t m = needle.size();
  if (m > n) return std::string_view::npos;
  const auto* v = reinterpret_cast<const uint8_t*>(value.data());
  const auto* p = reinterpret_cast<const uint8_t*>(needle.data());
  const uint8_t first = p[0];
  const uint8_t last = p[m - 1];
  // For a letter, OR-ing 0x20 lowers a capital and maps no other byte onto a lower-case letter.
  const uint8_t first_mask = first >= 'a' && first <= 'z' ? 0x20 : 0;
  const uint8_t last_mask = last >= 'a' && last <= 'z' ? 0x20 : 0;
  size_t i = 0;
#if defined(__SSE2__)
  // Documents are long: sixteen places at a time are tested for the needle's first and last
  // byte together, and only the places where both fit are compared whole.
  const __m128i want_first = _mm_set1_epi8(static_cast<char>(first));
  const __m128i want_last = _mm_set1_epi8(static_cast<char>(last));
  const __m128i or_first = _mm_set1_epi8(static_cast<char>(first_mask));
  const __m128i or_last = _mm_set1_epi8(static_cast<char>(last_mask));
  for (; i + m - 1 + 16 <= n; i += 16) {
    const __m128i a = _mm_or_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(v + i)), or_first);
    const __m128i b = _mm_or_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(v + i + m - 1)), or_last);
    unsigned bits = static_cast<unsigned>(
        _mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi8(a, want_first), _mm_cmpeq_epi8(b, want_last))));
    while (bits != 0) {
      const size_t at = i + static_cast<size_t>(__builtin_ctz(bits));
      if (LoweredAt(v + at, p, m)) return at;
      bits &= bits - 1;
    }
  }
#endif
  for (; i + m <= n; ++i) {
    if ((v[i] | first_mask) != first) continue;
    if (LoweredAt(v + i, p, m)) return i;
  }
  return std::string_view::npos;
}

bool AsciiEqualsLowered(std::string_view value, std::string_view needle) {
  if (value.size() != needle.size()) return false;
  for (size_t i = 0; i < value.size(); ++i) {
    if (AsciiLower(static_cast<uint8_t>(value[i])) != static_cast<uint8_t>(needle[i])) return false;
  }
  return true;
}

inline uint64_t Pair(char32_t a, char32_t b) { return (static_cast<uint64_t>(a) << 32) | b; }

std::vector<uint64_t> PairsOf(std::u32string_view text) {
  std::vector<uint64_t> pairs;
  for (size_t i = 0; i + 1 < text.size(); ++i) pairs.push_back(Pair(text[i], text[i + 1]));
  return pairs;
}

// The score of a value of `la` characters (char_at(i) gives the i-th) against a pattern given
// by its characters and its pair list.
template <typename CharAt>
int Similarity(size_t la, CharAt char_at, std::u32string_view b,
               const std::vector<uint64_t>& pairs) {
  const size_t lb = b.size();
  if (la + lb < 2 || lb == 0) return 0;
  if (la == 1) {
    return b.find(char_at(0)) != std::u32string_view::npos ? static_cast<int>(200 / (la + lb)) : 0;
  }
  if (lb == 1) {
    for (size_t i = 0; i < la; ++i) {
      if (char_at(i) == b[0]) return static_cast<int>(200 / (la + lb));
    }
    return 0;
  }
  thread_local std::vector<uint8_t> used;
  used.assign(pairs.size(), 0);
  size_t count = 0;
  for (size_t i = 0; i + 1 < la; ++i) {
    const uint64_t pair = Pair(char_at(i), char_at(i + 1));
    for (size_t j = 0; j < pairs.size(); ++j) {
      if (!used[j] && pairs[j] == pair) {
        used[j] = 1;
        ++count;
        break;
      }
    }
  }
  return static_cast<int>(count * 200 / (la + lb - 2));
}

// Whole words: the characters either side of the occurrence must not be letters or digits.
bool StandsAlone(std::string_view value, size_t offset, size_t length) {
  return !detail::IsWordChar(detail::CodePointBefore(value, offset)) &&
         !detail::IsWordChar(detail::CodePointAt(value, offset + length));
}

}  // namespace

uint16_t DetectMatchMode(std::string_view pattern) {
  if (pattern.find_first_of(kRegexChars) != std::string_view::npos) return kModeRegex;
  if (pattern.find_first_of(kWildcardChars) != std::string_view::npos) return kModeWildcard;
  return kModePlain;
}

int SimilarityScore(std::string_view a, std::string_view b) {
  const std::u32string a_chars = detail::DecodeChars(a, false);
  const std::u32string b_chars = detail::DecodeChars(b, false);
  return Similarity(
      a_chars.size(), [&](size_t i) { return a_chars[i]; }, b_chars, PairsOf(b_chars));
}

TextPattern::~TextPattern() = default;

std::unique_ptr<TextPattern> TextPattern::Compile(std::string_view pattern, uint32_t flags,
                                                  uint16_t mode, std::string* error) {
  if (mode == kModeDetect)
    mode = (flags & kPatternVerbatim) ? kModePlain : DetectMatchMode(pattern);
  if (mode > kModeRegex) {
    if (error != nullptr) *error = "Unknown match mode " + std::to_string(mode);
    return nullptr;
  }
  std::unique_ptr<TextPattern> tp(new TextPattern);
  tp->mode_ = mode;
  tp->flags_ = flags & ~kPatternVerbatim;
  tp->impl_ = std::make_unique<Impl>();
  Impl& impl = *tp->impl_;

  std::string prepared = mode <= kModeNormalised ? UndoubleQuotes(pattern) : std::string(pattern);
  if (mode >= kModeNormalised && mode <= kModeWildcard) prepared = detail::FoldText(prepared);
  if (mode == kModeNormalised) {
    std::string normalised;
    detail::NormaliseText(prepared, &normalised);
    prepared = std::move(normalised);
  }
  tp->pattern_ = prepared;

  if (mode == kModeRegex) {
    impl.regex = detail::RegexMatcher::Compile(prepared, (tp->flags_ & kPatternIgnoreCase) != 0,
                                               (tp->flags_ & kPatternExact) != 0, error);
    if (impl.regex == nullptr) return nullptr;
    return tp;
  }

  // Wildcards and similarity are lowered by preparation, so they compare case-blind whatever
  // the flags say: a lowered pattern against an unlowered value could never match a capital.
  impl.fold = mode != kModePlain || (tp->flags_ & kPatternIgnoreCase) != 0;
  impl.needle = mode == kModePlain && impl.fold ? detail::FoldText(prepared) : prepared;
  impl.needle_chars = detail::DecodeChars(impl.needle, false);
  impl.needle_ascii = detail::IsAscii(impl.needle);
  impl.pattern_chars = impl.needle_chars.size();
  impl.byte_safe = impl.needle_ascii && (!impl.fold || ByteSafe(impl.needle));
  impl.needle_has_ks = impl.needle_ascii && !impl.byte_safe;
  if (mode == kModeWildcard) {
    const size_t skip = impl.needle.find_first_not_of(kWildcardChars);
    impl.glob_skip_bytes = skip == std::string::npos ? impl.needle.size() : skip;
    impl.glob_skip_chars = impl.glob_skip_bytes;  // the skipped characters are all ASCII
    // "?" counts characters, so bytes only do when the value is ASCII too.
    if (impl.needle.find('?') != std::string::npos) impl.byte_safe = impl.needle_has_ks = false;
  }
  if (mode >= kModeSimilarityMin && mode <= kModeSimilarityMax)
    impl.pairs = PairsOf(impl.needle_chars);
  return tp;
}

std::string TextPattern::Describe() const {
  std::string out = flags_ < kPatternExact ? "contains" : mode_ != kModePlain ? "matches" : "is";
  out += ' ';
  out += pattern_;
  if (mode_ == kModeWildcard) {
    out += " [WC]";
  } else if (mode_ == kModeRegex) {
    out += " [RE]";
  } else if (mode_ >= kModeNormalised && mode_ <= kModeSimilarityMax) {
    out += " [FZ]";
  }
  return out;
}

bool TextPattern::Match(std::string_view value, MatchRange* hit) const {
  if (value.empty() || pattern_.empty()) return false;
  const Impl& impl = *impl_;
  const bool exact = (flags_ & kPatternExact) != 0;
  const bool whole_words = (flags_ & kPatternWholeWords) != 0;
  MatchRange range;

  if (mode_ == kModeRegex) return impl.regex->Find(value, hit);

  if (mode_ == kModeWildcard) {
    const bool ascii_value = detail::IsAscii(value);
    const std::string_view rest = std::string_view(impl.needle).substr(impl.glob_skip_bytes);
    if (ascii_value || impl.byte_safe || (impl.needle_has_ks && !MayHoldFoldTraps(value))) {
      const auto* p = reinterpret_cast<const uint8_t*>(impl.needle.data());
      const auto* t = reinterpret_cast<const uint8_t*>(value.data());
      auto lower = [](uint8_t b) { return AsciiLower(b); };
      if (exact) {
        if (detail::GlobAt(p, impl.needle.size(), t, value.size(), true, lower) !=
            detail::GlobResult::kMatch)
          return false;
        range = {0, value.size()};
      } else {
        size_t start = 0;
        if (!rest.empty() && !detail::GlobSearch(p + impl.glob_skip_bytes, rest.size(), t,
                                                 value.size(), lower, &start))
          return false;
        range = {start, BytesOfChars(value, start, impl.pattern_chars * 4 / 3 + 1)};
      }
    } else {
      DecodedText& text = detail::ScratchText();
      detail::Decode(value, true, &text);
      const char32_t* p = impl.needle_chars.data();
      auto same = [](char32_t c) { return c; };
      if (exact) {
        if (detail::GlobAt(p, impl.needle_chars.size(), text.chars.data(), text.chars.size(), true,
                           same) != detail::GlobResult::kMatch)
          return false;
        range = {0, value.size()};
      } else {
        size_t start = 0;
        const size_t rest_chars = impl.needle_chars.size() - impl.glob_skip_chars;
        if (rest_chars > 0 &&
            !detail::GlobSearch(p + impl.glob_skip_chars, rest_chars, text.chars.data(),
                                text.chars.size(), same, &start))
          return false;
        const size_t end = std::min(text.chars.size(), start + impl.pattern_chars * 4 / 3 + 1);
        range = {text.offsets[start], text.offsets[end] - text.offsets[start]};
      }
    }
    if (hit != nullptr) *hit = range;
    return true;
  }

  if (mode_ >= kModeSimilarityMin && mode_ <= kModeSimilarityMax) {
    int score;
    if (detail::IsAscii(value)) {
      score = Similarity(
          value.size(),
          [&](size_t i) { return char32_t{AsciiLower(static_cast<uint8_t>(value[i]))}; },
          impl.needle_chars, impl.pairs);
    } else {
      DecodedText& text = detail::ScratchText();
      detail::Decode(value, true, &text);
      score = Similarity(
          text.chars.size(), [&](size_t i) { return text.chars[i]; }, impl.needle_chars,
          impl.pairs);
    }
    if (score < mode_) return false;
    if (hit != nullptr) *hit = {0, value.size()};
    return true;
  }

  if (mode_ == kModeNormalised) {
    thread_local std::string normalised;
    thread_local icu::Edits edits;
    detail::NormaliseText(value, &normalised, &edits);
    size_t pos;
    if (exact) {
      if (normalised != impl.needle) return false;
      pos = 0;
    } else {
      pos = normalised.find(impl.needle);
      if (pos == std::string::npos) return false;
      if (whole_words && !StandsAlone(normalised, pos, impl.needle.size())) return false;
    }
    if (hit != nullptr) {
      UErrorCode status = U_ZERO_ERROR;
      auto it = edits.getFineIterator();
      const int32_t begin = it.sourceIndexFromDestinationIndex(static_cast<int32_t>(pos), status);
      const int32_t end = it.sourceIndexFromDestinationIndex(
          static_cast<int32_t>(pos + impl.needle.size()), status);
      if (U_SUCCESS(status) && edits.hasChanges()) {
        const size_t b = std::min(static_cast<size_t>(std::max(begin, 0)), value.size());
        const size_t e = std::min(static_cast<size_t>(std::max(end, 0)), value.size());
        *hit = {b, e > b ? e - b : 0};
      } else {
        *hit = {pos, std::min(impl.needle.size(), value.size() - std::min(pos, value.size()))};
      }
    }
    return true;
  }

  // Plain text. Case-sensitive, or case-blind with a needle that bytes can decide: no decoding.
  bool by_bytes = !impl.fold;
  if (impl.fold) {
    if (impl.needle_ascii) {
      by_bytes = impl.byte_safe || !MayHoldFoldTraps(value);
    } else if (detail::IsAscii(value)) {
      return false;  // a folded non-ASCII character never equals a folded ASCII one
    }
  }
  if (by_bytes) {
    if (exact) {
      if (impl.fold ? !AsciiEqualsLowered(value, impl.needle) : value != impl.needle) return false;
      range = {0, value.size()};
    } else {
      const size_t pos = impl.fold ? AsciiFindLowered(value, impl.needle) : value.find(impl.needle);
      if (pos == std::string_view::npos) return false;
      if (whole_words && !StandsAlone(value, pos, impl.needle.size())) return false;
      range = {pos, impl.needle.size()};
    }
  } else {
    DecodedText& text = detail::ScratchText();
    detail::Decode(value, true, &text);
    const std::u32string_view chars = text.chars;
    size_t pos;
    if (exact) {
      if (chars != impl.needle_chars) return false;
      pos = 0;
    } else {
      pos = chars.find(impl.needle_chars);
      if (pos == std::u32string_view::npos) return false;
    }
    const size_t begin = text.offsets[pos];
    const size_t end = text.offsets[pos + impl.needle_chars.size()];
    if (!exact && whole_words && !StandsAlone(value, begin, end - begin)) return false;
    range = {begin, end - begin};
  }
  if (hit != nullptr) *hit = range;
  return true;
}

}  // namespace trovix::rules
