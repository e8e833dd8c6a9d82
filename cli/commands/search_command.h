// The commands of trovix-cli. Each takes the arguments after its own name and returns the
// exit code: 0 found, 1 nothing found, 2 error (with the message on stderr).
#pragma once

#include <string>
#include <vector>

namespace trovix::cli {

int RunSearchCommand(const std::vector<std::string>& args);
int RunExplainCommand(const std::vector<std::string>& args);
// trovix-cli text FILE [--excerpt N] [--term TEXT]
int RunTextCommand(const std::vector<std::string>& args);
int RunPropsCommand(const std::vector<std::string>& args);
// What `trovix-cli` with no arguments does: the default search of the current folder.
int RunDefaultSearch();

}  // namespace trovix::cli
