// One rule box of the search panel: a row that holds one rule. From left to right: the
// context (AND, OR, AND NOT, OR NOT), outdent and indent buttons (the row moves right with its
// indent), the property picker, the value field, a "..." button for the rule's dialog and a
// remove button.
//
// The value field depends on the property's kind: a line parsed by the value syntax as the
// user types (Number, Float and text rules; the Complex rule's expression), an editable list of
// the period words for dates, a fixed list of options for enumerated rules ("Type" lists the
// file kinds). Text that does not parse is marked (red frame, the reason as tool tip) and the
// box keeps its last good rule until the text parses again.
//
// The box owns a rule of its own holding the value; the rules it hands out are copies, so the
// rule list of a running search never changes under it. UI thread only.
#pragma once

#include <QString>
#include <QWidget>
#include <string>

#include "rules/rule.h"
#include "rules/value/value_syntax.h"

class QComboBox;
class QHBoxLayout;
class QLineEdit;
class QToolButton;

namespace trovix::views {

class PropertyPicker;

class RuleBox : public QWidget {
  Q_OBJECT
 public:
  // An empty box on `property`.
  explicit RuleBox(const props::PropertyInfo& property, QWidget* parent = nullptr);
  // A box showing a copy of `rule` (its value, context and indent).
  explicit RuleBox(const rules::Rule& rule, QWidget* parent = nullptr);

  const props::PropertyInfo* Property() const { return rule_->Descriptor(); }
  const props::PropertyKey& Key() const { return rule_->Key(); }
  QString PropertyLabel() const;
  // Moves the box to another property. The typed text stays when the new property accepts it;
  // otherwise the value is emptied. Context and indent stay.
  void SetProperty(const props::PropertyInfo& property);

  int Context() const;
  void SetContext(int context);
  int Indent() const { return indent_; }
  // At level 0 the Outdent button is hidden.
  void SetIndent(int indent);
  // The box's place in the list, from 1: its controls are named by it ("Rule 2 property").
  void SetNumber(int number);
  int Number() const { return number_; }

  // The value as the field shows it; for an enumerated box the chosen option's label.
  QString ValueText() const;
  // Puts `text` into the field as if the user had typed it (and parses it).
  void SetValueText(const QString& text);
  // Empties the value; the box stays on its property.
  void ClearValue();

  // Whether the field's text parses; Problem() says why not.
  bool IsValid() const { return problem_.isEmpty(); }
  QString Problem() const { return problem_; }
  // A copy of the box's rule with its context and indent: null when the box is empty.
  // False, with `why` naming the box, when the typed text does not parse.
  bool TakeRule(rules::RulePtr* rule, QString* why) const;

  // Plain mode hides the context and indent controls.
  void SetPlainMode(bool plain);
  void SetPickerOffer(bool plain, const std::string& simple_list);
  void SetDisableWildcards(bool disable) { disable_wildcards_ = disable; }

  // The widget that holds the value (a line or a list) and the controls, for the pane's focus
  // handling and for tests.
  QWidget* valueWidget() const;
  QComboBox* contextCombo() const { return context_; }
  QComboBox* conditionCombo() const { return condition_; }
  QToolButton* indentButton() const { return indent_button_; }
  QToolButton* outdentButton() const { return outdent_button_; }
  QToolButton* optionsButton() const { return options_button_; }
  QToolButton* removeButton() const { return remove_button_; }
  PropertyPicker* picker() const { return picker_; }

 signals:
  // Any change of value, context or property made by the user.
  void edited();
  void removeRequested();
  // +1 indent, -1 outdent; the pane decides how far a box may go.
  void indentRequested(int delta);

 private:
  void Build();
  void MakeValueWidget();
  void ShowRule();
  void Reparse(const QString& text);
  void ChooseOption();
  void OpenDialog();
  void MarkProblem(const QString& problem);
  void UpdateNames();
  // Puts text in the line without taking it for the user's edit.
  void ShowText(const QString& text);
  rules::RulePtr FreshRule() const;
  rules::RuleTextOptions TextOptions() const;

  rules::RulePtr rule_;  // the value; never null
  QString problem_;
  int indent_ = 0;
  int number_ = 1;
  bool showing_ = false;  // the box itself is putting text in the line
  bool plain_ = false;
  bool disable_wildcards_ = false;

  QWidget* indent_space_ = nullptr;
  QComboBox* context_ = nullptr;
  QToolButton* outdent_button_ = nullptr;
  QToolButton* indent_button_ = nullptr;
  PropertyPicker* picker_ = nullptr;
  QComboBox* condition_ = nullptr;   // "Equals (is)", "Up to (<=)", "At least (>=)" for classes
  QLineEdit* line_ = nullptr;        // the typed value (also the line of an editable list)
  QComboBox* list_ = nullptr;        // period words or options
  QToolButton* options_button_ = nullptr;
  QToolButton* remove_button_ = nullptr;
  QHBoxLayout* row_ = nullptr;
};

}  // namespace trovix::views
