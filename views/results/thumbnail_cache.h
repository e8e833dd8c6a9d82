// Thumbnails of pictures for the results list's thumbnail view. A picture is decoded, scaled
// to the thumbnail edge (nThumbSize) on one thread of the cache's own, newest request first, so
// the rows on screen come before the ones scrolled past; `ready` then asks the view to repaint.
// At most kMaxThumbnailBytes of thumbnails are kept, least recently used first out. Items that
// are no picture (or cannot be decoded) get their file type's icon from the desktop's theme.
//
// UI thread, but for the private decoding thread.
#pragma once

#include <QCache>
#include <QHash>
#include <QIcon>
#include <QImage>
#include <QObject>
#include <QSet>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

namespace trovix::views {

inline constexpr int kMaxThumbnailBytes = 64 << 20;

class ThumbnailCache : public QObject {
  Q_OBJECT
 public:
  explicit ThumbnailCache(QObject* parent = nullptr);
  ~ThumbnailCache() override;

  // The edge of a thumbnail in pixels (32 to 500); changing it empties the cache.
  void SetEdge(int edge);
  int edge() const { return edge_; }

  // The thumbnail of `path`, or the type's icon; for a picture not decoded yet, the icon now and
  // the thumbnail after `ready`.
  QIcon IconFor(const std::string& path, bool folder);

  // Whether the cache would decode `path` (a picture type the image readers know).
  static bool IsPicture(const std::string& path);

 signals:
  void ready();

 private:
  void Run();

  int edge_ = 96;
  QCache<QString, QIcon> thumbnails_;
  QSet<QString> failed_;  // decoded once and failed: the icon stands
  QHash<QString, QIcon> type_icons_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::pair<QString, int>> queue_;  // path and the edge it was asked at
  QSet<QString> queued_;
  bool stop_ = false;
  std::thread thread_;
};

}  // namespace trovix::views
