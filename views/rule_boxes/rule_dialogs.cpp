#include "views/rule_boxes/rule_dialogs.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QRadioButton>
#include <QStackedWidget>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

#include "base/string_table.h"
#include "rules/expression/expression.h"
#include "rules/patterns/text_pattern.h"
#include "rules/rule.h"
#include "rules/matchers/text_matcher.h"
#include "rules/value/value_format.h"
#include "rules/value/value_syntax.h"
#include "views/program/mnemonics.h"
#include "views/rule_boxes/expression_menu.h"
#include "views/qt_text.h"
#include "views/program/speech.h"

namespace trovix::views {
namespace {

constexpr uint32_t kFreeformHintId = 11073;
constexpr char kComplexHint[] =
    "Type file property relationships to match e.g.\n$System.DateModified < $System.DateCreated + 2";
constexpr char kSyntaxErrorCaption[] = "syntax error";

std::string S(const QString& text) { return text.toStdString(); }

// Gives a control its object name (how tests and scripts find it) and the name a screen
// reader speaks.
template <typename W>
W* Named(W* widget, const char* object_name, const QString& accessible_name) {
  widget->setObjectName(object_name);
  widget->setAccessibleName(accessible_name);
  return widget;
}

QDialogButtonBox* OkCancel(QDialog* dialog) {
  auto* buttons = Named(new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, dialog), "buttons",
                        "Dialog buttons");
  buttons->button(QDialogButtonBox::Ok)->setAccessibleName("OK");
  buttons->button(QDialogButtonBox::Cancel)->setAccessibleName("Cancel");
  QObject::connect(buttons, &QDialogButtonBox::accepted, dialog, &QDialog::accept);
  QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
  return buttons;
}

void ShowSyntaxError(QWidget* parent, const std::string& text) {
  MessageBoxCall call;
  call.caption = kSyntaxErrorCaption;
  call.text = text;
  call.icon = QMessageBox::Critical;
  ShowMessageBox(parent, call);
}

// Copies the value of `from` into `to` (the same property): kind, flags, text and bounds.
void CopyValue(const rules::Rule& from, rules::Rule& to) {
  to.SetKind(from.Kind());
  to.SetFlags(from.Flags());
  to.SetText(from.Text());
  to.SetMin(from.Min());
  to.SetMax(from.Max());
}

// ------------------------------------------------------------------------------------------
// The text-rule dialog.

class TextRuleDialog : public QDialog {
 public:
  TextRuleDialog(QWidget* parent, const rules::Rule& rule) : QDialog(parent), rule_(rule) {
    setObjectName("textRuleDialog");
    setWindowTitle(FromUtf8(rule.PropertyName()));
    setAccessibleName(FromUtf8(rule.PropertyName()));

    auto* modes = Named(new QGroupBox("Mode", this), "modeGroup", "Mode");
    auto* mode_layout = new QVBoxLayout(modes);
    const char* mode_names[] = {"simpleMode", "keywordMode", "freeformMode"};
    const char* mode_labels[] = {"Simple (one expression)", "Keyword list", "Freeform"};
    for (int i = 0; i < 3; ++i) {
      mode_[i] = Named(new QRadioButton(mode_labels[i], modes), mode_names[i], mode_labels[i]);
      mode_group_.addButton(mode_[i], i);
      mode_layout->addWidget(mode_[i]);
    }

    pages_ = new QStackedWidget(this);
    pages_->setObjectName("valuePages");
    // Simple: one pattern, and how the text matcher will read it.
    auto* simple = new QWidget(pages_);
    auto* simple_form = new QFormLayout(simple);
    simple_edit_ = Named(new QLineEdit(simple), "simpleEdit", "Text to find");
    simple_form->addRow("&Text:", simple_edit_);
    pattern_kind_ = Named(new QLabel(simple), "patternKind", "Pattern kind");
    simple_form->addRow("Read as:", pattern_kind_);
    pages_->addWidget(simple);
    // Keyword list: the three parts.
    auto* keywords = new QWidget(pages_);
    auto* keyword_form = new QFormLayout(keywords);
    all_edit_ = Named(new QLineEdit(keywords), "allOfEdit", "Contains all of");
    any_edit_ = Named(new QLineEdit(keywords), "anyOfEdit", "Contains any of");
    none_edit_ = Named(new QLineEdit(keywords), "noneOfEdit", "Contains none of");
    keyword_form->addRow("Contains a&ll of:", all_edit_);
    keyword_form->addRow("Contains an&y of:", any_edit_);
    keyword_form->addRow("Contains n&one of:", none_edit_);
    pages_->addWidget(keywords);
    // Freeform: a boolean text expression.
    auto* freeform = new QWidget(pages_);
    auto* freeform_layout = new QVBoxLayout(freeform);
    freeform_layout->setContentsMargins(0, 0, 0, 0);
    freeform_edit_ = Named(new QLineEdit(freeform), "freeformEdit", "Freeform expression");
    auto* freeform_hint = Named(new QLabel(StringText(kFreeformHintId), freeform), "freeformHint", "Hint");
    freeform_hint->setWordWrap(true);
    freeform_layout->addWidget(freeform_edit_);
    freeform_layout->addWidget(freeform_hint);
    freeform_layout->addStretch();
    pages_->addWidget(freeform);

    auto* options = Named(new QGroupBox("Options", this), "optionsGroup", "Options");
    auto* option_layout = new QVBoxLayout(options);
    exact_ = Named(new QCheckBox("&Exact match", options), "exactMatch", "Exact match");
    auto_wildcards_ = Named(new QCheckBox("&Auto wildcards", options), "autoWildcards", "Auto wildcards");
    whole_words_ = Named(new QCheckBox("&Whole words only", options), "wholeWords", "Whole words only");
    ignore_case_ = Named(new QCheckBox("&Ignore case", options), "ignoreCase", "Ignore case");
    for (QCheckBox* box : {exact_, auto_wildcards_, whole_words_, ignore_case_}) option_layout->addWidget(box);
    // The contents are searched for text, never compared whole.
    if (rule.IsContents()) exact_->setEnabled(false);

    auto* top = new QHBoxLayout;
    top->addWidget(modes);
    top->addWidget(options);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addWidget(pages_);
    buttons_ = OkCancel(this);
    layout->addWidget(buttons_);

    Load();
    connect(&mode_group_, &QButtonGroup::idToggled, this, [this](int id, bool on) {
      if (on) SwitchMode(id);
    });
    for (QLineEdit* edit : {simple_edit_, all_edit_, any_edit_, none_edit_, freeform_edit_})
      connect(edit, &QLineEdit::textChanged, this, &TextRuleDialog::Refresh);
    connect(auto_wildcards_, &QCheckBox::toggled, this, &TextRuleDialog::Refresh);
    Refresh();
  }

