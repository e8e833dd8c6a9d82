#include "rules/rule.h"

#include <gtest/gtest.h>

#include "base/file_time.h"
#include "rules/patterns/text_pattern.h"
#include "rules/matchers/rule_matcher.h"
#include "rules/matchers/text_matcher.h"
#include "tests/rules/date_test_util.h"
#include "tests/rules/rule_test_util.h"

namespace trovix::rules {
namespace {

using namespace testing;

TEST(Rule, CreateLooksTheKeyUpInTheCatalogue) {
  EXPECT_EQ(Rule::Create(SizeKey())->Kind(), kKindNumber);
  EXPECT_EQ(Rule::Create(DateModifiedKey())->Kind(), kKindDate);
  EXPECT_EQ(Rule::Create(NameKey())->Kind(), kKindText);
  EXPECT_TRUE(Rule::Create(ContentsKey())->IsContents());
  EXPECT_TRUE(Rule::Create(ComplexKey())->IsComplex());

  RulePtr unknown = Rule::Create(KeyOf("{DEADBEEF-0000-0000-0000-000000000000}", 7));
  EXPECT_EQ(unknown->Kind(), kKindInvalid);
  EXPECT_TRUE(unknown->IsEmpty());
  EXPECT_EQ(unknown->CreateMatcher(true), nullptr);
}

TEST(Rule, BooleanPropertiesGetTheirOptionList) {
  RulePtr folder = Rule::Create(IsFolderKey());
  ASSERT_EQ(folder->Kind(), kKindEnumNumber);
  ASSERT_NE(folder->Options(), nullptr);
  EXPECT_EQ(folder->OptionCondition(), kOptionEquals);
  EXPECT_EQ(folder->OptionIndex(), 0);
  ASSERT_TRUE(folder->SetOption(kOptionEquals, 1));
  EXPECT_EQ(folder->Flags(), cf::kEqual);
  EXPECT_EQ(static_cast<int64_t>(folder->Min()), folder->Options()->options[1].number);
  EXPECT_FALSE(folder->SetOption(kOptionEquals, 2));
  EXPECT_FALSE(folder->SetOption(7, 0));
}

TEST(Rule, OptionClassesGiveRangesByCondition) {
  auto classes = std::make_shared<const props::OptionList>(props::OptionList{
      props::OptionList::Kind::kClasses, false, {{"small", 0}, {"medium", 100}, {"large", 1000}}});
  RulePtr rule = Rule::CreateFor(MadeUpProperty(1, props::VT_UI4, pf::kEnumerated, classes));
  ASSERT_EQ(rule->Kind(), kKindEnumNumber);

  ASSERT_TRUE(rule->SetOption(kOptionEquals, 1));
  EXPECT_EQ(rule->Flags(), cf::kBounds);
  EXPECT_EQ(rule->Min(), 100u);
  EXPECT_EQ(rule->Max(), 999u);
  ASSERT_TRUE(rule->SetOption(kOptionUpTo, 0));
  EXPECT_EQ(rule->Flags(), cf::kUpperBound);
  EXPECT_EQ(rule->Max(), 99u);
  ASSERT_TRUE(rule->SetOption(kOptionAtLeast, 1));
  EXPECT_EQ(rule->Flags(), cf::kLowerBound);
  // The last class has no upper boundary.
  ASSERT_TRUE(rule->SetOption(kOptionEquals, 2));
  EXPECT_EQ(rule->Flags(), cf::kLowerBound);
  EXPECT_EQ(rule->Min(), 1000u);
  EXPECT_EQ(rule->Max(), kNoValue);

  auto floats = std::make_shared<const props::OptionList>(
      props::OptionList{props::OptionList::Kind::kClasses, true, {{"a", 0, 1.0}, {"b", 0, 2.0}}});
  RulePtr real = Rule::CreateFor(MadeUpProperty(2, props::VT_R8, pf::kEnumerated, floats));
  ASSERT_TRUE(real->SetOption(kOptionEquals, 0));
  EXPECT_EQ(real->Flags(), cf::kBounds | cf::kFloatKind);
  EXPECT_EQ(real->Min(), Bits(1.0));
  EXPECT_EQ(real->Max(), Bits(2.0 - 0.01));
}

TEST(Rule, TextOptionsGiveTextAndFlags33) {
  auto texts = std::make_shared<const props::OptionList>(props::OptionList{
      props::OptionList::Kind::kText, false, {{"Pictures", 0, 0, "picture"}, {"Music", 0, 0, "music"}}});
  RulePtr rule = Rule::CreateFor(MadeUpProperty(3, props::VT_LPWSTR, pf::kEnumerated, texts));
  ASSERT_EQ(rule->Kind(), kKindEnumText);
  EXPECT_TRUE(rule->IsEmpty());
  ASSERT_TRUE(rule->SetOption(kOptionEquals, 1));
  EXPECT_EQ(rule->Flags(), 33u);
  EXPECT_EQ(rule->Text(), "music");
  EXPECT_FALSE(rule->IsEmpty());
  const std::string described = rule->Describe();
  EXPECT_EQ(described.substr(described.size() - 8), " (Music)");
}

TEST(Rule, NormaliseTurnsEqualNumberBoundsIntoEquality) {
  RulePtr rule = Rule::Create(SizeKey());
  rule->SetFlags(cf::kBounds);
  rule->SetMin(7);
  rule->SetMax(7);
  rule->Normalise();
  EXPECT_EQ(rule->Flags(), cf::kEqual);

  // Backwards ranges are swapped, as signed integers.
  rule->SetFlags(cf::kBounds);
  rule->SetMin(5);
  rule->SetMax(Bits(int64_t{-3}));
  rule->Normalise();
  EXPECT_EQ(rule->Min(), Bits(int64_t{-3}));
  EXPECT_EQ(rule->Max(), 5u);
  EXPECT_EQ(rule->Flags(), cf::kBounds);

  // Float bounds are compared as doubles: as integers these would already be in order.
  RulePtr real = Rule::CreateFor(FloatProperty());
  ASSERT_EQ(real->Kind(), kKindFloat);
  real->SetFlags(cf::kFloatKind | cf::kBounds);
  real->SetMin(Bits(2.5));
  real->SetMax(Bits(-1.5));
  real->Normalise();
  EXPECT_EQ(real->Min(), Bits(-1.5));
  EXPECT_EQ(real->Max(), Bits(2.5));
}

TEST(Rule, NormaliseCopiesDisplayFlagsOfTheProperty) {
  RulePtr duration = Rule::CreateFor(MadeUpProperty(5, props::VT_UI8, pf::kDuration | pf::kCoordinate));
  duration->SetFlags(cf::kEqual);
  duration->SetMin(1);
  duration->Normalise();
  EXPECT_EQ(duration->Flags(), cf::kEqual | cf::kDuration);

  RulePtr coordinate = Rule::CreateFor(CoordinateProperty());
  coordinate->SetFlags(cf::kFloatKind | cf::kEqual | cf::kDuration);
  coordinate->SetMin(Bits(1.0));
  coordinate->Normalise();
  EXPECT_EQ(coordinate->Flags(), cf::kFloatKind | cf::kEqual | cf::kCoordinate);
}

TEST(Rule, NormaliseWidensDateBoundsToWholeDaysOnlyWhenAsked) {
  DateScope scope("en_GB", "Europe/Berlin");
  RulePtr rule = Rule::Create(DateModifiedKey());
  // Equal date bounds stay a range covering the whole day.
  rule->SetFlags(cf::kDateKind | cf::kBounds);
  rule->SetMin(LocalBits(2014, 10, 1));
  rule->SetMax(LocalBits(2014, 10, 1));
  rule->Normalise();
  EXPECT_EQ(rule->Flags(), cf::kDateKind | cf::kBounds);
  EXPECT_EQ(rule->Max(), LocalBits(2014, 10, 1, 23, 59, 59));
  // Whole days widen a time of day to its day.
  rule->SetFlags(cf::kDateKind | cf::kBounds | cf::kWholeDays);
  rule->SetMin(LocalBits(2014, 7, 3, 14, 30, 10));
  rule->SetMax(LocalBits(2014, 7, 3, 14, 30, 10));
  rule->Normalise();
  EXPECT_EQ(rule->Min(), LocalBits(2014, 7, 3));
  EXPECT_EQ(rule->Max(), LocalBits(2014, 7, 3, 23, 59, 59));
  // Without the flag a bound with a time of day stays where it is.
  rule->SetFlags(cf::kDateKind | cf::kLowerBound);
  rule->SetMin(LocalBits(2014, 7, 3, 14, 30, 10));
  rule->Normalise();
  EXPECT_EQ(rule->Min(), LocalBits(2014, 7, 3, 14, 30, 10));
}

TEST(Rule, EmptinessByKind) {
  RulePtr number = Rule::Create(SizeKey());
  EXPECT_TRUE(number->IsEmpty());
  number->SetMax(10);
  EXPECT_FALSE(number->IsEmpty());

  RulePtr text = Rule::Create(NameKey());
  EXPECT_TRUE(text->IsEmpty());
  text->SetText("a");
  EXPECT_FALSE(text->IsEmpty());

  RulePtr date = Rule::Create(DateModifiedKey());
  EXPECT_TRUE(date->IsEmpty());
  date->SetFlags(cf::kFixedPeriod | cf::kDateKind | (3u << 16));  // "yesterday"
  EXPECT_FALSE(date->IsEmpty());
  date->SetFlags(cf::kFixedPeriod | cf::kDateKind);  // a period without its number
  EXPECT_TRUE(date->IsEmpty());
  date->SetFlags(cf::kDateKind);
  date->SetMin(1000);
  EXPECT_TRUE(date->IsEmpty());  // a bound, but no flag that uses it
  date->SetFlags(cf::kDateKind | cf::kNotEqual);
  EXPECT_FALSE(date->IsEmpty());
  EXPECT_EQ(Rule::Create(NameKey())->CreateMatcher(true), nullptr);
}

TEST(Rule, CloneCopiesValuesAndEqualsComparesThem) {
  RulePtr rule = TextRule(NameKey(), "report", kContextOrNot, 2);
  rule->SetSummary("contains report");
  rule->SetExtraText("extra");
  RulePtr copy = rule->Clone();
  EXPECT_NE(copy.get(), rule.get());
  EXPECT_TRUE(copy->Equals(*rule));
  EXPECT_EQ(copy->Summary(), "contains report");
  EXPECT_EQ(copy->ExtraText(), "extra");

  copy->SetText("Report");  // case-sensitive
  EXPECT_FALSE(copy->Equals(*rule));
  copy = rule->Clone();
  copy->AdjustIndent(-1);
  EXPECT_FALSE(copy->Equals(*rule));

  // Bounds count only for kinds 0 to 2; a text rule's unused bounds do not.
  copy = rule->Clone();
  copy->SetMin(5);
  EXPECT_TRUE(copy->Equals(*rule));
  RulePtr size = SizeIs(4);
  RulePtr other = size->Clone();
  other->SetMax(9);
  EXPECT_FALSE(other->Equals(*size));
}

TEST(Rule, AppliedValuesBecomeTheDefaults) {
  ResetDefaults();
  RulePtr text = TextRule(NameKey(), "a", kContextOr);
  text->SetKind(kKindFreeform);
  text->SetFlags(cf::kIgnoreCase | cf::kWholeWords);
  text->ApplyValues();
  EXPECT_EQ(DefaultFlags(kKindText), (2u << 16) | 0x3u);
  EXPECT_EQ(DefaultContext(), kContextOr);

  RulePtr next = Rule::Create(NameKey());
  next->ApplyDefaults();
  EXPECT_EQ(next->Kind(), kKindFreeform);
  EXPECT_EQ(next->Flags(), 0x3u);
  EXPECT_EQ(next->Context(), kContextOr);

  RulePtr size = SizeIs(1);
  size->ApplyValues();
  RulePtr next_size = Rule::Create(SizeKey());
  next_size->ApplyDefaults();
  EXPECT_EQ(next_size->Flags(), cf::kEqual);
  EXPECT_EQ(DefaultFlags(kKindDate), cf::kDateKind);  // untouched by other kinds
  ResetDefaults();
}

TEST(Rule, MatcherCopiesTheValuesItCompares) {
  RulePtr rule = SizeIs(10);
  std::unique_ptr<RuleMatcher> matcher = rule->CreateMatcher(true);
  ASSERT_NE(matcher, nullptr);
  EXPECT_EQ(matcher->name(), rule->PropertyName());
  rule->SetMin(11);  // editing the rule during a search changes nothing
  matcher->SetNumber(10);
  EXPECT_TRUE(matcher->Evaluate());
  EXPECT_EQ(rule->CreateMatcher(false)->name(), "");
}

TEST(Rule, TextRulesGetTheMatcherOfTheirMode) {
  auto simple = TextRule(NameKey(), "*.TXT");
  auto matcher = simple->CreateMatcher(false);
  ASSERT_NE(dynamic_cast<TextMatcher*>(matcher.get()), nullptr);
  matcher->SetText("notes.txt.bak");
  EXPECT_TRUE(matcher->Evaluate());
  matcher = TextRule(NameKey(), "TXT")->CreateMatcher(false);
  matcher->SetText("notes.txt.bak");
  EXPECT_TRUE(matcher->Evaluate());
  EXPECT_EQ(static_cast<TextMatcher&>(*matcher).excerpt(), "txt");

  // The contents are searched for text: an exact flag there is ignored.
  auto contents = TextRule(ContentsKey(), "needle");
  contents->SetFlags(cf::kIgnoreCase | cf::kExact);
  matcher = contents->CreateMatcher(false);
  ASSERT_NE(dynamic_cast<KeywordMatcher*>(matcher.get()), nullptr);
  // It reads the item's text as it streams, and stops reading once it has found the needle.
  EXPECT_EQ(matcher->ValueKind(), MatcherValue::kItem);
  testing::TextContents text("a haystack with a NEEDLE in it" + std::string(100, '.'), 7);
  auto item = props::ShellItem::FromPath("/");
  matcher->SetItem(item.get());
  matcher->SetContentsSource(&text);
  EXPECT_TRUE(matcher->Evaluate());
  EXPECT_EQ(text.pieces, 4);  // "NEEDLE" straddled pieces 3 and 4
  EXPECT_NE(static_cast<KeywordMatcher&>(*matcher).excerpt().find("with a NEEDLE"), std::string::npos);
  // A phrase matches across line breaks and runs of blanks.
  auto phrase = TextRule(ContentsKey(), "needle  in it");
  matcher = phrase->CreateMatcher(false);
  testing::TextContents wrapped("the needle\r\n   in it");
  matcher->SetItem(item.get());
  matcher->SetContentsSource(&wrapped);
  EXPECT_TRUE(matcher->Evaluate());

  auto list = TextRule(NameKey(), BuildKeywordList("a", "", "zz"));
  list->SetKind(kKindKeywordList);
  matcher = list->CreateMatcher(false);
  ASSERT_NE(dynamic_cast<KeywordMatcher*>(matcher.get()), nullptr);
  matcher->SetText("abc");
  EXPECT_TRUE(matcher->Evaluate());
  matcher->SetText("abczz");
  EXPECT_FALSE(matcher->Evaluate());

  // A regular expression that does not compile yields no matcher; a reserved mode neither.
  EXPECT_EQ(TextRule(NameKey(), "(unclosed")->CreateMatcher(false), nullptr);
  // The front end learns why, from the same compilation the matcher would make.
  std::string why;
  EXPECT_FALSE(CheckTextRule(*TextRule(NameKey(), "(unclosed"), &why));
  EXPECT_NE(why.find("parenthesis"), std::string::npos) << why;
  auto freeform = TextRule(NameKey(), "(a OR b");
  freeform->SetKind(kKindFreeform);
  EXPECT_FALSE(CheckTextRule(*freeform, &why));
  EXPECT_TRUE(CheckTextRule(*TextRule(NameKey(), "*.txt"), &why));
  auto reserved = TextRule(NameKey(), "x");
  reserved->SetKind(7);
  EXPECT_EQ(reserved->CreateMatcher(false), nullptr);
}

}  // namespace
}  // namespace trovix::rules
