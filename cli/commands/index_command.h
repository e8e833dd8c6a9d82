// trovix-cli index: the index's scope, its updates and its state, and the SQL a search sends.
//   index add DIR... | remove DIR|PATTERN | exclude PATTERN | list | update [DIR...]
//   index status [--json] | watch [--budget PERCENT] [--normal-priority] | pause | resume
//   index sql ROOT [-r RULE]... [--no-subfolders]
#pragma once

#include <string>
#include <vector>

namespace trovix::cli {

// --index PATH (any command): the database to use instead of the default one.
void SetIndexPathSwitch(std::string path);
std::string IndexPathInEffect();

int RunIndexCommand(const std::vector<std::string>& args);

}  // namespace trovix::cli
