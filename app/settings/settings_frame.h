// A frame's own settings, section "frame": read when a frame opens, written when it closes.
// The rule-box layout ("frame\BoxBars") and the docking layout ("frame\DockBars") are kept by
// their own modules in sub-sections of the same section.
//
// Plain data; each frame loads and saves its own copy from its own thread (the store is
// thread-safe).
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "app/settings/settings_store.h"

namespace trovix::app {

inline constexpr size_t kWindowPlacementSize = 44;

struct FrameSettings {
  // The frame's position as the 44-byte window placement record; absent when none was stored
  // or the stored block had another size.
  std::optional<std::array<uint8_t, kWindowPlacementSize>> binWindowPlacement;
  uint32_t bShowStatusbar = 1;
  uint32_t bShowToolbar = 1;
  uint32_t bPlainMode = 0;
  uint32_t binDockStyle = 0;
  // The rule set of the last search in the persisted rule-list form; empty when none.
  std::vector<uint8_t> binLastRule;
};

FrameSettings LoadFrameSettings(const SettingsStore& store);
// Writes the values (a frame without a placement writes none) and commits. 0, or 2 when the
// settings file could not be written: the caller then shows the message that the settings
// file cannot be written.
SettingsStatus SaveFrameSettings(SettingsStore& store, const FrameSettings& frame);

}  // namespace trovix::app
