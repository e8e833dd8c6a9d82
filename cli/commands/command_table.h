// The commands of trovix-cli and their options, described once: the parsers look options up
// here, and --help, `COMMAND --help`, the manual page and the shell completions are all
// printed from it, so none of them can name an option the program does not take or miss
// one it does.
#pragma once

#include <cstdio>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace trovix::cli {

// What completions offer for an option's value.
enum class ValueKind : unsigned char {
  kNone,      // a flag
  kText,      // anything
  kFile,      // a file name
  kFolder,    // a folder name
  kNumber,    // a whole number
  kChoice,    // one of `choices`
  kCommand,   // a command and its arguments (the rest of the line)
};

struct OptionSpec {
  int id;                      // the parser's own number for it
  std::string_view short_name;  // "-r", or empty
  std::string_view long_name;   // "--rule", or empty
  std::string_view value;       // the value's name in help ("RULE"), empty for a flag
  ValueKind kind;
  std::string_view help;        // one line
  std::string_view choices = {};  // blank-separated, for kChoice
};

struct CommandSpec {
  std::string_view name;                   // "search"; empty for options of every command
  std::span<const std::string_view> usage;  // synopsis lines, without "trovix-cli "
  std::string_view summary;                // one sentence
  std::span<const OptionSpec> options;
  std::string_view notes;                  // paragraphs after the options, or empty
};

// Every command in the order help lists them; the first entry (empty name) holds the options
// that every command takes.
std::span<const CommandSpec> Commands();
const CommandSpec* FindCommand(std::string_view name);

// The option of `command` (or a global one) that `arg` names ("-r", "--rule"); null when none.
const OptionSpec* FindOption(const CommandSpec& command, std::string_view arg);

// "unknown option --sizee for search (did you mean --size?)" — the nearest names of the
// command's own options.
std::string UnknownOptionMessage(const CommandSpec& command, std::string_view arg);
// "unknown command "serach" (did you mean search?)".
std::string UnknownCommandMessage(std::string_view name);

void PrintUsage(std::FILE* to);                                // trovix-cli --help
void PrintCommandHelp(const CommandSpec& command, std::FILE* to);  // trovix-cli COMMAND --help

// The program's version line: "trovix-cli 0.1".
std::string VersionLine();

// Writes the manual page (roff) or a completion script for "bash", "zsh" or "fish". False
// for an unknown kind.
bool WriteGenerated(std::string_view kind, std::FILE* to);

}  // namespace trovix::cli
