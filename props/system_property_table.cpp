#include "props/system_property_table.h"

#include <charconv>
#include <unordered_map>

namespace trovix::props {

extern const std::string_view kSystemPropertiesTsv;

namespace {

template <typename T>
bool ParseInt(std::string_view text, T* out, int base = 10) {
  if (base == 16 && text.starts_with("0x")) text.remove_prefix(2);
  auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), *out, base);
  return ec == std::errc() && ptr == text.data() + text.size();
}

// The first `N` tab-separated fields of a line; false when it has fewer. Parsed at every start
// of the programs, so without allocating per line.
template <size_t N>
bool SplitTabs(std::string_view line, std::string_view (&fields)[N]) {
  for (size_t i = 0; i < N; ++i) {
    const size_t tab = line.find('\t');
    fields[i] = line.substr(0, tab);
    if (tab == std::string_view::npos) return i + 1 == N;
    line.remove_prefix(tab + 1);
  }
  return true;
}

}  // namespace

std::vector<SystemPropertyRow> ParseSystemPropertyTable(std::string_view tsv) {
  std::vector<SystemPropertyRow> rows;
  bool header = true;
  while (!tsv.empty()) {
    size_t end = tsv.find('\n');
    std::string_view line = tsv.substr(0, end);
    tsv.remove_prefix(end == std::string_view::npos ? tsv.size() : end + 1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (header) {
      header = false;
      continue;
    }
    // canonical_name pkey_symbol fmtid pid vartype vt_number crc32
    std::string_view f[7];
    if (!SplitTabs(line, f)) continue;
    SystemPropertyRow row;
    auto guid = Guid::Parse(f[2]);
    if (!guid || !ParseInt(f[3], &row.key.pid) || !ParseInt(f[5], &row.vartype) ||
        !ParseInt(f[6], &row.crc, 16))
      continue;
    row.name = std::string(f[0]);
    row.key.fmtid = *guid;
    rows.push_back(std::move(row));
  }
  return rows;
}

const std::vector<SystemPropertyRow>& SystemPropertyTable() {
  static const std::vector<SystemPropertyRow> rows = ParseSystemPropertyTable(kSystemPropertiesTsv);
  return rows;
}

const SystemPropertyRow* FindSystemProperty(std::string_view name) {
  static const auto* index = [] {
    auto* map = new std::unordered_map<std::string_view, const SystemPropertyRow*>;
    for (const auto& row : SystemPropertyTable()) map->emplace(row.name, &row);
    return map;
  }();
  auto it = index->find(name);
  return it == index->end() ? nullptr : it->second;
}

}  // namespace trovix::props
