// Stock.InfoTipText: what a hover over the item shows, one fact a line: its type, its size,
// when it was created and last written, and the comment it carries. A fact the item cannot
// give leaves its line out, so the tip of a vanished item is its type alone.
#include <cstdio>
#include <string>

#include "base/string_table.h"
#include "base/utf.h"
#include "props/file_kinds.h"
#include "props/item_comment.h"
#include "props/stock_internal.h"

namespace trovix::props::internal {
namespace {

// Three significant figures in the largest unit reached, as a tip has no room for more:
// "812 bytes", "1.21 KB", "48.8 MB".
std::string ShortSize(uint64_t bytes) {
  if (bytes < 1024) return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
  static constexpr const char* kUnits[] = {"KB", "MB", "GB", "TB", "PB", "EB"};
  double value = static_cast<double>(bytes) / 1024;
  int unit = 0;
  while (value >= 1000 && unit < 5) {
    value /= 1024;
    ++unit;
  }
  char text[32];
  const char* format = value < 10 ? "%.2f %s" : value < 100 ? "%.1f %s" : "%.0f %s";
  std::snprintf(text, sizeof text, format, value, kUnits[unit]);
  return text;
}

std::string TypeText(ShellItem& item) {
  if (item.IsFolder()) return std::string(base::LoadString(base::strings::kFolderLabel));
  if (std::optional<std::string> kind = KindOf(item)) return *kind;
  std::string ext(item.extension());
  if (ext.empty()) return "File";
  for (char& c : ext) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
  return base::ToDisplayUtf8(ext) + " file";
}

}  // namespace

HRESULT ComputeInfoTip(ShellItem& item, PropValue* out) {
  std::string tip = std::string(base::LoadString(12508)) + ": " + TypeText(item);
  if (const platform::FileStatus* st = item.Status()) {
    if (!st->IsDirectory() && !st->IsSymlink()) tip += "\nSize: " + ShortSize(st->size);
    tip += "\nDate created: " + PropValue::FileTime(st->created).ToDisplayText();
    tip += "\nDate modified: " + PropValue::FileTime(st->modified).ToDisplayText();
  }
  if (std::string comment = ReadItemComment(item); !comment.empty()) tip += "\nComments: " + comment;
  *out = PropValue::Text(std::move(tip));
  return S_OK;
}

}  // namespace trovix::props::internal
