// The picture map as one frame offers it: the Picture map command (the map dialog, with the
// results' pictures marked), the menu of stored map areas (commands 40200 to 40249, "Find
// pictures shot in this location"), searching by an area, showing the focused picture on the
// map (Ctrl+M) and opening its place in a web map in the user's browser.
//
// Searching by an area: Clear all, then the rule box on the latitude (found, or opened at the
// end of the boxes) gets "bottom .. top" and the box on the longitude "left .. right", each
// number with "%g", and the search starts.
//
// The map's centre and zoom are remembered for the whole process (SharedMapState). The areas
// are the application's list, shared by every frame; a change is announced with areasChanged.
//
// UI thread.
#pragma once

#include <QObject>
#include <QPointer>

#include <vector>

#include "app/map_search.h"
#include "props/shell_item.h"
#include "views/map/picture_positions.h"

class QAction;
class QMenu;

namespace trovix::views {

class MainFrame;
class MapDialog;

inline constexpr uint32_t kCmdShowOnMap = 32858;

// The centre and zoom the next map dialog starts with, kept while the process runs.
app::MapState& SharedMapState();

class PictureMap : public QObject {
  Q_OBJECT
 public:
  // `areas` is the application's "MapRects" list; it must outlive this object.
  PictureMap(MainFrame* frame, std::vector<app::MapArea>* areas);

  // Adds the area menu to `rules_menu` and the map commands to `tools_menu`, and turns the
  // Picture map command on (or leaves it off, saying why, in a build without a web engine).
  void Install(QMenu* rules_menu, QMenu* tools_menu);
  void RebuildAreaMenu();

  // The menu command 40200 + i: the stored area i; a command beyond the list does nothing.
  void RunAreaCommand(uint32_t command);
  // Writes the area's two range rules into the boxes (after Clear all) and starts the search.
  void SearchArea(const app::MapArea& area);
  // Opens (or raises) the map dialog and marks the results' pictures on it; with `fit`, the
  // view moves onto the pictures as they arrive (not when it opens on one picture).
  void OpenMap(bool fit = true);
  // Ctrl+M: the focused picture becomes the map's centre; 10036 when it has no position.
  void ShowSelected();
  // The focused picture's place in the web map; 10036 when it has no position.
  void OpenWebMap();
  // After a search: an open map marks the new results.
  void SearchFinished();

  MapDialog* dialog() const;
  PicturePositions* positions() { return positions_; }
  QMenu* areaMenu() const { return area_menu_; }
  static bool Available();

 signals:
  void areasChanged();
  // A marker was clicked: the picture is selected in the results (its quick view follows the
  // selection).
  void pictureChosen(const trovix::props::ShellItemPtr& item);

 private:
  bool FocusedPosition(double* latitude, double* longitude);
  void MarkResults();
  void OnAreaChosen(const app::MapArea& area);
  void SelectResult(const props::ShellItemPtr& item);

  MainFrame* frame_;
  std::vector<app::MapArea>* areas_;
  QMenu* area_menu_ = nullptr;
  PicturePositions* positions_;
  QPointer<QObject> dialog_;
  bool fit_ = false;  // move the view onto the markers until the positions are all in
};

}  // namespace trovix::views
