#include "app/settings/saved_lists.h"

#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <set>

#include "base/bits.h"
#include "base/crc32.h"
#include "rules/blob/rule_blob.h"

namespace trovix::app {
namespace {

constexpr size_t kCoordsSize = 32;

// The New York area offered while no area is stored, as the exact doubles it is stored with.
constexpr uint64_t kNewYorkBits[4] = {0x40447EFD21FF2E49, 0xC052A2F0068DB8BB,
                                      0x404438E8A71DE69B, 0xC052615E9E1B089A};

std::string EntrySection(std::string_view list, size_t index) {
  return std::string(list) + "\\" + std::to_string(index);
}

// The numbered sub-sections of a list, for the existence test of each index.
std::set<std::string> EntryNames(const SettingsStore& store, std::string_view list) {
  std::vector<std::string> names = store.Open(list, true).SubSections();
  return std::set<std::string>(names.begin(), names.end());
}

// Reads entries `first`, `first` + 1, ... until the first index without a sub-section, or
// until `limit` entries were kept. `read` returns false for an entry to skip.
template <class Entry, class Read>
std::vector<Entry> LoadList(const SettingsStore& store, std::string_view list, size_t first,
                            size_t limit, Read read) {
  const std::set<std::string> names = EntryNames(store, list);
  std::vector<Entry> entries;
  for (size_t index = first; entries.size() < limit; ++index) {
    if (names.count(std::to_string(index)) == 0) break;
    const SettingsSection section = store.Open(EntrySection(list, index), true);
    Entry entry;
    if (read(section, &entry)) entries.push_back(std::move(entry));
  }
  return entries;
}

template <class Entry, class Write>
void SaveList(SettingsStore& store, std::string_view list, const std::vector<Entry>& entries,
              Write write) {
  for (size_t index = 0; index < entries.size(); ++index) {
    const SettingsSection section = store.Open(EntrySection(list, index), false);
    // An entry takes the place of whatever was stored under its index before; a value the new
    // entry lacks (a saved search without a root) must not survive from the old one.
    section.DeleteValues();
    write(section, entries[index]);
  }
  store.backend().DeleteSection(EntrySection(list, entries.size()));
}

std::vector<uint8_t> ReadBlock(const SettingsSection& section, std::string_view name) {
  std::vector<uint8_t> data;
  if (section.ReadBinary(name, &data) != kSettingsOk) data.clear();
  return data;
}

uint32_t LoadU32(const uint8_t* p) {
  return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

void StoreU32(uint32_t v, uint8_t* p) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}


bool SameRules(const std::vector<rules::RulePtr>& a, const std::vector<rules::RulePtr>& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (!a[i] || !b[i] || !a[i]->Equals(*b[i])) return false;
  }
  return true;
}

}  // namespace

std::optional<size_t> EntryForCommand(uint32_t command, uint32_t range_first, size_t list_size) {
  if (command < range_first || command - range_first >= kCommandRangeSize) return std::nullopt;
  size_t index = command - range_first;
  if (index >= list_size) return std::nullopt;
  return index;
}

// --- Saved searches ---------------------------------------------------------------------

std::vector<SavedSearch> LoadSavedSearches(const SettingsStore& store) {
  return LoadList<SavedSearch>(
      store, kSavedSearchList, 0, kMaxSavedSearches,
      [](const SettingsSection& section, SavedSearch* entry) {
        if (section.ReadString("szName", &entry->szName) != kSettingsOk ||
            entry->szName.empty()) {
          return false;
        }
        std::vector<uint8_t> blob = ReadBlock(section, "binFilter");
        entry->binFilter.assign(blob.begin(), blob.end());
        if (rules::Deserialise(entry->binFilter).empty()) return false;
        std::string root;
        if (section.ReadString("szRoot", &root) == kSettingsOk && !root.empty()) {
          entry->szRoot = std::move(root);
        }
        return true;
      });
}

void SaveSavedSearches(SettingsStore& store, const std::vector<SavedSearch>& list) {
  SaveList(store, kSavedSearchList, list,
           [](const SettingsSection& section, const SavedSearch& entry) {
             section.WriteString("szName", entry.szName);
             section.WriteBinary("binFilter",
                                 reinterpret_cast<const uint8_t*>(entry.binFilter.data()),
                                 static_cast<uint32_t>(entry.binFilter.size()));
             if (entry.szRoot) section.WriteString("szRoot", *entry.szRoot);
           });
}

