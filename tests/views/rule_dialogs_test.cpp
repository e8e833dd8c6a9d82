// The rule dialogs driven as a user drives them: the controls are found by their object names,
// typed into and clicked, and OK or Cancel pressed; then the rule (or expression) is compared.
// (Their pictures are taken by the screenshot test.)
#include "views/rule_boxes/rule_dialogs.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QRadioButton>
#include <QTimer>
#include <QToolButton>
#include <QtTest/QTest>

#include <functional>

#include "base/bits.h"
#include "base/status.h"
#include "base/string_table.h"
#include "props/catalogue.h"
#include "rules/expression/expression.h"
#include "rules/patterns/text_pattern.h"
#include "rules/rule.h"
#include "rules/value/value_syntax.h"
#include "views/rule_boxes/expression_menu.h"
#include "views/program/speech.h"

namespace trovix::views {
namespace {

using rules::Rule;
using rules::RulePtr;
namespace cf = rules::cf;

RulePtr RuleOn(const char* name, const char* typed = nullptr) {
  const props::PropertyInfo* info = props::DefaultCatalogue().FindProperty(name);
  if (!info) {
    ADD_FAILURE() << name;
    return Rule::CreateFor(nullptr, {});
  }
  RulePtr rule = Rule::CreateFor(*info);
  if (typed) {
    EXPECT_TRUE(rules::ParseRuleText(*rule, typed)) << typed;
  }
  return rule;
}

// Runs `open` (which shows a modal dialog) and, once the dialog is up, `drive` on it. The
// driver must close the dialog; one left open is a failure and is cancelled.
template <typename Result>
Result WithDialog(const std::function<void(QDialog*)>& drive, const std::function<Result()>& open) {
  bool driven = false;
  QTimer timer;
  timer.setInterval(10);
  QObject::connect(&timer, &QTimer::timeout, [&] {
    auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
    if (!dialog || driven) return;
    driven = true;
    timer.stop();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(dialog));
    drive(dialog);
    if (dialog->isVisible()) {
      ADD_FAILURE() << "the driver left the dialog open";
      dialog->reject();
    }
  });
  timer.start();
  Result result = open();
  EXPECT_TRUE(driven);
  return result;
}

template <typename W>
W* Find(QDialog* dialog, const char* name) {
  W* widget = dialog->findChild<W*>(name);
  EXPECT_NE(widget, nullptr) << name;
  return widget;
}

QPushButton* Button(QDialog* dialog, QDialogButtonBox::StandardButton which) {
  return Find<QDialogButtonBox>(dialog, "buttons")->button(which);
}

void Retype(QLineEdit* edit, const QString& text) {
  edit->setFocus();
  edit->selectAll();
  QTest::keyClick(edit, Qt::Key_Backspace);
  QTest::keyClicks(edit, text);
}

// A press and release on the button, with every signal a mouse click gives. (Synthesised mouse
// events right after another dialog closed are sometimes taken for a double click offscreen.)
void Click(QAbstractButton* button) {
  ASSERT_TRUE(button->isVisible() && button->isEnabled()) << button->objectName().toStdString();
  button->click();
}

// Every control a user can reach carries a name for screen readers.
void ExpectAccessibleNames(QDialog* dialog) {
  for (QWidget* widget : dialog->findChildren<QWidget*>()) {
    const bool control = qobject_cast<QLineEdit*>(widget) || qobject_cast<QAbstractButton*>(widget);
    if (control) {
      EXPECT_FALSE(widget->accessibleName().isEmpty()) << widget->metaObject()->className();
    }
  }
}

// ---------------------------------------------------------------------------------------
// Text rules.

TEST(TextRuleDialogTest, OptionsAndPatternApplyOnOk) {
  RulePtr rule = RuleOn("System.ItemNameDisplay", "report");
  const bool changed = WithDialog<bool>(
      [](QDialog* dialog) {
        ExpectAccessibleNames(dialog);
        EXPECT_TRUE(Find<QRadioButton>(dialog, "simpleMode")->isChecked());
        EXPECT_EQ(Find<QLineEdit>(dialog, "simpleEdit")->text(), "report");
        EXPECT_TRUE(Find<QCheckBox>(dialog, "ignoreCase")->isChecked());
        EXPECT_TRUE(Find<QCheckBox>(dialog, "autoWildcards")->isChecked());

        Retype(Find<QLineEdit>(dialog, "simpleEdit"), "*.txt");
        EXPECT_EQ(Find<QLabel>(dialog, "patternKind")->text(), "wildcard");
        Retype(Find<QLineEdit>(dialog, "simpleEdit"), "^a+$");
        EXPECT_EQ(Find<QLabel>(dialog, "patternKind")->text(), "regular expression");
        Click(Find<QCheckBox>(dialog, "autoWildcards"));
        EXPECT_EQ(Find<QLabel>(dialog, "patternKind")->text(), "plain text");
        Click(Find<QCheckBox>(dialog, "autoWildcards"));
        Retype(Find<QLineEdit>(dialog, "simpleEdit"), "*.txt");

        Click(Find<QCheckBox>(dialog, "exactMatch"));
        Click(Find<QCheckBox>(dialog, "wholeWords"));
        Click(Find<QCheckBox>(dialog, "ignoreCase"));
        Click(Button(dialog, QDialogButtonBox::Ok));
      },
      [&] { return EditTextRule(nullptr, *rule); });
  EXPECT_TRUE(changed);
  EXPECT_EQ(rule->Kind(), rules::kKindText);
  EXPECT_EQ(rule->Text(), "*.txt");
  EXPECT_EQ(rule->Flags(), cf::kExact | cf::kWholeWords);
  // Applied values are remembered for the next text rule.
  EXPECT_EQ(rules::DefaultFlags(rules::kKindText) & 0xFFFF, cf::kExact | cf::kWholeWords);
  rules::ResetDefaults();
}

TEST(TextRuleDialogTest, KeywordListPartsAndFreeform) {
  RulePtr rule = RuleOn("System.ItemNameDisplay", "alpha");
  EXPECT_TRUE(WithDialog<bool>(
      [](QDialog* dialog) {
        Click(Find<QRadioButton>(dialog, "keywordMode"));
        // What was typed in the simple mode is not lost.
        EXPECT_EQ(Find<QLineEdit>(dialog, "allOfEdit")->text(), "alpha");
        QTest::keyClicks(Find<QLineEdit>(dialog, "anyOfEdit"), "beta \"gamma delta\"");
        QTest::keyClicks(Find<QLineEdit>(dialog, "noneOfEdit"), "draft");
        Click(Button(dialog, QDialogButtonBox::Ok));
      },
      [&] { return EditTextRule(nullptr, *rule); }));
  EXPECT_EQ(rule->Kind(), rules::kKindKeywordList);
  EXPECT_EQ(rule->Text(), rules::BuildKeywordList("alpha", "beta \"gamma delta\"", "draft"));

  // The dialog reads the list back into its parts, and the freeform mode takes a new text.
  EXPECT_TRUE(WithDialog<bool>(
      [](QDialog* dialog) {
        EXPECT_TRUE(Find<QRadioButton>(dialog, "keywordMode")->isChecked());
        EXPECT_EQ(Find<QLineEdit>(dialog, "noneOfEdit")->text(), "draft");
        Click(Find<QRadioButton>(dialog, "freeformMode"));
        Retype(Find<QLineEdit>(dialog, "freeformEdit"), "(this OR that) AND NOT \"other one\"");
        Click(Button(dialog, QDialogButtonBox::Ok));
      },
      [&] { return EditTextRule(nullptr, *rule); }));
  EXPECT_EQ(rule->Kind(), rules::kKindFreeform);
  EXPECT_EQ(rule->Text(), "(this OR that) AND NOT \"other one\"");
  rules::ResetDefaults();
}

TEST(TextRuleDialogTest, CancelAndUnchangedOkLeaveRuleAlone) {
  // The contents are searched for text: no exact match to offer there.
  RulePtr contents = RuleOn("System.Search.Contents", "invoice");
  WithDialog<bool>(
      [](QDialog* dialog) {
        EXPECT_FALSE(Find<QCheckBox>(dialog, "exactMatch")->isEnabled());
        Click(Button(dialog, QDialogButtonBox::Cancel));
      },
      [&] { return EditTextRule(nullptr, *contents); });

  RulePtr rule = RuleOn("System.ItemNameDisplay", "=notes");
  rule->SetSummary("kept");
  const RulePtr before = rule->Clone();
  EXPECT_FALSE(WithDialog<bool>(
      [](QDialog* dialog) {
        Retype(Find<QLineEdit>(dialog, "simpleEdit"), "other");
        Click(Find<QCheckBox>(dialog, "exactMatch"));
        Click(Find<QRadioButton>(dialog, "keywordMode"));
        Click(Button(dialog, QDialogButtonBox::Cancel));
      },
      [&] { return EditTextRule(nullptr, *rule); }));
  EXPECT_TRUE(rule->Equals(*before));
  EXPECT_FALSE(WithDialog<bool>([](QDialog* dialog) { Click(Button(dialog, QDialogButtonBox::Ok)); },
                                [&] { return EditTextRule(nullptr, *rule); }));
  EXPECT_TRUE(rule->Equals(*before));
  EXPECT_EQ(rule->Summary(), "kept");
}

TEST(TextRuleDialogTest, RefusesEmptyTextAndBadRegularExpression) {
  RulePtr rule = RuleOn("System.ItemNameDisplay", "name");
  MessageBoxRecorder boxes;
  EXPECT_TRUE(WithDialog<bool>(
      [&](QDialog* dialog) {
        QLineEdit* edit = Find<QLineEdit>(dialog, "simpleEdit");
        edit->clear();
        EXPECT_FALSE(Button(dialog, QDialogButtonBox::Ok)->isEnabled());
        QTest::keyClicks(edit, "a(b");
        Click(Button(dialog, QDialogButtonBox::Ok));
        ASSERT_EQ(boxes.boxes().size(), 1u);
        EXPECT_EQ(boxes.boxes()[0].caption, "syntax error");
        EXPECT_FALSE(boxes.boxes()[0].text.empty());
        EXPECT_TRUE(dialog->isVisible());
        // Read verbatim, the bracket is just a character.
        Click(Find<QCheckBox>(dialog, "autoWildcards"));
        Click(Button(dialog, QDialogButtonBox::Ok));
        EXPECT_EQ(boxes.boxes().size(), 1u);
      },
      [&] { return EditTextRule(nullptr, *rule); }));
  EXPECT_EQ(rule->Text(), "a(b");
  EXPECT_TRUE(rule->Flags() & cf::kVerbatim);
  rules::ResetDefaults();
}

// ---------------------------------------------------------------------------------------
// Number, Float and Date rules.

TEST(NumberRuleDialogTest, ApproximateValueWithTolerance) {
  RulePtr rule = RuleOn("System.Size", "100");
  EXPECT_TRUE(WithDialog<bool>(
      [](QDialog* dialog) {
        ExpectAccessibleNames(dialog);
        EXPECT_EQ(Find<QLineEdit>(dialog, "valueEdit")->text(), "100");
        EXPECT_FALSE(Find<QLineEdit>(dialog, "toleranceEdit")->isEnabled());
        Click(Find<QCheckBox>(dialog, "approximate"));
        QTest::keyClicks(Find<QLineEdit>(dialog, "toleranceEdit"), "10");
        Click(Button(dialog, QDialogButtonBox::Ok));
      },
      [&] { return EditNumberRule(nullptr, *rule); }));
  EXPECT_EQ(rule->Flags() & ~cf::kShowUnit, cf::kEqual | cf::kApproximate);
  EXPECT_EQ(static_cast<int64_t>(rule->Min()), 100);
  EXPECT_EQ(static_cast<int64_t>(rule->Max()), 10);

  // Reopened, the dialog shows the same value and tolerance; Cancel changes nothing.
  const RulePtr before = rule->Clone();
  EXPECT_FALSE(WithDialog<bool>(
      [](QDialog* dialog) {
        EXPECT_EQ(Find<QLineEdit>(dialog, "valueEdit")->text(), "100");
        EXPECT_TRUE(Find<QCheckBox>(dialog, "approximate")->isChecked());
        EXPECT_EQ(Find<QLineEdit>(dialog, "toleranceEdit")->text(), "10");
        Retype(Find<QLineEdit>(dialog, "valueEdit"), "7");
        Click(Button(dialog, QDialogButtonBox::Cancel));
      },
      [&] { return EditNumberRule(nullptr, *rule); }));
  EXPECT_TRUE(rule->Equals(*before));

  // An empty tolerance leaves the search its 5 percent.
  EXPECT_TRUE(WithDialog<bool>(
      [](QDialog* dialog) {
        Find<QLineEdit>(dialog, "toleranceEdit")->clear();
        Click(Button(dialog, QDialogButtonBox::Ok));
      },
      [&] { return EditNumberRule(nullptr, *rule); }));
  EXPECT_EQ(rule->Max(), kNoValue);
  rules::ResetDefaults();
}

TEST(NumberRuleDialogTest, RangesUnitsAndBadInput) {
  RulePtr rule = RuleOn("System.Size", "1");
  EXPECT_TRUE(WithDialog<bool>(
      [](QDialog* dialog) {
        QLineEdit* value = Find<QLineEdit>(dialog, "valueEdit");
        Retype(value, "abc");
        EXPECT_FALSE(Button(dialog, QDialogButtonBox::Ok)->isEnabled());
        // A tolerance belongs to one value, not to a range.
        Retype(value, "5 .. 3");
        EXPECT_FALSE(Find<QCheckBox>(dialog, "approximate")->isEnabled());
        EXPECT_TRUE(Button(dialog, QDialogButtonBox::Ok)->isEnabled());
        Click(Button(dialog, QDialogButtonBox::Ok));
      },
      [&] { return EditNumberRule(nullptr, *rule); }));
  EXPECT_EQ(rule->Flags(), cf::kBounds);
  EXPECT_EQ(static_cast<int64_t>(rule->Min()), 3);
  EXPECT_EQ(static_cast<int64_t>(rule->Max()), 5);

  // A size typed with its unit is shown in that unit again; a negative tolerance is refused.
  EXPECT_TRUE(WithDialog<bool>(
      [](QDialog* dialog) {
        Retype(Find<QLineEdit>(dialog, "valueEdit"), "50 KB");
        EXPECT_TRUE(Find<QCheckBox>(dialog, "showUnit")->isChecked());
        Click(Find<QCheckBox>(dialog, "approximate"));
        QTest::keyClicks(Find<QLineEdit>(dialog, "toleranceEdit"), "-1");
        EXPECT_FALSE(Button(dialog, QDialogButtonBox::Ok)->isEnabled());
        Retype(Find<QLineEdit>(dialog, "toleranceEdit"), "2 KB");
        Click(Button(dialog, QDialogButtonBox::Ok));
      },
      [&] { return EditNumberRule(nullptr, *rule); }));
  EXPECT_EQ(rule->Flags(), cf::kEqual | cf::kApproximate | cf::kShowUnit);
  EXPECT_EQ(static_cast<int64_t>(rule->Min()), 51200);
  EXPECT_EQ(static_cast<int64_t>(rule->Max()), 2048);
  rules::ResetDefaults();
}

TEST(NumberRuleDialogTest, FloatAndDateRules) {
  RulePtr altitude = RuleOn("System.GPS.Altitude", "12.5");
  EXPECT_TRUE(WithDialog<bool>(
      [](QDialog* dialog) {
        EXPECT_EQ(dialog->findChild<QCheckBox*>("showUnit"), nullptr);
        Click(Find<QCheckBox>(dialog, "approximate"));
        QTest::keyClicks(Find<QLineEdit>(dialog, "toleranceEdit"), "0.25");
        Click(Button(dialog, QDialogButtonBox::Ok));
      },
      [&] { return EditNumberRule(nullptr, *altitude); }));
  EXPECT_EQ(altitude->Flags(), cf::kFloatKind | cf::kEqual | cf::kApproximate);
  EXPECT_EQ(base::BitsAsDouble(altitude->Min()), 12.5);
  EXPECT_EQ(base::BitsAsDouble(altitude->Max()), 0.25);

  // A date has no tolerance (its single value is a whole day); periods are typed as words.
  RulePtr modified = RuleOn("System.DateModified", "1/2/2014");
  EXPECT_TRUE(WithDialog<bool>(
      [](QDialog* dialog) {
        ExpectAccessibleNames(dialog);
        EXPECT_EQ(dialog->findChild<QCheckBox*>("approximate"), nullptr);
        EXPECT_FALSE(Find<QLineEdit>(dialog, "valueEdit")->text().isEmpty());
        Retype(Find<QLineEdit>(dialog, "valueEdit"), "yesterday");
        Click(Button(dialog, QDialogButtonBox::Ok));
      },
      [&] { return EditNumberRule(nullptr, *modified); }));
  RulePtr typed = RuleOn("System.DateModified", "yesterday");
  EXPECT_EQ(modified->Flags(), typed->Flags());
  rules::ResetDefaults();
}

// ---------------------------------------------------------------------------------------
// The Complex rule's editor.

QAction* MenuAction(QMenu* menu, uint32_t string_id) {
  for (QAction* action : menu->actions())
    if (action->data().toUInt() == string_id) return action;
  ADD_FAILURE() << "no menu item " << string_id;
  return nullptr;
}

TEST(ComplexRuleDialogTest, MenuInsertsAtTheCaret) {
  std::string expression = "$System.Size 5";
  EXPECT_TRUE(WithDialog<bool>(
      [](QDialog* dialog) {
        ExpectAccessibleNames(dialog);
        QLineEdit* edit = Find<QLineEdit>(dialog, "expressionEdit");
        QMenu* menu = Find<QToolButton>(dialog, "insertButton")->menu();
        ASSERT_NE(menu, nullptr);
        edit->setCursorPosition(12);
        // "&" is shown as itself, not taken for a shortcut marker.
        EXPECT_EQ(MenuAction(menu, 11326)->text(), "And [&&]");
        MenuAction(menu, 11333)->trigger();  // "At least [>=]"
        EXPECT_EQ(edit->text(), "$System.Size>= 5");
        EXPECT_EQ(edit->cursorPosition(), 14);

        // A function wraps the selection; without one the caret waits inside the brackets.
        edit->setSelection(0, 12);
        MenuAction(menu, 11372)->trigger();  // "Absolute value [abs()]"
        EXPECT_EQ(edit->text(), "abs($System.Size)>= 5");
        edit->end(false);
        MenuAction(menu, 11326)->trigger();  // "And [&]"
        MenuAction(menu, 11374)->trigger();  // "Find in file [grep()]"
        EXPECT_EQ(edit->text(), "abs($System.Size)>= 5&grep()");
        EXPECT_EQ(edit->cursorPosition(), edit->text().size() - 1);
        MenuAction(menu, 11341)->trigger();  // "Sample wildcard ['*.*']"
        EXPECT_EQ(edit->text(), "abs($System.Size)>= 5&grep('*.*')");
        Click(Button(dialog, QDialogButtonBox::Ok));
      },
      [&] { return EditComplexRule(nullptr, &expression); }));
  EXPECT_EQ(expression, "abs($System.Size)>= 5&grep('*.*')");
}

TEST(ComplexRuleDialogTest, MenuOffersTheLanguagesOwnOperatorsAndFunctions) {
  // Each item, put where it belongs, gives an expression the compiler reads: a name it does
  // not know, a wrong count of arguments or a broken bracket would fail the syntax check
  // (mismatched operand kinds are a later, separate complaint).
  std::vector<std::string> functions;
  for (uint32_t id : ExpressionMenuIds()) {
    const std::string label(base::LoadString(id));
    ASSERT_FALSE(label.empty()) << id;
    std::string insert = InsertTextOf(QString::fromStdString(label)).toStdString();
    ASSERT_FALSE(insert.empty()) << label;
    std::string text;
    const size_t open = insert.find('(');
    if (open != std::string::npos && open > 0) {
      functions.push_back(insert.substr(0, open));
      // Every blank argument slot gets a property.
      std::string filled;
      for (char c : insert) filled += (c == ' ') ? std::string("$System.Size") : std::string(1, c);
      if (filled.back() == ')' && filled[filled.size() - 2] == '(') filled.insert(filled.size() - 1, "$System.Size");
      text = filled + "=1";
    } else if (insert == "( )") {
      text = "($System.Size)=1";
    } else if (insert == "!") {
      text = "!$System.Size";
    } else if (insert.front() == '\'' || insert == "-1") {
      text = "$System.ItemNameDisplay=" + insert;
    } else {
      text = "$System.Size" + insert + "1";
    }
    rules::Expression expression;
    const bool ok = expression.Compile(text);
    EXPECT_TRUE(ok || expression.error_code() == rules::kExprOperandMismatch)
        << label << ": " << text << "\n" << expression.ErrorText();
  }
  EXPECT_EQ(functions, (std::vector<std::string>{"len", "mid", "trim", "find", "dpart", "min", "max", "abs", "str",
                                                 "grep"}));
  EXPECT_EQ(PropertyReference("System.Size"), "$System.Size");
  EXPECT_EQ(PropertyReference("Odd-name x"), "${Odd-name x}");
}

TEST(ComplexRuleDialogTest, PropertySubMenuInsertsReferences) {
  std::string expression;
  WithDialog<bool>(
      [](QDialog* dialog) {
        QLineEdit* edit = Find<QLineEdit>(dialog, "expressionEdit");
        QMenu* menu = Find<QToolButton>(dialog, "insertButton")->menu();
        QMenu* properties = nullptr;
        for (QAction* action : menu->actions())
          if (action->menu() && action->data().toUInt() == kExpressionPropertyMenuId)
            properties = action->menu();
        ASSERT_NE(properties, nullptr);
        QAction* size = nullptr;
        for (QAction* group : properties->actions()) {
          QMenu* sub = group->menu();
          if (!sub) continue;
          emit sub->aboutToShow();
          for (QAction* item : sub->actions()) {
            EXPECT_FALSE(item->text().contains("System.Search.Contents"));
            if (item->text().endsWith("(System.Size)")) size = item;
          }
        }
        ASSERT_NE(size, nullptr);
        size->trigger();
        EXPECT_EQ(edit->text(), "$System.Size");
        Click(Button(dialog, QDialogButtonBox::Cancel));
      },
      [&] { return EditComplexRule(nullptr, &expression); });
  EXPECT_EQ(expression, "");
}

TEST(ComplexRuleDialogTest, SyntaxErrorKeepsEditorOpenWithCaretAtTheError) {
  std::string expression = "$System.Size > 1";
  MessageBoxRecorder boxes;
  EXPECT_TRUE(WithDialog<bool>(
      [&](QDialog* dialog) {
        QLineEdit* edit = Find<QLineEdit>(dialog, "expressionEdit");
        // Blanks before the error: the compiler counts without them, the caret must not.
        Retype(edit, "  len( $System.ItemNameDisplay");
        Click(Button(dialog, QDialogButtonBox::Ok));
        ASSERT_EQ(boxes.boxes().size(), 1u);
        const MessageBoxCall& box = boxes.boxes()[0];
        EXPECT_EQ(box.caption, "syntax error");
        EXPECT_EQ(box.icon, QMessageBox::Critical);
        rules::Expression compiled;
        EXPECT_FALSE(compiled.Compile("  len( $System.ItemNameDisplay"));
        EXPECT_EQ(box.text, compiled.ErrorText());
        EXPECT_TRUE(dialog->isVisible());
        EXPECT_EQ(edit->cursorPosition(), 5);  // at the unclosed "("
        EXPECT_EQ(dialog->focusWidget(), edit);

        edit->end(false);
        QTest::keyClicks(edit, ") > 3");
        Click(Button(dialog, QDialogButtonBox::Ok));
        EXPECT_EQ(boxes.boxes().size(), 1u);
      },
      [&] { return EditComplexRule(nullptr, &expression); }));
  EXPECT_EQ(expression, "  len( $System.ItemNameDisplay) > 3");

  // Cancel keeps the expression as it was.
  EXPECT_FALSE(WithDialog<bool>(
      [](QDialog* dialog) {
        Retype(Find<QLineEdit>(dialog, "expressionEdit"), "$System.Size > 2");
        Click(Button(dialog, QDialogButtonBox::Cancel));
      },
      [&] { return EditComplexRule(nullptr, &expression); }));
  EXPECT_EQ(expression, "  len( $System.ItemNameDisplay) > 3");
}

}  // namespace
}  // namespace trovix::views
