// Colours for paths as `ls` gives them: read from LS_COLORS (the type keys di, ln, or, pi,
// so, bd, cd, ex, fi and "*.suffix" patterns), or a small default set when it is not set. A
// path is painted with its folder part in the folder colour and its last component in the
// colour of the item's type, as fd paints it.
//
// Immutable after construction; thread-safe.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "props/shell_item.h"

namespace trovix::cli {

// Whether results get colours: "always", "never", or "auto" (stdout is a terminal, NO_COLOR is
// unset or empty, TERM is not "dumb").
bool UseColor(std::string_view choice, bool stdout_is_terminal);

class LsColors {
 public:
  // LS_COLORS from the environment, or the defaults when it is unset or empty.
  static LsColors FromEnvironment();
  // "di=01;34:ln=01;36:*.tar=01;31"; entries that are not understood are skipped.
  static LsColors Parse(std::string_view spec);

  // `shown` is the path as printed (already made safe for the terminal); the item gives the type.
  std::string Paint(std::string_view shown, props::ShellItem& item) const;

 private:
  std::string_view CodeFor(std::string_view name, props::ShellItem& item) const;

  std::unordered_map<std::string, std::string> types_;
  std::vector<std::pair<std::string, std::string>> suffixes_;  // in the order given
};

}  // namespace trovix::cli
