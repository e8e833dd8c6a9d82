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
#include <string_view>
#include <utility>
#include <vector>

#include "base/status.h"
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

// The value of property `hash` from the file's own properties: the first call for an item
// reads them all through the source and keeps the others in the item's value cache; later
// calls find them there (and answer S_FALSE for what the file does not hold). E_FAIL when
// the file cannot be read or there is no source.
HRESULT FetchOwnProperty(ShellItem& item, uint32_t hash, PropValue* out);

// The hash of a property by the name a source gives it (System.* or Stock.*); 0 when unknown.
uint32_t OwnPropertyHash(std::string_view name);

// The process's source; null until the engine installs one. Installing is not thread-safe
// (it happens once at start-up); reading the pointer is.
void SetPropertySource(PropertySource* source);
PropertySource* CurrentPropertySource();

}  // namespace trovix::props
