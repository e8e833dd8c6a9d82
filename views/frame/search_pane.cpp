#include "views/frame/search_pane.h"

#include <QApplication>
#include <QComboBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include "props/catalogue.h"
#include "views/rule_boxes/property_picker.h"
#include "views/rule_boxes/root_box.h"
#include "views/rule_boxes/rule_box.h"
#include "views/rule_boxes/rule_box_layout.h"

namespace trovix::views {
namespace {

const props::PropertyInfo* FindProperty(std::string_view name) {
  return props::DefaultCatalogue().FindProperty(name);
}

}  // namespace

SearchPane::SearchPane(QWidget* parent)
    : QWidget(parent),
      root_(new RootBox(this)),
      start_(new QPushButton(tr("Start"), this)),
      busy_(new QProgressBar(this)),
      rows_(new QVBoxLayout),
      add_rule_(new QPushButton(tr("Add new rule"), this)),
      error_(new QLabel(this)),
      simple_list_(props::kDefaultSimplePropertyList) {
  setAccessibleName(tr("Search panel"));
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(6, 6, 6, 6);
  column->setSpacing(4);

  auto* top = new QHBoxLayout;
  top->setSpacing(4);
  top->addWidget(root_, 1);
  start_->setDefault(true);
  start_->setAccessibleName(tr("Start"));
  start_->setToolTip(tr("Start or stop the search (Enter)"));
  // Wide enough for either word, so the row does not jump when the text changes.
  start_->setMinimumWidth(std::max(start_->sizeHint().width(),
                                   start_->fontMetrics().horizontalAdvance(tr("Stop")) + 24));
  connect(start_, &QPushButton::clicked, this, &SearchPane::startStopRequested);
  top->addWidget(start_);
  busy_->setRange(0, 0);  // an endless bar: the search gives no fraction done
  busy_->setTextVisible(false);
  busy_->setFixedSize(48, 10);
  busy_->setAccessibleName(tr("Searching"));
  busy_->setVisible(false);
  top->addWidget(busy_);
  column->addLayout(top);

  rows_->setSpacing(2);
  rows_->setContentsMargins(0, 0, 0, 0);
  column->addLayout(rows_);

  add_rule_->setFlat(true);
  add_rule_->setIcon(style()->standardIcon(QStyle::SP_FileDialogNewFolder));
  add_rule_->setText(tr("Add new rule"));
  add_rule_->setAccessibleName(tr("Add new rule"));
  add_rule_->setToolTip(tr("Add new search property"));
  add_rule_->setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Fixed);
  connect(add_rule_, &QPushButton::clicked, this, &SearchPane::AddRule);
  column->addWidget(add_rule_, 0, Qt::AlignLeft);

  error_->setWordWrap(true);
  error_->setStyleSheet(QStringLiteral("color: #b00000;"));
  // Read by its text (the reason a rule does not parse), as the status line is.
  error_->setAccessibleDescription(tr("Rule error"));
  error_->setVisible(false);
  column->addWidget(error_);
  column->addStretch(1);

  connect(root_, &RootBox::edited, this, &SearchPane::NoteEdit);
  // The box that last held the focus is the one "Remove" closes and "Add rule" adds below.
  connect(qApp, &QApplication::focusChanged, this, [this](QWidget*, QWidget* now) {
    for (QWidget* w = now; w && w != this; w = w->parentWidget())
      if (auto* box = qobject_cast<RuleBox*>(w)) {
        current_ = box;
        return;
      }
  });
  DefaultRules();
}

QPushButton* SearchPane::startButton() { return start_; }

QString SearchPane::RootText() const { return root_->Text(); }

void SearchPane::SetRootText(const QString& text) { root_->SetText(text); }

void SearchPane::SetFrequentFolders(const std::vector<app::FrequentFolder>& folders) {
  root_->SetFrequentFolders(folders);
}

void SearchPane::SetRunning(bool running) {
  running_ = running;
  start_->setText(running ? tr("Stop") : tr("Start"));
  start_->setAccessibleName(start_->text());
  busy_->setVisible(running);
}

const props::PropertyInfo* SearchPane::DefaultProperty() const {
  const props::PropertyInfo* info = FindProperty(plain_ ? "*" : "System.ItemNameDisplay");
  return info ? info : props::DefaultCatalogue().entries().front().get();
}

int SearchPane::IndexOf(const RuleBox* box) const {
  for (size_t i = 0; i < boxes_.size(); ++i)
    if (boxes_[i] == box) return static_cast<int>(i);
  return -1;
}

