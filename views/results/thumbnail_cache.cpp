#include "views/results/thumbnail_cache.h"

#include <QFileIconProvider>
#include <QImageReader>
#include <QMimeDatabase>
#include <QPixmap>
#include <QPointer>

#include <algorithm>

#include "views/preview/background_queue.h"
#include "views/preview/render_service.h"

namespace trovix::views {
namespace {

// A queue longer than a few screens only holds rows scrolled past long ago.
constexpr size_t kMaxQueued = 512;

QString Key(const QString& path, int edge) { return QString::number(edge) + ':' + path; }

}  // namespace

ThumbnailCache::ThumbnailCache(QObject* parent, std::shared_ptr<RenderService> service)
    : QObject(parent),
      thumbnails_(kMaxThumbnailBytes),
      service_(service ? std::move(service) : RenderService::Shared()),
      queue_(new BackgroundQueue(kMaxQueued, this)) {}

ThumbnailCache::~ThumbnailCache() = default;

void ThumbnailCache::SetEdge(int edge) {
  edge = std::clamp(edge, 32, 500);
  if (edge == edge_) return;
  edge_ = edge;
  thumbnails_.clear();
  failed_.clear();
}

bool ThumbnailCache::IsPicture(const std::string& path) {
  // The list of readers only, no decoding; the renderer runs the same Qt's readers, less the
  // ones that need a whole GUI application (vector pictures), which it refuses.
  static const QList<QByteArray> formats = [] {
    QList<QByteArray> list = QImageReader::supportedImageFormats();
    list.removeAll("svg");
    list.removeAll("svgz");
    return list;
  }();
  const size_t dot = path.rfind('.');
  if (dot == std::string::npos || path.find('/', dot) != std::string::npos) return false;
  return formats.contains(QByteArray::fromStdString(path.substr(dot + 1)).toLower());
}

QIcon ThumbnailCache::IconFor(const std::string& path, bool folder) {
  const QString qpath = QString::fromStdString(path);
  if (!folder && IsPicture(path)) {
    const QString key = Key(qpath, edge_);
    if (QIcon* icon = thumbnails_.object(key)) return *icon;
    if (!failed_.contains(key) && !queued_.contains(key)) {
      queued_.insert(key);
      render::RenderRequest request;
      request.op = render::kOpThumbnail;
      request.path = path;
      request.width = request.height = static_cast<uint32_t>(edge_);
      std::shared_ptr<RenderService> service = service_;
      QPointer<ThumbnailCache> self(this);
      queue_->Post([service, request, key, self]() -> std::function<void()> {
        QImage image = service->Render(request).image;
        return [self, key, image] {
          if (self) self->Take(key, image);
        };
      }, [this, key] { queued_.remove(key); });
    }
  }
  // The type's icon, from the theme by the file's media type (by name: nothing is read).
  static const QMimeDatabase mimes;
  const QMimeType type = folder ? mimes.mimeTypeForName("inode/directory")
                                : mimes.mimeTypeForFile(qpath, QMimeDatabase::MatchExtension);
  auto it = type_icons_.find(type.name());
  if (it == type_icons_.end()) {
    QFileIconProvider provider;
    QIcon fallback = provider.icon(folder ? QFileIconProvider::Folder : QFileIconProvider::File);
    QIcon icon = QIcon::fromTheme(type.iconName(), QIcon::fromTheme(type.genericIconName(), fallback));
    it = type_icons_.insert(type.name(), icon);
  }
  return *it;
}

void ThumbnailCache::Take(const QString& key, const QImage& image) {
  queued_.remove(key);
  if (image.isNull()) {
    failed_.insert(key);
    return;
  }
  thumbnails_.insert(key, new QIcon(QPixmap::fromImage(image)), static_cast<int>(std::max<qsizetype>(1, image.sizeInBytes())));
  emit ready();
}

}  // namespace trovix::views
