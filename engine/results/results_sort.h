// Sorting a results list of any length quickly. The order is the one engine/results/result_order.h
// defines (CompareItems: folders first, each sort property with its direction, empty values
// first, text case-insensitive and optionally in natural number order, the name as the final
// tie-break); what differs is the way there. CompareItems fetches two values per comparison,
// which for a million rows means some twenty million fetches and text comparisons. Here every
// row's values are read once and turned into one byte string whose plain byte order is the
// list order: text becomes its ICU collation key (made by a collator set up exactly as the
// comparison's), numbers their order-preserving big-endian bytes, empty values a marker byte
// below every value; a descending property has its bytes inverted. The rows are then sorted
// by those strings with a stable sort, so rows equal in every key keep the order found.
//
// UI thread (it reads the items' value caches through `values`).
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "engine/results/result_order.h"
#include "props/shell_item.h"

namespace trovix::engine {

// The value a sort reads for one item: the cached or quickly fetched value, or null when it
// is not at hand (a costly value still being loaded), which sorts as empty.
using SortValueReader = std::function<const props::PropValue*(props::ShellItem&, const props::PropertyInfo&)>;

// `rows` (indices into `items`) in list order. An empty `options.keys` keeps `rows` as given.
std::vector<uint32_t> SortRows(const std::vector<props::ShellItemPtr>& items, std::vector<uint32_t> rows,
                               const SortOptions& options, const SortValueReader& values);

// The collation key of `text` whose byte order is the text order of CompareValues.
std::string TextSortKey(const std::string& text, bool natural);

}  // namespace trovix::engine
