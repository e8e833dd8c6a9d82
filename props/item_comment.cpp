#include "props/item_comment.h"

#include <cerrno>

#include "base/utf.h"
#include "platform/named_streams.h"
#include "platform/regular_file.h"

namespace trovix::props {
namespace {

constexpr std::string_view kCommentStream = "ow_AFScomment";
// The companion stores at most 512 UTF-16 characters.
constexpr size_t kCommentBytes = 1024;
// A desktop-entry file is a handful of lines; anything far larger is not one.
constexpr size_t kDirectoryFileLimit = 64 * 1024;

std::string_view Trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
  return s;
}

std::string Unescape(std::string_view value) {
  std::string out;
  for (size_t i = 0; i < value.size(); ++i) {
    if (value[i] != '\\' || i + 1 == value.size()) {
      out += value[i];
      continue;
    }
    switch (value[++i]) {
      case 's': out += ' '; break;
      case 'n': out += '\n'; break;
      case 't': out += '\t'; break;
      case 'r': out += '\r'; break;
      default: out += value[i]; break;
    }
  }
  return out;
}

bool LooksLikeUtf16(std::string_view bytes) {
  if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFF && static_cast<unsigned char>(bytes[1]) == 0xFE)
    return true;
  // Text of the companion's is mostly Latin: a zero high byte in the first character gives
  // it away. UTF-8 text never holds a zero byte before its end.
  return bytes.size() >= 2 && bytes[1] == '\0' && bytes[0] != '\0';
}

}  // namespace

std::string DecodeCommentStream(std::string_view bytes) {
  bytes = bytes.substr(0, kCommentBytes);
  if (LooksLikeUtf16(bytes)) {
    size_t units = bytes.size() / 2;
    std::u16string text = base::ReadUtf16LE(reinterpret_cast<const uint8_t*>(bytes.data()), units);
    if (!text.empty() && text.front() == u'\xFEFF') text.erase(0, 1);
    if (size_t end = text.find(u'\0'); end != std::u16string::npos) text.resize(end);
    return base::Utf16ToUtf8(text);
  }
  if (size_t end = bytes.find('\0'); end != std::string_view::npos) bytes = bytes.substr(0, end);
  return base::ToDisplayUtf8(bytes);
}

std::string DesktopEntryComment(std::string_view text) {
  bool in_entry = false;
  while (!text.empty()) {
    size_t eol = text.find('\n');
    std::string_view line = Trim(text.substr(0, eol));
    text = eol == std::string_view::npos ? std::string_view() : text.substr(eol + 1);
    if (line.empty() || line.front() == '#') continue;
    if (line.front() == '[') {
      in_entry = line == "[Desktop Entry]";
      continue;
    }
    if (!in_entry) continue;
    size_t eq = line.find('=');
    if (eq == std::string_view::npos || Trim(line.substr(0, eq)) != "Comment") continue;
    return base::ToDisplayUtf8(Unescape(Trim(line.substr(eq + 1))));
  }
  return {};
}

std::string ReadItemComment(ShellItem& item) {
  if (!item.IsFileSystem()) return {};
  if (item.IsFolder()) {
    // Only a regular file of bounded size is read: a FIFO or a device named ".directory" (anyone
    // may make one in a folder they own) must not hang a search that shows comments.
    std::string text;
    const int err = platform::ReadRegularFile(item.path() + "/.directory", &text, kDirectoryFileLimit);
    if (err == 0) return DesktopEntryComment(text);
    if (err != ENOENT && err != EACCES) return {};
  }
  std::string bytes;
  if (platform::DefaultStreamSystem().Read(item.path(), kCommentStream, item.follow_links(), kCommentBytes, &bytes) != 0)
    return {};
  return DecodeCommentStream(bytes);
}

}  // namespace trovix::props
