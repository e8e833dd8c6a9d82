// The configured plugins, read from the settings store. Section "ContentPlugins" holds the
// content plugins, "ListerPlugins" the lister plugins of the quick view, both in one form:
// values named "0", "1", "2", ... hold library paths and "0_detect", "1_detect", ... their
// detect strings. Reading stops at the first number whose path is missing or empty, so a gap
// ends the list (numbers 0, 1 and 3 give two plugins).
//
// Read-only; loads no library. Free functions that borrow the store.
#pragma once

#include <string_view>
#include <vector>

#include "app/settings/settings.h"
#include "app/settings/settings_store.h"
#include "props/content_plugin.h"

namespace trovix::app {

inline constexpr std::string_view kContentPluginList = "ContentPlugins";
inline constexpr std::string_view kListerPluginList = "ListerPlugins";

// The plugin records of `section` in configuration order. A detect string that does not
// compile is kept as text with its error (see props::ContentPlugin).
std::vector<props::ContentPlugin> LoadPluginList(const SettingsStore& store,
                                                 std::string_view section = kContentPluginList);

// The time a content plugin has for one value before it is asked to stop, in milliseconds:
// setting "nPluginTimeoutMs" of the general section (100 to 600,000; 5,000 when absent).
inline constexpr std::string_view kPluginTimeoutSetting = "nPluginTimeoutMs";
inline constexpr int32_t kDefaultPluginTimeoutMs = 5000;

// Installs the configured content plugins for the catalogue and the fetcher (props/plugins/
// plugin_columns.h) and the lister plugins for the quick view (props/plugins/lister_plugins.h),
// with the plugin settings file: `settings.szPluginINI` when that names an
// existing file, else "tcplugins.ini" in the per-user folder of `folders`. Starts nothing:
// a plugin host starts when a plugin is first asked, and never when none is configured.
// Called once at start-up, before the first catalogue is built.
void InstallConfiguredPlugins(const SettingsStore& store, const Settings& settings, const StoreFolders& folders);

}  // namespace trovix::app
