// MarkupPrecheck: whether an HTML page's raw bytes can hold a searched word at all, decided
// before the page goes to the extraction helper and its HTML parser. Most pages of a tree do
// not hold the words a search looks for, and a byte scan costs a small part of a round trip
// to the helper and a parse; a page the scan clears is passed over, read by nobody.
//
// The scan must never pass over a page whose text holds a needle: it answers "may hold"
// unless it is sure. The text the HTML reader gives is made of the page's character data in
// document order, white space folded, with nothing of the markup but line breaks and tabs.
// So a needle (ASCII) in the text is, in the bytes, its characters in order where:
//   - any character may come from an entity or character reference ("&amp;", "&#x41;",
//     "&lt" without its semicolon): an "&" may stand for the next needle character;
//   - markup may stand between any two characters ("Gen<b>eral", a comment, a <script>
//     whose text the reader drops): a "<" before a letter, "/", "!" or "?" may open a tag
//     (which an unquoted ">" ends; a quote may or may not open a value), a "<!--" a comment
//     (ended by "-->"), and the start tag of script, style, noscript and template an element
//     that runs to some end tag; every such "<" may also be plain text;
//   - a blank of the needle may be any white space, none at all (a tag's line break), or an
//     entity (&nbsp; and the like);
//   - a byte above 0x7F is part of some character, which under the simple case folding of the
//     matchers may be "k" (the Kelvin sign) or "s" (the long s), and control characters may
//     be dropped by the parser.
// The scan runs that automaton (bit-parallel, one bit per needle prefix and parser state) over
// the bytes, so every reading the rules above allow is tried at once, in one pass.
//
// This holds only when the bytes are read in a charset where ASCII characters are their bytes
// and no byte of another character is ASCII. The scan answers "may hold" for a page with a
// UTF-16/32 mark or NUL bytes, the EBCDIC signature, a declared charset (in any meta element,
// or the XML declaration) outside a list of such charsets, or no declaration, no UTF-8 and a
// detected charset outside that list (UTF-7, ISO-2022 and HZ make ASCII characters out of
// escapes; Shift_JIS, Big5 and GB18030 have ASCII bytes inside other characters).
//
// Needles: plain ASCII texts, at most 63 bytes (a longer one is checked by its first 63, which
// its text must hold too), blanks folded. Thread-safety: immutable after Make; any thread.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace trovix::engine {

class MarkupPrecheck {
 public:
  // Null when a needle cannot be checked (empty, or not ASCII): then every page may hold it.
  static std::unique_ptr<MarkupPrecheck> Make(const std::vector<std::string>& needles, bool ignore_case);

  // Whether the text of the page `bytes` may hold any of the needles.
  bool MayHold(std::string_view bytes) const;
  // The same for the page in the file at `path`; true when it cannot be read whole (above
  // kMaxBytes, or an error): the helper then reads it as ever.
  bool MayHoldFile(const std::string& path) const;

  static constexpr size_t kMaxBytes = 32u << 20;

 private:
  struct Needle {
    uint64_t accept = 0;       // the bit of the whole needle
    uint64_t any = 0;          // every position that can advance (all of them)
    uint64_t blank_at = 0;     // positions whose next needle character is a blank
    uint64_t blank_near = 0;   // positions next to a blank: white space may repeat there
    std::array<uint64_t, 256> advance{};  // per byte: the positions the byte moves on
    bool starts_simple = false;  // only start[] (and "&") can start it
    uint8_t start[2] = {0, 0};
  };
  bool Scan(const Needle& needle, std::string_view bytes) const;
  // The next byte from `i` on where the needle may start.
  static size_t SkipIdle(const Needle& n, const uint8_t* data, size_t i, size_t size);

  std::vector<Needle> needles_;
};

// Whether the page's charset keeps ASCII as its bytes (see above); `bytes` is all of the page.
bool AsciiCompatiblePage(std::string_view bytes);

}  // namespace trovix::engine
