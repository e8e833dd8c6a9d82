#include "views/results/results_pane.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QGuiApplication>
#include <QHeaderView>
#include <QKeyEvent>
#include <QActionGroup>
#include <QLabel>
#include <QListView>
#include <QStyledItemDelegate>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QMouseEvent>
#include <QPushButton>
#include <QTableView>
#include <QTimer>
#include <QVBoxLayout>
#include <algorithm>
#include <cstdio>
#include <functional>
#include <unordered_map>

#include "app/settings/settings_store.h"
#include "base/string_table.h"
#include "props/catalogue.h"
#include "props/fetcher.h"
#include "rules/value/value_format.h"
#include "engine/results/column_set.h"
#include "views/results/file_actions.h"
#include "views/frame/filter_bar.h"
#include "views/program/message_box.h"
#include "views/program/mnemonics.h"
#include "views/frame/properties_dialog.h"
#include "views/qt_text.h"
#include "engine/results/results_loader.h"
#include "views/results/thumbnail_cache.h"
#include "views/program/speech.h"
#include "views/results/results_model.h"

namespace trovix::views {
namespace {

std::string SectionName(uint32_t list_id) {
  char name[32];
  std::snprintf(name, sizeof name, "view_%x", list_id);
  return name;
}

constexpr int kMaxSortKeys = 32;
constexpr size_t kKeyBytes = 20;
constexpr unsigned long kTypeAheadGapMs = 500;
// The most rows added in one turn of the event loop: about 10 ms of work, so a search that
// delivers a huge batch at once (the list fell behind) still leaves the window responsive.
constexpr size_t kRowsPerTurn = 20000;

// Command ids of the list.
enum Command : int {
  kCmdDelete = 32791,
  kCmdRename = 32792,
  kCmdRemoveFromPane = 32796,
  kCmdProperties = 32795,
  kCmdOpenFolder = 32797,
  kCmdExportText = 32799,
  kCmdSortName = 32892,
  kCmdSortSize = 32893,
  kCmdSortDate = 32894,
  kCmdSortExtension = 32895,
  kCmdSortFolder = 32896,
  kCmdUnsorted = 32897,
  kCmdSortOther = 32898,
  kCmdSortReverse = 32899,
  kCmdShowAll = 32901,
  kCmdDetailsView = 32793,
  kCmdThumbnailView = 32794,
  kCmdCopy = 57634,
  kCmdSelectAll = 57642,
  kCmdSelectNone = 57643,
  kCmdOpen = 1,  // Enter: no command id of its own, the list's default action
};

// Every cell of the thumbnail grid has the same size: the picture and two lines of the name. (The
// view's uniform sizes would otherwise take the first item's, and cut longer names to one line.)
class ThumbnailDelegate : public QStyledItemDelegate {
 public:
  using QStyledItemDelegate::QStyledItemDelegate;
  void SetCellSize(QSize size) { size_ = size; }
  QSize sizeHint(const QStyleOptionViewItem&, const QModelIndex&) const override { return size_; }

 protected:
  void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override {
    QStyledItemDelegate::initStyleOption(option, index);
    option->displayAlignment = Qt::AlignHCenter | Qt::AlignTop;  // the name centred under its picture
  }

