#include "cli/rule_line.h"

#include <cctype>

namespace trovix::cli {
namespace {

std::string_view Trim(std::string_view s) {
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
  return s;
}

// Takes `word` off the front of `s` when it is there as a whole word, in any case.
bool TakeWord(std::string_view& s, std::string_view word) {
  if (s.size() < word.size()) return false;
  for (size_t i = 0; i < word.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(s[i])) != word[i]) return false;
  if (s.size() > word.size()) {
    char next = s[word.size()];
    if (!std::isspace(static_cast<unsigned char>(next)) && next != '>') return false;
  }
  s = Trim(s.substr(word.size()));
  return true;
}

}  // namespace

bool ParseRuleLine(std::string_view text, RuleLine* out, std::string* error) {
  RuleLine line;
  std::string_view s = Trim(text);
  size_t colon = s.find(':');
  if (colon == std::string_view::npos) {
    *error = "rule \"" + std::string(text) + "\" has no \":\" between the property and its value";
    return false;
  }
  std::string_view head = Trim(s.substr(0, colon));
  // A context word only counts when more follows it: a property may be called "Or".
  std::string_view probe = head;
  if (TakeWord(probe, "and") && !probe.empty()) {
    line.context = TakeWord(probe, "not") ? 2 : 0;
    head = probe;
  } else if (probe = head; TakeWord(probe, "or") && !probe.empty()) {
    line.context = TakeWord(probe, "not") ? 3 : 1;
    head = probe;
  }
  while (!head.empty() && head.front() == '>') {
    ++line.indent;
    head = Trim(head.substr(1));
  }
  if (head.empty()) {
    *error = "rule \"" + std::string(text) + "\" names no property before \":\"";
    return false;
  }
  // "> or name": the context word belongs before the indent marks.
  if (probe = head; line.indent > 0 && (TakeWord(probe, "and") || TakeWord(probe, "or")) && !probe.empty()) {
    const std::string_view word = head.substr(0, head.size() - probe.size());
    *error = "rule \"" + std::string(text) + "\": \"" + std::string(Trim(word)) +
             "\" after \">\" is not understood; the context comes first (\"" + std::string(Trim(word)) + " > " +
             std::string(Trim(probe)) + ": ...\")";
    return false;
  }
  line.property = std::string(head);
  line.value = std::string(Trim(s.substr(colon + 1)));
  *out = std::move(line);
  return true;
}

}  // namespace trovix::cli
