#include "props/plugins/plugin_values.h"

#include <cmath>

#include "base/utf.h"

namespace trovix::props {

VarType PluginFieldTag(int32_t field_type) {
  switch (field_type) {
    case plugin::kFtNumeric32: return VT_I4;
    case plugin::kFtNumeric64: return VT_I8;
    case plugin::kFtNumericFloating: return VT_R8;
    case plugin::kFtBoolean: return VT_BOOL;
    case plugin::kFtMultipleChoice:
    case plugin::kFtString:
    case plugin::kFtStringW: return VT_BSTR;
    case plugin::kFtDateTime: return VT_FILETIME;
    default: return VT_EMPTY;
  }
}

std::string PluginCanonicalName(std::string_view field_name, std::string_view plugin_name) {
  std::u16string name = base::Utf8ToUtf16(field_name);
  if (name.size() > plugin::kMaxFieldName) name.resize(plugin::kMaxFieldName);
  if (!name.empty() && name.size() < 85) {
    name += u'.';
    name += base::Utf8ToUtf16(plugin_name);
    if (name.size() > plugin::kMaxFieldName) name.resize(plugin::kMaxFieldName);
  }
  // A cut between the two halves of a pair would leave half a character.
  if (!name.empty() && name.back() >= 0xD800 && name.back() <= 0xDBFF) name.pop_back();
  return base::Utf16ToUtf8(name);
}

HRESULT ConvertPluginValue(const plugin::PluginValue& answer, int32_t declared_type, PropValue* value) {
  switch (answer.type) {
    case plugin::kFtNumeric32:
      *value = PropValue::Int32(static_cast<int32_t>(answer.integer));
      return S_OK;
    case plugin::kFtNumeric64:
      *value = PropValue::Int64(answer.integer);
      return S_OK;
    case plugin::kFtNumericFloating: {
      // Kept on purpose: plugins that declare a 64-bit number and answer with a floating one
      // (sizes computed in floating point) show whole numbers, not 41.00000001.
      const double d = answer.number;
      if (declared_type == plugin::kFtNumeric64 && d >= 1.0 && d < 9.2e18) {
        const double whole = std::floor(d);
        if (d - whole <= 1e-7) {
          *value = PropValue::Int64(static_cast<int64_t>(whole));
          return S_OK;
        }
      }
      *value = PropValue::Double(d);
      return S_OK;
    }
    case plugin::kFtBoolean:
      *value = PropValue::Bool(static_cast<int32_t>(answer.integer) > 0);
      return S_OK;
    case plugin::kFtDateTime:
      *value = PropValue::FileTime(answer.integer);
      return S_OK;
    case plugin::kFtMultipleChoice:
    case plugin::kFtString:
    case plugin::kFtStringW:
      if (answer.text.empty()) return S_FALSE;
      *value = PropValue::Text(answer.text);
      return S_OK;
    default:
      return E_FAIL;
  }
}

}  // namespace trovix::props