RuleBox* SearchPane::InsertBox(RuleBox* box, int at) {
  at = std::clamp(at, 0, static_cast<int>(boxes_.size()));
  box->SetPlainMode(plain_);
  box->SetPickerOffer(plain_, simple_list_);
  box->SetDisableWildcards(disable_wildcards_);
  connect(box, &RuleBox::edited, this, &SearchPane::NoteEdit);
  connect(box, &RuleBox::removeRequested, this, [this, box] {
    RemoveBox(box);
    NoteEdit();
  });
  connect(box, &RuleBox::indentRequested, this, [this, box](int delta) { ChangeIndent(box, delta); });
  boxes_.insert(boxes_.begin() + at, box);
  rows_->insertWidget(at, box);
  Renumber();
  box->show();
  // Tab goes through the boxes in their order, then to "Add new rule".
  QWidget* previous = at == 0 ? static_cast<QWidget*>(start_) : boxes_[at - 1]->removeButton();
  setTabOrder(previous, box->contextCombo());
  setTabOrder(box->removeButton(), at + 1 < static_cast<int>(boxes_.size()) ? boxes_[at + 1]->contextCombo()
                                                                             : static_cast<QWidget*>(add_rule_));
  return box;
}

void SearchPane::RemoveBox(RuleBox* box) {
  const int at = IndexOf(box);
  if (at < 0) return;
  boxes_.erase(boxes_.begin() + at);
  rows_->removeWidget(box);
  box->hide();
  box->deleteLater();
  RepairIndents();
  Renumber();
  if (!boxes_.empty()) {
    RuleBox* next = boxes_[std::min(at, static_cast<int>(boxes_.size()) - 1)];
    current_ = next;
    if (isVisible()) next->valueWidget()->setFocus();
  }
}

void SearchPane::RemoveAllBoxes() {
  for (RuleBox* box : boxes_) {
    rows_->removeWidget(box);
    box->hide();
    box->deleteLater();
  }
  boxes_.clear();
  current_ = nullptr;
}

void SearchPane::Renumber() {
  for (size_t i = 0; i < boxes_.size(); ++i) boxes_[i]->SetNumber(static_cast<int>(i) + 1);
}

void SearchPane::FocusRules() {
  RuleBox* box = current_ ? current_.data() : boxes_.empty() ? nullptr : boxes_.front();
  if (box) {
    box->valueWidget()->setFocus(Qt::OtherFocusReason);
  } else {
    root_->combo()->setFocus(Qt::OtherFocusReason);
  }
}

void SearchPane::SetRules(const std::vector<rules::RulePtr>& rules) {
  RemoveAllBoxes();
  for (const rules::RulePtr& rule : rules)
    if (rule && rule->Kind() != rules::kKindInvalid) InsertBox(new RuleBox(*rule, this), static_cast<int>(boxes_.size()));
  RepairIndents();
  ShowRuleError(QString());
  // A panel without boxes offers nothing to type into: an empty list gives the default box.
  if (boxes_.empty()) DefaultRules();
}

bool SearchPane::CollectRules(std::vector<rules::RulePtr>* rules, QString* why) {
  std::vector<rules::RulePtr> out;
  for (RuleBox* box : boxes_) {
    rules::RulePtr rule;
    QString problem;
    if (!box->TakeRule(&rule, &problem)) {
      if (why) *why = problem;
      current_ = box;
      box->valueWidget()->setFocus();
      return false;
    }
    if (rule) out.push_back(rule);
  }
  // Empty boxes leave gaps in the grouping: the engine reads the indents of the rules it gets.
  int previous_indent = -1;
  for (rules::RulePtr& rule : out) {
    if (rule->Indent() > previous_indent + 1) rule->SetIndent(previous_indent + 1);
    previous_indent = rule->Indent();
  }
  *rules = std::move(out);
  return true;
}

void SearchPane::SetPlainMode(bool plain) {
  plain_ = plain;
  for (RuleBox* box : boxes_) {
    box->SetPlainMode(plain);
    box->SetPickerOffer(plain, simple_list_);
  }
}

void SearchPane::SetSimplePropertyList(const std::string& list) {
  simple_list_ = list;
  for (RuleBox* box : boxes_) box->SetPickerOffer(plain_, simple_list_);
}

void SearchPane::SetDisableWildcards(bool disable) {
  disable_wildcards_ = disable;
  for (RuleBox* box : boxes_) box->SetDisableWildcards(disable);
}

