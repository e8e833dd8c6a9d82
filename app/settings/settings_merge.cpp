#include "app/settings/settings_merge.h"

#include <algorithm>
#include <mutex>
#include <string_view>

#include "app/settings/saved_lists.h"
#include "app/settings/settings_lock.h"

namespace trovix::app {
namespace {

// Section and value names are compared without regard to ASCII case, as both stores do.
char LowerChar(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool SameName(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (LowerChar(a[i]) != LowerChar(b[i])) return false;
  }
  return true;
}

std::string Lower(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = LowerChar(c);
  return out;
}

StoreImageSection* Find(StoreImage& image, std::string_view name) {
  for (StoreImageSection& s : image) {
    if (SameName(s.name, name)) return &s;
  }
  return nullptr;
}

const StoreImageSection* Find(const StoreImage& image, std::string_view name) {
  return Find(const_cast<StoreImage&>(image), name);
}

const StoredValue* FindValue(const std::vector<StoredValue>& values, std::string_view name) {
  for (const StoredValue& v : values) {
    if (SameName(v.name, name)) return &v;
  }
  return nullptr;
}

bool SameValue(const StoredValue& a, const StoredValue& b) {
  return a.type == b.type && a.data == b.data;
}

bool SameValues(const std::vector<StoredValue>& a, const std::vector<StoredValue>& b) {
  if (a.size() != b.size()) return false;
  for (const StoredValue& v : a) {
    const StoredValue* other = FindValue(b, v.name);
    if (other == nullptr || !SameValue(v, *other)) return false;
  }
  return true;
}

bool SameImage(const StoreImage& a, const StoreImage& b) {
  if (a.size() != b.size()) return false;
  for (const StoreImageSection& s : a) {
    const StoreImageSection* other = Find(b, s.name);
    if (other == nullptr || !SameValues(s.values, other->values)) return false;
  }
  return true;
}

void SetValue(StoreImage& image, std::string_view section, const StoredValue& value) {
  StoreImageSection* s = Find(image, section);
  if (s == nullptr) s = &image.emplace_back(StoreImageSection{std::string(section), {}});
  for (StoredValue& v : s->values) {
    if (SameName(v.name, value.name)) {
      v = value;
      return;
    }
  }
  s->values.push_back(value);
}

void EraseValue(StoreImage& image, std::string_view section, std::string_view name) {
  if (StoreImageSection* s = Find(image, section)) {
    std::erase_if(s->values, [&](const StoredValue& v) { return SameName(v.name, name); });
  }
}

// The numbered lists and the value that names an entry.
struct ListKind {
  std::string_view section;
  std::string_view key;
};
constexpr ListKind kLists[] = {{kSavedSearchList, "szName"},
                               {kLayoutList, "szName"},
                               {kMapAreaList, "szName"},
                               {kFrequentList, "szItem"},
                               {kFrameLayoutList, "szName"}};

// The index of an entry section of `list` ("SavedSearch\3" gives 3), or -1.
long EntryIndex(std::string_view section, std::string_view list) {
  if (section.size() <= list.size() + 1 || !SameName(section.substr(0, list.size()), list) ||
      section[list.size()] != '\\') {
    return -1;
  }
  std::string_view digits = section.substr(list.size() + 1);
  if (digits.size() > 6 || digits.find_first_not_of("0123456789") != std::string_view::npos) {
    return -1;
  }
  return std::stol(std::string(digits));
}

using Entry = std::vector<StoredValue>;

// The entries as the program reads them: index 0, 1, ... up to the first missing one.
std::vector<Entry> Entries(const StoreImage& image, std::string_view list) {
  std::vector<Entry> entries;
  for (;;) {
    const std::string name = std::string(list) + "\\" + std::to_string(entries.size());
    const StoreImageSection* s = Find(image, name);
    if (s == nullptr) return entries;
    entries.push_back(s->values);
  }
}

// Whether the section is one of the list entries that the program reads (or the missing index
// that ends them); entries behind that gap are never read and are merged as plain sections.
bool IsReadEntry(std::string_view section, const StoreImage& image) {
  for (const ListKind& list : kLists) {
    const long index = EntryIndex(section, list.section);
    if (index >= 0) return static_cast<size_t>(index) <= Entries(image, list.section).size();
  }
  return false;
}

// What each entry is known by: its name, without regard to case, as a saved search is found by
// its name (an entry without one by its whole content), and which entry of that name it is, so
// that two entries of one name stay two.
std::vector<std::string> EntryIds(const std::vector<Entry>& entries, std::string_view key) {
  std::vector<std::string> ids;
  for (const Entry& entry : entries) {
    std::string id;
    if (const StoredValue* v = FindValue(entry, key)) {
      id = "n" + Lower(v->data);
    } else {
      id = "c";
      for (const StoredValue& v : entry) id += Lower(v.name) + '\0' + v.data + '\0';
    }
    const auto same = std::count_if(ids.begin(), ids.end(), [&](const std::string& other) {
      return other.rfind(id + '\1', 0) == 0;
    });
    ids.push_back(id + '\1' + std::to_string(same));
  }
  return ids;
}

long IndexOf(const std::vector<std::string>& ids, const std::string& id) {
  auto it = std::find(ids.begin(), ids.end(), id);
  return it == ids.end() ? -1 : static_cast<long>(it - ids.begin());
}

bool SameEntries(const std::vector<Entry>& a, const std::vector<Entry>& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (!SameValues(a[i], b[i])) return false;
  }
  return true;
}

void MergeList(const ListKind& list, const StoreImage& base, const StoreImage& mine,
               StoreImage* result) {
  const std::vector<Entry> base_entries = Entries(base, list.section);
  const std::vector<Entry> mine_entries = Entries(mine, list.section);
  if (SameEntries(base_entries, mine_entries)) return;
  const std::vector<std::string> base_ids = EntryIds(base_entries, list.key);
  const std::vector<std::string> mine_ids = EntryIds(mine_entries, list.key);
  const std::vector<Entry> stored = Entries(*result, list.section);
  const std::vector<std::string> stored_ids = EntryIds(stored, list.key);
  std::vector<Entry> merged;
  std::vector<std::string> merged_ids;
  for (size_t i = 0; i < stored.size(); ++i) {
    const bool deleted_here =
        IndexOf(base_ids, stored_ids[i]) >= 0 && IndexOf(mine_ids, stored_ids[i]) < 0;
    if (deleted_here) continue;
    merged.push_back(stored[i]);
    merged_ids.push_back(stored_ids[i]);
  }
  for (size_t i = 0; i < mine_entries.size(); ++i) {
    const long before = IndexOf(base_ids, mine_ids[i]);
    if (before >= 0 && SameValues(base_entries[before], mine_entries[i])) continue;
    const long same = IndexOf(merged_ids, mine_ids[i]);
    if (same >= 0) {
      merged[same] = mine_entries[i];
    } else {
      merged.push_back(mine_entries[i]);
      merged_ids.push_back(mine_ids[i]);
    }
  }
  // As the lists are saved: entries 0 ... n-1 written, index n deleted so that reading stops
  // there; whatever lay behind the stored list's own gap stays unread.
  const size_t replaced = std::max(stored.size(), merged.size());
  std::erase_if(*result, [&](const StoreImageSection& s) {
    const long index = EntryIndex(s.name, list.section);
    return index >= 0 && static_cast<size_t>(index) <= replaced;
  });
  for (size_t i = 0; i < merged.size(); ++i) {
    result->push_back(
        StoreImageSection{std::string(list.section) + "\\" + std::to_string(i), merged[i]});
  }
}

void ReadSection(SettingsBackend& backend, const std::string& path, StoreImage* image) {
  const std::vector<std::string> names = backend.ValueNames(path);
  const bool exists = path.empty() ? !names.empty() : backend.SectionExists(path);
  if (exists || !names.empty()) {
    StoreImageSection section{path, {}};
    for (const std::string& name : names) {
      StoredValue value;
      if (backend.ReadStored(path, name, &value) != kSettingsOk) continue;
      value.name = name;
      section.values.push_back(std::move(value));
    }
    image->push_back(std::move(section));
  }
  for (const std::string& sub : backend.SubSections(path)) {
    ReadSection(backend, path.empty() ? sub : path + "\\" + sub, image);
  }
}

}  // namespace

