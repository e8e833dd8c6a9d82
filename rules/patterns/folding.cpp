#include "rules/patterns/folding.h"

#include <cstring>

#include <unicode/bytestream.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include "base/utf.h"

namespace trovix::rules::detail {
namespace {

// Decodes one character at `i`, advancing it; ill-formed sequences become one stand-in per
// maximal ill-formed subpart, as ICU delimits them.
inline char32_t Next(const uint8_t* s, int32_t& i, int32_t n) {
  const uint8_t lead = s[i];
  if (lead < 0x80) {
    ++i;
    return lead;
  }
  UChar32 c;
  U8_NEXT(s, i, n, c);
  return c < 0 ? kIllFormedBase + lead : static_cast<char32_t>(c);
}

}  // namespace

bool IsAscii(std::string_view text) {
  const char* p = text.data();
  size_t n = text.size();
  uint64_t acc = 0;
  while (n >= 8) {
    uint64_t w;
    std::memcpy(&w, p, 8);
    acc |= w;
    p += 8;
    n -= 8;
  }
  while (n > 0) {
    acc |= static_cast<uint8_t>(*p++);
    --n;
  }
  return (acc & 0x8080808080808080ull) == 0;
}

char32_t FoldChar(char32_t c) {
  if (c < 0x80) return AsciiLower(static_cast<uint8_t>(c));
  if (c >= kIllFormedBase) return c;
  return static_cast<char32_t>(u_foldCase(static_cast<UChar32>(c), U_FOLD_CASE_DEFAULT));
}

bool IsWordChar(char32_t c) {
  if (c < 0x80) {
    const uint8_t lower = AsciiLower(static_cast<uint8_t>(c));
    return (c >= '0' && c <= '9') || (lower >= 'a' && lower <= 'z');
  }
  if (c >= kIllFormedBase) return false;
  return u_isalnum(static_cast<UChar32>(c));
}

char32_t CodePointAt(std::string_view text, size_t offset) {
  if (offset >= text.size()) return 0;
  int32_t i = static_cast<int32_t>(offset);
  return Next(reinterpret_cast<const uint8_t*>(text.data()), i, static_cast<int32_t>(text.size()));
}

char32_t CodePointBefore(std::string_view text, size_t offset) {
  if (offset == 0 || offset > text.size()) return 0;
  const auto* s = reinterpret_cast<const uint8_t*>(text.data());
  if (s[offset - 1] < 0x80) return s[offset - 1];
  int32_t i = static_cast<int32_t>(offset);
  UChar32 c;
  U8_PREV(s, 0, i, c);
  return c < 0 ? kIllFormedBase + s[offset - 1] : static_cast<char32_t>(c);
}

void Decode(std::string_view text, bool fold, DecodedText* out) {
  out->chars.clear();
  out->offsets.clear();
  const auto* s = reinterpret_cast<const uint8_t*>(text.data());
  const auto n = static_cast<int32_t>(text.size());
  int32_t i = 0;
  while (i < n) {
    out->offsets.push_back(static_cast<uint32_t>(i));
    const char32_t c = Next(s, i, n);
    out->chars.push_back(fold ? FoldChar(c) : c);
  }
  out->offsets.push_back(static_cast<uint32_t>(n));
}

DecodedText& ScratchText() {
  thread_local DecodedText scratch;
  return scratch;
}

std::u32string DecodeChars(std::string_view text, bool fold) {
  DecodedText decoded;
  Decode(text, fold, &decoded);
  return std::move(decoded.chars);
}

std::string EncodeChars(std::u32string_view chars) {
  std::string out;
  out.reserve(chars.size());
  for (char32_t c : chars) {
    if (c >= kIllFormedBase) {
      out.push_back(static_cast<char>(c - kIllFormedBase));
      continue;
    }
    uint8_t buf[U8_MAX_LENGTH];
    int32_t len = 0;
    U8_APPEND_UNSAFE(buf, len, static_cast<UChar32>(c));
    out.append(reinterpret_cast<const char*>(buf), static_cast<size_t>(len));
  }
  return out;
}

std::string FoldText(std::string_view text) { return EncodeChars(DecodeChars(text, true)); }

void NormaliseText(std::string_view text, std::string* out, icu::Edits* edits) {
  out->clear();
  if (edits != nullptr) edits->reset();
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* nfkc_cf = icu::Normalizer2::getNFKCCasefoldInstance(status);
  if (U_FAILURE(status) || nfkc_cf == nullptr) {
    *out = FoldText(text);
    return;
  }
  std::string repaired;
  if (!base::IsValidUtf8(text)) {
    repaired = base::ToDisplayUtf8(text);
    text = repaired;
  }
  icu::StringByteSink<std::string> sink(out);
  nfkc_cf->normalizeUTF8(0, icu::StringPiece(text.data(), static_cast<int32_t>(text.size())), sink,
                         edits, status);
  if (U_FAILURE(status)) {
    *out = FoldText(text);
    if (edits != nullptr) edits->reset();
  }
}

size_t CharPosition(std::string_view text, size_t byte_offset) {
  size_t chars = 0;
  for (size_t i = 0; i < byte_offset && i < text.size(); ++i) {
    if ((static_cast<uint8_t>(text[i]) & 0xC0) != 0x80) ++chars;
  }
  return chars + 1;
}

}  // namespace trovix::rules::detail
