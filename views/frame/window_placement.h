// The frame's position as the settings keep it ("binWindowPlacement"): a 44-byte record of
// little-endian 32-bit fields: length (44), flags, show state (1 normal, 2 minimised, 3
// maximised), the minimised and maximised positions (x, y each), and the normal rectangle
// (left, top, right, bottom). A block of another size is ignored by the reader.
//
// Pure functions.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

namespace trovix::views {

inline constexpr uint32_t kShowNormal = 1;
inline constexpr uint32_t kShowMinimised = 2;
inline constexpr uint32_t kShowMaximised = 3;

struct WindowPlacement {
  uint32_t show = kShowNormal;
  int32_t left = 0, top = 0, right = 0, bottom = 0;  // the normal (restored) rectangle
};

std::array<uint8_t, 44> EncodePlacement(const WindowPlacement& placement);
// Nullopt for a record whose length field is wrong or whose rectangle is empty.
std::optional<WindowPlacement> DecodePlacement(const std::array<uint8_t, 44>& record);

}  // namespace trovix::views
