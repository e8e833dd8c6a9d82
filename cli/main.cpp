// trovix-cli: the console front end. It parses the command line, hands the work to the
// library and prints what comes back; it decides no search semantics of its own.
#include <clocale>
#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include "cli/cli_store.h"
#include "cli/commands/command_table.h"
#include "cli/commands/index_command.h"
#include "cli/commands/search_command.h"
#include "cli/commands/store_commands.h"
#include "engine/extraction/extraction_service.h"

namespace {

bool AsksForHelp(const std::vector<std::string>& args) {
  for (const std::string& a : args)
    if (a == "-h" || a == "--help") return true;
  return false;
}

// A command that needed the document reader and could not start it has left documents
// unread: that is said once, and the command fails (2) whatever else it found.
int WithReaderCheck(int status) {
  const auto failure = trovix::engine::ExtractionService::SharedStartFailure();
  if (!failure) return status;
  std::fflush(stdout);
  std::fprintf(stderr, "trovix-cli: %s\n",
               trovix::engine::HelperStartFailureMessage(*failure).c_str());
  return 2;
}

enum class Taken { kNo, kYes, kMissingValue };

// Removes the first "NAME VALUE" pair (or "NAME=VALUE", as every command takes its options)
// from `args`.
Taken TakeGlobalOption(std::vector<std::string>& args, const char* name, std::string* value) {
  const std::string attached = std::string(name) + "=";
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i].rfind(attached, 0) == 0) {
      *value = args[i].substr(attached.size());
      args.erase(args.begin() + static_cast<std::ptrdiff_t>(i));
      return Taken::kYes;
    }
    if (args[i] != name) continue;
    if (i + 1 >= args.size()) {
      std::fprintf(stderr, "trovix-cli: option %s needs a value\n", name);
      return Taken::kMissingValue;
    }
    *value = args[i + 1];
    args.erase(args.begin() + static_cast<std::ptrdiff_t>(i), args.begin() + static_cast<std::ptrdiff_t>(i) + 2);
    return Taken::kYes;
  }
  return Taken::kNo;
}

}  // namespace

int main(int argc, char** argv) {
  namespace cli = trovix::cli;
  std::setlocale(LC_ALL, "");
  // A closed pipe (| head) shows as a failed write that the commands end on quietly, instead of
  // a signal that would cut a search off without its status.
  std::signal(SIGPIPE, SIG_IGN);
  // A file-size limit (ulimit -f) reached while writing the index must be an error the
  // program reports, with the database rolled back to its last batch, not a silent kill.
  std::signal(SIGXFSZ, SIG_IGN);
  std::vector<std::string> args(argv + 1, argv + argc);
  // --index PATH and --settings PATH may stand anywhere: the index database and the settings
  // file (as /I: chooses it) of whatever command runs.
  std::string value;
  switch (TakeGlobalOption(args, "--index", &value)) {
    case Taken::kMissingValue: return 2;
    case Taken::kYes: cli::SetIndexPathSwitch(value); break;
    case Taken::kNo: break;
  }
  switch (TakeGlobalOption(args, "--settings", &value)) {
    case Taken::kMissingValue: return 2;
    case Taken::kYes: {
      cli::SetSettingsSwitch(value);
      // Its file kinds apply to every command, searches included.
      std::string error;
      if (!cli::OpenCliStore(&error)) {
        std::fprintf(stderr, "trovix-cli: %s\n", error.c_str());
        return 2;
      }
      break;
    }
    case Taken::kNo: break;
  }
  if (cli::IsProgramLine(args)) return WithReaderCheck(cli::RunProgramLine(args));
  if (args.empty()) return WithReaderCheck(cli::RunDefaultSearch());
  const std::string command = args[0];
  std::vector<std::string> rest(args.begin() + 1, args.end());
  if (command == "-h" || command == "--help" || command == "help") {
    if (const cli::CommandSpec* spec = rest.empty() ? nullptr : cli::FindCommand(rest[0])) {
      cli::PrintCommandHelp(*spec, stdout);
    } else {
      cli::PrintUsage(stdout);
    }
    return 0;
  }
  if (command == "-V" || command == "--version") {
    std::printf("%s\n", cli::VersionLine().c_str());
    return 0;
  }
  if (command == "--generate") {
    if (rest.size() != 1 || !cli::WriteGenerated(rest[0], stdout)) {
      std::fprintf(stderr, "trovix-cli: --generate takes man, bash, zsh or fish\n");
      return 2;
    }
    return std::fflush(stdout) == 0 ? 0 : 2;
  }
  // search and explain read their own options (a command after --exec may hold "-h").
  if (command == "search") return WithReaderCheck(cli::RunSearchCommand(rest));
  if (command == "explain") return WithReaderCheck(cli::RunExplainCommand(rest));
  if (const cli::CommandSpec* spec = cli::FindCommand(command); spec != nullptr && AsksForHelp(rest)) {
    cli::PrintCommandHelp(*spec, stdout);
    return 0;
  }
  if (command == "props") return WithReaderCheck(cli::RunPropsCommand(rest));
  if (command == "text") return WithReaderCheck(cli::RunTextCommand(rest));
  if (command == "saved") return WithReaderCheck(cli::RunSavedCommand(rest));
  if (command == "settings") return cli::RunSettingsCommand(rest);
  if (command == "plugins") return cli::RunPluginsCommand(rest);
  if (command == "index") return WithReaderCheck(cli::RunIndexCommand(rest));
  if (command.size() > 1 && command[0] == '-') {
    std::fprintf(stderr, "trovix-cli: %s\n", cli::UnknownOptionMessage(cli::Commands()[0], command).c_str());
  } else {
    std::fprintf(stderr, "trovix-cli: %s\n", cli::UnknownCommandMessage(command).c_str());
  }
  std::fprintf(stderr, "(trovix-cli --help lists the commands)\n");
  return 2;
}
