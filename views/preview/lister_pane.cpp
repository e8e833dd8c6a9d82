#include "views/preview/lister_pane.h"

#include <QGuiApplication>
#include <QWindow>

namespace trovix::views {

ListerPane::ListerPane(QWidget* parent) : QWidget(parent) {
  setObjectName("listerQV");
  setAccessibleName(tr("Preview by a lister plugin"));
  // The lister draws the whole pane: Qt paints nothing under it.
  setAttribute(Qt::WA_OpaquePaintEvent);
  setFocusPolicy(Qt::StrongFocus);
}

ListerPane::~ListerPane() { delete foreign_; }

uint64_t ListerPane::ParentWindow() {
  if (QGuiApplication::platformName() != QLatin1String("xcb")) return 0;
  setAttribute(Qt::WA_NativeWindow);
  return static_cast<uint64_t>(winId());
}

void ListerPane::Embed(uint64_t window) {
  if (window == window_ && foreign_) {
    Fit();
    return;
  }
  delete foreign_;
  foreign_ = nullptr;
  window_ = window;
  if (window == 0) return;
  foreign_ = QWindow::fromWinId(static_cast<WId>(window));
  Fit();
}

uint64_t ListerPane::Release() {
  delete foreign_;  // the wrapper only: the window is the lister's to close
  foreign_ = nullptr;
  const uint64_t window = window_;
  window_ = 0;
  return window;
}

void ListerPane::Fit() {
  if (foreign_) foreign_->setGeometry(0, 0, width(), height());
}

void ListerPane::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  Fit();
}

}  // namespace trovix::views
