// trovix-cli saved: list, show, save, run and delete saved searches, through the settings store
// exactly as the program keeps them.
#include <cstdio>
#include <optional>

#include "app/map_search.h"
#include "app/settings/saved_lists.h"
#include "base/string_table.h"
#include "cli/cli_store.h"
#include "cli/commands/command_table.h"
#include "cli/options/option_ids.h"
#include "cli/options/option_reader.h"
#include "cli/rule_builder.h"
#include "cli/commands/search_command.h"
#include "cli/commands/store_commands.h"
#include "rules/blob/rule_blob.h"

namespace trovix::cli {
namespace {

constexpr uint32_t kSameParametersMessage = 11357;

int Fail(const std::string& message) {
  std::fprintf(stderr, "trovix-cli: %s\n", message.c_str());
  return 2;
}

// The system's message with its "%1" filled in.
std::string FormatMessage(uint32_t id, const std::string& argument) {
  std::string text(base::LoadString(id));
  size_t at = text.find("%1");
  if (at != std::string::npos) text.replace(at, 2, argument);
  return text;
}

struct SavedListAccess {
  std::unique_ptr<app::SettingsStore> store;
  std::vector<app::SavedSearch> list;
};

bool OpenSavedList(SavedListAccess* access, std::string* error) {
  access->store = OpenCliStore(error);
  if (!access->store) return false;
  access->list = app::LoadSavedSearches(*access->store);
  return true;
}

// The settings file keeps one value a line: a line break would end the value early.
bool HasLineBreak(std::string_view text) {
  return text.find_first_of("\r\n") != std::string_view::npos;
}

int List(SavedListAccess& access) {
  for (const app::SavedSearch& entry : access.list) {
    if (entry.szRoot) {
      std::printf("%s\t%s\n", entry.szName.c_str(), entry.szRoot->c_str());
    } else {
      std::printf("%s\n", entry.szName.c_str());
    }
  }
  return access.list.empty() ? 1 : 0;
}

// The stored map areas, each with its edges as search --area takes them ("N,W,S,E").
int ListAreas() {
  std::string error;
  std::unique_ptr<app::SettingsStore> store = OpenCliStore(&error);
  if (!store) return Fail(error);
  for (const app::MapArea& area : app::LoadMapAreas(*store)) {
    std::printf("%s\t%s,%s,%s,%s\n", area.szName.c_str(), app::FormatCoordinate(area.top).c_str(),
                app::FormatCoordinate(area.left).c_str(), app::FormatCoordinate(area.bottom).c_str(),
                app::FormatCoordinate(area.right).c_str());
  }
  return 0;
}

int Show(SavedListAccess& access, const std::string& name) {
  std::optional<size_t> index = app::FindSavedSearch(access.list, name);
  if (!index) return Fail("no saved search named \"" + name + "\"");
  const app::SavedSearch& entry = access.list[*index];
  std::printf("name: %s\n", entry.szName.c_str());
  if (entry.szRoot) std::printf("root: %s\n", entry.szRoot->c_str());
  std::printf("rules:\n");
  for (const rules::RulePtr& rule : rules::Deserialise(entry.binFilter)) {
    std::printf("  %s\n", rule->Describe(1).c_str());
  }
  return 0;
}

int Save(const std::string& name, const std::vector<std::string>& args) {
  std::vector<rules::RulePtr> rules;
  std::optional<std::string> root;
  bool another_copy = false;
  std::string error;
  OptionReader reader(*FindCommand("saved"), args);
  OptionItem item;
  while (reader.Next(&item, &error)) {
    const int id = item.option ? item.option->id : 0;
    bool ok = true;
    if (id == kOptCopy) {
      another_copy = true;
    } else if (id == kOptRoot) {
      root = item.value;
    } else if (id == kOptExpression) {
      ok = AddExpression(item.value, &rules, &error);
    } else if (id == kOptRulesFile) {
      ok = AddRulesFile(item.value, &rules, &error);
    } else if (id == kOptRule) {
      ok = AddRuleLine(item.value, &rules, &error);
    } else {
      return Fail(UnknownOptionMessage(*FindCommand("saved"), item.name));
    }
    if (!ok) return Fail(error);
  }
  if (!error.empty()) return Fail(error);
  if (name.empty()) return Fail("a saved search needs a name");
  if (HasLineBreak(name)) return Fail("a saved search name cannot hold a line break (CR or LF)");
  if (root && HasLineBreak(*root)) return Fail("--root cannot hold a line break (CR or LF)");
  if (rules.empty()) return Fail(std::string(base::LoadString(base::strings::kSpecifyWhatToSearch)));
  // The list is judged as it stands under the lock, not as it stood when this run began.
  return ChangeCliStore([&](app::SettingsStore& store) {
    std::vector<app::SavedSearch> list = app::LoadSavedSearches(store);
    if (app::FindSavedSearch(list, name)) {
      return Fail("a saved search named \"" + name + "\" exists already");
    }
    if (list.size() >= app::kMaxSavedSearches) {
      return Fail("there are " + std::to_string(app::kMaxSavedSearches) +
                  " saved searches already; delete one first");
    }
    if (std::optional<size_t> same = app::FindSameSearch(list, rules, root);
        same && !another_copy) {
      std::fprintf(stderr, "%s\n(--copy saves it anyway)\n",
                   FormatMessage(kSameParametersMessage, list[*same].szName).c_str());
      return 1;
    }
    list.push_back(app::MakeSavedSearch(name, rules, root));
    app::SaveSavedSearches(store, list);
    return 0;
  });
}

int Delete(const std::string& name) {
  return ChangeCliStore([&](app::SettingsStore& store) {
    std::vector<app::SavedSearch> list = app::LoadSavedSearches(store);
    std::optional<size_t> index = app::FindSavedSearch(list, name);
    if (!index) return Fail("no saved search named \"" + name + "\"");
    list.erase(list.begin() + static_cast<std::ptrdiff_t>(*index));
    app::SaveSavedSearches(store, list);
    return 0;
  });
}

}  // namespace

int RunSavedCommand(const std::vector<std::string>& args) {
  if (args.empty()) return Fail("saved needs list, areas, show, save, run or delete");
  const std::string& verb = args[0];
  if (verb == "run") {
    if (args.size() < 2) return Fail("saved run needs a NAME");
    // The rest are the options of search; a ROOT given here takes the place of a stored one.
    std::vector<std::string> search_args = {"--saved", args[1]};
    search_args.insert(search_args.end(), args.begin() + 2, args.end());
    return RunSearchCommand(search_args);
  }
  if (verb == "areas") return ListAreas();
  const bool needs_name = verb == "show" || verb == "save" || verb == "delete";
  if (verb != "list" && !needs_name) return Fail("unknown saved command \"" + verb + "\"");
  if (needs_name && args.size() < 2) return Fail("saved " + verb + " needs a NAME");
  if (verb == "delete") return Delete(args[1]);
  if (verb == "save") {
    return Save(args[1], std::vector<std::string>(args.begin() + 2, args.end()));
  }
  SavedListAccess access;
  std::string error;
  if (!OpenSavedList(&access, &error)) return Fail(error);
  if (verb == "list") return List(access);
  return Show(access, args[1]);
}

}  // namespace trovix::cli
