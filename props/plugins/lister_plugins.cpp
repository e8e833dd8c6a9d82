#include "props/plugins/lister_plugins.h"

#include <thread>

namespace trovix::props {
namespace {

PluginHostOptions ListerOptions(PluginHostOptions options) {
  options.lister = true;
  options.helpers = 1;
  return options;
}

std::mutex installed_mutex;
std::shared_ptr<ListerSet>& TheInstalled() {
  static auto* installed = new std::shared_ptr<ListerSet>;
  return *installed;
}

}  // namespace

ListerSet::ListerSet(std::vector<ContentPlugin> listers, PluginHostOptions options)
    : plugins_(std::move(listers)), host_(ListerOptions(std::move(options))) {}

std::optional<DetectString> ListerSet::DetectOf(const ContentPlugin& plugin, bool ask,
                                                bool* unknown) {
  *unknown = false;
  if (plugin.detect) return plugin.detect;
  // A configured text that does not compile filters nothing, like a content plugin's.
  if (!plugin.detect_text.empty()) return std::nullopt;
  {
    std::lock_guard lock(mutex_);
    if (auto it = own_detect_.find(plugin.library_path); it != own_detect_.end()) return it->second;
  }
  if (!ask) {
    *unknown = true;
    return std::nullopt;
  }
  std::string own;
  std::optional<DetectString> compiled;
  if (host_.ListerDetect(plugin.library_path, &own).status == S_OK && !own.empty())
    compiled = DetectString::Compile(own);
  std::lock_guard lock(mutex_);
  own_detect_[plugin.library_path] = compiled;
  return compiled;
}

bool ListerSet::MayShow(const DetectItem& item) {
  for (const ContentPlugin& plugin : plugins_) {
    if (host_.Disabled(plugin.library_path)) continue;
    bool unknown = false;
    const std::optional<DetectString> detect = DetectOf(plugin, false, &unknown);
    if (unknown || !detect || detect->Matches(item)) return true;
  }
  return false;
}

ListerShown ListerSet::Show(const std::string& path, const DetectItem& item, uint64_t parent) {
  ClosePending();
  ListerShown shown;
  for (const ContentPlugin& plugin : plugins_) {
    if (host_.Disabled(plugin.library_path)) continue;
    bool unknown = false;
    const std::optional<DetectString> detect = DetectOf(plugin, true, &unknown);
    if (detect && !detect->Matches(item)) continue;
    uint64_t window = 0;
    const PluginOutcome outcome = host_.ListerShow(plugin.library_path, path, parent, &window);
    if (outcome.status == S_OK && window != 0) {
      shown.window = window;
      shown.library = plugin.library_path;
      shown.message.clear();
      return shown;
    }
    shown.message = outcome.message;
  }
  return shown;
}

void ListerSet::ClosePending() {
  std::lock_guard closing(closing_);
  std::vector<uint64_t> windows;
  {
    std::lock_guard lock(mutex_);
    windows.swap(pending_close_);
  }
  for (uint64_t window : windows) host_.ListerClose(window);
}

void ListerSet::CloseLater(uint64_t window) {
  if (window == 0) return;
  {
    std::lock_guard lock(mutex_);
    pending_close_.push_back(window);
  }
  std::shared_ptr<ListerSet> self = weak_from_this().lock();
  if (!self) {
    ClosePending();  // a set not owned by a shared pointer (the tests' own) closes at once
    return;
  }
  std::thread([self] { self->ClosePending(); }).detach();
}

void InstallListerPlugins(std::vector<ContentPlugin> listers, PluginHostOptions options) {
  std::shared_ptr<ListerSet> set;
  if (!listers.empty()) set = std::make_shared<ListerSet>(std::move(listers), std::move(options));
  std::lock_guard lock(installed_mutex);
  TheInstalled() = std::move(set);
}

std::shared_ptr<ListerSet> InstalledListers() {
  std::lock_guard lock(installed_mutex);
  return TheInstalled();
}

}  // namespace trovix::props
