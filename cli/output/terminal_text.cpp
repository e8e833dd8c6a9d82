#include "cli/output/terminal_text.h"

#include <cstdint>
#include <cstdio>

namespace trovix::cli {
namespace {

// The length of the well-formed UTF-8 sequence at `s`, or 0.
size_t SequenceLength(std::string_view s) {
  const auto b = [&](size_t i) { return static_cast<uint8_t>(s[i]); };
  const uint8_t first = b(0);
  size_t length = first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : first < 0xF5 ? 4 : 0;
  if (length == 0 || s.size() < length) return 0;
  for (size_t i = 1; i < length; ++i)
    if ((b(i) & 0xC0) != 0x80) return 0;
  // Overlong forms, surrogates and values past U+10FFFF.
  if (first == 0xE0 && b(1) < 0xA0) return 0;
  if (first == 0xED && b(1) >= 0xA0) return 0;
  if (first == 0xF0 && b(1) < 0x90) return 0;
  if (first == 0xF4 && b(1) >= 0x90) return 0;
  return length;
}

void AppendHex(std::string& out, uint8_t byte) {
  char buf[8];
  std::snprintf(buf, sizeof buf, "\\x%02x", byte);
  out += buf;
}

std::string Escape(std::string_view text, bool every_backslash) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    const uint8_t c = static_cast<uint8_t>(text[i]);
    if (c >= 0x20 && c < 0x7F) {
      // A backslash is doubled only where it would read as one of our escapes.
      if (c == '\\' && (every_backslash || (i + 1 < text.size() && (text[i + 1] == 'x' || text[i + 1] == '\\'))))
        out += '\\';
      out += static_cast<char>(c);
      ++i;
      continue;
    }
    if (c < 0x80) {
      switch (c) {
        case '\t': out += "\\t"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case 0x1B: out += "\\e"; break;
        default: AppendHex(out, c);
      }
      ++i;
      continue;
    }
    const size_t length = SequenceLength(text.substr(i));
    if (length == 0) {
      AppendHex(out, c);
      ++i;
      continue;
    }
    // C1 controls (U+0080 to U+009F) are escape sequences to many terminals.
    if (c == 0xC2 && static_cast<uint8_t>(text[i + 1]) < 0xA0) {
      AppendHex(out, c);
      AppendHex(out, static_cast<uint8_t>(text[i + 1]));
    } else {
      out.append(text.substr(i, length));
    }
    i += length;
  }
  return out;
}

}  // namespace

std::string TerminalSafe(std::string_view text) { return Escape(text, false); }

std::string TerminalSafeValue(std::string_view text) { return Escape(text, true); }

std::string TerminalSafeLines(std::string_view text) {
  std::string out;
  for (size_t start = 0; start <= text.size();) {
    size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    out += TerminalSafe(text.substr(start, end - start));
    if (end < text.size()) out += '\n';
    start = end + 1;
  }
  return out;
}

std::string ColumnValue(std::string_view text, bool terminal) {
  if (terminal) return TerminalSafeValue(text);
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '\t': out += "\\t"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\\': out += "\\\\"; break;
      default: out += c;
    }
  }
  return out;
}

}  // namespace trovix::cli
