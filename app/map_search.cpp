#include "app/map_search.h"

#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace trovix::app {
namespace {

std::string Printf(const char* format, double a, double b) {
  char buffer[128];
  std::snprintf(buffer, sizeof buffer, format, a, b);
  return buffer;
}

bool ParseNumber(std::string_view text, double* out) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  if (text.empty()) return false;
  const std::string copy(text);
  char* end = nullptr;
  errno = 0;
  const double value = std::strtod(copy.c_str(), &end);
  if (end != copy.c_str() + copy.size() || errno == ERANGE || !std::isfinite(value)) return false;
  *out = value;
  return true;
}

}  // namespace

std::string FormatCoordinate(double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%g", value);
  return buffer;
}

AreaRuleTexts MakeAreaRuleTexts(const MapArea& area) {
  return {FormatCoordinate(area.bottom) + " .. " + FormatCoordinate(area.top),
          FormatCoordinate(area.left) + " .. " + FormatCoordinate(area.right)};
}

bool ParseAreaText(std::string_view text, MapArea* area, std::string* why) {
  static constexpr const char* kEdges[] = {"north", "west", "south", "east"};
  double v[4] = {};
  for (int i = 0; i < 4; ++i) {
    const size_t comma = text.find(',');
    const bool last = i == 3;
    if (last != (comma == std::string_view::npos)) {
      *why = "an area is four numbers \"N,W,S,E\" (north, west, south, east in decimal degrees)";
      return false;
    }
    if (!ParseNumber(text.substr(0, comma), &v[i])) {
      *why = std::string("the ") + kEdges[i] + " edge of the area is not a number";
      return false;
    }
    if (!last) text.remove_prefix(comma + 1);
  }
  const double top = v[0], left = v[1], bottom = v[2], right = v[3];
  if (std::fabs(top) > 90 || std::fabs(bottom) > 90) {
    *why = "latitudes lie between -90 and 90";
    return false;
  }
  if (std::fabs(left) > 180 || std::fabs(right) > 180) {
    *why = "longitudes lie between -180 and 180";
    return false;
  }
  if (top < bottom) {
    *why = "the north edge lies south of the south edge (the order is N,W,S,E)";
    return false;
  }
  if (left > right) {
    *why = "the west edge lies east of the east edge (the order is N,W,S,E; an area across the "
           "180th meridian needs two searches)";
    return false;
  }
  *area = MapArea{"", top, left, bottom, right};
  return true;
}

std::optional<size_t> FindMapArea(const std::vector<MapArea>& areas, std::string_view name) {
  const icu::UnicodeString wanted =
      icu::UnicodeString::fromUTF8(icu::StringPiece(name.data(), static_cast<int32_t>(name.size())));
  for (size_t i = 0; i < areas.size(); ++i)
    if (icu::UnicodeString::fromUTF8(areas[i].szName).caseCompare(wanted, U_FOLD_CASE_DEFAULT) == 0) return i;
  return std::nullopt;
}

std::optional<MapInputs> MapInputsFor(const MapState& state) {
  if (state.longitude == 0) return std::nullopt;
  return MapInputs{FormatCoordinate(state.latitude), FormatCoordinate(state.longitude),
                   std::to_string(state.zoom < 1 ? 1 : state.zoom)};
}

MapState StateForArea(const MapArea& area, int zoom) {
  return MapState{(area.top + area.bottom) / 2, (area.left + area.right) / 2, zoom};
}

std::optional<double> DecimalDegrees(const std::vector<double>& parts, std::string_view ref, bool use_ref) {
  if (parts.empty()) return std::nullopt;
  double value = 0, unit = 1;
  for (size_t i = 0; i < parts.size() && i < 3; ++i, unit *= 60) {
    if (!std::isfinite(parts[i])) return std::nullopt;
    value += parts[i] / unit;
  }
  if (use_ref && !ref.empty() && (ref[0] == 'S' || ref[0] == 's' || ref[0] == 'W' || ref[0] == 'w')) value = -value;
  return value;
}

std::string WebMapUrl(double latitude, double longitude) {
  return Printf("https://www.openstreetmap.org/search?query=%.8f,%.8f", latitude, longitude);
}

}  // namespace trovix::app
