// trovix-cli: the console front end. It parses the command line, hands the work to the
// library and prints what comes back; it decides no search semantics of its own.
#include <clocale>
#include <cstdio>
#include <string>
#include <vector>

#include "cli/search_command.h"

int main(int argc, char** argv) {
  std::setlocale(LC_ALL, "");
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty()) return trovix::cli::RunDefaultSearch();
  std::string command = args[0];
  std::vector<std::string> rest(args.begin() + 1, args.end());
  if (command == "search") return trovix::cli::RunSearchCommand(rest);
  if (command == "explain") return trovix::cli::RunExplainCommand(rest);
  if (command == "props") return trovix::cli::RunPropsCommand(rest);
  if (command == "-h" || command == "--help" || command == "help") {
    trovix::cli::PrintUsage(stdout);
    return 0;
  }
  std::fprintf(stderr, "trovix-cli: unknown command \"%s\"\n\n", command.c_str());
  trovix::cli::PrintUsage(stderr);
  return 2;
}
