// trovix-cli run as a user runs it, for the console's black-box tests: its standard error kept
// in the tree's stderr.txt, and a cache folder of the tree's own, so that the memory of files
// that crashed a reader stays out of the user's $HOME.
#pragma once

#include <string>
#include <vector>

#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix::testing {

inline ProgramRun RunCli(const TempTree& tree, const std::vector<std::string>& args) {
  return RunProgram(TROVIX_CLI_PATH, args, tree.path("stderr.txt"),
                    "XDG_CACHE_HOME=" + ShellQuote(tree.path(".cache")) + " ");
}

}  // namespace trovix::testing
