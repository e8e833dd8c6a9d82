// The model of a results list: the found items (one row each, a column per property of the
// column set), their sort order, the quick filter and the check marks.
//
// Kept lean for a million rows: no object per row. The model holds the result set as a vector
// of ShellItemPtr in the order found, the current order as a vector of indices into it, the
// rows that pass the quick filter as another such vector, and one check bit and one
// "hidden by the filter" bit per item. Cell text is made only for the rows the view paints and
// kept in the item's cache node (its display slot), so scrolling back costs nothing.
//
// Rows arrive in batches (Append), each one beginInsertRows. While a search runs, new rows go
// to the end in the order found; the list is sorted when the search ends (the pane calls
// Resort) and whenever the user chooses a sort.
//
// Costly columns are loaded in the background (results_loader.h holds the policy); until a
// value arrives its cell is empty and a sort treats it as empty.
//
// The quick filter is a case-insensitive substring match (Qt's simple case folding) against
// the item's name, or against the text of every column shown (values not loaded yet count as
// no text). Filtering only hides rows: clearing the filter shows the whole result set again.
//
// UI thread only, like the items it shows.
#pragma once

#include <QAbstractTableModel>
#include <QIcon>
#include <QString>
#include <cstdint>
#include <memory>
#include <vector>

#include "engine/results/result_order.h"
#include "engine/results/column_set.h"
#include "engine/results/results_loader.h"
#include "props/shell_item.h"

namespace trovix::views {

// The column set, the sort and the background loader hold no Qt; they live with the results
// in engine/ and the list names them as its own.
using engine::Column;
using engine::ColumnSet;
using engine::CostlyValueLoader;
using engine::IsCostlyColumn;
using engine::LoadedValues;
using engine::LoadRequest;
using engine::NameProperty;
using engine::PropertyNamed;

class ThumbnailCache;

class CostlyValueLoader;
struct LoadedValues;

class ResultsModel : public QAbstractTableModel {
  Q_OBJECT
 public:
  explicit ResultsModel(QObject* parent = nullptr);
  ~ResultsModel() override;

  // --- the result set
  void Clear();
  void Append(std::vector<props::ShellItemPtr> items);
  // Drops the rows (view rows) from the result set; the files are not touched.
  void RemoveRows(std::vector<int> view_rows);
  // Puts `item` in place of the row's item (after a rename).
  void ReplaceItem(int view_row, props::ShellItemPtr item);
  int64_t ItemCount() const { return static_cast<int64_t>(items_.size()); }
  int VisibleCount() const { return static_cast<int>(visible_.size()); }
  const props::ShellItemPtr& ItemAt(int view_row) const { return items_[visible_[static_cast<size_t>(view_row)]]; }

  // --- columns
  void SetColumns(ColumnSet columns);
  const ColumnSet& columns() const { return columns_; }
  // The text a cell shows; `request` asks the loader for a costly value not yet at hand.
  QString CellText(int view_row, int column, bool request = true) const;

  // --- sorting; an empty key list shows the order found
  void SetSort(engine::SortOptions options);
  const engine::SortOptions& sort() const { return sort_; }
  void Resort();

  // --- the quick filter
  void SetFilter(const QString& text, bool name_only);
  const QString& filter() const { return filter_; }

  // --- check marks (check-box mode shows them in the name column)
  // The thumbnail view: the name column's decoration becomes the item's thumbnail or type icon
  // from `cache`; null goes back to the plain file and folder icons.
  void SetThumbnails(ThumbnailCache* cache);

  void SetCheckable(bool on);
  bool checkable() const { return checkable_; }
  void SetChecked(int view_row, bool on);
  bool IsChecked(int view_row) const;
  // The ticked items of the whole result set, in list order (hidden rows included).
  std::vector<props::ShellItemPtr> CheckedItems() const;

  // For the benchmark: bytes the model keeps per row of its own (beyond the items).
  size_t BytesPerRow() const;

  // QAbstractItemModel
  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  bool setData(const QModelIndex& index, const QVariant& value, int role) override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;
  QStringList mimeTypes() const override;
  QMimeData* mimeData(const QModelIndexList& indexes) const override;
  Qt::DropActions supportedDragActions() const override;

 signals:
  // A rename typed into the name cell: the pane performs it (it owns the messages).
  void renameRequested(int view_row, const QString& new_name);
  // The background loader has finished every row asked for (for a sort on a costly column).
  void costlyLoadIdle();

 private:
  bool Passes(uint32_t item_index) const;
  void RebuildVisible();
  void RequestLoad(uint32_t item_index) const;
  void FlushRequests();
  void ApplyLoaded(std::vector<LoadedValues> batch, bool idle);
  const props::PropValue* SortValue(props::ShellItem& item, const props::PropertyInfo& property) const;
  int CostlyColumnCount() const;

  std::vector<props::ShellItemPtr> items_;  // the result set, in the order found
  std::vector<uint32_t> order_;             // every item index, in list order
  std::vector<uint32_t> visible_;           // the indices of order_ that pass the filter
  std::vector<bool> checked_;               // per item index
  std::vector<bool> hidden_;                // per item index: failed the filter
  std::vector<bool> requested_;             // per item index: costly values asked for

  ColumnSet columns_;
  engine::SortOptions sort_;
  QString filter_;
  bool filter_name_only_ = false;
  bool checkable_ = false;

  uint64_t generation_ = 1;  // bumped whenever item indices change meaning
  mutable std::vector<uint32_t> to_request_;
  mutable bool flush_posted_ = false;
  bool resort_when_loaded_ = false;
  std::unique_ptr<CostlyValueLoader> loader_;
  QIcon folder_icon_, file_icon_;
  ThumbnailCache* thumbnails_ = nullptr;
};

}  // namespace trovix::views
