// The search panel as a user drives it: typing values into real rule boxes, Enter, the mode
// switch, indents and contexts, layouts, and the rule list it hands to the frame.
#include "views/frame/search_pane.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QComboBox>
#include <QKeyEvent>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>

#include "app/settings/saved_lists.h"
#include "props/catalogue.h"
#include "rules/compare_flags.h"
#include "rules/value/value_syntax.h"
#include "tests/support/search_fixtures.h"
#include "views/rule_boxes/property_picker.h"
#include "views/rule_boxes/root_box.h"
#include "views/rule_boxes/rule_box.h"

namespace trovix::views {
namespace {

using trovix::testing::Prop;

rules::RulePtr Parsed(std::string_view property, std::string_view text, int context = 0, int indent = 0) {
  rules::RulePtr rule = rules::Rule::CreateFor(Prop(property));
  EXPECT_TRUE(rules::ParseRuleText(*rule, text)) << property << " " << text;
  rule->SetContext(context);
  rule->SetIndent(indent);
  return rule;
}

// The first catalogue property whose rules have `kind`.
const props::PropertyInfo* PropertyOfKind(int32_t kind) {
  for (const auto& entry : props::DefaultCatalogue().entries())
    if (rules::Rule::CreateFor(*entry)->Kind() == kind) return entry.get();
  return nullptr;
}

QLineEdit* LineOf(RuleBox* box) {
  if (auto* line = qobject_cast<QLineEdit*>(box->valueWidget())) return line;
  return qobject_cast<QComboBox*>(box->valueWidget())->lineEdit();
}

// A key press and release carrying `text`, as a keyboard of another language sends it.
void TypeText(QWidget* widget, const QString& text) {
  for (const QChar c : text) {
    QKeyEvent press(QEvent::KeyPress, 0, Qt::NoModifier, QString(c));
    QApplication::sendEvent(widget, &press);
    QKeyEvent release(QEvent::KeyRelease, 0, Qt::NoModifier, QString(c));
    QApplication::sendEvent(widget, &release);
  }
}

// The boxes' properties, top to bottom.
std::vector<std::string> Properties(const SearchPane& pane) {
  std::vector<std::string> names;
  for (RuleBox* box : pane.boxes()) names.push_back(box->Property()->name);
  return names;
}

std::vector<rules::RulePtr> Collect(SearchPane& pane) {
  std::vector<rules::RulePtr> rules;
  QString why;
  EXPECT_TRUE(pane.CollectRules(&rules, &why)) << why.toStdString();
  return rules;
}

TEST(SearchPane, RuleListOfEveryKindRoundTrips) {
  std::vector<rules::RulePtr> list;
  list.push_back(Parsed("System.ItemNameDisplay", "report*.txt"));
  list.push_back(Parsed("System.ItemNameDisplay", "annual \"final draft\"", rules::kContextOr, 1));
  rules::RulePtr exact = Parsed("System.ItemNameDisplay", "=notes.md", rules::kContextAndNot, 1);
  list.push_back(exact);
  rules::RulePtr whole_words = Parsed("System.ItemNameDisplay", "budget", rules::kContextOrNot, 0);
  whole_words->SetFlags(whole_words->Flags() | rules::cf::kWholeWords);  // as the text dialog sets it
  list.push_back(whole_words);
  list.push_back(Parsed("System.Size", ">=50 KB", rules::kContextAnd, 1));
  list.push_back(Parsed("System.Size", "3 .. 5", rules::kContextOr, 2));
  list.push_back(Parsed("System.Size", "<>10"));
  list.push_back(Parsed("System.DateModified", "yesterday", rules::kContextOr));
  list.push_back(Parsed("System.DateModified", "2014"));
  if (const props::PropertyInfo* real = PropertyOfKind(rules::kKindFloat)) {
    rules::RulePtr f = rules::Rule::CreateFor(*real);
    ASSERT_TRUE(rules::ParseRuleText(*f, "1.5 .. 2.25"));
    list.push_back(f);
  }
  rules::RulePtr folder = rules::Rule::CreateFor(Prop("Stock.IsFolder"));
  ASSERT_TRUE(folder->SetOption(rules::kOptionEquals, 1));
  list.push_back(folder);
  rules::RulePtr type = rules::Rule::CreateFor(Prop("Stock.Kind"));
  ASSERT_EQ(type->Kind(), rules::kKindEnumText);
  ASSERT_TRUE(type->SetOption(rules::kOptionEquals, 2));
  type->SetContext(rules::kContextOr);
  list.push_back(type);
  list.push_back(Parsed("Stock.Algorithmic", "$System.Size>1 & $System.Size<10"));

  SearchPane pane;
  pane.SetRules(list);
  ASSERT_EQ(pane.boxes().size(), list.size());
  const std::vector<rules::RulePtr> back = Collect(pane);
  ASSERT_EQ(back.size(), list.size());
  for (size_t i = 0; i < list.size(); ++i)
    EXPECT_TRUE(back[i]->Equals(*list[i])) << i << " " << list[i]->Describe() << " / " << back[i]->Describe();
  // The rules handed out are copies: editing the boxes later leaves them alone.
  EXPECT_NE(back[0].get(), list[0].get());
  EXPECT_EQ(pane.boxes()[1]->ValueText(), QStringLiteral("annual \"final draft\""));
  EXPECT_EQ(pane.boxes()[7]->ValueText(), QStringLiteral("yesterday"));
}

TEST(SearchPane, TypedValuesAreParsedAndBadTextIsRefusedByName) {
  SearchPane pane;
  pane.SetRules({Parsed("System.ItemNameDisplay", "x"), rules::Rule::CreateFor(Prop("System.Size"))});
  pane.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&pane));
  RuleBox* name = pane.boxes()[0];
  RuleBox* size = pane.boxes()[1];
  QSignalSpy edited(&pane, &SearchPane::rulesEdited);

