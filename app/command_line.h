// The program's command line, for the process's own line and for every line a later start
// hands over to the running instance:
//
//   trovix [/C] [/F] [/G:saved-search] [/I:settings-path] [/J] [/M] [/P] [root]
//
// A switch starts with "-" or "/" and is chosen by its second character, without regard to
// case; any other switch letter is ignored. Every plain argument replaces the root (the last
// one wins). When at least two plain arguments came without any switch and without quotes, and
// the last one names nothing that exists, they are joined again with single blanks: an unquoted
// path that held blanks.
//
// On this platform an absolute path also starts with "/", so "/" introduces a switch only in a
// switch's own shapes: two characters ("/C") or a letter and a colon ("/G:name"). "/home/x" is
// a root. A "-" argument is always a switch.
//
// Pure functions; thread-safe. The existence test is passed in so that tests choose it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace trovix::app {

// Bits of CommandLine::switches.
inline constexpr uint32_t kSwitchMinimised = 0x10;   // /M: do not restore a minimised window
inline constexpr uint32_t kSwitchPrivate = 0x100;    // /P: new private instance
inline constexpr uint32_t kSwitchFresh = 0x400;      // /F: no rules of the last search
inline constexpr uint32_t kSwitchSharedData = 0x800;  // /J: handed to the shared-data step
inline constexpr uint32_t kSwitchConsole = 0x1000;   // /C: results to the console (with /G:)

struct CommandLine {
  std::string root;           // the last plain argument
  std::string settings_path;  // the text after /I:
  std::string search;         // the text after /G:, a saved search's name
  uint32_t show_command = 0;
  uint32_t switches = 0;
};

struct CommandArgument {
  std::string text;
  bool quoted = false;  // held a double quote in the line it came from
};

// Splits a whole line into arguments at blanks outside double quotes; the quotes themselves
// are dropped. The first argument (the program) is kept: callers skip it.
std::vector<CommandArgument> SplitCommandLine(std::string_view line);

using ExistsFunction = std::function<bool(const std::string& path)>;
// Whether a file-system object of that name exists (the default existence test).
bool PathExists(const std::string& path);

// `arguments` without the program. Arguments from an already split argv have quoted false.
CommandLine ParseArguments(const std::vector<CommandArgument>& arguments, uint32_t show_command,
                           const ExistsFunction& exists = PathExists);
CommandLine ParseArguments(const std::vector<std::string>& arguments, uint32_t show_command,
                           const ExistsFunction& exists = PathExists);
// A whole line, program first, as a later start hands it over.
CommandLine ParseCommandLine(std::string_view line, uint32_t show_command,
                             const ExistsFunction& exists = PathExists);

// Whether a line asks for a private instance (" /p" or " /P" anywhere after a blank): such a
// start skips the hand-over to a running instance.
bool WantsPrivateInstance(std::string_view line);

// Whether an argument has the shape of a switch (see the rules above).
bool IsSwitchArgument(std::string_view argument);

}  // namespace trovix::app
