// Where the settings live: the choice made once at start, before anything is loaded, and the
// file moves made when the user switches between the settings file and the key store.
//
// The order of the choice: the settings file named with /I:, else "trovix.ini" in the per-user
// folder (velmora/ under $XDG_CONFIG_HOME, default ~/.config), else "trovix.ini" beside the
// program (a portable installation), else the per-user key store. The folders are passed in, so
// that tests choose them; DefaultStoreFolders() gives the real ones.
//
// Stateless functions; thread-safe.
#pragma once

#include <string>
#include <string_view>

#include "app/settings/settings_store.h"

namespace trovix::app {

inline constexpr std::string_view kSettingsFileName = "trovix.ini";
inline constexpr std::string_view kRegistryDatabaseName = "registry.db";

struct StoreFolders {
  std::string program_folder;  // the folder of the running program, with a trailing "/"
  std::string user_folder;     // the per-user "velmora/" folder, with a trailing "/"
};

// The program's folder (from /proc/self/exe, else the working folder) and the per-user folder:
// $XDG_CONFIG_HOME/velmora/ when that variable holds an absolute path, else $HOME/.config/velmora/;
// with no usable home the program's folder takes its place.
StoreFolders DefaultStoreFolders();

struct StoreChoice {
  StoreKind kind = StoreKind::kRegistry;
  std::string file_path;          // the settings file, in file mode
  std::string registry_database;  // the key store's database (always set: switching needs it)
};

// The settings file named by the text of /I: "ini" is appended unless the name already ends
// in ".ini" (in any case); a path that is not absolute is taken relative to the program's
// folder.
std::string SettingsPathFromSwitch(std::string_view text, const StoreFolders& folders);

// `settings_switch` is the text after /I: (empty when the switch was not given).
StoreChoice ChooseStore(std::string_view settings_switch, const StoreFolders& folders);

std::unique_ptr<SettingsStore> OpenChosenStore(const StoreChoice& choice);

// The file the chosen store lives in: the settings file, or the key store's database.
inline const std::string& StoreLocation(const StoreChoice& choice) {
  return choice.kind == StoreKind::kFile ? choice.file_path : choice.registry_database;
}

// Switching to the key store: the settings file is renamed to "<name>.bak" (an older ".bak" is
// deleted first) so that the next start no longer finds it. False when the rename failed.
bool SetSettingsFileAside(const std::string& file_path);
// Switching to a settings file when none is known yet: creates the per-user folder and gives
// "trovix.ini" in it.
std::string SettingsFileForSwitch(const StoreFolders& folders);

}  // namespace trovix::app
