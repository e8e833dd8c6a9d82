// The settings store: one root under which sections hold typed values, kept either in the
// per-user key store (the "registry") or in a settings file. Every module reads and writes its
// settings through a SettingsSection opened on the store; the two backends answer with the same
// status numbers (settings_status.h), so callers never know which one is in use.
//
// Names follow the program's convention (b, n, rgb, lvs: 32-bit integers; bin: flag words and
// binary blocks; sz: strings). Sub-sections are joined with "\" ("SavedSearch\2"); in the
// registry they are sub-keys, in the file sections of that full name.
//
// Writes reach the disk at Commit() (and, as a last resort, when the store is destroyed).
// Another process may change the store meanwhile (the console while the desktop program runs):
// a store opened with OpenFile or OpenRegistry works on a copy taken when it was opened, and
// Commit() merges only what this process changed into what is stored then, under the settings
// lock (settings_merge.h). The store is thread-safe: frames write their own sections from their own
// threads, each through its own SettingsSection. The SettingsStore owns its backend; a
// SettingsSection borrows the store and must not outlive it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/settings/settings_status.h"

namespace trovix::app {

// The registry's type numbers, kept so that the Windows build can pass them through.
enum class SettingsValueType : uint32_t { kString = 1, kBinary = 3, kInt32 = 4 };

inline constexpr std::string_view kRegistryRoot = "Software\\Velmorant Plc\\Trovix";

// A value as its backend keeps it: for copying and comparing whole stores. The settings file
// keeps text only (kString, the text as written, blocks in their hexadecimal form); the key
// store keeps the type and the bytes.
struct StoredValue {
  std::string name;
  SettingsValueType type = SettingsValueType::kString;
  std::string data;
};

// One backend. Section paths are relative to the store's root ("" is the root itself).
class SettingsBackend {
 public:
  virtual ~SettingsBackend() = default;

  // Whether a section handle on `section` has a store behind it. Opening for reading fails
  // for a registry key that does not exist; opening for writing creates it.
  virtual bool OpenSection(std::string_view section, bool read_only) = 0;
  // False when there is no store behind the backend at all (a key store that could not be
  // opened): every section then answers 6.
  virtual bool Available() const { return true; }
  virtual bool SectionExists(std::string_view section) = 0;

  virtual SettingsStatus ReadInt(std::string_view section, std::string_view name,
                                 uint32_t* value) = 0;
  virtual SettingsStatus WriteInt(std::string_view section, std::string_view name,
                                  uint32_t value) = 0;
  // `*length` is the buffer's size on entry and the block's on return. With `data` null only the
  // length is asked for.
  virtual SettingsStatus ReadBinary(std::string_view section, std::string_view name,
                                    uint8_t* data, uint32_t* length) = 0;
  virtual SettingsStatus WriteBinary(std::string_view section, std::string_view name,
                                     const uint8_t* data, uint32_t length) = 0;
  virtual SettingsStatus ReadString(std::string_view section, std::string_view name,
                                    std::string* value) = 0;
  virtual SettingsStatus WriteString(std::string_view section, std::string_view name,
                                     std::string_view value) = 0;

  // The value as stored (2 when absent), and a value written back in that form.
  virtual SettingsStatus ReadStored(std::string_view section, std::string_view name,
                                    StoredValue* value) = 0;
  virtual SettingsStatus WriteStored(std::string_view section, const StoredValue& value) = 0;

  virtual SettingsStatus DeleteValue(std::string_view section, std::string_view name) = 0;
  // Every value of the section, or only those of one type (the file keeps no types: there the
  // section is always emptied).
  virtual SettingsStatus DeleteValues(std::string_view section,
                                      std::optional<SettingsValueType> only) = 0;
  // The section with all its sub-sections.
  virtual SettingsStatus DeleteSection(std::string_view section) = 0;
  // Makes an empty section findable later (the file writes a value "@" with an empty text).
  virtual SettingsStatus EnsureSection(std::string_view section) = 0;

