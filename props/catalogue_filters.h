// Which shell properties the filtered catalogue offers: the excluded group prefixes, the two
// lists of excluded names, the fraction halves, the three names kept whatever the lists say,
// and the type rule that keeps properties whose values a rule cannot compare out entirely.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace trovix::props {

// "System.GPS.Latitude", "System.GPS.Longitude", "System.Search.Contents".
bool IsForcedName(std::string_view name);
// A prefix matches only when the name is at least as long and agrees over the whole prefix.
bool HasExcludedPrefix(std::string_view name);
bool IsInFirstExclusionList(std::string_view name);
bool IsInSecondExclusionList(std::string_view name);
// All the name filters of the filtered mode together (forced names always pass).
bool PassesNameFilters(std::string_view name);
// The type rule: no interfaces, dispatch, empty, variant, null, nothing above 64, no arrays or
// references; vectors only of text, or for a forced name.
bool PassesTypeRule(uint32_t vartype, bool forced);

std::vector<std::string_view> ExcludedPrefixesForTesting();
std::vector<std::string_view> ExclusionListForTesting(int which);  // 1 or 2

}  // namespace trovix::props
