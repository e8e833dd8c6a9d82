#include "cli/commands/command_table.h"

#include <algorithm>
#include <array>

#include "cli/options/option_ids.h"
#include "cli/nearest_names.h"

#ifndef TROVIX_VERSION
#define TROVIX_VERSION "0"
#endif

namespace trovix::cli {
namespace {

using K = ValueKind;

constexpr OptionSpec kGlobalOptions[] = {
    {kOptHelp, "-h", "--help", "", K::kNone, "show this help (of a command: trovix-cli COMMAND --help)"},
    {kOptVersion, "-V", "--version", "", K::kNone, "show the version"},
    {kOptSettings, "", "--settings", "PATH", K::kFile, "the settings file to use, as /I: does"},
    {kOptIndex, "", "--index", "PATH", K::kFile, "the index database to use instead of the default one"},
    {kOptGenerate, "", "--generate", "KIND", K::kChoice,
     "print the manual page (man) or a shell completion script (bash, zsh, fish)", "man bash zsh fish"},
};

// The options that add rules, shared by search and explain.
#define TROVIX_RULE_OPTIONS                                                                             \
  {kOptRule, "-r", "--rule", "RULE", K::kText, "add a rule (repeatable, in order)"},                  \
      {kOptExpression, "-e", "--expression", "EXPR", K::kText, "add a free-form expression rule"},    \
      {kOptRulesFile, "", "--rules-file", "FILE", K::kFile,                                           \
       "one RULE per line; blank lines and # comments ignored"},                                      \
      {kOptSaved, "", "--saved", "NAME", K::kText,                                                    \
       "add the rules of a saved search (and its root when none is given)"},                          \
      {kOptLiteral, "", "--literal", "", K::kNone,                                                    \
       "take text values as plain text: no wildcards, no regular expressions"},                       \
      {kOptShowRules, "", "--show-rules", "", K::kNone, "print the rule list as it will be searched"}, \
      {kOptNoWarnings, "", "--no-warnings", "", K::kNone, "do not say how unusual values were read"}

#define TROVIX_FORMAT_OPTIONS                                                                           \
  {kOptNull, "-0", "--null", "", K::kNone, "NUL-separated paths"},                                      \
      {kOptJson, "", "--json", "", K::kNone, "one JSON object per line (bytes that are not UTF-8 as \\udcXX)"}, \
      {kOptColumns, "", "--columns", "LIST", K::kText,                                                   \
       "tab-separated columns with a header row (\"name,size\"; \"excerpt\": where contents matched)"}

constexpr OptionSpec kSearchOptions[] = {
    TROVIX_RULE_OPTIONS,
    {kOptArea, "", "--area", "AREA", K::kText,
     "pictures shot in an area: \"N,W,S,E\" in decimal degrees, or a stored map area's name (saved areas)"},
    {kOptType, "-t", "--type", "TYPE", K::kChoice,
     "only items of this type: f file, d directory, l link, x executable, e empty (repeatable)",
     "f d l x e file directory symlink executable empty"},
    {kOptExtension, "", "--ext", "EXT", K::kText, "only files with this extension (repeatable)"},
    {kOptExtension, "", "--extension", "EXT", K::kText, "the same as --ext"},
    {kOptSize, "-S", "--size", "[+-]SIZE", K::kText,
     "size at least (+), at most (-) or exactly SIZE; units b k m g t ki mi gi ti"},
    {kOptChangedWithin, "", "--changed-within", "WHEN", K::kText,
     "modified within a duration (7d, 2weeks, 10h) or since a date (2026-05-01 10:00:00)"},
    {kOptChangedBefore, "", "--changed-before", "WHEN", K::kText,
     "modified longer ago than a duration, or before a date"},
    {kOptRoots, "", "--roots", "TEXT", K::kText, "roots joined by \"|\", as the program's root box takes them"},
    {kOptHidden, "-H", "--hidden", "", K::kNone, "search hidden items (names beginning with \".\") too"},
    {kOptFollowLinks, "-L", "--follow-links", "", K::kNone, "enter symbolic links to folders"},
    {kOptNoSubfolders, "", "--no-subfolders", "", K::kNone, "only the roots' own items"},
    {kOptRobust, "", "--robust", "", K::kNone, "walk the folders even where the index could answer"},
    {kOptOffline, "", "--offline", "", K::kNone,
     "search the index's catalogues of every drive that is not mounted (results marked offline)"},
    {kOptVolumeImage, "", "--volume-image", "IMG", K::kFile,
     "search the file table of an NTFS image (one name rule); paths are shown inside the image"},
    {kOptMaxDepth, "-d", "--max-depth", "N", K::kNumber, "go at most N folders deep (1: the roots' own items)"},
    {kOptMinDepth, "", "--min-depth", "N", K::kNumber, "show only items at least N folders deep"},
    {kOptExclude, "-E", "--exclude", "GLOB", K::kText,
     "leave out items matching GLOB (git's pattern rules); excluded folders are not read"},
    {kOptIgnoreVcs, "", "--ignore-vcs", "", K::kNone,
     "leave out what .gitignore, .ignore and .git/info/exclude ignore"},
    {kOptOneFileSystem, "", "--one-file-system", "", K::kNone, "do not enter folders on other file systems"},
    {kOptVirtualFolders, "", "--virtual-folders", "", K::kNone,
     "enter archives (zip, tar, 7z, cpio, iso) as folders"},
    {kOptThreads, "", "--threads", "N", K::kNumber,
     "folders read at the same time (default: one per core, at most 8)"},
    {kOptOrdered, "", "--ordered", "", K::kNone, "each folder's items in name order: the same order on every run"},
    {kOptAnswerTimeout, "", "--answer-timeout", "MS", K::kNumber,
     "go on without a folder on a network or FUSE mount that says nothing for MS milliseconds "
     "(default 10000; 0: wait for ever)"},
    {kOptExcludeTypes, "", "--exclude-types", "LIST", K::kText,
     "extensions never searched for contents (\"log,tmp\")"},
    {kOptMaxExtractSize, "", "--max-extract-size", "N", K::kNumber,
     "read archive members' contents up to N bytes (under 10000: never)"},
    {kOptSearchZip, "-z", "--search-zip", "", K::kNone,
     "read the file inside single compressed files (.gz, .bz2, .xz, .zst) for contents"},
    TROVIX_FORMAT_OPTIONS,
    {kOptSort, "", "--sort", "LIST", K::kText, "sort the results by these properties"},
    {kOptDesc, "", "--desc", "", K::kNone, "sort in descending order"},
    {kOptLimit, "", "--limit", "N", K::kNumber, "show at most N results"},
    {kOptQuiet, "-q", "--quiet", "", K::kNone, "print nothing; stop at the first result (status 0 if found)"},
    {kOptColor, "", "--color", "WHEN", K::kChoice, "colour the paths: auto (on a terminal), always, never",
     "auto always never"},
    {kOptProgress, "", "--progress", "", K::kNone, "show progress on stderr (the default on a terminal)"},
    {kOptNoMessages, "", "--no-messages", "", K::kNone,
     "do not report folders that could not be read, nor files whose contents were not read"},
    {kOptExec, "-x", "--exec", "CMD...", K::kCommand,
     "run CMD for each result, up to an argument \";\" ({} path, {/} name, {//} folder, {.} and {/.} "
     "without extension)"},
    {kOptExecBatch, "-X", "--exec-batch", "CMD...", K::kCommand,
     "run CMD once with all results as arguments (placeholders as for --exec)"},
};

constexpr OptionSpec kExplainOptions[] = {TROVIX_RULE_OPTIONS, TROVIX_FORMAT_OPTIONS};

constexpr OptionSpec kPropsOptions[] = {
    {kOptJson, "", "--json", "", K::kNone,
     "one JSON object per property: name, label, text and the typed value (and file, for several files)"},
    {kOptAll, "", "--all", "", K::kNone, "every property of the system, not only those rules offer"},
};

constexpr OptionSpec kTextOptions[] = {
    {kOptExcerpt, "", "--excerpt", "N", K::kNumber, "only N characters around the first match of --term"},
    {kOptTerm, "", "--term", "TEXT", K::kText, "the text whose first occurrence the excerpt shows"},
    {kOptMaxExtractSize, "", "--max-extract-size", "N", K::kNumber,
     "read archive members up to N bytes (under 10000: never)"},
    {kOptSearchZip, "-z", "--search-zip", "", K::kNone, "read the file inside a single compressed file"},
};

constexpr OptionSpec kSavedOptions[] = {
    TROVIX_RULE_OPTIONS,
    {kOptRoot, "", "--root", "ROOT", K::kFolder, "save the search with this root"},
    {kOptCopy, "", "--copy", "", K::kNone, "save even when a search with the same rules exists"},
};

constexpr OptionSpec kIndexOptions[] = {
    {kOptRule, "-r", "--rule", "RULE", K::kText, "sql: a rule (repeatable, in order)"},
    {kOptExpression, "-e", "--expression", "EXPR", K::kText, "sql: a free-form expression rule"},
    {kOptRulesFile, "", "--rules-file", "FILE", K::kFile, "sql: one RULE per line"},
    {kOptLiteral, "", "--literal", "", K::kNone, "sql: take text values as plain text"},
    {kOptNoWarnings, "", "--no-warnings", "", K::kNone, "sql: do not say how unusual values were read"},
    {kOptJson, "", "--json", "", K::kNone, "status: one JSON object"},
    {kOptNoSubfolders, "", "--no-subfolders", "", K::kNone, "sql: the root's own items only"},
    {kOptNamesOnly, "", "--names-only", "", K::kNone,
     "update: names and file-system facts only; properties and text wait for the next update"},
    {kOptBudget, "", "--budget", "PERCENT", K::kNumber,
     "update, watch: take at most PERCENT of one processor over a minute"},
    {kOptNormalPriority, "", "--normal-priority", "", K::kNone,
     "update, watch: run at normal CPU and disk priority instead of idle"},
};

constexpr OptionSpec kSettingsOptions[] = {
    {kOptRaw, "", "--raw", "", K::kNone, "get: the stored value, not the value in effect"},
};

#undef TROVIX_RULE_OPTIONS
#undef TROVIX_FORMAT_OPTIONS

constexpr std::string_view kSearchUsage[] = {"search [ROOT]... [options]"};
constexpr std::string_view kExplainUsage[] = {"explain FILE [-r RULE]... [options]"};
constexpr std::string_view kPropsUsage[] = {"props [all]", "props FILE... [--json] [--all]"};
constexpr std::string_view kTextUsage[] = {"text FILE [--excerpt N] [--term TEXT]"};
constexpr std::string_view kSavedUsage[] = {"saved list | areas | show NAME | delete NAME",
                                            "saved save NAME [--root ROOT] [--copy] -r RULE...",
                                            "saved run NAME [ROOT] [search options]"};
constexpr std::string_view kSettingsUsage[] = {
    "settings path | list | get NAME [--raw] | set NAME VALUE|+BITS|-BITS"};
constexpr std::string_view kIndexUsage[] = {"index add DIR... [--server NAME] | remove DIR|PATTERN [--server NAME] | exclude PATTERN [--server NAME] | list",
                                            "index update [DIR]... [--names-only] [--server NAME] [--budget PERCENT] [--normal-priority] [--answer-timeout MS]",
                                            "index watch [--server NAME] [--budget PERCENT] [--normal-priority] [--answer-timeout MS] | pause | resume",
                                            "index status [--json] | forget IDENTITY | partition --server NAME",
                                            "index sql ROOT [-r RULE]... [--no-subfolders]"};
constexpr std::string_view kPluginsUsage[] = {"plugins list | fields NAME | test NAME FILE"};
constexpr std::string_view kProgramUsage[] = {"/C /G:NAME [/I:SETTINGS] [ROOT]"};
constexpr std::string_view kNoUsage[] = {"[--version] [--help] [--settings PATH] COMMAND ..."};

constexpr std::string_view kSearchNotes =
    "A RULE is [and|or|and not|or not] [>...] PROPERTY: VALUE, for example -r \"size: > 50 KB\". "
    "Each leading \">\" indents the rule one level; the rule above opens the group. PROPERTY is a "
    "canonical name (System.Size), a label (size), the end of a canonical name after any of its periods "
    "(DateModified, Music.Artist, Artist) or a common word (filename, ext, modified, created, date, "
    "duration, width, height: trovix-cli props lists them), in any case; "
    "VALUE is what the program's rule box takes (> 50 KB, yesterday, *.txt, 2024-05-01 .. 2024-05-31).\n"
    "Roots given as arguments are taken as they are written; with none, the current folder. A relative "
    "root gives relative paths. Options such as --type, --ext, --size and --changed-within add rules "
    "joined to the others with AND.\n"
    "Exit status: 0 found, 1 nothing found, 2 an error (a rule, an option, or a folder that could not "
    "be read), 130 stopped by Ctrl+C (what was found is printed).";

constexpr std::string_view kExplainNotes =
    "Says which rules FILE satisfies and why; with no rules, prints the file's properties.";

constexpr std::string_view kPropsNotes =
    "Without FILE: the catalogue, one property per line: name, label, type, flags and the common words "
    "that name it too (ext: System.FileExtension). With FILE (a file, or an archive member such as "
    "/x/a.zip/docs/b.pdf): NAME, LABEL and the value as a column shows it, tab-separated; a tab, newline "
    "or backslash in a value is written \\t, \\n, \\\\, and on a terminal control characters are shown escaped.";

constexpr std::string_view kIndexNotes =
    "The index lives in $XDG_CACHE_HOME/trovix/index.db (--index PATH for another). `update` compares "
    "every folder with the index and reads what changed, and goes on where it stopped when it was "
    "interrupted (Ctrl+C ends it at once, exit status 130); `watch` keeps the index live (a systemd "
    "user unit runs it: see the README). Searches "
    "whose roots lie in the index are answered from it and say so on stderr (roots answered by "
    "different routes are each named with theirs); search --robust walks the folders instead. `update` and `watch` run at idle CPU and disk priority; a watch waits while "
    "the machine runs on battery (settings set bIndexOnBattery 1 keeps it going) and while the user "
    "has paused indexing (`pause`, until `resume`, which a running watch notices within a second). "
    "`sql` prints the query a search sends for ROOT and whether its rows are exact or re-tested. Every "
    "file system the index has seen keeps a catalogue under its identity (a UUID, else a file-system "
    "id): a drive that is not mounted is still searched at its old place, or with search --offline, "
    "from what the index kept (marked offline); mounted at another place, its paths follow it. "
    "`status` lists the catalogues; `forget` drops one with everything in it. On a file server, "
    "add, remove, exclude, update and watch with --server NAME work on the shared index that "
    "indexes.conf (in the velmora/ settings folder) names NAME instead of the local one, with the "
    "same walk, read, budget and pause; a dropped connection is made anew and the work goes on. "
    "Clients list the same NAME there and search //NAME/path or a folder where the share is mounted. "
    "`partition --server NAME` splits a very large shared index into a partition per share (each folder "
    "added), keeping its rows; shares added later get partitions of their own.";

const CommandSpec kCommands[] = {
    {"", kNoUsage, "Finds files by a list of rules on their properties.", kGlobalOptions, ""},
    {"search", kSearchUsage, "Searches folders for items that satisfy the rules.", kSearchOptions,
     kSearchNotes},
    {"explain", kExplainUsage, "Explains a single file rule by rule.", kExplainOptions, kExplainNotes},
    {"props", kPropsUsage, "Lists the properties rules can name, or a file's property values.", kPropsOptions,
     kPropsNotes},
    {"text", kTextUsage, "Prints the text Trovix reads from a file or an archive member.", kTextOptions, ""},
    {"saved", kSavedUsage, "Lists, shows, saves, runs and deletes saved searches; lists the map areas.", kSavedOptions, ""},
    {"index", kIndexUsage, "Keeps an index of folders that searches answer from, and shows its state.",
     kIndexOptions, kIndexNotes},
    {"settings", kSettingsUsage, "Shows where the settings live, lists, reads and writes them.",
     kSettingsOptions,
     "The store is the desktop program's own ($XDG_CONFIG_HOME/velmora/, shared with the plug-in "
     "configuration): what is set here changes what both programs do. +BITS and -BITS set and clear "
     "bits of a flag word (bin...) and keep the others: settings set bin1OffNotify +2."},
    {"plugins", kPluginsUsage, "Shows the configured content plugins, their fields and their values for a file.",
     {},
     "NAME is a plugin's name (its library's file name up to the first period) or its number in the "
     "section ContentPlugins of the settings. `list`: number, name, what it offers, detect string and "
     "library; `fields`: number, property name (field.plugin, as rules and $ expressions name it), type "
     "and units; `test`: each field's value for FILE. Plugins run in the sandboxed plugin host: one that "
     "crashes or hangs costs its value, and after three failures it is switched off for the run.\n"
     "Exit status: 0 done (test: a value came), 1 nothing configured or no value, 2 an error."},
    {"/C", kProgramUsage, "Runs a saved search as the program's own command line does and prints it.", {},
     ""},
};

std::string Names(const OptionSpec& o) {
  std::string text(o.short_name);
  if (!o.long_name.empty()) text += (text.empty() ? "" : ", ") + std::string(o.long_name);
  if (!o.value.empty()) text += " " + std::string(o.value);
  return text;
}

constexpr size_t kHelpColumn = 24;
constexpr size_t kLineWidth = 79;

// Paragraphs are separated by "\n"; each is wrapped at 79 columns, lines after the first of a
// paragraph indented by `indent` (the first starts wherever the caller's output stands).
void PrintWrapped(std::string_view text, std::FILE* to, size_t indent = 0) {
  while (!text.empty()) {
    size_t end = text.find('\n');
    std::string_view paragraph = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    size_t column = indent;
    while (!paragraph.empty()) {
      size_t space = paragraph.find(' ');
      std::string_view word = paragraph.substr(0, space);
      paragraph = space == std::string_view::npos ? std::string_view() : paragraph.substr(space + 1);
      if (column > indent && column + 1 + word.size() > kLineWidth) {
        std::fprintf(to, "\n%*s", static_cast<int>(indent), "");
        column = indent;
      } else if (column > indent) {
        std::fputc(' ', to);
        ++column;
      }
      std::fwrite(word.data(), 1, word.size(), to);
      column += word.size();
    }
    std::fputs("\n", to);
  }
}

void PrintOptions(std::span<const OptionSpec> options, std::FILE* to) {
  for (const OptionSpec& o : options) {
    std::string names = "  " + Names(o);
    if (names.size() < kHelpColumn) names.resize(kHelpColumn, ' ');
    else names += "\n" + std::string(kHelpColumn, ' ');
    std::fputs(names.c_str(), to);
    PrintWrapped(o.help, to, kHelpColumn);
  }
}

}  // namespace

std::span<const CommandSpec> Commands() { return kCommands; }

const CommandSpec* FindCommand(std::string_view name) {
  for (const CommandSpec& c : kCommands)
    if (!c.name.empty() && c.name == name) return &c;
  return nullptr;
}

const OptionSpec* FindOption(const CommandSpec& command, std::string_view arg) {
  if (arg.empty()) return nullptr;
  for (std::span<const OptionSpec> list : {command.options, std::span<const OptionSpec>(kGlobalOptions)})
    for (const OptionSpec& o : list)
      if (arg == o.short_name || arg == o.long_name) return &o;
  return nullptr;
}

std::string UnknownOptionMessage(const CommandSpec& command, std::string_view arg) {
  std::vector<std::string> names;
  for (std::span<const OptionSpec> list : {command.options, std::span<const OptionSpec>(kGlobalOptions)})
    for (const OptionSpec& o : list)
      if (!o.long_name.empty()) names.emplace_back(o.long_name);
  std::string message = "unknown option " + std::string(arg);
  if (!command.name.empty()) message += " for " + std::string(command.name);
  const std::vector<std::string> near = NearestNames(arg, names);
  if (!near.empty()) message += " (did you mean " + JoinAlternatives(near) + "?)";
  else message += " (trovix-cli " + std::string(command.name) + (command.name.empty() ? "" : " ") + "--help)";
  return message;
}

std::string UnknownCommandMessage(std::string_view name) {
  std::vector<std::string> names;
  for (const CommandSpec& c : kCommands)
    if (!c.name.empty() && c.name[0] != '/') names.emplace_back(c.name);
  std::string message = "unknown command \"" + std::string(name) + "\"";
  const std::vector<std::string> near = NearestNames(name, names);
  if (!near.empty()) message += " (did you mean " + JoinAlternatives(near) + "?)";
  return message;
}

void PrintUsage(std::FILE* to) {
  std::fputs("usage:", to);
  bool first = true;
  for (const CommandSpec& c : kCommands)
    for (std::string_view line : c.usage) {
      std::fprintf(to, "%s trovix-cli %.*s\n", first ? "" : "      ", static_cast<int>(line.size()), line.data());
      first = false;
    }
  std::fputs("\nCommands:\n", to);
  for (const CommandSpec& c : kCommands) {
    if (c.name.empty()) continue;
    std::string name = "  " + std::string(c.name);
    name.resize(12, ' ');
    std::fprintf(to, "%s%.*s\n", name.c_str(), static_cast<int>(c.summary.size()), c.summary.data());
  }
  std::fputs("\nOptions of every command:\n", to);
  PrintOptions(kGlobalOptions, to);
  std::fputs("\n", to);
  PrintWrapped("trovix-cli COMMAND --help lists a command's options; with no COMMAND, trovix-cli lists "
               "what changed this week under the current folder, newest first.",
               to);
}

void PrintCommandHelp(const CommandSpec& command, std::FILE* to) {
  std::fputs("usage:", to);
  bool first = true;
  for (std::string_view line : command.usage) {
    std::fprintf(to, "%s trovix-cli %.*s\n", first ? "" : "      ", static_cast<int>(line.size()), line.data());
    first = false;
  }
  std::fputs("\n", to);
  PrintWrapped(command.summary, to);
  if (!command.options.empty()) {
    std::fputs("\nOptions:\n", to);
    PrintOptions(command.options, to);
  }
  if (!command.notes.empty()) {
    std::fputs("\n", to);
    PrintWrapped(command.notes, to);
  }
}

std::string VersionLine() { return std::string("trovix-cli ") + TROVIX_VERSION; }

}  // namespace trovix::cli
