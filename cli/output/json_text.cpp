#include "cli/output/json_text.h"

#include <unicode/utf8.h>

#include <cmath>
#include <cstdio>

#include "base/file_time.h"

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

void AppendJsonDate(std::string& out, base::FileTime utc) {
  // Local wall time with its offset from UTC, as people read dates and as every ISO 8601
  // reader takes them: "2026-05-01T10:00:00+02:00".
  const base::FileTime local = base::UtcToLocal(utc);
  const base::CivilTime c = base::CivilFromFileTime(local);
  const int64_t offset_minutes = (static_cast<__int128>(local) - utc) / (60 * 10'000'000LL);
  char buf[64];
  std::snprintf(buf, sizeof buf, "\"%04d-%02d-%02dT%02d:%02d:%02d", c.year, c.month, c.day, c.hour, c.minute,
                c.second);
  out += buf;
  if (c.millisecond) {
    std::snprintf(buf, sizeof buf, ".%03d", c.millisecond);
    out += buf;
  }
  const int64_t magnitude = offset_minutes < 0 ? -offset_minutes : offset_minutes;
  std::snprintf(buf, sizeof buf, "%c%02d:%02d\"", offset_minutes < 0 ? '-' : '+', static_cast<int>(magnitude / 60),
                static_cast<int>(magnitude % 60));
  out += buf;
}

// The typed value for JSON: numbers as numbers, booleans as true/false, vectors as arrays,
// dates as ISO 8601 local time with the offset from UTC. Durations are plain numbers (100 ns ticks).
void AppendJsonValue(std::string& out, const props::PropValue& v) {
  if (v.IsEmpty()) {
    out += "null";
    return;
  }
  const uint16_t tag = v.tag();
  if (v.IsVector()) {
    out += '[';
    bool first = true;
    for (const std::string& t : v.texts()) {
      if (!first) out += ',';
      AppendJsonString(out, t);
      first = false;
    }
    for (double d : v.doubles()) {
      if (!first) out += ',';
      out += std::isfinite(d) ? std::to_string(d) : "null";
      first = false;
    }
    out += ']';
    return;
  }
  switch (tag) {
    case props::VT_LPWSTR:
      AppendJsonString(out, v.text());
      return;
    case props::VT_BOOL:
      out += v.AsInt64() != 0 ? "true" : "false";
      return;
    case props::VT_R4:
    case props::VT_R8: {
      char buf[40];
      std::snprintf(buf, sizeof buf, "%.17g", v.AsDouble());
      out += std::isfinite(v.AsDouble()) ? buf : "null";
      return;
    }
    case props::VT_FILETIME:
      AppendJsonDate(out, v.AsInt64());
      return;
    case props::VT_UI8:
    case props::VT_UI4:
    case props::VT_UI2:
    case props::VT_UI1:
    case props::VT_UINT:
      out += std::to_string(static_cast<uint64_t>(v.AsInt64()));
      return;
    default:
      out += std::to_string(v.AsInt64());
      return;
  }
}

}  // namespace trovix::cli
