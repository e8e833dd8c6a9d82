// The settings store's status numbers. Both backends (the settings file and the per-user key
// store) answer with the same numbers, which are the platform's error codes so that the
// Windows port can pass its registry results straight through. Callers treat every non-zero
// status of a read as "use the default".
#pragma once

#include <cstdint>

namespace trovix::app {

using SettingsStatus = uint32_t;

inline constexpr SettingsStatus kSettingsOk = 0;
// The value (or, for binary reads, the block) is not there; also a failed file write.
inline constexpr SettingsStatus kSettingsNotFound = 2;
// The section has no open store behind it: reads return this, writes are dropped.
inline constexpr SettingsStatus kSettingsNoStore = 6;
// The value is of another type, damaged, or cannot be held by the store.
inline constexpr SettingsStatus kSettingsBadData = 13;
// A binary block too large for the settings file.
inline constexpr SettingsStatus kSettingsTooLarge = 122;
// The caller's buffer is too small; the needed length has been returned.
inline constexpr SettingsStatus kSettingsMoreData = 234;

}  // namespace trovix::app
