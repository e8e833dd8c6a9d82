#include "base/utf.h"

#include <unicode/ustring.h>
#include <unicode/utf8.h>

#include <climits>

namespace trovix::base {
namespace {
constexpr UChar32 kReplacement = 0xFFFD;
}

std::u16string Utf8ToUtf16(std::string_view utf8) {
  if (utf8.empty()) return {};
  if (utf8.size() > INT32_MAX / 2) return {};
  std::u16string out(utf8.size(), u'\0');  // never more units than bytes
  int32_t length = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8WithSub(reinterpret_cast<UChar*>(out.data()), static_cast<int32_t>(out.size()),
                       &length, utf8.data(), static_cast<int32_t>(utf8.size()), kReplacement,
                       nullptr, &status);
  if (U_FAILURE(status)) return {};
  out.resize(static_cast<size_t>(length));
  return out;
}

std::string Utf16ToUtf8(std::u16string_view utf16) {
  if (utf16.empty()) return {};
  if (utf16.size() > INT32_MAX / 4) return {};
  std::string out(utf16.size() * 3, '\0');
  int32_t length = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strToUTF8WithSub(out.data(), static_cast<int32_t>(out.size()), &length,
                     reinterpret_cast<const UChar*>(utf16.data()), static_cast<int32_t>(utf16.size()),
                     kReplacement, nullptr, &status);
  if (U_FAILURE(status)) return {};
  out.resize(static_cast<size_t>(length));
  return out;
}

bool IsValidUtf8(std::string_view bytes) {
  const auto* s = reinterpret_cast<const uint8_t*>(bytes.data());
  int32_t length = static_cast<int32_t>(bytes.size());
  for (int32_t i = 0; i < length;) {
    if (s[i] < 0x80) {
      ++i;
      continue;
    }
    UChar32 c;
    U8_NEXT(s, i, length, c);
    if (c < 0) return false;
  }
  return true;
}

std::string ToDisplayUtf8(std::string_view bytes) {
  if (IsValidUtf8(bytes)) return std::string(bytes);
  return Utf16ToUtf8(Utf8ToUtf16(bytes));
}

void AppendUtf16LE(std::string& out, std::u16string_view text) {
  out.reserve(out.size() + text.size() * 2);
  for (char16_t unit : text) {
    out.push_back(static_cast<char>(unit & 0xFF));
    out.push_back(static_cast<char>(unit >> 8));
  }
}

std::u16string ReadUtf16LE(const uint8_t* bytes, size_t units) {
  std::u16string out(units, u'\0');
  for (size_t i = 0; i < units; ++i) {
    out[i] = static_cast<char16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
  }
  return out;
}

void AppendUtf8(std::string& out, char32_t c) {
  if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF) c = 0xFFFD;
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (c >> 6)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (c >> 12)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (c >> 18)));
    out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

}  // namespace trovix::base
