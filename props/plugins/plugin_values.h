// What a content plugin's answers mean as properties: which field types become properties and
// with which value tag, a field's canonical name, and how a returned value becomes a property
// value. The plugin host (trovix-plugin-host) hands over the plugin's answer as the plugin typed
// it; these rules are applied here, in one place.
//
// Pure functions; thread-safe.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/status.h"
#include "platform/plugin_protocol.h"
#include "props/prop_value.h"

namespace trovix::props {

// The value tag a field of `field_type` gets as a property; VT_EMPTY for a type that is not a
// property (full text ends the list, dates and times alone are skipped).
VarType PluginFieldTag(int32_t field_type);

// "field.plugin": the field's name (already at most 80 UTF-16 units), and when that is at least
// one and fewer than 85 characters, a period and the plugin's name, the whole cut to 80.
std::string PluginCanonicalName(std::string_view field_name, std::string_view plugin_name);

// The property value of one answer of ContentGetValue for a field declared as
// `declared_type`. S_OK with a value; S_FALSE when the answer is no value (an empty string);
// E_FAIL for a result below 1 or a type that has no value form.
HRESULT ConvertPluginValue(const plugin::PluginValue& answer, int32_t declared_type, PropValue* value);

}  // namespace trovix::props
