// The Properties box of a result (Alt+Enter): every property value the item has, as the rules
// and the columns see it, by label and canonical name. What a rule on a photo's camera or a
// song's artist would compare is there to read before the rule is written.
//
// The values are read on a thread of the box's own, from an item of its own made from the
// path (a document's properties come from the extraction helper and may take a moment); the
// box opens at once and fills when they arrive. UI thread for everything else.
#pragma once

#include <QDialog>

#include <string>
#include <thread>

class QLabel;
class QTableWidget;

namespace trovix::views {

class PropertiesDialog : public QDialog {
  Q_OBJECT
 public:
  PropertiesDialog(std::string path, QWidget* parent = nullptr);
  ~PropertiesDialog() override;

  QTableWidget* table() { return table_; }

 signals:
  // The values are in the table (or the item could not be read: the label says so).
  void loaded();

 private:
  QLabel* heading_ = nullptr;
  QTableWidget* table_ = nullptr;
  std::thread reader_;
};

// Opens the box for `path` without waiting for it (it deletes itself when closed).
PropertiesDialog* ShowProperties(QWidget* parent, const std::string& path);

}  // namespace trovix::views
