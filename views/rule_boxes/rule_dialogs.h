// The dialogs a rule box opens for the finer points of its rule: the text-rule dialog (mode,
// exact match, automatic wildcards, whole words), the number dialog (a value with a tolerance)
// and the editor of the free-form Complex rule (an operator and function menu, and the
// "syntax error" box with the caret moved to the error).
//
// Modal, on the UI thread. Each edits only what it is given and only when the user accepts;
// accepting without a change is no change (false, the rule untouched). Applied values are
// normalised and remembered as the defaults for the next rule (Rule::ApplyValues).
//
// Controls have object names for tests and scripts: textRuleDialog (simpleMode, keywordMode,
// freeformMode, simpleEdit, patternKind, allOfEdit, anyOfEdit, noneOfEdit, freeformEdit,
// exactMatch, autoWildcards, wholeWords, ignoreCase), numberRuleDialog (valueEdit, approximate,
// toleranceEdit, showUnit), complexRuleDialog (expressionEdit, insertButton); each has "buttons".
// Errors are shown through ShowMessageBox (views/program/speech.h), so a test can record them.
#pragma once

#include <string>

class QWidget;

namespace trovix::rules {
class Rule;
}

namespace trovix::views {

// True when the user applied changes to `rule` (a text rule: kinds 3 to 9). The Complex rule
// gets the expression editor below.
bool EditTextRule(QWidget* parent, rules::Rule& rule);
// True when the user applied changes to `rule` (a Number, Date or Float rule).
bool EditNumberRule(QWidget* parent, rules::Rule& rule);
// The Complex rule's editor, starting from `*expression`. True when the user accepted an
// expression that compiles; it is then in `*expression`.
bool EditComplexRule(QWidget* parent, std::string* expression);

}  // namespace trovix::views