StoreImage ReadStoreImage(SettingsBackend& backend) {
  StoreImage image;
  ReadSection(backend, "", &image);
  return image;
}

StoreImage MergeStoreImages(const StoreImage& base, const StoreImage& mine,
                            const StoreImage& fresh) {
  StoreImage result = fresh;
  std::vector<std::string> names;
  for (const StoreImage* image : {&base, &mine}) {
    for (const StoreImageSection& s : *image) {
      if (IsReadEntry(s.name, *image)) continue;
      if (std::none_of(names.begin(), names.end(),
                       [&](const std::string& n) { return SameName(n, s.name); })) {
        names.push_back(s.name);
      }
    }
  }
  for (const std::string& name : names) {
    const StoreImageSection* before = Find(base, name);
    const StoreImageSection* now = Find(mine, name);
    if (now != nullptr) {
      if (Find(result, name) == nullptr) result.push_back(StoreImageSection{now->name, {}});
      for (const StoredValue& v : now->values) {
        const StoredValue* old = before != nullptr ? FindValue(before->values, v.name) : nullptr;
        if (old == nullptr || !SameValue(*old, v)) SetValue(result, name, v);
      }
    }
    if (before == nullptr) continue;
    for (const StoredValue& v : before->values) {
      if (now == nullptr || FindValue(now->values, v.name) == nullptr) {
        EraseValue(result, name, v.name);
      }
    }
    // A section this process removed goes, unless another process has put values in it since.
    if (now == nullptr) {
      std::erase_if(result, [&](const StoreImageSection& s) {
        return SameName(s.name, name) && s.values.empty();
      });
    }
  }
  for (const ListKind& list : kLists) MergeList(list, base, mine, &result);
  return result;
}