  // The rule as the dialog would leave it (a copy; the original is untouched).
  rules::RulePtr Result() const {
    rules::RulePtr result = rule_.Clone();
    const int mode = mode_group_.checkedId();
    result->SetKind(rules::kKindText + mode);
    if (mode == 1) {
      result->SetText(rules::BuildKeywordList(S(all_edit_->text()), S(any_edit_->text()), S(none_edit_->text())));
    } else {
      result->SetText(S((mode == 0 ? simple_edit_ : freeform_edit_)->text()));
    }
    uint32_t flags = rule_.Flags() & ~(rules::cf::kIgnoreCase | rules::cf::kWholeWords | rules::cf::kVerbatim |
                                       rules::cf::kExact);
    if (ignore_case_->isChecked()) flags |= rules::cf::kIgnoreCase;
    if (whole_words_->isChecked()) flags |= rules::cf::kWholeWords;
    if (!auto_wildcards_->isChecked()) flags |= rules::cf::kVerbatim;
    if (exact_->isChecked() && exact_->isEnabled()) flags |= rules::cf::kExact;
    result->SetFlags(flags);
    result->Normalise();
    return result;
  }

  void accept() override {
    // A regular expression or a freeform text that does not compile is said now, while the
    // user still has it in front of them, not by a search that silently finds nothing.
    std::string error;
    if (!rules::CheckTextRule(*Result(), &error)) {
      ShowSyntaxError(this, error);
      CurrentEdit()->setFocus();
      return;
    }
    QDialog::accept();
  }

