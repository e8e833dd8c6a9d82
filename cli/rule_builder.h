// Turns the rule lines and expressions of the command line into rules, with a message that
// names the bad rule and says why when one cannot be made.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "props/property_info.h"
#include "rules/rule.h"

namespace trovix::cli {

// The property a typed name stands for (see props::Catalogue::Lookup), the filtered catalogue
// first, then every property. Null with a message that lists the candidates of an ambiguous
// name or the nearest names of an unknown one. A property nothing on this system fills is
// found, with a warning kept for FlushValueWarnings that names the one that answers.
const props::PropertyInfo* ResolvePropertyName(const std::string& typed, std::string* error);

// One -r RULE line. Warnings about how its value was read are kept for FlushValueWarnings.

bool AddRuleLine(const std::string& text, std::vector<rules::RulePtr>* rules, std::string* error);
// One -e EXPR: a Complex rule; a syntax error gives the expression's own error text.
bool AddExpression(const std::string& text, std::vector<rules::RulePtr>* rules, std::string* error);
// Every line of a rules file (blank lines and lines starting with "#" are ignored).
bool AddRulesFile(const std::string& path, std::vector<rules::RulePtr>* rules, std::string* error);

// --literal: text values of the rules made from now on are plain text (no wildcards, no
// regular expressions).
void SetLiteralValues(bool literal);
// Prints each warning kept since the last call once ("trovix-cli: warning: ..."), or drops them
// when `silenced` (--no-warnings).
void FlushValueWarnings(bool silenced, std::FILE* to);

}  // namespace trovix::cli
