// Searching pictures by where they were shot. A map area (a rectangle in decimal degrees)
// becomes two rules, a latitude range and a longitude range, written as the rule boxes and the
// console take them: "%g .. %g" (bottom .. top, left .. right), which the number-rule syntax
// reads as a range. Both the desktop program (the map dialog and the area menu) and the console
// (search --area) go through here, so an area searches alike in both.
//
// Also the map's state between dialogs and the few numbers the map page and the web map are
// given. Plain functions and data; thread-safe.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/settings/saved_lists.h"

namespace trovix::app {

inline constexpr std::string_view kLatitudeProperty = "System.GPS.Latitude";
inline constexpr std::string_view kLongitudeProperty = "System.GPS.Longitude";

// "%g" of a coordinate, as the rule boxes and the page's inputs show it.
std::string FormatCoordinate(double value);

// The values of the two range rules of an area.
struct AreaRuleTexts {
  std::string latitude;   // "bottom .. top"
  std::string longitude;  // "left .. right"
};
AreaRuleTexts MakeAreaRuleTexts(const MapArea& area);

// "N,W,S,E" (top, left, bottom, right; spaces allowed around the numbers) into an area. False
// with a reason when a number is missing or malformed, out of range (latitudes -90..90,
// longitudes -180..180) or the north edge lies south of the south edge. An area whose west edge
// lies east of its east edge (one crossing the 180th meridian) is refused too: two ranges cannot
// hold it.
bool ParseAreaText(std::string_view text, MapArea* area, std::string* why);

// The first stored area of that name, compared without regard to case.
std::optional<size_t> FindMapArea(const std::vector<MapArea>& areas, std::string_view name);

// The map's centre and zoom, remembered between dialogs for the whole process. A longitude of
// exactly 0 means no centre is known yet (the map page then keeps its own defaults).
struct MapState {
  double latitude = 0;
  double longitude = 0;
  int zoom = 1;
};

// What the program writes into the page's inputs when the page asks (setMapCoords): "top" and
// "left" with "%g", "zoom" with "%d" and never below 1. nullopt when no centre is known, so the
// page's defaults stand.
struct MapInputs {
  std::string top, left, zoom;
};
std::optional<MapInputs> MapInputsFor(const MapState& state);

// The state to remember after the dialog's OK: the centre of the rectangle and its zoom.
MapState StateForArea(const MapArea& area, int zoom);

// A picture's position from its "System.GPS.Latitude" or "...Longitude" value, which holds
// degrees, minutes and seconds (or fewer parts), and its reference letter: with `use_ref`, a
// reference beginning with S or W (either case) makes the position negative. nullopt when there
// are no parts or a part is not a finite number.
std::optional<double> DecimalDegrees(const std::vector<double>& parts, std::string_view ref, bool use_ref);

// The address of a place on the web map, the two coordinates with eight decimals
// ("%.8f,%.8f").
std::string WebMapUrl(double latitude, double longitude);

}  // namespace trovix::app
