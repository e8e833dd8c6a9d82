#include "props/system_property_table.h"

#include <algorithm>

namespace trovix::props {

const SystemPropertyRow* FindSystemProperty(std::string_view name) {
  const auto rows = SystemPropertyTable();
  auto it = std::lower_bound(rows.begin(), rows.end(), name,
                             [](const SystemPropertyRow& row, std::string_view n) { return row.name() < n; });
  return it != rows.end() && it->name() == name ? &*it : nullptr;
}

}  // namespace trovix::props
