// The record of one configured content plugin, as the configuration names it: before its
// library is loaded, a plugin is its number, its library path and its detect string. Its
// fields live under a format identifier made from its name, so that a plugin keeps its
// property keys (and saved rules and columns keep working) wherever its library lies.
//
// Plain data; building a record touches no file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "props/detect_string.h"
#include "props/property_key.h"

namespace trovix::props {

struct ContentPlugin {
  uint32_t index = 0;             // its number in the configuration
  std::string library_path;       // UTF-8
  std::string detect_text;        // empty when the plugin has none
  std::string name;               // the library's file name up to its first period
  Guid format_id;
  // The compiled detect string; nothing when there is none or when it does not compile (a
  // plugin whose filter cannot be read is offered every file: it still answers "no value"
  // where it has nothing to say).
  std::optional<DetectString> detect;
  std::string detect_error;       // why `detect_text` did not compile, with its position
};

// The file name of `library_path` (after the last '/') up to its first period.
std::string PluginName(std::string_view library_path);

// "2WDX" as bytes, then the CRC-32 of the name's UTF-16 (little-endian, no terminator) text
// as it lies in memory, then eight zero bytes.
Guid PluginFormatId(std::string_view plugin_name);

ContentPlugin MakeContentPlugin(uint32_t index, std::string library_path, std::string detect_text);

}  // namespace trovix::props
