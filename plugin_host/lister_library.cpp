#include "plugin_host/lister_library.h"

#include <cstring>
#include <vector>

#include "base/utf.h"
#include "platform/plugin_protocol.h"
#include "plugin_host/plugin_library.h"

#include <dlfcn.h>

namespace trovix::plugin {
namespace {

// The interface's window handle: pointer-sized; here an X11 window id.
using Handle = uintptr_t;

using ListLoadFn = Handle (*)(Handle, char*, int32_t);
using ListLoadWFn = Handle (*)(Handle, WideChar*, int32_t);
using ListLoadNextFn = int32_t (*)(Handle, Handle, char*, int32_t);
using ListLoadNextWFn = int32_t (*)(Handle, Handle, WideChar*, int32_t);
using ListCloseWindowFn = void (*)(Handle);
using ListGetDetectStringFn = void (*)(char*, int32_t);
using ListSetDefaultParamsFn = void (*)(DefaultParams*);

}  // namespace

// Every published entry point is looked up. The notification call (tree-view and scroll-bar
// messages of the Windows host) and the preview bitmaps (thumbnails) have no caller in the
// quick view; they are kept so that the record says what the library offers.
struct ListerLibrary::Api {
  ListLoadFn load = nullptr;
  ListLoadWFn load_w = nullptr;
  ListLoadNextFn load_next = nullptr;
  ListLoadNextWFn load_next_w = nullptr;
  ListCloseWindowFn close_window = nullptr;
  ListGetDetectStringFn get_detect_string = nullptr;
  ListSetDefaultParamsFn set_default_params = nullptr;
};

std::unique_ptr<ListerLibrary> ListerLibrary::Load(const std::string& path, const std::string& ini,
                                                   std::string* error) {
  std::string loaded;
  void* handle = OpenLibrary(path, "wlx64", &loaded, error);
  if (!handle) return nullptr;
  std::unique_ptr<ListerLibrary> library(new ListerLibrary);
  library->handle_ = handle;
  library->loaded_path_ = loaded;
  library->api_ = std::make_unique<Api>();
  Api& api = *library->api_;
  api.load = Lookup<ListLoadFn>(handle, "ListLoad");
  api.load_w = Lookup<ListLoadWFn>(handle, "ListLoadW");
  api.load_next = Lookup<ListLoadNextFn>(handle, "ListLoadNext");
  api.load_next_w = Lookup<ListLoadNextWFn>(handle, "ListLoadNextW");
  api.close_window = Lookup<ListCloseWindowFn>(handle, "ListCloseWindow");
  api.get_detect_string = Lookup<ListGetDetectStringFn>(handle, "ListGetDetectString");
  api.set_default_params = Lookup<ListSetDefaultParamsFn>(handle, "ListSetDefaultParams");
  if (!api.load && !api.load_w) {
    *error = "the library has neither ListLoad nor ListLoadW";
    return nullptr;
  }
  if (api.set_default_params) {
    DefaultParams params;
    FillDefaultParams(&params, ini);
    api.set_default_params(&params);
  }
  return library;
}

ListerLibrary::~ListerLibrary() = default;  // the library stays mapped, as a content plugin's

std::string ListerLibrary::DetectString() {
  if (!api_->get_detect_string) return {};
  // Past the announced length: room for a careless plugin's terminator and more.
  std::vector<char> text(kMaxEndText + 4096, 0);
  api_->get_detect_string(text.data(), static_cast<int32_t>(kMaxEndText) - 1);
  return CodePageToUtf8(text.data(), strnlen(text.data(), kMaxEndText - 1));
}

uint64_t ListerLibrary::Open(uint64_t parent, const std::string& path, int32_t flags) {
  Handle window = 0;
  // A name that is not UTF-8 has no wide form: it goes through the ANSI call as the bytes the
  // file system holds, when the plugin has that call.
  if (api_->load_w && (!api_->load || base::IsValidUtf8(path))) {
    std::u16string name = base::Utf8ToUtf16(path);
    window = api_->load_w(static_cast<Handle>(parent), name.data(), flags);
  } else if (api_->load) {
    std::string name = path;
    window = api_->load(static_cast<Handle>(parent), name.data(), flags);
  }
  return window;
}

bool ListerLibrary::OpenNext(uint64_t parent, uint64_t window, const std::string& path,
                             int32_t flags) {
  int32_t result = kListerError;
  if (api_->load_next_w && (!api_->load_next || base::IsValidUtf8(path))) {
    std::u16string name = base::Utf8ToUtf16(path);
    result = api_->load_next_w(static_cast<Handle>(parent), static_cast<Handle>(window),
                               name.data(), flags);
  } else if (api_->load_next) {
    std::string name = path;
    result = api_->load_next(static_cast<Handle>(parent), static_cast<Handle>(window), name.data(),
                             flags);
  }
  return result == kListerOk;
}

void ListerLibrary::Close(uint64_t window) {
  if (api_->close_window) api_->close_window(static_cast<Handle>(window));
}

}  // namespace trovix::plugin
