// The map area's rules and numbers shared by the console and the desktop program.
#include "app/map_search.h"

#include <gtest/gtest.h>

namespace trovix::app {
namespace {

TEST(MapSearch, AreaRulesUsePercentG) {
  const AreaRuleTexts ny = MakeAreaRuleTexts(DefaultMapArea());
  EXPECT_EQ(ny.latitude, "40.4446 .. 40.9921");
  EXPECT_EQ(ny.longitude, "-74.5459 .. -73.5214");
  // %g keeps six significant digits and drops trailing zeros.
  const AreaRuleTexts fine = MakeAreaRuleTexts(MapArea{"", 1.23456789, -0.5, 1e-7, 100});
  EXPECT_EQ(fine.latitude, "1e-07 .. 1.23457");
  EXPECT_EQ(fine.longitude, "-0.5 .. 100");
}

TEST(MapSearch, ParsesNorthWestSouthEast) {
  MapArea area;
  std::string why;
  ASSERT_TRUE(ParseAreaText(" 40.9921 ,-74.5459, 40.4446,-73.5214", &area, &why)) << why;
  EXPECT_DOUBLE_EQ(area.top, 40.9921);
  EXPECT_DOUBLE_EQ(area.left, -74.5459);
  EXPECT_DOUBLE_EQ(area.bottom, 40.4446);
  EXPECT_DOUBLE_EQ(area.right, -73.5214);
  // A single point is an area too (edges equal).
  EXPECT_TRUE(ParseAreaText("0,0,0,0", &area, &why));
  for (const char* bad : {"", "1,2,3", "1,2,3,4,5", "1,,3,4", "1,2,3,4x", "nan,0,0,0", "1e999,0,0,0",
                          "90.5,0,0,1", "1,-180.1,0,1", "0,0,1,1", "1,5,0,4"}) {
    SCOPED_TRACE(bad);
    EXPECT_FALSE(ParseAreaText(bad, &area, &why));
    EXPECT_FALSE(why.empty());
  }
}

TEST(MapSearch, FindsStoredAreasWithoutRegardToCase) {
  const std::vector<MapArea> areas = {DefaultMapArea(), MapArea{"Zürich", 1, 2, 0, 3}};
  EXPECT_EQ(FindMapArea(areas, "new york"), 0u);
  EXPECT_EQ(FindMapArea(areas, "ZÜRICH"), 1u);
  EXPECT_FALSE(FindMapArea(areas, "York"));
}

TEST(MapSearch, PageInputsOnlyOnceACentreIsKnownAndZoomAtLeastOne) {
  EXPECT_FALSE(MapInputsFor(MapState{}));                 // first use: the page's defaults
  EXPECT_FALSE(MapInputsFor(MapState{52.1, 0, 9}));       // a longitude of 0 means none yet
  auto inputs = MapInputsFor(MapState{48.8566, 2.3522, 0});
  ASSERT_TRUE(inputs);
  EXPECT_EQ(inputs->top, "48.8566");
  EXPECT_EQ(inputs->left, "2.3522");
  EXPECT_EQ(inputs->zoom, "1");  // a stored zoom of 0 is written as 1
  EXPECT_EQ(MapInputsFor(MapState{1, 2, 14})->zoom, "14");

  const MapState centre = StateForArea(DefaultMapArea(), 9);
  EXPECT_NEAR(centre.latitude, 40.71835, 1e-9);
  EXPECT_NEAR(centre.longitude, -74.03365, 1e-9);
  EXPECT_EQ(centre.zoom, 9);
}

TEST(MapSearch, DegreesMinutesSecondsWithReferences) {
  EXPECT_NEAR(*DecimalDegrees({43, 28, 2.814}, "N", true), 43.467448, 1e-6);
  EXPECT_NEAR(*DecimalDegrees({11, 53, 6.456}, "W", true), -11.885127, 1e-6);
  EXPECT_NEAR(*DecimalDegrees({33, 30, 0}, "s", true), -33.5, 1e-12);
  EXPECT_NEAR(*DecimalDegrees({33, 30, 0}, "S", false), 33.5, 1e-12);  // option off: as stored
  EXPECT_NEAR(*DecimalDegrees({-12.25}, "", true), -12.25, 1e-12);     // one decimal part
  EXPECT_FALSE(DecimalDegrees({}, "N", true));
}

}  // namespace
}  // namespace trovix::app
