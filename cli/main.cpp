// trovix-cli: the console front end. It parses the command line, hands the work to the
// library and prints what comes back; it decides no search semantics of its own.
#include <clocale>
#include <cstdio>
#include <string>
#include <vector>

#include "cli/cli_store.h"
#include "cli/search_command.h"
#include "cli/store_commands.h"

int main(int argc, char** argv) {
  std::setlocale(LC_ALL, "");
  std::vector<std::string> args(argv + 1, argv + argc);
  // --settings PATH may stand anywhere; it chooses the settings file as /I: does.
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] != "--settings") continue;
    if (i + 1 >= args.size()) {
      std::fprintf(stderr, "trovix-cli: option --settings needs a value\n");
      return 2;
    }
    trovix::cli::SetSettingsSwitch(args[i + 1]);
    args.erase(args.begin() + static_cast<std::ptrdiff_t>(i), args.begin() + static_cast<std::ptrdiff_t>(i) + 2);
    // Its file kinds apply to every command, searches included.
    std::string error;
    if (!trovix::cli::OpenCliStore(&error)) {
      std::fprintf(stderr, "trovix-cli: %s\n", error.c_str());
      return 2;
    }
    break;
  }
  if (trovix::cli::IsProgramLine(args)) return trovix::cli::RunProgramLine(args);
  if (args.empty()) return trovix::cli::RunDefaultSearch();
  std::string command = args[0];
  std::vector<std::string> rest(args.begin() + 1, args.end());
  if (command == "search") return trovix::cli::RunSearchCommand(rest);
  if (command == "explain") return trovix::cli::RunExplainCommand(rest);
  if (command == "props") return trovix::cli::RunPropsCommand(rest);
  if (command == "text") return trovix::cli::RunTextCommand(rest);
  if (command == "saved") return trovix::cli::RunSavedCommand(rest);
  if (command == "settings") return trovix::cli::RunSettingsCommand(rest);
  if (command == "-h" || command == "--help" || command == "help") {
    trovix::cli::PrintUsage(stdout);
    return 0;
  }
  std::fprintf(stderr, "trovix-cli: unknown command \"%s\"\n\n", command.c_str());
  trovix::cli::PrintUsage(stderr);
  return 2;
}
