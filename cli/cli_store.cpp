#include "cli/cli_store.h"

#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>

#include "app/load_file_count.h"
#include "app/load_kinds.h"
#include "app/settings/plugin_lists.h"
#include "app/map_search.h"
#include "app/settings/saved_lists.h"
#include "app/settings/settings.h"
#include "app/settings/settings_location.h"
#include "app/settings/settings_lock.h"
#include "props/plugins/plugin_columns.h"
#include "cli/rule_builder.h"
#include "platform/regular_file.h"
#include "rules/blob/rule_blob.h"

namespace trovix::cli {
namespace {

std::string& SettingsSwitch() {
  static std::string text;
  return text;
}

// Set from the plugin host's notice, which may come from any reading thread.
std::atomic<bool> plugin_switched_off{false};

}  // namespace

bool PluginSwitchedOffThisRun() { return plugin_switched_off.load(); }

// Whether the settings in effect were looked for yet (set before the store is opened, so that
// the opening, which fills them in, finds them looked for).
bool& SettingsLookedFor() {
  static bool looked = false;
  return looked;
}

void SetSettingsSwitch(std::string text) {
  SettingsSwitch() = std::move(text);
  SettingsLookedFor() = false;
}

std::optional<app::Settings>& LoadedSettings() {
  static std::optional<app::Settings> settings;
  if (!SettingsLookedFor()) {
    SettingsLookedFor() = true;
    // The store the desktop program reads, so that what `settings set` stores changes what a
    // search does. A store that does not exist yet is not made by a search: the defaults apply.
    struct stat st;
    if (stat(CliStoreLocation().c_str(), &st) == 0) {
      std::string error;
      if (!OpenCliStore(&error)) std::fprintf(stderr, "trovix-cli: %s\n", error.c_str());
    }
  }
  return settings;
}

namespace {

// Says a store's problem on stderr, once per run: a command may open the store more than once
// (main for --settings, then the command itself, then again under the lock).
void ReportOnce(const std::string& problem) {
  static std::set<std::string> reported;
  if (problem.empty() || !reported.insert(problem).second) return;
  std::fprintf(stderr, "trovix-cli: %s\n", problem.c_str());
}

app::SettingsEnvironment CliEnvironment(const app::StoreChoice& choice, const app::StoreFolders& folders) {
  app::SettingsEnvironment env = app::DefaultSettingsEnvironment(
      folders, choice.kind == app::StoreKind::kFile ? app::kStorageFile : app::kStorageRegistry);
  // A console run only reads here: it must not change the environment of anything it starts.
  env.set_commander_ini = false;
  env.diagnostics = nullptr;
  return env;
}

std::unique_ptr<app::SettingsStore> OpenStore(const app::StoreChoice& choice,
                                              const app::StoreFolders& folders,
                                              std::string* error) {
  SettingsLookedFor() = true;
  if (choice.kind == app::StoreKind::kFile) {
    struct stat st;
    // A pipe or a device is nobody's settings file; going on would replace it at the first save.
    if (stat(choice.file_path.c_str(), &st) == 0 && !S_ISREG(st.st_mode)) {
      *error = "the settings file " + choice.file_path + " " +
               platform::DescribeReadError(S_ISDIR(st.st_mode) ? EISDIR
                                                               : platform::kNotRegularFile);
      return nullptr;
    }
  }
  std::unique_ptr<app::SettingsStore> store = app::OpenChosenStore(choice);
  if (!store) {
    *error = "the settings cannot be opened";
    return nullptr;
  }
  const app::SettingsEnvironment env = CliEnvironment(choice, folders);
  ReportOnce(store->OpenProblem());
  LoadedSettings() = app::LoadSettings(*store, env);
  app::LoadKinds(*LoadedSettings());
  app::InstallConfiguredPlugins(*store, *LoadedSettings(), folders);
  // A plugin switched off after its failures is said once, on its own line.
  if (props::PluginHostClient* host = props::SharedPluginHost()) {
    host->SetNoticeHandler([](const std::string& text) {
      plugin_switched_off = true;
      std::fflush(stdout);
      std::fprintf(stderr, "trovix-cli: %s\n", text.c_str());
    });
  }
  // A rule that cannot be used leaves folders without a count; the search itself goes on.
  if (std::string why; !app::LoadFileCountRule(*LoadedSettings(), &why)) ReportOnce(why);
  return store;
}

}  // namespace

std::unique_ptr<app::SettingsStore> OpenCliStore(std::string* error) {
  const app::StoreFolders folders = app::DefaultStoreFolders();
  return OpenStore(app::ChooseStore(SettingsSwitch(), folders), folders, error);
}

std::string CliStoreLocation() {
  const app::StoreChoice choice = app::ChooseStore(SettingsSwitch(), app::DefaultStoreFolders());
  return app::StoreLocation(choice);
}

bool WithEffectiveSettings(const std::function<void(const app::SettingsStore&)>& read, std::string* error) {
  const app::StoreFolders folders = app::DefaultStoreFolders();
  const app::StoreChoice choice = app::ChooseStore(SettingsSwitch(), folders);
  if (!OpenStore(choice, folders, error)) return false;
  // The settings as loaded (defaults and ranges applied) are written the way the program
  // writes them into a scratch file, and read back from there.
  const char* tmp = std::getenv("TMPDIR");
  std::string folder = std::string(tmp && *tmp ? tmp : "/tmp") + "/trovix-effective-XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) {
    *error = "no scratch folder for the settings in effect: " + std::string(std::strerror(errno));
    return false;
  }
  const std::string file = folder + "/" + std::string(app::kSettingsFileName);
  bool ok = false;
  if (std::unique_ptr<app::SettingsStore> scratch = app::SettingsStore::OpenFile(file)) {
    app::SaveOptions options;
    options.force = true;
    ok = app::SaveSettings(*scratch, *LoadedSettings(), CliEnvironment(choice, folders), options) ==
         app::kSettingsOk;
    if (ok) read(*scratch);
  }
  std::error_code ec;
  std::filesystem::remove_all(folder, ec);
  if (!ok) *error = "the settings in effect cannot be worked out";
  return ok;
}

