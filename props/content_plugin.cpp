#include "props/content_plugin.h"

#include <array>
#include <utility>

#include "base/crc32.h"
#include "base/utf.h"

namespace trovix::props {

std::string PluginName(std::string_view library_path) {
  size_t slash = library_path.rfind('/');
  std::string_view file = slash == std::string_view::npos ? library_path : library_path.substr(slash + 1);
  return std::string(file.substr(0, file.find('.')));
}

Guid PluginFormatId(std::string_view plugin_name) {
  std::string utf16;
  base::AppendUtf16LE(utf16, base::Utf8ToUtf16(plugin_name));
  uint32_t crc = base::Crc32(utf16.data(), utf16.size());
  std::array<uint8_t, 16> bytes{'2', 'W', 'D', 'X'};
  for (int i = 0; i < 4; ++i) bytes[4 + i] = static_cast<uint8_t>(crc >> (8 * i));
  return Guid::FromBytes(bytes.data());
}

ContentPlugin MakeContentPlugin(uint32_t index, std::string library_path, std::string detect_text) {
  ContentPlugin plugin;
  plugin.index = index;
  plugin.name = PluginName(library_path);
  plugin.format_id = PluginFormatId(plugin.name);
  plugin.library_path = std::move(library_path);
  plugin.detect_text = std::move(detect_text);
  if (!plugin.detect_text.empty()) {
    DetectError error;
    plugin.detect = DetectString::Compile(plugin.detect_text, &error);
    if (!plugin.detect)
      plugin.detect_error = error.message + " (at character " + std::to_string(error.position + 1) + ")";
  }
  return plugin;
}

}  // namespace trovix::props
