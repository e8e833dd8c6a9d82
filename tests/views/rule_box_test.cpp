// One rule box on its own: the drop-downs of dates and enumerated properties give the same
// rules as the value syntax, and the box's value survives what the user does around it.
#include "views/rule_boxes/rule_box.h"

#include <gtest/gtest.h>

#include <QComboBox>
#include <QLineEdit>
#include <QTest>
#include <QToolButton>

#include "props/catalogue.h"
#include "rules/compare_flags.h"
#include "rules/value/value_syntax.h"
#include "tests/support/search_fixtures.h"

namespace trovix::views {
namespace {

using trovix::testing::Prop;

rules::RulePtr Take(const RuleBox& box) {
  rules::RulePtr rule;
  QString why;
  EXPECT_TRUE(box.TakeRule(&rule, &why)) << why.toStdString();
  return rule;
}

TEST(RuleBox, PeriodFromTheDropDownEqualsTheTypedWord) {
  RuleBox chosen(Prop("System.DateModified"));
  auto* list = qobject_cast<QComboBox*>(chosen.valueWidget());
  ASSERT_NE(list, nullptr);
  ASSERT_EQ(list->count(), 10);
  EXPECT_EQ(list->itemText(0), "last hour");
  EXPECT_EQ(list->itemText(9), "long ago");
  emit list->activated(2);  // "yesterday"

  RuleBox typed(Prop("System.DateModified"));
  QTest::keyClicks(qobject_cast<QComboBox*>(typed.valueWidget())->lineEdit(), "Yesterday");
  rules::RulePtr a = Take(chosen);
  rules::RulePtr b = Take(typed);
  ASSERT_TRUE(a && b);
  EXPECT_TRUE(a->Equals(*b));
  EXPECT_EQ(a->Flags() & rules::cf::kFixedPeriod, rules::cf::kFixedPeriod);
  EXPECT_EQ(a->Flags() >> 16, 3u);

  // An unknown word is refused; an empty box gives no rule and is no error.
  QTest::keyClicks(qobject_cast<QComboBox*>(typed.valueWidget())->lineEdit(), "s");
  EXPECT_FALSE(typed.IsValid());
  typed.ClearValue();
  EXPECT_TRUE(typed.IsValid());
  EXPECT_EQ(Take(typed), nullptr);
}

TEST(RuleBox, TypeOffersTheKindNamesAndAnEmptyChoice) {
  RuleBox box(Prop("Stock.Kind"));
  auto* list = qobject_cast<QComboBox*>(box.valueWidget());
  ASSERT_NE(list, nullptr);
  EXPECT_FALSE(list->isEditable());
  EXPECT_FALSE(box.optionsButton()->isVisibleTo(&box));  // nothing finer to set
  const props::OptionList& kinds = *props::OptionsOf(Prop("Stock.Kind"));
  ASSERT_EQ(list->count(), static_cast<int>(kinds.options.size()) + 1);
  EXPECT_EQ(Take(box), nullptr);

  box.SetValueText(QString::fromStdString(kinds.options[1].label).toUpper());  // any case
  rules::RulePtr rule = Take(box);
  ASSERT_NE(rule, nullptr);
  EXPECT_EQ(rule->Kind(), rules::kKindEnumText);
  EXPECT_EQ(rule->OptionIndex(), 1);
  EXPECT_EQ(rule->Text(), kinds.options[1].text);
  EXPECT_EQ(box.ValueText().toStdString(), kinds.options[1].label);

  box.ClearValue();
  EXPECT_EQ(Take(box), nullptr);
}

TEST(RuleBox, DialogSettingsStayUntilTheTextIsRetyped) {
  // A rule whose flags no typed text gives (whole words, as the text dialog sets them).
  rules::RulePtr rule = rules::Rule::CreateFor(Prop("System.ItemNameDisplay"));
  ASSERT_TRUE(rules::ParseRuleText(*rule, "plan"));
  rule->SetFlags(rule->Flags() | rules::cf::kWholeWords);
  rule->SetIndent(2);
  rule->SetContext(rules::kContextOrNot);
  RuleBox box(*rule);
  EXPECT_EQ(box.Indent(), 2);
  EXPECT_EQ(box.Context(), rules::kContextOrNot);
  EXPECT_TRUE(Take(box)->Equals(*rule));

  auto* line = qobject_cast<QLineEdit*>(box.valueWidget());
  QTest::keyClicks(line, "s");
  rules::RulePtr retyped = Take(box);
  EXPECT_EQ(retyped->Text(), "plans");
  EXPECT_EQ(retyped->Flags() & rules::cf::kWholeWords, 0u);
  EXPECT_EQ(retyped->Context(), rules::kContextOrNot);  // typing keeps the row's context

  // "*" alone is no pattern.
  line->clear();
  QTest::keyClicks(line, "*");
  EXPECT_FALSE(box.IsValid());
}

}  // namespace
}  // namespace trovix::views
