// Small facts about file names as byte strings.
#pragma once

#include <string>
#include <string_view>

#include "base/ascii.h"

namespace trovix {

// The extension of the last name in `path`, in ASCII small letters and without its dot: "pdf"
// for "/x/Report.PDF". Empty when the name has no dot, or only a leading one (".profile").
inline std::string LowerExtension(std::string_view path) {
  const size_t slash = path.find_last_of('/');
  const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  const size_t dot = name.find_last_of('.');
  if (dot == std::string_view::npos || dot == 0) return {};
  return AsciiLower(name.substr(dot + 1));
}

}  // namespace trovix
