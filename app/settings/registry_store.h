// The per-user typed key store: the Linux counterpart of the registry under the current user.
// Keys are paths of names joined by "\" ("Software\Velmorant Plc\Trovix\general"), compared
// without regard to ASCII case; each key holds typed values (32-bit integer, binary block,
// string) and sub-keys. Everything lives in one SQLite database per user, by default
// $XDG_CONFIG_HOME/velmora/registry.db, so that the vendor's programs share it as they share the
// registry on Windows.
//
// Writes collect in one transaction that Commit() ends; the database runs in WAL mode, so other
// processes keep reading while a save is under way. A damaged database (not a database, failed
// integrity check) is renamed to "<name>.bad.N" (the first free N, its -wal and -shm along)
// on open and a new one is started, with problem() saying so; when even that fails, the store is
// closed and every call answers 6.
//
// Thread-safe: one mutex around the connection. Not copyable.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/settings/settings_status.h"
#include "app/settings/settings_store.h"

struct sqlite3;

namespace trovix::app {

// data: little-endian bytes of an integer, the bytes of a block, UTF-8 text.
using RegistryValue = StoredValue;

class RegistryStore {
 public:
  explicit RegistryStore(const std::string& database);
  ~RegistryStore();
  RegistryStore(const RegistryStore&) = delete;
  RegistryStore& operator=(const RegistryStore&) = delete;

  bool is_open() const { return db_ != nullptr; }
  const std::string& path() const { return path_; }
  const std::string& problem() const { return problem_; }

  // Creates the key and every missing key above it.
  SettingsStatus CreateKey(std::string_view key);
  bool KeyExists(std::string_view key);
  // The key, its values and all keys below it. 2 when there is no such key.
  SettingsStatus DeleteKeyTree(std::string_view key);
  // Direct sub-keys, by name, in the order they were created.
  SettingsStatus EnumSubKeys(std::string_view key, std::vector<std::string>* names);

  // Sets a value, creating the key when it is missing.
  SettingsStatus SetValue(std::string_view key, std::string_view name, SettingsValueType type,
                          std::string_view data);
  // 2 when the key or the value is absent.
  SettingsStatus QueryValue(std::string_view key, std::string_view name, RegistryValue* value);
  SettingsStatus DeleteValue(std::string_view key, std::string_view name);
  // Every value of the key, or those of one type.
  SettingsStatus DeleteValues(std::string_view key, std::optional<SettingsValueType> only);
  // The values in the order they were first set.
  SettingsStatus EnumValues(std::string_view key, std::vector<RegistryValue>* values);

  SettingsStatus Commit();

 private:
  bool OpenAndCheck(std::string* why);
  void Close();
  bool Exec(const char* sql);
  bool BeginWrite();
  SettingsStatus CreateKeyLocked(std::string_view key);

  const std::string path_;
  std::mutex mutex_;
  sqlite3* db_ = nullptr;
  bool in_transaction_ = false;
  std::string problem_;
};

}  // namespace trovix::app
