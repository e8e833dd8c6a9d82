// The order of a results list: how two found items compare under the sort properties, with
// "Sort folders first", empty values first and, optionally, natural number order for text
// ("file2" before "file11"). Used by every front end that sorts results. Comparing reads
// values through the items' caches, so it runs on the thread that owns the items.
#pragma once

#include <unicode/coll.h>

#include <vector>

#include "props/prop_value.h"
#include "props/property_info.h"
#include "props/shell_item.h"

namespace trovix::engine {

struct SortKey {
  const props::PropertyInfo* property = nullptr;
  bool ascending = true;
};

struct SortOptions {
  std::vector<SortKey> keys;    // in priority order; none sorts by name
  bool folders_first = false;   // general option bit 1
  bool natural_numbers = false; // general option bit 2
  bool name_ascending = true;   // direction of the name tie-break (bit 0 of nAscending)
};

// How a value compares: empty values first, then as a signed 64-bit number (integers, dates,
// booleans), a float, or text.
enum class ValueClass { kEmpty, kInteger, kFloat, kText };
ValueClass ClassOf(const props::PropValue& value);

// The collator that orders text in the list: the default locale's order (the root order when
// that is POSIX), case ignored, accents not; with `natural`, digit runs by their value. Shared by
// everything that orders results (sort keys too), so every order agrees. Safe from any thread.
const icu::Collator* ResultCollator(bool natural);

// Empty values first; integers, dates and booleans as signed 64-bit numbers; floats
// numerically; text case-insensitively (locale-aware), with digit runs compared as numbers
// when `natural` is set. Returns <0, 0 or >0.
int CompareValues(const props::PropValue& a, const props::PropValue& b, bool natural);

// The list order of two items: <0 when `a` comes first.
int CompareItems(props::ShellItem& a, props::ShellItem& b, const SortOptions& options);

}  // namespace trovix::engine
