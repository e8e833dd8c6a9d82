// Hands the file kinds kept in the settings (section "File types", or the eight defaults when
// it holds none) to the property layer, which matches Stock.Kind with them. Called by the
// manager after the settings are loaded, and again when the user has edited the kinds.
// Thread-safe (the property layer swaps its table under a lock).
#pragma once

#include "app/settings/settings.h"

namespace trovix::app {

void LoadKinds(const Settings& settings);

}  // namespace trovix::app
