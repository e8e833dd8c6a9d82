// The rule lines of trovix-cli (-r and --rules-file):
//   [CONTEXT] [">"...] PROPERTY ":" VALUE
// CONTEXT is "and", "or", "and not" or "or not" (any case; "and" when absent); each leading
// ">" raises the indent one level; PROPERTY is what the catalogue resolves (canonical name,
// label, or name without its namespace); VALUE is taken as typed, after the first ":" that
// follows the property (so a value may hold colons, as times do).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace trovix::cli {

struct RuleLine {
  int32_t context = 0;  // 0 AND, 1 OR, 2 AND NOT, 3 OR NOT
  int32_t indent = 0;
  std::string property;
  std::string value;
};

// False with a message naming what is wrong for a line that does not have the form.
bool ParseRuleLine(std::string_view text, RuleLine* out, std::string* error);

}  // namespace trovix::cli
