#include "views/frame/properties_dialog.h"

#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLabel>
#include <QCoreApplication>
#include <QMetaObject>
#include <QPointer>
#include <QTableWidget>
#include <QVBoxLayout>

#include <algorithm>
#include <memory>
#include <vector>

#include "engine/results/property_listing.h"
#include "props/catalogue.h"
#include "props/shell_item.h"
#include "views/program/mnemonics.h"

namespace trovix::views {
namespace {

struct Row {
  QString label, name, text;
};

}  // namespace

PropertiesDialog::PropertiesDialog(std::string path, QWidget* parent) : QDialog(parent) {
  setWindowTitle(tr("Properties"));
  setAccessibleName(tr("Properties"));
  auto* layout = new QVBoxLayout(this);
  heading_ = new QLabel(QString::fromStdString(path) + "\n" + tr("Reading the properties..."), this);
  heading_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  heading_->setWordWrap(true);
  // Read by its text (the item and how many values it has), not by a fixed name.
  heading_->setAccessibleDescription(tr("Item"));
  layout->addWidget(heading_);
  table_ = new QTableWidget(0, 3, this);
  table_->setHorizontalHeaderLabels({tr("Property"), tr("Value"), tr("Canonical name")});
  table_->setAccessibleName(tr("Property values"));
  table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  table_->setSelectionBehavior(QAbstractItemView::SelectRows);
  table_->verticalHeader()->hide();
  table_->verticalHeader()->setDefaultSectionSize(table_->fontMetrics().height() + 6);
  table_->horizontalHeader()->setStretchLastSection(true);
  table_->setWordWrap(false);
  layout->addWidget(table_, 1);
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
  GiveMnemonics(buttons);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  layout->addWidget(buttons);
  resize(720, 520);

  QPointer<PropertiesDialog> self(this);
  reader_ = std::thread([self, path] {
    auto rows = std::make_shared<std::vector<Row>>();
    props::ShellItemPtr item = props::ShellItem::FromPath(path);
    const bool readable = item && item->Status() != nullptr;
    if (readable) {
      for (const engine::PropertyText& p : engine::ListProperties(*item, props::DefaultCatalogue()))
        rows->push_back({QString::fromStdString(p.property->label), QString::fromStdString(p.property->name),
                         QString::fromStdString(p.text)});
    }
    // The box may have been closed meanwhile: the queued call then goes nowhere.
    QMetaObject::invokeMethod(
        qApp,
        [self, rows, readable, path] {
          if (!self) return;
          self->heading_->setText(QString::fromStdString(path) + "\n" +
                                  (readable ? tr("%n property value(s)", nullptr, static_cast<int>(rows->size()))
                                            : tr("This item cannot be read: it was moved, deleted or is not accessible.")));
          self->table_->setRowCount(static_cast<int>(rows->size()));
          for (int i = 0; i < static_cast<int>(rows->size()); ++i) {
            const Row& r = (*rows)[static_cast<size_t>(i)];
            self->table_->setItem(i, 0, new QTableWidgetItem(r.label));
            // A value of several lines (an info tip) stays on its row; the tool tip shows it whole.
            auto* value = new QTableWidgetItem(QString(r.text).replace('\n', QStringLiteral("; ")));
            value->setToolTip(r.text);
            self->table_->setItem(i, 1, value);
            self->table_->setItem(i, 2, new QTableWidgetItem(r.name));
          }
          self->table_->resizeColumnToContents(0);
          self->table_->resizeColumnToContents(1);
          self->table_->setColumnWidth(1, std::clamp(self->table_->columnWidth(1), 120, 360));
          emit self->loaded();
        },
        Qt::QueuedConnection);
  });
}

PropertiesDialog::~PropertiesDialog() {
  // A box closed while its values are read waits for the reader, which holds no part of it.
  if (reader_.joinable()) reader_.join();
}

PropertiesDialog* ShowProperties(QWidget* parent, const std::string& path) {
  auto* dialog = new PropertiesDialog(path, parent);
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->show();
  // The box takes the keyboard at once, on its table, so that the values can be read with the
  // arrow keys and Escape closes it again.
  dialog->raise();
  dialog->activateWindow();
  dialog->table()->setFocus(Qt::ActiveWindowFocusReason);
  return dialog;
}

}  // namespace trovix::views
