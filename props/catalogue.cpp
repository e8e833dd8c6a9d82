#include "props/catalogue.h"

#include <algorithm>
#include <climits>
#include <cctype>
#include <cstdint>
#include <mutex>

#include "base/string_table.h"
#include "props/catalogue_filters.h"
#include "props/file_kinds.h"
#include "props/handler_registry.h"
#include "props/plugins/plugin_columns.h"
#include "props/stock.h"
#include "props/system_property_table.h"

namespace trovix::props {
namespace {

bool EqualsIgnoreAsciiCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
         });
}

// A label for a property no handler describes: its last name component split into words,
// "DateModified" -> "Date modified", "ISOSpeed" -> "ISO speed".
std::string LabelFromName(std::string_view name) {
  size_t dot = name.rfind('.');
  std::string_view last = dot == std::string_view::npos ? name : name.substr(dot + 1);
  auto is_upper = [&](size_t i) { return i < last.size() && std::isupper(static_cast<unsigned char>(last[i])); };
  auto is_lower = [&](size_t i) { return i < last.size() && std::islower(static_cast<unsigned char>(last[i])); };
  std::vector<std::string> words(1);
  for (size_t i = 0; i < last.size(); ++i) {
    bool boundary = i > 0 && is_upper(i) && (is_lower(i - 1) || (is_upper(i - 1) && is_lower(i + 1)));
    if (boundary) words.emplace_back();
    words.back() += last[i];
  }
  std::string out;
  for (std::string& w : words) {
    bool acronym = w.size() > 1 && std::all_of(w.begin(), w.end(), [](char c) { return !std::islower(static_cast<unsigned char>(c)); });
    if (!out.empty()) {
      out += ' ';
      if (!acronym) w[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(w[0])));
    }
    out += w;
  }
  return out.empty() ? std::string(name) : out;
}

int PeriodCount(std::string_view name) { return static_cast<int>(std::count(name.begin(), name.end(), '.')); }

}  // namespace

void Catalogue::Add(std::unique_ptr<PropertyInfo> info) {
  key_index_.Insert(info->key, info->type_word);
  const PropertyInfo* raw = info.get();
  auto [it, inserted] = by_key_.emplace(info->key, raw);
  if (!inserted) {
    // Replace mode: a second entry for the same key supersedes the first.
    if (!key_index_.replace_mode()) return;
    it->second = raw;
  }
  by_name_[info->name] = raw;
  entries_.push_back(std::move(info));
}