  QLineEdit* line = LineOf(size);
  QTest::keyClicks(line, ">=2 KB");
  EXPECT_TRUE(size->IsValid());
  std::vector<rules::RulePtr> rules = Collect(pane);
  ASSERT_EQ(rules.size(), 2u);
  EXPECT_EQ(rules[1]->Min(), 2048u);
  EXPECT_GT(edited.count(), 0);

  // Letters where a size belongs: the box is marked, says why, and the list is refused.
  line->clear();
  QTest::keyClicks(line, "big");
  EXPECT_FALSE(size->IsValid());
  EXPECT_TRUE(line->property("invalid").toBool());
  EXPECT_TRUE(line->toolTip().contains("not a valid value"));
  EXPECT_TRUE(line->toolTip().contains(">=50 KB"));  // the accepted forms follow the reason
  QString why;
  EXPECT_FALSE(pane.CollectRules(&rules, &why));
  EXPECT_TRUE(why.contains("Size")) << why.toStdString();
  EXPECT_TRUE(why.contains("big"));

  // Fixing the text clears the mark.
  line->clear();
  QTest::keyClicks(line, "3 .. 5");
  EXPECT_TRUE(size->IsValid());
  EXPECT_FALSE(line->property("invalid").toBool());

  // Text that is not ASCII: no size, but a fine name.
  line->clear();
  TypeText(line, QStringLiteral("\u00fc\u00df"));
  EXPECT_FALSE(size->IsValid());
  line->clear();
  QTest::keyClicks(line, "7");
  LineOf(name)->clear();
  TypeText(LineOf(name), QStringLiteral("\u00fcber"));
  rules = Collect(pane);
  ASSERT_EQ(rules.size(), 2u);
  EXPECT_EQ(rules[0]->Text(), "\u00fcber");

  // A regular expression that does not compile, and an expression with an error.
  pane.SetRules({rules::Rule::CreateFor(Prop("Stock.Algorithmic"))});
  QTest::keyClicks(LineOf(pane.boxes()[0]), "$System.Size>");
  EXPECT_FALSE(pane.boxes()[0]->IsValid());
  EXPECT_FALSE(pane.CollectRules(&rules, &why));
  EXPECT_TRUE(why.contains("Complex"));
}

