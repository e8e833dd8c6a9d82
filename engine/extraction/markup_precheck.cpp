#include "engine/extraction/markup_precheck.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "base/utf.h"
#include "text/plain_text_reader.h"

namespace trovix::engine {
namespace {

constexpr size_t kMaxNeedle = 63;  // one bit per prefix, the whole needle's bit included

constexpr bool IsBlank(uint8_t c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }
uint8_t Lower(uint8_t c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; }

// What a byte can do besides standing for itself.
enum ByteClass : uint8_t {
  kPlain = 0,
  kInvisible = 1,  // part of a wider character, or a control character the parser may drop
  kSpace = 2,
  kRefChar = 4,    // letters, digits, "#": a reference goes on
};

struct ByteClasses {
  uint8_t v[256];
  constexpr ByteClasses() : v() {
    for (int b = 0; b < 256; ++b) {
      uint8_t c = kPlain;
      if (b >= 0x80 || b == 0x7F || (b < 0x20 && !IsBlank(static_cast<uint8_t>(b)))) c |= kInvisible;
      if (IsBlank(static_cast<uint8_t>(b))) c |= kSpace;
      if ((b >= 'a' && b <= 'z') || (b >= 'A' && b <= 'Z') || (b >= '0' && b <= '9') || b == '#') c |= kRefChar;
      v[b] = c;
    }
  }
};
// Computed by the compiler: a table made at every start would run before main.
constexpr ByteClasses kClasses;

// Charsets in which every ASCII character is its own byte and no byte of another character is
// ASCII (their names lowered, without "-", "_" and blanks; a trailing "*" takes any rest).
// Shift_JIS, Big5, GBK and GB18030 are not: their second bytes may be ASCII letters and digits,
// and GB18030 spells the Kelvin sign with two digits in it.
constexpr std::string_view kAsciiCharsets[] = {
    "utf8",   "usascii",   "ascii",    "iso8859*", "latin*", "windows125*", "cp125*",      "windows874",
    "koi8*",  "eucjp",     "euckr",    "euccn",    "gb2312", "tis620",      "macintosh",   "macroman",
    "ibm850", "ibm437",    "cp437",    "cp850",    "iso646us", "ansix3.41968",
};

std::string Squeezed(std::string_view name) {
  std::string out;
  for (char c : name)
    if (c != '-' && c != '_' && c != ' ') out.push_back(static_cast<char>(Lower(static_cast<uint8_t>(c))));
  return out;
}

bool KnownAsciiCharset(std::string_view name) {
  const std::string squeezed = Squeezed(name);
  if (squeezed.empty()) return false;
  for (std::string_view known : kAsciiCharsets) {
    if (known.back() == '*') {
      if (squeezed.compare(0, known.size() - 1, known.substr(0, known.size() - 1)) == 0) return true;
    } else if (squeezed == known) {
      return true;
    }
  }
  return false;
}

// The charset named after `word` and "=" in `tag` (a meta element or the XML declaration, where
// the parser looks for one), if any; false when a name is there and is not known to keep ASCII.
bool NamedCharsetKeepsAscii(std::string_view tag, std::string_view word) {
  auto equal = [](char a, char b) { return Lower(static_cast<uint8_t>(a)) == b; };
  for (auto at = tag.begin();;) {
    at = std::search(at, tag.end(), word.begin(), word.end(), equal);
    if (at == tag.end()) return true;
    at += static_cast<std::ptrdiff_t>(word.size());
    size_t i = static_cast<size_t>(at - tag.begin());
    while (i < tag.size() && IsBlank(static_cast<uint8_t>(tag[i]))) ++i;
    if (i >= tag.size() || tag[i] != '=') continue;
    ++i;
    while (i < tag.size() && (IsBlank(static_cast<uint8_t>(tag[i])) || tag[i] == '"' || tag[i] == '\'')) ++i;
    size_t end = i;
    while (end < tag.size() && end - i < 64 &&
           (std::isalnum(static_cast<uint8_t>(tag[end])) || strchr("-_.:", tag[end]) != nullptr))
      ++end;
    if (!KnownAsciiCharset(tag.substr(i, end - i))) return false;
  }
}

// The next "<m" or "<M" at or after `from` (the start of a meta element, perhaps), or npos.
size_t NextTagM(std::string_view bytes, size_t from) {
  const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
  size_t i = from;
#if defined(__SSE2__)
  const __m128i lt = _mm_set1_epi8('<');
  const __m128i m = _mm_set1_epi8('m');
  const __m128i lower = _mm_set1_epi8(0x20);
  while (i + 17 <= bytes.size()) {
    const __m128i here = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i));
    const __m128i next = _mm_or_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i + 1)), lower);
    const unsigned mask =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi8(here, lt), _mm_cmpeq_epi8(next, m))));
    if (mask != 0) return i + static_cast<size_t>(__builtin_ctz(mask));
    i += 16;
  }
