// Rules on GPS coordinates: the item keeps degrees, minutes and seconds with a reference letter
// beside them, the rule holds signed decimal degrees (as an area search writes them).
#include <gtest/gtest.h>

#include "props/catalogue.h"
#include "rules/item_value_provider.h"
#include "rules/rule_set.h"
#include "rules/value/value_syntax.h"
#include "tests/support/temp_tree.h"

namespace trovix::rules {
namespace {

// Whether a picture at `parts` with reference `ref` falls in the range `text` of the property.
bool InRange(const char* property, std::vector<double> parts, const char* ref, const char* text) {
  trovix::testing::TempTree tree({"photo.jpg=not really a picture"});
  const props::Catalogue& all = props::AllPropertiesCatalogue();
  const props::PropertyInfo* info = all.FindProperty(property);
  const props::PropertyInfo* ref_info = all.FindProperty(std::string(property) + "Ref");
  EXPECT_TRUE(info && ref_info);
  if (!info || !ref_info) return false;
  props::ShellItemPtr item = props::ShellItem::FromPath(tree.path("photo.jpg"));
  // Values as a picture's reader leaves them in the item's cache.
  item->AddCached(info->hash, props::PropValue::DoubleVector(std::move(parts)));
  item->AddCached(ref_info->hash, props::PropValue::Text(ref));
  RulePtr rule = Rule::Create(info->key);
  EXPECT_TRUE(ParseRuleText(*rule, text)) << text;
  RuleSet set;
  EXPECT_TRUE(set.Compile({rule}));
  ItemValueProvider provider;
  set.set_value_provider(&provider);
  provider.set_item(item);
  return set.Evaluate();
}

TEST(CoordinateRule, ComparesSignedDecimalDegrees) {
  // 40° 39' 30.3" N, 73° 59' 36.1" W: New York.
  EXPECT_TRUE(InRange("System.GPS.Latitude", {40, 39, 30.3}, "N", "40.4446 .. 40.9921"));
  EXPECT_TRUE(InRange("System.GPS.Longitude", {73, 59, 36.1}, "W", "-74.5459 .. -73.5214"));
  EXPECT_FALSE(InRange("System.GPS.Longitude", {73, 59, 36.1}, "E", "-74.5459 .. -73.5214"));
  EXPECT_TRUE(InRange("System.GPS.Latitude", {0, 22, 16.7}, "S", "-1 .. 0"));
  // Minutes and seconds count: 43° 28' lies above 43.4, 43° 27' 52" below 43.465.
  EXPECT_TRUE(InRange("System.GPS.Latitude", {43, 28, 2.8}, "N", "43.4 .. 43.5"));
  EXPECT_FALSE(InRange("System.GPS.Latitude", {43, 27, 52}, "N", "43.465 .. 43.5"));
}

}  // namespace
}  // namespace trovix::rules
