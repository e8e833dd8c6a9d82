// The results pane of a frame: the list of found items (a table view over ResultsModel), the
// "Nothing found" line, the "Click for robust search" link after an index answer, and every
// list command (sorting, selection, open, open containing folder, trash, remove from the pane,
// rename, copy, export as text) as a QAction with its key, which the frame also puts in its
// menus.
//
// Typing in the list also feeds the type-ahead buffer: after more than nCharsAutoFilter
// printable keys, each within 500 ms of the one before (measured by the key events' own time
// stamps), the buffer becomes the filter box's text, the focus moves there with the caret at
// the end, and that key is consumed. Shorter runs go on to the list's own type-to-find.
//
// In check-box mode (lvsExtendedStyle bit kCheckBoxes) commands act on the ticked rows only;
// with none ticked the user is told so (10024) and nothing happens. Otherwise they act on the
// selection.
//
// Stored per list in section "view_%x" (the list id in hexadecimal): lvsStyle,
// lvsExtendedStyle, nMaxListColumnWidth (50 to 2000, default 400), binMiscOptions and
// binTouchOptions (kept as they are: nothing on this platform reads their bits yet),
// binColumns (the column set, column_set.h), and the sub-section "Sort" with nAscending (bit i:
// sort key i ascending) and binProps (the sort keys in priority order, 20 catalogue key bytes
// each, at most 32; keys the catalogue does not know are dropped with their bit). An empty
// binProps shows the items in the order found.
//
// UI thread.
#pragma once

#include <QElapsedTimer>
#include <QList>
#include <QPointer>
#include <QWidget>
#include <cstdint>
#include <vector>

#include "engine/results/result_order.h"
#include "props/shell_item.h"

class QAction;
class QLabel;
class QMenu;
class QPushButton;
class QAbstractItemView;
class QListView;
class QTableView;

namespace trovix::app {
class SettingsStore;
}

namespace trovix::views {

class FilterBar;
class ResultsModel;
class ThumbnailCache;

// List-view extended style bits the list honours.
enum ListExtendedStyle : uint32_t {
  kGridLines = 0x1,
  kCheckBoxes = 0x4,
  kFullRowSelect = 0x20,
};

// Command ids of the list that the frame's menus sort into place: the sort orders and the two
// view modes.
inline constexpr int kListSortFirst = 32892;
inline constexpr int kListSortLast = 32899;
inline constexpr int kListDetailsView = 32793;
inline constexpr int kListThumbnailView = 32794;

// List-view window styles: the view mode in the low two bits.
inline constexpr uint32_t kListStyleIcons = 0x0;
inline constexpr uint32_t kListStyleDetails = 0x1;
inline constexpr uint32_t kListStyleModeMask = 0x3;

// General option bits (binFlags) that change the order.
enum GeneralSortFlag : uint32_t {
  kSortFoldersFirst = 0x2,
  kNaturalNumberSort = 0x4,
};

class ResultsPane : public QWidget {
  Q_OBJECT
 public:
  explicit ResultsPane(QWidget* parent = nullptr);
  ~ResultsPane() override;

  void LoadViewOptions(const app::SettingsStore& store, uint32_t list_id);
  void SaveViewOptions(app::SettingsStore& store, uint32_t list_id) const;
  void SetGeneralFlags(uint32_t bin_flags);
  void SetAutoFilterChars(int n);  // nCharsAutoFilter, 0 to 12; 0 never jumps
  void SetFilterBar(FilterBar* bar);  // null: the frame has no filter box
  void SetCheckBoxMode(bool on);
  bool CheckBoxMode() const;
  // The view: details (a row per item, a column per property; command 32793) or thumbnails
  // (pictures scaled to nThumbSize, other items by their type's icon; 32794). Kept in lvsStyle's
  // low bits as the list view keeps them: 1 details, 0 icons.
  void SetThumbnailView(bool on);
  bool ThumbnailView() const;
  void SetThumbnailSize(int edge);  // nThumbSize, 32 to 500
  QListView* thumbnail_view() { return thumbs_; }

  // A search's life, on the UI thread.
  void BeginSearch();
  void AddResults(std::vector<props::ShellItemPtr> items);
  // `note`: what else the end of the search has to say, after "%d item(s) found".
  void EndSearch(bool index_answered, const QString& note = {});

