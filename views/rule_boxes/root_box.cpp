#include "views/rule_boxes/root_box.h"

#include <QComboBox>
#include <QDir>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QStyle>
#include <QToolButton>
#include <algorithm>

#include "views/program/accessible_combo.h"

namespace trovix::views {

std::vector<app::FrequentFolder> FoldersByUse(std::vector<app::FrequentFolder> folders) {
  std::erase_if(folders, [](const app::FrequentFolder& f) { return f.szItem.empty() || f.nFreq < 1; });
  std::stable_sort(folders.begin(), folders.end(),
                   [](const app::FrequentFolder& a, const app::FrequentFolder& b) { return a.nFreq > b.nFreq; });
  return folders;
}

RootBox::RootBox(QWidget* parent)
    : QWidget(parent), combo_(new NamedComboBox(this)), browse_(new QToolButton(this)) {
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(3);

  combo_->setEditable(true);
  combo_->setInsertPolicy(QComboBox::NoInsert);
  combo_->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  combo_->setMinimumWidth(160);
  combo_->setAccessibleName(tr("Root folder"));
  combo_->setToolTip(tr("The folder to search in; several folders may be joined by |"));
  combo_->lineEdit()->setPlaceholderText(tr("Look in folder"));
  combo_->lineEdit()->setAccessibleName(tr("Root folder"));
  connect(combo_, &QComboBox::editTextChanged, this, [this] { emit edited(); });
  row->addWidget(combo_, 1);

  browse_->setIcon(style()->standardIcon(QStyle::SP_DirOpenIcon));
  browse_->setToolTip(tr("Choose the folder to search in"));
  browse_->setAccessibleName(tr("Choose root folder"));
  connect(browse_, &QToolButton::clicked, this, &RootBox::Browse);
  row->addWidget(browse_);
}

QString RootBox::Text() const { return combo_->currentText(); }

void RootBox::SetText(const QString& text) { combo_->setEditText(text); }

void RootBox::SetFrequentFolders(const std::vector<app::FrequentFolder>& folders) {
  const QString typed = combo_->currentText();
  combo_->clear();
  for (const app::FrequentFolder& folder : FoldersByUse(folders))
    combo_->addItem(QString::fromStdString(folder.szItem));
  combo_->setEditText(typed);
}

void RootBox::Browse() {
  // Start from the first root typed, when it is a folder.
  QString start = Text().section('|', 0, 0).trimmed();
  if (start.isEmpty() || !QDir(start).exists()) start = QDir::homePath();
  const QString chosen = QFileDialog::getExistingDirectory(this, tr("Choose the folder to search in"), start);
  if (chosen.isEmpty()) return;
  SetText(QDir::toNativeSeparators(chosen));
  emit edited();
}

}  // namespace trovix::views