TEST(SearchPane, RefusedBoxTakesTheFocus) {
  SearchPane pane;
  pane.SetRules({Parsed("System.ItemNameDisplay", "x"), rules::Rule::CreateFor(Prop("System.Size"))});
  pane.show();
  QApplication::setActiveWindow(&pane);
  ASSERT_TRUE(QTest::qWaitForWindowActive(&pane));
  LineOf(pane.boxes()[0])->setFocus();
  QTest::keyClicks(LineOf(pane.boxes()[1]), "..x");
  std::vector<rules::RulePtr> rules;
  QString why;
  ASSERT_FALSE(pane.CollectRules(&rules, &why));
  EXPECT_EQ(QApplication::focusWidget(), LineOf(pane.boxes()[1]));
}

TEST(SearchPane, EmptyBoxesGiveNoRulesAndKeepTheGroupingSound) {
  SearchPane pane;
  rules::RulePtr empty = rules::Rule::CreateFor(Prop("System.Size"));
  pane.SetRules({empty, Parsed("System.ItemNameDisplay", "a", rules::kContextAnd, 0)});
  pane.boxes()[1]->SetIndent(1);
  // The empty first box is left out; the name rule is now the first and cannot be indented.
  const std::vector<rules::RulePtr> rules = Collect(pane);
  ASSERT_EQ(rules.size(), 1u);
  EXPECT_EQ(rules[0]->Indent(), 0);
}

TEST(SearchPane, EnterStartsFromEveryKindOfBox) {
  SearchPane pane;
  pane.SetRules({Parsed("System.ItemNameDisplay", "a"), Parsed("System.DateModified", "today"),
                 rules::Rule::CreateFor(Prop("Stock.Kind"))});
  QSignalSpy start(&pane, &SearchPane::startStopRequested);
  QTest::keyClick(LineOf(pane.boxes()[0]), Qt::Key_Return);
  EXPECT_EQ(start.count(), 1);
  QTest::keyClick(LineOf(pane.boxes()[1]), Qt::Key_Enter);
  EXPECT_EQ(start.count(), 2);
  QTest::keyClick(pane.boxes()[2]->valueWidget(), Qt::Key_Return);
  EXPECT_EQ(start.count(), 3);
  QTest::keyClick(pane.rootBox()->combo()->lineEdit(), Qt::Key_Return);
  EXPECT_EQ(start.count(), 4);
  pane.startButton()->click();
  EXPECT_EQ(start.count(), 5);
  // The root box does not collect what was typed as an entry of its drop-down.
  EXPECT_EQ(pane.rootBox()->combo()->count(), 0);
}

TEST(SearchPane, RunningSwapsStartAndStopAndShowsTheAnimation) {
  SearchPane pane;
  pane.show();
  EXPECT_EQ(pane.startButton()->text(), "Start");
  EXPECT_TRUE(pane.startButton()->isDefault());
  EXPECT_FALSE(pane.busyIndicator()->isVisible());
  pane.SetRunning(true);
  EXPECT_EQ(pane.startButton()->text(), "Stop");
  EXPECT_TRUE(pane.busyIndicator()->isVisible());
  pane.SetRunning(false);
  EXPECT_EQ(pane.startButton()->text(), "Start");
  EXPECT_FALSE(pane.busyIndicator()->isVisible());
}

