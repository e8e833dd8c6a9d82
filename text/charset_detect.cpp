#include "text/charset_detect.h"

#include <uchardet/uchardet.h>
#include <unicode/ucnv.h>
#include <unicode/ucsdet.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "text/utf8_scan.h"

namespace trovix::text {
namespace {

bool IsUtf8(std::string_view sample, bool cut) {
  size_t body = sample.size() - (cut ? IncompleteUtf8Tail(sample) : 0);
  return WellFormedUtf8Prefix(sample.substr(0, body)) == body;
}

// Where the NUL bytes of the sample stand, by position modulo 4.
struct NulPattern {
  std::array<size_t, 4> at{};
  size_t total = 0;
  size_t units4 = 0;  // whole 4-byte units looked at
};

NulPattern CountNuls(std::string_view sample) {
  NulPattern p;
  const size_t size = sample.size() & ~size_t{3};
  p.units4 = size / 4;
  const char* s = sample.data();
  for (size_t i = 0; i < size; ++i) {
    if (s[i] == 0) ++p.at[i & 3];
  }
  p.total = p.at[0] + p.at[1] + p.at[2] + p.at[3];
  return p;
}

// UTF-32 puts three zero bytes or two (characters above U+FFFF) in every unit; the highest
// byte is zero in every one.
std::string Utf32FromNuls(std::string_view sample, const NulPattern& p) {
  if (p.units4 == 0) return {};
  const auto* s = reinterpret_cast<const uint8_t*>(sample.data());
  bool le = p.at[3] == p.units4, be = p.at[0] == p.units4;
  for (size_t u = 0; u < p.units4 && (le || be); ++u) {
    const uint8_t* unit = s + 4 * u;
    if (le && unit[2] > 0x10) le = false;
    if (be && unit[1] > 0x10) be = false;
  }
  if (le && p.at[2] * 4 >= p.units4 * 3) return "UTF-32LE";
  if (be && p.at[1] * 4 >= p.units4 * 3) return "UTF-32BE";
  return {};
}

// UTF-16 text that holds ASCII has NUL bytes at the high byte of those characters only: all
// at odd offsets (little-endian) or all at even ones (big-endian). A few NUL characters
// would break an "all", so allow one stray in twenty.
std::string Utf16FromNuls(const NulPattern& p) {
  const size_t even = p.at[0] + p.at[2], odd = p.at[1] + p.at[3];
  if (odd > 0 && even * 20 <= odd) return "UTF-16LE";
  if (even > 0 && odd * 20 <= even) return "UTF-16BE";
  return {};
}

// C0 control bytes (and DEL) that text does not hold; tab, line feed, form feed, carriage return,
// and the shift and escape bytes of the ISO-2022 encodings are left out.
bool ManyControlBytes(std::string_view sample) {
  size_t controls = 0;
  for (unsigned char c : sample) {
    if ((c < 0x20 || c == 0x7F) && c != '\t' && c != '\n' && c != '\f' && c != '\r' && c != 0x0E &&
        c != 0x0F && c != 0x1B) {
      ++controls;
    }
  }
  return controls * 20 > sample.size();  // more than 5 %
}

// Whether any byte is a C0 control other than tab, line feed, form feed and carriage return,
// or DEL: a quick look that lets plain text skip the counting.
bool HasUnusualControlBytes(std::string_view sample) {
  const char* p = sample.data();
  const char* const end = p + sample.size();
#if defined(__SSE2__)
  const __m128i limit = _mm_set1_epi8(0x1F);
  const __m128i del = _mm_set1_epi8(0x7F);
  const __m128i tab = _mm_set1_epi8('\t'), lf = _mm_set1_epi8('\n'), ff = _mm_set1_epi8('\f'),
                cr = _mm_set1_epi8('\r');
  for (; end - p >= 16; p += 16) {
    const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i low = _mm_cmpeq_epi8(_mm_min_epu8(c, limit), c);  // c <= 0x1F, unsigned
    const __m128i usual = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(c, tab), _mm_cmpeq_epi8(c, lf)),
                                       _mm_or_si128(_mm_cmpeq_epi8(c, ff), _mm_cmpeq_epi8(c, cr)));
    const __m128i odd = _mm_or_si128(_mm_andnot_si128(usual, low), _mm_cmpeq_epi8(c, del));
    if (_mm_movemask_epi8(odd) != 0) return true;
  }
#endif
  for (; p < end; ++p) {
    const auto c = static_cast<unsigned char>(*p);
    if ((c < 0x20 && c != '\t' && c != '\n' && c != '\f' && c != '\r') || c == 0x7F) return true;
  }
  return false;
}

bool IcuHasConverter(const char* name) {
  UErrorCode status = U_ZERO_ERROR;
  return ucnv_getAlias(name, 0, &status) != nullptr && U_SUCCESS(status);
}