  int64_t ItemCount() const;
  int VisibleCount() const;
  std::vector<props::ShellItemPtr> TargetItems() const;
  props::ShellItemPtr FocusedItem() const;
  QTableView* view();
  ResultsModel* model() { return model_; }
  QList<QAction*> ListActions();
  // The action of a command id (32791, 32892 ...); null when the list has no such command.
  QAction* ActionFor(int command_id) const;

  // The sort: the command ids 32892..32899, or one property (add_key: as the next key).
  void SortByCommand(int command_id);
  void SortByProperty(const props::PropertyInfo* property, bool ascending, bool add_key);
  const engine::SortOptions& SortOptions() const;

  // The commands, as the actions run them.
  void OpenTargets();
  void ShowTargetsInFolder();
  void TrashTargets();
  void RemoveTargets();
  void RenameFocused();
  void ExportSelectionAsText();
  void CopyTargets();

 signals:
  void statusText(const QString& text);
  void robustSearchRequested();

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  // The constructor's parts, in the order it calls them.
  void BuildTable();
  void BuildNotices();
  void BuildThumbnails();
  void LayOut();
  void ConnectViews();
  void BuildActions();
  void BuildItemMenus();
  QAction* AddAction(int id, const QString& text, const QString& tip, QList<QKeySequence> keys);
  bool TypeAhead(const class QKeyEvent& key);
  void ApplySort(engine::SortOptions options);
  void UpdateSortIndicator();
  void OnHeaderClicked(int section);
  void ScheduleSelectionStatus();
  void UpdateSelectionStatus();
  QString FocusedItemText(props::ShellItem& item) const;
  std::vector<int> SelectedRows() const;
  // The items a command acts on; false (after telling the user in check-box mode) when none.
  bool Targets(std::vector<props::ShellItemPtr>* items);
  std::vector<int> RowsOf(const std::vector<props::ShellItemPtr>& items) const;
  void AutoSizeColumns();
  // `keep_user_width`: leave a width the user dragged since the columns were last sized.
  void SizeNameColumn(bool keep_user_width);
  int RowsOnScreen() const;
  void ApplyColumnWidths();
  void RememberOwnWidths();
  // The view on screen: the details or the thumbnails (they share the model and the selection).
  QAbstractItemView* ShownView() const;
  void ShowAllItems();  // 32901: the quick filter off
  void OnRenameRequested(int view_row, const QString& name);
  void AddPendingChunk();
  void FinishSearch(bool index_answered);
  void FillNonStandardSortMenu();
  // The header's menu: every property as a column to show or hide, and the check boxes.
  void ShowColumnMenu(const QPoint& at);

  ResultsModel* model_;
  QTableView* view_;
  QListView* thumbs_;             // shares the model and the selection with view_
  ThumbnailCache* thumb_cache_;
  QLabel* nothing_found_;
  QPushButton* robust_search_;
  QMenu* sort_menu_ = nullptr;
  QList<QAction*> actions_;
  QPointer<FilterBar> filter_bar_;

  uint32_t lvs_style_ = kListStyleDetails;
  uint32_t lvs_ex_style_ = kFullRowSelect;
  int max_column_width_ = 400;
  uint32_t misc_options_ = 0;
  uint32_t touch_options_ = 0;
  int auto_filter_chars_ = 3;
  bool columns_sized_ = false;
  // The widths the list gave its columns itself; a column shown at another width was resized by
  // the user, and only such a width is kept.
  std::vector<int> own_widths_;
  bool selection_status_posted_ = false;

  // Rows of an oversized batch not yet in the model: they go in a chunk per event-loop turn.
  std::vector<props::ShellItemPtr> pending_;
  size_t pending_next_ = 0;
  bool end_waiting_ = false;  // EndSearch came while rows were still pending
  bool end_index_answered_ = false;
  QString end_note_;

  Qt::KeyboardModifiers header_click_modifiers_ = Qt::NoModifier;  // of the last click on the header

  QString type_ahead_;
  unsigned long last_key_time_ = 0;
};

}  // namespace trovix::views