TEST(SearchPane, PlainModeOffersTheSimpleListAndHidesGrouping) {
  const std::vector<PickerGroup> plain = PickerGroups(true, "System.ItemNameDisplay, System.Size");
  ASSERT_EQ(plain.size(), 1u);
  EXPECT_EQ(plain[0].name, "Simple/Common");
  std::vector<std::string> offered_plain;
  for (const props::PropertyInfo* info : plain[0].properties) offered_plain.push_back(info->name);
  EXPECT_EQ(offered_plain, (std::vector<std::string>{"*", "System.ItemNameDisplay", "System.Size"}));

  const std::vector<PickerGroup> advanced = PickerGroups(false, "System.ItemNameDisplay");
  ASSERT_GT(advanced.size(), 2u);
  EXPECT_EQ(advanced[0].name, "Simple/Common");
  size_t offered = 0;
  for (const PickerGroup& g : advanced) offered += g.properties.size();
  EXPECT_GT(offered, 50u);

  SearchPane pane;
  pane.SetSimplePropertyList("System.ItemNameDisplay,System.Size");
  pane.SetPlainMode(true);
  EXPECT_TRUE(pane.PlainMode());
  pane.DefaultRules();
  ASSERT_EQ(Properties(pane), std::vector<std::string>{"*"});  // "Find"
  EXPECT_TRUE(pane.boxes()[0]->contextCombo()->isHidden());
  EXPECT_TRUE(pane.boxes()[0]->indentButton()->isHidden());
  PropertyPopup* popup = pane.boxes()[0]->picker()->OpenPopup();
  EXPECT_EQ(popup->VisibleProperties().size(), 3u);
  popup->close();

  // Choosing from the advanced list, filtered by typing, moves the box to that property.
  pane.SetPlainMode(false);
  EXPECT_FALSE(pane.boxes()[0]->contextCombo()->isHidden());
  popup = pane.boxes()[0]->picker()->OpenPopup();
  QTest::keyClicks(popup->filterEdit(), "size on");
  const std::vector<const props::PropertyInfo*> shown = popup->VisibleProperties();
  ASSERT_FALSE(shown.empty());
  for (const props::PropertyInfo* info : shown)
    EXPECT_TRUE(QString::fromStdString(info->label).contains("size on", Qt::CaseInsensitive) ||
                QString::fromStdString(info->name).contains("size on", Qt::CaseInsensitive));
  QTest::keyClick(popup->filterEdit(), Qt::Key_Return);
  EXPECT_EQ(pane.boxes()[0]->Property(), shown.front());
  EXPECT_EQ(pane.boxes()[0]->valueWidget()->accessibleDescription(),
            QString::fromStdString(shown.front()->label));
}

TEST(SearchPane, ChangingThePropertyKeepsTextThatStillFits) {
  SearchPane pane;
  pane.SetRules({Parsed("System.ItemNameDisplay", "50 KB")});
  RuleBox* box = pane.boxes()[0];
  box->SetProperty(Prop("System.Size"));
  EXPECT_EQ(box->ValueText(), "50 KB");
  std::vector<rules::RulePtr> rules = Collect(pane);
  ASSERT_EQ(rules.size(), 1u);
  EXPECT_EQ(rules[0]->Min(), 51200u);
  box->SetProperty(Prop("System.DateModified"));
  EXPECT_TRUE(box->ValueText().isEmpty());
  EXPECT_TRUE(box->IsValid());
  EXPECT_TRUE(Collect(pane).empty());
}

TEST(SearchPane, IndentOutdentAndContextShapeTheRuleList) {
  SearchPane pane;
  pane.SetRules({Parsed("System.ItemNameDisplay", "a"), Parsed("System.ItemNameDisplay", "b"),
                 Parsed("System.Size", "10")});
  const std::vector<RuleBox*>& boxes = pane.boxes();
  EXPECT_FALSE(boxes[0]->indentButton()->isEnabled());  // the first rule stays at the top level
  boxes[1]->indentButton()->click();
  boxes[1]->indentButton()->click();  // one level below the rule above at most
  boxes[2]->indentButton()->click();
  boxes[2]->indentButton()->click();
  std::vector<rules::RulePtr> rules = Collect(pane);
  EXPECT_EQ(rules[1]->Indent(), 1);
  EXPECT_EQ(rules[2]->Indent(), 2);
  pane.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&pane));
  EXPECT_GT(boxes[2]->picker()->x(), boxes[1]->picker()->x());  // visibly deeper
  EXPECT_GT(boxes[1]->picker()->x(), boxes[0]->picker()->x());

  // Outdenting the middle rule pulls the one below it up as well.
  boxes[1]->outdentButton()->click();
  rules = Collect(pane);
  EXPECT_EQ(rules[1]->Indent(), 0);
  EXPECT_EQ(rules[2]->Indent(), 1);

  boxes[2]->contextCombo()->setCurrentIndex(rules::kContextOrNot);
  boxes[0]->contextCombo()->setCurrentIndex(rules::kContextAndNot);
  rules = Collect(pane);
  EXPECT_EQ(rules[2]->Context(), rules::kContextOrNot);
  EXPECT_EQ(rules[0]->Context(), rules::kContextAndNot);
}