int ChangeCliStore(const std::function<int(app::SettingsStore&)>& change) {
  const app::StoreFolders folders = app::DefaultStoreFolders();
  const app::StoreChoice choice = app::ChooseStore(SettingsSwitch(), folders);
  const std::string& store_path = app::StoreLocation(choice);
  std::string error;
  std::unique_ptr<app::SettingsLock> lock =
      app::SettingsLock::Acquire(app::SettingsLockPath(store_path), app::kSettingsLockTimeout,
                                 &error);
  if (!lock) {
    std::fprintf(stderr, "trovix-cli: %s; nothing was saved\n", error.c_str());
    return 2;
  }
  std::unique_ptr<app::SettingsStore> store = OpenStore(choice, folders, &error);
  if (!store) {
    std::fprintf(stderr, "trovix-cli: %s\n", error.c_str());
    return 2;
  }
  if (int status = change(*store); status != 0) return status;
  // Read back after the change, so that a list value set by hand is kept in the lists' own form.
  app::SaveSavedLists(*store, app::LoadSavedLists(*store));
  if (store->Commit() != app::kSettingsOk) {
    std::fprintf(stderr, "trovix-cli: the settings cannot be written: %s; nothing was saved\n",
                 store->Where().c_str());
    return 2;
  }
  return 0;
}

bool LoadSavedSearchRules(const std::string& name, std::vector<rules::RulePtr>* rules,
                          std::optional<std::string>* root, std::string* error) {
  std::unique_ptr<app::SettingsStore> store = OpenCliStore(error);
  if (!store) return false;
  const std::vector<app::SavedSearch> list = app::LoadSavedSearches(*store);
  std::optional<size_t> index = app::FindSavedSearch(list, name);
  if (!index) {
    *error = "no saved search named \"" + name + "\" (trovix-cli saved list shows them)";
    return false;
  }
  std::vector<rules::RulePtr> loaded = rules::Deserialise(list[*index].binFilter);
  rules->insert(rules->end(), loaded.begin(), loaded.end());
  *root = list[*index].szRoot;
  return true;
}

bool AddAreaRules(const std::string& text, std::vector<rules::RulePtr>* rules, std::string* error) {
  app::MapArea area;
  std::string why;
  if (!app::ParseAreaText(text, &area, &why)) {
    // Not four numbers: the name of a stored area, when one has it.
    const bool looks_numeric = text.find(',') != std::string::npos;
    std::unique_ptr<app::SettingsStore> store = OpenCliStore(error);
    if (!store) return false;
    const std::vector<app::MapArea> areas = app::LoadMapAreas(*store);
    std::optional<size_t> index = app::FindMapArea(areas, text);
    if (!index) {
      *error = looks_numeric ? "--area \"" + text + "\": " + why
                             : "no map area named \"" + text + "\" (trovix-cli saved areas lists them)";
      return false;
    }
    area = areas[*index];
  }
  const app::AreaRuleTexts texts = app::MakeAreaRuleTexts(area);
  return AddRuleLine(std::string(app::kLatitudeProperty) + ": " + texts.latitude, rules, error) &&
         AddRuleLine(std::string(app::kLongitudeProperty) + ": " + texts.longitude, rules, error);
}

}  // namespace trovix::cli