#endif
  for (; i + 1 < bytes.size(); ++i)
    if (data[i] == '<' && (data[i + 1] | 0x20) == 'm') return i;
  return std::string_view::npos;
}

// Every charset the page declares where the parser reads declarations (its meta elements and
// an XML declaration at its start) is known to keep ASCII.
bool DeclarationsKeepAscii(std::string_view bytes) {
  std::string_view head = bytes.substr(bytes.substr(0, 3) == "\xEF\xBB\xBF" ? 3 : 0);
  while (!head.empty() && IsBlank(static_cast<uint8_t>(head.front()))) head.remove_prefix(1);
  if (head.substr(0, 5) == "<?xml" && !NamedCharsetKeepsAscii(head.substr(0, head.find('>')), "encoding"))
    return false;
  for (size_t at = NextTagM(bytes, 0); at != std::string_view::npos; at = NextTagM(bytes, at + 2)) {
    const std::string_view tag = bytes.substr(at, 1024);
    if (tag.size() < 5 || Lower(static_cast<uint8_t>(tag[2])) != 'e' || Lower(static_cast<uint8_t>(tag[3])) != 't' ||
        Lower(static_cast<uint8_t>(tag[4])) != 'a')
      continue;
    if (!NamedCharsetKeepsAscii(tag.substr(0, tag.find('>')), "charset")) return false;
  }
  return true;
}

bool LooksUtf8(std::string_view sample) {
  for (size_t cut = 0; cut < 4 && cut <= sample.size(); ++cut)
    if (base::IsValidUtf8(sample.substr(0, sample.size() - cut))) return true;
  return false;
}

}  // namespace

bool AsciiCompatiblePage(std::string_view bytes) {
  const std::string_view sample = bytes.substr(0, text::kSampleBytes);
  // UTF-16 and UTF-32 (with or without a mark: their ASCII has NUL bytes), and the signature by
  // which the parser takes a page for EBCDIC.
  if (sample.find('\0') != std::string_view::npos) return false;
  if (sample.substr(0, 2) == "\xFE\xFF" || sample.substr(0, 2) == "\xFF\xFE") return false;
  if (sample.substr(0, 4) == "\x4C\x6F\xA7\x94") return false;
  if (!DeclarationsKeepAscii(bytes)) return false;
  // Without UTF-8, the reader may impose the charset it detects.
  if (!LooksUtf8(sample)) {
    text::TextOpen open = text::OpenTextReader(text::MemorySource(std::string(sample)), "html");
    if (open.kind == 1 && !KnownAsciiCharset(open.encoding)) return false;
    if (open.kind != 1 && open.kind != 2 && open.kind != 4) return false;
  }
  return true;
}

