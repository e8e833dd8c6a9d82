// The record format of a rule-box layout: which rule boxes the search panel shows, on which
// property, with which context and indent, and where each band sat. A layout names no values:
// restoring one rebuilds the boxes empty.
//
// binToolID: one u32 per rule box, kFirstRuleBoxToolId + the box's position (0-based).
//
// binProps: one 20-byte record per rule box, in the order of binToolID:
//   0  16  the property's format identifier, in its in-memory byte order
//   16  4  the property id (u32)
// that is, exactly the 20 bytes of the property key.
//
// binBands: one 44-byte record per band: first the fixed band of the root-folder row, then one
// band per rule box, then the fixed band of the "Add new rule" row (so there are always two
// more bands than boxes). All fields little-endian:
//   0   4  record size, 44
//   4   4  band id: the box's tool identifier, or kRootBandId / kAddRuleBandId
//   8   4  line: the band's row in the panel, from 0 at the top
//   12  4  x: the band's left edge within its row, in pixels
//   16  4  width in pixels
//   20  4  height in pixels
//   24  4  indent of the box (0 for a fixed band)
//   28  4  context of the box: 0 AND, 1 OR, 2 AND NOT, 3 OR NOT (0 for a fixed band)
//   32  4  flags: 0x1 the band was hidden, 0x2 the panel was in plain mode
//   36  8  reserved, 0
//
// Pure functions; thread-safe.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "app/settings/saved_lists.h"
#include "props/property_key.h"

namespace trovix::views {

inline constexpr uint32_t kFirstRuleBoxToolId = 0xE800;
inline constexpr uint32_t kRootBandId = 0xE7F0;
inline constexpr uint32_t kAddRuleBandId = 0xE7F1;
inline constexpr uint32_t kBandHidden = 0x1;
inline constexpr uint32_t kBandPlainMode = 0x2;

struct BandGeometry {
  int32_t line = 0;
  int32_t x = 0;
  int32_t width = 0;
  int32_t height = 0;
  uint32_t flags = 0;
};

// One rule box as a layout keeps it.
struct LayoutBox {
  props::PropertyKey key;
  int32_t context = 0;
  int32_t indent = 0;
  BandGeometry band;
};

// The layout record of `boxes`, with the geometry of the two fixed bands.
app::RuleBoxLayout MakeRuleBoxLayout(const std::string& name, const std::vector<LayoutBox>& boxes,
                                     const BandGeometry& root_band, const BandGeometry& add_band,
                                     int32_t rebar_width);

// The boxes a layout holds, in order; empty for a layout that breaks the length rules. A box
// whose band is missing keeps context AND and indent 0.
std::vector<LayoutBox> ReadRuleBoxLayout(const app::RuleBoxLayout& layout);

}  // namespace trovix::views