TEST(SearchPane, AddRemoveClearAndDefaults) {
  using Names = std::vector<std::string>;
  SearchPane pane;
  EXPECT_EQ(Properties(pane), Names{"System.ItemNameDisplay"});  // a new panel's default box
  pane.SetRules({Parsed("System.ItemNameDisplay", "a"), Parsed("System.Size", "10")});

  pane.addRuleButton()->click();
  ASSERT_EQ(Properties(pane), (Names{"System.ItemNameDisplay", "System.Size", "System.ItemNameDisplay"}));
  EXPECT_EQ(Collect(pane).size(), 2u);  // the new box is empty

  pane.boxes()[1]->removeButton()->click();
  EXPECT_EQ(Properties(pane), (Names{"System.ItemNameDisplay", "System.ItemNameDisplay"}));

  pane.SetRules({Parsed("System.ItemNameDisplay", "a"), Parsed("System.Size", "10"),
                 Parsed("System.DateModified", "today")});
  pane.ShowRuleError("Please specify what to search for, e.g. a filename");
  EXPECT_FALSE(pane.RuleErrorText().isEmpty());
  pane.ClearAll();
  EXPECT_TRUE(pane.RuleErrorText().isEmpty());  // an edit clears the message
  ASSERT_EQ(pane.boxes().size(), 3u);
  for (RuleBox* box : pane.boxes()) EXPECT_TRUE(box->ValueText().isEmpty());
  EXPECT_TRUE(Collect(pane).empty());

  pane.DefaultRules();
  ASSERT_EQ(Properties(pane), Names{"System.ItemNameDisplay"});
  EXPECT_TRUE(pane.boxes()[0]->ValueText().isEmpty());

  // Removing the last box leaves only "Add new rule"; an empty rule list brings the default.
  pane.RemoveRule();
  EXPECT_TRUE(pane.boxes().empty());
  pane.SetRules({});
  EXPECT_EQ(pane.boxes().size(), 1u);
}

TEST(SearchPane, RemoveClosesTheFocusedBox) {
  SearchPane pane;
  pane.SetRules({Parsed("System.ItemNameDisplay", "a"), Parsed("System.Size", "10"),
                 Parsed("System.DateModified", "today")});
  pane.show();
  QApplication::setActiveWindow(&pane);
  ASSERT_TRUE(QTest::qWaitForWindowActive(&pane));
  LineOf(pane.boxes()[1])->setFocus();
  pane.RemoveRule();
  ASSERT_EQ(Properties(pane), (std::vector<std::string>{"System.ItemNameDisplay", "System.DateModified"}));
  // Adding goes below the focused box.
  LineOf(pane.boxes()[0])->setFocus();
  pane.AddRule();
  EXPECT_EQ(Properties(pane), (std::vector<std::string>{"System.ItemNameDisplay", "System.ItemNameDisplay",
                                                        "System.DateModified"}));
}

