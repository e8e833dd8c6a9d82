// The options people bring from fd, turned into what this program already has: rule lines
// (--ext, --size, --changed-within, --changed-before) that join the user's rules with AND, and
// a type filter (--type) on the results. They sit beside -r: anything they say could be said
// with rules, they only spare the typing.
//
// Stateless apart from TypeFilter; thread-safe.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "props/shell_item.h"

namespace trovix::cli {

// --type: f file, d directory, l symbolic link, x executable file, e empty file or folder.
// Several types are alternatives; "e" or "x" together with "f" or "d" narrows them instead
// (-t f -t e: empty files), as fd has it.
class TypeFilter {
 public:
  // Adds one --type value (a letter or its word); false with a message when unknown.
  bool Add(std::string_view value, std::string* error);
  bool empty() const { return kinds_ == 0 && !empty_ && !executable_; }
  // Whether a result is of an asked type. Asks the item's status only for x and e.
  bool Accepts(props::ShellItem& item) const;
  // "file or link, empty", for the rule listing.
  std::string Describe() const;

 private:
  enum : uint8_t { kFile = 1, kDirectory = 2, kLink = 4 };
  uint8_t kinds_ = 0;
  bool empty_ = false;
  bool executable_ = false;
};

// The rule line of one --ext value: a name ending in "." and the extension, ignoring case.
bool ExtensionRuleLine(std::string_view extension, std::string* line, std::string* error);

// The rule line of one --size value: "+10k" at least 10,000 bytes, "-1mi" at most 1,048,576,
// "500" exactly 500 bytes; units b, k, m, g, t (powers of 1000) and ki, mi, gi, ti (of 1024).
bool SizeRuleLine(std::string_view value, std::string* line, std::string* error);

// The rule line of --changed-within (`within`) or --changed-before: a duration back from `now`
// ("7d", "2weeks", "1h 30min") or a local date ("2026-05-01", "2026-05-01 10:00:00").
bool ChangedRuleLine(std::string_view value, bool within, std::time_t now, std::string* line,
                     std::string* error);

}  // namespace trovix::cli