 private:
  void Load() {
    const int mode = rules::IsTextKind(rule_.Kind()) ? std::clamp(rule_.Kind() - rules::kKindText, 0, 2) : 0;
    if (rule_.Kind() == rules::kKindKeywordList) {
      std::string all, any, none;
      if (rules::SplitKeywordList(rule_.Text(), &all, &any, &none)) {
        all_edit_->setText(FromUtf8(all));
        any_edit_->setText(FromUtf8(any));
        none_edit_->setText(FromUtf8(none));
      }
    } else if (mode == 2) {
      freeform_edit_->setText(FromUtf8(rule_.Text()));
    } else {
      simple_edit_->setText(FromUtf8(rule_.Text()));
    }
    mode_[mode]->setChecked(true);
    pages_->setCurrentIndex(mode);
    const uint32_t flags = rule_.Flags();
    exact_->setChecked((flags & rules::cf::kExact) != 0);
    auto_wildcards_->setChecked((flags & rules::cf::kVerbatim) == 0);
    whole_words_->setChecked((flags & rules::cf::kWholeWords) != 0);
    ignore_case_->setChecked((flags & rules::cf::kIgnoreCase) != 0);
  }

  QLineEdit* CurrentEdit() const {
    switch (mode_group_.checkedId()) {
      case 1: return all_edit_;
      case 2: return freeform_edit_;
      default: return simple_edit_;
    }
  }

  // Carries the typed text over to the new mode when its page is still empty, so switching
  // modes never loses what the user wrote.
  void SwitchMode(int mode) {
    const int previous = pages_->currentIndex();
    const QString text = previous == 1 ? all_edit_->text() : (previous == 2 ? freeform_edit_ : simple_edit_)->text();
    QLineEdit* target = mode == 1 ? all_edit_ : (mode == 2 ? freeform_edit_ : simple_edit_);
    const bool target_empty = mode == 1 ? all_edit_->text().isEmpty() && any_edit_->text().isEmpty() &&
                                              none_edit_->text().isEmpty()
                                        : target->text().isEmpty();
    if (target_empty) target->setText(text);
    pages_->setCurrentIndex(mode);
    Refresh();
  }

  void Refresh() {
    const int mode = mode_group_.checkedId();
    bool has_value;
    if (mode == 1) {
      has_value = !all_edit_->text().trimmed().isEmpty() || !any_edit_->text().trimmed().isEmpty() ||
                  !none_edit_->text().trimmed().isEmpty();
    } else {
      has_value = !CurrentEdit()->text().isEmpty();
    }
    // An empty rule would be dropped from the list: there is nothing to accept.
    buttons_->button(QDialogButtonBox::Ok)->setEnabled(has_value);

    QString kind = "plain text";
    if (auto_wildcards_->isChecked()) {
      const uint16_t detected = rules::DetectMatchMode(S(simple_edit_->text()));
      if (detected == rules::kModeRegex) kind = "regular expression";
      if (detected == rules::kModeWildcard) kind = "wildcard";
    }
    pattern_kind_->setText(kind);
  }