TEST(SearchPane, LayoutsCaptureAndRestoreTheBoxes) {
  SearchPane pane;
  pane.resize(600, 300);
  pane.SetRules({Parsed("System.ItemNameDisplay", "a"), Parsed("System.Size", "10", rules::kContextOr, 1),
                 Parsed("System.DateModified", "today", rules::kContextAndNot, 1)});
  const app::RuleBoxLayout layout = pane.CaptureLayout("three");
  EXPECT_TRUE(app::IsValidLayout(layout));
  EXPECT_EQ(layout.szName, "three");
  ASSERT_EQ(layout.binToolID.size(), 3u);
  EXPECT_EQ(layout.binBands.size(), 5u * app::kBandRecordSize);
  const auto size_key = Prop("System.Size").key.Bytes();
  EXPECT_TRUE(std::equal(size_key.begin(), size_key.end(), layout.binProps.begin() + 20));
  EXPECT_EQ(layout.nRebarWidth, 600);

  SearchPane other;
  other.RestoreLayout(layout);
  ASSERT_EQ(Properties(other),
            (std::vector<std::string>{"System.ItemNameDisplay", "System.Size", "System.DateModified"}));
  EXPECT_EQ(other.boxes()[1]->Context(), rules::kContextOr);
  EXPECT_EQ(other.boxes()[2]->Indent(), 1);
  EXPECT_EQ(other.boxes()[2]->Context(), rules::kContextAndNot);
  for (RuleBox* box : other.boxes()) EXPECT_TRUE(box->ValueText().isEmpty());  // layouts hold no values

  // A layout that breaks the length rules changes nothing.
  app::RuleBoxLayout broken = layout;
  broken.binToolID.push_back(0xE803);
  other.RestoreLayout(broken);
  EXPECT_EQ(other.boxes().size(), 3u);
  app::RuleBoxLayout unknown = layout;
  std::fill(unknown.binProps.begin(), unknown.binProps.end(), 0x5A);
  other.DefaultRules();
  other.RestoreLayout(unknown);
  ASSERT_EQ(other.boxes().size(), 1u);
  EXPECT_EQ(other.CaptureLayout("x").binToolID.size(), 1u);
}

TEST(SearchPane, RootBoxOffersFrequentFoldersMostUsedFirst) {
  SearchPane pane;
  pane.SetRootText("/tmp|/var");
  pane.SetFrequentFolders({{"/a", 2, 0}, {"/b", 5, 0}, {"", 9, 0}, {"/c", 2, 0}, {"/d", 0, 0}});
  QComboBox* combo = pane.rootBox()->combo();
  QStringList offered;
  for (int i = 0; i < combo->count(); ++i) offered << combo->itemText(i);
  EXPECT_EQ(offered, (QStringList{"/b", "/a", "/c"}));
  EXPECT_EQ(pane.RootText(), "/tmp|/var");  // the typed roots stay
}

TEST(SearchPane, EveryControlIsNamed) {
  SearchPane pane;
  pane.SetRules({Parsed("System.ItemNameDisplay", "a"), Parsed("System.DateModified", "today"),
                 rules::Rule::CreateFor(Prop("Stock.Kind"))});
  for (QWidget* w : pane.findChildren<QWidget*>()) {
    if (!w->focusPolicy() || qobject_cast<QLineEdit*>(w->parentWidget())) continue;
    if (qobject_cast<QAbstractButton*>(w) || qobject_cast<QComboBox*>(w) || qobject_cast<QLineEdit*>(w)) {
      EXPECT_FALSE(w->accessibleName().isEmpty()) << w->metaObject()->className();
    }
  }
  // The property is the value's description (the names by place are the accessibility test's).
  EXPECT_EQ(pane.boxes()[2]->valueWidget()->accessibleDescription(), "Type");
}

TEST(SearchPane, TabRunsThroughEachRowInOrder) {
  SearchPane pane;
  pane.SetRules({Parsed("System.ItemNameDisplay", "a"), Parsed("System.Size", "10")});
  pane.AddRule();  // added in the middle of the chain: below the last box
  pane.boxes()[0]->SetProperty(Prop("System.DateModified"));  // a new value widget in the first row
  std::vector<QWidget*> wanted;
  for (RuleBox* box : pane.boxes())
    wanted.insert(wanted.end(), {box->contextCombo(), box->picker(), box->valueWidget(), box->removeButton()});
  wanted.push_back(pane.addRuleButton());
  std::vector<QWidget*> seen;
  QWidget* w = pane.startButton();
  for (int i = 0; i < 200 && w != pane.addRuleButton(); ++i) {
    w = w->nextInFocusChain();
    if (std::find(wanted.begin(), wanted.end(), w) != wanted.end()) seen.push_back(w);
  }
  EXPECT_EQ(seen, wanted);
}

}  // namespace
}  // namespace trovix::views
