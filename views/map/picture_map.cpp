#include "views/map/picture_map.h"

#include <QAction>
#include <QDesktopServices>
#include <QItemSelectionModel>
#include <QMenu>
#include <QTableView>
#include <QUrl>
#include <QWidget>

#include <algorithm>

#include "props/catalogue.h"
#include "views/frame/frame_commands.h"
#include "views/frame/frame_search.h"
#include "views/frame/main_frame.h"
#include "views/frame/search_pane.h"
#include "views/program/message_box.h"
#include "views/program/mnemonics.h"
#include "views/results/results_model.h"
#include "views/results/results_pane.h"
#include "views/rule_boxes/rule_box.h"
#ifdef TROVIX_HAVE_WEBENGINE
#include "views/map/map_dialog.h"
#endif

namespace trovix::views {
namespace {

constexpr uint32_t kNoGpsData = 10036;
// Showing one picture: a closer view than the world, whatever zoom the map had last.
constexpr int kPictureZoom = 12;

}  // namespace

app::MapState& SharedMapState() {
  static app::MapState state;
  return state;
}

bool PictureMap::Available() {
#ifdef TROVIX_HAVE_WEBENGINE
  return true;
#else
  return false;
#endif
}

PictureMap::PictureMap(MainFrame* frame, std::vector<app::MapArea>* areas)
    : QObject(frame), frame_(frame), areas_(areas), positions_(new PicturePositions(this)) {}

MapDialog* PictureMap::dialog() const {
#ifdef TROVIX_HAVE_WEBENGINE
  return qobject_cast<MapDialog*>(dialog_.data());
#else
  return nullptr;
#endif
}

void PictureMap::Install(QMenu* rules_menu, QMenu* tools_menu) {
  QAction* map = frame_->command(kCmdPictureMap);
  if (Available()) {
    connect(map, &QAction::triggered, this, &PictureMap::OpenMap);
  } else {
    map->setEnabled(false);
    map->setToolTip("Picture map: this build has no web engine (Qt WebEngine) to show the map");
  }
  area_menu_ = rules_menu->addMenu("Ma&p areas");
  auto* show = tools_menu->addAction("Show selected picture item on the &map", this, &PictureMap::ShowSelected);
  show->setShortcut(Qt::CTRL | Qt::Key_M);
  show->setData(kCmdShowOnMap);
  show->setStatusTip("Show selected picture item on the map");
  show->setEnabled(Available());
  frame_->addAction(show);
  auto* web = tools_menu->addAction("Open the picture's place in a &web map", this, &PictureMap::OpenWebMap);
  web->setStatusTip("Open the place where the selected picture was shot in the web browser's map");
  RebuildAreaMenu();
}

void PictureMap::RebuildAreaMenu() {
  if (!area_menu_) return;
  area_menu_->clear();
  for (size_t i = 0; i < areas_->size() && i < app::kCommandRangeSize; ++i) {
    const uint32_t command = app::kMapAreaCommandFirst + static_cast<uint32_t>(i);
    auto* a = area_menu_->addAction(EscapeMnemonics(QString::fromStdString((*areas_)[i].szName)), this,
                                    [this, command] { RunAreaCommand(command); });
    a->setData(command);
    a->setStatusTip("Find pictures shot in this location");
    a->setToolTip("Find pictures shot in this location");
  }
  GiveMnemonics(area_menu_);
  area_menu_->setEnabled(!areas_->empty());
}

void PictureMap::RunAreaCommand(uint32_t command) {
  if (auto index = app::EntryForCommand(command, app::kMapAreaCommandFirst, areas_->size()))
    SearchArea((*areas_)[*index]);
}

void PictureMap::SearchArea(const app::MapArea& area) {
  const props::Catalogue& catalogue = props::DefaultCatalogue();
  const props::PropertyInfo* latitude = catalogue.FindProperty(app::kLatitudeProperty);
  const props::PropertyInfo* longitude = catalogue.FindProperty(app::kLongitudeProperty);
  if (!latitude || !longitude) return;
  SearchPane* pane = frame_->search_pane();
  frame_->command(kCmdClearAll)->trigger();
  const app::AreaRuleTexts texts = app::MakeAreaRuleTexts(area);
  pane->FindOrAddBox(*latitude)->SetValueText(QString::fromStdString(texts.latitude));
  pane->FindOrAddBox(*longitude)->SetValueText(QString::fromStdString(texts.longitude));
  FrameSearch* search = frame_->search();
  if (search && search->running()) return;  // the user starts it when the running one ends
  frame_->StartOrStop();
}

bool PictureMap::FocusedPosition(double* latitude, double* longitude) {
  props::ShellItemPtr item = frame_->results()->FocusedItem();
  if (!item || !PicturePositions::ReadPosition(*item, true, latitude, longitude)) {
    ShowStringBox(frame_, kNoGpsData, QMessageBox::Information);
    return false;
  }
  return true;
}

void PictureMap::ShowSelected() {
  double latitude = 0, longitude = 0;
  if (!FocusedPosition(&latitude, &longitude)) return;
  app::MapState& state = SharedMapState();
  state.latitude = latitude;
  state.longitude = longitude;
  state.zoom = std::max(state.zoom, kPictureZoom);
  // An open map moves at once; a new one starts there.
  if (auto* d = qobject_cast<QWidget*>(dialog_.data())) {
    d->close();
    d->deleteLater();
    dialog_ = nullptr;
  }
  OpenMap(false);
}

void PictureMap::OpenWebMap() {
  double latitude = 0, longitude = 0;
  if (!FocusedPosition(&latitude, &longitude)) return;
  QDesktopServices::openUrl(QUrl(QString::fromStdString(app::WebMapUrl(latitude, longitude))));
}

void PictureMap::OpenMap(bool fit) {
#ifdef TROVIX_HAVE_WEBENGINE
  MapDialog* d = dialog();
  if (!d) {
    fit_ = fit;
    d = new MapDialog(&SharedMapState(), frame_);
    d->setAttribute(Qt::WA_DeleteOnClose);
    dialog_ = d;
    connect(d, &MapDialog::areaChosen, this, &PictureMap::OnAreaChosen);
    connect(d->bridge(), &MapBridge::pictureOpened, this, [this](int id) {
      if (props::ShellItemPtr item = positions_->Item(id)) SelectResult(item);
    });
    connect(positions_, &PicturePositions::picturesFound, d,
            [d](const std::vector<MapPicture>& batch) { d->bridge()->AddPictures(batch); });
    connect(positions_, &PicturePositions::finished, d, [d](int found, int not_shown) {
      d->SetPictureStatus(not_shown > 0 ? QString("%1 pictures on the map; %2 more not shown (at most %3)")
                                              .arg(found)
                                              .arg(not_shown)
                                              .arg(PicturePositions::kMaxPictures)
                                        : QString("%1 pictures on the map").arg(found));
    });
    connect(d->bridge(), &MapBridge::shownCountChanged, this, [this, d](int count) {
      if (!fit_ || count == 0) return;
      if (positions_->done()) fit_ = false;
      d->CallPage("fitMarkers");
    });
    MarkResults();
  }
  d->show();
  d->raise();
  d->activateWindow();
#else
  (void)fit;
#endif
}

void PictureMap::MarkResults() {
#ifdef TROVIX_HAVE_WEBENGINE
  MapDialog* d = dialog();
  if (!d) return;
  d->bridge()->ClearPictures();
  d->SetPictureStatus(QString());
  ResultsModel* model = frame_->results()->model();
  std::vector<props::ShellItemPtr> items;
  items.reserve(static_cast<size_t>(model->VisibleCount()));
  for (int r = 0; r < model->VisibleCount(); ++r) items.push_back(model->ItemAt(r));
  positions_->Start(std::move(items), true);
#endif
}

void PictureMap::SearchFinished() {
  if (!dialog()) return;
  fit_ = true;
  MarkResults();
}

void PictureMap::OnAreaChosen(const app::MapArea& area) {
  if (!area.szName.empty() && areas_->size() < app::kMaxMapAreas) {
    areas_->push_back(area);
    emit areasChanged();
  }
  SearchArea(area);
}

void PictureMap::SelectResult(const props::ShellItemPtr& item) {
  ResultsPane* results = frame_->results();
  ResultsModel* model = results->model();
  for (int r = 0; r < model->VisibleCount(); ++r) {
    if (model->ItemAt(r) != item) continue;
    const QModelIndex index = model->index(r, 0);
    results->view()->selectionModel()->setCurrentIndex(
        index, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    results->view()->scrollTo(index);
    break;
  }
  emit pictureChosen(item);
}

}  // namespace trovix::views
