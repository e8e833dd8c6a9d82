#include "app/settings/plugin_lists.h"

#include <algorithm>
#include <filesystem>
#include <string>

#include "props/plugins/lister_plugins.h"
#include "props/plugins/plugin_columns.h"

namespace trovix::app {

std::vector<props::ContentPlugin> LoadPluginList(const SettingsStore& store, std::string_view section) {
  std::vector<props::ContentPlugin> plugins;
  const SettingsSection values = store.Open(section, true);
  // The bound only guards against a store that answers for every name; a real list is short.
  for (uint32_t n = 0; n < 10000; ++n) {
    std::string number = std::to_string(n);
    std::string path = values.GetString(number, "");
    if (path.empty()) break;
    plugins.push_back(props::MakeContentPlugin(n, std::move(path), values.GetString(number + "_detect", "")));
  }
  return plugins;
}

void InstallConfiguredPlugins(const SettingsStore& store, const Settings& settings, const StoreFolders& folders) {
  std::vector<props::ContentPlugin> plugins = LoadPluginList(store);
  std::vector<props::ContentPlugin> listers = LoadPluginList(store, kListerPluginList);
  props::PluginHostOptions options;
  std::error_code ec;
  options.ini = !settings.szPluginINI.empty() && std::filesystem::is_regular_file(settings.szPluginINI, ec)
                    ? settings.szPluginINI
                    : folders.user_folder + "tcplugins.ini";
  options.timeout_ms = std::clamp(store.Open("general", true).GetInt(kPluginTimeoutSetting, kDefaultPluginTimeoutMs),
                                  100, 600'000);
  props::InstallListerPlugins(std::move(listers), options);
  if (plugins.empty()) {
    props::InstallContentPlugins({}, {});
    return;
  }
  props::InstallContentPlugins(std::move(plugins), std::move(options));
}

}  // namespace trovix::app
