// "Did you mean ...": the names nearest to a mistyped one.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace trovix::cli {

// Up to three of `names` nearest to `typed` (edit distance, ignoring ASCII case), nearest
// first; none when nothing is near enough to be a likely typo.
std::vector<std::string> NearestNames(std::string_view typed, const std::vector<std::string>& names);
// "a", "a or b", "a, b or c".
std::string JoinAlternatives(const std::vector<std::string>& names);

}  // namespace trovix::cli
