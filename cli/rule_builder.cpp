#include "cli/rule_builder.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <sstream>
#include <string_view>

#include "cli/rule_line.h"
#include "platform/regular_file.h"
#include "props/catalogue.h"
#include "rules/expression.h"
#include "rules/text_matcher.h"
#include "rules/value_syntax.h"

namespace trovix::cli {
namespace {

bool SameIgnoringAsciiCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
         });
}

// The option a typed value names by its label (any case); -1 when none.
int FindOption(const props::OptionList& list, std::string_view value) {
  while (!value.empty() && value.front() == ' ') value.remove_prefix(1);
  while (!value.empty() && value.back() == ' ') value.remove_suffix(1);
  for (size_t i = 0; i < list.options.size(); ++i)
    if (SameIgnoringAsciiCase(list.options[i].label, value)) return static_cast<int>(i);
  return -1;
}

std::string OptionLabels(const props::OptionList& list) {
  std::string labels;
  for (const props::PropertyOption& option : list.options) {
    if (!labels.empty()) labels += ", ";
    labels += "\"" + option.label + "\"";
  }
  return labels;
}

}  // namespace

bool AddRuleLine(const std::string& text, std::vector<rules::RulePtr>* rules, std::string* error) {
  RuleLine line;
  if (!ParseRuleLine(text, &line, error)) return false;
  const props::PropertyInfo* info = props::DefaultCatalogue().Resolve(line.property);
  if (!info) info = props::AllPropertiesCatalogue().Resolve(line.property);
  if (!info) {
    *error = "rule \"" + text + "\": unknown property \"" + line.property + "\" (trovix-cli props lists them)";
    return false;
  }
  if (info->hash == props::hash::kComplex) return AddExpression(line.value, rules, error);
  auto rule = rules::Rule::CreateFor(*info);
  if (rule->Kind() < 0) {
    *error = "rule \"" + text + "\": the property " + info->name + " cannot be searched";
    return false;
  }
  rules::RuleTextOptions options;
  if (const props::OptionList* list = rule->Options()) {
    // A drop-down rule: the value names one of its options.
    int index = FindOption(*list, line.value);
    if (index < 0) {
      *error = "rule \"" + text + "\": \"" + line.value + "\" is none of the choices for " + info->label + ": " +
               OptionLabels(*list);
      return false;
    }
    options.option_index = index;
  }
  if (!rules::ParseRuleText(*rule, line.value, options)) {
    *error = "rule \"" + text + "\": \"" + line.value + "\" is not a valid value for " + info->label;
    return false;
  }
  if (std::string why; !rules::CheckTextRule(*rule, &why)) {
    *error = "rule \"" + text + "\": " + why;
    return false;
  }
  rule->SetContext(line.context);
  rule->SetIndent(line.indent);
  rules->push_back(rule);
  return true;
}

bool AddExpression(const std::string& text, std::vector<rules::RulePtr>* rules, std::string* error) {
  rules::Expression expression;
  if (!expression.Compile(text)) {
    *error = expression.ErrorText();
    return false;
  }
  auto rule = rules::Rule::CreateFor(*props::DefaultCatalogue().FindProperty("Stock.Algorithmic"));
  if (!rules::ParseRuleText(*rule, text)) {
    *error = "the expression \"" + text + "\" cannot be used as a rule";
    return false;
  }
  rules->push_back(rule);
  return true;
}

bool AddRulesFile(const std::string& path, std::vector<rules::RulePtr>* rules, std::string* error) {
  std::string bytes;
  if (int err = platform::ReadRegularFile(path, &bytes); err != 0) {
    const bool is_shape = err == platform::kNotRegularFile || err == EFBIG || err == EISDIR;
    *error = "the rules file \"" + path + "\" " + (is_shape ? "" : "cannot be read: ") +
             platform::DescribeReadError(err);
    return false;
  }
  std::istringstream in(bytes);
  std::string line;
  int number = 0;
  while (std::getline(in, line)) {
    ++number;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    size_t first = line.find_first_not_of(" \t");
    if (first == std::string::npos || line[first] == '#') continue;
    if (!AddRuleLine(line, rules, error)) {
      *error = path + ":" + std::to_string(number) + ": " + *error;
      return false;
    }
  }
  return true;
}

}  // namespace trovix::cli
