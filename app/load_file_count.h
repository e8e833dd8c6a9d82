// Hands the rule of Stock.FileCount (szFileCountRule) and whether hidden items are searched
// ("Search hidden folders", binFlags 0x20) to the property layer. Called beside LoadKinds after
// the settings are loaded and whenever they change. Thread-safe.
#pragma once

#include <string>

#include "app/settings/settings.h"

namespace trovix::app {

inline constexpr uint32_t kFlagSearchHidden = 0x20;

// False (with `*error` saying why) when the rule cannot be used; folders then have no count.
bool LoadFileCountRule(const Settings& settings, std::string* error = nullptr);

}  // namespace trovix::app
