// PluginLibrary: one content plugin library loaded into the plugin host, with the entry points
// of the published content-plugin interface looked up by name (the ANSI ones and the wide
// ones). It runs only inside trovix-plugin-host, after the sandbox is entered: the library's
// code is as untrusted as a document.
//
// The calls keep to the interface's contract: field names come through a 2046-byte maxlen,
// values through a 2,048-byte buffer. The buffer handed to the plugin is larger than the size
// announced, and the bytes past the announced end are checked after each call: a plugin that
// wrote there has its value refused (it may have written further; that is what the process
// boundary is for).
//
// Thread-safety: calls come from the host's one serving thread; Stop may come from the
// watchdog thread while a value call runs, which is what the interface's stop call is for.
#pragma once

#include <dlfcn.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/plugin_protocol.h"

namespace trovix::plugin {

// The interfaces' structure for ContentSetDefaultParams and ListSetDefaultParams: its size,
// the interface version (low, then high part) and the settings file's name in a buffer of the
// platform's old path limit.
struct DefaultParams {
  int32_t size;
  uint32_t version_low;
  uint32_t version_high;
  char ini_name[260];
};
// The structure filled for `ini` (version 2.0; no name when it does not fit).
void FillDefaultParams(DefaultParams* params, const std::string& ini);

// The wide character of the interfaces is a 16-bit UTF-16 unit on every platform they exist on.
using WideChar = char16_t;

// `path` with its extension (after the last period of the file name) replaced by
// `extension`, or `extension` appended when the name has none: the name 64-bit builds of a
// plugin carry ("wdx64", "wlx64").
std::string FallbackName(const std::string& path, const char* extension);
// dlopen of `path`, else of its FallbackName; the path that loaded goes to *loaded, the first
// failure's reason to *error. nullptr when neither loads.
void* OpenLibrary(const std::string& path, const char* fallback_extension, std::string* loaded,
                  std::string* error);
// An entry point of a loaded library as the type we declared for it; nullptr when absent.
template <typename Fn>
Fn Lookup(void* handle, const char* name) {
  return reinterpret_cast<Fn>(dlsym(handle, name));
}

struct FieldList {
  std::vector<PluginField> fields;  // usable fields, in index order
  uint32_t full_text = 0;           // the full-text field's index plus one, 0 when none
  int32_t full_text_type = 0;
};

enum class CallResult {
  kOk,       // the plugin answered; see the value
  kOverrun,  // it wrote past the announced buffer: the answer is refused
};

class PluginLibrary {
 public:
  // Loads `path`; when that fails, the same name with the extension "wdx64" (the name 64-bit
  // builds of a plugin carry). A library without ContentGetSupportedField is refused: it can
  // offer no field. ContentSetDefaultParams, when present, is called once with `ini`.
  static std::unique_ptr<PluginLibrary> Load(const std::string& path, const std::string& ini, std::string* error);
  ~PluginLibrary();
  PluginLibrary(const PluginLibrary&) = delete;
  PluginLibrary& operator=(const PluginLibrary&) = delete;

  // The fields, enumerated as the interface defines: up to the first result of 0 or below,
  // or the first full-text field, which ends the list; dates and times alone are skipped.
  FieldList Fields();
  // The plugin's own detect string; empty when it has none.
  std::string DetectString();

  // One field's value for `path` (unit 0, flags 0), through the wide entry point when the
  // plugin has one.
  CallResult Value(const std::string& path, int32_t field, PluginValue* value);
  // The full text of `field` for `path`, piece by piece, as the interface hands it out: the
  // unit index is the offset (in characters) of the text already read, a full-text result
  // brings the next piece, any other result ends it. `on_piece` returns false to stop, and the
  // plugin is then told so (unit index -1). True when the text ended or was stopped cleanly.
  CallResult FullText(const std::string& path, int32_t field, const std::function<bool(std::string&&)>& on_piece);

  // Asks the plugin to give up the value it is computing for `path` (from another thread).
  void Stop(const std::string& path);

  const std::string& loaded_path() const { return loaded_path_; }

 private:
  PluginLibrary() = default;
  // One ContentGetValue(W) call into the guarded buffer.
  CallResult Call(const std::string& path, const std::u16string& wide_path, int32_t field, int32_t unit,
                  int32_t* result);

  struct Api;
  std::unique_ptr<Api> api_;
  void* handle_ = nullptr;
  std::string loaded_path_;
  std::vector<unsigned char> buffer_;
};

// Text of the system code page (the locale's character set) as UTF-8.
std::string CodePageToUtf8(const char* text, size_t length);

}  // namespace trovix::plugin
