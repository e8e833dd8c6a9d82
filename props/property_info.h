// A catalogue entry: one property that a rule can test, a column can show and an expression
// can name. Entries are built once with the catalogue and never move or change afterwards,
// so rules and matchers may keep plain pointers to them for the catalogue's lifetime.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "props/property_key.h"
#include "props/prop_value.h"

namespace trovix::props {

// Catalogue flags: the high 16 bits of the type word.
enum PropertyFlag : uint16_t {
  kPropCostly = 0x0001,      // needs a pass over the item's data: tested last
  kPropEnumerated = 0x0002,  // rules offer the option list
  kPropIndexed = 0x0004,     // the search index can be queried on it
  kPropDuration = 0x0008,    // a count of 100 ns ticks, shown as h:mm:ss (rules copy it as 0x80)
  kPropTopLevel = 0x0020,    // the canonical name holds exactly one period
  kPropStock = 0x0040,       // computed by the program itself
  kPropInnate = 0x0080,      // a file-system fact
  kPropMultiValued = 0x0100, // multi-valued non-text, admitted for the forced names only
  kPropFreeText = 0x0200,    // "Find" and "Complex"
  kPropCheap = 0x0400,       // decided from the item's name and attributes alone: tested first
};

// The option list of an enumerated (or boolean) property. Numeric options are either
// discrete values or the lower boundaries of consecutive classes; text options carry the
// text a rule on them matches.
struct PropertyOption {
  std::string label;  // what the drop-down shows
  int64_t number = 0; // numeric options (integers and booleans)
  double real = 0;    // numeric options of a Float property
  std::string text;   // text options
};

struct OptionList {
  enum class Kind { kDiscrete, kClasses, kText };
  Kind kind = Kind::kDiscrete;
  bool is_float = false;
  std::vector<PropertyOption> options;

  bool IsText() const { return kind == Kind::kText; }
};

struct PropertyInfo {
  PropertyKey key;
  uint32_t hash = 0;
  uint32_t type_word = 0;  // flags << 16 | variant type
  std::string name;        // canonical name: "System.Size", "Stock.Kind", "*"
  std::string label;       // display label: "Size"
  std::string description;
  uint32_t stock_index = 0;  // 0 when not stock, else 1 + its row in the stock table
  uint32_t provider = 0;     // 0 unless a column provider (a content plugin) fills it: its number
  std::shared_ptr<const OptionList> options;  // enumerated and boolean properties

  uint16_t var_type() const { return static_cast<uint16_t>(type_word & 0xFFFF); }
  uint16_t base_type() const { return var_type() & kVarTypeMask; }
  uint16_t flags() const { return static_cast<uint16_t>(type_word >> 16); }
  bool has_flag(uint16_t f) const { return (flags() & f) != 0; }
};

}  // namespace trovix::props
