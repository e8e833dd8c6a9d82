#include "props/system_property_table.h"

#include <algorithm>

namespace trovix::props {

// Defined by the source generated from the table.
extern const SystemPropertyRow kSystemPropertyRows[];
extern const size_t kSystemPropertyRowCount;

std::span<const SystemPropertyRow> SystemPropertyTable() { return {kSystemPropertyRows, kSystemPropertyRowCount}; }

const SystemPropertyRow* FindSystemProperty(std::string_view name) {
  const auto rows = SystemPropertyTable();
  auto it = std::lower_bound(rows.begin(), rows.end(), name,
                             [](const SystemPropertyRow& row, std::string_view n) { return row.name() < n; });
  return it != rows.end() && it->name() == name ? &*it : nullptr;
}

}  // namespace trovix::props
