#include "engine/results/column_set.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "props/catalogue.h"

namespace trovix::engine {
namespace {

constexpr size_t kRecordSize = 28;

void PutU32(std::vector<uint8_t>& out, uint32_t v) {
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

uint32_t GetU32(const uint8_t* p) {
  return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

}  // namespace

const props::PropertyInfo* PropertyNamed(std::string_view name) {
  return props::DefaultCatalogue().FindProperty(name);
}

const props::PropertyInfo* NameProperty() {
  static const props::PropertyInfo* name = PropertyNamed("System.ItemNameDisplay");
  return name;
}

ColumnSet ColumnSet::Default() {
  std::vector<Column> columns;
  for (const char* name : {"System.ItemNameDisplay", "System.Size", "System.DateModified",
                           "System.ItemFolderPathDisplay"}) {
    if (const props::PropertyInfo* p = PropertyNamed(name)) columns.push_back({p, 0, 0});
  }
  return ColumnSet(std::move(columns));
}

ColumnSet ColumnSet::FromBytes(const std::vector<uint8_t>& bytes) {
  if (bytes.empty() || bytes.size() % kRecordSize != 0) return Default();
  std::vector<Column> columns;
  for (size_t at = 0; at < bytes.size(); at += kRecordSize) {
    const uint8_t* record = bytes.data() + at;
    const props::PropertyInfo* p = props::DefaultCatalogue().FindProperty(props::PropertyKey::FromBytes(record));
    if (!p) continue;
    columns.push_back({p, static_cast<int>(GetU32(record + 20)), GetU32(record + 24)});
  }
  if (columns.empty()) return Default();
  return ColumnSet(std::move(columns));
}

std::vector<uint8_t> ColumnSet::ToBytes() const {
  std::vector<uint8_t> out;
  out.reserve(columns_.size() * kRecordSize);
  for (const Column& c : columns_) {
    std::array<uint8_t, 20> key = c.property->key.Bytes();
    out.insert(out.end(), key.begin(), key.end());
    PutU32(out, static_cast<uint32_t>(std::max(c.width, 0)));
    PutU32(out, c.flags);
  }
  return out;
}

void ColumnSet::Normalize() {
  // Rule 2: the first column of a property wins; columns without a property are dropped too.
  std::vector<Column> unique;
  for (const Column& c : columns_) {
    if (!c.property) continue;
    bool seen = std::any_of(unique.begin(), unique.end(),
                            [&](const Column& u) { return u.property->hash == c.property->hash; });
    if (!seen) unique.push_back(c);
  }
  columns_ = std::move(unique);
  if (columns_.empty()) {
    *this = Default();
    return;
  }
  // Rule 3: the name column, added when missing, swapped into place 0.
  const props::PropertyInfo* name = NameProperty();
  if (name) {
    int at = IndexOf(name);
    if (at < 0) {
      columns_.insert(columns_.begin(), Column{name, 0, 0});
    } else if (at > 0) {
      std::swap(columns_[0], columns_[static_cast<size_t>(at)]);
    }
  }
  // Rule 4: behind the name, the grouped columns first in their order. A stable partition
  // leaves the leading run where it is and gathers the later grouped columns right behind it.
  std::stable_partition(columns_.begin() + 1, columns_.end(),
                        [](const Column& c) { return (c.flags & kColumnGrouped) != 0; });
}

void ColumnSet::Add(Column column) {
  columns_.push_back(column);
  Normalize();
}

void ColumnSet::Remove(const props::PropertyInfo* property) {
  if (property == NameProperty()) return;
  std::erase_if(columns_, [&](const Column& c) { return c.property == property; });
  Normalize();
}

int ColumnSet::IndexOf(const props::PropertyInfo* property) const {
  for (size_t i = 0; i < columns_.size(); ++i) {
    if (columns_[i].property == property ||
        (property && columns_[i].property && columns_[i].property->hash == property->hash))
      return static_cast<int>(i);
  }
  return -1;
}

}  // namespace trovix::engine
