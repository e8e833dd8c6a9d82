// The filter of Stock.FileCount, made from the setting szFileCountRule: either a complex
// expression (any text naming a property with "$", "$System.Size > 1000") or a pattern on the
// item's name as typed into a Name box ("*.txt", or several: "*.jpg *.png" counts either).
// "*" and empty text count every item without testing any.
#pragma once

#include <string>
#include <string_view>

#include "props/file_count.h"

namespace trovix::rules {

// The settings for the property layer. A text that makes no rule gives unusable settings and
// `*error` says why.
props::FileCountSettings MakeFileCountSettings(std::string_view setting, bool include_hidden,
                                               std::string* error = nullptr);

}  // namespace trovix::rules
