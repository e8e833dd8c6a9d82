#include "app/command_line.h"

#include <sys/stat.h>

namespace trovix::app {
namespace {

constexpr char kQuote = '"';

char LowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool IsAsciiLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

// The text of /G: and /I:, from the fourth character on.
std::string SwitchText(const std::string& argument) {
  return argument.size() > 3 ? argument.substr(3) : std::string();
}

}  // namespace

std::vector<CommandArgument> SplitCommandLine(std::string_view line) {
  std::vector<CommandArgument> arguments;
  size_t i = 0;
  while (i < line.size()) {
    while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) ++i;
    if (i >= line.size()) break;
    CommandArgument argument;
    bool in_quotes = false;
    for (; i < line.size(); ++i) {
      const char c = line[i];
      if (c == kQuote) {
        in_quotes = !in_quotes;
        argument.quoted = true;
      } else if (!in_quotes && (c == ' ' || c == '\t')) {
        break;
      } else {
        argument.text += c;
      }
    }
    arguments.push_back(std::move(argument));
  }
  return arguments;
}

bool PathExists(const std::string& path) {
  struct stat st;
  return !path.empty() && lstat(path.c_str(), &st) == 0;
}

bool IsSwitchArgument(std::string_view a) {
  if (a.size() >= 2 && a[0] == '-') return true;
  // A path of this platform starts with "/" too: only a switch's own shapes count.
  return a.size() >= 2 && a[0] == '/' && IsAsciiLetter(a[1]) && (a.size() == 2 || a[2] == ':');
}

CommandLine ParseArguments(const std::vector<CommandArgument>& arguments, uint32_t show_command,
                           const ExistsFunction& exists) {
  CommandLine line;
  line.show_command = show_command;
  std::vector<const std::string*> plain;
  bool any_switch = false;
  bool any_quoted = false;
  for (const CommandArgument& argument : arguments) {
    any_quoted |= argument.quoted;
    const std::string& a = argument.text;
    if (!IsSwitchArgument(a)) {
      plain.push_back(&a);
      line.root = a;
      continue;
    }
    any_switch = true;
    switch (LowerAscii(a[1])) {
      case 'c':
        line.switches |= kSwitchConsole;
        break;
      case 'f':
        line.switches |= kSwitchFresh;
        break;
      case 'g':
        line.search = SwitchText(a);
        break;
      case 'i':
        line.settings_path = SwitchText(a);
        break;
      case 'j':
        line.switches |= kSwitchSharedData;
        break;
      case 'm':
        line.switches |= kSwitchMinimised;
        break;
      case 'p':
        line.switches |= kSwitchPrivate;
        break;
      default:
        break;  // unknown switches are ignored
    }
  }
  if (plain.size() >= 2 && !any_switch && !any_quoted && !(exists && exists(line.root))) {
    line.root.clear();
    for (const std::string* part : plain) {
      if (!line.root.empty()) line.root += ' ';
      line.root += *part;
    }
  }
  return line;
}

CommandLine ParseArguments(const std::vector<std::string>& arguments, uint32_t show_command,
                           const ExistsFunction& exists) {
  std::vector<CommandArgument> wrapped;
  wrapped.reserve(arguments.size());
  for (const std::string& a : arguments) wrapped.push_back(CommandArgument{a, false});
  return ParseArguments(wrapped, show_command, exists);
}

CommandLine ParseCommandLine(std::string_view text, uint32_t show_command,
                             const ExistsFunction& exists) {
  std::vector<CommandArgument> arguments = SplitCommandLine(text);
  if (!arguments.empty()) arguments.erase(arguments.begin());  // the program
  return ParseArguments(arguments, show_command, exists);
}

bool WantsPrivateInstance(std::string_view line) {
  return line.find(" /p") != std::string_view::npos || line.find(" /P") != std::string_view::npos;
}

}  // namespace trovix::app
