// ElidedLabel: a one-line label that shows as much of its text as fits, ending in "…" when it
// is cut, with the whole text in its tool tip. A status-bar notice naming a long path is cut
// visibly rather than mid-word at the window's edge.
#pragma once

#include <QLabel>
#include <QString>

namespace trovix::views {

class ElidedLabel : public QLabel {
 public:
  explicit ElidedLabel(QWidget* parent = nullptr);
  void SetFullText(const QString& text);
  const QString& full_text() const { return full_; }

 protected:
  void resizeEvent(QResizeEvent* event) override;

 private:
  void Elide();
  QString full_;
};

}  // namespace trovix::views
