// The settings store as trovix-cli reaches it: the one the desktop program reads, chosen the way
// the program chooses its own (the settings file named by --settings or /I:, else "trovix.ini"
// in the per-user folder, else one beside the program, else the per-user key store), so that
// what `settings set` stores changes what a search does. Opening the store also hands the file
// kinds of its settings to the property layer, so Stock.Kind rules use the user's kinds.
//
// Process-wide state set once by main before any command runs; not thread-safe.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/settings/settings.h"
#include "app/settings/settings_store.h"
#include "rules/rule.h"

namespace trovix::cli {

// The text of --settings (or /I:); empty for the usual choice.
void SetSettingsSwitch(std::string text);

// The chosen store; null, with a message in *error, when it cannot be had.
std::unique_ptr<app::SettingsStore> OpenCliStore(std::string* error);

// Where the chosen store is (the settings file, or the key store's database), found without
// opening or creating anything.
std::string CliStoreLocation();

// Calls `read` with a store holding the settings in effect: every default and range rule
// applied to what is stored, written as the program writes them. False with a message when
// the settings cannot be had.
bool WithEffectiveSettings(const std::function<void(const app::SettingsStore&)>& read, std::string* error);

// A change to the store, made as one read-modify-write under the settings lock: the lock is
// taken (an error naming the holder when it cannot be had within 5 s), the store is read
// afresh, `change` works on it, and the saved lists are written as the program writes them at
// exit (a first use thus gets the default map area) before the store is committed and the lock
// let go. `change` returns an exit code; anything but 0 leaves the store as it was. Returns
// `change`'s code, or 2 with a message on stderr when the lock or the write failed.
int ChangeCliStore(const std::function<int(app::SettingsStore&)>& change);

// True once a content plugin was switched off in this run after its failures: the values it
// would have given are missing, so a search says so in its exit status.
bool PluginSwitchedOffThisRun();

// The settings in effect: those read by the last OpenCliStore, else read from the chosen store
// (the default one, or --settings / /I:) at the first call. None when no store exists yet (the
// defaults apply) or it cannot be read (said on stderr).
std::optional<app::Settings>& LoadedSettings();

// The rules and the stored root (if any) of the saved search of that name, matched without
// regard to case. False with a message when there is no such search.
bool LoadSavedSearchRules(const std::string& name, std::vector<rules::RulePtr>* rules,
                          std::optional<std::string>* root, std::string* error);

// --area: the latitude and longitude range rules of an area given as "N,W,S,E", or of the
// stored map area of that name (matched without regard to case; `saved areas` lists them).
// False with a message when the text is neither.
bool AddAreaRules(const std::string& area, std::vector<rules::RulePtr>* rules, std::string* error);

}  // namespace trovix::cli
