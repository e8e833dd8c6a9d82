#include "views/rule_boxes/rule_box.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QSignalBlocker>
#include <QStyle>
#include <QToolButton>

#include "rules/compare_flags.h"
#include "rules/value/date_period.h"
#include "rules/expression/expression.h"
#include "rules/matchers/text_matcher.h"
#include "rules/value/value_format.h"
#include "rules/value/value_hints.h"
#include "rules/value/value_syntax.h"
#include "views/program/accessible_combo.h"
#include "views/rule_boxes/property_picker.h"
#include "views/qt_text.h"
#include "views/rule_boxes/rule_dialogs.h"

namespace trovix::views {
namespace {

constexpr int kIndentStep = 22;  // pixels per indent level


// The rule shows a list of fixed options instead of a typed line.
bool IsEnumerated(const rules::Rule& rule) { return rule.Options() != nullptr; }

bool HasConditions(const rules::Rule& rule) {
  return rule.Options() && rule.Options()->kind == props::OptionList::Kind::kClasses;
}

// The first line of a hint: short enough for a placeholder.
QString FirstLine(std::string_view hint) {
  const std::string_view line = hint.substr(0, hint.find('\n'));
  return FromUtf8(std::string(line));
}

}  // namespace

RuleBox::RuleBox(const props::PropertyInfo& property, QWidget* parent)
    : QWidget(parent), rule_(rules::Rule::CreateFor(property)) {
  Build();
}

RuleBox::RuleBox(const rules::Rule& rule, QWidget* parent) : QWidget(parent), rule_(rule.Clone()) {
  indent_ = std::max(0, rule.Indent());
  Build();
  SetContext(rule.Context());
  SetIndent(indent_);
}

void RuleBox::Build() {
  row_ = new QHBoxLayout(this);
  row_->setContentsMargins(0, 1, 0, 1);
  row_->setSpacing(3);

  context_ = new NamedComboBox(this);
  context_->addItems({tr("AND"), tr("OR"), tr("AND NOT"), tr("OR NOT")});
  context_->setToolTip(tr("How this rule joins the rules above it"));
  connect(context_, &QComboBox::activated, this, [this] { emit edited(); });
  row_->addWidget(context_);

  auto make_button = [this](const QString& text, const QString& tip) {
    auto* button = new QToolButton(this);
    button->setText(text);
    button->setToolTip(tip);
    button->setAutoRaise(true);
    row_->addWidget(button);
    return button;
  };
  outdent_button_ = make_button(QStringLiteral("\u25C2"), tr("Outdent: move the rule out of its group"));
  // A rule at the outer level has nothing to move out of: its Outdent is hidden, and its place
  // kept so that the rows stay in line.
  QSizePolicy keep_place = outdent_button_->sizePolicy();
  keep_place.setRetainSizeWhenHidden(true);
  outdent_button_->setSizePolicy(keep_place);
  connect(outdent_button_, &QToolButton::clicked, this, [this] { emit indentRequested(-1); });
  indent_button_ = make_button(QStringLiteral("\u25B8"), tr("Indent: group the rule with the rule above"));
  connect(indent_button_, &QToolButton::clicked, this, [this] { emit indentRequested(+1); });
  outdent_button_->setIcon(style()->standardIcon(QStyle::SP_ArrowLeft));
  indent_button_->setIcon(style()->standardIcon(QStyle::SP_ArrowRight));

  // The contexts stay in one column; the property and its value move right with the indent,
  // so a group reads as a block under the rule that heads it.
  indent_space_ = new QWidget(this);
  indent_space_->setFixedSize(0, 1);
  row_->addWidget(indent_space_);

  picker_ = new PropertyPicker(this);
  picker_->SetProperty(rule_->Descriptor());
  connect(picker_, &PropertyPicker::propertyChosen, this, [this](const props::PropertyInfo* info) {
    if (info && info != Property()) {
      SetProperty(*info);
      emit edited();
    }
  });
  row_->addWidget(picker_);

  condition_ = new NamedComboBox(this);
  condition_->addItems({tr("Equals (is)"), tr("Up to (<=)"), tr("At least (>=)")});
  connect(condition_, &QComboBox::activated, this, [this] {
    ChooseOption();
    emit edited();
  });
  row_->addWidget(condition_);

  options_button_ = make_button(QStringLiteral("..."), tr("More options for this rule"));
  connect(options_button_, &QToolButton::clicked, this, &RuleBox::OpenDialog);
  remove_button_ = make_button(QStringLiteral("\u2715"), tr("Remove this rule"));
  connect(remove_button_, &QToolButton::clicked, this, [this] { emit removeRequested(); });

  MakeValueWidget();
  ShowRule();
  SetIndent(indent_);
}

void RuleBox::MakeValueWidget() {
  // The value widget sits between the condition list and the "..." button.
  if (QWidget* old = valueWidget()) {
    row_->removeWidget(old);
    old->hide();
    old->deleteLater();
  }
  list_ = nullptr;
  line_ = nullptr;
  const int at = row_->indexOf(condition_) + 1;
  const int32_t kind = rule_->Kind();

  if (IsEnumerated(*rule_)) {
    list_ = new NamedComboBox(this);
    list_->addItem(QString());  // no value
    for (const props::PropertyOption& option : rule_->Options()->options) list_->addItem(FromUtf8(option.label));
    list_->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    connect(list_, &QComboBox::activated, this, [this] {
      ChooseOption();
      emit edited();
    });
  } else if (kind == rules::kKindDate) {
    list_ = new NamedComboBox(this);
    list_->setEditable(true);
    list_->setInsertPolicy(QComboBox::NoInsert);
    for (int period = 1; period <= rules::kPeriodCount; ++period)
      list_->addItem(FromUtf8(std::string(rules::PeriodWord(period))));
    list_->setCurrentIndex(-1);
    line_ = list_->lineEdit();
    connect(list_, &QComboBox::activated, this, [this](int index) {
      Reparse(list_->itemText(index));
      emit edited();
    });
  } else {
    line_ = new QLineEdit(this);
  }
  if (line_) {
    line_->setClearButtonEnabled(true);
    // Any change the box did not make itself is the user's: typed, pasted, or set through the
    // accessibility interface by a screen reader or a test driving the program.
    connect(line_, &QLineEdit::textChanged, this, [this](const QString& text) {
      if (showing_) return;
      Reparse(text);
      emit edited();
    });
  }
  QWidget* value = valueWidget();
  value->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  value->setMinimumWidth(140);
  row_->insertWidget(at, value, 1);
  condition_->setVisible(HasConditions(*rule_));
  options_button_->setVisible(!IsEnumerated(*rule_));

  const std::string_view hint = rule_->IsComplex() ? std::string_view() : rules::ValueHintFor(kind);
  if (line_) {
    line_->setPlaceholderText(rule_->IsComplex() ? tr("Expression, e.g. $System.Size > 1000") : FirstLine(hint));
    value->setToolTip(FromUtf8(std::string(hint)));
  }
  setFocusProxy(value);
  // Tab runs left to right through the row, whichever value widget the kind made.
  setTabOrder(context_, outdent_button_);
  setTabOrder(outdent_button_, indent_button_);
  setTabOrder(indent_button_, picker_);
  setTabOrder(picker_, condition_);
  setTabOrder(condition_, value);
  setTabOrder(value, options_button_);
  setTabOrder(options_button_, remove_button_);
  UpdateNames();
}

QWidget* RuleBox::valueWidget() const { return list_ ? static_cast<QWidget*>(list_) : line_; }

QString RuleBox::PropertyLabel() const {
  const props::PropertyInfo* info = Property();
  return info ? FromUtf8(info->label) : FromUtf8(rule_->PropertyName());
}

void RuleBox::ShowText(const QString& text) {
  showing_ = true;
  line_->setText(text);
  showing_ = false;
}

void RuleBox::SetNumber(int number) {
  number_ = std::max(1, number);
  UpdateNames();
}

// The names say which rule a control belongs to, by its place in the list: a reader hears
// "Rule 2 property" and then the control's value, not a name that changes with the value. The
// property's label goes in the descriptions.
void RuleBox::UpdateNames() {
  const QString rule = tr("Rule %1").arg(number_);
  const QString label = PropertyLabel();
  valueWidget()->setAccessibleName(tr("%1 value").arg(rule));
  valueWidget()->setAccessibleDescription(label);
  if (line_) {
    line_->setAccessibleName(tr("%1 value").arg(rule));
    line_->setAccessibleDescription(label);
  }
  context_->setAccessibleName(tr("%1 context").arg(rule));
  condition_->setAccessibleName(tr("%1 condition").arg(rule));
  picker_->setAccessibleName(tr("%1 property").arg(rule));
  indent_button_->setAccessibleName(tr("%1 indent").arg(rule));
  outdent_button_->setAccessibleName(tr("%1 outdent").arg(rule));
  options_button_->setAccessibleName(tr("%1 options").arg(rule));
  remove_button_->setAccessibleName(tr("Remove rule %1").arg(number_));
  setAccessibleName(rule);
  setAccessibleDescription(label);
}

rules::RulePtr RuleBox::FreshRule() const { return rules::Rule::CreateFor(rule_->Descriptor(), rule_->Key()); }

rules::RuleTextOptions RuleBox::TextOptions() const {
  rules::RuleTextOptions options;
  options.disable_wildcards = disable_wildcards_;
  return options;
}

void RuleBox::ShowRule() {
  QSignalBlocker block_list(list_);
  if (IsEnumerated(*rule_)) {
    list_->setCurrentIndex(rule_->IsEmpty() ? 0 : rule_->OptionIndex() + 1);
    QSignalBlocker block(condition_);
    condition_->setCurrentIndex(rule_->OptionCondition());
  } else {
    ShowText(rule_->IsEmpty() ? QString() : FromUtf8(rules::FormatRuleValue(*rule_)));
  }
  MarkProblem(QString());
}

void RuleBox::Reparse(const QString& typed) {
  const std::string text = typed.trimmed().toStdString();
  if (text.empty()) {
    rule_ = FreshRule();
    MarkProblem(QString());
    return;
  }
  rules::RulePtr scratch = FreshRule();
  if (rule_->IsComplex()) {
    rules::Expression expression;
    if (!expression.Compile(text)) {
      MarkProblem(tr("%1 rule: the expression has an error\n%2").arg(PropertyLabel(), FromUtf8(expression.ErrorText())));
      return;
    }
  }
  if (!rules::ParseRuleText(*scratch, text, TextOptions())) {
    MarkProblem(tr("%1 rule: \"%2\" is not a valid value").arg(PropertyLabel(), typed.trimmed()));
    return;
  }
  if (std::string error; !rules::CheckTextRule(*scratch, &error)) {
    MarkProblem(tr("%1 rule: %2").arg(PropertyLabel(), FromUtf8(error)));
    return;
  }
  rule_ = scratch;
  MarkProblem(QString());
}

void RuleBox::ChooseOption() {
  const int index = list_->currentIndex() - 1;
  rules::RulePtr scratch = FreshRule();
  if (index >= 0) scratch->SetOption(condition_->currentIndex(), index);
  rule_ = scratch;
  MarkProblem(QString());
}

void RuleBox::MarkProblem(const QString& problem) {
  problem_ = problem;
  QWidget* value = valueWidget();
  const bool bad = !problem.isEmpty();
  value->setProperty("invalid", bad);
  // A red frame and a pale red ground, the reason and the accepted forms in the tool tip.
  value->setStyleSheet(bad ? QStringLiteral("border: 1px solid #d02020; background: #fff0f0;") : QString());
  if (line_ && !rule_->IsComplex()) {
    const QString hint = FromUtf8(std::string(rules::ValueHintFor(rule_->Kind())));
    value->setToolTip(bad ? problem + "\n\n" + hint : hint);
  } else {
    value->setToolTip(problem);
  }
}

void RuleBox::SetProperty(const props::PropertyInfo& property) {
  const QString typed = line_ ? line_->text() : QString();
  rule_ = rules::Rule::CreateFor(property);
  picker_->SetProperty(&property);
  MakeValueWidget();
  ShowRule();
  if (line_ && !typed.trimmed().isEmpty()) {
    // Keep what was typed when the new property reads it; a value that does not fit the new
    // kind would only be marked wrong.
    ShowText(typed);
    Reparse(typed);
    if (!IsValid()) {
      line_->clear();
      Reparse(QString());
    }
  }
}

int RuleBox::Context() const { return context_->currentIndex(); }

void RuleBox::SetContext(int context) {
  context_->setCurrentIndex(context >= rules::kContextAnd && context <= rules::kContextOrNot ? context : 0);
}

void RuleBox::SetIndent(int indent) {
  indent_ = std::max(0, indent);
  indent_space_->setFixedSize(indent_ * kIndentStep, 1);
  outdent_button_->setVisible(!plain_ && indent_ > 0);
}

QString RuleBox::ValueText() const { return list_ && !line_ ? list_->currentText() : line_->text(); }

void RuleBox::SetValueText(const QString& text) {
  if (IsEnumerated(*rule_)) {
    const int found = list_->findText(text.trimmed(), Qt::MatchFixedString);
    list_->setCurrentIndex(found > 0 ? found : 0);
    ChooseOption();
    return;
  }
  ShowText(text);
  Reparse(text);
}

void RuleBox::ClearValue() {
  rule_ = FreshRule();
  ShowRule();
}

bool RuleBox::TakeRule(rules::RulePtr* rule, QString* why) const {
  rule->reset();
  if (!IsValid()) {
    if (why) *why = problem_;
    return false;
  }
  if (rule_->IsEmpty()) return true;
  *rule = rule_->Clone();
  (*rule)->SetContext(Context());
  (*rule)->SetIndent(indent_);
  return true;
}

void RuleBox::SetPlainMode(bool plain) {
  plain_ = plain;
  context_->setVisible(!plain);
  indent_button_->setVisible(!plain);
  outdent_button_->setVisible(!plain && indent_ > 0);
  indent_space_->setVisible(!plain);
}

void RuleBox::SetPickerOffer(bool plain, const std::string& simple_list) { picker_->SetOffer(plain, simple_list); }

void RuleBox::OpenDialog() {
  const int32_t kind = rule_->Kind();
  if (rule_->IsComplex()) {
    std::string expression = line_->text().toStdString();
    if (!EditComplexRule(this, &expression)) return;
    SetValueText(FromUtf8(expression));
    emit edited();
    return;
  }
  // The dialogs edit a copy; the box takes it only when the user applied it.
  rules::RulePtr copy = IsValid() ? rule_->Clone() : FreshRule();
  bool applied = false;
  if (rules::IsTextKind(kind))
    applied = EditTextRule(this, *copy);
  else if (kind == rules::kKindNumber || kind == rules::kKindDate || kind == rules::kKindFloat)
    applied = EditNumberRule(this, *copy);
  if (!applied) return;
  rule_ = copy;
  ShowRule();
  emit edited();
}

}  // namespace trovix::views
