// The persisted form of a rule list, as the last search ("binLastRule") and every saved
// search keep it. All integers little-endian:
//
//   u32 version (1), then one record per rule, then u32 0.
//   record: u32 size (28 + payload), i32 kind at saving time, 16-byte format identifier in
//           its in-memory byte order, u32 property id, payload (Rule::Save).
//
// Loading never trusts the bytes: a record whose size runs past the end or is below 28 ends
// the list; a record that does not fit its property (the property's type changed, a text mode
// that no longer fits, a bad payload) or that is empty is dropped without a message and the
// others still load. Indents are repaired so that no rule is more than one level deeper than
// the rule before it.
//
// Thread-safety: pure functions; the rules they make belong to the caller.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "rules/rule.h"

namespace trovix::rules {

inline constexpr uint32_t kRuleBlobVersion = 1;
inline constexpr size_t kRuleRecordHeaderSize = 28;

// The blob of `rules` (the rule list without its "Add new rule" row).
std::string Serialise(const std::vector<RulePtr>& rules);

// The rules a blob holds. Empty when the version is wrong or no rule survives: the caller
// then keeps its current rules.
std::vector<RulePtr> Deserialise(std::string_view blob);

// Lowers every indent that is more than one deeper than the rule before it (the first rule to
// 0); a negative indent becomes 0.
void RepairIndents(std::vector<RulePtr>& rules);

}  // namespace trovix::rules
