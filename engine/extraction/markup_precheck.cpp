#include "engine/extraction/markup_precheck.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstring>

#include "base/utf.h"
#include "text/plain_text_reader.h"

namespace trovix::engine {
namespace {

constexpr size_t kMaxNeedle = 63;  // one bit per prefix, the whole needle's bit included

bool IsBlank(uint8_t c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }
uint8_t Lower(uint8_t c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; }

// What a byte can do besides standing for itself.
enum ByteClass : uint8_t {
  kPlain = 0,
  kInvisible = 1,  // part of a wider character, or a control character the parser may drop
  kSpace = 2,
  kOpen = 4,       // "<": markup may start
  kClose = 8,      // ">" or "[": markup may end
  kAmp = 16,       // "&": a reference starts
  kRefChar = 32,   // letters, digits, "#": a reference goes on
  kSemicolon = 64, // ";": a reference ends
};

struct ByteClasses {
  uint8_t v[256];
  ByteClasses() : v() {
    for (int b = 0; b < 256; ++b) {
      uint8_t c = kPlain;
      if (b >= 0x80 || b == 0x7F || (b < 0x20 && !IsBlank(static_cast<uint8_t>(b)))) c |= kInvisible;
      if (IsBlank(static_cast<uint8_t>(b))) c |= kSpace;
      if (b == '<') c |= kOpen;
      if (b == '>' || b == '[') c |= kClose;
      if (b == '&') c |= kAmp;
      if ((b >= 'a' && b <= 'z') || (b >= 'A' && b <= 'Z') || (b >= '0' && b <= '9') || b == '#') c |= kRefChar;
      if (b == ';') c |= kSemicolon;
      v[b] = c;
    }
  }
};
const ByteClasses kClasses;

// Charsets in which every ASCII character is its own byte and no other sequence makes one
// (their names lowered, without "-", "_" and blanks; a trailing "*" takes any rest).
constexpr std::string_view kAsciiCharsets[] = {
    "utf8",     "usascii",  "ascii",     "iso8859*", "latin*",  "windows125*", "cp125*",   "windows874",
    "koi8*",    "shiftjis", "sjis",      "xsjis",    "mskanji", "windows31j",  "eucjp",    "euckr",
    "euccn",    "gb2312",   "gbk",       "gb18030",  "big5*",   "tis620",      "cp936",    "cp949",
    "cp932",    "cp950",    "macintosh", "macroman", "ksc56011987", "ibm850",  "ibm437",   "cp437",
    "cp850",    "iso646us", "ansix3.41968",
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

// Every charset the page names after "charset" or "encoding" and an "=", checked; false when
// one is not known to keep ASCII.
bool DeclarationsKeepAscii(std::string_view bytes) {
  for (std::string_view word : {std::string_view("charset"), std::string_view("encoding")}) {
    auto equal = [](char a, char b) { return Lower(static_cast<uint8_t>(a)) == b; };
    auto at = bytes.begin();
    for (;;) {
      at = std::search(at, bytes.end(), word.begin(), word.end(), equal);
      if (at == bytes.end()) break;
      size_t i = static_cast<size_t>(at - bytes.begin()) + word.size();
      at += static_cast<std::ptrdiff_t>(word.size());
      while (i < bytes.size() && IsBlank(static_cast<uint8_t>(bytes[i]))) ++i;
      if (i >= bytes.size() || bytes[i] != '=') continue;  // prose about charsets
      ++i;
      while (i < bytes.size() && (IsBlank(static_cast<uint8_t>(bytes[i])) || bytes[i] == '"' || bytes[i] == '\''))
        ++i;
      size_t end = i;
      while (end < bytes.size() && end - i < 64 &&
             (std::isalnum(static_cast<uint8_t>(bytes[end])) || strchr("-_.:", bytes[end]) != nullptr))
        ++end;
      if (!KnownAsciiCharset(bytes.substr(i, end - i))) return false;
    }
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
    check->needles_.push_back(needle);
  }
  return check;
}

bool MarkupPrecheck::Scan(const Needle& n, std::string_view bytes) const {
  // t: prefixes matched in character data (bit 0: the empty prefix, always); g: prefixes
  // followed by open markup; e: prefixes whose last character came from a reference that may
  // still go on. A reference may end anywhere, so e is read as part of t.
  uint64_t t = 1, g = 0, e = 0;
  // The start bytes: where a match can begin when nothing is under way.
  const uint64_t first = 1;
  const auto* p = reinterpret_cast<const uint8_t*>(bytes.data());
  const auto* const end = p + bytes.size();
  while (p < end) {
    if (t == 1 && g == 0 && e == 0) {
      // Idle: skip to a byte that can start the needle.
      while (p < end && !(n.advance[*p] & first) && !(kClasses.v[*p] & kAmp) &&
             !((n.blank_at & first) && (kClasses.v[*p] & kSpace)))
        ++p;
      if (p == end) break;
    }
    const uint8_t b = *p++;
    const uint8_t cls = kClasses.v[b];
    uint64_t now = t | e;
    now |= (now & n.blank_at) << 1;
    uint64_t next_t = 1 | ((now & n.advance[b]) << 1);
    uint64_t next_g = g;
    uint64_t next_e = 0;
    if (cls & kInvisible) next_t |= now;
    if (cls & kSpace) next_t |= now & n.blank_near;
    if (cls & kOpen) next_g |= now & ~1ull;
    if (cls & kClose) next_t |= g;
    if (cls & kAmp) next_e |= (now & n.any) << 1;
    if (cls & kRefChar) next_e |= e;
    if (cls & kSemicolon) next_t |= e;
    next_t |= (next_t & n.blank_at) << 1;
    if ((next_t | next_e) & n.accept) return true;
    t = next_t;
    g = next_g & ~n.accept;
    e = next_e;
    if (t == 1 && e == 0 && g != 0) {
      // Inside markup with nothing else under way: on to its possible ends.
      while (p < end && !(kClasses.v[*p] & kClose) && !(n.advance[*p] & first) && !(kClasses.v[*p] & kAmp) &&
             !((n.blank_at & first) && (kClasses.v[*p] & kSpace)))
        ++p;
    }
  }
  return false;
}

bool MarkupPrecheck::MayHold(std::string_view bytes) const {
  if (!AsciiCompatiblePage(bytes)) return true;
  for (const Needle& needle : needles_)
    if (Scan(needle, bytes)) return true;
  return false;
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
