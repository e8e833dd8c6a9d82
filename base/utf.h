// UTF-8 inside, UTF-16LE only where a format fixes the bytes (persisted rule lists, wide
// plugin calls). Invalid input never fails: each ill-formed sequence becomes U+FFFD, so a
// file name that is not valid UTF-8 can always be shown.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace trovix::base {

std::u16string Utf8ToUtf16(std::string_view utf8);
std::string Utf16ToUtf8(std::u16string_view utf16);

bool IsValidUtf8(std::string_view bytes);
// The bytes as valid UTF-8: unchanged when they already are, else with U+FFFD for each
// ill-formed sequence. For showing names that the file system keeps as raw bytes.
std::string ToDisplayUtf8(std::string_view bytes);

// Appends one code point as UTF-8 (surrogates and values past U+10FFFF as U+FFFD).
void AppendUtf8(std::string& out, char32_t code_point);

// Little-endian UTF-16 code units, independent of the host's byte order.
void AppendUtf16LE(std::string& out, std::u16string_view text);
std::u16string ReadUtf16LE(const uint8_t* bytes, size_t units);

}  // namespace trovix::base
