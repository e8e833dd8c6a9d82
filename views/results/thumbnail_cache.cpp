#include "views/results/thumbnail_cache.h"

#include <QFileIconProvider>
#include <QImageReader>
#include <QMetaObject>
#include <QMimeDatabase>
#include <QPainter>
#include <QPixmap>

#include <algorithm>

namespace trovix::views {
namespace {

// A queue longer than a few screens only holds rows scrolled past long ago.
constexpr size_t kMaxQueued = 512;

QString Key(const QString& path, int edge) { return QString::number(edge) + ':' + path; }

}  // namespace

ThumbnailCache::ThumbnailCache(QObject* parent) : QObject(parent), thumbnails_(kMaxThumbnailBytes) {
  thread_ = std::thread([this] { Run(); });
}

ThumbnailCache::~ThumbnailCache() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stop_ = true;
  }
  wake_.notify_all();
  thread_.join();
}

void ThumbnailCache::SetEdge(int edge) {
  edge = std::clamp(edge, 32, 500);
  if (edge == edge_) return;
  edge_ = edge;
  thumbnails_.clear();
  failed_.clear();
}

bool ThumbnailCache::IsPicture(const std::string& path) {
  static const QList<QByteArray> formats = QImageReader::supportedImageFormats();
  const size_t dot = path.rfind('.');
  if (dot == std::string::npos || path.find('/', dot) != std::string::npos) return false;
  return formats.contains(QByteArray::fromStdString(path.substr(dot + 1)).toLower());
}

QIcon ThumbnailCache::IconFor(const std::string& path, bool folder) {
  const QString qpath = QString::fromStdString(path);
  if (!folder && IsPicture(path)) {
    const QString key = Key(qpath, edge_);
    if (QIcon* icon = thumbnails_.object(key)) return *icon;
    if (!failed_.contains(key)) {
      std::lock_guard<std::mutex> lock(mutex_);
      if (!queued_.contains(key)) {
        queued_.insert(key);
        queue_.emplace_back(qpath, edge_);
        if (queue_.size() > kMaxQueued) {
          queued_.remove(Key(queue_.front().first, queue_.front().second));
          queue_.pop_front();
        }
        wake_.notify_one();
      }
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

void ThumbnailCache::Run() {
  for (;;) {
    std::pair<QString, int> job;
    {
      std::unique_lock<std::mutex> lock(mutex_);
      wake_.wait(lock, [this] { return stop_ || !queue_.empty(); });
      if (stop_) return;
      job = queue_.back();  // the newest request: what is on screen now
      queue_.pop_back();
    }
    QImageReader reader(job.first);
    reader.setAutoTransform(true);
    const QSize full = reader.size();
    QImage image;
    if (full.isValid() && !full.isEmpty()) {
      reader.setScaledSize(full.scaled(job.second, job.second, Qt::KeepAspectRatio));
      image = reader.read();
    }
    if (!image.isNull()) {
      // Every thumbnail is a square of the edge with the picture in its middle, so the names
      // under them line up.
      QImage square(job.second, job.second, QImage::Format_ARGB32_Premultiplied);
      square.fill(Qt::transparent);
      QPainter painter(&square);
      painter.drawImage((job.second - image.width()) / 2, (job.second - image.height()) / 2, image);
      painter.end();
      image = square;
    }
    const QString key = Key(job.first, job.second);
    QMetaObject::invokeMethod(
        this,
        [this, key, image] {
          {
            std::lock_guard<std::mutex> lock(mutex_);
            queued_.remove(key);
          }
          if (image.isNull()) {
            failed_.insert(key);
            return;
          }
          thumbnails_.insert(key, new QIcon(QPixmap::fromImage(image)),
                             static_cast<int>(std::max<qsizetype>(1, image.sizeInBytes())));
          emit ready();
        },
        Qt::QueuedConnection);
  }
}

}  // namespace trovix::views
