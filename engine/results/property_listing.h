// Every property value an item has, as the rules and the columns see it: one entry per
// catalogue property with a value, in catalogue order, with the value and its shown text. The
// console's `props FILE` and the desktop program's Properties box both list an item this way.
//
// Reads the item's values through its cache (the first read of a document's own properties asks
// the extraction helper): call it on the thread that owns the item, and off the UI thread.
#pragma once

#include <string>
#include <vector>

#include "props/catalogue.h"
#include "props/prop_value.h"
#include "props/shell_item.h"

namespace trovix::engine {

struct PropertyText {
  const props::PropertyInfo* property = nullptr;
  props::PropValue value;
  std::string text;  // as a column shows it
};

// Document contents are text, not a property value, and "Find" and "Complex" have none per item:
// they are left out, as are properties without a value.
std::vector<PropertyText> ListProperties(props::ShellItem& item, const props::Catalogue& catalogue);

}  // namespace trovix::engine