  // Names of the direct sub-sections (the last path component), in store order.
  virtual std::vector<std::string> SubSections(std::string_view section) = 0;
  virtual std::vector<std::string> ValueNames(std::string_view section) = 0;

  // Makes the writes so far durable. 0, or 2 when the file could not be written.
  virtual SettingsStatus Commit() = 0;
  // What to name in messages: the settings file's path or the key store's.
  virtual std::string Where() const = 0;
  // A one-line description of why the store could not be read when it was opened (empty when it
  // could). Reported once by whoever loads the settings.
  virtual std::string OpenProblem() const = 0;
};

class SettingsStore;

// A section handle, opened per use. Reads on a handle without a store answer 6, writes on it
// or on a read-only handle are dropped with 6.
class SettingsSection {
 public:
  SettingsSection(SettingsBackend* backend, std::string section, bool read_only);

  bool IsOpen() const { return open_; }
  const std::string& name() const { return section_; }

  SettingsStatus ReadInt(std::string_view name, uint32_t* value) const;
  SettingsStatus WriteInt(std::string_view name, uint32_t value) const;
  SettingsStatus ReadBinary(std::string_view name, uint8_t* data, uint32_t* length) const;
  // Reads a block of any readable length.
  SettingsStatus ReadBinary(std::string_view name, std::vector<uint8_t>* data) const;
  SettingsStatus WriteBinary(std::string_view name, const uint8_t* data, uint32_t length) const;
  SettingsStatus WriteBinary(std::string_view name, const std::vector<uint8_t>& data) const;
  SettingsStatus ReadString(std::string_view name, std::string* value) const;
  SettingsStatus WriteString(std::string_view name, std::string_view value) const;

  // Reads with a default: the value when the read succeeds, else `default_value`.
  int32_t GetInt(std::string_view name, int32_t default_value) const;
  uint32_t GetFlags(std::string_view name, uint32_t default_value) const;
  std::string GetString(std::string_view name, std::string_view default_value) const;

  SettingsStatus DeleteValue(std::string_view name) const;
  SettingsStatus DeleteValues(std::optional<SettingsValueType> only = std::nullopt) const;
  SettingsStatus EnsureExists() const;
  std::vector<std::string> SubSections() const;
  std::vector<std::string> ValueNames() const;

 private:
  SettingsStatus CheckWrite() const;

  SettingsBackend* backend_;
  std::string section_;
  bool read_only_;
  bool open_;
};

enum class StoreKind { kRegistry, kFile };

class SettingsStore {
 public:
  // A settings file at `path`. It need not exist; it is created at the first Commit().
  static std::unique_ptr<SettingsStore> OpenFile(const std::string& path);
  // The per-user key store kept in the database file `database`, under `root`. The database
  // and its folder are created when missing; a damaged database is set aside as
  // "<name>.bad.N" (with its -wal and -shm) and a new one started. When it cannot be opened at all,
  // every section answers 6.
  static std::unique_ptr<SettingsStore> OpenRegistry(const std::string& database,
                                                     std::string_view root = kRegistryRoot);

  SettingsStore(StoreKind kind, std::unique_ptr<SettingsBackend> backend);
  ~SettingsStore();
  SettingsStore(const SettingsStore&) = delete;
  SettingsStore& operator=(const SettingsStore&) = delete;

  StoreKind kind() const { return kind_; }
  SettingsSection Open(std::string_view section, bool read_only) const;
  SettingsStatus Commit() { return backend_->Commit(); }
  std::string Where() const { return backend_->Where(); }
  std::string OpenProblem() const { return backend_->OpenProblem(); }
  SettingsBackend& backend() { return *backend_; }

  // Deletes every section under the root (the reset of all settings), then commits.
  SettingsStatus DeleteAllSections();

 private:
  StoreKind kind_;
  std::unique_ptr<SettingsBackend> backend_;
};

}  // namespace trovix::app
