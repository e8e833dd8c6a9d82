// ListerLibrary: one lister plugin library loaded into the plugin host in lister mode, with the
// entry points of the published lister-plugin interface looked up by name (the ANSI ones and
// the wide ones). Like a content plugin it runs only inside trovix-plugin-host, after the
// sandbox is entered; unlike one it draws: it makes its window as a child of the window it is
// given, through a connection of its own to the X server.
//
// On this platform a window handle of the interface is an X11 window id (held in a pointer-
// sized integer, as the interface's handle is pointer-sized). The host has no event loop of
// any toolkit: a lister keeps its window drawn through its own connection (a background the
// server paints, or a thread of its own), and between two requests the host only waits on its
// pipe.
//
// Thread-safety: calls come from the host's one serving thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace trovix::plugin {

// ShowFlags of ListLoad, as the interface numbers them.
enum ListerShowFlags : int32_t {
  kLcpWrapText = 1,
  kLcpFitToWindow = 2,
  kLcpAnsi = 4,
  kLcpAscii = 8,
  kLcpVariable = 12,
  kLcpForceShow = 16,
  kLcpFitLargerOnly = 32,
  kLcpCenter = 64,
};
// ListLoadNext's answers.
inline constexpr int32_t kListerOk = 0;
inline constexpr int32_t kListerError = 1;

class ListerLibrary {
 public:
  // Loads `path`; when that fails, the same name with the extension "wlx64". A library with
  // neither ListLoad nor ListLoadW is refused: it can show nothing. ListSetDefaultParams, when
  // present, is called once with `ini`.
  static std::unique_ptr<ListerLibrary> Load(const std::string& path, const std::string& ini,
                                             std::string* error);
  ~ListerLibrary();
  ListerLibrary(const ListerLibrary&) = delete;
  ListerLibrary& operator=(const ListerLibrary&) = delete;

  // The plugin's own detect string; empty when it has none.
  std::string DetectString();
  // The lister's window showing `path` as a child of `parent`; 0 when it refused the file.
  // Through the wide entry point when the plugin has one and the name is UTF-8.
  uint64_t Open(uint64_t parent, const std::string& path, int32_t flags);
  // Shows `path` in the lister's window `window` (ListLoadNext); false when the plugin has no
  // such call or refused, and the window must then be closed and made anew.
  bool OpenNext(uint64_t parent, uint64_t window, const std::string& path, int32_t flags);
  void Close(uint64_t window);

  const std::string& loaded_path() const { return loaded_path_; }

 private:
  ListerLibrary() = default;

  struct Api;
  std::unique_ptr<Api> api_;
  void* handle_ = nullptr;
  std::string loaded_path_;
};

}  // namespace trovix::plugin
