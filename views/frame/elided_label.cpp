#include "views/frame/elided_label.h"

#include <QFontMetrics>
#include <QResizeEvent>

namespace trovix::views {

ElidedLabel::ElidedLabel(QWidget* parent) : QLabel(parent) {
  setTextFormat(Qt::PlainText);
  // The layout gives it the room there is; the text follows the width, not the other way.
  setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
}

void ElidedLabel::SetFullText(const QString& text) {
  full_ = text;
  setToolTip(text);
  setAccessibleName(text);  // a screen reader hears the whole notice
  Elide();
}

void ElidedLabel::resizeEvent(QResizeEvent* event) {
  QLabel::resizeEvent(event);
  Elide();
}

void ElidedLabel::Elide() { setText(fontMetrics().elidedText(full_, Qt::ElideRight, contentsRect().width())); }

}  // namespace trovix::views