std::unique_ptr<MarkupPrecheck> MarkupPrecheck::Make(const std::vector<std::string>& needles, bool ignore_case) {
  if (needles.empty()) return nullptr;
  auto check = std::unique_ptr<MarkupPrecheck>(new MarkupPrecheck);
  for (const std::string& text : needles) {
    if (text.empty()) return nullptr;
    std::string n;
    for (char c : std::string_view(text).substr(0, kMaxNeedle)) {
      const uint8_t b = static_cast<uint8_t>(c);
      if (b >= 0x80) return nullptr;
      n.push_back(IsBlank(b) ? ' ' : static_cast<char>(ignore_case ? Lower(b) : b));
    }
    Needle needle;
    const size_t m = n.size();
    needle.accept = 1ull << m;
    needle.any = (1ull << m) - 1;
    for (size_t j = 0; j < m; ++j) {
      const uint64_t bit = 1ull << j;
      const uint8_t c = static_cast<uint8_t>(n[j]);
      if (c == ' ') {
        needle.blank_at |= bit;
        needle.blank_near |= bit | (bit << 1);
        for (int b = 0; b < 256; ++b)
          if (IsBlank(static_cast<uint8_t>(b))) needle.advance[b] |= bit;
        continue;
      }
      for (int b = 0; b < 256; ++b) {
        const uint8_t seen = ignore_case ? Lower(static_cast<uint8_t>(b)) : static_cast<uint8_t>(b);
        if (seen == c) needle.advance[b] |= bit;
        // The Kelvin sign and the long s fold to "k" and "s".
        if (ignore_case && b >= 0x80 && (c == 'k' || c == 's')) needle.advance[b] |= bit;
      }
    }
    needle.blank_near &= needle.any | needle.accept;
    // The bytes that can start it are its first character in either case (and "&"), unless
    // a blank or a letter that non-ASCII folds to (k, s) starts it.
    const uint8_t c0 = static_cast<uint8_t>(n[0]);
    needle.starts_simple = c0 != ' ' && !(ignore_case && (c0 == 'k' || c0 == 's'));
    needle.start[0] = c0;
    needle.start[1] = ignore_case && c0 >= 'a' && c0 <= 'z' ? static_cast<uint8_t>(c0 - 32) : c0;
    check->needles_.push_back(needle);
  }
  return check;
}

namespace {

bool IsLetter(uint8_t c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

// What a "<" at `at` may open, as the HTML parser reads it: a start tag (of an element whose
// text the reader drops, or another), an end tag, a comment, some other "<!" or "<?"
// construct, or nothing (then it is text).
enum class Markup { kNone, kTag, kDroppedTag, kEndTag, kComment };

Markup MarkupAt(std::string_view bytes, size_t at) {
  const auto next = [&](size_t k) { return at + k < bytes.size() ? static_cast<uint8_t>(bytes[at + k]) : 0; };
  const uint8_t c = next(1);
  if (c == '/') return Markup::kEndTag;
  if (c == '!') return next(2) == '-' && next(3) == '-' ? Markup::kComment : Markup::kTag;
  if (c == '?') return Markup::kTag;
  if (!IsLetter(c)) return Markup::kNone;
  for (std::string_view name : {"script", "style", "noscript", "template"}) {
    size_t k = 0;
    while (k < name.size() && Lower(next(k + 1)) == static_cast<uint8_t>(name[k])) ++k;
    if (k == name.size() && !std::isalnum(next(k + 1))) return Markup::kDroppedTag;
  }
  return Markup::kTag;
}

}  // namespace

size_t MarkupPrecheck::SkipIdle(const Needle& n, const uint8_t* data, size_t i, size_t size) {
#if defined(__SSE2__)
  // Sixteen bytes at a time while none of them is one of the few that can start the needle
  // (its first character in either case, "&"): most of a page is passed over here.
  if (n.starts_simple) {
    const __m128i a = _mm_set1_epi8(static_cast<char>(n.start[0]));
    const __m128i b = _mm_set1_epi8(static_cast<char>(n.start[1]));
    const __m128i amp = _mm_set1_epi8('&');
    while (i + 16 <= size) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i));
      const __m128i hit = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, a), _mm_cmpeq_epi8(v, b)), _mm_cmpeq_epi8(v, amp));
      const unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(hit));
      if (mask != 0) return i + static_cast<size_t>(__builtin_ctz(mask));
      i += 16;
    }
  }
#endif
  const uint64_t first = 1;
  while (i < size && !(n.advance[data[i]] & first) && data[i] != '&' &&
         !((n.blank_at & first) && (kClasses.v[data[i]] & kSpace)))
    ++i;
  return i;
}

