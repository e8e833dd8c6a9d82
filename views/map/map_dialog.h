// The picture map dialog: a world map in an embedded web view, a name field for keeping the
// area, and the World, OK, Cancel and Help commands. OK reads the visible rectangle from the
// page (getMapRange), remembers its centre and zoom for the next dialog, and hands the area
// (named when a name was typed) to whoever opened the dialog. The page's markers show where
// pictures were shot; clicking one reports the picture.
//
// When the page does not load, or its web channel does not connect within kPageTimeoutMs, the
// dialog says so with message 10037 and stays open (the name field and Cancel still work).
//
// UI thread.
#pragma once

#include <QDialog>

#include <functional>
#include <optional>

#include "app/map_search.h"
#include "views/map/map_bridge.h"

class QLabel;
class QLineEdit;
class QPushButton;
class QTimer;
class QWebEngineView;
class QWebChannel;

namespace trovix::views {

class MapDialog : public QDialog {
  Q_OBJECT
 public:
  static constexpr int kPageTimeoutMs = 20000;

  // The page and how long it may take to connect; tests give a page that never connects.
  struct Page {
    QString url = "qrc:/map/map.html";
    int timeout_ms = kPageTimeoutMs;
  };

  // `state` is the process's map state (read when the page asks, written on OK); it must
  // outlive the dialog.
  explicit MapDialog(app::MapState* state, QWidget* parent = nullptr) : MapDialog(state, Page{}, parent) {}
  MapDialog(app::MapState* state, const Page& page, QWidget* parent = nullptr);
  ~MapDialog() override;

  MapBridge* bridge() { return bridge_; }
  QWebEngineView* view() { return view_; }
  QLineEdit* nameField() { return name_; }
  QPushButton* worldButton() { return world_; }
  bool PageReady() const { return bridge_->page_ready(); }
  // The area OK chose; empty until then.
  const std::optional<app::MapArea>& chosen() const { return chosen_; }

  // Calls a page function by name with no arguments; `done` learns whether it ran and
  // answered true.
  void CallPage(const QString& function, std::function<void(bool)> done = {});
  // Runs `script` in the page and hands its result (invalid when it failed) to `done`.
  void RunScript(const QString& script, std::function<void(const QVariant&)> done);
  // The status line under the map (how many pictures are marked).
  void SetPictureStatus(const QString& text);

  // The dialog's commands, as their buttons run them.
  void World();
  void Ok();
  void Help();

 signals:
  void areaChosen(const trovix::app::MapArea& area);
  void pageFailed();

 private:
  void PageFailed();

  app::MapState* state_;
  MapBridge* bridge_;
  QWebChannel* channel_;
  QWebEngineView* view_;
  QLineEdit* name_;
  QPushButton* world_;
  QLabel* status_;
  QTimer* page_timer_;
  bool failed_ = false;
  std::optional<app::MapArea> chosen_;
};

}  // namespace trovix::views
