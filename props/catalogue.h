// The property catalogue: the one list of every property that rules, columns and
// expressions can name, joining the shell properties this platform's handlers produce
// (System.*), the stock properties the program computes (Stock.*) and, later, plugin fields.
//
// A catalogue is built once and only read afterwards, so it may be shared between threads.
// DefaultCatalogue() (filtered) and AllPropertiesCatalogue() are built on first use and live
// for the whole process.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "props/key_index.h"
#include "props/property_info.h"

namespace trovix::props {

// An everyday word that names a property where the catalogue's own names differ ("ext" for
// System.FileExtension). Users bring these from other tools; `props` lists them beside the
// names they stand for.
struct CommonWord {
  std::string_view word;  // lower case; matched ignoring ASCII case
  std::string_view name;  // canonical name
};
std::span<const CommonWord> CommonWords();

// What a typed property name finds: one entry, or the candidates of a name that several
// canonical names end in equally ("Duration": System.Media.Duration, System.Calendar.Duration).
struct NameLookup {
  const PropertyInfo* found = nullptr;
  std::vector<const PropertyInfo*> candidates;  // only when `found` is null
};

class Catalogue {
 public:
  // Builds the catalogue: shell properties (filtered unless all_properties), then the stock
  // rows in table order. In all-properties mode the key index runs in replace mode.
  static std::unique_ptr<Catalogue> Build(bool all_properties);

  // Exact canonical name, case as stored; nullptr when unknown.
  const PropertyInfo* FindProperty(std::string_view name) const;
  // Through the key index; nullptr when unknown.
  const PropertyInfo* FindProperty(const PropertyKey& key) const;
  // Display label, ignoring ASCII case ("size" finds System.Size); the first entry wins.
  const PropertyInfo* FindByLabel(std::string_view label) const;
  // Looks up what a user types for a property, ignoring ASCII case, in this order: a canonical
  // name; a display label ("size"); a common word ("ext"); a dotted tail of canonical names
  // ("Music.Artist", "Artist", "DateModified"), where the name that keeps the most of itself
  // wins ("DateCreated" is System.DateCreated, not System.Document.DateCreated) and names that
  // keep as much are candidates.
  NameLookup Lookup(std::string_view text) const;
  // Lookup's entry; nullptr when unknown or ambiguous.
  const PropertyInfo* Resolve(std::string_view text) const { return Lookup(text).found; }

  // Entries in catalogue order: shell properties in table order, then the stock rows.
  const std::vector<std::unique_ptr<PropertyInfo>>& entries() const { return entries_; }
  const KeyIndex& key_index() const { return key_index_; }
  bool all_properties() const { return all_properties_; }

 private:
  explicit Catalogue(bool all_properties) : all_properties_(all_properties), key_index_(all_properties) {}
  void Add(std::unique_ptr<PropertyInfo> info);

  bool all_properties_;
  KeyIndex key_index_;
  std::vector<std::unique_ptr<PropertyInfo>> entries_;
  std::unordered_map<std::string, const PropertyInfo*> by_name_;
  std::unordered_map<PropertyKey, const PropertyInfo*, PropertyKeyHash> by_key_;
};

const Catalogue& DefaultCatalogue();
const Catalogue& AllPropertiesCatalogue();

// Whether anything on this system gives the property a value: a handler produces it or the
// program computes it. The all-properties catalogue holds many that nothing fills (the
// platform's System.FileName, System.GPS.Date): a rule on one of them never matches.
bool IsFilledHere(const PropertyInfo& info);
// For a property nothing fills, the filled one of the filtered catalogue that answers what it
// asks (System.FileName: System.ItemNameDisplay); nullptr when there is none.
const PropertyInfo* FilledCounterpart(const PropertyInfo& info);

// The stock index of a property: 0 when it is not stock.
inline uint32_t IsStock(const PropertyInfo& info) { return info.stock_index; }

// The option list a new rule on the property offers. Usually the entry's own; for Stock.Kind
// the kind names of the table in use now, since the user edits the kinds while catalogue
// entries never change. A rule keeps the list it was made with.
std::shared_ptr<const OptionList> OptionsOf(const PropertyInfo& info);

// The groups of the property pickers, in order ("All properties", "Simple/Common", ...).
const std::vector<std::string>& PropertyGroups();
// The index into PropertyGroups() of the group that lists a property (by canonical name).
int PropertyGroupOf(std::string_view name);

// The "Simple/Common" list: the comma-separated names of the setting szSimplePropertyList.
inline constexpr std::string_view kDefaultSimplePropertyList = "System.ItemNameDisplay";
std::vector<std::string> SimplePropertyList(std::string_view setting = kDefaultSimplePropertyList);

}  // namespace trovix::props