SavedSearch MakeSavedSearch(std::string name, const std::vector<rules::RulePtr>& rules,
                            std::optional<std::string> root) {
  SavedSearch entry;
  entry.szName = std::move(name);
  entry.binFilter = rules::Serialise(rules);
  if (root && !root->empty()) entry.szRoot = std::move(root);
  return entry;
}

std::optional<size_t> FindSameSearch(const std::vector<SavedSearch>& list,
                                     const std::vector<rules::RulePtr>& rules,
                                     const std::optional<std::string>& root) {
  const std::optional<std::string> wanted_root =
      root && !root->empty() ? root : std::optional<std::string>();
  for (size_t i = 0; i < list.size(); ++i) {
    if (list[i].szRoot != wanted_root) continue;
    if (SameRules(rules::Deserialise(list[i].binFilter), rules)) return i;
  }
  return std::nullopt;
}

std::optional<size_t> FindSavedSearch(const std::vector<SavedSearch>& list,
                                      std::string_view name) {
  const icu::UnicodeString wanted =
      icu::UnicodeString::fromUTF8(icu::StringPiece(name.data(), static_cast<int32_t>(name.size())));
  for (size_t i = 0; i < list.size(); ++i) {
    if (icu::UnicodeString::fromUTF8(list[i].szName).caseCompare(wanted, U_FOLD_CASE_DEFAULT) ==
        0) {
      return i;
    }
  }
  return std::nullopt;
}

// --- Rule-box layouts -------------------------------------------------------------------

bool IsValidLayout(const RuleBoxLayout& layout) {
  const size_t boxes = layout.binToolID.size();
  if (layout.binProps.size() % kBoxPropsRecordSize != 0 ||
      layout.binProps.size() / kBoxPropsRecordSize != boxes) {
    return false;
  }
  // The fixed bands count too, so there is always at least one band more than there are boxes.
  return layout.binBands.size() % kBandRecordSize == 0 &&
         layout.binBands.size() / kBandRecordSize > boxes;
}

std::vector<RuleBoxLayout> LoadLayouts(const SettingsStore& store, std::string_view section) {
  return LoadList<RuleBoxLayout>(
      store, section, 0, kMaxLayouts, [](const SettingsSection& entry_section, RuleBoxLayout* entry) {
        if (entry_section.ReadString("szName", &entry->szName) != kSettingsOk ||
            entry->szName.empty()) {
          return false;
        }
        std::vector<uint8_t> ids = ReadBlock(entry_section, "binToolID");
        if (ids.size() % kToolIdSize != 0) return false;
        for (size_t i = 0; i < ids.size(); i += kToolIdSize) {
          entry->binToolID.push_back(LoadU32(&ids[i]));
        }
        entry->binProps = ReadBlock(entry_section, "binProps");
        entry->binBands = ReadBlock(entry_section, "binBands");
        entry->nRebarWidth = entry_section.GetInt("nRebarWidth", 0);
        return IsValidLayout(*entry);
      });
}

void SaveLayouts(SettingsStore& store, const std::vector<RuleBoxLayout>& list,
                 std::string_view section) {
  SaveList(store, section, list, [](const SettingsSection& entry_section, const RuleBoxLayout& entry) {
    entry_section.WriteString("szName", entry.szName);
    std::vector<uint8_t> ids(entry.binToolID.size() * kToolIdSize);
    for (size_t i = 0; i < entry.binToolID.size(); ++i) {
      StoreU32(entry.binToolID[i], &ids[i * kToolIdSize]);
    }
    entry_section.WriteBinary("binToolID", ids);
    entry_section.WriteBinary("binProps", entry.binProps);
    entry_section.WriteBinary("binBands", entry.binBands);
    entry_section.WriteInt("nRebarWidth", static_cast<uint32_t>(entry.nRebarWidth));
  });
}

// --- Map areas --------------------------------------------------------------------------

MapArea DefaultMapArea() {
  return MapArea{"New York", base::BitsAsDouble(kNewYorkBits[0]), base::BitsAsDouble(kNewYorkBits[1]),
                 base::BitsAsDouble(kNewYorkBits[2]), base::BitsAsDouble(kNewYorkBits[3])};
}