std::unique_ptr<Catalogue> Catalogue::Build(bool all_properties) {
  RegisterBuiltinHandlers();
  std::unique_ptr<Catalogue> cat(new Catalogue(all_properties));
  const HandlerRegistry& registry = HandlerRegistry::Instance();

  // 1. Shell properties.
  for (const SystemPropertyRow& row : SystemPropertyTable()) {
    bool forced = IsForcedName(row.name());
    const ProducedProperty* produced = registry.Produced(row);
    if (!all_properties) {
      // On this platform the property system is ours: offer only what a handler produces.
      // Tested first: it is a lookup, while the name filters compare linguistically against
      // long lists, and few of the table's rows are produced here.
      if (!produced && !forced) continue;
      if (!PassesNameFilters(row.name())) continue;
    }
    if (!PassesTypeRule(row.vartype, forced)) continue;
    uint16_t flags = 0;
    bool vector = (row.vartype & VT_VECTOR) != 0;
    bool forced_vector = forced && vector && (row.vartype & kVarTypeMask) != VT_LPWSTR;
    if (forced_vector) flags |= kPropMultiValued;
    if (produced) {
      flags |= produced->extra_flags & (kPropEnumerated | kPropIndexed | kPropInnate | kPropCostly | kPropDuration);
      if ((row.vartype & kVarTypeMask) == VT_BOOL) flags &= ~kPropEnumerated;
      if (forced_vector) flags &= ~kPropIndexed;
    }
    // Reading file contents is the costliest test there is: it always goes last.
    if (row.name() == "System.Search.Contents") flags |= kPropCostly;
    if (PeriodCount(row.name()) == 1) flags |= kPropTopLevel;

    auto info = std::make_unique<PropertyInfo>();
    info->key = row.key;
    info->hash = row.key.Hash();
    info->type_word = static_cast<uint32_t>(flags) << 16 | row.vartype;
    info->name = row.name();
    info->label = produced && !produced->label.empty() ? produced->label : LabelFromName(row.name());
    if (produced) {
      info->description = produced->description;
      info->options = produced->options;
    }
    if (!info->options && (row.vartype & kVarTypeMask) == VT_BOOL) {
      static const auto kYesNo = std::make_shared<const OptionList>(
          OptionList{OptionList::Kind::kDiscrete, false, {{"No", 0, 0, ""}, {"Yes", -1, 0, ""}}});
      info->options = kYesNo;
    }
    cat->Add(std::move(info));
  }

  // 2. Stock properties, in table order.
  uint32_t index = 0;
  for (const StockRow& row : StockTable()) {
    ++index;
    auto info = std::make_unique<PropertyInfo>();
    info->key = PropertyKey{*Guid::Parse(row.fmtid), row.pid};
    info->hash = info->key.Hash();
    uint16_t flags = row.flags | kPropStock;
    info->type_word = static_cast<uint32_t>(flags) << 16 | row.var_type;
    info->name = std::string(row.name);
    info->label = std::string(base::LoadString(row.label_id));
    info->description = std::string(base::LoadString(row.description_id));
    info->stock_index = index;
    if (row.var_type == VT_BOOL) {
      info->options = std::make_shared<const OptionList>(
          OptionList{OptionList::Kind::kDiscrete, false, {{"No", 0, 0, ""}, {"Yes", -1, 0, ""}}});
    }
    // The stock rows reuse a shell key on purpose (Stock.FileAttributes): the stock entry wins.
    if (auto it = cat->by_key_.find(info->key); it != cat->by_key_.end()) {
      cat->by_name_.erase(it->second->name);
      auto& entries = cat->entries_;
      entries.erase(std::remove_if(entries.begin(), entries.end(),
                                   [&](const auto& e) { return e.get() == it->second; }),
                    entries.end());
      cat->by_key_.erase(it);
    }
    cat->Add(std::move(info));
  }
  // 3. Content plugin fields, in configuration order (and, on a platform that has them,
  // legacy column handlers after them). Without configured plugins this is an empty list.
  for (std::unique_ptr<PropertyInfo>& row : PluginPropertyRows()) {
    // A plugin cannot take the name or key of a property that is there already.
    if (cat->by_name_.count(row->name) || cat->by_key_.count(row->key)) continue;
    cat->Add(std::move(row));
  }
  return cat;
}

const PropertyInfo* Catalogue::FindProperty(std::string_view name) const {
  auto it = by_name_.find(std::string(name));
  return it == by_name_.end() ? nullptr : it->second;
}

const PropertyInfo* Catalogue::FindProperty(const PropertyKey& key) const {
  if (!key_index_.Find(key)) return nullptr;
  auto it = by_key_.find(key);
  return it == by_key_.end() ? nullptr : it->second;
}

const PropertyInfo* Catalogue::FindByLabel(std::string_view label) const {
  for (const auto& e : entries_)
    if (EqualsIgnoreAsciiCase(e->label, label)) return e.get();
  return nullptr;
}

NameLookup Catalogue::Lookup(std::string_view text) const {
  NameLookup result;
  if (text.empty()) return result;
  if (const PropertyInfo* p = FindProperty(text)) return {p, {}};
  for (const auto& e : entries_)
    if (EqualsIgnoreAsciiCase(e->name, text)) return {e.get(), {}};
  if (const PropertyInfo* p = FindByLabel(text)) return {p, {}};
  for (const CommonWord& w : CommonWords())
    if (EqualsIgnoreAsciiCase(w.word, text))
      if (const PropertyInfo* p = FindProperty(w.name)) return {p, {}};
  // Dotted tails: the fewer leading components a name gives up to match, the nearer it is.
  int best = INT32_MAX;
  for (const auto& e : entries_) {
    std::string_view name = e->name;
    int dropped = 0;
    for (size_t dot = name.find('.'); dot != std::string_view::npos; dot = name.find('.', dot + 1)) {
      ++dropped;
      if (!EqualsIgnoreAsciiCase(name.substr(dot + 1), text)) continue;
      if (dropped < best) {
        best = dropped;
        result.candidates.clear();
      }
      if (dropped == best) result.candidates.push_back(e.get());
      break;
    }
  }
  if (result.candidates.size() == 1) {
    result.found = result.candidates.front();
    result.candidates.clear();
  }
  return result;
}

