#include "views/map/map_bridge.h"

#include <algorithm>

namespace trovix::views {

MapBridge::MapBridge(app::MapState* state, QObject* parent) : QObject(parent), state_(state) {}

QVariantMap MapBridge::setMapCoords() {
  QVariantMap inputs;
  if (auto values = app::MapInputsFor(*state_)) {
    inputs["top"] = QString::fromStdString(values->top);
    inputs["left"] = QString::fromStdString(values->left);
    inputs["zoom"] = QString::fromStdString(values->zoom);
  }
  return inputs;
}

void MapBridge::pageReady() {
  page_ready_ = true;
  emit ready();
  if (!queue_.empty()) emit markersWaiting();
}

void MapBridge::ClearPictures() {
  queue_.clear();
  emit markersCleared();
}

void MapBridge::AddPictures(const std::vector<MapPicture>& pictures) {
  queue_.insert(queue_.end(), pictures.begin(), pictures.end());
  if (page_ready_ && !pictures.empty()) emit markersWaiting();
}

QVariantList MapBridge::takeMarkers(int max) {
  QVariantList batch;
  const size_t n = std::min(queue_.size(), static_cast<size_t>(std::clamp(max, 1, 5000)));
  batch.reserve(static_cast<qsizetype>(n));
  for (size_t i = 0; i < n; ++i) {
    const MapPicture& p = queue_.front();
    batch.push_back(QVariantList{p.id, p.latitude, p.longitude, p.name});
    queue_.pop_front();
  }
  return batch;
}

void MapBridge::openPicture(int id) { emit pictureOpened(id); }

void MapBridge::markersShown(int count) { emit shownCountChanged(count); }

}  // namespace trovix::views
