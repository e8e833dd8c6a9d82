#include "props/stock.h"

#include <array>

#include "base/file_name.h"
#include "base/string_table.h"
#include "platform/file_status.h"
#include "base/document_types.h"
#include "props/file_kinds.h"
#include "props/property_source.h"
#include "props/stock_internal.h"

namespace trovix::props {
namespace {

using namespace platform;

constexpr StockRow kRows[kStockRowCount] = {
    // The costly flag 0x0001 marks the rows whose value needs a pass over the item's data
    // (a signature check, a streams pass, a folder count): the rule list tests them last.
    {"Stock.SignedBy", VT_LPWSTR, 0x0001, "{0CEF7D53-FA64-11D1-A203-0000F81FEDEE}", 70, 12500, 12501},
    // Deliberately the very key of the shell's own attributes property, turned into text.
    {"Stock.FileAttributes", VT_LPWSTR, 0x0400, "{B725F130-47EF-101A-A5F1-02608C9EEBAC}", 13, 12502, 12503},
    {"Stock.InfoTipText", VT_LPWSTR, 0x0000, "{C9944A21-A406-48FE-8225-AEC7E24C211B}", 17, 12504, 12505},
    // Deliberately reuses the shell's description text 12035.
    {"Stock.IsFolder", VT_BOOL, 0x0400, "{09329B74-40A3-4C68-BF07-AF9A572F607C}", 111, 12506, 12035},
    {"Stock.Kind", VT_LPWSTR, 0x0406, "{1E3EE840-BC2B-476C-8237-2ACD1A839B22}", 333, 12508, 12509},
    {"*", VT_LPWSTR, 0x0204, "{00010203-0405-0607-0809-0A0B0C0D0E0F}", 17, 12510, 12511},
    {"Stock.Algorithmic", VT_LPWSTR, 0x0200, "{00010203-0405-0607-0809-0A0B0C0D0E0F}", 18, 12512, 12513},
    {"Stock.TotalFileSize", VT_UI8, 0x0081, "{28636AA6-953D-11D2-B5D6-00C04FD918D0}", 14, 12514, 12515},
    {"Stock.ADS", VT_UI4, 0x0081, "{B9B4B3FC-2B51-4A42-B5D8-324146AFCF25}", 101, 12516, 12517},
    {"Stock.ADSNames", VT_LPWSTR, 0x0001, "{B9B4B3FC-2B51-4A42-B5D8-324146AFCF25}", 102, 12518, 12519},
    {"Stock.FileCount", VT_UI4, 0x0081, "{28636AA6-953D-11D2-B5D6-00C04FD918D0}", 12, 12520, 12521},
    // False for an item of a drive that is not mounted, which the index answered for.
    {"Stock.Online", VT_BOOL, 0x0000, "{5D0E7C4A-2B93-4F61-A8D7-3C19E6B04F25}", 2, 12522, 12523},
};

struct Letter {
  char letter;
  uint32_t bit;
};
constexpr Letter kLetters[12] = {
    {'R', FILE_ATTRIBUTE_READONLY},   {'H', FILE_ATTRIBUTE_HIDDEN},
    {'S', FILE_ATTRIBUTE_SYSTEM},     {'A', FILE_ATTRIBUTE_ARCHIVE},
    {'D', FILE_ATTRIBUTE_DIRECTORY},  {'C', FILE_ATTRIBUTE_COMPRESSED},
    {'E', FILE_ATTRIBUTE_ENCRYPTED},  {'O', FILE_ATTRIBUTE_OFFLINE},
    {'J', FILE_ATTRIBUTE_REPARSE_POINT}, {'I', FILE_ATTRIBUTE_NOT_CONTENT_INDEXED},
    {'P', FILE_ATTRIBUTE_SPARSE_FILE}, {'T', FILE_ATTRIBUTE_TEMPORARY},
};

}  // namespace

const StockRow (&StockTable())[kStockRowCount] { return kRows; }

const StockRow* FindStockRow(std::string_view name) {
  for (const StockRow& row : kRows)
    if (row.name == name) return &row;
  return nullptr;
}

uint32_t internal::StockHash(uint32_t stock_index) {
  static const auto hashes = [] {
    std::array<uint32_t, kStockRowCount> h{};
    for (int i = 0; i < kStockRowCount; ++i) h[i] = PropertyKey{*Guid::Parse(kRows[i].fmtid), kRows[i].pid}.Hash();
    return h;
  }();
  return stock_index >= 1 && stock_index <= kStockRowCount ? hashes[stock_index - 1] : 0;
}

std::string AttributeLetters(uint32_t attributes) {
  std::string text(12, '-');
  for (int i = 0; i < 12; ++i)
    if (attributes & kLetters[i].bit) text[i] = kLetters[i].letter;
  return text;
}

HRESULT ComputeStock(uint32_t stock_index, ShellItem& item, PropValue* out) {
  switch (stock_index) {
    case stock::kIsFolder:
      *out = PropValue::Bool(item.IsFolder());
      return S_OK;
    case stock::kFileAttributes: {
      if (!item.IsFileSystem()) return E_FAIL;
      uint32_t attributes = item.FileAttributes();
      if (attributes == kAttributesUnknown) return E_FAIL;
      *out = PropValue::Text(AttributeLetters(attributes));
      return S_OK;
    }
    case stock::kKind: {
      if (item.IsFolder()) {
        *out = PropValue::Text(std::string(base::LoadString(base::strings::kFolderLabel)));
        return S_OK;
      }
      std::optional<std::string> kind = KindOf(item);
      if (!kind) return S_FALSE;
      *out = PropValue::Text(std::move(*kind));
      return S_OK;
    }
    case stock::kTotalFileSize:
    case stock::kAds:
    case stock::kAdsNames:
      return internal::ComputeStreams(stock_index, item, out);
    case stock::kFileCount:
      return internal::CountFolderItems(item, out);
    case stock::kOnline:
      *out = PropValue::Bool(!item.offline());
      return S_OK;
    case stock::kInfoTipText:
      return internal::ComputeInfoTip(item, out);
    case stock::kSignedBy: {
      // Checking a signature means parsing the file: the helper does it with the file's own
      // properties, one read for all of them.
      if (!item.IsFileSystem() || item.IsFolder() || !base::HasSignatureReader(LowerExtension(item.path()))) return E_FAIL;
      const StockRow& row = kRows[stock::kSignedBy - 1];
      return FetchOwnProperty(item, PropertyKey{*Guid::Parse(row.fmtid), row.pid}.Hash(), out);
    }
    default:
      return E_FAIL;  // "Find" and "Complex" have no value of their own
  }
}

}  // namespace trovix::props
