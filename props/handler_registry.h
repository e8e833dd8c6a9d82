// Who can produce what. On this platform the shell property system is ours: a property
// handler declares the System.* properties it can produce (with the label, description and
// catalogue facts the property system would give) and answers for items it accepts. The
// filtered catalogue offers a shell property only when some registered handler produces it;
// the fetcher asks the handlers that produce a property, in registration order.
//
// Handlers register once, before the first catalogue is built (RegisterBuiltinHandlers does
// it for the handlers shipped in this library). Registration is not thread-safe; lookups
// after that are read-only.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/status.h"
#include "props/property_info.h"
#include "props/shell_item.h"
#include "props/system_property_table.h"

namespace trovix::props {

// What a handler says about one property it produces.
struct ProducedProperty {
  std::string name;         // canonical name, must exist in the system property table
  std::string label;        // display label
  std::string description;
  uint16_t extra_flags = 0; // kPropEnumerated, kPropIndexed, kPropInnate, kPropCostly as true
  std::shared_ptr<const OptionList> options;  // for enumerated properties
};

class PropertyHandler {
 public:
  virtual ~PropertyHandler() = default;
  virtual std::string_view Name() const = 0;
  virtual const std::vector<ProducedProperty>& Produces() const = 0;
  // Whether the handler reads this item at all (usually by extension); cheap.
  virtual bool Accepts(ShellItem& item) const = 0;
  // S_OK with a value, S_FALSE without, E_FAIL on failure.
  virtual HRESULT GetValue(ShellItem& item, const PropertyInfo& property, PropValue* out) const = 0;
};

class HandlerRegistry {
 public:
  static HandlerRegistry& Instance();

  void Register(std::unique_ptr<PropertyHandler> handler);
  // The facts of the first handler producing `name`; nullptr when none does.
  const ProducedProperty* Produced(std::string_view name) const;
  // The same for a row of SystemPropertyTable(), without comparing names.
  const ProducedProperty* Produced(const SystemPropertyRow& row) const;
  // Handlers producing the property with this hash, in registration order.
  const std::vector<const PropertyHandler*>& HandlersFor(uint32_t hash) const;

 private:
  std::vector<std::unique_ptr<PropertyHandler>> handlers_;
  // By row of the system property table: what the first handler producing it says. Filled at
  // registration, so that building a catalogue asks each of the table's rows in constant time.
  std::vector<const ProducedProperty*> by_row_;
};

// Registers the handlers shipped with the library; called by the catalogue on first build.
void RegisterBuiltinHandlers();

}  // namespace trovix::props
