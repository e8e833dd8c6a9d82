// Character-level helpers shared by the pattern matchers (internal to rules/patterns): UTF-8
// decoding that tolerates ill-formed bytes, the one case folding every matcher uses, the
// letter-or-digit test of whole-word matching, and per-thread decoded copies of a value.
//
// Thread-safety: all functions are reentrant; DecodedText buffers returned by ScratchText() belong
// to the calling thread and are reused by its next call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <unicode/edits.h>

namespace trovix::rules::detail {

// Code points above Unicode stand for ill-formed bytes: 0x110000 + the byte. They compare equal
// only to the same byte, never to a real character, and fold to themselves.
inline constexpr char32_t kIllFormedBase = 0x110000;

// b with A-Z lowered, every other byte unchanged (a table, for the inner loops).
struct AsciiLowerTable {
  uint8_t v[256];
  constexpr AsciiLowerTable() : v() {
    for (int i = 0; i < 256; ++i) v[i] = static_cast<uint8_t>(i >= 'A' && i <= 'Z' ? i + 32 : i);
  }
};
inline constexpr AsciiLowerTable kAsciiLowerTable{};
inline uint8_t AsciiLower(uint8_t b) { return kAsciiLowerTable.v[b]; }

bool IsAscii(std::string_view text);

// Simple (one-to-one) Unicode case folding; identity for the ill-formed stand-ins.
char32_t FoldChar(char32_t c);

// A letter or digit: what may not stand next to a whole-word match.
bool IsWordChar(char32_t c);

// The code point that starts at / ends at a byte offset of `text` (0 when there is none).
char32_t CodePointAt(std::string_view text, size_t offset);
char32_t CodePointBefore(std::string_view text, size_t offset);

// A value as code points, optionally folded, with the byte offset where each character starts
// (offsets has one more entry than chars: the end of the text).
struct DecodedText {
  std::u32string chars;
  std::vector<uint32_t> offsets;
};
void Decode(std::string_view text, bool fold, DecodedText* out);
DecodedText& ScratchText();

// Convenience for compile time: decoded code points only.
std::u32string DecodeChars(std::string_view text, bool fold);
// The UTF-8 form of code points (ill-formed stand-ins become their original byte).
std::string EncodeChars(std::u32string_view chars);
// Simple case folding of a whole UTF-8 text.
std::string FoldText(std::string_view text);

// NFKC with full case folding (the normalised plain mode). Ill-formed input is made well-formed
// first (then the edits refer to that repaired copy, so offsets are approximate).
void NormaliseText(std::string_view text, std::string* out, icu::Edits* edits = nullptr);

// The 1-based character position of a byte offset, for error messages.
size_t CharPosition(std::string_view text, size_t byte_offset);

}  // namespace trovix::rules::detail
