#include "app/settings/settings_frame.h"

namespace trovix::app {
namespace {
constexpr std::string_view kFrame = "frame";
}  // namespace

FrameSettings LoadFrameSettings(const SettingsStore& store) {
  const SettingsSection section = store.Open(kFrame, true);
  FrameSettings f;
  std::array<uint8_t, kWindowPlacementSize> placement;
  uint32_t length = kWindowPlacementSize;
  if (section.ReadBinary("binWindowPlacement", placement.data(), &length) == kSettingsOk &&
      length == kWindowPlacementSize) {
    f.binWindowPlacement = placement;
  }
  f.bShowStatusbar = section.GetFlags("bShowStatusbar", f.bShowStatusbar);
  f.bShowToolbar = section.GetFlags("bShowToolbar", f.bShowToolbar);
  f.bPlainMode = section.GetFlags("bPlainMode", f.bPlainMode);
  f.binDockStyle = section.GetFlags("binDockStyle", f.binDockStyle);
  if (section.ReadBinary("binLastRule", &f.binLastRule) != kSettingsOk) f.binLastRule.clear();
  return f;
}

SettingsStatus SaveFrameSettings(SettingsStore& store, const FrameSettings& f) {
  const SettingsSection section = store.Open(kFrame, false);
  if (f.binWindowPlacement) {
    section.WriteBinary("binWindowPlacement", f.binWindowPlacement->data(), kWindowPlacementSize);
  }
  section.WriteInt("bShowStatusbar", f.bShowStatusbar);
  section.WriteInt("bShowToolbar", f.bShowToolbar);
  section.WriteInt("bPlainMode", f.bPlainMode);
  section.WriteInt("binDockStyle", f.binDockStyle);
  section.WriteBinary("binLastRule", f.binLastRule);
  return store.Commit();
}

}  // namespace trovix::app