void SearchPane::ShowRuleError(const QString& text) {
  error_->setText(text);
  error_->setVisible(!text.isEmpty());
}

QString SearchPane::RuleErrorText() const { return error_->text(); }

void SearchPane::NoteEdit() {
  ShowRuleError(QString());
  emit rulesEdited();
}

void SearchPane::AddRule() {
  const int at = current_ ? IndexOf(current_) + 1 : static_cast<int>(boxes_.size());
  RuleBox* box = InsertBox(new RuleBox(*DefaultProperty(), this), at);
  // A new box joins the rules around it at the level of the box above.
  if (at > 0) box->SetIndent(boxes_[at - 1]->Indent());
  RepairIndents();
  current_ = box;
  if (isVisible()) box->valueWidget()->setFocus();
  NoteEdit();
}

void SearchPane::RemoveRule() {
  RuleBox* box = current_;
  if (!box && !boxes_.empty()) box = boxes_.back();
  if (!box) return;
  RemoveBox(box);
  NoteEdit();
}

void SearchPane::ClearAll() {
  for (RuleBox* box : boxes_) box->ClearValue();
  NoteEdit();
}

RuleBox* SearchPane::FindOrAddBox(const props::PropertyInfo& property) {
  for (RuleBox* box : boxes_)
    if (box->Property() && box->Property()->hash == property.hash) return box;
  RuleBox* box = InsertBox(new RuleBox(property, this), static_cast<int>(boxes_.size()));
  RepairIndents();
  NoteEdit();
  return box;
}

void SearchPane::DefaultRules() {
  RemoveAllBoxes();
  InsertBox(new RuleBox(*DefaultProperty(), this), 0);
  NoteEdit();
}

void SearchPane::ChangeIndent(RuleBox* box, int delta) {
  const int at = IndexOf(box);
  if (at < 0) return;
  const int limit = at == 0 ? 0 : boxes_[at - 1]->Indent() + 1;
  box->SetIndent(std::clamp(box->Indent() + delta, 0, limit));
  RepairIndents();
  NoteEdit();
}

void SearchPane::RepairIndents() {
  int previous = -1;
  for (RuleBox* box : boxes_) {
    if (box->Indent() > previous + 1) box->SetIndent(previous + 1);
    previous = box->Indent();
  }
  UpdateIndentButtons();
}

void SearchPane::UpdateIndentButtons() {
  for (size_t i = 0; i < boxes_.size(); ++i) {
    const int limit = i == 0 ? 0 : boxes_[i - 1]->Indent() + 1;
    boxes_[i]->indentButton()->setEnabled(boxes_[i]->Indent() < limit);
  }
}

app::RuleBoxLayout SearchPane::CaptureLayout(const std::string& name) const {
  auto geometry = [this](const QWidget* w, int line) {
    BandGeometry band;
    band.line = line;
    band.x = w->x();
    band.width = w->width();
    band.height = w->height();
    band.flags = (w->isHidden() ? kBandHidden : 0) | (plain_ ? kBandPlainMode : 0);
    return band;
  };
  std::vector<LayoutBox> boxes;
  for (size_t i = 0; i < boxes_.size(); ++i) {
    LayoutBox box;
    box.key = boxes_[i]->Key();
    box.context = boxes_[i]->Context();
    box.indent = boxes_[i]->Indent();
    box.band = geometry(boxes_[i], static_cast<int>(i) + 1);
    boxes.push_back(box);
  }
  return MakeRuleBoxLayout(name, boxes, geometry(root_, 0), geometry(add_rule_, static_cast<int>(boxes_.size()) + 1),
                           width());
}

void SearchPane::RestoreLayout(const app::RuleBoxLayout& layout) {
  std::vector<rules::RulePtr> rules;
  for (const LayoutBox& box : ReadRuleBoxLayout(layout)) {
    rules::RulePtr rule = rules::Rule::Create(box.key);
    if (rule->Kind() == rules::kKindInvalid) continue;
    rule->SetContext(box.context);
    rule->SetIndent(box.indent);
    rules.push_back(rule);
  }
  if (rules.empty()) return;
  SetRules(rules);
  NoteEdit();
}

void SearchPane::keyPressEvent(QKeyEvent* event) {
  // Enter anywhere in the panel that no control took for itself starts (or stops) the search:
  // the lines and lists leave Enter to their parent.
  if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
    event->accept();
    emit startStopRequested();
    return;
  }
  QWidget::keyPressEvent(event);
}

}  // namespace trovix::views