  const rules::Rule& rule_;
  QButtonGroup mode_group_;
  QRadioButton* mode_[3] = {};
  QStackedWidget* pages_ = nullptr;
  QLineEdit* simple_edit_ = nullptr;
  QLabel* pattern_kind_ = nullptr;
  QLineEdit* all_edit_ = nullptr;
  QLineEdit* any_edit_ = nullptr;
  QLineEdit* none_edit_ = nullptr;
  QLineEdit* freeform_edit_ = nullptr;
  QCheckBox* exact_ = nullptr;
  QCheckBox* auto_wildcards_ = nullptr;
  QCheckBox* whole_words_ = nullptr;
  QCheckBox* ignore_case_ = nullptr;
  QDialogButtonBox* buttons_ = nullptr;
};

// ------------------------------------------------------------------------------------------
// The number dialog.

// The box text of a single value of the rule's kind (no comparison sign).
QString ValueText(int32_t kind, uint64_t bits, uint32_t display_flags) {
  rules::ValueBounds value;
  value.kind = kind;
  value.min = bits;
  value.flags = static_cast<uint32_t>(kind) | rules::cf::kEqual | display_flags;
  std::string text = rules::FormatRuleValue(value);
  if (!text.empty() && text[0] == '=') text.erase(0, 1);
  return FromUtf8(text);
}

class NumberRuleDialog : public QDialog {
 public:
  NumberRuleDialog(QWidget* parent, const rules::Rule& rule) : QDialog(parent), rule_(rule) {
    setObjectName("numberRuleDialog");
    setWindowTitle(FromUtf8(rule.PropertyName()));
    setAccessibleName(FromUtf8(rule.PropertyName()));
    const bool is_date = rule.Kind() == rules::kKindDate;

    auto* form = new QFormLayout;
    value_edit_ = Named(new QLineEdit(this), "valueEdit", "Value");
    value_edit_->setMinimumWidth(fontMetrics().averageCharWidth() * 32);
    form->addRow("&Value:", value_edit_);
    hint_ = Named(new QLabel(this), "valueHint", "Hint");
    hint_->setText(is_date ? "A date, a range of dates (a .. b) or a period such as \"yesterday\"."
                           : "A number, a range (a .. b) or a comparison (>=, <=, <>).");
    form->addRow(QString(), hint_);

    // A date rule has no tolerance: a single date already covers its whole day.
    if (!is_date) {
      approximate_ = Named(new QCheckBox("&Approximate match", this), "approximate", "Approximate match");
      form->addRow(QString(), approximate_);
      tolerance_edit_ = Named(new QLineEdit(this), "toleranceEdit", "Tolerance");
      tolerance_edit_->setPlaceholderText("5 percent of the value");
      form->addRow("&Tolerance (±):", tolerance_edit_);
    }
    if (rule.Kind() == rules::kKindNumber && (rule.PropertyFlags() & rules::pf::kDuration) == 0) {
      show_unit_ = Named(new QCheckBox("&Show sizes in the typed unit (KB, MB, GB)", this), "showUnit",
                         "Show sizes in the typed unit");
      form->addRow(QString(), show_unit_);
    }

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    buttons_ = OkCancel(this);
    layout->addWidget(buttons_);

    Load();
    connect(value_edit_, &QLineEdit::textChanged, this, &NumberRuleDialog::Refresh);
    if (approximate_) {
      connect(approximate_, &QCheckBox::toggled, this, &NumberRuleDialog::Refresh);
      connect(tolerance_edit_, &QLineEdit::textChanged, this, &NumberRuleDialog::Refresh);
    }
    Refresh();
  }

