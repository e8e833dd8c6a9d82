// PropertySource: where the properties a file carries about itself come from (the title and
// authors of a document; later the camera of a photo, the artist of a song). Reading them
// means parsing the file, which the search process leaves to its sandboxed helpers; the engine
// installs the source that asks them, once, before searches run. Without a source, items
// simply have no such values.
//
// One call returns all of a file's properties; the handler that uses it keeps them in the
// item's value cache, so a file is read once however many rules, columns and sorts ask.
//
// Thread-safety: the source must accept calls from any thread.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "props/prop_value.h"
#include "props/shell_item.h"

namespace trovix::props {

struct NamedValue {
  std::string name;  // canonical System.* name
  PropValue value;
};

class PropertySource {
 public:
  virtual ~PropertySource() = default;
  // Every property the item carries; false (with nothing) when it cannot be read.
  virtual bool ReadProperties(ShellItem& item, std::vector<NamedValue>* out) = 0;
};

// The process's source; null until the engine installs one. Installing is not thread-safe
// (it happens once at start-up); reading the pointer is.
void SetPropertySource(PropertySource* source);
PropertySource* CurrentPropertySource();

}  // namespace trovix::props
