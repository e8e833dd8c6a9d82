#include "views/frame/filter_bar.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QToolButton>

#include "views/qt_text.h"

namespace trovix::views {

FilterBar::FilterBar(QWidget* parent) : QWidget(parent) {
  setAccessibleName(tr("Filter bar"));
  box_ = new QLineEdit(this);
  box_->setClearButtonEnabled(true);
  box_->setPlaceholderText(tr("Quick filter"));
  box_->setAccessibleName(tr("Quick filter"));
  box_->setToolTip(tr("Quick filter keyword can match filenames or all the information shown as item details (columns)"));
  box_->setAccessibleDescription(box_->toolTip());

  name_only_ = new QCheckBox(tr("Match name only"), this);
  name_only_->setAccessibleName(tr("Match name only"));

  show_all_ = new QToolButton(this);
  show_all_->setText(StringText(32901));
  show_all_->setToolTip(StringText(32901));
  show_all_->setAccessibleName(StringText(32901));

  auto* layout = new QHBoxLayout(this);
  layout->setContentsMargins(2, 2, 2, 2);
  layout->addWidget(box_, 1);
  layout->addWidget(name_only_);
  layout->addWidget(show_all_);

  connect(box_, &QLineEdit::textChanged, this, [this](const QString& text) { emit filterChanged(text, matchNameOnly()); });
  connect(name_only_, &QCheckBox::toggled, this, [this](bool on) { emit filterChanged(box_->text(), on); });
  connect(show_all_, &QToolButton::clicked, this, [this] {
    box_->clear();
    emit showAllRequested();
  });
}

QLineEdit* FilterBar::box() { return box_; }

bool FilterBar::matchNameOnly() const { return name_only_->isChecked(); }

}  // namespace trovix::views
