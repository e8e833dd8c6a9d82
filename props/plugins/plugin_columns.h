// Plugin columns: every configured content plugin, wrapped as a column provider, so that the
// catalogue and the value fetcher treat a plugin field like any other property. The front end
// installs the configured plugins once at start-up (InstallContentPlugins), before the first
// catalogue is built; the catalogue then registers every plugin's fields after the stock rows,
// one running provider number per plugin (PropertyInfo::provider), and the fetcher asks
// GetItemData for the values.
//
// Nothing happens without configured plugins: no host is started, no field is asked for, and
// the catalogue's build only checks an empty list.
//
// Legacy column handlers (the platform's in-process column-provider objects, registered under
// "Folder\ShellEx\ColumnHandlers") do not exist on Linux. They register after the plugins,
// under their own class identifiers, with the next provider numbers (LegacyColumnHandlerRows);
// a port to Windows fills that in, and on this platform it registers nothing.
//
// Thread-safety: installing is not thread-safe (it happens once at start-up); everything else
// may be called from any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/status.h"
#include "props/content_plugin.h"
#include "props/plugins/plugin_host_client.h"
#include "props/property_info.h"
#include "props/shell_item.h"

namespace trovix::props {

// What a detect string is evaluated on for the item: its upper-case extension and its size.
DetectItem DetectItemOf(ShellItem& item);

// The plugin adaptor: one configured plugin as a column provider (display name "WDX").
class PluginColumnProvider {
 public:
  PluginColumnProvider(ContentPlugin plugin, PluginHostClient& host);

  const ContentPlugin& plugin() const { return plugin_; }
  // Its fields, asked of the host once.
  const PluginFieldList& Fields();
  // Whether the plugin could say anything about the item, by its detect string (the one
  // configured, else the plugin's own), before its library is asked: the upper-case
  // extension and the size.
  bool Detects(ShellItem& item);
  // The value of field `field` (the property number) for the item. S_OK with a value,
  // S_FALSE without, E_INVALIDARG for a field the plugin does not have, E_FAIL when the
  // plugin failed.
  HRESULT GetItemData(uint32_t field, ShellItem& item, PropValue* out);
  // The full text of the plugin's full-text field, when it has one; see PluginHostClient::Text.
  PluginOutcome FullText(ShellItem& item, uint64_t max_bytes, const std::function<bool(const std::string&)>& on_piece);
  // Switched off after its failures.
  bool host_disabled() const { return host_.Disabled(plugin_.library_path); }

 private:
  const plugin::PluginField* FindField(uint32_t field);

  ContentPlugin plugin_;
  PluginHostClient& host_;
  std::once_flag detect_once_;
  std::optional<DetectString> detect_;  // compiled on first use
};

// Installs the configured plugins, replacing a different list installed before (the same list
// is kept as it is). An empty list installs nothing and starts nothing.
void InstallContentPlugins(std::vector<ContentPlugin> plugins, PluginHostOptions options);

// The providers in configuration order (provider number = position + 1); empty when none.
const std::vector<std::unique_ptr<PluginColumnProvider>>& ColumnProviders();
// The provider of a catalogue property (its `provider` number); nullptr when none.
PluginColumnProvider* GetProvider(uint32_t provider);
// The host the installed plugins run in; nullptr when no plugin is configured.
PluginHostClient* SharedPluginHost();

// The value of a plugin property for the item (called by the fetcher).
HRESULT GetItemData(ShellItem& item, const PropertyInfo& property, PropValue* out);

// The first configured plugin, in configuration order, that extracts text (it has a full-text
// field) and whose detect string takes the item; nullptr when none. For documents that no
// reader of this system reads.
PluginColumnProvider* TextPluginFor(ShellItem& item);

// The catalogue rows of every provider's fields, in order, then those of the legacy column
// handlers; `provider` is set on each.
std::vector<std::unique_ptr<PropertyInfo>> PluginPropertyRows();
// The rows of the legacy column handlers, numbered from `first_provider`: none on this platform.
std::vector<std::unique_ptr<PropertyInfo>> LegacyColumnHandlerRows(uint32_t first_provider);

}  // namespace trovix::props
