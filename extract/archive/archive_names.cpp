#include "extract/archive/archive_names.h"

#include <unicode/ucnv.h>

namespace trovix::extract {
namespace {

void AppendCodePoint(std::string* out, uint32_t cp) {
  if (cp < 0x80) {
    out->push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out->push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out->push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

std::string Latin1ToUtf8(std::string_view raw) {
  std::string out;
  for (char c : raw) AppendCodePoint(&out, static_cast<unsigned char>(c));
  return out;
}

std::string Cp437ToUtf8(std::string_view raw) {
  std::string out(raw.size() * 3 + 1, '\0');
  UErrorCode status = U_ZERO_ERROR;
  int32_t n = ucnv_convert("UTF-8", "ibm-437", out.data(), static_cast<int32_t>(out.size()), raw.data(),
                           static_cast<int32_t>(raw.size()), &status);
  if (U_FAILURE(status)) return Latin1ToUtf8(raw);
  out.resize(static_cast<size_t>(n));
  return out;
}

}  // namespace

bool IsValidUtf8(std::string_view text) {
  size_t i = 0;
  while (i < text.size()) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    size_t len;
    uint32_t cp;
    if (c < 0x80) {
      ++i;
      continue;
    } else if (c >= 0xC2 && c <= 0xDF) {
      len = 2, cp = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
      len = 3, cp = c & 0x0F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      len = 4, cp = c & 0x07;
    } else {
      return false;
    }
    if (i + len > text.size()) return false;
    for (size_t k = 1; k < len; ++k) {
      unsigned char cc = static_cast<unsigned char>(text[i + k]);
      if ((cc & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (cc & 0x3F);
    }
    if ((len == 3 && (cp < 0x800 || (cp >= 0xD800 && cp <= 0xDFFF))) || (len == 4 && (cp < 0x10000 || cp > 0x10FFFF)))
      return false;
    i += len;
  }
  return true;
}

MemberName DecodeMemberName(std::string_view raw, bool zip) {
  std::string text = IsValidUtf8(raw) ? std::string(raw) : zip ? Cp437ToUtf8(raw) : Latin1ToUtf8(raw);
  MemberName name;
  // Some writers on Windows separate with backslashes; no zip name may hold one otherwise.
  if (zip)
    for (char& c : text)
      if (c == '\\') c = '/';
  std::string_view v(text);
  for (;;) {
    if (v.substr(0, 2) == "./") {
      v.remove_prefix(2);
    } else if (!v.empty() && v.front() == '/') {
      v.remove_prefix(1);
    } else {
      break;
    }
  }
  while (!v.empty() && v.back() == '/') {
    name.dir_suffix = true;
    v.remove_suffix(1);
  }
  if (v == ".") v = {};
  name.path = std::string(v);
  return name;
}

}  // namespace trovix::extract
