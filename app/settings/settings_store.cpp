#include "app/settings/settings_store.h"

#include "app/settings/settings_file_backend.h"
#include "app/settings/settings_lock.h"
#include "app/settings/settings_merge.h"
#include "app/settings/settings_registry_backend.h"

namespace trovix::app {

SettingsSection::SettingsSection(SettingsBackend* backend, std::string section, bool read_only)
    : backend_(backend), section_(std::move(section)), read_only_(read_only) {
  // "A\B\" and "A\B" are the same section.
  while (!section_.empty() && section_.back() == '\\') section_.pop_back();
  open_ = backend_ != nullptr && backend_->OpenSection(section_, read_only_);
}

SettingsStatus SettingsSection::CheckWrite() const {
  return open_ && !read_only_ ? kSettingsOk : kSettingsNoStore;
}

SettingsStatus SettingsSection::ReadInt(std::string_view name, uint32_t* value) const {
  if (!open_) return kSettingsNoStore;
  return backend_->ReadInt(section_, name, value);
}

SettingsStatus SettingsSection::WriteInt(std::string_view name, uint32_t value) const {
  if (SettingsStatus s = CheckWrite()) return s;
  return backend_->WriteInt(section_, name, value);
}

SettingsStatus SettingsSection::ReadBinary(std::string_view name, uint8_t* data,
                                           uint32_t* length) const {
  if (!open_) return kSettingsNoStore;
  return backend_->ReadBinary(section_, name, data, length);
}

SettingsStatus SettingsSection::ReadBinary(std::string_view name,
                                           std::vector<uint8_t>* data) const {
  if (!open_) return kSettingsNoStore;
  // Ask for the length, then read; a second round covers a value rewritten in between.
  for (int round = 0; round < 2; ++round) {
    uint32_t length = 0;
    SettingsStatus s = backend_->ReadBinary(section_, name, nullptr, &length);
    if (s != kSettingsOk) return s;
    data->assign(length, 0);
    s = backend_->ReadBinary(section_, name, data->data(), &length);
    if (s == kSettingsMoreData) continue;
    if (s == kSettingsOk) data->resize(length);
    return s;
  }
  return kSettingsMoreData;
}

SettingsStatus SettingsSection::WriteBinary(std::string_view name, const uint8_t* data,
                                            uint32_t length) const {
  if (SettingsStatus s = CheckWrite()) return s;
  return backend_->WriteBinary(section_, name, data, length);
}

SettingsStatus SettingsSection::WriteBinary(std::string_view name,
                                            const std::vector<uint8_t>& data) const {
  static const uint8_t kEmpty = 0;
  return WriteBinary(name, data.empty() ? &kEmpty : data.data(),
                     static_cast<uint32_t>(data.size()));
}

SettingsStatus SettingsSection::ReadString(std::string_view name, std::string* value) const {
  if (!open_) return kSettingsNoStore;
  return backend_->ReadString(section_, name, value);
}

SettingsStatus SettingsSection::WriteString(std::string_view name, std::string_view value) const {
  if (SettingsStatus s = CheckWrite()) return s;
  return backend_->WriteString(section_, name, value);
}

int32_t SettingsSection::GetInt(std::string_view name, int32_t default_value) const {
  uint32_t value = 0;
  return ReadInt(name, &value) == kSettingsOk ? static_cast<int32_t>(value) : default_value;
}

uint32_t SettingsSection::GetFlags(std::string_view name, uint32_t default_value) const {
  uint32_t value = 0;
  return ReadInt(name, &value) == kSettingsOk ? value : default_value;
}

std::string SettingsSection::GetString(std::string_view name,
                                       std::string_view default_value) const {
  std::string value;
  if (ReadString(name, &value) != kSettingsOk) return std::string(default_value);
  return value;
}

SettingsStatus SettingsSection::DeleteValue(std::string_view name) const {
  if (SettingsStatus s = CheckWrite()) return s;
  return backend_->DeleteValue(section_, name);
}

SettingsStatus SettingsSection::DeleteValues(std::optional<SettingsValueType> only) const {
  if (SettingsStatus s = CheckWrite()) return s;
  return backend_->DeleteValues(section_, only);
}

SettingsStatus SettingsSection::EnsureExists() const {
  if (SettingsStatus s = CheckWrite()) return s;
  return backend_->EnsureSection(section_);
}

std::vector<std::string> SettingsSection::SubSections() const {
  if (!open_) return {};
  return backend_->SubSections(section_);
}

std::vector<std::string> SettingsSection::ValueNames() const {
  if (!open_) return {};
  return backend_->ValueNames(section_);
}

std::unique_ptr<SettingsStore> SettingsStore::OpenFile(const std::string& path) {
  // The working copy is a settings file that is never saved (no path), so that it reads and
  // writes by the file's rules.
  return std::make_unique<SettingsStore>(
      StoreKind::kFile,
      MakeMergingBackend([path] { return MakeFileBackend(path); },
                         [] { return MakeFileBackend(std::string()); }, SettingsLockPath(path)));
}

std::unique_ptr<SettingsStore> SettingsStore::OpenRegistry(const std::string& database,
                                                           std::string_view root) {
  const std::string root_text(root);
  return std::make_unique<SettingsStore>(
      StoreKind::kRegistry,
      MakeMergingBackend([database, root_text] { return MakeRegistryBackend(database, root_text); },
                         [root_text] { return MakeRegistryBackend(":memory:", root_text); },
                         SettingsLockPath(database)));
}

SettingsStore::SettingsStore(StoreKind kind, std::unique_ptr<SettingsBackend> backend)
    : kind_(kind), backend_(std::move(backend)) {}

SettingsStore::~SettingsStore() {
  if (backend_) backend_->Commit();
}

SettingsSection SettingsStore::Open(std::string_view section, bool read_only) const {
  return SettingsSection(backend_.get(), std::string(section), read_only);
}

SettingsStatus SettingsStore::DeleteAllSections() {
  for (const std::string& section : backend_->SubSections("")) {
    backend_->DeleteSection(section);
  }
  return backend_->Commit();
}

}  // namespace trovix::app
