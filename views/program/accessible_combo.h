// Combo boxes that a screen reader announces by their accessible name ("Rule 2 context") with
// the chosen entry as their value. On Linux Qt's own interface gives a combo box its current
// text as its name too, which leaves a reader saying "AND" with no word of what it belongs to.
//
// UI thread.
#pragma once

#include <QComboBox>

namespace trovix::views {

// A QComboBox read by its accessibleName(); its current text is its value.
class NamedComboBox : public QComboBox {
  Q_OBJECT
 public:
  explicit NamedComboBox(QWidget* parent = nullptr);
};

}  // namespace trovix::views