std::vector<MapArea> LoadMapAreas(const SettingsStore& store) {
  std::vector<MapArea> areas = LoadList<MapArea>(
      store, kMapAreaList, 0, kMaxMapAreas, [](const SettingsSection& section, MapArea* entry) {
        if (section.ReadString("szName", &entry->szName) != kSettingsOk ||
            entry->szName.empty()) {
          return false;
        }
        std::vector<uint8_t> coords = ReadBlock(section, "binCoords");
        if (coords.size() != kCoordsSize) return false;
        double* fields[4] = {&entry->top, &entry->left, &entry->bottom, &entry->right};
        for (int i = 0; i < 4; ++i) {
          uint64_t bits = uint64_t{LoadU32(&coords[i * 8])} |
                          uint64_t{LoadU32(&coords[i * 8 + 4])} << 32;
          *fields[i] = base::BitsAsDouble(bits);
        }
        return true;
      });
  if (areas.empty()) areas.push_back(DefaultMapArea());
  return areas;
}

void SaveMapAreas(SettingsStore& store, const std::vector<MapArea>& list) {
  SaveList(store, kMapAreaList, list, [](const SettingsSection& section, const MapArea& entry) {
    section.WriteString("szName", entry.szName);
    std::vector<uint8_t> coords(kCoordsSize);
    const double fields[4] = {entry.top, entry.left, entry.bottom, entry.right};
    for (int i = 0; i < 4; ++i) {
      uint64_t bits = base::DoubleAsBits(fields[i]);
      StoreU32(static_cast<uint32_t>(bits), &coords[i * 8]);
      StoreU32(static_cast<uint32_t>(bits >> 32), &coords[i * 8 + 4]);
    }
    section.WriteBinary("binCoords", coords);
  });
}

// --- Frequent folders -------------------------------------------------------------------

uint32_t FrequentHash(std::string_view item) { return base::Crc32(item.data(), item.size()); }

std::vector<FrequentFolder> LoadFrequentFolders(const SettingsStore& store) {
  // Older entries come first: when more than the limit are stored, start so that only the
  // newest ones are read. Only the run of indices from 0 counts: entries left beyond a gap by
  // an earlier, longer list are never read, and counting them would skip newer entries.
  const std::set<std::string> names = EntryNames(store, kFrequentList);
  size_t count = 0;
  while (names.count(std::to_string(count)) != 0) ++count;
  const size_t first = count > kMaxFrequent ? count - kMaxFrequent : 0;
  return LoadList<FrequentFolder>(
      store, kFrequentList, first, kMaxFrequent,
      [](const SettingsSection& section, FrequentFolder* entry) {
        if (section.ReadString("szItem", &entry->szItem) != kSettingsOk ||
            entry->szItem.empty()) {
          return false;
        }
        entry->nFreq = section.GetInt("nFreq", 0);
        if (entry->nFreq < 1) return false;
        entry->hash = FrequentHash(entry->szItem);
        return true;
      });
}

void SaveFrequentFolders(SettingsStore& store, const std::vector<FrequentFolder>& list) {
  SaveList(store, kFrequentList, list,
           [](const SettingsSection& section, const FrequentFolder& entry) {
             section.WriteString("szItem", entry.szItem);
             section.WriteInt("nFreq", static_cast<uint32_t>(entry.nFreq));
           });
}

void NoteFrequentUse(std::vector<FrequentFolder>* list, std::string_view item) {
  if (item.empty()) return;
  const uint32_t hash = FrequentHash(item);
  for (FrequentFolder& entry : *list) {
    if (entry.hash == hash && entry.szItem == item) {
      ++entry.nFreq;
      return;
    }
  }
  if (list->size() >= kMaxFrequent) {
    auto least = std::min_element(list->begin(), list->end(),
                                  [](const FrequentFolder& a, const FrequentFolder& b) {
                                    return a.nFreq < b.nFreq;
                                  });
    list->erase(least);
  }
  list->push_back(FrequentFolder{std::string(item), 1, hash});
}

// --- All lists --------------------------------------------------------------------------

SavedLists LoadSavedLists(const SettingsStore& store) {
  SavedLists lists;
  lists.layouts = LoadLayouts(store);
  lists.searches = LoadSavedSearches(store);
  lists.map_areas = LoadMapAreas(store);
  lists.frequent = LoadFrequentFolders(store);
  return lists;
}

void SaveSavedLists(SettingsStore& store, const SavedLists& lists) {
  SaveLayouts(store, lists.layouts);
  SaveSavedSearches(store, lists.searches);
  SaveMapAreas(store, lists.map_areas);
  SaveFrequentFolders(store, lists.frequent);
}

std::function<void(SettingsStore&)> SavedListsSaver(const SavedLists& lists) {
  return [&lists](SettingsStore& store) { SaveSavedLists(store, lists); };
}

}  // namespace trovix::app
