// Text between the library and Qt: the library keeps UTF-8 in std::string (and the string
// table's texts by id), the widgets take QString.
#pragma once

#include <QString>

#include <cstdint>
#include <string_view>

#include "base/string_table.h"

namespace trovix::views {

inline QString FromUtf8(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

// The text of a string id.
inline QString StringText(uint32_t id) { return FromUtf8(base::LoadString(id)); }

}  // namespace trovix::views
