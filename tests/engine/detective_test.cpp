#include <gtest/gtest.h>

#include "engine/search/detective.h"
#include "props/catalogue.h"
#include "rules/value/value_syntax.h"
#include "tests/support/search_fixtures.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine {
namespace {

using trovix::testing::MakeRule;

TEST(Detective, ReportsEachRuleWithValueAndHitState) {
  testing::TempTree tree({"a.txt=hello"});
  rules::RuleSet set;
  ASSERT_TRUE(set.Compile({MakeRule("System.ItemNameDisplay", "*.txt"), MakeRule("System.Size", ">100")},
                          /*allow_reorder=*/false));
  DetectiveReport report = ExplainItem(set, props::ShellItem::FromPath(tree.path("a.txt")));
  EXPECT_FALSE(report.found);
  std::string expected_head = "NOT FOUND!\n" + set.Print() + "\n\nFILE REPORT\n";
  ASSERT_EQ(report.text.substr(0, expected_head.size()), expected_head);
  EXPECT_EQ(report.text.substr(expected_head.size()), "Name: a.txt (hit=1)\nSize: 5 (hit=0)\n");
}

TEST(Detective, FoundFileAndSkippedAndMissingValues) {
  testing::TempTree tree({"b.log=x"});
  rules::RuleSet set;
  // The OR short-circuits: the second rule is never tested and keeps its -1.
  ASSERT_TRUE(set.Compile({MakeRule("System.ItemNameDisplay", "b.log"),
                           MakeRule("System.Link.TargetParsingPath", "anything", 1)},
                          false));
  DetectiveReport report = ExplainItem(set, props::ShellItem::FromPath(tree.path("b.log")));
  EXPECT_TRUE(report.found);
  EXPECT_EQ(report.text.rfind("FOUND!\n", 0), 0u);
  EXPECT_NE(report.text.find("Link target: (Not extracted) (hit=-1)\n"), std::string::npos) << report.text;
}

TEST(Detective, ExpressionRuleListsItsPropertiesLastFirst) {
  testing::TempTree tree({"c.txt=abc"});
  rules::RuleSet set;
  auto complex = rules::Rule::CreateFor(*props::DefaultCatalogue().FindProperty("Stock.Algorithmic"));
  complex->SetText("$System.Size > 1 & $System.ItemNameDisplay = \"c.txt\"");
  ASSERT_TRUE(set.Compile({complex}));
  DetectiveReport report = ExplainItem(set, props::ShellItem::FromPath(tree.path("c.txt")));
  EXPECT_NE(report.text.find("\tSystem.ItemNameDisplay = c.txt\n\tSystem.Size = 3\n"), std::string::npos)
      << report.text;
}

}  // namespace
}  // namespace trovix::engine
