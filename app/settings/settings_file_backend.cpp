#include "app/settings/settings_file_backend.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <set>

#include "app/settings/profile_file.h"
#include "platform/no_replace_rename.h"
#include "platform/regular_file.h"

namespace trovix::app {
namespace {

// The value that keeps an otherwise empty section in the file.
constexpr std::string_view kKeepSectionName = "@";

std::string FileName(std::string_view name) {
  std::string out(name);
  for (char& c : out) {
    if (c == '=') c = '_';
  }
  return out;
}

bool HasPrefixNoCase(std::string_view s, std::string_view prefix) {
  if (s.size() < prefix.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i) {
    char a = s[i], b = prefix[i];
    if (a >= 'A' && a <= 'Z') a = static_cast<char>(a - 'A' + 'a');
    if (b >= 'A' && b <= 'Z') b = static_cast<char>(b - 'A' + 'a');
    if (a != b) return false;
  }
  return true;
}

std::string Lower(std::string s) {
  for (char& c : s) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return s;
}

class FileBackend final : public SettingsBackend {
 public:
  FileBackend(std::string path, platform::BeforeRenameHook hook)
      : path_(std::move(path)), hook_(std::move(hook)) {
    ProfileParseReport report;
    int err = file_.Load(path_, &report);
    if (err == platform::kNotRegularFile) {
      // A pipe or a device in the settings file's place is nothing we wrote; it is neither
      // read, nor moved, nor replaced by a save.
      problem_ = "The settings file " + path_ + " " + platform::DescribeReadError(err) +
                 "; the default settings are used and none are kept.";
      not_a_file_ = true;
    } else if (err != 0 && err != ENOENT) {
      problem_ = "The settings file " + path_ + " cannot be read (" +
                 platform::DescribeReadError(err) + "); the default settings are used.";
      // Keep the unreadable file: the first save moves it aside rather than over-writing it.
      set_aside_ = err != EISDIR;
    } else if (report.binary || report.invalid_utf8) {
      // Reading on past damage would write the guessed remains back as if they were the
      // user's settings; the whole file is kept aside for its owner instead.
      file_ = ProfileFile();
      problem_ = "The settings file " + path_ +
                 (report.binary ? " is not a text file" : " is not valid UTF-8") +
                 "; the default settings are used, and the file is kept as " + path_ +
                 ".bad.N (the first free N) when the settings are saved.";
      set_aside_ = true;
    }
  }

  bool OpenSection(std::string_view, bool) override { return true; }

  bool SectionExists(std::string_view section) override {
    std::lock_guard lock(mutex_);
    return file_.HasSection(section);
  }

  SettingsStatus ReadInt(std::string_view section, std::string_view name,
                         uint32_t* value) override {
    std::lock_guard lock(mutex_);
    // Asked by presence, not by a default value: a flag word may hold any 32 bits.
    std::string text;
    if (!file_.GetString(section, FileName(name), &text, kProfileReadLimit)) return kSettingsBadData;
    *value = file_.GetInt(section, FileName(name), 0);
    return kSettingsOk;
  }

  SettingsStatus WriteInt(std::string_view section, std::string_view name,
                          uint32_t value) override {
    return Write(section, name, std::to_string(static_cast<int32_t>(value)));
  }

  SettingsStatus ReadBinary(std::string_view section, std::string_view name, uint8_t* data,
                            uint32_t* length) override {
    std::lock_guard lock(mutex_);
    std::string text;
    if (!file_.GetString(section, FileName(name), &text, kProfileReadLimit)) {
      return kSettingsNotFound;
    }
    if (text.size() < 2) return kSettingsBadData;
    uint32_t needed = static_cast<uint32_t>(text.size() / 2 - 1);
    if (data == nullptr) {
      *length = needed;
      return kSettingsOk;
    }
    if (*length < needed) {
      *length = needed;
      return kSettingsMoreData;
    }
    if (!ProfileFile::DecodeStruct(text, data, needed)) return kSettingsBadData;
    *length = needed;
    return kSettingsOk;
  }

  SettingsStatus WriteBinary(std::string_view section, std::string_view name,
                             const uint8_t* data, uint32_t length) override {
    if (data == nullptr) return kSettingsBadData;
    if (length >= kProfileStructWriteLimit) return kSettingsTooLarge;
    return Write(section, name, ProfileFile::EncodeStruct(data, length));
  }

  SettingsStatus ReadString(std::string_view section, std::string_view name,
                            std::string* value) override {
    std::lock_guard lock(mutex_);
    return file_.GetString(section, FileName(name), value) ? kSettingsOk : kSettingsNotFound;
  }

