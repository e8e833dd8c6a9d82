#include "cli/rule_builder.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <sstream>
#include <string_view>

#include "cli/nearest_names.h"
#include "cli/rule_line.h"
#include "cli/value_notes.h"
#include "platform/regular_file.h"
#include "props/catalogue.h"
#include "rules/expression/expression.h"
#include "rules/matchers/text_matcher.h"
#include "rules/value/value_syntax.h"

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

std::vector<std::string>& PendingWarnings() {
  static std::vector<std::string> warnings;
  return warnings;
}

bool& LiteralValues() {
  static bool literal = false;
  return literal;
}

// "did you mean System.Size, System.SizeOnDisk?": canonical names, labels, common words and
// the dotted tails of the names; never the name that was just refused.
std::string NearestProperties(const std::string& typed) {
  std::vector<std::string> names;
  for (const auto& e : props::DefaultCatalogue().entries()) {
    names.push_back(e->name);
    names.push_back(e->label);
    for (size_t dot = e->name.find('.'); dot != std::string::npos; dot = e->name.find('.', dot + 1))
      names.push_back(e->name.substr(dot + 1));
  }
  for (const props::CommonWord& w : props::CommonWords()) names.emplace_back(w.word);
  std::erase_if(names, [&](const std::string& n) { return SameIgnoringAsciiCase(n, typed); });
  const std::vector<std::string> near = NearestNames(typed, names);
  return near.empty() ? "trovix-cli props lists them" : "did you mean " + JoinAlternatives(near) + "?";
}

}  // namespace

void SetLiteralValues(bool literal) { LiteralValues() = literal; }

const props::PropertyInfo* ResolvePropertyName(const std::string& typed, std::string* error) {
  // The filtered catalogue first: what it offers is what this system fills.
  props::NameLookup lookup = props::DefaultCatalogue().Lookup(typed);
  if (!lookup.found && lookup.candidates.empty()) lookup = props::AllPropertiesCatalogue().Lookup(typed);
  if (lookup.found) {
    if (!props::IsFilledHere(*lookup.found)) {
      std::string warning = "nothing on this system fills " + lookup.found->name + ", so a rule on it matches nothing";
      if (const props::PropertyInfo* other = props::FilledCounterpart(*lookup.found))
        warning += "; " + other->name + " (" + other->label + ") is the one that answers";
      PendingWarnings().push_back(std::move(warning));
    }
    return lookup.found;
  }
  if (!lookup.candidates.empty()) {
    std::vector<std::string> names;
    for (const props::PropertyInfo* p : lookup.candidates) names.push_back(p->name);
    *error = "the property \"" + typed + "\" is ambiguous: " + JoinAlternatives(names);
    return nullptr;
  }
  *error = "unknown property \"" + typed + "\" (" + NearestProperties(typed) + ")";
  return nullptr;
}

void FlushValueWarnings(bool silenced, std::FILE* to) {
  std::vector<std::string> said;
  for (const std::string& w : PendingWarnings()) {
    if (silenced || std::find(said.begin(), said.end(), w) != said.end()) continue;
    said.push_back(w);
    std::fprintf(to, "trovix-cli: warning: %s\n", w.c_str());
  }
  PendingWarnings().clear();
}

bool AddRuleLine(const std::string& text, std::vector<rules::RulePtr>* rules, std::string* error) {
  RuleLine line;
  if (!ParseRuleLine(text, &line, error)) return false;
  const props::PropertyInfo* info = ResolvePropertyName(line.property, error);
  if (!info) {
    *error = "rule \"" + text + "\": " + *error;
    return false;
  }
  if (info->hash == props::hash::kComplex) return AddExpression(line.value, rules, error);
  auto rule = rules::Rule::CreateFor(*info);
  if (rule->Kind() < 0) {
    *error = "rule \"" + text + "\": the property " + info->name + " cannot be searched";
    return false;
  }
  rules::RuleTextOptions options;
  options.disable_wildcards = LiteralValues();
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
    if (line.value == "*") {
      // A lone "*" is refused on purpose (a rule that tests nothing); say what does the job.
      *error = "rule \"" + text + "\": \"*\" alone tests nothing; \"?*\" matches every value (-r '" + line.property +
               ": ?*')" + (info->hash == props::hash::kItemNameDisplay ? ", and --ext EXT keeps one extension" : "");
      return false;
    }
    *error = "rule \"" + text + "\": \"" + line.value + "\" is not a valid value for " + info->label;
    if (rule->Kind() == rules::kKindNumber || rule->Kind() == rules::kKindDate || rule->Kind() == rules::kKindFloat)
      *error += " (" + ValueHint(rule->Kind()) + ")";
    return false;
  }
  std::vector<std::string> warnings;
  if (!CheckValueReading(*rule, line.value, &warnings, error)) {
    *error = "rule \"" + text + "\": " + *error;
    return false;
  }
  for (const std::string& w : warnings) PendingWarnings().push_back("rule \"" + text + "\": " + w);
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
