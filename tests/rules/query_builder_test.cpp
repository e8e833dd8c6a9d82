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

// An operand without an index form must never narrow the query below the items the rules
// match: it reads as every item where it counts, as no item under NOT.
TEST(BuildWhere, AnOperandWithoutAFormWidensTheQueryNeverNarrowsIt) {
  // Inside an OR group the whole group may match anything: only the AND before it remains.
  BuildResult r = Build({SizeAtLeast(1), SizeAtLeast(2, kContextAnd, 0), RegexName(kContextOr, 1)});
  EXPECT_EQ(r.text, "WHERE ( (System.Size>=1))");
  EXPECT_FALSE(r.all_translated);

  // OR beside it at the top: the index cannot narrow the items at all.
  EXPECT_EQ(Build({RegexName(), SizeAtLeast(3, kContextOrNot)}).text, "");
  EXPECT_EQ(Build({SizeAtLeast(3), RegexName(kContextOr)}).text, "");

  // AND NOT of it leaves the other side alone; read left to right, (A AND NOT R) OR C.
  r = Build({SizeAtLeast(1), RegexName(kContextAndNot), SizeAtLeast(3, kContextOr)});
  EXPECT_EQ(r.text, "WHERE ( (System.Size>=1) OR (System.Size>=3))");

  // A group: A AND (NOT B OR R) may be any item A is; A AND (NOT B AND R) is at most A AND NOT B.
  r = Build({SizeAtLeast(1), SizeAtLeast(2, kContextAndNot, 0), RegexName(kContextOr, 1)});
  EXPECT_EQ(r.text, "WHERE ( (System.Size>=1))");
  r = Build({SizeAtLeast(1), SizeAtLeast(2, kContextAndNot, 0), RegexName(kContextAnd, 1)});
  EXPECT_EQ(r.text, "WHERE ( (System.Size>=1) AND ( NOT (System.Size>=2)))");
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