  SettingsStatus WriteString(std::string_view section, std::string_view name,
                             std::string_view value) override {
    return Write(section, name, value);
  }

  SettingsStatus ReadStored(std::string_view section, std::string_view name,
                            StoredValue* value) override {
    std::lock_guard lock(mutex_);
    value->name = std::string(name);
    value->type = SettingsValueType::kString;
    // The whole text, beyond the limit of a read: a copy must not cut what it copies.
    return file_.GetString(section, FileName(name), &value->data, kProfileFileSizeLimit)
               ? kSettingsOk
               : kSettingsNotFound;
  }

  SettingsStatus WriteStored(std::string_view section, const StoredValue& value) override {
    return Write(section, value.name, value.data);
  }

  SettingsStatus DeleteValue(std::string_view section, std::string_view name) override {
    std::lock_guard lock(mutex_);
    if (!file_.DeleteValue(section, FileName(name))) return kSettingsNotFound;
    dirty_ = true;
    return kSettingsOk;
  }

  SettingsStatus DeleteValues(std::string_view section,
                              std::optional<SettingsValueType>) override {
    std::lock_guard lock(mutex_);
    if (!file_.ClearSection(section)) return kSettingsBadData;
    dirty_ = true;
    return kSettingsOk;
  }

  SettingsStatus DeleteSection(std::string_view section) override {
    std::lock_guard lock(mutex_);
    // The section and every "section\..." below it, as a registry key goes with its sub-keys.
    std::string prefix = std::string(section) + "\\";
    bool removed = file_.DeleteSection(section);
    for (const std::string& name : file_.SectionNames()) {
      if (HasPrefixNoCase(name, prefix)) removed |= file_.DeleteSection(name);
    }
    if (!removed) return kSettingsNotFound;
    dirty_ = true;
    return kSettingsOk;
  }

  SettingsStatus EnsureSection(std::string_view section) override {
    {
      std::lock_guard lock(mutex_);
      if (!file_.ValueNames(section).empty()) return kSettingsOk;
    }
    return Write(section, kKeepSectionName, "");
  }

  std::vector<std::string> SubSections(std::string_view section) override {
    std::lock_guard lock(mutex_);
    std::string prefix = section.empty() ? std::string() : std::string(section) + "\\";
    std::vector<std::string> result;
    std::set<std::string> seen;
    for (const std::string& name : file_.SectionNames()) {
      if (!HasPrefixNoCase(name, prefix)) continue;
      std::string rest = name.substr(prefix.size());
      rest = rest.substr(0, rest.find('\\'));
      if (!rest.empty() && seen.insert(Lower(rest)).second) result.push_back(rest);
    }
    return result;
  }

  std::vector<std::string> ValueNames(std::string_view section) override {
    std::lock_guard lock(mutex_);
    std::vector<std::string> names = file_.ValueNames(section);
    std::erase(names, std::string(kKeepSectionName));
    return names;
  }

  SettingsStatus Commit() override {
    std::lock_guard lock(mutex_);
    if (!dirty_) return kSettingsOk;
    if (not_a_file_) return kSettingsNotFound;
    if (set_aside_) {
      // An earlier damaged file may still be the only copy of somebody's settings: the first
      // free name, never one in use.
      int err = 0;
      if (platform::SetAsideNumbered(path_, {}, &err).empty() && err != ENOENT) {
        return kSettingsNotFound;
      }
      set_aside_ = false;
    }
    if (file_.Save(path_, hook_) != 0) return kSettingsNotFound;
    dirty_ = false;
    return kSettingsOk;
  }

  std::string Where() const override { return path_; }
  std::string OpenProblem() const override { return problem_; }

 private:
  SettingsStatus Write(std::string_view section, std::string_view name, std::string_view value) {
    std::lock_guard lock(mutex_);
    if (!file_.SetString(section, FileName(name), value)) return kSettingsBadData;
    dirty_ = true;
    return kSettingsOk;
  }

  const std::string path_;
  const platform::BeforeRenameHook hook_;
  std::mutex mutex_;
  ProfileFile file_;
  bool dirty_ = false;
  bool set_aside_ = false;
  bool not_a_file_ = false;
  std::string problem_;
};

}  // namespace

std::unique_ptr<SettingsBackend> MakeFileBackend(const std::string& path) {
  return MakeFileBackend(path, {});
}

std::unique_ptr<SettingsBackend> MakeFileBackend(const std::string& path,
                                                 platform::BeforeRenameHook before_rename) {
  return std::make_unique<FileBackend>(path, std::move(before_rename));
}

}  // namespace trovix::app