 private:
  QSize size_;
};

}  // namespace

ResultsPane::ResultsPane(QWidget* parent) : QWidget(parent) {
  setAccessibleName(tr("Results"));
  model_ = new ResultsModel(this);
  BuildTable();
  BuildNotices();
  BuildThumbnails();
  LayOut();
  ConnectViews();
  BuildActions();
  BuildItemMenus();
  ApplyColumnWidths();
  UpdateSortIndicator();
}

// The details view: one row per item, the pane sorting rather than the view.
void ResultsPane::BuildTable() {
  view_ = new QTableView(this);
  view_->setAccessibleName(tr("Found items"));
  view_->setModel(model_);
  view_->setSelectionBehavior(QAbstractItemView::SelectRows);
  view_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  view_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  view_->setWordWrap(false);
  // A name cut short keeps its end (the extension, a version, "(final)") and a folder path its
  // last folders: the ends are what tell items apart.
  view_->setTextElideMode(Qt::ElideMiddle);
  view_->setShowGrid(false);
  view_->setSortingEnabled(false);  // the pane sorts: see OnHeaderClicked
  view_->setDragEnabled(true);
  view_->setDragDropMode(QAbstractItemView::DragOnly);
  view_->setDefaultDropAction(Qt::CopyAction);
  view_->setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
  view_->setContextMenuPolicy(Qt::CustomContextMenu);
  // A million rows: fixed row heights keep the vertical header free of per-row work.
  view_->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
  view_->verticalHeader()->setDefaultSectionSize(view_->fontMetrics().height() + 6);
  view_->verticalHeader()->hide();
  QHeaderView* header = view_->horizontalHeader();
  header->setAccessibleName(tr("Columns"));
  header->setSectionsClickable(true);
  header->setSortIndicatorShown(true);
  header->setStretchLastSection(true);
  header->setHighlightSections(false);
  header->setResizeContentsPrecision(0);  // automatic widths measure the rows on screen only
  view_->installEventFilter(this);
  header->viewport()->installEventFilter(this);
  header->setContextMenuPolicy(Qt::CustomContextMenu);
  connect(header, &QHeaderView::customContextMenuRequested, this, &ResultsPane::ShowColumnMenu);
}

// What the list says when it has nothing to show, and the way to a search without the index.
void ResultsPane::BuildNotices() {
  nothing_found_ = new QLabel(view_->viewport());
  // Read by its text, as the status line is.
  nothing_found_->setAccessibleDescription(tr("Search result"));
  nothing_found_->setText(StringText(10022));
  nothing_found_->move(8, 8);
  nothing_found_->adjustSize();
  nothing_found_->hide();

  robust_search_ = new QPushButton(tr("Click for robust search"), this);
  robust_search_->setAccessibleName(tr("Click for robust search"));
  robust_search_->setFlat(true);
  robust_search_->setCursor(Qt::PointingHandCursor);
  robust_search_->setStyleSheet(QStringLiteral("QPushButton { color: palette(link); text-decoration: underline; text-align: left; }"));
  robust_search_->hide();
  connect(robust_search_, &QPushButton::clicked, this, &ResultsPane::robustSearchRequested);
}

void ResultsPane::BuildThumbnails() {
  // The thumbnail view: the same rows and the same selection, drawn as a grid of pictures.
  thumb_cache_ = new ThumbnailCache(this);
  thumbs_ = new QListView(this);
  thumbs_->setAccessibleName(tr("Found items as thumbnails"));
  thumbs_->setModel(model_);
  thumbs_->setSelectionModel(view_->selectionModel());
  thumbs_->setViewMode(QListView::IconMode);
  thumbs_->setResizeMode(QListView::Adjust);
  thumbs_->setMovement(QListView::Static);
  thumbs_->setUniformItemSizes(true);  // a million items need no per-item measuring
  thumbs_->setLayoutMode(QListView::Batched);
  thumbs_->setWordWrap(true);
  thumbs_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  thumbs_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  thumbs_->setDragEnabled(true);
  thumbs_->setDragDropMode(QAbstractItemView::DragOnly);
  thumbs_->setDefaultDropAction(Qt::CopyAction);
  thumbs_->setContextMenuPolicy(Qt::CustomContextMenu);
  thumbs_->installEventFilter(this);
  thumbs_->setItemDelegate(new ThumbnailDelegate(thumbs_));
  thumbs_->hide();
  connect(thumb_cache_, &ThumbnailCache::ready, thumbs_->viewport(), qOverload<>(&QWidget::update));
  connect(thumbs_, &QListView::activated, this, [this](const QModelIndex& index) {
    if (index.isValid()) OpenTargets();
  });
  SetThumbnailSize(96);
}

void ResultsPane::LayOut() {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  layout->addWidget(view_, 1);
  layout->addWidget(thumbs_, 1);
  layout->addWidget(robust_search_);
  setFocusProxy(view_);
}

void ResultsPane::ConnectViews() {
  connect(view_->horizontalHeader(), &QHeaderView::sectionClicked, this, &ResultsPane::OnHeaderClicked);
  connect(view_->selectionModel(), &QItemSelectionModel::selectionChanged, this, &ResultsPane::ScheduleSelectionStatus);
  connect(view_->selectionModel(), &QItemSelectionModel::currentChanged, this, &ResultsPane::ScheduleSelectionStatus);
  // Enter and double-click: the view reports both as "activated", and only when no rename
  // editor has the key (a shortcut on Enter would steal it from the editor).
  connect(view_, &QTableView::activated, this, [this](const QModelIndex& index) {
    if (index.isValid()) OpenTargets();
  });
  connect(model_, &ResultsModel::renameRequested, this, &ResultsPane::OnRenameRequested);
  connect(model_, &ResultsModel::modelReset, this, [this] { UpdateSortIndicator(); });
}

// The item menu, the same in both views.
void ResultsPane::BuildItemMenus() {
  auto item_menu = [this](QAbstractItemView* on, const QPoint& at) {
    QMenu menu(this);
    menu.setAccessibleName(tr("Item commands"));
    for (int id : {kCmdOpen, kCmdOpenFolder, kCmdRename, kCmdCopy, kCmdExportText, kCmdDelete, kCmdRemoveFromPane,
                   kCmdProperties}) {
      if (QAction* a = ActionFor(id)) menu.addAction(a);
    }
    menu.addSeparator();
    menu.addAction(ActionFor(kCmdSelectAll));
    menu.addAction(ActionFor(kCmdSelectNone));
    menu.addSeparator();
    menu.addAction(ActionFor(kCmdDetailsView));
    menu.addAction(ActionFor(kCmdThumbnailView));
    menu.exec(on->viewport()->mapToGlobal(at));
  };
  connect(view_, &QTableView::customContextMenuRequested, this, [this, item_menu](const QPoint& at) { item_menu(view_, at); });
  connect(thumbs_, &QListView::customContextMenuRequested, this,
          [this, item_menu](const QPoint& at) { item_menu(thumbs_, at); });
}

ResultsPane::~ResultsPane() = default;

QTableView* ResultsPane::view() { return view_; }

// ---- actions

QAction* ResultsPane::AddAction(int id, const QString& text, const QString& tip, QList<QKeySequence> keys) {
  auto* action = new QAction(text, this);
  action->setData(id);
  action->setStatusTip(tip);
  action->setToolTip(tip.isEmpty() ? text : tip);
  action->setShortcuts(keys);
  // Keys act while the list (or a child of it) has the focus; the frame's other panes keep
  // their own meaning of Del, Enter or Ctrl+A.
  action->setShortcutContext(Qt::WidgetWithChildrenShortcut);
  view_->addAction(action);
  actions_.push_back(action);
  return action;
}

void ResultsPane::BuildActions() {
  auto sort = [this](int id) { return [this, id] { SortByCommand(id); }; };
  connect(AddAction(kCmdSortName, tr("Sort by &name"), tr("Sort alphabetically by name"), {QKeySequence(tr("Ctrl+Alt+N"))}),
          &QAction::triggered, this, sort(kCmdSortName));
  connect(AddAction(kCmdSortSize, tr("Sort by &size"), tr("Sort by size, from smallest to largest"), {QKeySequence(tr("Ctrl+Alt+S"))}),
          &QAction::triggered, this, sort(kCmdSortSize));
  connect(AddAction(kCmdSortDate, tr("Sort by &date"), tr("Sort by modification date, from most recent to oldest"),
                    {QKeySequence(tr("Ctrl+Alt+D"))}),
          &QAction::triggered, this, sort(kCmdSortDate));
  connect(AddAction(kCmdSortExtension, tr("Sort by &type"), tr("Sort by filename extension"), {QKeySequence(tr("Ctrl+Alt+T"))}),
          &QAction::triggered, this, sort(kCmdSortExtension));
  connect(AddAction(kCmdSortFolder, tr("Sort by &folder"), tr("Sort by the parent folder's path"), {QKeySequence(tr("Ctrl+Alt+P"))}),
          &QAction::triggered, this, sort(kCmdSortFolder));
  connect(AddAction(kCmdUnsorted, tr("&Unsorted"), tr("Do not sort items; display them in the order read from disk"),
                    {QKeySequence(tr("Ctrl+Alt+U"))}),
          &QAction::triggered, this, sort(kCmdUnsorted));
  QAction* other = AddAction(kCmdSortOther, tr("Sort by &other column"), tr("Sort by a non-standard column"), {});
  sort_menu_ = new QMenu(this);
  sort_menu_->setAccessibleName(tr("Sort by a non-standard column"));
  other->setMenu(sort_menu_);
  connect(sort_menu_, &QMenu::aboutToShow, this, &ResultsPane::FillNonStandardSortMenu);
  connect(AddAction(kCmdSortReverse, tr("&Reverse sort order"), tr("Reverse the sort direction"), {QKeySequence(tr("Ctrl+Alt+A"))}),
          &QAction::triggered, this, sort(kCmdSortReverse));

  connect(AddAction(kCmdSelectAll, tr("Select &all"), tr("Select all items"), {QKeySequence(tr("Ctrl+A"))}),
          &QAction::triggered, view_, &QTableView::selectAll);
  connect(AddAction(kCmdSelectNone, tr("Clear selectio&n"), tr("Clear the selection"), {QKeySequence(tr("Alt+A"))}),
          &QAction::triggered, view_, &QTableView::clearSelection);
  // Enter is shown beside "Open" as its key, but answers only while the list itself has the
  // focus: a rename editor inside the list keeps its Enter, and an open menu its own.
  QAction* open = AddAction(kCmdOpen, tr("&Open"), tr("Open the selected items"),
                            {QKeySequence(Qt::Key_Enter), QKeySequence(Qt::Key_Return)});
  open->setShortcutContext(Qt::WidgetShortcut);
  connect(open, &QAction::triggered, this, &ResultsPane::OpenTargets);
  connect(AddAction(kCmdOpenFolder, tr("Open containing &folder"), tr("Open the folder containing the selected items"),
                    {QKeySequence(tr("Ctrl+Return")), QKeySequence(tr("Ctrl+Enter"))}),
          &QAction::triggered, this, &ResultsPane::ShowTargetsInFolder);
  connect(AddAction(kCmdRename, tr("Rena&me"), QString(), {QKeySequence(Qt::Key_F2)}), &QAction::triggered, this,
          &ResultsPane::RenameFocused);
  connect(AddAction(kCmdCopy, tr("&Copy"), tr("Copy the selected items"), {QKeySequence::Copy}), &QAction::triggered, this,
          &ResultsPane::CopyTargets);
  connect(AddAction(kCmdExportText, tr("&Export selection as text"), tr("Put all selected items' text in the clipboard for printing etc"),
                    {QKeySequence(tr("Ctrl+P"))}),
          &QAction::triggered, this, &ResultsPane::ExportSelectionAsText);
  connect(AddAction(kCmdDelete, tr("&Delete"), tr("Send selected items to the recycle bin"),
                    {QKeySequence(Qt::Key_Delete), QKeySequence(tr("Shift+Del"))}),
          &QAction::triggered, this, &ResultsPane::TrashTargets);
  connect(AddAction(kCmdRemoveFromPane, tr("&Remove from this pane"), tr("Remove selected items from this pane (real files not affected)"),
                    {QKeySequence(tr("Ctrl+Del"))}),
          &QAction::triggered, this, &ResultsPane::RemoveTargets);
  connect(AddAction(kCmdProperties, tr("&Properties"), tr("Displays the properties of the selected item"),
                    {QKeySequence(tr("Alt+Return")), QKeySequence(tr("Alt+Enter"))}),
          &QAction::triggered, this, [this] {
            if (props::ShellItemPtr item = FocusedItem()) ShowProperties(this, item->path());
          });
  QAction* details = AddAction(kCmdDetailsView, tr("Detai&ls"),
                               tr("Displays detailed information for each item"), {});
  QAction* thumbnails =
      AddAction(kCmdThumbnailView, tr("T&humbnails"), tr("Displays preview icons for items"), {});
  for (QAction* a : {details, thumbnails}) a->setCheckable(true);
  details->setChecked(true);
  auto* modes = new QActionGroup(this);
  modes->addAction(details);
  modes->addAction(thumbnails);
  connect(thumbnails, &QAction::toggled, this, &ResultsPane::SetThumbnailView);
  connect(AddAction(kCmdShowAll,
                    StringText(kCmdShowAll)
                        .replace(QStringLiteral("all items"), QStringLiteral("all &items")),
                    StringText(kCmdShowAll), {}),
          &QAction::triggered, this, [this] {
            if (filter_bar_) filter_bar_->box()->clear();
            ShowAllItems();
          });
}

QList<QAction*> ResultsPane::ListActions() { return actions_; }

QAction* ResultsPane::ActionFor(int command_id) const {
  for (QAction* a : actions_) {
    if (a->data().toInt() == command_id) return a;
  }
  return nullptr;
}

namespace {

// One menu entry per property a list can show, by its label; `act` receives the property.
void AddPropertyActions(QMenu* menu, const std::function<QAction*(QMenu*, const props::PropertyInfo*)>& act) {
  for (const auto& entry : props::DefaultCatalogue().entries()) {
    const props::PropertyInfo* p = entry.get();
    if (p->name.empty() || p->name == "*" || p->has_flag(props::kPropFreeText)) continue;
    QAction* a = act(menu, p);
    a->setStatusTip(QString::fromStdString(p->name));
  }
}

QString LabelOf(const props::PropertyInfo* p) {
  return EscapeMnemonics(QString::fromStdString(p->label.empty() ? p->name : p->label));
}

}  // namespace

void ResultsPane::FillNonStandardSortMenu() {
  sort_menu_->clear();
  AddPropertyActions(sort_menu_, [this](QMenu* menu, const props::PropertyInfo* p) {
    return menu->addAction(LabelOf(p), this, [this, p] { SortByProperty(p, true, false); });
  });
  GiveMnemonics(sort_menu_);
}

void ResultsPane::ShowColumnMenu(const QPoint& at) {
  QMenu menu(this);
  menu.setAccessibleName(tr("Columns"));
  QAction* boxes = menu.addAction(tr("Check &boxes"));
  boxes->setCheckable(true);
  boxes->setChecked(CheckBoxMode());
  connect(boxes, &QAction::toggled, this, &ResultsPane::SetCheckBoxMode);
  menu.addSeparator();
  QMenu* columns = menu.addMenu(tr("&Columns"));
  AddPropertyActions(columns, [this](QMenu* m, const props::PropertyInfo* p) {
    QAction* a = m->addAction(LabelOf(p));
    a->setCheckable(true);
    a->setChecked(model_->columns().IndexOf(p) >= 0);
    // The name column always stays.
    a->setEnabled(p != NameProperty());
    connect(a, &QAction::toggled, this, [this, p](bool on) {
      ColumnSet set = model_->columns();
      if (on) {
        set.Add({p, 0, 0});
      } else {
        set.Remove(p);
      }
      model_->SetColumns(std::move(set));
      ApplyColumnWidths();
      columns_sized_ = false;
      if (model_->VisibleCount() > 0) AutoSizeColumns();
    });
    return a;
  });
  GiveMnemonics(&menu);
  menu.exec(view_->horizontalHeader()->viewport()->mapToGlobal(at));
}

// ---- view options

void ResultsPane::LoadViewOptions(const app::SettingsStore& store, uint32_t list_id) {
  std::string name = SectionName(list_id);
  app::SettingsSection s = store.Open(name, true);
  lvs_style_ = s.GetFlags("lvsStyle", kListStyleDetails);
  lvs_ex_style_ = s.GetFlags("lvsExtendedStyle", kFullRowSelect);
  int width = s.GetInt("nMaxListColumnWidth", 400);
  max_column_width_ = width >= 50 && width <= 2000 ? width : 400;
  misc_options_ = s.GetFlags("binMiscOptions", 0);
  touch_options_ = s.GetFlags("binTouchOptions", 0);
  std::vector<uint8_t> columns;
  if (s.ReadBinary("binColumns", &columns) != app::kSettingsOk) columns.clear();
  model_->SetColumns(ColumnSet::FromBytes(columns));
  columns_sized_ = false;
  ApplyColumnWidths();

  app::SettingsSection sort = store.Open(name + "\\Sort", true);
  uint32_t ascending = sort.GetFlags("nAscending", 1);
  std::vector<uint8_t> keys;
  // Nothing stored: by name. An empty block is the user's "Do not sort items".
  const bool stored = sort.ReadBinary("binProps", &keys) == app::kSettingsOk;
  if (!stored) {
    const auto name = NameProperty()->key.Bytes();
    keys.assign(name.begin(), name.end());
  }
  engine::SortOptions options = model_->sort();
  options.keys.clear();
  if (keys.size() % kKeyBytes == 0) {
    for (size_t i = 0; i < keys.size() / kKeyBytes && static_cast<int>(i) < kMaxSortKeys; ++i) {
      const props::PropertyInfo* p =
          props::DefaultCatalogue().FindProperty(props::PropertyKey::FromBytes(keys.data() + i * kKeyBytes));
      if (p) options.keys.push_back({p, ((ascending >> i) & 1) != 0});
    }
  }
  view_->setShowGrid((lvs_ex_style_ & kGridLines) != 0);
  model_->SetCheckable((lvs_ex_style_ & kCheckBoxes) != 0);
  SetThumbnailView((lvs_style_ & kListStyleModeMask) == kListStyleIcons);
  ApplySort(std::move(options));
}

void ResultsPane::SetThumbnailView(bool on) {
  lvs_style_ = (lvs_style_ & ~kListStyleModeMask) | (on ? kListStyleIcons : kListStyleDetails);
  model_->SetThumbnails(on ? thumb_cache_ : nullptr);
  QWidget* shown = on ? static_cast<QWidget*>(thumbs_) : view_;
  QWidget* hidden = on ? static_cast<QWidget*>(view_) : thumbs_;
  const bool had_focus = hidden->hasFocus();
  hidden->hide();
  shown->show();
  setFocusProxy(shown);  // focusing the pane (F6) focuses the view on show
  const bool said_nothing = nothing_found_->isVisible();
  nothing_found_->setParent(on ? thumbs_->viewport() : view_->viewport());
  nothing_found_->setVisible(said_nothing);
  if (had_focus) shown->setFocus();
  if (QAction* a = ActionFor(on ? kCmdThumbnailView : kCmdDetailsView); a && !a->isChecked()) a->setChecked(true);
}

QAbstractItemView* ResultsPane::ShownView() const {
  return ThumbnailView() ? static_cast<QAbstractItemView*>(thumbs_) : view_;
}

bool ResultsPane::ThumbnailView() const { return (lvs_style_ & kListStyleModeMask) == kListStyleIcons; }

void ResultsPane::SetThumbnailSize(int edge) {
  thumb_cache_->SetEdge(edge);
  const int e = thumb_cache_->edge();
  thumbs_->setIconSize(QSize(e, e));
  // Room for the picture and two lines of its name under it.
  const QSize cell(e + 24, e + 2 * thumbs_->fontMetrics().height() + 12);
  static_cast<ThumbnailDelegate*>(thumbs_->itemDelegate())->SetCellSize(cell - QSize(4, 4));
  thumbs_->setGridSize(cell);
  thumbs_->viewport()->update();
}

void ResultsPane::SaveViewOptions(app::SettingsStore& store, uint32_t list_id) const {
  std::string name = SectionName(list_id);
  app::SettingsSection s = store.Open(name, false);
  uint32_t ex = lvs_ex_style_ & ~(kCheckBoxes | kGridLines);
  if (model_->checkable()) ex |= kCheckBoxes;
  if (view_->showGrid()) ex |= kGridLines;
  s.WriteInt("lvsStyle", lvs_style_);
  s.WriteInt("lvsExtendedStyle", ex);
  s.WriteInt("nMaxListColumnWidth", static_cast<uint32_t>(max_column_width_));
  s.WriteInt("binMiscOptions", misc_options_);
  s.WriteInt("binTouchOptions", touch_options_);
  ColumnSet columns = model_->columns();
  for (int i = 0; i < columns.size(); ++i) {
    // A column the user never resized keeps 0, so that it sizes itself next time too.
    int shown = view_->horizontalHeader()->sectionSize(i);
    const bool resized = static_cast<size_t>(i) >= own_widths_.size() || shown != own_widths_[static_cast<size_t>(i)];
    if (columns.at(i).width != 0 || resized) columns.mutable_columns()[static_cast<size_t>(i)].width = shown;
  }
  s.WriteBinary("binColumns", columns.ToBytes());

  app::SettingsSection sort = store.Open(name + "\\Sort", false);
  uint32_t ascending = 0;
  std::vector<uint8_t> keys;
  const engine::SortOptions& options = model_->sort();
  for (size_t i = 0; i < options.keys.size() && static_cast<int>(i) < kMaxSortKeys; ++i) {
    auto bytes = options.keys[i].property->key.Bytes();
    keys.insert(keys.end(), bytes.begin(), bytes.end());
    if (options.keys[i].ascending) ascending |= 1u << i;
  }
  if (options.keys.empty() && options.name_ascending) ascending = 1;
  sort.WriteInt("nAscending", ascending);
  sort.WriteBinary("binProps", keys);
}

void ResultsPane::ApplyColumnWidths() {
  QHeaderView* header = view_->horizontalHeader();
  const ColumnSet& columns = model_->columns();
  for (int i = 0; i < columns.size(); ++i) {
    int width = columns.at(i).width;
    if (width <= 0) width = i == 0 ? std::min(250, max_column_width_) : std::min(120, max_column_width_);
    header->resizeSection(i, width);
  }
  RememberOwnWidths();
}

void ResultsPane::RememberOwnWidths() {
  own_widths_.clear();
  for (int i = 0; i < model_->columns().size(); ++i) own_widths_.push_back(view_->horizontalHeader()->sectionSize(i));
}

// Columns without a stored width take the width of their text on screen, up to
// nMaxListColumnWidth, once per search when the first rows are there. The name column is
// measured again while the screen fills (SizeNameColumn); the last column (the folder path
// by default) stretches over what is left.
void ResultsPane::AutoSizeColumns() {
  // A list not on screen has no rows on screen and no width yet: measured now, the name would
  // get the 40 px floor. It is sized once shown (eventFilter).
  if (!view_->isVisible()) return;
  const ColumnSet& columns = model_->columns();
  for (int i = 0; i < columns.size(); ++i) {
    if (columns.at(i).width > 0) continue;
    if (i == 0) {
      SizeNameColumn(false);
      continue;
    }
    view_->resizeColumnToContents(i);  // measures the rows on screen only
    int wanted = view_->horizontalHeader()->sectionSize(i);
    view_->horizontalHeader()->resizeSection(i, std::clamp(wanted, 40, max_column_width_));
  }
  RememberOwnWidths();
  columns_sized_ = true;
}

// The name is what a user reads first: its column is as wide as the longest name on screen,
// up to a third of the list (not nMaxListColumnWidth: on a wide list a third is more, and a
// name cut short is the complaint), so that a long folder path cannot squeeze it.
void ResultsPane::SizeNameColumn(bool keep_user_width) {
  if (model_->columns().size() == 0 || model_->columns().at(0).width > 0 || !view_->isVisible()) return;
  QHeaderView* header = view_->horizontalHeader();
  // A width the user gave the column during this search stays.
  if (keep_user_width && !own_widths_.empty() && header->sectionSize(0) != own_widths_[0]) return;
  view_->resizeColumnToContents(0);  // the rows on screen and the header
  const int wanted = header->sectionSize(0);
  const int third = std::max(40, view_->viewport()->width() / 3);
  header->resizeSection(0, std::clamp(wanted, 40, third));
  if (!own_widths_.empty()) own_widths_[0] = header->sectionSize(0);
}

void ResultsPane::SetGeneralFlags(uint32_t bin_flags) {
  engine::SortOptions options = model_->sort();
  bool folders = (bin_flags & kSortFoldersFirst) != 0, natural = (bin_flags & kNaturalNumberSort) != 0;
  if (options.folders_first == folders && options.natural_numbers == natural) return;
  options.folders_first = folders;
  options.natural_numbers = natural;
  ApplySort(std::move(options));
}

void ResultsPane::SetAutoFilterChars(int n) { auto_filter_chars_ = std::clamp(n, 0, 12); }

void ResultsPane::SetFilterBar(FilterBar* bar) {
  if (filter_bar_) disconnect(filter_bar_, nullptr, this, nullptr);
  filter_bar_ = bar;
  if (!bar) return;
  connect(bar, &FilterBar::filterChanged, this, [this](const QString& text, bool name_only) {
    model_->SetFilter(text, name_only);
    ScheduleSelectionStatus();
  });
  connect(bar, &FilterBar::showAllRequested, this, &ResultsPane::ShowAllItems);
}

void ResultsPane::ShowAllItems() {
  model_->SetFilter(QString(), false);
  ScheduleSelectionStatus();
}

void ResultsPane::SetCheckBoxMode(bool on) {
  model_->SetCheckable(on);
  if (on) {
    lvs_ex_style_ |= kCheckBoxes;
  } else {
    lvs_ex_style_ &= ~kCheckBoxes;
  }
}

bool ResultsPane::CheckBoxMode() const { return model_->checkable(); }

// ---- a search's life

void ResultsPane::BeginSearch() {
  pending_.clear();
  pending_next_ = 0;
  end_waiting_ = false;
  model_->Clear();
  nothing_found_->hide();
  robust_search_->hide();
  columns_sized_ = false;
  type_ahead_.clear();
  emit statusText(tr("Loading items..."));
}

void ResultsPane::AddResults(std::vector<props::ShellItemPtr> items) {
  if (pending_next_ < pending_.size()) {
    pending_.insert(pending_.end(), std::make_move_iterator(items.begin()), std::make_move_iterator(items.end()));
    return;
  }
  if (items.size() <= kRowsPerTurn) {
    model_->Append(std::move(items));
  } else {
    pending_ = std::move(items);
    pending_next_ = 0;
    AddPendingChunk();
  }
  if (!columns_sized_ && model_->VisibleCount() > 0) {
    AutoSizeColumns();
  } else if (columns_sized_ && model_->VisibleCount() <= RowsOnScreen()) {
    // Names that arrive while the screen is still filling are names the user sees.
    SizeNameColumn(true);
  }
}

int ResultsPane::RowsOnScreen() const {
  return view_->viewport()->height() / std::max(1, view_->verticalHeader()->defaultSectionSize()) +
         1;
}

void ResultsPane::AddPendingChunk() {
  size_t end = std::min(pending_.size(), pending_next_ + kRowsPerTurn);
  std::vector<props::ShellItemPtr> chunk(std::make_move_iterator(pending_.begin() + static_cast<long>(pending_next_)),
                                         std::make_move_iterator(pending_.begin() + static_cast<long>(end)));
  pending_next_ = end;
  model_->Append(std::move(chunk));
  if (pending_next_ < pending_.size()) {
    QTimer::singleShot(0, this, &ResultsPane::AddPendingChunk);
    return;
  }
  pending_.clear();
  pending_next_ = 0;
  if (end_waiting_) {
    end_waiting_ = false;
    FinishSearch(end_index_answered_);
  }
}

void ResultsPane::EndSearch(bool index_answered, const QString& note) {
  end_note_ = note;
  if (pending_next_ < pending_.size()) {
    end_waiting_ = true;
    end_index_answered_ = index_answered;
    return;
  }
  FinishSearch(index_answered);
}

void ResultsPane::FinishSearch(bool index_answered) {
  if (!model_->sort().keys.empty()) model_->Resort();
  if (!columns_sized_ && model_->VisibleCount() > 0) {
    AutoSizeColumns();
  } else if (columns_sized_) {
    SizeNameColumn(true);  // the sort may have brought other names on screen
  }
  QString found = tr("%1 item(s) found").arg(model_->ItemCount());
  if (!end_note_.isEmpty()) found += "; " + end_note_;
  emit statusText(found);
  if (model_->ItemCount() == 0) {
    nothing_found_->adjustSize();
    nothing_found_->show();
  }
  robust_search_->setVisible(index_answered);
}

int64_t ResultsPane::ItemCount() const {
  return model_->ItemCount() + static_cast<int64_t>(pending_.size() - pending_next_);
}

int ResultsPane::VisibleCount() const { return model_->VisibleCount(); }

// ---- sorting

const engine::SortOptions& ResultsPane::SortOptions() const { return model_->sort(); }

void ResultsPane::ApplySort(engine::SortOptions options) {
  if (options.keys.size() > static_cast<size_t>(kMaxSortKeys)) options.keys.resize(kMaxSortKeys);
  // The name tie-break takes the direction of the first key (bit 0 of nAscending).
  options.name_ascending = options.keys.empty() || options.keys.front().ascending;
  model_->SetSort(std::move(options));
  UpdateSortIndicator();
}

void ResultsPane::UpdateSortIndicator() {
  QHeaderView* header = view_->horizontalHeader();
  const engine::SortOptions& options = model_->sort();
  int column = options.keys.empty() ? -1 : model_->columns().IndexOf(options.keys.front().property);
  header->setSortIndicatorShown(column >= 0);
  if (column >= 0) header->setSortIndicator(column, options.keys.front().ascending ? Qt::AscendingOrder : Qt::DescendingOrder);
}

void ResultsPane::SortByProperty(const props::PropertyInfo* property, bool ascending, bool add_key) {
  if (!property) return;
  engine::SortOptions options = model_->sort();
  if (add_key) {
    auto it = std::find_if(options.keys.begin(), options.keys.end(),
                           [&](const engine::SortKey& k) { return k.property == property; });
    if (it != options.keys.end()) {
      it->ascending = ascending;
    } else if (options.keys.size() < static_cast<size_t>(kMaxSortKeys)) {
      options.keys.push_back({property, ascending});
    }
  } else {
    options.keys = {{property, ascending}};
  }
  ApplySort(std::move(options));
}

void ResultsPane::SortByCommand(int command_id) {
  switch (command_id) {
    case kCmdSortName:
      SortByProperty(NameProperty(), true, false);
      break;
    case kCmdSortSize:
      SortByProperty(PropertyNamed("System.Size"), true, false);
      break;
    case kCmdSortDate:
      SortByProperty(PropertyNamed("System.DateModified"), false, false);
      break;
    case kCmdSortExtension:
      SortByProperty(PropertyNamed("System.FileExtension"), true, false);
      break;
    case kCmdSortFolder:
      SortByProperty(PropertyNamed("System.ItemFolderPathDisplay"), true, false);
      break;
    case kCmdUnsorted: {
      engine::SortOptions options = model_->sort();
      options.keys.clear();
      ApplySort(std::move(options));
      break;
    }
    case kCmdSortReverse: {
      engine::SortOptions options = model_->sort();
      if (options.keys.empty()) options.keys.push_back({NameProperty(), true});  // reversing the order found: by name
      for (engine::SortKey& k : options.keys) k.ascending = !k.ascending;
      ApplySort(std::move(options));
      break;
    }
    default:
      break;
  }
}

// A click sorts by the column (a second click on the only key reverses it); with Shift the
// column becomes the next key, or a key already there changes direction.
void ResultsPane::OnHeaderClicked(int section) {
  if (section < 0 || section >= model_->columns().size()) return;
  const props::PropertyInfo* property = model_->columns().at(section).property;
  const engine::SortOptions& options = model_->sort();
  bool shift = (header_click_modifiers_ & Qt::ShiftModifier) != 0;
  header_click_modifiers_ = Qt::NoModifier;
  auto it = std::find_if(options.keys.begin(), options.keys.end(),
                         [&](const engine::SortKey& k) { return k.property == property; });
  if (shift) {
    SortByProperty(property, it != options.keys.end() ? !it->ascending : true, true);
  } else {
    bool only = options.keys.size() == 1 && it != options.keys.end();
    SortByProperty(property, only ? !it->ascending : true, false);
  }
}

// ---- type-ahead into the filter box

bool ResultsPane::eventFilter(QObject* watched, QEvent* event) {
  if ((watched == view_ || watched == thumbs_) && event->type() == QEvent::KeyPress) {
    if (TypeAhead(*static_cast<QKeyEvent*>(event))) return true;
  }
  // The header reports a click without its modifiers: note them from the mouse event.
  if (watched == view_->horizontalHeader()->viewport() &&
      (event->type() == QEvent::MouseButtonPress || event->type() == QEvent::MouseButtonRelease)) {
    header_click_modifiers_ = static_cast<QMouseEvent*>(event)->modifiers();
  }
  // Rows that came while the list was hidden (another tab, a window not shown yet) are measured
  // once it is on screen, after the layouts have given it its width.
  if (watched == view_ && event->type() == QEvent::Show && !columns_sized_) {
    QTimer::singleShot(0, this, [this] {
      if (!columns_sized_ && model_->VisibleCount() > 0) AutoSizeColumns();
    });
  }
  return QWidget::eventFilter(watched, event);
}

bool ResultsPane::TypeAhead(const QKeyEvent& key) {
  if (!filter_bar_ || auto_filter_chars_ == 0) return false;
  if (key.modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier)) return false;
  const QString text = key.text();
  if (text.isEmpty() || text.front().unicode() < 32 || text.front().unicode() == 127) return false;
  unsigned long now = key.timestamp();
  if (type_ahead_.isEmpty() || now < last_key_time_ || now - last_key_time_ > kTypeAheadGapMs) type_ahead_.clear();
  type_ahead_ += text;
  last_key_time_ = now;
  if (type_ahead_.size() <= auto_filter_chars_) return false;  // the list's own type-to-find has it
  QLineEdit* box = filter_bar_->box();
  box->setText(type_ahead_);
  type_ahead_.clear();
  box->setFocus(Qt::ShortcutFocusReason);
  box->setCursorPosition(static_cast<int>(box->text().size()));
  return true;
}

