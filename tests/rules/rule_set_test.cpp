#include "rules/rule_set.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "rules/item_value_provider.h"
#include "tests/rules/rule_test_util.h"
#include "tests/support/temp_tree.h"

namespace trovix::rules {
namespace {

using namespace testing;
using Program = std::vector<int32_t>;

// Each rule's truth for the item, whatever kind of value its matcher wants: numbers 1/0 for
// "Size = 1", "abc"/"xyz" for a name rule that contains abc, contents "abc"/"xyz" for a
// contents rule. Records which operands were asked.
class TruthProvider : public ValueProvider {
 public:
  explicit TruthProvider(std::vector<bool> truth) : truth_(std::move(truth)) {}
  void LoadValue(RuleMatcher& matcher, int32_t operand, size_t) override {
    const size_t index = OperandIndex(operand);
    asked.push_back(static_cast<int>(index));
    switch (matcher.ValueKind()) {
      case MatcherValue::kText:
        matcher.SetText(truth_[index] ? "abc" : "xyz");
        break;
      case MatcherValue::kItem:
        contents_.set_text(truth_[index] ? "abc" : "xyz");
        matcher.SetContentsSource(&contents_);
        matcher.SetItem(item_.get());
        break;
      default:
        matcher.SetNumber(truth_[index] ? 1 : 0);
    }
  }
  std::vector<int> asked;