  // The rule as the dialog would leave it, or null when the typed value is not acceptable.
  rules::RulePtr Result() const {
    rules::ValueBounds value;
    value.kind = rule_.Kind();
    bool typed_unit = false;
    if (!rules::ParseValueText(S(value_edit_->text()), value, &typed_unit)) return nullptr;
    const bool single = (value.flags & rules::cf::kEqual) != 0;
    if (single && approximate_ && (approximate_->isChecked() || (value.flags & rules::cf::kApproximate))) {
      value.flags |= rules::cf::kApproximate;
      const QString tolerance = tolerance_edit_->text().trimmed();
      if (tolerance.isEmpty()) {
        value.max = kNoValue;  // the search takes 5 percent of the value
      } else {
        rules::ValueBounds parsed;
        parsed.kind = value.kind;
        if (!rules::ParseValueText(S(tolerance), parsed) || (parsed.flags & rules::cf::kEqual) == 0 ||
            (parsed.flags & rules::cf::kApproximate) != 0)
          return nullptr;
        const bool negative = value.kind == rules::kKindFloat ? rules::BitsAsDouble(parsed.min) < 0
                                                              : static_cast<int64_t>(parsed.min) < 0;
        if (negative) return nullptr;
        value.max = parsed.min;
      }
    } else {
      value.flags &= ~rules::cf::kApproximate;
    }
    if (show_unit_ && show_unit_->isChecked()) value.flags |= rules::cf::kShowUnit;
    rules::RulePtr result = rule_.Clone();
    result->SetMin(value.min);
    result->SetMax(value.max);
    result->SetFlags(value.flags);
    result->Normalise();
    return result;
  }

  void accept() override {
    if (Result()) QDialog::accept();
  }

 private:
  void Load() {
    const uint32_t flags = rule_.Flags();
    const uint32_t display = flags & (rules::cf::kShowUnit | rules::cf::kDuration | rules::cf::kCoordinate);
    const bool approximate = (flags & rules::cf::kApproximate) && (flags & rules::cf::kEqual) &&
                             rule_.Kind() != rules::kKindDate;
    if (approximate) {
      value_edit_->setText(ValueText(rule_.Kind(), rule_.Min(), display));
      if (rule_.Max() != kNoValue) tolerance_edit_->setText(ValueText(rule_.Kind(), rule_.Max(), display));
    } else if (!rule_.IsEmpty()) {
      std::string text = rules::FormatRuleValue(rule_);
      // An equality is typed without its "=".
      if (!text.empty() && text[0] == '=') text.erase(0, 1);
      value_edit_->setText(FromUtf8(text));
    }
    if (approximate_) approximate_->setChecked(approximate);
    if (show_unit_) show_unit_->setChecked((flags & rules::cf::kShowUnit) != 0);
  }

  void Refresh() {
    rules::ValueBounds value;
    value.kind = rule_.Kind();
    bool typed_unit = false;
    const bool parses = rules::ParseValueText(S(value_edit_->text()), value, &typed_unit);
    // A size typed with its unit is shown in that unit again.
    if (typed_unit && show_unit_) show_unit_->setChecked(true);
    if (approximate_) {
      // A tolerance belongs to a single value, not to a range or a comparison.
      const bool single = parses && (value.flags & rules::cf::kEqual) != 0;
      approximate_->setEnabled(single);
      if (single && (value.flags & rules::cf::kApproximate)) approximate_->setChecked(true);
      tolerance_edit_->setEnabled(single && approximate_->isChecked());
    }
    buttons_->button(QDialogButtonBox::Ok)->setEnabled(Result() != nullptr);
  }