// ---- status texts

void ResultsPane::ScheduleSelectionStatus() {
  // Selecting a million rows with Ctrl+A changes the selection once but may tell it in many
  // steps: the text is made once, after the event.
  if (selection_status_posted_) return;
  selection_status_posted_ = true;
  QTimer::singleShot(0, this, &ResultsPane::UpdateSelectionStatus);
}

std::vector<int> ResultsPane::SelectedRows() const {
  std::vector<int> rows;
  const QItemSelection selection = view_->selectionModel()->selection();
  for (const QItemSelectionRange& range : selection) {
    for (int r = range.top(); r <= range.bottom(); ++r) rows.push_back(r);
  }
  std::sort(rows.begin(), rows.end());
  rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
  return rows;
}

QString ResultsPane::FocusedItemText(props::ShellItem& item) const {
  const props::PropertyInfo* size = PropertyNamed("System.Size");
  const props::PropertyInfo* date = PropertyNamed("System.DateModified");
  QString size_text;
  const props::PropValue& size_value = props::GetCachedValue(item, *size)->value;
  if (item.IsFolder() && size_value.IsEmpty()) {
    size_text = StringText(12506);
  } else {
    size_text = QString::fromStdString(rules::FormatNumber(size_value.AsInt64(), false));
  }
  QString line = QStringLiteral("%1: %2").arg(QString::fromStdString(size->label), size_text);
  const props::PropValue& date_value = props::GetCachedValue(item, *date)->value;
  return QStringLiteral("%1; %2: %3").arg(line, QString::fromStdString(date->label),
                                          QString::fromStdString(rules::DisplayValue(*date, date_value)));
}