bool MarkupPrecheck::Scan(const Needle& n, std::string_view bytes) const {
  // One bit per needle prefix, for each place the parser may be in when that prefix has been
  // matched (bit 0: the empty prefix, always in character data):
  //   t  character data;  e  a reference that may still go on (read as part of t too);
  //   tu, tq, ta  a tag: outside quotes, inside "...", inside '...' (a quote may or may not
  //               open a value, so both are followed);
  //   xu, xq, xa  the same in the start tag of an element whose text is dropped;
  //   d  inside such an element (until some end tag);  c  inside a comment.
  uint64_t t = 1, e = 0, tu = 0, tq = 0, ta = 0, xu = 0, xq = 0, xa = 0, d = 0, c = 0;
  const uint64_t first = 1;
  const auto* const data = reinterpret_cast<const uint8_t*>(bytes.data());
  const size_t size = bytes.size();
  size_t i = 0;
  while (i < size) {
    if (t == 1 && (e | tu | tq | ta | xu | xq | xa | d | c) == 0) {
      // Idle: on to a byte that can start the needle.
      i = SkipIdle(n, data, i, size);
      if (i == size) break;
    }
    const uint8_t b = data[i];
    const uint8_t cls = kClasses.v[b];
    uint64_t now = t | e;
    now |= (now & n.blank_at) << 1;
    uint64_t nt = 1 | ((now & n.advance[b]) << 1);
    uint64_t ne = 0;
    if (cls & kInvisible) nt |= now;
    if (cls & kSpace) nt |= now & n.blank_near;
    if (b == '&' && i + 1 < size && (IsLetter(data[i + 1]) || data[i + 1] == '#')) ne |= (now & n.any) << 1;
    if (cls & kRefChar) ne |= e;
    if (b == ';') nt |= e;
    // Tags: a quote after "=" opens a value (anywhere else in a tag the parser passes it over),
    // the same quote closes it; an unquoted ">" ends the tag.
    uint64_t ntu = tu, ntq = tq, nta = ta, nxu = xu, nxq = xq, nxa = xa, nd = d, nc = c;
    if (b == '"' || b == '\'') {
      size_t before = i;
      while (before > 0 && IsBlank(data[before - 1])) --before;
      const bool opens = before > 0 && data[before - 1] == '=';
      uint64_t& nq = b == '"' ? ntq : nta;
      uint64_t& nxqq = b == '"' ? nxq : nxa;
      const uint64_t closing = b == '"' ? tq : ta;
      const uint64_t closing_x = b == '"' ? xq : xa;
      ntu = (opens ? 0 : tu) | closing;
      nq = opens ? tu : 0;
      nxu = (opens ? 0 : xu) | closing_x;
      nxqq = opens ? xu : 0;
    } else if (b == '>') {
      nt |= tu;
      ntu = 0;
      nd |= xu;
      nxu = 0;
      // A comment ends at "-->" (or "--!>").
      if (i > 0 && (data[i - 1] == '-' || data[i - 1] == '!')) nt |= c;
    }
    if (b == '<') {
      const uint64_t open = now & ~first;
      switch (MarkupAt(bytes, i)) {
        case Markup::kNone: break;
        case Markup::kTag: ntu |= open; break;
        case Markup::kDroppedTag: nxu |= open; break;
        case Markup::kEndTag: ntu |= open | d; break;
        case Markup::kComment: nc |= open; break;
      }
    }
    if ((nt | ne) & n.accept) return true;
    t = nt;
    e = ne;
    tu = ntu;
    tq = ntq;
    ta = nta;
    xu = nxu;
    xq = nxq;
    xa = nxa;
    d = nd;
    c = nc;
    ++i;
  }
  return false;
}

bool MarkupPrecheck::MayHold(std::string_view bytes) const {
  for (const Needle& needle : needles_)
    if (Scan(needle, bytes)) return true;
  // What the scan cleared holds only for a page whose charset keeps ASCII (asked last: a page
  // the scan cannot clear is read whatever its charset).
  return !AsciiCompatiblePage(bytes);
}

bool MarkupPrecheck::MayHoldFile(const std::string& path) const {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return true;
  // One buffer per thread, kept between pages, as the plain-text reader keeps its own.
  thread_local std::string page;
  page.clear();
  bool whole = false;
  size_t used = 0;
  for (;;) {
    if (page.size() - used < 64 * 1024)
      page.resize(std::min(kMaxBytes + 1, std::max<size_t>(page.size() * 2, 256 * 1024)));
    if (used >= page.size()) break;
    const ssize_t n = read(fd, page.data() + used, page.size() - used);
    if (n < 0) break;
    if (n == 0) {
      whole = true;
      break;
    }
    used += static_cast<size_t>(n);
  }
  close(fd);
  const bool may = !whole || used > kMaxBytes || MayHold(std::string_view(page.data(), used));
  // A rare large page does not keep its buffer for the rest of the search.
  if (page.size() > (4u << 20)) std::string().swap(page);
  return may;
}

}  // namespace trovix::engine