 private:
  std::vector<bool> truth_;
  testing::TextContents contents_{""};
  props::ShellItemPtr item_ = props::ShellItem::FromPath("/nonexistent/x.txt");
};

bool RunRules(const std::vector<RulePtr>& rules, std::vector<bool> truth, std::vector<int>* asked = nullptr) {
  RuleSet set;
  EXPECT_TRUE(set.Compile(rules, false));
  TruthProvider provider(std::move(truth));
  set.set_value_provider(&provider);
  const bool result = set.Evaluate();
  if (asked) *asked = provider.asked;
  return result;
}

TEST(RuleSet, CompilesNestedGroupsAndClosesThemAtTheEnd) {
  RuleSet set;
  // A (B OR (C AND NOT D)) with indents 0, 1, 1, 2.
  ASSERT_TRUE(set.Compile({SizeIs(1), SizeIs(1, kContextAnd, 1), SizeIs(1, kContextOr, 1),
                           SizeIs(1, kContextAndNot, 2)}));
  EXPECT_EQ(set.program(), (Program{8, -1, 0, -2, 1, 8, -3, 0, 7, -4, 9, 9, 10}));
  EXPECT_FALSE(set.Compile({}));
}

TEST(RuleSet, IndentJumpsNeverCloseMoreBracketsThanAreOpen) {
  RuleSet set;
  ASSERT_TRUE(set.Compile({SizeIs(1, kContextAnd, 2), SizeIs(1, kContextAnd, 0)}));
  EXPECT_EQ(set.program(), (Program{-1, 0, -2, 10}));
  ASSERT_TRUE(set.Compile({SizeIs(1), SizeIs(1, kContextAnd, 3), SizeIs(1, kContextAnd, 0)}));
  EXPECT_EQ(set.program(), (Program{8, -1, 0, -2, 9, 0, -3, 10}));
}

TEST(RuleSet, EvaluatesStrictlyLeftToRight) {
  // A OR B AND C is (A OR B) AND C.
  const std::vector<RulePtr> rules = {SizeIs(1), SizeIs(1, kContextOr), SizeIs(1, kContextAnd)};
  EXPECT_FALSE(RunRules(rules, {true, false, false}));
  EXPECT_TRUE(RunRules(rules, {false, true, true}));
  EXPECT_TRUE(RunRules(rules, {true, false, true}));
  // The worked example: (A OR B) AND NOT C.
  const std::vector<RulePtr> example = {SizeIs(1), SizeIs(1, kContextOr, 1), SizeIs(1, kContextAndNot)};
  EXPECT_TRUE(RunRules(example, {false, true, false}));
  EXPECT_FALSE(RunRules(example, {true, true, true}));
  EXPECT_FALSE(RunRules(example, {false, false, false}));
}

// A first rule's OR means nothing; AND NOT or OR NOT on it keeps the NOT.
TEST(RuleSet, FirstRuleContext) {
  for (bool a : {false, true}) {
    for (bool b : {false, true}) {
      SCOPED_TRACE(std::to_string(a) + std::to_string(b));
      EXPECT_EQ(RunRules({SizeIs(1, kContextAnd), SizeIs(1)}, {a, b}), RunRules({SizeIs(1, kContextOr), SizeIs(1)}, {a, b}));
      EXPECT_EQ(RunRules({SizeIs(1, kContextAndNot), SizeIs(1)}, {a, b}), !a && b);
      EXPECT_EQ(RunRules({SizeIs(1, kContextOrNot), SizeIs(1)}, {a, b}), !a && b);
    }
  }
}

TEST(RuleSet, ShortCircuitSkipsFetchesAndLeavesHitStatesUnset) {
  RuleSet set;
  ASSERT_TRUE(set.Compile({SizeIs(1), SizeIs(1, kContextAnd, 1), SizeIs(1, kContextAnd, 1),
                           SizeIs(1, kContextOrNot, 0)},
                          false));
  TruthProvider provider({false, true, true, false});
  set.set_value_provider(&provider);
  // (A AND B AND C) OR NOT D: A is false, so B and C are skipped; D is asked.
  EXPECT_TRUE(set.Evaluate());
  EXPECT_EQ(provider.asked, (std::vector<int>{0, 3}));
  EXPECT_EQ(set.matcher(0).hit_state(), kHitFalse);
  EXPECT_EQ(set.matcher(1).hit_state(), kHitNotEvaluated);
  EXPECT_EQ(set.matcher(2).hit_state(), kHitNotEvaluated);
  EXPECT_EQ(set.matcher(3).hit_state(), kHitNegatedFalse);

  // Evaluate resets the states before each item.
  TruthProvider all_true({true, true, true, true});
  set.set_value_provider(&all_true);
  EXPECT_TRUE(set.Evaluate());
  EXPECT_EQ(all_true.asked, (std::vector<int>{0, 1, 2}));
  EXPECT_EQ(set.matcher(2).hit_state(), kHitTrue);
  EXPECT_EQ(set.matcher(3).hit_state(), kHitNotEvaluated);
}

TEST(RuleSet, EmptyRulesTakePartAsNeverTrue) {
  RulePtr empty = Rule::Create(SizeKey());
  RuleSet set;
  ASSERT_TRUE(set.Compile({empty, SizeIs(1, kContextOr)}));
  TruthProvider provider({true, true});
  set.set_value_provider(&provider);
  EXPECT_TRUE(set.Evaluate());
  EXPECT_EQ(set.matcher(0).hit_state(), kHitFalse);
  ASSERT_TRUE(set.Compile({empty}));
  EXPECT_FALSE(set.Evaluate());
}

// --- reordering ---

std::vector<std::string> Order(const RuleSet& set, const std::vector<RulePtr>& original) {
  std::vector<std::string> names;
  for (const RulePtr& rule : set.rules()) {
    for (size_t i = 0; i < original.size(); ++i) {
      if (original[i] == rule) names.push_back(std::string(1, static_cast<char>('A' + i)));
    }
  }
  return names;
}

using Names = std::vector<std::string>;

TEST(RuleSetReorder, OnlyAllAndListsMoveCostlyRulesLast) {
  // A contents, B name, C size, D attributes (cheap).
  const std::vector<RulePtr> all_and = {TextRule(ContentsKey(), "needle"), TextRule(NameKey(), "x"), SizeIs(1),
                                        TextRule(AttributesKey(), "A")};
  const std::vector<RulePtr> one_or = {TextRule(ContentsKey(), "needle"), TextRule(NameKey(), "x", kContextOr),
                                       SizeIs(1)};
  const std::vector<RulePtr> in_order = {TextRule(AttributesKey(), "A"), TextRule(NameKey(), "x"),
                                         TextRule(ContentsKey(), "needle")};
  const std::vector<RulePtr> alone = {TextRule(ContentsKey(), "needle")};
  struct Case {
    const char* what;
    const std::vector<RulePtr>& rules;
    bool reordered;
    Names order;
    int32_t contents_rule;
  } cases[] = {
      {"all AND: cheap first, contents last", all_and, true, {"D", "B", "C", "A"}, 3},
      {"one OR leaves the order alone", one_or, false, {"A", "B", "C"}, 0},
      {"already in order", in_order, false, {"A", "B", "C"}, 2},
      {"a lone rule", alone, false, {"A"}, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    RuleSet set;
    ASSERT_TRUE(set.Compile(c.rules));
    EXPECT_EQ(set.reordered(), c.reordered);
    EXPECT_EQ(Order(set, c.rules), c.order);
    EXPECT_EQ(set.contents_rule(), c.contents_rule);
  }
  // The shared rules are untouched.
  EXPECT_EQ(all_and[0]->Indent(), 0);
}

TEST(RuleSetReorder, GroupedAndRulesMoveTheCostlyGroupToTheEndAtTopLevel) {
  // A, (B contents AND C), D -- indents 0, 1, 2, 0 with B heading the group of C.
  const std::vector<RulePtr> rules = {SizeIs(1), WithContext(TextRule(ContentsKey(), "n"), kContextAnd, 1),
                                      SizeIs(1, kContextAndNot, 2), SizeIs(1, kContextAnd, 0)};
  RuleSet set;
  ASSERT_TRUE(set.Compile(rules));
  EXPECT_TRUE(set.reordered());
  EXPECT_EQ(Order(set, rules), (Names{"A", "D", "B", "C"}));
  EXPECT_EQ(set.indents(), (std::vector<int32_t>{0, 0, 0, 1}));
  EXPECT_EQ(set.program(), (Program{-1, 0, -2, 0, 8, -3, 0, 7, -4, 9, 10}));
  EXPECT_EQ(rules[1]->Indent(), 1);

  // With an OR anywhere the groups keep their places.
  rules[3]->SetContext(kContextOr);
  ASSERT_TRUE(set.Compile(rules));
  EXPECT_FALSE(set.reordered());
}

TEST(RuleSetReorder, MovedGroupKeepsTheResult) {
  const std::vector<RulePtr> rules = {SizeIs(1), WithContext(TextRule(ContentsKey(), "abc"), kContextAndNot, 1),
                                      SizeIs(1, kContextAnd, 2), SizeIs(1, kContextAnd, 1), SizeIs(1, kContextAnd, 0)};
  RuleSet set;
  ASSERT_TRUE(set.Compile(rules));
  ASSERT_TRUE(set.reordered());
  for (int bits = 0; bits < 32; ++bits) {
    std::vector<bool> t;  // by the rules as written
    for (size_t i = 0; i < rules.size(); ++i) t.push_back((bits >> i) & 1);
    std::vector<bool> moved;  // the same truths in the order the set moved the rules to
    for (const RulePtr& rule : set.rules())
      moved.push_back(t[std::find(rules.begin(), rules.end(), rule) - rules.begin()]);
    TruthProvider provider(moved);
    set.set_value_provider(&provider);
    EXPECT_EQ(set.Evaluate(), t[0] && !t[1] && t[2] && t[3] && t[4]) << bits;
  }
}

// --- real items ---

// The volume table scan has names and nothing else: only a lone simple rule on the name can
// be answered from them.
TEST(RuleSetNameOnly, AllowedForOneSimpleNameRuleOnly) {
  struct Case {
    const char* what;
    std::vector<RulePtr> rules;
    bool allowed;
  };
  RulePtr keyword = TextRule(NameKey(), "report");
  keyword->SetKind(kKindKeywordList);
  const Case cases[] = {
      {"a simple name rule", {TextRule(NameKey(), "*.txt")}, true},
      {"a name rule and a size rule", {TextRule(NameKey(), "*.txt"), SizeIs(1)}, false},
      {"a size rule", {SizeIs(1)}, false},
      {"a keyword list on the name", {keyword}, false},
      {"a simple rule on the contents", {TextRule(ContentsKey(), "x")}, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    RuleSet set;
    ASSERT_TRUE(set.Compile(c.rules));
    EXPECT_EQ(set.AllowsNameOnlyTest(), c.allowed);
  }
}

TEST(RuleSetNameOnly, TestsABareNameWithoutAskingTheProvider) {
  RuleSet set;
  ASSERT_TRUE(set.Compile({TextRule(NameKey(), "*.txt")}));
  TruthProvider provider({true});
  set.set_value_provider(&provider);
  EXPECT_TRUE(set.EvaluateName("Notes.TXT"));
  EXPECT_FALSE(set.EvaluateName("notes.doc"));
  EXPECT_TRUE(set.EvaluateName("Zürich.txt"));
  EXPECT_TRUE(provider.asked.empty());
  EXPECT_EQ(set.value_provider(), &provider);  // left as it was for the item tests that follow

  // A negated rule is still one rule on the name; the program's NOT applies.
  RuleSet negated;
  ASSERT_TRUE(negated.Compile({TextRule(NameKey(), "*.txt", kContextAndNot)}));
  EXPECT_TRUE(negated.AllowsNameOnlyTest());
  EXPECT_FALSE(negated.EvaluateName("a.txt"));
  EXPECT_TRUE(negated.EvaluateName("a.doc"));
}

// --- costs: cheaper rules first, the same answer ---

// Strict left to right over the same program, for the oracle: every rule "Size = 1".
bool StrictResult(const std::vector<RulePtr>& rules, const std::vector<bool>& truth,
                  std::vector<int>* asked) {
  std::vector<RulePtr> uniform;
  for (const RulePtr& r : rules) uniform.push_back(SizeIs(1, r->Context(), r->Indent()));
  return RunRules(uniform, truth, asked);
}

TEST(RuleSet, MixedCostsGiveTheStrictAnswerAndAskTheCostliestRulesNoMoreThanIt) {
  // Random lists of name (cheap), size (a stat) and contents (a read) rules with every context
  // and indents, each under every truth assignment: the answer is the strict one, no rule is
  // asked twice, and the costliest rules are asked only where strict evaluation asks them.
  uint32_t seed = 12345;
  auto next = [&seed](uint32_t n) {
    seed = seed * 1103515245u + 12345u;
    return (seed >> 16) % n;
  };
  for (int round = 0; round < 300; ++round) {
    const size_t count = 2 + next(4);
    std::vector<RulePtr> rules;
    int32_t indent = 0;
    for (size_t i = 0; i < count; ++i) {
      const int32_t context = static_cast<int32_t>(next(4));
      if (i > 0) indent = std::max(0, indent + static_cast<int32_t>(next(3)) - 1);
      switch (next(3)) {
        case 0:
          rules.push_back(TextRule(NameKey(), "abc", context, indent));
          break;
        case 1:
          rules.push_back(SizeIs(1, context, indent));
          break;
        default:
          rules.push_back(TextRule(ContentsKey(), "abc", context, indent));
      }
    }
    RuleSet set;
    ASSERT_TRUE(set.Compile(rules, false));
    for (uint32_t bits = 0; bits < (1u << count); ++bits) {
      std::vector<bool> truth;
      for (size_t i = 0; i < count; ++i) truth.push_back((bits >> i) & 1);
      std::vector<int> strict_asked;
      const bool strict = StrictResult(set.rules(), truth, &strict_asked);
      TruthProvider provider(truth);
      set.set_value_provider(&provider);
      SCOPED_TRACE(set.Print() + " truth " + std::to_string(bits));
      ASSERT_EQ(set.Evaluate(), strict);
      for (int asked : provider.asked) {
        EXPECT_EQ(std::count(provider.asked.begin(), provider.asked.end(), asked), 1)
            << "asked twice";
        if (set.cost(static_cast<size_t>(asked)) == set.max_cost() &&
            set.max_cost() != RuleCost::kName) {
          EXPECT_NE(std::find(strict_asked.begin(), strict_asked.end(), asked), strict_asked.end())
              << "rule " << asked << " asked where strict evaluation skips it";
        }
      }
    }
  }
}

TEST(RuleSet, ANameRuleSparesTheCostlierRulesBeforeIt) {
  // Size first, then a group of names, with an OR inside: nothing may be reordered, yet a
  // name that fails the group decides the item without its size or its contents.
  const std::vector<RulePtr> rules = {TextRule(ContentsKey(), "abc"), SizeIs(1, kContextAnd),
                                      TextRule(NameKey(), "abc", kContextAnd, 0),
                                      TextRule(NameKey(), "abc", kContextOr, 1)};
  RuleSet set;
  ASSERT_TRUE(set.Compile(rules));
  EXPECT_EQ(set.cost(0), RuleCost::kRead);
  EXPECT_EQ(set.cost(1), RuleCost::kStatus);
  EXPECT_EQ(set.cost(2), RuleCost::kName);
  TruthProvider fails({true, true, false, false});
  set.set_value_provider(&fails);
  EXPECT_FALSE(set.Evaluate());
  EXPECT_EQ(fails.asked, (std::vector<int>{2, 3}));
  EXPECT_EQ(set.matcher(0).hit_state(), kHitNotEvaluated);
  // A name that passes leaves the size to ask, and the contents last.
  TruthProvider passes({true, false, false, true});
  set.set_value_provider(&passes);
  EXPECT_FALSE(set.Evaluate());
  EXPECT_EQ(passes.asked, (std::vector<int>{2, 3, 1}));
  TruthProvider all({true, true, true, false});
  set.set_value_provider(&all);
  EXPECT_TRUE(set.Evaluate());
  EXPECT_EQ(all.asked, (std::vector<int>{2, 1, 0}));  // the group's OR is decided by its first name
}

TEST(RuleSet, RealItemsAskTheirStatusOnlyWhenTheNameLeavesItOpenAndFoldersHaveNoSize) {
  trovix::testing::TempTree tree(
      {"a.txt=abc", "b.log=" + std::string(2000, 'x'), "c.txt=" + std::string(2000, 'y')});
  RulePtr size = Rule::Create(SizeKey());
  size->SetFlags(cf::kLowerBound);
  size->SetMin(1000);
  RuleSet set;
  // Size first, as the console writes "--size" before "--ext".
  ASSERT_TRUE(set.Compile({size, TextRule(NameKey(), ".txt")}));
  ItemValueProvider provider;
  set.set_value_provider(&provider);
  auto test = [&](const char* file, uint64_t* reads) {
    const uint64_t before = props::StatusReadCount();
    provider.set_item(props::ShellItem::FromListing(tree.path(file), platform::FileType::kRegular));
    const bool result = set.Evaluate();
    *reads = props::StatusReadCount() - before;
    return result;
  };
  uint64_t reads = 0;
  EXPECT_FALSE(test("b.log", &reads));
  EXPECT_EQ(reads, 0u);
  EXPECT_TRUE(test("c.txt", &reads));
  EXPECT_EQ(reads, 1u);
  EXPECT_FALSE(test("a.txt", &reads));
  EXPECT_EQ(reads, 1u);

  // A folder has no size: the sentinel reaches the matcher and never matches.
  RulePtr no_size = Rule::Create(SizeKey());
  no_size->SetFlags(cf::kUpperBound);
  no_size->SetMax(Bits(int64_t{1} << 60));
  ASSERT_TRUE(set.Compile({no_size}));
  provider.set_item(props::ShellItem::FromPath(tree.root()));
  EXPECT_FALSE(set.Evaluate());
  provider.set_item(props::ShellItem::FromPath(tree.path("a.txt")));
  EXPECT_TRUE(set.Evaluate());
}

}  // namespace
}  // namespace trovix::rules
