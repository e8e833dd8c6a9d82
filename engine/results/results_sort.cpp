#include "engine/results/results_sort.h"

#include <unicode/coll.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "engine/results/column_set.h"

namespace trovix::engine {
namespace {

using props::PropValue;

// The list's text order is the comparison's own (ResultCollator), so sorting by keys
// and comparing two items always agree.
enum class FieldKind { kInteger, kFloat, kText };

FieldKind KindOf(const PropValue& v) {
  switch (ClassOf(v)) {
    case ValueClass::kFloat:
      return FieldKind::kFloat;
    case ValueClass::kText:
      return FieldKind::kText;
    default:
      return FieldKind::kInteger;
  }
}

// Marker bytes: an empty value below every value. Never 0, which ends a collation key.
constexpr uint8_t kEmptyMark = 0x01;
constexpr uint8_t kValueMark = 0x02;

void PutBigEndian(std::string& out, uint64_t v) {
  for (int i = 7; i >= 0; --i) out.push_back(static_cast<char>(static_cast<uint8_t>(v >> (8 * i))));
}

void AppendField(std::string& out, const PropValue* v, FieldKind kind, bool ascending, bool natural) {
  size_t start = out.size();
  if (!v || v->IsEmpty()) {
    out.push_back(static_cast<char>(kEmptyMark));
  } else {
    out.push_back(static_cast<char>(kValueMark));
    switch (kind) {
      case FieldKind::kText:
        out += TextSortKey(v->IsText() ? v->text() : v->ToDisplayText(), natural);
        break;
      case FieldKind::kFloat: {
        double d = v->AsDouble();
        uint64_t bits;
        std::memcpy(&bits, &d, sizeof bits);
        bits = (bits >> 63) ? ~bits : bits | (uint64_t{1} << 63);
        PutBigEndian(out, bits);
        break;
      }
      case FieldKind::kInteger:
        PutBigEndian(out, static_cast<uint64_t>(v->AsInt64()) ^ (uint64_t{1} << 63));
        break;
    }
  }
  if (!ascending) {
    for (size_t i = start; i < out.size(); ++i) out[i] = static_cast<char>(~static_cast<uint8_t>(out[i]));
  }
}

struct Record {
  uint64_t prefix;  // the first eight key bytes, big-endian: most comparisons end here
  uint32_t offset;
  uint32_t length;
  uint32_t row;
};

}  // namespace

std::string TextSortKey(const std::string& text, bool natural) {
  const icu::Collator* coll = ResultCollator(natural);
  if (!coll) return text + '\0';
  icu::UnicodeString u = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
  std::string key(64, '\0');
  int32_t n = coll->getSortKey(u, reinterpret_cast<uint8_t*>(key.data()), static_cast<int32_t>(key.size()));
  if (n > static_cast<int32_t>(key.size())) {
    key.resize(static_cast<size_t>(n));
    n = coll->getSortKey(u, reinterpret_cast<uint8_t*>(key.data()), n);
  }
  // The key ends with its own 0 byte, which keeps fields after it apart.
  key.resize(static_cast<size_t>(std::max(n, 1)));
  return key;
}

namespace {

// Sorts `records` by their keys in `arena`, keeping the order of equal keys.
void SortRecords(std::vector<Record>::iterator first, std::vector<Record>::iterator last, const std::string& arena) {
  const char* base = arena.data();
  std::stable_sort(first, last, [base](const Record& a, const Record& b) {
    if (a.prefix != b.prefix) return a.prefix < b.prefix;
    uint32_t n = std::min(a.length, b.length);
    int r = std::memcmp(base + a.offset, base + b.offset, n);
    return r != 0 ? r < 0 : a.length < b.length;
  });
}

bool SameKey(const Record& a, const Record& b, const std::string& arena) {
  return a.prefix == b.prefix && a.length == b.length &&
         std::memcmp(arena.data() + a.offset, arena.data() + b.offset, a.length) == 0;
}

Record MakeRecord(const std::string& key, uint32_t row, std::string& arena) {
  uint64_t prefix = 0;
  for (size_t b = 0; b < 8; ++b) prefix = prefix << 8 | (b < key.size() ? static_cast<uint8_t>(key[b]) : 0);
  Record r{prefix, static_cast<uint32_t>(arena.size()), static_cast<uint32_t>(key.size()), row};
  arena += key;
  return r;
}

}  // namespace

std::vector<uint32_t> SortRows(const std::vector<props::ShellItemPtr>& items, std::vector<uint32_t> rows,
                               const SortOptions& options, const SortValueReader& values) {
  if (options.keys.empty() || rows.size() < 2) return rows;

  struct Field {
    const props::PropertyInfo* property;
    bool ascending;
    FieldKind kind = FieldKind::kInteger;
  };
  std::vector<Field> fields;
  const props::PropertyInfo* name = NameProperty();
  bool name_is_key = false;
  for (const SortKey& key : options.keys) {
    if (!key.property) continue;
    if (name && key.property->hash == name->hash) name_is_key = true;
    fields.push_back({key.property, key.ascending});
  }

  // Read every value once. A property's values compare as text when any of them is text,
  // as CompareValues does.
  std::vector<std::vector<const PropValue*>> read(fields.size(), std::vector<const PropValue*>(rows.size()));
  for (size_t f = 0; f < fields.size(); ++f) {
    bool any_text = false, any_float = false;
    for (size_t i = 0; i < rows.size(); ++i) {
      const PropValue* v = values(*items[rows[i]], *fields[f].property);
      read[f][i] = v;
      if (v && !v->IsEmpty()) {
        FieldKind k = KindOf(*v);
        any_text |= k == FieldKind::kText;
        any_float |= k == FieldKind::kFloat;
      }
    }
    fields[f].kind = any_text ? FieldKind::kText : any_float ? FieldKind::kFloat : FieldKind::kInteger;
  }

  std::string arena;
  arena.reserve(rows.size() * 16);
  std::vector<Record> records(rows.size());
  std::string key;
  for (size_t i = 0; i < rows.size(); ++i) {
    key.clear();
    if (options.folders_first) {
      bool folder = items[rows[i]]->GetAttributes(props::SFGAO_FOLDER) != 0;
      key.push_back(static_cast<char>(folder ? 0 : 1));
    }
    for (size_t f = 0; f < fields.size(); ++f)
      AppendField(key, read[f][i], fields[f].kind, fields[f].ascending, options.natural_numbers);
    records[i] = MakeRecord(key, rows[i], arena);
  }
  read.clear();
  SortRecords(records.begin(), records.end(), arena);

  // The name breaks ties. Only rows equal in every key need its collation key, which is the
  // dearest part of a key: a sort by size or date seldom makes one at all.
  if (!name_is_key && name) {
    std::string names;
    std::vector<Record> run;
    for (size_t begin = 0; begin < records.size();) {
      size_t end = begin + 1;
      while (end < records.size() && SameKey(records[begin], records[end], arena)) ++end;
      if (end - begin > 1) {
        names.clear();
        run.clear();
        for (size_t i = begin; i < end; ++i) {
          key.clear();
          AppendField(key, values(*items[records[i].row], *name), FieldKind::kText, options.name_ascending,
                      options.natural_numbers);
          run.push_back(MakeRecord(key, records[i].row, names));
        }
        SortRecords(run.begin(), run.end(), names);
        for (size_t i = begin; i < end; ++i) records[i].row = run[i - begin].row;
      }
      begin = end;
    }
  }
  for (size_t i = 0; i < records.size(); ++i) rows[i] = records[i].row;
  return rows;
}

}  // namespace trovix::engine
