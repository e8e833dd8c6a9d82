#include "views/results/results_model.h"

#include <QFileIconProvider>
#include <QGuiApplication>
#include <QPalette>
#include <QMimeData>
#include <QThreadPool>
#include <QTimer>
#include <QUrl>
#include <algorithm>
#include <numeric>
#include <set>

#include "props/fetcher.h"
#include "rules/value/value_format.h"
#include "views/results/thumbnail_cache.h"
#include "engine/results/results_loader.h"
#include "engine/results/results_sort.h"

namespace trovix::views {

ResultsModel::ResultsModel(QObject* parent) : QAbstractTableModel(parent), columns_(ColumnSet::Default()) {
  QFileIconProvider icons;
  folder_icon_ = icons.icon(QFileIconProvider::Folder);
  file_icon_ = icons.icon(QFileIconProvider::File);
  loader_ = std::make_unique<CostlyValueLoader>([this](std::vector<LoadedValues> batch, bool idle) {
    // On the loader's thread: hand the values over to the UI thread.
    auto shared = std::make_shared<std::vector<LoadedValues>>(std::move(batch));
    QMetaObject::invokeMethod(this, [this, shared, idle] { ApplyLoaded(std::move(*shared), idle); },
                              Qt::QueuedConnection);
  });
}

// The loader goes first: its thread must not post to a model being destroyed.
ResultsModel::~ResultsModel() { loader_.reset(); }

// ---- the result set

void ResultsModel::Clear() {
  beginResetModel();
  // The last search's items are let go on a thread of the pool: a search as typed clears tens
  // of thousands of them at each key, and freeing them here held the next key's first results
  // back by as many milliseconds as there were thousands.
  if (!items_.empty()) {
    auto old = std::make_shared<std::vector<props::ShellItemPtr>>(std::move(items_));
    items_.clear();
    QThreadPool::globalInstance()->start([old] { old->clear(); });
  }
  order_.clear();
  visible_.clear();
  checked_.clear();
  hidden_.clear();
  requested_.clear();
  to_request_.clear();
  ++generation_;
  loader_->Cancel();
  resort_when_loaded_ = false;
  endResetModel();
}

void ResultsModel::Append(std::vector<props::ShellItemPtr> items) {
  if (items.empty()) return;
  std::vector<uint32_t> shown;
  shown.reserve(items.size());
  for (props::ShellItemPtr& item : items) {
    if (!item) continue;
    uint32_t index = static_cast<uint32_t>(items_.size());
    items_.push_back(std::move(item));
    order_.push_back(index);
    checked_.push_back(false);
    requested_.push_back(false);
    bool pass = Passes(index);
    hidden_.push_back(!pass);
    if (pass) shown.push_back(index);
  }
  if (shown.empty()) return;
  int first = VisibleCount();
  beginInsertRows({}, first, first + static_cast<int>(shown.size()) - 1);
  visible_.insert(visible_.end(), shown.begin(), shown.end());
  endInsertRows();
}

void ResultsModel::RemoveRows(std::vector<int> view_rows) {
  if (view_rows.empty()) return;
  std::vector<bool> drop(items_.size(), false);
  for (int row : view_rows) {
    if (row >= 0 && row < VisibleCount()) drop[visible_[static_cast<size_t>(row)]] = true;
  }
  beginResetModel();
  constexpr uint32_t kGone = UINT32_MAX;
  std::vector<uint32_t> remap(items_.size(), kGone);
  std::vector<props::ShellItemPtr> items;
  std::vector<bool> checked, hidden;
  for (size_t i = 0; i < items_.size(); ++i) {
    if (drop[i]) continue;
    remap[i] = static_cast<uint32_t>(items.size());
    items.push_back(std::move(items_[i]));
    checked.push_back(checked_[i]);
    hidden.push_back(hidden_[i]);
  }
  auto remap_all = [&](std::vector<uint32_t>& v) {
    std::vector<uint32_t> out;
    out.reserve(v.size());
    for (uint32_t i : v) {
      if (remap[i] != kGone) out.push_back(remap[i]);
    }
    v = std::move(out);
  };
  remap_all(order_);
  remap_all(visible_);
  items_ = std::move(items);
  checked_ = std::move(checked);
  hidden_ = std::move(hidden);
  requested_.assign(items_.size(), false);
  to_request_.clear();
  ++generation_;
  loader_->Cancel();
  endResetModel();
}

void ResultsModel::ReplaceItem(int view_row, props::ShellItemPtr item) {
  if (view_row < 0 || view_row >= VisibleCount() || !item) return;
  uint32_t index = visible_[static_cast<size_t>(view_row)];
  items_[index] = std::move(item);
  requested_[index] = false;
  emit dataChanged(this->index(view_row, 0), this->index(view_row, columnCount() - 1));
}

// ---- columns and cell text

void ResultsModel::SetColumns(ColumnSet columns) {
  beginResetModel();
  columns_ = std::move(columns);
  columns_.Normalize();
  endResetModel();
}

int ResultsModel::CostlyColumnCount() const {
  int n = 0;
  for (const Column& c : columns_.columns()) n += IsCostlyColumn(*c.property) ? 1 : 0;
  return n;
}

namespace {

// The text of one property of one item; null when a costly value is not loaded yet.
const std::string* ItemText(props::ShellItem& item, const props::PropertyInfo& property) {
  props::CachedValue* node = item.FindCached(property.hash);
  if (!node) {
    if (IsCostlyColumn(property)) return nullptr;
    props::GetCachedValue(item, property);
    node = item.FindCached(property.hash);
  }
  // The item keeps the formatted text beside the value, so a repaint formats nothing.
  if (node->display[0].empty() && !node->value.IsEmpty()) {
    // Sizes read as the size formatter writes them ("12 KB"); the sort still uses the bytes.
    node->display[0] = property.hash == props::hash::kSize && !node->value.IsText()
                           ? rules::FormatNumber(node->value.AsInt64(), false)
                           : rules::DisplayValue(property, node->value);
  }
  return &node->display[0];
}

}  // namespace

QString ResultsModel::CellText(int view_row, int column, bool request) const {
  if (view_row < 0 || view_row >= VisibleCount() || column < 0 || column >= columns_.size()) return {};
  uint32_t index = visible_[static_cast<size_t>(view_row)];
  const std::string* text = ItemText(*items_[index], *columns_.at(column).property);
  if (!text) {
    if (request) RequestLoad(index);
    return {};
  }
  return QString::fromStdString(*text);
}

void ResultsModel::RequestLoad(uint32_t item_index) const {
  if (requested_[item_index]) return;
  // The bit vector is bookkeeping of the loader, not of the rows shown: fine to set here.
  const_cast<std::vector<bool>&>(requested_)[item_index] = true;
  to_request_.push_back(item_index);
  if (!flush_posted_) {
    flush_posted_ = true;
    QTimer::singleShot(0, const_cast<ResultsModel*>(this), &ResultsModel::FlushRequests);
  }
}

void ResultsModel::FlushRequests() {
  flush_posted_ = false;
  std::vector<const props::PropertyInfo*> costly;
  for (const Column& c : columns_.columns()) {
    if (IsCostlyColumn(*c.property)) costly.push_back(c.property);
  }
  for (const engine::SortKey& k : sort_.keys) {
    if (k.property && IsCostlyColumn(*k.property) && std::find(costly.begin(), costly.end(), k.property) == costly.end())
      costly.push_back(k.property);
  }
  std::vector<LoadRequest> requests;
  requests.reserve(to_request_.size());
  for (uint32_t index : to_request_) {
    if (index >= items_.size()) continue;
    const props::ShellItem& item = *items_[index];
    if (!item.IsFileSystem()) continue;  // archive members are read by the search, not here
    std::vector<const props::PropertyInfo*> wanted;
    for (const props::PropertyInfo* p : costly) {
      if (!items_[index]->FindCached(p->hash)) wanted.push_back(p);
    }
    if (!wanted.empty()) requests.push_back({generation_, index, item.path(), item.follow_links(), std::move(wanted)});
  }
  to_request_.clear();
  if (requests.empty()) {
    if (resort_when_loaded_) ApplyLoaded({}, true);
    return;
  }
  loader_->Request(std::move(requests));
}

void ResultsModel::ApplyLoaded(std::vector<LoadedValues> batch, bool idle) {
  bool changed = false;
  for (LoadedValues& loaded : batch) {
    if (loaded.generation != generation_ || loaded.row >= items_.size()) continue;
    props::ShellItem& item = *items_[loaded.row];
    for (auto& [hash, value] : loaded.values) {
      if (!item.FindCached(hash)) item.AddCached(hash, std::move(value));
    }
    changed = true;
  }
  if (changed && rowCount() > 0 && CostlyColumnCount() > 0)
    emit dataChanged(index(0, 0), index(rowCount() - 1, columnCount() - 1), {Qt::DisplayRole});
  if (idle && resort_when_loaded_) {
    resort_when_loaded_ = false;
    Resort();
    emit costlyLoadIdle();
  }
}

// ---- sorting

const props::PropValue* ResultsModel::SortValue(props::ShellItem& item, const props::PropertyInfo& property) const {
  if (IsCostlyColumn(property)) {
    const props::CachedValue* node = item.FindCached(property.hash);
    return node ? &node->value : nullptr;
  }
  return &props::GetCachedValue(item, property)->value;
}

void ResultsModel::SetSort(engine::SortOptions options) {
  sort_ = std::move(options);
  if (sort_.keys.size() > 32) sort_.keys.resize(32);
  Resort();
}

void ResultsModel::Resort() {
  // A costly sort key: ask the loader for every row still missing it; the list sorts again
  // with the loaded values when the loader is done.
  for (const engine::SortKey& k : sort_.keys) {
    if (!k.property || !IsCostlyColumn(*k.property)) continue;
    for (uint32_t i = 0; i < items_.size(); ++i) {
      if (!items_[i]->FindCached(k.property->hash) && items_[i]->IsFileSystem()) {
        resort_when_loaded_ = true;
        requested_[i] = false;
        RequestLoad(i);
      }
    }
  }

  emit layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
  QModelIndexList before = persistentIndexList();
  std::vector<uint32_t> before_items;
  before_items.reserve(static_cast<size_t>(before.size()));
  for (const QModelIndex& i : before) before_items.push_back(visible_[static_cast<size_t>(i.row())]);

  std::vector<uint32_t> all(items_.size());
  std::iota(all.begin(), all.end(), 0u);
  order_ = engine::SortRows(items_, std::move(all), sort_,
                    [this](props::ShellItem& item, const props::PropertyInfo& p) { return SortValue(item, p); });
  RebuildVisible();

  if (!before.isEmpty()) {
    std::vector<int> row_of(items_.size(), -1);
    for (size_t r = 0; r < visible_.size(); ++r) row_of[visible_[r]] = static_cast<int>(r);
    QModelIndexList after;
    after.reserve(before.size());
    for (qsizetype i = 0; i < before.size(); ++i) {
      int row = row_of[before_items[static_cast<size_t>(i)]];
      after.push_back(row < 0 ? QModelIndex() : index(row, before[i].column()));
    }
    changePersistentIndexList(before, after);
  }
  emit layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}

// ---- the quick filter

bool ResultsModel::Passes(uint32_t item_index) const {
  if (filter_.isEmpty()) return true;
  props::ShellItem& item = *items_[item_index];
  if (filter_name_only_) return QString::fromStdString(item.DisplayName()).contains(filter_, Qt::CaseInsensitive);
  for (const Column& c : columns_.columns()) {
    const std::string* text = ItemText(item, *c.property);
    if (text && QString::fromStdString(*text).contains(filter_, Qt::CaseInsensitive)) return true;
  }
  return false;
}

void ResultsModel::RebuildVisible() {
  visible_.clear();
  visible_.reserve(order_.size());
  for (uint32_t i : order_) {
    if (!hidden_[i]) visible_.push_back(i);
  }
  visible_.shrink_to_fit();
}

void ResultsModel::SetFilter(const QString& text, bool name_only) {
  if (text == filter_ && (name_only == filter_name_only_ || text.isEmpty())) return;
  beginResetModel();
  filter_ = text;
  filter_name_only_ = name_only;
  for (uint32_t i = 0; i < items_.size(); ++i) hidden_[i] = !Passes(i);
  RebuildVisible();
  endResetModel();
}

// ---- check marks

void ResultsModel::SetCheckable(bool on) {
  if (on == checkable_) return;
  beginResetModel();
  checkable_ = on;
  endResetModel();
}

void ResultsModel::SetChecked(int view_row, bool on) {
  if (view_row < 0 || view_row >= VisibleCount()) return;
  checked_[visible_[static_cast<size_t>(view_row)]] = on;
  QModelIndex cell = index(view_row, 0);
  emit dataChanged(cell, cell, {Qt::CheckStateRole});
}

bool ResultsModel::IsChecked(int view_row) const {
  return view_row >= 0 && view_row < VisibleCount() && checked_[visible_[static_cast<size_t>(view_row)]];
}

std::vector<props::ShellItemPtr> ResultsModel::CheckedItems() const {
  std::vector<props::ShellItemPtr> out;
  for (uint32_t i : order_) {
    if (checked_[i]) out.push_back(items_[i]);
  }
  return out;
}

size_t ResultsModel::BytesPerRow() const {
  if (items_.empty()) return 0;
  size_t bytes = items_.capacity() * sizeof(props::ShellItemPtr) + order_.capacity() * sizeof(uint32_t) +
                 visible_.capacity() * sizeof(uint32_t) + (checked_.capacity() + hidden_.capacity() + requested_.capacity()) / 8;
  return bytes / items_.size();
}

void ResultsModel::SetThumbnails(ThumbnailCache* cache) {
  if (thumbnails_ == cache) return;
  thumbnails_ = cache;
  if (VisibleCount() > 0) emit dataChanged(index(0, 0), index(VisibleCount() - 1, 0), {Qt::DecorationRole});
}

// ---- QAbstractItemModel

int ResultsModel::rowCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : VisibleCount(); }

int ResultsModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : columns_.size(); }

QVariant ResultsModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= VisibleCount() || index.column() >= columns_.size()) return {};
  const props::PropertyInfo& property = *columns_.at(index.column()).property;
  switch (role) {
    case Qt::DisplayRole:
      return CellText(index.row(), index.column());
    case Qt::EditRole:
      return index.column() == 0 ? QString::fromStdString(ItemAt(index.row())->DisplayName()) : QVariant();
    case Qt::DecorationRole: {
      if (index.column() != 0) return {};
      const props::ShellItemPtr& item = ItemAt(index.row());
      if (thumbnails_) return thumbnails_->IconFor(item->path(), item->IsFolder());
      return item->IsFolder() ? folder_icon_ : file_icon_;
    }
    case Qt::CheckStateRole:
      if (index.column() != 0 || !checkable_) return {};
      return IsChecked(index.row()) ? Qt::Checked : Qt::Unchecked;
    case Qt::ToolTipRole:
      return index.column() == 0 ? QString::fromStdString(ItemAt(index.row())->DisplayPath()) : QVariant();
    case Qt::ForegroundRole:
      // An item of a drive that is not mounted is greyed: it is what the index kept, and
      // opening it needs the drive.
      if (!ItemAt(index.row())->offline()) return {};
      return QGuiApplication::palette().brush(QPalette::Disabled, QPalette::Text);
    case Qt::TextAlignmentRole: {
      uint16_t t = property.base_type();
      bool text = t == props::VT_LPWSTR || t == props::VT_BSTR || t == props::VT_LPSTR || t == props::VT_EMPTY ||
                  (property.var_type() & props::VT_VECTOR) || t == props::VT_FILETIME;
      return QVariant::fromValue(Qt::AlignVCenter | (text ? Qt::AlignLeft : Qt::AlignRight));
    }
    default:
      return {};
  }
}

