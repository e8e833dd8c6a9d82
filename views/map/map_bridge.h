// The object the map page reaches as "external" over the web channel: the page asks it for the
// remembered centre (setMapCoords), says when the map stands (pageReady), pulls the pictures to
// mark in batches (takeMarkers) and reports a click on one (openPicture). The names the page
// calls keep the map page's own interface.
//
// UI thread; the web channel calls it there.
#pragma once

#include <QObject>
#include <QVariantList>
#include <QVariantMap>

#include <deque>
#include <vector>

#include "app/map_search.h"
#include "views/map/picture_positions.h"

namespace trovix::views {

class MapBridge : public QObject {
  Q_OBJECT
 public:
  // `state` is the process's map state; it must outlive the bridge.
  explicit MapBridge(app::MapState* state, QObject* parent = nullptr);

  // Pictures to mark: queued here until the page takes them.
  void ClearPictures();
  void AddPictures(const std::vector<MapPicture>& pictures);
  size_t queued() const { return queue_.size(); }
  bool page_ready() const { return page_ready_; }

  // The page's calls.
  // The inputs "top", "left" (with "%g") and "zoom" (at least 1) the page writes into its form;
  // an empty map on first use (no centre known), so the page keeps its defaults.
  Q_INVOKABLE QVariantMap setMapCoords();
  Q_INVOKABLE void pageReady();
  // Up to `max` queued pictures, each [id, latitude, longitude, name].
  Q_INVOKABLE QVariantList takeMarkers(int max);
  Q_INVOKABLE void openPicture(int id);
  Q_INVOKABLE void markersShown(int count);

 signals:
  void markersWaiting();
  void markersCleared();
  void ready();
  void pictureOpened(int id);
  void shownCountChanged(int count);

 private:
  app::MapState* state_;
  std::deque<MapPicture> queue_;
  bool page_ready_ = false;
};

}  // namespace trovix::views
