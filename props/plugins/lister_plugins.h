// Lister plugins: the configured lister plugins (section "ListerPlugins", read like the content
// plugins) as the quick view meets them. A lister shows a file in a window of its own, made as
// a child of a window of the desktop program; the plugin's library runs only in a plugin host
// in lister mode (PluginHostClient with `lister` set), never in the desktop process.
//
// The choice for a file, in configuration order: a lister that is not disabled, whose detect
// string takes the file (the configured one; when none is configured, the plugin's own from
// ListGetDetectString, asked once; one that does not compile filters nothing), and that makes
// a window for it. A lister that refuses the file, crashes or hangs passes the file on to the
// next one; after three failures in one run a lister is disabled.
//
// The front end installs the configured listers once at start-up (InstallListerPlugins); the
// quick view takes the installed set (InstalledListers). Nothing is started without listers.
//
// Thread-safety: a ListerSet may be used from any thread; Show blocks until the host answers
// (at most the lister's time), so the desktop calls it from a worker thread.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "props/content_plugin.h"
#include "props/detect_string.h"
#include "props/plugins/plugin_host_client.h"

namespace trovix::props {

struct ListerShown {
  uint64_t window = 0;  // the lister's window; 0 when no lister showed the file
  std::string library;  // the lister that made it
  std::string message;  // why none did, for people (the last lister's reason)
};

class ListerSet : public std::enable_shared_from_this<ListerSet> {
 public:
  // `options.lister` is set here whatever it was.
  ListerSet(std::vector<ContentPlugin> listers, PluginHostOptions options);

  const std::vector<ContentPlugin>& plugins() const { return plugins_; }
  PluginHostClient& host() { return host_; }

  // Whether a lister may take the item, without asking a host: true when a detect string
  // takes it or is not known yet (a plugin's own, before its library was first loaded).
  bool MayShow(const DetectItem& item);
  // Shows the file `path` (described by `item`) in the first lister that takes it, as a child
  // of `parent` (an X11 window id).
  ListerShown Show(const std::string& path, const DetectItem& item, uint64_t parent);
  // Closes a lister window (ListCloseWindow) on a thread of its own, never waiting. A Show
  // that comes later closes it first, so that a host never loads the next file into a window
  // that is about to be closed.
  void CloseLater(uint64_t window);

 private:
  // The lister's detect string: configured, else its own (asked of the host when `ask`);
  // nullopt when it filters nothing; `*unknown` when its own is not known and not asked.
  std::optional<DetectString> DetectOf(const ContentPlugin& plugin, bool ask, bool* unknown);
  // Closes the windows CloseLater was given; an exchange under way is waited for.
  void ClosePending();

  std::vector<ContentPlugin> plugins_;
  PluginHostClient host_;
  std::mutex mutex_;
  std::map<std::string, std::optional<DetectString>> own_detect_;  // by library, once asked
  std::vector<uint64_t> pending_close_;
  std::mutex closing_;  // held while the pending windows are closed
};

// Installs the configured listers (an empty list installs none).
void InstallListerPlugins(std::vector<ContentPlugin> listers, PluginHostOptions options);
// The installed set; nullptr when no lister is configured.
std::shared_ptr<ListerSet> InstalledListers();

}  // namespace trovix::props
