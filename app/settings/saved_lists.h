// The named lists kept across sessions: saved searches ("SavedSearch"), rule-box layouts
// ("BoxBars"), picture-map areas ("MapRects") and frequently used folders ("FrequentDir").
// Each list lives in one section of the settings store as numbered sub-sections "0", "1", ...
// (in the settings file: sections "SavedSearch\0", "SavedSearch\1", ...). They are read once at
// start and written at exit, inside SaveSettings (SavedListsSaver gives the callback).
//
// Loading reads index after index and stops at the first missing one, so a gap ends the list;
// entries that break the rules of their list are skipped without ending it. Saving writes every
// entry again under 0, 1, 2, ... and deletes the one sub-section whose index equals the new
// count; entries beyond it may stay in the store but are never read.
//
// Plain data and free functions; not thread-safe (the application guards the lists with its
// own lock). The functions borrow the store.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/settings/settings_store.h"
#include "rules/rule.h"

namespace trovix::app {

inline constexpr std::string_view kSavedSearchList = "SavedSearch";
inline constexpr std::string_view kLayoutList = "BoxBars";
inline constexpr std::string_view kMapAreaList = "MapRects";
inline constexpr std::string_view kFrequentList = "FrequentDir";
// The frame's own layouts (entry 0 "default", entry 1 the last restored) use the record format
// of the layout list in this sub-section.
inline constexpr std::string_view kFrameLayoutList = "frame\\BoxBars";

inline constexpr size_t kMaxSavedSearches = 50;
inline constexpr size_t kMaxLayouts = 50;
inline constexpr size_t kMaxMapAreas = 50;
inline constexpr size_t kMaxFrequent = 30;

// Menu commands that select list entries: the entry at (command - range start).
inline constexpr uint32_t kLayoutCommandFirst = 40000;
inline constexpr uint32_t kSavedSearchCommandFirst = 40100;
inline constexpr uint32_t kMapAreaCommandFirst = 40200;
inline constexpr uint32_t kCommandRangeSize = 50;

// The list index a menu command selects in a list of `list_size` entries starting at
// `range_first`; nullopt for a command outside the range or beyond the list's end.
std::optional<size_t> EntryForCommand(uint32_t command, uint32_t range_first, size_t list_size);

struct SavedSearch {
  std::string szName;
  std::string binFilter;              // the persisted rule list
  std::optional<std::string> szRoot;  // only when the root folder was included
};

inline constexpr size_t kToolIdSize = 4;
inline constexpr size_t kBoxPropsRecordSize = 20;
inline constexpr size_t kBandRecordSize = 44;

// A rule-box layout. The property and band records are kept as the bytes the rule boxes and
// the band area wrote; their fields are theirs to read.
struct RuleBoxLayout {
  std::string szName;
  std::vector<uint32_t> binToolID;
  std::vector<uint8_t> binProps;  // kBoxPropsRecordSize bytes per tool identifier
  std::vector<uint8_t> binBands;  // kBandRecordSize bytes per band, more bands than boxes
  int32_t nRebarWidth = 0;
};

struct MapArea {
  std::string szName;
  double top = 0, left = 0, bottom = 0, right = 0;  // decimal degrees
};

struct FrequentFolder {
  std::string szItem;
  int32_t nFreq = 0;
  uint32_t hash = 0;  // of szItem's bytes, for the look-up when a folder is used again
};

std::vector<SavedSearch> LoadSavedSearches(const SettingsStore& store);
void SaveSavedSearches(SettingsStore& store, const std::vector<SavedSearch>& list);

// `section` is kLayoutList or kFrameLayoutList.
std::vector<RuleBoxLayout> LoadLayouts(const SettingsStore& store,
                                       std::string_view section = kLayoutList);
void SaveLayouts(SettingsStore& store, const std::vector<RuleBoxLayout>& list,
                 std::string_view section = kLayoutList);
// Whether a layout's blocks keep the length rules (a layout that does not is dropped whole).
bool IsValidLayout(const RuleBoxLayout& layout);

// With no area stored, the list holds the one default area "New York".
std::vector<MapArea> LoadMapAreas(const SettingsStore& store);
void SaveMapAreas(SettingsStore& store, const std::vector<MapArea>& list);
MapArea DefaultMapArea();

// Only the newest 30 when more are stored.
std::vector<FrequentFolder> LoadFrequentFolders(const SettingsStore& store);
void SaveFrequentFolders(SettingsStore& store, const std::vector<FrequentFolder>& list);
uint32_t FrequentHash(std::string_view item);
// Counts one more use of `item`: raises its count, or appends it with a count of 1. When the
// list is full, the entry used least (the oldest of equals) makes room first.
void NoteFrequentUse(std::vector<FrequentFolder>* list, std::string_view item);

// Every list, as the manager thread keeps them between start and exit.
struct SavedLists {
  std::vector<RuleBoxLayout> layouts;
  std::vector<SavedSearch> searches;
  std::vector<MapArea> map_areas;
  std::vector<FrequentFolder> frequent;
};

SavedLists LoadSavedLists(const SettingsStore& store);
// Writes the lists in the order the settings keep them: layouts, saved searches, map areas,
// frequent folders. Does not commit.
void SaveSavedLists(SettingsStore& store, const SavedLists& lists);
// The callback for SaveOptions::save_lists; `lists` must outlive the call of SaveSettings.
std::function<void(SettingsStore&)> SavedListsSaver(const SavedLists& lists);

// The saved search to offer with "The same parameters are saved under name: %1": the first
// entry with an equal rule list (rule by rule) and the same root, where no root on either side
// counts as the same. nullopt when there is none.
std::optional<size_t> FindSameSearch(const std::vector<SavedSearch>& list,
                                     const std::vector<rules::RulePtr>& rules,
                                     const std::optional<std::string>& root);
// The first saved search of that name, compared without regard to case (as /G: names it).
std::optional<size_t> FindSavedSearch(const std::vector<SavedSearch>& list,
                                      std::string_view name);
// The entry for a search: the rule list in its persisted form, the root when included.
SavedSearch MakeSavedSearch(std::string name, const std::vector<rules::RulePtr>& rules,
                            std::optional<std::string> root);

}  // namespace trovix::app
