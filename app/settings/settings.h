// The application's settings: one plain record holding every value of the "general" and
// "File types" sections, loaded once by the manager thread before the first frame starts and
// saved when the last frame has closed. Loading applies every default and range rule; saving
// writes the values as they stand (range rules apply on reading, never on writing).
//
// The members carry the names under which the values are stored. Facts of the desktop that
// give some defaults (the shell's thumbnail size, registered programs, the long-path switch of
// Windows) come in through SettingsEnvironment, whose Linux defaults are documented there, so
// tests can set them.
//
// Plain data; not thread-safe. LoadSettings and SaveSettings run on one thread while no frame
// writes to the store.
#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "app/settings/settings_location.h"
#include "app/settings/settings_store.h"
#include "base/file_time.h"

namespace trovix::app {

// The value of bPersistSettings.
enum StorageMode : uint32_t {
  kStorageNone = 0,      // keep no settings (only this choice itself is written)
  kStorageRegistry = 1,  // the per-user key store
  kStorageFile = 2,      // a settings file
};

// Bits of binFlags that the store itself looks at.
inline constexpr uint32_t kFlagLongPathPrefix = 0x100;
inline constexpr uint32_t kFlagBalloonHelp = 0x10000000;
inline constexpr uint32_t kFlagTranslation = 0x40000000;
// The default of binFlags, and the one used when the desktop shows hidden and system files.
inline constexpr uint32_t kDefaultFlags = 0x200102;
inline constexpr uint32_t kDefaultFlagsShowAll = 0x201122;

// The version written to binVer: major, minor and patch in the high three bytes, so that later
// builds compare greater.
inline constexpr uint32_t kRunningVersion = 0x00010000;

struct FileTypeCategory {
  std::string name;        // the category's display name, lower-cased
  std::string extensions;  // comma-separated extension patterns
};

struct Settings {
  uint32_t bPersistSettings = kStorageRegistry;
  uint32_t bUseTrans = 1;
  uint32_t binFlags = kDefaultFlags;
  uint32_t bin1OffNotify = 0;
  uint32_t nUsecount = 0;
  uint32_t binVer = 0;
  base::FileTime binUpdate = 0;
  base::FileTime binInstall = 0;
  int32_t nThumbSize = 96;
  uint32_t bSantasLittleHelper = 1;
  uint32_t nMaxStreamExtractSize = 0x300000;
  // Milliseconds a folder on a network or FUSE mount may say nothing before a search goes
  // on without it; 0 waits for ever.
  uint32_t nAnswerTimeout = 10'000;
  uint32_t binSearchFlags = 8;
  uint32_t binFileOpFlags = 0;
  std::string szTextViewerPath;
  std::string szFileCountRule = "*";
  std::string szSimplePropertyList = "System.ItemNameDisplay";
  int32_t nCharsAutoFilter = 3;
  int32_t nDefCategory = 0;
  std::string szGrepExcludeTypes;
  uint32_t rgbViewBgcol = 0xFFFFFFFF;
  std::string szPluginINI;
  // The index watch goes on while the machine runs on battery (0: it waits for mains). Read
  // only: set by hand (trovix-cli settings set bIndexOnBattery 1), so a store that never had it
  // is written as before.
  uint32_t bIndexOnBattery = 0;
  // Section "File types", sorted by name without regard to case.
  std::vector<FileTypeCategory> fileTypes;
  // The sibling file manager, found when loading; never stored.
  std::string orbweavePath;
};

// What the desktop tells the defaults. DefaultSettingsEnvironment() fills it for this system.
struct SettingsEnvironment {
  // The mode chosen at start: the default of bPersistSettings.
  uint32_t storage_mode = kStorageRegistry;
  StoreFolders folders;
  // A translation module is loaded (bUseTrans is then read and written).
  bool translation_loaded = false;
  // The desktop shows hidden and system files. Linux desktops keep this per file manager, out
  // of our reach; off.
  bool show_all_hidden = false;
  // The system takes long paths without a prefix. Linux has no short path limit: on.
  bool long_paths_enabled = true;
  // The desktop's thumbnail size, 0 when it has none (Linux: none), and the small-icon width.
  int32_t shell_thumbnail_size = 0;
  int32_t small_icon_width = 16;
  int32_t default_category = 0;
  uint32_t running_version = kRunningVersion;
  // The registered location of a program by its base name ("scrivo2", "orbweave"), empty when
  // unknown. Linux: a search of $PATH.
  std::function<std::string(std::string_view)> find_program;
  // Set COMMANDER_INI to the plug-in configuration when it exists and the variable is unset.
  bool set_commander_ini = true;
  // Where the one line about an unreadable store goes; null (the default) for silence. Each
  // program says it its own way (the console on standard error, the desktop in a message box),
  // and without a default stream the console program is spared <iostream>'s start-up work.
  std::ostream* diagnostics = nullptr;
};

SettingsEnvironment DefaultSettingsEnvironment(const StoreFolders& folders,
                                               uint32_t storage_mode);

// The text viewer when none is registered. Linux: the desktop's opener.
inline constexpr std::string_view kDefaultTextViewer = "xdg-open";

// Reads the settings. Never fails: whatever cannot be read takes its default. When the store
// could not be read, says so once on env.diagnostics.
Settings LoadSettings(const SettingsStore& store, const SettingsEnvironment& env);

struct SaveOptions {
  // Write everything even when bPersistSettings is 0.
  bool force = false;
  // Writes the saved lists (rule-box layouts, saved searches, map areas, frequent folders) at
  // their place in the order; called with the store between szGrepExcludeTypes and
  // rgbViewBgcol.
  std::function<void(SettingsStore&)> save_lists;
};

// Writes the settings and commits. With bPersistSettings 0 (and no force) only that value and,
// with a translation loaded, bUseTrans are written. Returns the commit's status (0, or 2 when the
// settings file could not be written).
SettingsStatus SaveSettings(SettingsStore& store, const Settings& settings,
                            const SettingsEnvironment& env, const SaveOptions& options = {});

// The reset of all settings: deletes every section under the root and commits. Called at exit
// instead of SaveSettings when the user asked to forget the settings.
SettingsStatus ResetSettings(SettingsStore& store);

// The eight categories used while "File types" is empty, sorted by name.
std::vector<FileTypeCategory> DefaultFileTypes();

}  // namespace trovix::app
