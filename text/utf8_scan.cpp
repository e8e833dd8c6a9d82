#include "text/utf8_scan.h"

#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace trovix::text {
namespace {

constexpr char kReplacementUtf8[] = "\xEF\xBF\xBD";
constexpr uint64_t kHighBits = 0x8080808080808080ULL;

bool IsContinuation(uint8_t byte) { return (byte & 0xC0) == 0x80; }

}  // namespace

size_t WellFormedUtf8Prefix(std::string_view bytes) {
  const auto* s = reinterpret_cast<const uint8_t*>(bytes.data());
  const size_t size = bytes.size();
  size_t i = 0;
  while (i < size) {
#if defined(__SSE2__)
    // Thirty-two ASCII bytes at a time, then eight: most text is mostly ASCII.
    while (i + 32 <= size) {
      const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i));
      const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i + 16));
      if (_mm_movemask_epi8(_mm_or_si128(a, b)) != 0) break;
      i += 32;
    }
#endif
    while (i + 8 <= size) {
      uint64_t word;
      std::memcpy(&word, s + i, 8);
      if (word & kHighBits) break;
      i += 8;
    }
    if (i >= size) break;
    if (s[i] < 0x80) {
      ++i;
      continue;
    }
    int32_t at = static_cast<int32_t>(i);
    const int32_t length = static_cast<int32_t>(std::min<size_t>(size, i + 4));
    UChar32 c;
    U8_NEXT(s, at, length, c);
    if (c < 0) return i;
    i = static_cast<size_t>(at);
  }
  return size;
}

size_t IncompleteUtf8Tail(std::string_view bytes) {
  const auto* s = reinterpret_cast<const uint8_t*>(bytes.data());
  const size_t size = bytes.size();
  for (size_t k = 1; k <= 3 && k <= size; ++k) {
    uint8_t byte = s[size - k];
    if (IsContinuation(byte)) continue;
    if (byte < 0xC2 || byte > 0xF4) return 0;
    if (static_cast<size_t>(U8_COUNT_TRAIL_BYTES(byte)) < k) return 0;  // complete (or ill-formed)
    // Cut short: U8_NEXT then consumes every byte that is left without finding a character.
    int32_t at = static_cast<int32_t>(size - k);
    UChar32 c;
    U8_NEXT(s, at, static_cast<int32_t>(size), c);
    return c < 0 && static_cast<size_t>(at) == size ? k : 0;
  }
  return 0;
}

void AppendRepairedUtf8(std::string_view bytes, std::string* out) {
  const auto* s = reinterpret_cast<const uint8_t*>(bytes.data());
  const int32_t size = static_cast<int32_t>(bytes.size());
  int32_t i = 0;
  while (i < size) {
    size_t good = WellFormedUtf8Prefix(bytes.substr(static_cast<size_t>(i)));
    out->append(bytes.data() + i, good);
    i += static_cast<int32_t>(good);
    if (i >= size) break;
    UChar32 c;
    U8_NEXT(s, i, size, c);  // skips one maximal ill-formed subpart
    out->append(kReplacementUtf8, 3);
  }
}

size_t Utf8CutPoint(std::string_view text, size_t limit) {
  if (limit >= text.size()) return text.size();
  size_t n = limit;
  while (n > 0 && IsContinuation(static_cast<uint8_t>(text[n]))) --n;
  if (n > 0) return n;
  n = 1;
  while (n < text.size() && IsContinuation(static_cast<uint8_t>(text[n]))) ++n;
  return n;
}

}  // namespace trovix::text
