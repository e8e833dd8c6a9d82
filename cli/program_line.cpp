// The program's own command line given to trovix-cli: `/C /G:name [/I:path] [root]` runs the
// saved search `name` and prints its results as `search` does, which is what the program does
// with /C when it writes to a console.
#include <cstdio>

#include "app/command_line.h"
#include "cli/cli_store.h"
#include "cli/commands/search_command.h"
#include "cli/commands/store_commands.h"

namespace trovix::cli {

bool IsProgramLine(const std::vector<std::string>& args) {
  if (args.empty()) return false;
  const std::string& a = args[0];
  if (a.size() < 2 || !app::IsSwitchArgument(a)) return false;
  if (a[0] == '/') return true;
  // A dash is also how trovix-cli's own options begin: only the program's switch letters, alone
  // or with their colon, count ("-c", "-g:name"; not "-h" or "--help").
  const char letter = static_cast<char>(a[1] | 0x20);
  return std::string_view("cfgijmp").find(letter) != std::string_view::npos &&
         (a.size() == 2 || a[2] == ':');
}

int RunProgramLine(const std::vector<std::string>& args) {
  const app::CommandLine line = app::ParseArguments(args, /*show_command=*/1);
  if (line.search.empty()) {
    std::fprintf(stderr,
                 "trovix-cli: the program's command line needs /G:name (a saved search) to print "
                 "results\n");
    return 2;
  }
  if (!line.settings_path.empty()) SetSettingsSwitch(line.settings_path);
  // The root argument opens the frame at that folder; a root stored with the saved search then
  // replaces it, as restoring the search does.
  std::vector<rules::RulePtr> rules;
  std::optional<std::string> stored_root;
  std::string error;
  if (!LoadSavedSearchRules(line.search, &rules, &stored_root, &error)) {
    std::fprintf(stderr, "trovix-cli: %s\n", error.c_str());
    return 2;
  }
  std::vector<std::string> search_args = {"--saved", line.search};
  if (!stored_root && !line.root.empty()) search_args.push_back(line.root);
  return RunSearchCommand(search_args);
}

}  // namespace trovix::cli
