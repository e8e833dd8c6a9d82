#include "cli/rule_listing.h"

#include "rules/compare_flags.h"
#include "rules/value/value_format.h"

namespace trovix::cli {
namespace {

constexpr const char* kContextWords[] = {"AND", "OR", "AND NOT", "OR NOT"};

std::string FlagWords(const rules::Rule& rule) {
  namespace cf = rules::cf;
  std::vector<std::string> words;
  const uint32_t flags = rule.Flags();
  if (rules::IsTextKind(rule.Kind())) {
    words.push_back(flags & cf::kIgnoreCase ? "ignoring case" : "case-sensitive");
    if (flags & cf::kWholeWords) words.push_back("whole words");
    if (flags & cf::kExact) words.push_back("exact match");
    if (flags & cf::kVerbatim) words.push_back("plain text (no wildcards)");
  } else if (rule.Kind() == rules::kKindNumber || rule.Kind() == rules::kKindDate || rule.Kind() == rules::kKindFloat) {
    if ((flags & cf::kEqual) && (flags & cf::kApproximate)) words.push_back("approximately");
    if (flags & cf::kNotEqual) words.push_back("not equal");
    if (flags & cf::kDuration) words.push_back("a duration");
    if (flags & cf::kCoordinate) words.push_back("degrees");
    if (flags & cf::kRelativeMask) words.push_back("a period, computed when the search starts");
  }
  std::string text;
  for (const std::string& w : words) text += (text.empty() ? "" : ", ") + w;
  return text.empty() ? text : " [" + text + "]";
}

std::string Condition(const rules::Rule& rule) {
  if (const props::OptionList* list = rule.Options()) {
    const int32_t index = rule.OptionIndex();
    if (index >= 0 && static_cast<size_t>(index) < list->options.size()) return "is " + list->options[index].label;
  }
  return rules::DescribeRuleValue(rule);
}

}  // namespace

std::string ListRules(const std::vector<rules::RulePtr>& list) {
  std::string out;
  int depth = 0;
  for (size_t i = 0; i < list.size(); ++i) {
    const rules::Rule& rule = *list[i];
    const int indent = rule.Indent();
    const bool opens = i + 1 < list.size() && list[i + 1]->Indent() > indent;
    std::string line = std::to_string(i + 1);
    line.resize(4, ' ');
    line += std::string(2 * static_cast<size_t>(std::max(indent, 0)), ' ');
    if (i > 0) line += std::string(kContextWords[rule.Context() & 3]) + " ";
    if (opens) line += "( ";
    const props::PropertyInfo* info = rule.Descriptor();
    line += rule.PropertyName();
    if (info && info->name != rule.PropertyName()) line += " (" + info->name + ")";
    line += " " + Condition(rule) + FlagWords(rule);
    // Brackets close where the next rule (or the end) is less indented than this group.
    depth = opens ? indent + 1 : std::max(depth, indent);
    const int next = i + 1 < list.size() ? list[i + 1]->Indent() : 0;
    if (!opens && next < depth) {
      line += " " + std::string(static_cast<size_t>(depth - next), ')');
      depth = next;
    }
    out += line + "\n";
  }
  return out;
}

}  // namespace trovix::cli
