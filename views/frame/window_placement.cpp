#include "views/frame/window_placement.h"

namespace trovix::views {
namespace {

void Put(std::array<uint8_t, 44>& r, size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i) r[at + i] = static_cast<uint8_t>(v >> (8 * i));
}

uint32_t Get(const std::array<uint8_t, 44>& r, size_t at) {
  uint32_t v = 0;
  for (int i = 0; i < 4; ++i) v |= static_cast<uint32_t>(r[at + i]) << (8 * i);
  return v;
}

}  // namespace

std::array<uint8_t, 44> EncodePlacement(const WindowPlacement& p) {
  std::array<uint8_t, 44> r{};
  Put(r, 0, 44);
  Put(r, 8, p.show);
  // The minimised and maximised positions are the system's business; -1 says "none chosen".
  for (size_t at = 12; at < 28; at += 4) Put(r, at, static_cast<uint32_t>(-1));
  Put(r, 28, static_cast<uint32_t>(p.left));
  Put(r, 32, static_cast<uint32_t>(p.top));
  Put(r, 36, static_cast<uint32_t>(p.right));
  Put(r, 40, static_cast<uint32_t>(p.bottom));
  return r;
}

std::optional<WindowPlacement> DecodePlacement(const std::array<uint8_t, 44>& r) {
  if (Get(r, 0) != 44) return std::nullopt;
  WindowPlacement p;
  p.show = Get(r, 8);
  p.left = static_cast<int32_t>(Get(r, 28));
  p.top = static_cast<int32_t>(Get(r, 32));
  p.right = static_cast<int32_t>(Get(r, 36));
  p.bottom = static_cast<int32_t>(Get(r, 40));
  if (p.right <= p.left || p.bottom <= p.top) return std::nullopt;
  return p;
}

}  // namespace trovix::views
