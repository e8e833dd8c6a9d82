#include "plugin_host/plugin_library.h"

#include <dlfcn.h>
#include <langinfo.h>
#include <unicode/ucnv.h>

#include <cstring>

#include "base/utf.h"

namespace trovix::plugin {
namespace {

using GetSupportedFieldFn = int32_t (*)(int32_t, char*, char*, int32_t);
using GetValueFn = int32_t (*)(char*, int32_t, int32_t, void*, int32_t, int32_t);
using GetValueWFn = int32_t (*)(WideChar*, int32_t, int32_t, void*, int32_t, int32_t);
using SetDefaultParamsFn = void (*)(DefaultParams*);
using GetDetectStringFn = void (*)(char*, int32_t);
using StopGetValueFn = void (*)(char*);
using StopGetValueWFn = void (*)(WideChar*);
using PluginUnloadingFn = void (*)();

// Past the announced buffer: room for what a careless plugin writes beyond it, checked after
// every call.
constexpr size_t kGuardBytes = 4096;
constexpr unsigned char kGuard = 0xA5;
// Field numbers asked for at most.
constexpr int32_t kMaxFieldIndex = 65536;

std::u16string CutTo(std::u16string text, size_t units) {
  if (text.size() <= units) return text;
  text.resize(units);
  if (!text.empty() && text.back() >= 0xD800 && text.back() <= 0xDBFF) text.pop_back();
  return text;
}

size_t WideLength(const WideChar* text, size_t max_units) {
  size_t n = 0;
  while (n < max_units && text[n] != 0) ++n;
  return n;
}

}  // namespace

std::string FallbackName(const std::string& path, const char* extension) {
  const size_t slash = path.find_last_of('/');
  const size_t dot = path.find_last_of('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
    return path + "." + extension;
  return path.substr(0, dot) + "." + extension;
}

void* OpenLibrary(const std::string& path, const char* fallback_extension, std::string* loaded,
                  std::string* error) {
  *loaded = path;
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle) return handle;
  *error = dlerror();
  *loaded = FallbackName(path, fallback_extension);
  if (*loaded != path) handle = dlopen(loaded->c_str(), RTLD_NOW | RTLD_LOCAL);
  return handle;
}

void FillDefaultParams(DefaultParams* params, const std::string& ini) {
  *params = DefaultParams{};
  params->size = sizeof *params;
  params->version_low = 0;
  params->version_high = 2;
  // A longer name cannot be given through the interface's buffer: the plugin gets none.
  if (ini.size() < sizeof params->ini_name) memcpy(params->ini_name, ini.data(), ini.size());
}

struct PluginLibrary::Api {
  GetSupportedFieldFn get_supported_field = nullptr;
  GetValueFn get_value = nullptr;
  GetValueWFn get_value_w = nullptr;
  SetDefaultParamsFn set_default_params = nullptr;
  GetDetectStringFn get_detect_string = nullptr;
  StopGetValueFn stop_get_value = nullptr;
  StopGetValueWFn stop_get_value_w = nullptr;
  PluginUnloadingFn plugin_unloading = nullptr;
};

std::string CodePageToUtf8(const char* text, size_t length) {
  // Linux's "system code page" is the locale's character set; nearly always UTF-8, and then
  // the bytes only need to be made valid.
  static const bool utf8 = strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
  const std::string_view bytes(text, length);
  if (utf8) return base::ToDisplayUtf8(bytes);
  UErrorCode status = U_ZERO_ERROR;
  UConverter* converter = ucnv_open(nl_langinfo(CODESET), &status);
  if (U_FAILURE(status)) return base::ToDisplayUtf8(bytes);
  std::u16string wide(length * 2 + 1, u'\0');
  const int32_t n = ucnv_toUChars(converter, reinterpret_cast<UChar*>(wide.data()), static_cast<int32_t>(wide.size()),
                                  text, static_cast<int32_t>(length), &status);
  ucnv_close(converter);
  if (U_FAILURE(status)) return base::ToDisplayUtf8(bytes);
  wide.resize(static_cast<size_t>(n));
  return base::Utf16ToUtf8(wide);
}

std::unique_ptr<PluginLibrary> PluginLibrary::Load(const std::string& path, const std::string& ini,
                                                   std::string* error) {
  std::string loaded;
  void* handle = OpenLibrary(path, "wdx64", &loaded, error);
  if (!handle) return nullptr;
  std::unique_ptr<PluginLibrary> library(new PluginLibrary);
  library->handle_ = handle;
  library->loaded_path_ = loaded;
  library->api_ = std::make_unique<Api>();
  Api& api = *library->api_;
  api.get_supported_field = Lookup<GetSupportedFieldFn>(handle, "ContentGetSupportedField");
  api.get_value = Lookup<GetValueFn>(handle, "ContentGetValue");
  api.get_value_w = Lookup<GetValueWFn>(handle, "ContentGetValueW");
  api.set_default_params = Lookup<SetDefaultParamsFn>(handle, "ContentSetDefaultParams");
  api.get_detect_string = Lookup<GetDetectStringFn>(handle, "ContentGetDetectString");
  api.stop_get_value = Lookup<StopGetValueFn>(handle, "ContentStopGetValue");
  api.stop_get_value_w = Lookup<StopGetValueWFn>(handle, "ContentStopGetValueW");
  api.plugin_unloading = Lookup<PluginUnloadingFn>(handle, "ContentPluginUnloading");
  if (!api.get_supported_field) {
    *error = "the library has no ContentGetSupportedField";
    return nullptr;
  }
  if (api.set_default_params) {
    DefaultParams params;
    FillDefaultParams(&params, ini);
    api.set_default_params(&params);
  }
  library->buffer_.resize(kValueBufferBytes + kGuardBytes);
  return library;
}

PluginLibrary::~PluginLibrary() {
  if (api_ && api_->plugin_unloading) api_->plugin_unloading();
  // The library stays mapped: a plugin may have left threads or handlers behind, and the host
  // ends soon enough.
}

FieldList PluginLibrary::Fields() {
  FieldList list;
  // One byte more than announced, so that a name of exactly maxlen bytes still ends in a zero.
  std::vector<char> name(kMaxNameLength + 1 + kGuardBytes);
  std::vector<char> units(kMaxNameLength + 1 + kGuardBytes);
  // Bounded twice: a plugin that keeps offering fields, or keeps offering types that are
  // skipped, must not keep the host asking for ever.
  for (int32_t index = 0; list.fields.size() < kMaxFields && index < kMaxFieldIndex; ++index) {
    std::fill(name.begin(), name.end(), 0);
    std::fill(units.begin(), units.end(), 0);
    const int32_t type = api_->get_supported_field(index, name.data(), units.data(), kMaxNameLength);
    if (type <= kFtNoMoreFields) break;
    if (type == kFtFullText || type == kFtFullTextW) {
      // The full-text field is the last one this system reads from a plugin.
      list.full_text = static_cast<uint32_t>(index) + 1;
      list.full_text_type = type;
      break;
    }
    switch (type) {
      case kFtNumeric32: case kFtNumeric64: case kFtNumericFloating: case kFtBoolean:
      case kFtMultipleChoice: case kFtString: case kFtDateTime: case kFtStringW:
        break;
      default:
        continue;  // dates and times alone, and types this system does not know
    }
    PluginField field;
    field.index = index;
    field.type = type;
    const std::u16string wide =
        CutTo(base::Utf8ToUtf16(CodePageToUtf8(name.data(), strnlen(name.data(), kMaxNameLength))), kMaxFieldName);
    field.name = base::Utf16ToUtf8(wide);
    field.units = CodePageToUtf8(units.data(), strnlen(units.data(), kMaxNameLength));
    list.fields.push_back(std::move(field));
  }
  return list;
}

std::string PluginLibrary::DetectString() {
  if (!api_->get_detect_string) return {};
  std::vector<char> text(kMaxEndText + kGuardBytes, 0);
  api_->get_detect_string(text.data(), static_cast<int32_t>(kMaxEndText) - 1);
  return CodePageToUtf8(text.data(), strnlen(text.data(), kMaxEndText - 1));
}

CallResult PluginLibrary::Call(const std::string& path, const std::u16string& wide_path, int32_t field,
                               int32_t unit, int32_t* result) {
  std::fill(buffer_.begin(), buffer_.begin() + kValueBufferBytes, 0);
  std::fill(buffer_.begin() + kValueBufferBytes, buffer_.end(), kGuard);
  // A name that is not UTF-8 has no wide form: it goes through the ANSI call as the bytes the
  // file system holds, when the plugin has that call.
  if (api_->get_value_w && (!api_->get_value || base::IsValidUtf8(path))) {
    std::u16string name = wide_path;
    *result = api_->get_value_w(name.data(), field, unit, buffer_.data(), kValueBufferBytes, 0);
  } else if (api_->get_value) {
    std::string name = path;
    *result = api_->get_value(name.data(), field, unit, buffer_.data(), kValueBufferBytes, 0);
  } else {
    *result = kFtNoSuchField;
  }
  for (size_t i = kValueBufferBytes; i < buffer_.size(); ++i)
    if (buffer_[i] != kGuard) return CallResult::kOverrun;
  return CallResult::kOk;
}

CallResult PluginLibrary::Value(const std::string& path, int32_t field, PluginValue* value) {
  int32_t result = 0;
  if (Call(path, base::Utf8ToUtf16(path), field, 0, &result) == CallResult::kOverrun) return CallResult::kOverrun;
  *value = PluginValue{};
  value->type = result;
  const unsigned char* data = buffer_.data();
  switch (result) {
    case kFtNumeric32:
    case kFtBoolean: {
      int32_t v;
      memcpy(&v, data, sizeof v);
      value->integer = v;
      break;
    }
    case kFtNumeric64:
    case kFtDateTime: {
      // FILETIME is two 32-bit halves, low first: on a little-endian machine the same bytes as
      // a 64-bit number.
      int64_t v;
      memcpy(&v, data, sizeof v);
      value->integer = v;
      break;
    }
    case kFtNumericFloating:
      memcpy(&value->number, data, sizeof value->number);
      break;
    case kFtMultipleChoice:
    case kFtString: {
      const char* text = reinterpret_cast<const char*>(data);
      value->text = CodePageToUtf8(text, strnlen(text, kValueBufferBytes));
      break;
    }
    case kFtStringW: {
      const auto* text = reinterpret_cast<const WideChar*>(data);
      value->text = base::Utf16ToUtf8(std::u16string_view(text, WideLength(text, kValueBufferBytes / 2)));
      break;
    }
    default:
      break;
  }
  return CallResult::kOk;
}

CallResult PluginLibrary::FullText(const std::string& path, int32_t field,
                                   const std::function<bool(std::string&&)>& on_piece) {
  const std::u16string wide_path = base::Utf8ToUtf16(path);
  int64_t offset = 0;
  for (;;) {
    int32_t result = 0;
    const int32_t unit = offset > INT32_MAX ? INT32_MAX : static_cast<int32_t>(offset);
    if (Call(path, wide_path, field, unit, &result) == CallResult::kOverrun) {
      Call(path, wide_path, field, -1, &result);
      return CallResult::kOverrun;
    }
    std::string piece;
    size_t characters = 0;
    if (result == kFtFullText || result == kFtString) {
      const char* text = reinterpret_cast<const char*>(buffer_.data());
      characters = strnlen(text, kValueBufferBytes);
      piece = CodePageToUtf8(text, characters);
    } else if (result == kFtFullTextW || result == kFtStringW) {
      const auto* text = reinterpret_cast<const WideChar*>(buffer_.data());
      characters = WideLength(text, kValueBufferBytes / 2);
      piece = base::Utf16ToUtf8(std::u16string_view(text, characters));
    }
    // Any other result, or a piece without text, is the end; a plugin that kept answering with
    // nothing would otherwise be asked for ever.
    if (characters == 0) return CallResult::kOk;
    offset += static_cast<int64_t>(characters);
    if (!on_piece(std::move(piece)) || offset >= INT32_MAX) {
      // The interface's way of saying "no more, free what you hold for this file".
      Call(path, wide_path, field, -1, &result);
      return CallResult::kOk;
    }
  }
}

void PluginLibrary::Stop(const std::string& path) {
  if (api_->stop_get_value_w) {
    std::u16string name = base::Utf8ToUtf16(path);
    api_->stop_get_value_w(name.data());
  } else if (api_->stop_get_value) {
    std::string name = path;
    api_->stop_get_value(name.data());
  }
}

}  // namespace trovix::plugin
