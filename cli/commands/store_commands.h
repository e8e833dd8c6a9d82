// The trovix-cli commands that work on the settings store: saved searches (`saved`), the stored
// settings themselves (`settings`), the content plugins they configure (`plugins`) and the program's own command line (`/C /G:name ...`), which
// runs a saved search and prints its results as `search` does. Each takes the arguments after
// its own name and returns the exit code: 0 done (or found), 1 nothing found or nothing done,
// 2 error (with the message on stderr).
#pragma once

#include <string>
#include <vector>

namespace trovix::cli {

int RunSavedCommand(const std::vector<std::string>& args);
int RunSettingsCommand(const std::vector<std::string>& args);
// `plugins list | fields NAME | test NAME FILE`: the configured content plugins (they live in
// the settings store), what they offer and what they answer for a file.
int RunPluginsCommand(const std::vector<std::string>& args);

// Whether the arguments start with one of the program's own switches (/C, -g:name, /I:path ...).
bool IsProgramLine(const std::vector<std::string>& args);
// `args` is the whole line after the program's name.
int RunProgramLine(const std::vector<std::string>& args);

}  // namespace trovix::cli
