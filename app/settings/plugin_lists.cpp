#include "app/settings/plugin_lists.h"

#include <string>

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

}  // namespace trovix::app
