#include "cli/cli_store.h"

#include <cstdio>


#include "app/load_file_count.h"
#include "app/load_kinds.h"
#include "app/saved_lists.h"
#include "app/settings.h"
#include "app/settings_location.h"
#include "rules/rule_blob.h"

namespace trovix::cli {
namespace {

std::string& SettingsSwitch() {
  static std::string text;
  return text;
}

}  // namespace

void SetSettingsSwitch(std::string text) { SettingsSwitch() = std::move(text); }

std::optional<app::Settings>& LoadedSettings() {
  static std::optional<app::Settings> settings;
  return settings;
}

std::unique_ptr<app::SettingsStore> OpenCliStore(std::string* error) {
  const app::StoreFolders folders = app::DefaultStoreFolders();
  const app::StoreChoice choice = app::ChooseStore(SettingsSwitch(), folders);
  std::unique_ptr<app::SettingsStore> store = app::OpenChosenStore(choice);
  if (!store) {
    *error = "the settings cannot be opened";
    return nullptr;
  }
  app::SettingsEnvironment env =
      app::DefaultSettingsEnvironment(folders, choice.kind == app::StoreKind::kFile
                                                   ? app::kStorageFile
                                                   : app::kStorageRegistry);
  // A console run only reads here: it must not change the environment of anything it starts.
  env.set_commander_ini = false;
  LoadedSettings() = app::LoadSettings(*store, env);
  app::LoadKinds(*LoadedSettings());
  // A rule that cannot be used leaves folders without a count; the search itself goes on.
  if (std::string why; !app::LoadFileCountRule(*LoadedSettings(), &why))
    std::fprintf(stderr, "trovix-cli: %s\n", why.c_str());
  return store;
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

}  // namespace trovix::cli
