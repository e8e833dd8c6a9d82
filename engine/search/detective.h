// The desktop detective: why one given file is found or not by a search. When the root of a
// search is a single file no search runs; the rule set is tested on that file and the report
// says whether it matches, the rule set written as one expression, and, rule by rule, the
// file's value of the rule's property and the rule's hit state.
//
// Runs on the caller's thread; the rule set is evaluated (its hit states change), so it must
// not be in use by a running search at the same time.
#pragma once

#include <string>

#include "props/contents_source.h"
#include "props/shell_item.h"
#include "rules/rule_set.h"

namespace trovix::engine {

struct DetectiveReport {
  bool found = false;
  std::string text;  // "%sFOUND!\n%s\n\nFILE REPORT\n" and one line per rule
};

// Tests `item` against the compiled `rule_set` and writes the report. The rule set's value
// provider is replaced for the test and restored afterwards. Contents rules read the file's
// text through `contents` (none: they find nothing); when the text could not be had for a
// reason the user should know (locked, skipped after crashes, no reader), a tabbed line under
// the contents rule's line says why.
DetectiveReport ExplainItem(rules::RuleSet& rule_set, const props::ShellItemPtr& item,
                            props::ContentsSource* contents = nullptr);

}  // namespace trovix::engine
