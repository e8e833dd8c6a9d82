// Fuzzes the loader of persisted rule lists: any bytes must load as nothing or as the rules
// that survive, without reading outside the buffer, and whatever loads must save and load
// again to the same rules.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "rules/rule.h"
#include "rules/blob/rule_blob.h"
#include "rules/rule_set.h"
#include "rules/value/value_format.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace trovix::rules;
  const std::vector<RulePtr> rules = Deserialise(std::string_view(reinterpret_cast<const char*>(data), size));
  if (rules.empty()) return 0;

  const std::vector<RulePtr> again = Deserialise(Serialise(rules));
  if (again.size() != rules.size()) abort();
  for (size_t i = 0; i < rules.size(); ++i) {
    if (!again[i]->Equals(*rules[i])) abort();
  }

  // Loaded bounds are whatever the bytes said: every one must show as text, as the rule
  // boxes and the summaries show it.
  for (const RulePtr& rule : rules) {
    FormatRuleValue(*rule);
    std::string description;
    rule->Describe(description, 1, false);
  }

  // Whatever loads must compile and evaluate (no provider: every value is absent).
  RuleSet set;
  if (!set.Compile(rules)) abort();
  set.Evaluate();
  set.Print();
  return 0;
}
