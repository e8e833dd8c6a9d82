// The matcher of a "Complex" rule against real files, through a rule set and the item value
// provider.

#include "rules/expression/expression_matcher.h"

#include <gtest/gtest.h>

#include "props/catalogue.h"
#include "props/shell_item.h"
#include "rules/expression/expression.h"
#include "rules/item_value_provider.h"
#include "rules/rule_set.h"
#include "rules/value/value_syntax.h"
#include "tests/support/temp_tree.h"

namespace trovix::rules {
namespace {

RulePtr ComplexRule(const std::string& text) {
  const props::PropertyInfo* info = props::DefaultCatalogue().FindProperty("Stock.Algorithmic");
  EXPECT_NE(info, nullptr);
  RulePtr rule = Rule::CreateFor(*info);
  EXPECT_TRUE(ParseRuleText(*rule, text));
  return rule;
}

TEST(ExpressionMatcher, MatchesFilesByTheirProperties) {
  testing::TempTree tree({"small.txt=abc", "large.txt=abcdefghijklmnopqrstuvwxyz", "large.doc=abcdefghij"});
  RuleSet set;
  ASSERT_TRUE(set.Compile({ComplexRule("$System.Size > 5 & $System.FileExtension = '*txt'")}));
  ItemValueProvider provider;
  set.set_value_provider(&provider);
  auto matches = [&](const char* name) {
    provider.set_item(props::ShellItem::FromPath(tree.path(name)));
    return set.Evaluate();
  };
  EXPECT_FALSE(matches("small.txt"));
  EXPECT_TRUE(matches("large.txt"));
  EXPECT_FALSE(matches("large.doc"));
  // Values belong to one item: the next item is fetched afresh.
  EXPECT_TRUE(matches("large.txt"));
}

TEST(ExpressionMatcher, ExposesTheExpressionAndRefusesBadText) {
  RulePtr good = ComplexRule("$System.DateModified < $System.DateCreated + 2 | $Size > 1");
  std::unique_ptr<RuleMatcher> matcher = good->CreateMatcher(false);
  ASSERT_NE(matcher, nullptr);
  EXPECT_EQ(matcher->ValueKind(), MatcherValue::kItem);
  const Expression* expression = ExpressionOf(*matcher);
  ASSERT_NE(expression, nullptr);
  EXPECT_EQ(expression->names(),
            (std::vector<std::string>{"System.DateModified", "System.DateCreated", "System.Size"}));

  EXPECT_EQ(ComplexRule("len($System.Size")->CreateMatcher(false), nullptr);
  EXPECT_EQ(ComplexRule("5 > 3")->CreateMatcher(false), nullptr);
}

}  // namespace
}  // namespace trovix::rules
