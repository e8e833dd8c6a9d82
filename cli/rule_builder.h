// Turns the rule lines and expressions of the command line into rules, with a message that
// names the bad rule and says why when one cannot be made.
#pragma once

#include <string>
#include <vector>

#include "rules/rule.h"

namespace trovix::cli {

// One -r RULE line.
bool AddRuleLine(const std::string& text, std::vector<rules::RulePtr>* rules, std::string* error);
// One -e EXPR: a Complex rule; a syntax error gives the expression's own error text.
bool AddExpression(const std::string& text, std::vector<rules::RulePtr>* rules, std::string* error);
// Every line of a rules file (blank lines and lines starting with "#" are ignored).
bool AddRulesFile(const std::string& path, std::vector<rules::RulePtr>* rules, std::string* error);

}  // namespace trovix::cli