void ApplyStoreImage(SettingsBackend& backend, const StoreImage& from, const StoreImage& to) {
  for (const StoreImageSection& gone : from) {
    if (Find(to, gone.name) != nullptr) continue;
    const std::string below = Lower(gone.name) + "\\";
    const bool keeps_below = std::any_of(to.begin(), to.end(), [&](const StoreImageSection& s) {
      return Lower(s.name).rfind(below, 0) == 0;
    });
    if (keeps_below) {
      // Deleting the section would take its sub-sections along.
      for (const StoredValue& v : gone.values) backend.DeleteValue(gone.name, v.name);
    } else {
      backend.DeleteSection(gone.name);
    }
  }
  for (const StoreImageSection& section : to) {
    const StoreImageSection* before = Find(from, section.name);
    if (before == nullptr && section.values.empty()) backend.EnsureSection(section.name);
    for (const StoredValue& v : section.values) {
      const StoredValue* old = before != nullptr ? FindValue(before->values, v.name) : nullptr;
      if (old == nullptr || !SameValue(*old, v)) backend.WriteStored(section.name, v);
    }
    if (before == nullptr) continue;
    for (const StoredValue& v : before->values) {
      if (FindValue(section.values, v.name) == nullptr) backend.DeleteValue(section.name, v.name);
    }
  }
}

namespace {

class MergingBackend final : public SettingsBackend {
 public:
  MergingBackend(std::function<std::unique_ptr<SettingsBackend>()> open_store,
                 std::function<std::unique_ptr<SettingsBackend>()> open_working,
                 std::string lock_path)
      : open_store_(std::move(open_store)), lock_path_(std::move(lock_path)) {
    std::unique_ptr<SettingsBackend> store = open_store_();
    available_ = store->Available();
    where_ = store->Where();
    problem_ = store->OpenProblem();
    base_ = ReadStoreImage(*store);
    working_ = open_working();
    ApplyStoreImage(*working_, {}, base_);
  }

