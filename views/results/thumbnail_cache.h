// Thumbnails of pictures for the results list's thumbnail view. A picture is decoded and scaled
// to the thumbnail edge (nThumbSize) by the sandboxed renderer (views/preview/render_service.h),
// never in this process, asked from a queue of the cache's own, newest request first, so the
// rows on screen come before the ones scrolled past; `ready` then asks the view to repaint.
// A picture that hangs or crashes the renderer gets its type's icon, like one that is damaged.
// At most kMaxThumbnailBytes of thumbnails are kept, least recently used first out. Items that
// are no picture (or cannot be decoded) get their file type's icon from the desktop's theme.
//
// UI thread.
#pragma once

#include <QCache>
#include <QHash>
#include <QIcon>
#include <QImage>
#include <QObject>
#include <QSet>

#include <memory>
#include <string>

namespace trovix::views {

class BackgroundQueue;
class RenderService;

inline constexpr int kMaxThumbnailBytes = 64 << 20;

class ThumbnailCache : public QObject {
  Q_OBJECT
 public:
  // `service`: the renderer to ask; null for the process's shared one.
  explicit ThumbnailCache(QObject* parent = nullptr, std::shared_ptr<RenderService> service = nullptr);
  ~ThumbnailCache() override;

  // The edge of a thumbnail in pixels (32 to 500); changing it empties the cache.
  void SetEdge(int edge);
  int edge() const { return edge_; }

  // The thumbnail of `path`, or the type's icon; for a picture not decoded yet, the icon now and
  // the thumbnail after `ready`.
  QIcon IconFor(const std::string& path, bool folder);

  // Whether the cache would ask for a picture of `path` (a type the renderer's image readers
  // know, by its extension; nothing is read).
  static bool IsPicture(const std::string& path);

 signals:
  void ready();

 private:
  void Take(const QString& key, const QImage& image);

  int edge_ = 96;
  QCache<QString, QIcon> thumbnails_;
  QSet<QString> failed_;  // decoded once and failed: the icon stands
  QHash<QString, QIcon> type_icons_;
  QSet<QString> queued_;  // asked of the renderer, not answered yet
  std::shared_ptr<RenderService> service_;
  BackgroundQueue* queue_;
};

}  // namespace trovix::views
