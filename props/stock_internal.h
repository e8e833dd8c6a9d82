// The stock computations that live in files of their own, for stock.cpp's dispatch only.
#pragma once

#include <cstdint>

#include "base/status.h"
#include "props/prop_value.h"
#include "props/shell_item.h"

namespace trovix::props::internal {

// The hash of a stock row's key (what the item's value cache is keyed by).
uint32_t StockHash(uint32_t stock_index);

// Stock.TotalFileSize, Stock.ADS and Stock.ADSNames from one pass over the item's streams;
// the two not asked for go into the item's value cache.
HRESULT ComputeStreams(uint32_t stock_index, ShellItem& item, PropValue* out);

// Stock.FileCount.
HRESULT CountFolderItems(ShellItem& item, PropValue* out);

// Stock.InfoTipText.
HRESULT ComputeInfoTip(ShellItem& item, PropValue* out);

}  // namespace trovix::props::internal
