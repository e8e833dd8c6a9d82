// The string table: the program's own texts keyed by their string ids, so that messages and
// labels keep one source and can be translated as a whole. Read-only; thread-safe.
#pragma once

#include <cstdint>
#include <string_view>

namespace trovix::base {

// The text of a string id; empty when the id is unknown.
std::string_view LoadString(uint32_t id);

// Well-known ids used across modules.
namespace strings {
inline constexpr uint32_t kSpecifyWhatToSearch = 10027;
inline constexpr uint32_t kSupplyValidRoot = 10028;
inline constexpr uint32_t kFolderLabel = 12506;
}  // namespace strings

}  // namespace trovix::base
