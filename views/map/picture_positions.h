// Where the pictures of a result set were shot, for the picture map's markers.
//
// Policy for the costly reads: a position already in an item's value cache (a search by area
// fetched it while testing the rules) is taken at once on the UI thread; every other item is
// read on a background loader that makes its own item for the path (results items are never
// touched off the UI thread), and positions arrive in batches. At most kMaxPictures positions
// are gathered; the items past the cap are not read at all and are counted as not shown.
//
// UI thread only; the loader's thread only posts back.
#pragma once

#include <QObject>
#include <QString>

#include <memory>
#include <vector>

#include "props/shell_item.h"

namespace trovix::engine {
class CostlyValueLoader;
struct LoadedValues;
}  // namespace trovix::engine

namespace trovix::views {

struct MapPicture {
  int id = 0;  // the item's index in the list given to Start
  double latitude = 0;
  double longitude = 0;
  QString name;
};

class PicturePositions : public QObject {
  Q_OBJECT
 public:
  static constexpr int kMaxPictures = 20000;

  explicit PicturePositions(QObject* parent = nullptr);
  ~PicturePositions() override;

  // Starts over with `items`; `use_ref`: the reference letters S and W make a position
  // negative (the list's option). Positions found in the caches come out before this returns.
  void Start(std::vector<props::ShellItemPtr> items, bool use_ref);
  props::ShellItemPtr Item(int id) const;
  int found() const { return found_; }
  int not_shown() const { return not_shown_; }
  bool done() const { return waiting_ == 0; }

  // One item's position from its cache (fetching it when absent), for "show on the map".
  static bool ReadPosition(props::ShellItem& item, bool use_ref, double* latitude, double* longitude);

 signals:
  void picturesFound(const std::vector<trovix::views::MapPicture>& batch);
  void finished(int found, int not_shown);

 private:
  void Apply(std::vector<engine::LoadedValues> batch);

  std::unique_ptr<engine::CostlyValueLoader> loader_;
  std::vector<props::ShellItemPtr> items_;
  uint64_t generation_ = 0;
  bool use_ref_ = true;
  int found_ = 0;
  int not_shown_ = 0;
  int waiting_ = 0;  // requests not answered yet
};

}  // namespace trovix::views
