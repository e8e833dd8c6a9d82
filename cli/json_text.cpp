#include "cli/json_text.h"

#include <unicode/utf8.h>

#include <cstdio>

namespace trovix::cli {

void AppendJsonString(std::string& out, std::string_view bytes) {
  char buf[8];
  out += '"';
  const auto* s = reinterpret_cast<const uint8_t*>(bytes.data());
  int32_t length = static_cast<int32_t>(bytes.size());
  for (int32_t i = 0; i < length;) {
    uint8_t c = s[i];
    if (c < 0x80) {
      ++i;
      switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
          if (c < 0x20 || c == 0x7F) {
            std::snprintf(buf, sizeof buf, "\\u%04x", c);
            out += buf;
          } else {
            out += static_cast<char>(c);
          }
      }
      continue;
    }
    int32_t start = i;
    UChar32 cp;
    U8_NEXT(s, i, length, cp);
    if (cp >= 0) {
      out.append(bytes.data() + start, static_cast<size_t>(i - start));
      continue;
    }
    // Ill-formed: escape the bytes U8_NEXT consumed one by one, so none is lost.
    for (int32_t k = start; k < i; ++k) {
      std::snprintf(buf, sizeof buf, "\\udc%02x", s[k]);
      out += buf;
    }
  }
  out += '"';
}

}  // namespace trovix::cli
