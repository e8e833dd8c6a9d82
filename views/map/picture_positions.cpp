#include "views/map/picture_positions.h"

#include <QMetaObject>

#include <algorithm>

#include "app/map_search.h"
#include "engine/results/results_loader.h"
#include "props/catalogue.h"
#include "props/fetcher.h"

namespace trovix::views {
namespace {

// The four properties of a position, looked up once.
struct PositionProperties {
  const props::PropertyInfo* latitude;
  const props::PropertyInfo* longitude;
  const props::PropertyInfo* latitude_ref;
  const props::PropertyInfo* longitude_ref;
  bool complete() const { return latitude && longitude; }
};

const PositionProperties& Properties() {
  static const PositionProperties p = [] {
    const props::Catalogue& all = props::AllPropertiesCatalogue();
    return PositionProperties{all.FindProperty(app::kLatitudeProperty), all.FindProperty(app::kLongitudeProperty),
                              all.FindProperty("System.GPS.LatitudeRef"), all.FindProperty("System.GPS.LongitudeRef")};
  }();
  return p;
}

// The position from the four values; false when the item has none.
bool Position(const props::PropValue* lat, const props::PropValue* lng, const props::PropValue* lat_ref,
              const props::PropValue* lng_ref, bool use_ref, double* latitude, double* longitude) {
  auto parts = [](const props::PropValue* v) -> std::vector<double> {
    if (!v || v->IsEmpty()) return {};
    if (!v->doubles().empty()) return v->doubles();
    return {v->AsDouble()};
  };
  auto ref = [](const props::PropValue* v) { return v && !v->IsEmpty() ? v->ToDisplayText() : std::string(); };
  const auto la = app::DecimalDegrees(parts(lat), ref(lat_ref), use_ref);
  const auto lo = app::DecimalDegrees(parts(lng), ref(lng_ref), use_ref);
  if (!la || !lo || *la < -90 || *la > 90 || *lo < -180 || *lo > 180) return false;
  *latitude = *la;
  *longitude = *lo;
  return true;
}

}  // namespace

PicturePositions::PicturePositions(QObject* parent) : QObject(parent) {
  loader_ = std::make_unique<engine::CostlyValueLoader>([this](std::vector<engine::LoadedValues> batch, bool idle) {
    auto shared = std::make_shared<std::vector<engine::LoadedValues>>(std::move(batch));
    QMetaObject::invokeMethod(
        this,
        [this, shared, idle] {
          Apply(std::move(*shared));
          if (idle && waiting_ == 0) emit finished(found_, not_shown_);
        },
        Qt::QueuedConnection);
  });
}

// The loader goes first: its thread must not post to an object being destroyed.
PicturePositions::~PicturePositions() { loader_.reset(); }

bool PicturePositions::ReadPosition(props::ShellItem& item, bool use_ref, double* latitude, double* longitude) {
  const PositionProperties& p = Properties();
  if (!p.complete()) return false;
  auto get = [&item](const props::PropertyInfo* info) -> const props::PropValue* {
    if (!info) return nullptr;
    const props::CachedValue* cached = props::GetCachedValue(item, *info);
    return cached ? &cached->value : nullptr;
  };
  return Position(get(p.latitude), get(p.longitude), get(p.latitude_ref), get(p.longitude_ref), use_ref, latitude,
                  longitude);
}

void PicturePositions::Start(std::vector<props::ShellItemPtr> items, bool use_ref) {
  loader_->Cancel();
  ++generation_;
  items_ = std::move(items);
  use_ref_ = use_ref;
  found_ = 0;
  not_shown_ = 0;
  waiting_ = 0;
  const PositionProperties& p = Properties();
  if (!p.complete()) {
    emit finished(0, 0);
    return;
  }
  std::vector<MapPicture> cached;
  std::vector<engine::LoadRequest> requests;
  for (size_t i = 0; i < items_.size(); ++i) {
    props::ShellItem& item = *items_[i];
    props::CachedValue* lat = item.FindCached(p.latitude->hash);
    props::CachedValue* lng = item.FindCached(p.longitude->hash);
    if (lat && lng) {
      // Read while the rules were tested: no need to ask the file again.
      props::CachedValue* lat_ref = p.latitude_ref ? item.FindCached(p.latitude_ref->hash) : nullptr;
      props::CachedValue* lng_ref = p.longitude_ref ? item.FindCached(p.longitude_ref->hash) : nullptr;
      MapPicture picture{static_cast<int>(i), 0, 0, QString::fromStdString(item.DisplayName())};
      if (Position(&lat->value, &lng->value, lat_ref ? &lat_ref->value : nullptr,
                   lng_ref ? &lng_ref->value : nullptr, use_ref_, &picture.latitude, &picture.longitude)) {
        if (found_ < kMaxPictures) {
          cached.push_back(std::move(picture));
          ++found_;
        } else {
          ++not_shown_;
        }
      }
      continue;
    }
    if (!item.IsFileSystem()) continue;
    if (found_ + static_cast<int>(requests.size()) >= kMaxPictures) {
      ++not_shown_;
      continue;
    }
    requests.push_back(engine::LoadRequest{generation_, static_cast<uint32_t>(i), item.path(), item.follow_links(),
                                           {p.latitude, p.longitude, p.latitude_ref, p.longitude_ref}});
  }
  if (!cached.empty()) emit picturesFound(cached);
  waiting_ = static_cast<int>(requests.size());
  if (waiting_ == 0) {
    emit finished(found_, not_shown_);
    return;
  }
  // The loader answers the newest request first: hand them over last row first, so the
  // first rows of the list are read first.
  std::reverse(requests.begin(), requests.end());
  loader_->Request(std::move(requests));
}

void PicturePositions::Apply(std::vector<engine::LoadedValues> batch) {
  const PositionProperties& p = Properties();
  std::vector<MapPicture> pictures;
  for (engine::LoadedValues& loaded : batch) {
    if (loaded.generation != generation_ || loaded.row >= items_.size()) continue;
    --waiting_;
    const props::PropValue* values[4] = {nullptr, nullptr, nullptr, nullptr};
    const props::PropertyInfo* wanted[4] = {p.latitude, p.longitude, p.latitude_ref, p.longitude_ref};
    for (auto& [hash, value] : loaded.values)
      for (int k = 0; k < 4; ++k)
        if (wanted[k] && wanted[k]->hash == hash) values[k] = &value;
    MapPicture picture{static_cast<int>(loaded.row), 0, 0,
                       QString::fromStdString(items_[loaded.row]->DisplayName())};
    if (Position(values[0], values[1], values[2], values[3], use_ref_, &picture.latitude, &picture.longitude)) {
      pictures.push_back(std::move(picture));
      ++found_;
    }
  }
  if (!pictures.empty()) emit picturesFound(pictures);
}

props::ShellItemPtr PicturePositions::Item(int id) const {
  return id >= 0 && static_cast<size_t>(id) < items_.size() ? items_[static_cast<size_t>(id)] : nullptr;
}

}  // namespace trovix::views
