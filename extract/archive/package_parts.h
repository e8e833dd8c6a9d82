// Helpers shared by the package readers: numbered parts in number order ("slide2.xml" before
// "slide10.xml") and the folder of a part.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace trovix::extract {

// Names from `names` of the form <prefix><digits><suffix>, ordered by the number.
std::vector<std::string> NumberedParts(const std::vector<std::string>& names, std::string_view prefix,
                                       std::string_view suffix);

// "word/document.xml" -> "word/"; "a.xml" -> "".
std::string PartFolder(std::string_view name);

}  // namespace trovix::extract
