#include "props/plugins/plugin_columns.h"

#include <algorithm>

#include "base/utf.h"

#include "props/plugins/plugin_values.h"

namespace trovix::props {
namespace {

struct Installed {
  std::unique_ptr<PluginHostClient> host;
  std::vector<std::unique_ptr<PluginColumnProvider>> providers;
};

Installed& TheInstalled() {
  // Never destroyed: values may still be asked from detached threads at exit.
  static Installed* installed = new Installed;
  return *installed;
}

// The published interface hands file names through buffers of the old platform path limit
// (260 characters, the terminator included): a longer name cannot reach a plugin intact, so
// such an item has no plugin values.
constexpr size_t kMaxPluginPath = 260;

bool FitsThePluginInterface(const ShellItem& item) {
  const std::string& path = item.path();
  if (path.size() < kMaxPluginPath) return true;  // never more characters than bytes
  return base::Utf8ToUtf16(path).size() < kMaxPluginPath;
}

std::shared_ptr<const OptionList> ChoicesOf(const std::string& units) {
  auto list = std::make_shared<OptionList>();
  list->kind = OptionList::Kind::kText;
  size_t start = 0;
  while (start <= units.size()) {
    size_t bar = units.find('|', start);
    if (bar == std::string::npos) bar = units.size();
    if (bar > start) list->options.push_back({units.substr(start, bar - start), 0, 0, units.substr(start, bar - start)});
    start = bar + 1;
  }
  return list->options.empty() ? nullptr : list;
}

}  // namespace

PluginColumnProvider::PluginColumnProvider(ContentPlugin plugin, PluginHostClient& host)
    : plugin_(std::move(plugin)), host_(host) {}

const PluginFieldList& PluginColumnProvider::Fields() { return host_.Fields(plugin_.library_path); }

DetectItem DetectItemOf(ShellItem& item) {
  DetectItem probe;
  for (char c : item.extension())
    probe.extension += c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  // The size from the item's cached System.Size entry; when no rule asked for it yet, from
  // the item's status, which is read once per item anyway.
  if (const CachedValue* cached = item.FindCached(hash::kSize)) {
    probe.size = static_cast<uint64_t>(cached->value.AsInt64());
  } else if (const platform::FileStatus* st = item.Status(); st && !st->IsDirectory()) {
    probe.size = st->size;
  }
  return probe;
}

bool PluginColumnProvider::Detects(ShellItem& item) {
  std::call_once(detect_once_, [this] {
    if (plugin_.detect) {
      detect_ = plugin_.detect;
    } else if (plugin_.detect_text.empty()) {
      // No detect string configured: the plugin's own, as it gave it when its fields were
      // listed. One that does not compile filters nothing.
      const std::string& own = Fields().detect;
      if (!own.empty()) detect_ = DetectString::Compile(own);
    }
  });
  if (!detect_) return true;
  return detect_->Matches(DetectItemOf(item));
}

const plugin::PluginField* PluginColumnProvider::FindField(uint32_t field) {
  const PluginFieldList& list = Fields();
  // Directly by index while the numbering is the plugin's own; else by search.
  if (field < list.fields.size() && static_cast<uint32_t>(list.fields[field].index) == field) return &list.fields[field];
  for (const plugin::PluginField& f : list.fields)
    if (static_cast<uint32_t>(f.index) == field) return &f;
  return nullptr;
}

HRESULT PluginColumnProvider::GetItemData(uint32_t field, ShellItem& item, PropValue* out) {
  if (!out) return E_INVALIDARG;
  *out = PropValue();
  if (!item.IsFileSystem() || !FitsThePluginInterface(item)) return S_FALSE;
  if (!Detects(item)) return S_FALSE;
  const plugin::PluginField* f = FindField(field);
  if (!f) return E_INVALIDARG;
  PluginOutcome outcome = host_.Value(plugin_.library_path, f->index, f->type, item.path(), out);
  if (outcome.status == S_OK && out->IsEmpty()) return S_FALSE;
  return outcome.status;
}

PluginOutcome PluginColumnProvider::FullText(ShellItem& item, uint64_t max_bytes,
                                             const std::function<bool(const std::string&)>& on_piece) {
  PluginOutcome outcome;
  outcome.status = S_FALSE;
  const PluginFieldList& list = Fields();
  if (list.full_text == 0 || !item.IsFileSystem() || !FitsThePluginInterface(item) || !Detects(item))
    return outcome;
  return host_.Text(plugin_.library_path, static_cast<int32_t>(list.full_text - 1), item.path(), max_bytes, on_piece);
}

void InstallContentPlugins(std::vector<ContentPlugin> plugins, PluginHostOptions options) {
  Installed& installed = TheInstalled();
  // A front end may read its settings more than once; the same list keeps its host and the
  // fields already asked for.
  const bool same = plugins.size() == installed.providers.size() &&
                    std::equal(plugins.begin(), plugins.end(), installed.providers.begin(),
                               [](const ContentPlugin& p, const std::unique_ptr<PluginColumnProvider>& q) {
                                 return p.library_path == q->plugin().library_path &&
                                        p.detect_text == q->plugin().detect_text;
                               });
  if (same && (plugins.empty() || installed.host->options().ini == options.ini)) return;
  installed.providers.clear();
  installed.host.reset();
  if (plugins.empty()) return;
  installed.host = std::make_unique<PluginHostClient>(std::move(options));
  for (ContentPlugin& p : plugins)
    installed.providers.push_back(std::make_unique<PluginColumnProvider>(std::move(p), *installed.host));
}

const std::vector<std::unique_ptr<PluginColumnProvider>>& ColumnProviders() { return TheInstalled().providers; }

PluginColumnProvider* GetProvider(uint32_t provider) {
  const auto& providers = ColumnProviders();
  return provider >= 1 && provider <= providers.size() ? providers[provider - 1].get() : nullptr;
}

PluginColumnProvider* TextPluginFor(ShellItem& item) {
  for (const auto& provider : ColumnProviders()) {
    if (provider->Fields().full_text == 0 || provider->host_disabled()) continue;
    if (provider->Detects(item)) return provider.get();
  }
  return nullptr;
}

PluginHostClient* SharedPluginHost() { return TheInstalled().host.get(); }

HRESULT GetItemData(ShellItem& item, const PropertyInfo& property, PropValue* out) {
  PluginColumnProvider* provider = GetProvider(property.provider);
  if (!provider) return E_INVALIDARG;
  return provider->GetItemData(property.key.pid, item, out);
}

std::vector<std::unique_ptr<PropertyInfo>> PluginPropertyRows() {
  std::vector<std::unique_ptr<PropertyInfo>> rows;
  uint32_t number = 0;
  for (const auto& provider : ColumnProviders()) {
    ++number;
    const ContentPlugin& plugin = provider->plugin();
    for (const plugin::PluginField& field : provider->Fields().fields) {
      auto info = std::make_unique<PropertyInfo>();
      info->key = PropertyKey{plugin.format_id, static_cast<uint32_t>(field.index)};
      info->hash = info->key.Hash();
      info->name = PluginCanonicalName(field.name, plugin.name);
      if (info->name.empty()) continue;
      // A plugin reads the file for every value: tested after the cheap rules. The index keeps
      // the values of the plugins installed when it reads (the indexer's read phase).
      uint16_t flags = kPropCostly | kPropIndexed;
      if (info->name.find('.') == info->name.rfind('.')) flags |= kPropTopLevel;
      info->options = field.type == plugin::kFtMultipleChoice ? ChoicesOf(field.units) : nullptr;
      if (info->options) flags |= kPropEnumerated;
      if (field.type == plugin::kFtBoolean) {
        static const auto kYesNo = std::make_shared<const OptionList>(
            OptionList{OptionList::Kind::kDiscrete, false, {{"No", 0, 0, ""}, {"Yes", -1, 0, ""}}});
        info->options = kYesNo;
      }
      info->type_word = static_cast<uint32_t>(flags) << 16 | PluginFieldTag(field.type);
      info->label = field.name;
      info->description = field.units;
      info->provider = number;
      rows.push_back(std::move(info));
    }
  }
  for (std::unique_ptr<PropertyInfo>& row : LegacyColumnHandlerRows(number + 1)) rows.push_back(std::move(row));
  return rows;
}

std::vector<std::unique_ptr<PropertyInfo>> LegacyColumnHandlerRows(uint32_t /*first_provider*/) {
  // The old shell's column handlers are in-process objects of a platform this build does not
  // run on; there are none to ask here.
  return {};
}

}  // namespace trovix::props