  bool OpenSection(std::string_view section, bool read_only) override {
    std::lock_guard lock(mutex_);
    return available_ && working_->OpenSection(section, read_only);
  }
  bool Available() const override { return available_; }
  bool SectionExists(std::string_view section) override {
    std::lock_guard lock(mutex_);
    return working_->SectionExists(section);
  }
  SettingsStatus ReadInt(std::string_view section, std::string_view name,
                         uint32_t* value) override {
    std::lock_guard lock(mutex_);
    return working_->ReadInt(section, name, value);
  }
  SettingsStatus WriteInt(std::string_view section, std::string_view name,
                          uint32_t value) override {
    std::lock_guard lock(mutex_);
    return working_->WriteInt(section, name, value);
  }
  SettingsStatus ReadBinary(std::string_view section, std::string_view name, uint8_t* data,
                            uint32_t* length) override {
    std::lock_guard lock(mutex_);
    return working_->ReadBinary(section, name, data, length);
  }
  SettingsStatus WriteBinary(std::string_view section, std::string_view name, const uint8_t* data,
                             uint32_t length) override {
    std::lock_guard lock(mutex_);
    return working_->WriteBinary(section, name, data, length);
  }
  SettingsStatus ReadString(std::string_view section, std::string_view name,
                            std::string* value) override {
    std::lock_guard lock(mutex_);
    return working_->ReadString(section, name, value);
  }
  SettingsStatus WriteString(std::string_view section, std::string_view name,
                             std::string_view value) override {
    std::lock_guard lock(mutex_);
    return working_->WriteString(section, name, value);
  }
  SettingsStatus ReadStored(std::string_view section, std::string_view name,
                            StoredValue* value) override {
    std::lock_guard lock(mutex_);
    return working_->ReadStored(section, name, value);
  }
  SettingsStatus WriteStored(std::string_view section, const StoredValue& value) override {
    std::lock_guard lock(mutex_);
    return working_->WriteStored(section, value);
  }
  SettingsStatus DeleteValue(std::string_view section, std::string_view name) override {
    std::lock_guard lock(mutex_);
    return working_->DeleteValue(section, name);
  }
  SettingsStatus DeleteValues(std::string_view section,
                              std::optional<SettingsValueType> only) override {
    std::lock_guard lock(mutex_);
    return working_->DeleteValues(section, only);
  }
  SettingsStatus DeleteSection(std::string_view section) override {
    std::lock_guard lock(mutex_);
    return working_->DeleteSection(section);
  }
  SettingsStatus EnsureSection(std::string_view section) override {
    std::lock_guard lock(mutex_);
    return working_->EnsureSection(section);
  }
  std::vector<std::string> SubSections(std::string_view section) override {
    std::lock_guard lock(mutex_);
    return working_->SubSections(section);
  }
  std::vector<std::string> ValueNames(std::string_view section) override {
    std::lock_guard lock(mutex_);
    return working_->ValueNames(section);
  }

  SettingsStatus Commit() override {
    std::lock_guard lock(mutex_);
    const StoreImage mine = ReadStoreImage(*working_);
    if (SameImage(mine, base_)) return kSettingsOk;
    std::string error;
    std::unique_ptr<SettingsLock> settings_lock =
        SettingsLock::Acquire(lock_path_, kSettingsLockTimeout, &error);
    // Writing without the lock could undo another process's save: this one waits for the next.
    if (!settings_lock) return kSettingsNotFound;
    std::unique_ptr<SettingsBackend> store = open_store_();
    const StoreImage fresh = ReadStoreImage(*store);
    ApplyStoreImage(*store, fresh, MergeStoreImages(base_, mine, fresh));
    if (SettingsStatus s = store->Commit(); s != kSettingsOk) return s;
    // The next changes are counted from what this process has now written. Its working copy is
    // not refreshed with what others stored: the desktop program keeps its settings and lists
    // in memory from start to exit and writes them back whole, so a refreshed copy would make
    // every entry another process added look like one this process deleted.
    base_ = mine;
    return kSettingsOk;
  }

  std::string Where() const override { return where_; }
  std::string OpenProblem() const override { return problem_; }

 private:
  std::function<std::unique_ptr<SettingsBackend>()> open_store_;
  const std::string lock_path_;
  std::mutex mutex_;
  std::unique_ptr<SettingsBackend> working_;
  StoreImage base_;
  bool available_ = true;
  std::string where_;
  std::string problem_;
};

}  // namespace

std::unique_ptr<SettingsBackend> MakeMergingBackend(
    std::function<std::unique_ptr<SettingsBackend>()> open_store,
    std::function<std::unique_ptr<SettingsBackend>()> open_working, std::string lock_path) {
  return std::make_unique<MergingBackend>(std::move(open_store), std::move(open_working),
                                          std::move(lock_path));
}

}  // namespace trovix::app
