#include "views/rule_boxes/rule_box_layout.h"

#include <array>

namespace trovix::views {
namespace {

void PutU32(std::vector<uint8_t>& out, uint32_t v) {
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

uint32_t GetU32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
         static_cast<uint32_t>(p[3]) << 24;
}

void PutBand(std::vector<uint8_t>& out, uint32_t id, const BandGeometry& band, int32_t indent, int32_t context) {
  const size_t start = out.size();
  PutU32(out, static_cast<uint32_t>(app::kBandRecordSize));
  PutU32(out, id);
  PutU32(out, static_cast<uint32_t>(band.line));
  PutU32(out, static_cast<uint32_t>(band.x));
  PutU32(out, static_cast<uint32_t>(band.width));
  PutU32(out, static_cast<uint32_t>(band.height));
  PutU32(out, static_cast<uint32_t>(indent));
  PutU32(out, static_cast<uint32_t>(context));
  PutU32(out, band.flags);
  out.resize(start + app::kBandRecordSize, 0);
}

}  // namespace

app::RuleBoxLayout MakeRuleBoxLayout(const std::string& name, const std::vector<LayoutBox>& boxes,
                                     const BandGeometry& root_band, const BandGeometry& add_band,
                                     int32_t rebar_width) {
  app::RuleBoxLayout layout;
  layout.szName = name;
  layout.nRebarWidth = rebar_width;
  PutBand(layout.binBands, kRootBandId, root_band, 0, 0);
  for (size_t i = 0; i < boxes.size(); ++i) {
    const uint32_t id = kFirstRuleBoxToolId + static_cast<uint32_t>(i);
    layout.binToolID.push_back(id);
    const std::array<uint8_t, 20> key = boxes[i].key.Bytes();
    layout.binProps.insert(layout.binProps.end(), key.begin(), key.end());
    PutBand(layout.binBands, id, boxes[i].band, boxes[i].indent, boxes[i].context);
  }
  PutBand(layout.binBands, kAddRuleBandId, add_band, 0, 0);
  return layout;
}

std::vector<LayoutBox> ReadRuleBoxLayout(const app::RuleBoxLayout& layout) {
  std::vector<LayoutBox> boxes;
  if (!app::IsValidLayout(layout)) return boxes;
  for (size_t i = 0; i < layout.binToolID.size(); ++i) {
    LayoutBox box;
    box.key = props::PropertyKey::FromBytes(layout.binProps.data() + i * app::kBoxPropsRecordSize);
    for (size_t b = 0; b + app::kBandRecordSize <= layout.binBands.size(); b += app::kBandRecordSize) {
      const uint8_t* band = layout.binBands.data() + b;
      if (GetU32(band + 4) != layout.binToolID[i]) continue;
      box.band.line = static_cast<int32_t>(GetU32(band + 8));
      box.band.x = static_cast<int32_t>(GetU32(band + 12));
      box.band.width = static_cast<int32_t>(GetU32(band + 16));
      box.band.height = static_cast<int32_t>(GetU32(band + 20));
      box.indent = static_cast<int32_t>(GetU32(band + 24));
      const uint32_t context = GetU32(band + 28);
      box.context = context <= 3 ? static_cast<int32_t>(context) : 0;
      box.band.flags = GetU32(band + 32);
      break;
    }
    boxes.push_back(box);
  }
  return boxes;
}

}  // namespace trovix::views
