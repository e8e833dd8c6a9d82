#include "app/settings/settings_registry_backend.h"

#include <cstring>

#include "app/settings/registry_store.h"

namespace trovix::app {
namespace {

class RegistryBackend final : public SettingsBackend {
 public:
  RegistryBackend(const std::string& database, std::string_view root)
      : store_(database), root_(root) {}

  bool OpenSection(std::string_view section, bool read_only) override {
    if (!store_.is_open()) return false;
    if (read_only) return store_.KeyExists(Key(section));
    return store_.CreateKey(Key(section)) == kSettingsOk;
  }

  bool Available() const override { return store_.is_open(); }

  bool SectionExists(std::string_view section) override {
    return store_.KeyExists(Key(section));
  }

  SettingsStatus ReadInt(std::string_view section, std::string_view name,
                         uint32_t* value) override {
    RegistryValue v;
    if (SettingsStatus s = Query(section, name, SettingsValueType::kInt32, &v)) return s;
    if (v.data.size() != 4) return kSettingsBadData;
    const auto* b = reinterpret_cast<const uint8_t*>(v.data.data());
    *value = uint32_t{b[0]} | uint32_t{b[1]} << 8 | uint32_t{b[2]} << 16 | uint32_t{b[3]} << 24;
    return kSettingsOk;
  }

  SettingsStatus WriteInt(std::string_view section, std::string_view name,
                          uint32_t value) override {
    char bytes[4] = {static_cast<char>(value), static_cast<char>(value >> 8),
                     static_cast<char>(value >> 16), static_cast<char>(value >> 24)};
    return Set(section, name, SettingsValueType::kInt32, std::string_view(bytes, 4));
  }

  SettingsStatus ReadBinary(std::string_view section, std::string_view name, uint8_t* data,
                            uint32_t* length) override {
    RegistryValue v;
    if (SettingsStatus s = Query(section, name, SettingsValueType::kBinary, &v)) return s;
    uint32_t needed = static_cast<uint32_t>(v.data.size());
    if (data != nullptr && *length < needed) {
      *length = needed;
      return kSettingsMoreData;
    }
    if (data != nullptr && needed > 0) std::memcpy(data, v.data.data(), needed);
    *length = needed;
    return kSettingsOk;
  }

  SettingsStatus WriteBinary(std::string_view section, std::string_view name,
                             const uint8_t* data, uint32_t length) override {
    if (data == nullptr) return kSettingsBadData;
    return Set(section, name, SettingsValueType::kBinary,
               std::string_view(reinterpret_cast<const char*>(data), length));
  }

  SettingsStatus ReadString(std::string_view section, std::string_view name,
                            std::string* value) override {
    RegistryValue v;
    if (SettingsStatus s = Query(section, name, SettingsValueType::kString, &v)) return s;
    *value = std::move(v.data);
    return kSettingsOk;
  }

  SettingsStatus WriteString(std::string_view section, std::string_view name,
                             std::string_view value) override {
    return Set(section, name, SettingsValueType::kString, value);
  }

  SettingsStatus ReadStored(std::string_view section, std::string_view name,
                            StoredValue* value) override {
    if (!store_.is_open()) return kSettingsNoStore;
    return store_.QueryValue(Key(section), name, value);
  }

  SettingsStatus WriteStored(std::string_view section, const StoredValue& value) override {
    return Set(section, value.name, value.type, value.data);
  }

  SettingsStatus DeleteValue(std::string_view section, std::string_view name) override {
    return store_.DeleteValue(Key(section), name);
  }

  SettingsStatus DeleteValues(std::string_view section,
                              std::optional<SettingsValueType> only) override {
    return store_.DeleteValues(Key(section), only);
  }

  SettingsStatus DeleteSection(std::string_view section) override {
    return store_.DeleteKeyTree(Key(section));
  }

  SettingsStatus EnsureSection(std::string_view section) override {
    return store_.CreateKey(Key(section));
  }

  std::vector<std::string> SubSections(std::string_view section) override {
    std::vector<std::string> names;
    store_.EnumSubKeys(Key(section), &names);
    return names;
  }

  std::vector<std::string> ValueNames(std::string_view section) override {
    std::vector<RegistryValue> values;
    store_.EnumValues(Key(section), &values);
    std::vector<std::string> names;
    for (RegistryValue& v : values) names.push_back(std::move(v.name));
    return names;
  }

  SettingsStatus Commit() override { return store_.Commit(); }
  std::string Where() const override { return store_.path(); }
  std::string OpenProblem() const override { return store_.problem(); }

 private:
  // The root and the section joined by one backslash; a trailing backslash is dropped.
  std::string Key(std::string_view section) const {
    std::string key = root_;
    if (!section.empty()) {
      key += '\\';
      key += section;
    }
    while (!key.empty() && key.back() == '\\') key.pop_back();
    return key;
  }

  SettingsStatus Query(std::string_view section, std::string_view name, SettingsValueType type,
                       RegistryValue* v) {
    if (!store_.is_open()) return kSettingsNoStore;
    SettingsStatus s = store_.QueryValue(Key(section), name, v);
    if (s != kSettingsOk) return s;
    return v->type == type ? kSettingsOk : kSettingsBadData;
  }

  SettingsStatus Set(std::string_view section, std::string_view name, SettingsValueType type,
                     std::string_view data) {
    if (!store_.is_open()) return kSettingsNoStore;
    return store_.SetValue(Key(section), name, type, data);
  }

  RegistryStore store_;
  const std::string root_;
};

}  // namespace

std::unique_ptr<SettingsBackend> MakeRegistryBackend(const std::string& database,
                                                     std::string_view root) {
  return std::make_unique<RegistryBackend>(database, root);
}

}  // namespace trovix::app
