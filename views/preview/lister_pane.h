// ListerPane: the quick view's presentation for lister plugins. A lister makes its window in a
// plugin host (props/plugins/lister_plugins.h) as a child of this pane's native X11 window;
// the pane keeps that window at its own size through a foreign-window wrapper
// (QWindow::fromWinId) and lets it go when the quick view moves to another presentation.
//
// Only on X11: on any other platform (Wayland without XWayland, offscreen) the pane has no
// window a lister could draw into, ParentWindow() is 0, and the quick view moves on to the
// next presentation.
//
// UI thread.
#pragma once

#include <QWidget>

#include <cstdint>

class QWindow;

namespace trovix::views {

class ListerPane : public QWidget {
  Q_OBJECT
 public:
  explicit ListerPane(QWidget* parent = nullptr);
  ~ListerPane() override;

  // The X11 window id a lister makes its window in (the pane's own, made native now); 0 when
  // the program does not run on X11.
  uint64_t ParentWindow();
  // The lister's window: kept at the pane's size from now on.
  void Embed(uint64_t window);
  // Lets the lister's window go; returns it (to be closed by its host), 0 when none.
  uint64_t Release();
  uint64_t window() const { return window_; }

 protected:
  void resizeEvent(QResizeEvent* event) override;

 private:
  void Fit();

  uint64_t window_ = 0;
  QWindow* foreign_ = nullptr;
};

}  // namespace trovix::views
