// The column set of a results list: which properties it shows, in which order and how wide.
// Whatever way a set is made (the default, read back from the settings, edited), Normalize()
// brings it to the four rules every list relies on:
//   1. nothing stored gives the default set: name, size, date modified, folder path;
//   2. a property appears at most once (the first one stays);
//   3. the name column is always there, and always first;
//   4. the columns flagged kColumnGrouped sit together directly behind the leading run of such
//      columns (behind the name), keeping their relative order.
//
// The stored form (the value "binColumns" of the list's "view_%x" section) is a run of
// 28-byte records: the property's 20 catalogue key bytes, then its width and its column flags
// as 32-bit little-endian numbers. Records of properties the catalogue no longer knows are
// skipped; a block whose size is no multiple of 28 is ignored as damaged.
//
// A plain value; properties are catalogue entries, which live as long as the process.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "props/property_info.h"

namespace trovix::engine {

// Column flags.
enum ColumnFlag : uint32_t {
  kColumnGrouped = 0x1,  // belongs to the group kept together behind the name column
};

struct Column {
  const props::PropertyInfo* property = nullptr;
  int width = 0;  // pixels; 0 lets the list size the column itself
  uint32_t flags = 0;
};

class ColumnSet {
 public:
  ColumnSet() = default;
  explicit ColumnSet(std::vector<Column> columns) : columns_(std::move(columns)) { Normalize(); }

  static ColumnSet Default();
  // The stored block; an empty or damaged block gives the default set.
  static ColumnSet FromBytes(const std::vector<uint8_t>& bytes);
  std::vector<uint8_t> ToBytes() const;

  // Enforces the four rules above.
  void Normalize();

  // Appends a column (dropped when the property is already shown), then normalizes.
  void Add(Column column);
  // Removes the column of `property`; the name column stays.
  void Remove(const props::PropertyInfo* property);

  const std::vector<Column>& columns() const { return columns_; }
  std::vector<Column>& mutable_columns() { return columns_; }
  int size() const { return static_cast<int>(columns_.size()); }
  const Column& at(int i) const { return columns_[static_cast<size_t>(i)]; }
  // The index of the column showing `property`, or -1.
  int IndexOf(const props::PropertyInfo* property) const;

 private:
  std::vector<Column> columns_;
};

// Catalogue entries by canonical name, for the few columns the list knows by name.
const props::PropertyInfo* NameProperty();
const props::PropertyInfo* PropertyNamed(std::string_view name);

}  // namespace trovix::engine
