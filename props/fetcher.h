// The fetcher: what value property P has for item I. Dispatch is on the property's stock
// index and its precomputed hash, never on names, because this runs for every item and
// every rule. Values are cached per item so that a property tested by several rules, sorted
// on and shown in a column is computed once.
#pragma once

#include "base/status.h"
#include "props/property_info.h"
#include "props/shell_item.h"

namespace trovix::props {

// The uncached fetch. S_OK with a value, S_FALSE with the empty tag (empty text is no
// value), E_POINTER without an output, E_FAIL when the value cannot be had.
HRESULT FetchValue(ShellItem& item, const PropertyInfo& property, PropValue* out);

// The cached value node, fetched and cached when absent. A failed fetch is cached as the
// empty value, so it is not retried for the same item.
const CachedValue* GetCachedValue(ShellItem& item, const PropertyInfo& property);

}  // namespace trovix::props