std::span<const CommonWord> CommonWords() {
  // Only words whose meaning is plain; a word the catalogue already has as a label is left to it.
  static constexpr CommonWord kWords[] = {
      {"filename", "System.ItemNameDisplay"},
      {"ext", "System.FileExtension"},        {"extension", "System.FileExtension"},
      {"modified", "System.DateModified"},    {"mtime", "System.DateModified"},
      {"date", "System.DateModified"},        {"created", "System.DateCreated"},
      {"accessed", "System.DateAccessed"},    {"folder", "System.ItemFolderPathDisplay"},
      {"duration", "System.Media.Duration"},  {"artist", "System.Music.Artist"},
      {"album", "System.Music.AlbumTitle"},   {"camera", "System.Photo.CameraModel"},
      {"width", "System.Image.HorizontalSize"}, {"height", "System.Image.VerticalSize"},
  };
  return kWords;
}

bool IsFilledHere(const PropertyInfo& info) {
  if (info.stock_index != 0 || DefaultCatalogue().FindProperty(info.name) != nullptr) return true;
  return HandlerRegistry::Instance().Produced(info.name) != nullptr;
}

const PropertyInfo* FilledCounterpart(const PropertyInfo& info) {
  const Catalogue& filtered = DefaultCatalogue();
  std::string_view name = info.name;
  const std::string_view last = name.substr(name.rfind('.') + 1);
  // The same last name under another namespace (System.Calendar.Duration: System.Media.Duration),
  // then the common word it is (System.FileName: "filename"), then the same label.
  for (const auto& e : filtered.entries()) {
    std::string_view other = e->name;
    if (EqualsIgnoreAsciiCase(other.substr(other.rfind('.') + 1), last)) return e.get();
  }
  for (const CommonWord& w : CommonWords())
    if (EqualsIgnoreAsciiCase(w.word, last)) return filtered.FindProperty(w.name);
  return filtered.FindByLabel(info.label);
}

// The catalogues live as long as the process and are never destroyed: freeing their thousand
// allocations at exit would only make a short console run wait longer.
const Catalogue& DefaultCatalogue() {
  static const Catalogue* const catalogue = Catalogue::Build(false).release();
  return *catalogue;
}

const Catalogue& AllPropertiesCatalogue() {
  static const Catalogue* const catalogue = Catalogue::Build(true).release();
  return *catalogue;
}

std::shared_ptr<const OptionList> OptionsOf(const PropertyInfo& info) {
  if (info.stock_index == stock::kKind) return CurrentFileKinds()->Options();
  return info.options;
}

const std::vector<std::string>& PropertyGroups() {
  static const std::vector<std::string> groups = {
      "All properties", "Simple/Common", "Legacy column handlers", "General", "Audio",
      "Document", "Digital rights management", "Map data (GPS)", "Image", "Link (shortcut)",
      "Media", "Music", "Photography", "Software", "Video"};
  return groups;
}

int PropertyGroupOf(std::string_view name) {
  struct Prefix {
    std::string_view prefix;
    int group;
  };
  // Assigned by namespace; everything else, the stock properties among them, is "General".
  static constexpr Prefix kPrefixes[] = {
      {"System.Audio.", 4}, {"System.Document.", 5}, {"System.DRM.", 6},  {"System.GPS.", 7},
      {"System.Image.", 8}, {"System.Link.", 9},     {"System.Media.", 10}, {"System.Music.", 11},
      {"System.Photo.", 12}, {"System.Software.", 13}, {"System.Video.", 14}};
  for (const Prefix& p : kPrefixes)
    if (name.starts_with(p.prefix)) return p.group;
  return 3;
}

std::vector<std::string> SimplePropertyList(std::string_view setting) {
  std::vector<std::string> names;
  while (!setting.empty()) {
    size_t comma = setting.find(',');
    std::string_view piece = setting.substr(0, comma);
    while (!piece.empty() && piece.front() == ' ') piece.remove_prefix(1);
    while (!piece.empty() && piece.back() == ' ') piece.remove_suffix(1);
    if (!piece.empty()) names.emplace_back(piece);
    if (comma == std::string_view::npos) break;
    setting.remove_prefix(comma + 1);
  }
  return names;
}

}  // namespace trovix::props
