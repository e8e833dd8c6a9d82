// PluginHostClient: the search process's side of content plugins. Plugin libraries are never
// loaded here: every call goes to trovix-plugin-host, a sandboxed helper of the process pool
// (platform/process_pool.h), over the plugin protocol (platform/plugin_protocol.h).
//
// A plugin that crashes or hangs costs the value it was asked for. A value has its time
// (`timeout_ms`): the host first asks the plugin to stop (ContentStopGetValue) at that time,
// and the pool kills the host a little later should the plugin not stop; the next request gets
// a new host. A plugin that crashed, or had to be killed, three times in one run of the program
// is disabled: it gives no more values, and the user is told once, through the notice handler
// (standard error unless a front end sets its own).
//
// Field lists are asked for once per plugin library and kept for the life of the client.
//
// A client made with `lister` set runs lister plugins for the desktop's quick view instead: its
// hosts start in lister mode (trovix-plugin-host --lister), with the display's environment
// (DISPLAY, XAUTHORITY, HOME) so that a lister can reach the X server, and one host at most,
// since a lister's window lives in the host that made it. Its detect strings are asked once
// per library; showing and closing follow the same rules of time and failure (a lister that
// crashes or hangs while it loads costs that preview, three times disables it).
//
// The host is found as TROVIX_PLUGIN_HOST (a path) when set, else as "trovix-plugin-host"
// beside the running program. No host is started before the first request, so a program
// without plugins never starts one.
//
// Thread-safety: every call may come from any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/status.h"
#include "platform/plugin_protocol.h"
#include "platform/process_pool.h"
#include "props/prop_value.h"

namespace trovix::props {

struct PluginHostOptions {
  std::string program;     // empty: found as described above
  std::string ini;         // the plugin settings file handed to every plugin
  int helpers = 1;         // hosts at most
  int64_t timeout_ms = 5000;  // per value
  uint64_t memory_limit = 1ull << 30;
  bool lister = false;  // lister plugins (see above); `helpers` is then 1 whatever is asked
};

// A plugin that failed this many times in one run is disabled.
inline constexpr int kPluginFailuresToDisable = 3;

// What a plugin offers, as the host listed it.
struct PluginFieldList {
  bool loaded = false;
  std::string error;                        // why it could not be loaded
  std::vector<plugin::PluginField> fields;  // usable fields, in index order
  uint32_t full_text = 0;                   // the full-text field's index plus one, 0 when none
  std::string detect;                       // the plugin's own detect string
};

// How one call ended.
struct PluginOutcome {
  HRESULT status = E_FAIL;  // S_OK a value (or text), S_FALSE none, E_FAIL a failure
  std::string message;      // why there is none, for people ("" when the plugin just had none)
  bool host_failed = false; // the host crashed, hung or broke the protocol on this call
};

class PluginHostClient {
 public:
  explicit PluginHostClient(PluginHostOptions options);
  static std::string DefaultProgram();

  // The fields of the plugin library `library` (asked once, then kept).
  const PluginFieldList& Fields(const std::string& library);
  // The value of field `field` (declared as `declared_type`) for the file `path`.
  PluginOutcome Value(const std::string& library, int32_t field, int32_t declared_type, const std::string& path,
                      PropValue* value);
  // The full text of field `field` for `path`, piece by piece (UTF-8) to `on_piece`, which may
  // stop the reading by returning false; at most `max_bytes`.
  PluginOutcome Text(const std::string& library, int32_t field, const std::string& path, uint64_t max_bytes,
                     const std::function<bool(const std::string&)>& on_piece);

  // Lister plugins (a client made with `lister` set). The plugin's own detect string, asked
  // once: S_OK with the text (empty when it has none), E_FAIL when the library cannot be loaded.
  PluginOutcome ListerDetect(const std::string& library, std::string* detect);
  // `path` shown by the lister in a window of its own, a child of `parent` (an X11 window id);
  // S_OK with the window, S_FALSE when the lister refused the file. The window the host showed
  // under `parent` before is reused or closed.
  PluginOutcome ListerShow(const std::string& library, const std::string& path, uint64_t parent,
                           uint64_t* window);
  // Closes a lister window; a window already gone is no fault.
  void ListerClose(uint64_t window);

  bool Disabled(const std::string& library) const;
  // Where "plugin ... was disabled" goes; standard error until set.
  void SetNoticeHandler(std::function<void(const std::string&)> handler);
  const PluginHostOptions& options() const { return options_; }
  uint64_t host_starts() const;

 private:
  using AnswerFn = std::function<void(const plugin::PluginAnswer&, const platform::Frame&)>;
  // One exchange; `timeout_ms` for the whole of it. Counts a host failure against `library`.
  PluginOutcome Ask(const plugin::PluginRequest& request, int64_t timeout_ms, const AnswerFn& on_answer,
                    const std::function<bool(const platform::Frame&)>& keep_going = nullptr,
                    plugin::PluginEnd* end_out = nullptr);
  void CountFailure(const std::string& library);
  platform::ProcessPool& Pool();

  PluginHostOptions options_;
  mutable std::mutex mutex_;
  std::unique_ptr<platform::ProcessPool> pool_;  // made on first use
  std::map<std::string, std::unique_ptr<PluginFieldList>> fields_;
  std::map<std::string, int> failures_;
  std::map<std::string, std::string> lister_detect_;  // library -> its own detect string
  std::function<void(const std::string&)> notice_;
};

// The message told once when a plugin is disabled.
std::string PluginDisabledMessage(const std::string& library, bool lister = false);

}  // namespace trovix::props
