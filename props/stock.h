// Stock properties: the properties the program computes itself (who signed a file, its
// attribute letters, whether it is a folder, its kind, its streams and size on disk, how
// many items a folder holds) and the two free-text rows "Find" and "Complex". The table
// rows enter the catalogue after the shell properties; the fetcher calls ComputeStock by
// the row's stock index.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/status.h"
#include "props/property_key.h"
#include "props/prop_value.h"
#include "props/shell_item.h"

namespace trovix::props {

struct StockRow {
  std::string_view name;
  uint16_t var_type;
  uint16_t flags;
  std::string_view fmtid;
  uint32_t pid;
  uint32_t label_id;
  uint32_t description_id;
};

inline constexpr int kStockRowCount = 12;
// The rows in table order; a property's stock index is its row + 1.
const StockRow (&StockTable())[kStockRowCount];

// The row of a stock property by its canonical name; null for none.
const StockRow* FindStockRow(std::string_view name);

// Stock indexes (row + 1) by name.
namespace stock {
inline constexpr uint32_t kSignedBy = 1;
inline constexpr uint32_t kFileAttributes = 2;
inline constexpr uint32_t kInfoTipText = 3;
inline constexpr uint32_t kIsFolder = 4;
inline constexpr uint32_t kKind = 5;
inline constexpr uint32_t kFind = 6;
inline constexpr uint32_t kAlgorithmic = 7;
inline constexpr uint32_t kTotalFileSize = 8;
inline constexpr uint32_t kAds = 9;
inline constexpr uint32_t kAdsNames = 10;
inline constexpr uint32_t kFileCount = 11;
inline constexpr uint32_t kOnline = 12;
}  // namespace stock

// The 12 attribute letters "RHSADCEOJIPT", "-" for a clear bit: always 12 characters.
std::string AttributeLetters(uint32_t file_attributes);

// Computes a stock property. S_OK with a value, S_FALSE without, E_FAIL when it cannot be had
// (including the stock properties whose computation has not been built yet).
HRESULT ComputeStock(uint32_t stock_index, ShellItem& item, PropValue* out);

}  // namespace trovix::props