void ResultsPane::UpdateSelectionStatus() {
  selection_status_posted_ = false;
  std::vector<int> rows = SelectedRows();
  if (rows.empty()) {
    QModelIndex current = view_->currentIndex();
    if (current.isValid() && ShownView()->hasFocus()) {
      emit statusText(FocusedItemText(*model_->ItemAt(current.row())));
    } else {
      emit statusText(tr("%1 item(s)").arg(model_->VisibleCount()));
    }
    return;
  }
  if (rows.size() == 1) {
    emit statusText(FocusedItemText(*model_->ItemAt(rows.front())));
    return;
  }
  const props::PropertyInfo* size = PropertyNamed("System.Size");
  int64_t total = 0;
  for (int r : rows) total += props::GetCachedValue(*model_->ItemAt(r), *size)->value.AsInt64();
  emit statusText(tr("Selected %1 (%2)").arg(rows.size()).arg(QString::fromStdString(rules::FormatNumber(total, false))));
}

// ---- targets and commands

std::vector<props::ShellItemPtr> ResultsPane::TargetItems() const {
  if (model_->checkable()) return model_->CheckedItems();
  std::vector<props::ShellItemPtr> items;
  for (int r : SelectedRows()) items.push_back(model_->ItemAt(r));
  return items;
}

