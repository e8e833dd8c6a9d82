// The frame's filter bar: the quick filter box, the "Match name only" check box and the
// "Show all items" button. It only reports what the user typed or chose; the results pane
// does the filtering.
//
// UI thread.
#pragma once

#include <QWidget>

class QCheckBox;
class QLineEdit;
class QToolButton;

namespace trovix::views {

class FilterBar : public QWidget {
  Q_OBJECT
 public:
  explicit FilterBar(QWidget* parent = nullptr);

  // The filter box ("Quick filter keyword can match filenames or all the information shown as
  // item details (columns)").
  QLineEdit* box();
  // The "Match name only" check box.
  bool matchNameOnly() const;
  QCheckBox* nameOnlyBox() { return name_only_; }
  QToolButton* showAllButton() { return show_all_; }

 signals:
  void filterChanged(const QString& text, bool name_only);
  // Command 32901 "Show all items": the box is emptied as well.
  void showAllRequested();

 private:
  QLineEdit* box_;
  QCheckBox* name_only_;
  QToolButton* show_all_;
};

}  // namespace trovix::views