// uchardet's names that ICU knows by another spelling.
std::string IcuNameOfUchardet(std::string_view name) {
  struct Named {
    const char* uchardet;
    const char* icu;
  };
  static constexpr Named kRenamed[] = {
      {"MAC-CENTRALEUROPE", "x-mac-centraleurroman"},
      {"MAC-CYRILLIC", "x-mac-cyrillic"},
      {"ASCII", "US-ASCII"},
      {"UHC", "windows-949"},
      {"EUC-KR", "windows-949"},  // UHC is a superset, and most "EUC-KR" files are UHC
      {"X-ISO-10646-UCS-4-3412", ""},
      {"X-ISO-10646-UCS-4-2143", ""},
  };
  for (const Named& n : kRenamed) {
    if (name == n.uchardet) return n.icu;
  }
  return std::string(name);
}

// Text in an ISO-8859 encoding holds no C1 control bytes (0x80 to 0x9F); where they occur,
// the file was written in the Windows code page that extends that ISO one with printable
// characters there (quotes, dashes, the euro sign).
std::string WindowsFormWhenC1Used(const std::string& encoding, std::string_view sample) {
  struct Superset {
    const char* iso;
    const char* windows;
  };
  static constexpr Superset kSupersets[] = {
      {"ISO-8859-1", "windows-1252"},
      {"ISO-8859-9", "windows-1254"},
      {"ISO-8859-11", "windows-874"},
      {"TIS-620", "windows-874"},
  };
  for (const Superset& s : kSupersets) {
    if (ucnv_compareNames(encoding.c_str(), s.iso) != 0) continue;
    for (unsigned char c : sample) {
      if (c >= 0x80 && c <= 0x9F) return s.windows;
    }
  }
  return encoding;
}

}  // namespace

CharsetGuess DetectWithIcuOnly(std::string_view sample) {
  CharsetGuess guess;
  UErrorCode status = U_ZERO_ERROR;
  UCharsetDetector* detector = ucsdet_open(&status);
  if (U_FAILURE(status)) return guess;
  const int32_t length = static_cast<int32_t>(std::min<size_t>(sample.size(), INT32_MAX));
  ucsdet_setText(detector, sample.data(), length, &status);
  const UCharsetMatch* match = U_SUCCESS(status) ? ucsdet_detect(detector, &status) : nullptr;
  if (match != nullptr && U_SUCCESS(status)) {
    const char* name = ucsdet_getName(match, &status);
    int32_t confidence = ucsdet_getConfidence(match, &status);
    if (U_SUCCESS(status) && name != nullptr && IcuHasConverter(name)) {
      guess.encoding = name;
      guess.confidence = confidence;
    }
  }
  ucsdet_close(detector);
  return guess;
}

CharsetGuess DetectWithUchardetOnly(std::string_view sample) {
  CharsetGuess guess;
  uchardet_t detector = uchardet_new();
  if (detector == nullptr) return guess;
  if (uchardet_handle_data(detector, sample.data(), sample.size()) == 0) {
    uchardet_data_end(detector);
    const char* name = uchardet_get_charset(detector);
    if (name != nullptr && *name != '\0') {
      guess.encoding = IcuNameOfUchardet(name);
      guess.confidence = guess.encoding.empty() ? 0 : 50;  // uchardet gives no number
    }
  }
  uchardet_delete(detector);
  return guess;
}

CharsetGuess DetectCharset(std::string_view sample, bool cut) {
  // Most text holds no NUL and no control byte beyond the usual line and tab ones; the byte
  // counts below are needed only when it does.
  const bool controls = HasUnusualControlBytes(sample);
  NulPattern nuls = controls ? CountNuls(sample) : NulPattern{};
  if (nuls.total > 0) {
    std::string wide = Utf32FromNuls(sample, nuls);
    if (wide.empty()) wide = Utf16FromNuls(nuls);
    if (wide.empty()) return {"", true, 90};
    return {wide, false, 90};
  }
  if (controls && ManyControlBytes(sample)) return {"", true, 80};
  if (IsUtf8(sample, cut)) {
    // The ISO-2022 encodings are seven-bit and so pass for ASCII; their escape sequences
    // tell them apart, which ICU's detector reads.
    if (sample.find('\x1B') != std::string_view::npos) {
      CharsetGuess icu = DetectWithIcuOnly(sample);
      if (icu.encoding.rfind("ISO-2022-", 0) == 0) return icu;
    }
    return {"UTF-8", false, 100, true};
  }

  CharsetGuess uchardet = DetectWithUchardetOnly(sample);
  if (!uchardet.encoding.empty()) {
    uchardet.encoding = WindowsFormWhenC1Used(uchardet.encoding, sample);
    return uchardet;
  }
  CharsetGuess icu = DetectWithIcuOnly(sample);
  if (!icu.encoding.empty()) return icu;
  return {"windows-1252", false, 0};  // every byte means something in it
}

}  // namespace trovix::text