props::ShellItemPtr ResultsPane::FocusedItem() const {
  QModelIndex current = view_->currentIndex();
  if (!current.isValid() || current.row() >= model_->VisibleCount()) return nullptr;
  return model_->ItemAt(current.row());
}

bool ResultsPane::Targets(std::vector<props::ShellItemPtr>* items) {
  *items = TargetItems();
  if (!items->empty()) return true;
  if (model_->checkable()) ReportError(this, 10024, nullptr);
  return false;
}

std::vector<int> ResultsPane::RowsOf(const std::vector<props::ShellItemPtr>& items) const {
  std::unordered_map<const props::ShellItem*, int> wanted;
  for (const auto& item : items) wanted.emplace(item.get(), 0);
  std::vector<int> rows;
  for (int r = 0; r < model_->VisibleCount() && rows.size() < wanted.size(); ++r) {
    if (wanted.count(model_->ItemAt(r).get())) rows.push_back(r);
  }
  return rows;
}

void ResultsPane::OpenTargets() {
  std::vector<props::ShellItemPtr> items;
  if (!Targets(&items)) return;
  bool failed = false;
  for (const auto& item : items) failed |= !OpenItem(*item);
  if (failed) ReportError(this, 10025, nullptr);
}

void ResultsPane::ShowTargetsInFolder() {
  std::vector<props::ShellItemPtr> items;
  if (!Targets(&items)) return;
  if (!ShowItemsInFolder(items)) ReportError(this, 10025, nullptr);
}