  const rules::Rule& rule_;
  QLineEdit* value_edit_ = nullptr;
  QLabel* hint_ = nullptr;
  QCheckBox* approximate_ = nullptr;
  QLineEdit* tolerance_edit_ = nullptr;
  QCheckBox* show_unit_ = nullptr;
  QDialogButtonBox* buttons_ = nullptr;
};

// ------------------------------------------------------------------------------------------
// The editor of the Complex rule.

// The position in `typed` (UTF-16 units) of character `index` of the text the compiler saw,
// which had its blanks outside double quotes removed.
int TypedPosition(const QString& typed, int32_t index) {
  bool in_quotes = false;
  int32_t seen = 0;
  for (qsizetype i = 0; i < typed.size(); ++i) {
    const QChar c = typed[i];
    if (c == '"') in_quotes = !in_quotes;
    if (!in_quotes && (c == ' ' || c == '\t' || c == '\r' || c == '\n')) continue;
    if (seen == index) return static_cast<int>(i);
    ++seen;
    if (c.isHighSurrogate() && i + 1 < typed.size() && typed[i + 1].isLowSurrogate()) ++i;
  }
  return static_cast<int>(typed.size());
}

class ComplexRuleDialog : public QDialog {
 public:
  ComplexRuleDialog(QWidget* parent, const std::string& expression) : QDialog(parent) {
    setObjectName("complexRuleDialog");
    const QString title = StringText(12512);  // "Complex"
    setWindowTitle(title);
    setAccessibleName(title);

    auto* hint = Named(new QLabel(kComplexHint, this), "expressionHint", "Hint");
    edit_ = Named(new QLineEdit(FromUtf8(expression), this), "expressionEdit", "Expression");
    edit_->setMinimumWidth(fontMetrics().averageCharWidth() * 60);
    menu_ = CreateExpressionMenu(edit_, this);
    auto* insert = Named(new QToolButton(this), "insertButton", "Insert operator, function or property");
    insert->setText("&Insert");
    insert->setToolTip("Insert an operator, a function or a file property at the caret");
    insert->setMenu(menu_);
    insert->setPopupMode(QToolButton::InstantPopup);
    // The same menu under the edit's own context menu.
    edit_->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(edit_, &QLineEdit::customContextMenuRequested, this, [this](const QPoint& at) {
      QMenu* standard = edit_->createStandardContextMenu();
      standard->addSeparator();
      QAction* more = standard->addMenu(menu_);
      more->setText("Insert");
      standard->exec(edit_->mapToGlobal(at));
      delete standard;
    });

    auto* row = new QHBoxLayout;
    row->addWidget(edit_, 1);
    row->addWidget(insert);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(hint);
    layout->addLayout(row);
    layout->addWidget(OkCancel(this));
    edit_->setFocus();
  }

  std::string Expression() const { return S(edit_->text()); }

  void accept() override {
    rules::Expression compiled;
    if (!compiled.Compile(Expression())) {
      ShowSyntaxError(this, compiled.ErrorText());
      // The caret goes where the compiler stopped, and the edit keeps the focus for the fix.
      edit_->deselect();
      edit_->setCursorPosition(TypedPosition(edit_->text(), compiled.error_position()));
      edit_->setFocus();
      return;
    }
    QDialog::accept();
  }

 private:
  QLineEdit* edit_ = nullptr;
  QMenu* menu_ = nullptr;
};

}  // namespace

bool EditTextRule(QWidget* parent, rules::Rule& rule) {
  if (!rules::IsTextKind(rule.Kind())) return false;
  if (rule.IsComplex()) {
    // Its text is an expression, with an editor of its own.
    std::string expression = rule.Text();
    if (!EditComplexRule(parent, &expression) || expression == rule.Text()) return false;
    rule.SetText(std::move(expression));
    rule.ApplyValues();
    return true;
  }
  TextRuleDialog dialog(parent, rule);
  GiveMnemonics(&dialog);
  if (dialog.exec() != QDialog::Accepted) return false;
  const rules::RulePtr result = dialog.Result();
  if (result->Equals(rule)) return false;
  CopyValue(*result, rule);
  rule.ApplyValues();
  return true;
}

bool EditNumberRule(QWidget* parent, rules::Rule& rule) {
  const int32_t kind = rule.Kind();
  if (kind != rules::kKindNumber && kind != rules::kKindDate && kind != rules::kKindFloat) return false;
  NumberRuleDialog dialog(parent, rule);
  GiveMnemonics(&dialog);
  if (dialog.exec() != QDialog::Accepted) return false;
  const rules::RulePtr result = dialog.Result();
  if (!result || result->Equals(rule)) return false;
  CopyValue(*result, rule);
  rule.ApplyValues();
  return true;
}

bool EditComplexRule(QWidget* parent, std::string* expression) {
  if (!expression) return false;
  ComplexRuleDialog dialog(parent, *expression);
  GiveMnemonics(&dialog);
  if (dialog.exec() != QDialog::Accepted) return false;
  *expression = dialog.Expression();
  return true;
}

}  // namespace trovix::views