bool ResultsModel::setData(const QModelIndex& index, const QVariant& value, int role) {
  if (!index.isValid() || index.row() >= VisibleCount()) return false;
  if (role == Qt::CheckStateRole && index.column() == 0 && checkable_) {
    SetChecked(index.row(), value.toInt() == Qt::Checked);
    return true;
  }
  if (role == Qt::EditRole && index.column() == 0) {
    QString name = value.toString();
    if (name != QString::fromStdString(ItemAt(index.row())->DisplayName())) emit renameRequested(index.row(), name);
    return false;  // the pane replaces the item when the rename succeeds
  }
  return false;
}

QVariant ResultsModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal || section < 0 || section >= columns_.size()) return {};
  const props::PropertyInfo& p = *columns_.at(section).property;
  if (role == Qt::DisplayRole) return QString::fromStdString(p.label.empty() ? p.name : p.label);
  if (role == Qt::ToolTipRole) return QString::fromStdString(p.description);
  return {};
}

Qt::ItemFlags ResultsModel::flags(const QModelIndex& index) const {
  if (!index.isValid()) return Qt::NoItemFlags;
  Qt::ItemFlags f = Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled;
  if (index.column() == 0) {
    if (checkable_) f |= Qt::ItemIsUserCheckable;
    if (index.row() < VisibleCount() && ItemAt(index.row())->IsFileSystem()) f |= Qt::ItemIsEditable;
  }
  return f;
}

QStringList ResultsModel::mimeTypes() const { return {QStringLiteral("text/uri-list")}; }

QMimeData* ResultsModel::mimeData(const QModelIndexList& indexes) const {
  std::set<int> rows;
  for (const QModelIndex& i : indexes) rows.insert(i.row());
  QList<QUrl> urls;
  QStringList paths;
  for (int row : rows) {
    if (row < 0 || row >= VisibleCount() || !ItemAt(row)->IsFileSystem()) continue;
    QString path = QString::fromStdString(ItemAt(row)->path());
    urls << QUrl::fromLocalFile(path);
    paths << path;
  }
  auto* mime = new QMimeData;
  mime->setUrls(urls);  // text/uri-list
  mime->setText(paths.join(QLatin1Char('\n')));
  return mime;
}

Qt::DropActions ResultsModel::supportedDragActions() const { return Qt::CopyAction | Qt::LinkAction; }

}  // namespace trovix::views