void ResultsPane::TrashTargets() {
  std::vector<props::ShellItemPtr> items;
  if (!Targets(&items)) return;
  std::vector<props::ShellItemPtr> trashed;
  for (const auto& item : items) {
    if (MoveItemToTrash(*item)) trashed.push_back(item);
  }
  model_->RemoveRows(RowsOf(trashed));
  if (trashed.size() != items.size()) ReportError(this, 10025, nullptr);
  ScheduleSelectionStatus();
}

void ResultsPane::RemoveTargets() {
  std::vector<props::ShellItemPtr> items;
  if (!Targets(&items)) return;
  model_->RemoveRows(RowsOf(items));
  ScheduleSelectionStatus();
}

void ResultsPane::RenameFocused() {
  QModelIndex current = view_->currentIndex();
  if (!current.isValid()) return;
  if (!CanRename(*model_->ItemAt(current.row()))) {
    ReportError(this, 10029, nullptr);
    return;
  }
  ShownView()->edit(model_->index(current.row(), 0));
}

void ResultsPane::OnRenameRequested(int view_row, const QString& name) {
  props::ShellItemPtr item = model_->ItemAt(view_row);
  std::string new_path, why;
  switch (RenameItem(*item, name.toStdString(), &new_path, &why)) {
    case RenameResult::kRenamed:
      model_->ReplaceItem(view_row, props::ShellItem::FromPath(new_path, item->follow_links()));
      ScheduleSelectionStatus();
      break;
    case RenameResult::kCannotRename:
      ReportError(this, 10029, nullptr);
      break;
    case RenameResult::kFailed:
      ReportError(this, 10030, nullptr);
      break;
    case RenameResult::kNoSafeWay:
      ShowMessageBox(this, {0, "trovix", "This item cannot be renamed here: " + why, QMessageBox::Warning,
                            QMessageBox::Ok});
      break;
  }
}

void ResultsPane::ExportSelectionAsText() {
  std::vector<props::ShellItemPtr> items;
  if (!Targets(&items)) return;
  // One line per row, the shown text of each column separated by tabs.
  QStringList lines;
  for (int r : RowsOf(items)) {
    QStringList cells;
    for (int c = 0; c < model_->columnCount(); ++c) cells << model_->CellText(r, c, false);
    lines << cells.join(QLatin1Char('\t'));
  }
  QGuiApplication::clipboard()->setText(lines.join(QLatin1Char('\n')) + QLatin1Char('\n'));
}

void ResultsPane::CopyTargets() {
  std::vector<props::ShellItemPtr> items;
  if (!Targets(&items)) return;
  QModelIndexList indexes;
  for (int r : RowsOf(items)) indexes << model_->index(r, 0);
  QGuiApplication::clipboard()->setMimeData(model_->mimeData(indexes));
}

}  // namespace trovix::views
