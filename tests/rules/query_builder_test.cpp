// What the builder writes where the text itself is the contract (the forms a reader of the
// dialect must meet); whether the index then answers as the walk does is the index's
// differential test, run on real files.
#include "rules/query/query_builder.h"

#include <gtest/gtest.h>

#include "base/clock.h"
#include "base/file_time.h"
#include "props/catalogue.h"
#include "props/file_kinds.h"
#include "rules/value/date_period.h"
#include "rules/patterns/text_pattern.h"
#include "rule_test_util.h"

namespace trovix::rules {
namespace {

using namespace testing;

RulePtr SizeAtLeast(int64_t value, int32_t context = kContextAnd, int32_t indent = 0) {
  RulePtr rule = Rule::Create(SizeKey());
  rule->SetFlags(cf::kLowerBound);
  rule->SetMin(Bits(value));
  return WithContext(rule, context, indent);
}

// A regular expression on the name: never has an index form.
RulePtr RegexName(int32_t context = kContextAnd, int32_t indent = 0) {
  return TextRule(NameKey(), "^a.c$", context, indent);
}

BuildResult Build(const std::vector<RulePtr>& rules) {
  RuleSet set;
  EXPECT_TRUE(set.Compile(rules, false));
  return BuildWhere(set);
}

std::string Fragment(const RulePtr& rule) {
  RuleSet set;
  EXPECT_TRUE(set.Compile({rule}, false));
  return OperandFragment(set.matcher(0));
}

base::FileTime Utc(int y, int mo, int d, int h, int mi, int s) {
  base::CivilTime c;
  c.year = y, c.month = mo, c.day = d, c.hour = h, c.minute = mi, c.second = s;
  return base::FileTimeFromCivil(c);
}

TEST(BuildWhere, SingleNumberRule) {
  BuildResult r = Build({SizeAtLeast(100)});
  EXPECT_EQ(r.text, "WHERE ( (System.Size>=100))");
  EXPECT_TRUE(r.all_translated);
}

TEST(BuildWhere, PropertyWithoutIndexGivesNothing) {
  const props::PropertyInfo& info = MadeUpProperty(901, props::VT_UI8, 0);
  RulePtr rule = Rule::CreateFor(info);
  rule->SetFlags(cf::kLowerBound);
  rule->SetMin(Bits(int64_t{5}));
  BuildResult r = Build({rule});
  EXPECT_EQ(r.text, "");
  EXPECT_FALSE(r.all_translated);
}

TEST(BuildWhere, UntranslatableOperandIsDropped) {
  // Inside an OR group the group keeps its other operand.
  BuildResult r = Build({SizeAtLeast(1), SizeAtLeast(2, kContextAnd, 0), RegexName(kContextOr, 1)});
  EXPECT_EQ(r.text, "WHERE ( (System.Size>=1) AND ( (System.Size>=2)))");
  EXPECT_FALSE(r.all_translated);

  // A leading untranslatable operand takes its operator with it.
  r = Build({RegexName(), SizeAtLeast(3, kContextOrNot)});
  EXPECT_EQ(r.text, "WHERE ( NOT (System.Size>=3))");
  EXPECT_FALSE(r.all_translated);

  // Once something stands in the body, the NOT before a dropped operand goes with it.
  r = Build({SizeAtLeast(1), RegexName(kContextAndNot), SizeAtLeast(3, kContextOr)});
  EXPECT_EQ(r.text, "WHERE ( (System.Size>=1) OR (System.Size>=3))");
}

TEST(OperandFragment, NameText) {
  EXPECT_EQ(Fragment(TextRule(NameKey(), "abc")), "CONTAINS(System.ItemNameDisplay,'\"abc*\"')");
  RulePtr exact = TextRule(NameKey(), "abc");
  exact->SetFlags(cf::kIgnoreCase | cf::kExact);
  EXPECT_EQ(Fragment(exact), "System.ItemNameDisplay='abc'");
  RulePtr words = TextRule(NameKey(), "abc");
  words->SetFlags(cf::kIgnoreCase | cf::kWholeWords);
  EXPECT_EQ(Fragment(words), "System.ItemNameDisplay='abc'");
  // Brackets have no form; an apostrophe is kept as it stands (the dialect then rejects it).
  EXPECT_EQ(Fragment(TextRule(NameKey(), "a(1)")), "");
  RulePtr verbatim = TextRule(NameKey(), "it's");
  EXPECT_EQ(Fragment(verbatim), "CONTAINS(System.ItemNameDisplay,'\"it's*\"')");
  EXPECT_EQ(Fragment(RegexName()), "");
  const std::string long_name(300, 'n');
  EXPECT_EQ(Fragment(TextRule(NameKey(), long_name)), "CONTAINS(System.ItemNameDisplay,'\"" + long_name + "*\"')");
}

TEST(OperandFragment, DatePeriodFromTheClock) {
  ASSERT_TRUE(base::SetLocalTimeZone("UTC"));
  base::ScopedFixedClock clock(Utc(2024, 3, 5, 10, 30, 0));
  RulePtr today = Rule::Create(DateModifiedKey());
  today->SetFlags(PeriodFlags(2));
  EXPECT_EQ(Fragment(today), "System.DateModified>='2024/03/05 00:00:00'");
  RulePtr yesterday = Rule::Create(DateModifiedKey());
  yesterday->SetFlags(PeriodFlags(3));
  EXPECT_EQ(Fragment(yesterday),
            "System.DateModified>='2024/03/04 00:00:00' AND System.DateModified<='2024/03/04 23:59:59'");
  base::SetLocalTimeZone("");
}

class TypeFragment : public ::testing::Test {
 protected:
  void SetUp() override {
    props::SetFileKinds({{"Pictures", "jpg, PNG"}, {"Sheets", "xls*"}, {"Picky", "+a,b"}, {"Empty", ""}});
  }
  void TearDown() override { props::SetFileKinds({}); }

  static RulePtr TypeRule(const std::string& kind) {
    const props::PropertyInfo* info = props::DefaultCatalogue().FindProperty("Stock.Kind");
    RulePtr rule = Rule::CreateFor(*info);
    const props::OptionList* options = rule->Options();
    for (size_t i = 0; options && i < options->options.size(); ++i) {
      if (options->options[i].label == kind) {
        EXPECT_TRUE(rule->SetOption(kOptionEquals, static_cast<int32_t>(i)));
      }
    }
    if (kind == "Folder") rule->SetText("Folder");
    return rule;
  }
};

TEST_F(TypeFragment, KindsBecomeExtensionTests) {
  EXPECT_EQ(Fragment(TypeRule("Pictures")),
            "System.IsFolder=FALSE AND (System.FileExtension='.jpg' OR System.FileExtension='.png')");
  EXPECT_EQ(Fragment(TypeRule("Sheets")), "System.IsFolder=FALSE AND (System.FileExtension LIKE '.xls%')");
  EXPECT_EQ(Fragment(TypeRule("Picky")), "");
  EXPECT_EQ(Fragment(TypeRule("Empty")), "");
}

TEST_F(TypeFragment, FolderOption) {
  RulePtr rule = TypeRule("Pictures");
  rule->SetText("Folder");
  EXPECT_EQ(Fragment(rule), "System.IsFolder=TRUE");
}

}  // namespace
}  // namespace trovix::rules
