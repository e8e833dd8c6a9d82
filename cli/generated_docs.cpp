// The manual page and the shell completion scripts, written from the command table: the build
// runs `trovix-cli --generate KIND` and installs what it prints.
#include <string>

#include "cli/commands/command_table.h"

namespace trovix::cli {
namespace {

std::string Str(std::string_view s) { return std::string(s); }

// roff: backslashes and hyphens escaped, a line never starting with a control character.
std::string Roff(std::string_view text) {
  std::string out;
  for (char c : text) {
    if (c == '\\') out += "\\e";
    else if (c == '-') out += "\\-";
    else out += c;
  }
  if (!out.empty() && (out[0] == '.' || out[0] == '\'')) out.insert(0, "\\&");
  return out;
}

void Man(std::FILE* to) {
  const std::string version = VersionLine();
  std::fprintf(to, ".TH TROVIX\\-CLI 1 \"\" \"%s\" \"User Commands\"\n", Roff(version).c_str());
  std::fputs(".SH NAME\ntrovix\\-cli \\- find files by rules on their properties\n.SH SYNOPSIS\n.nf\n", to);
  for (const CommandSpec& c : Commands())
    for (std::string_view line : c.usage) std::fprintf(to, "\\fBtrovix\\-cli\\fR %s\n", Roff(line).c_str());
  std::fputs(".fi\n.SH DESCRIPTION\n", to);
  std::fputs(
      "Trovix finds files by what they are, not only by their names: a list of rules, each on one "
      "property of an item (name, size, dates, kind, contents, photo and music metadata, computed "
      "properties, free\\-form expressions), combined with AND, OR, AND NOT and OR NOT and indent "
      "levels.\n",
      to);
  std::fputs(".SH COMMANDS\n", to);
  for (const CommandSpec& c : Commands()) {
    std::fprintf(to, ".SS %s\n", c.name.empty() ? "Options of every command" : Roff(c.name).c_str());
    if (!c.name.empty()) std::fprintf(to, "%s\n", Roff(c.summary).c_str());
    for (const OptionSpec& o : c.options) {
      std::fputs(".TP\n", to);
      std::string names;
      if (!o.short_name.empty()) names = "\\fB" + Roff(o.short_name) + "\\fR";
      if (!o.long_name.empty()) names += (names.empty() ? "" : ", ") + ("\\fB" + Roff(o.long_name) + "\\fR");
      if (!o.value.empty()) names += " \\fI" + Roff(o.value) + "\\fR";
      std::fprintf(to, "%s\n%s\n", names.c_str(), Roff(o.help).c_str());
    }
    std::string_view notes = c.notes;
    while (!notes.empty()) {
      size_t end = notes.find('\n');
      std::fprintf(to, ".PP\n%s\n", Roff(notes.substr(0, end)).c_str());
      notes = end == std::string_view::npos ? std::string_view() : notes.substr(end + 1);
    }
  }
  std::fputs(
      ".SH EXIT STATUS\n0: something was found; 1: nothing was found; 2: an error (a rule, an option, a "
      "folder that could not be read, output that could not be written).\n"
      ".SH ENVIRONMENT\n.TP\n\\fBNO_COLOR\\fR\nwhen set and not empty, no colours unless "
      "\\fB\\-\\-color always\\fR\n.TP\n\\fBLS_COLORS\\fR\nthe colours of paths, as ls uses them\n"
      ".TP\n\\fBXDG_CONFIG_HOME\\fR, \\fBXDG_CACHE_HOME\\fR\nwhere settings and caches live\n",
      to);
}

// Text inside single quotes of a POSIX shell.
std::string ShellQuoted(std::string_view text) {
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

void Bash(std::FILE* to) {
  std::fputs("# bash completion for trovix-cli\n_trovix_cli() {\n"
             "  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}\n"
             "  local cmd=${COMP_WORDS[1]}\n  if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
             "    COMPREPLY=($(compgen -W \"",
             to);
  for (const CommandSpec& c : Commands())
    if (!c.name.empty() && c.name[0] != '/') std::fprintf(to, "%s ", Str(c.name).c_str());
  for (const OptionSpec& o : Commands()[0].options) std::fprintf(to, "%s ", Str(o.long_name).c_str());
  std::fputs("\" -- \"$cur\"))\n    return\n  fi\n  case \"$cmd:$prev\" in\n", to);
  // Values first: the word after an option that takes one.
  for (const CommandSpec& c : Commands()) {
    for (const OptionSpec& o : c.options) {
      if (o.kind == ValueKind::kNone || o.kind == ValueKind::kCommand) continue;
      // "search:--rules-file|search:-r": the same option name may take different values in
      // different commands.
      const std::string prefix = c.name.empty() ? "*:" : Str(c.name) + ":";
      std::string pattern = prefix + Str(o.long_name);
      if (!o.short_name.empty()) pattern += "|" + prefix + Str(o.short_name);
      std::string action;
      switch (o.kind) {
        case ValueKind::kFile: action = "COMPREPLY=($(compgen -f -- \"$cur\"))"; break;
        case ValueKind::kFolder: action = "COMPREPLY=($(compgen -d -- \"$cur\"))"; break;
        case ValueKind::kChoice:
          action = "COMPREPLY=($(compgen -W " + ShellQuoted(o.choices) + " -- \"$cur\"))";
          break;
        default: action = "COMPREPLY=()"; break;
      }
      std::fprintf(to, "    %s) %s; return ;;\n", pattern.c_str(), action.c_str());
    }
  }
  std::fputs("  esac\n  local opts\n  case \"$cmd\" in\n", to);
  for (const CommandSpec& c : Commands()) {
    if (c.name.empty() || c.name[0] == '/') continue;
    std::fprintf(to, "    %s) opts=\"", Str(c.name).c_str());
    for (const CommandSpec* list : {&c, &Commands()[0]})
      for (const OptionSpec& o : list->options) {
        if (!o.short_name.empty()) std::fprintf(to, "%s ", Str(o.short_name).c_str());
        if (!o.long_name.empty()) std::fprintf(to, "%s ", Str(o.long_name).c_str());
      }
    std::fputs("\" ;;\n", to);
  }
  std::fputs("  esac\n  if [[ \"$cur\" == -* ]]; then\n    COMPREPLY=($(compgen -W \"$opts\" -- \"$cur\"))\n"
             "  else\n    COMPREPLY=($(compgen -f -- \"$cur\"))\n  fi\n}\n"
             "complete -o filenames -F _trovix_cli trovix-cli\n",
             to);
}

// zsh's _arguments specifications need "[", "]" and ":" escaped inside the help text.
std::string ZshHelp(std::string_view text) {
  std::string out;
  for (char c : text) {
    if (c == '[' || c == ']' || c == ':' || c == '\\') out += '\\';
    out += c;
  }
  return out;
}

std::string ZshAction(const OptionSpec& o) {
  switch (o.kind) {
    case ValueKind::kNone: return "";
    case ValueKind::kFile: return ":" + Str(o.value) + ":_files";
    case ValueKind::kFolder: return ":" + Str(o.value) + ":_files -/";
    case ValueKind::kChoice: return ":" + Str(o.value) + ":(" + Str(o.choices) + ")";
    case ValueKind::kCommand: return ":command:_command_names -e";
    default: return ":" + Str(o.value) + ": ";
  }
}

void Zsh(std::FILE* to) {
  std::fputs("#compdef trovix-cli\n# zsh completion for trovix-cli\n_trovix_cli() {\n  local -a commands\n"
             "  commands=(\n",
             to);
  for (const CommandSpec& c : Commands())
    if (!c.name.empty() && c.name[0] != '/')
      std::fprintf(to, "    %s\n", ShellQuoted(Str(c.name) + ":" + ZshHelp(c.summary)).c_str());
  std::fputs("  )\n  if (( CURRENT == 2 )); then\n    _describe 'command' commands\n    return\n  fi\n"
             "  local cmd=$words[2]\n  shift words\n  (( CURRENT-- ))\n  case $cmd in\n",
             to);
  for (const CommandSpec& c : Commands()) {
    if (c.name.empty() || c.name[0] == '/') continue;
    std::fprintf(to, "    %s)\n      _arguments -s \\\n", Str(c.name).c_str());
    for (const CommandSpec* list : {&c, &Commands()[0]})
      for (const OptionSpec& o : list->options)
        for (std::string_view name : {o.short_name, o.long_name}) {
          if (name.empty()) continue;
          std::string spec = "*" + Str(name) + "[" + ZshHelp(o.help) + "]" + ZshAction(o);
          std::fprintf(to, "        %s \\\n", ShellQuoted(spec).c_str());
        }
    std::fputs("        '*:file:_files'\n      ;;\n", to);
  }
  std::fputs("  esac\n}\n_trovix_cli \"$@\"\n", to);
}

// fish: single-quoted text escapes only the quote and the backslash.
std::string FishQuoted(std::string_view text) {
  std::string out = "'";
  for (char c : text) {
    if (c == '\'' || c == '\\') out += '\\';
    out += c;
  }
  return out + "'";
}

void Fish(std::FILE* to) {
  std::fputs("# fish completion for trovix-cli\ncomplete -c trovix-cli -f\n", to);
  std::string all_commands;
  for (const CommandSpec& c : Commands()) {
    if (c.name.empty() || c.name[0] == '/') continue;
    all_commands += (all_commands.empty() ? "" : " ") + Str(c.name);
    std::fprintf(to, "complete -c trovix-cli -n __fish_use_subcommand -a %s -d %s\n", Str(c.name).c_str(),
                 FishQuoted(c.summary).c_str());
  }
  for (const CommandSpec& c : Commands()) {
    if (!c.name.empty() && c.name[0] == '/') continue;
    const std::string condition = c.name.empty() ? "" : "-n '__fish_seen_subcommand_from " + Str(c.name) + "' ";
    for (const OptionSpec& o : c.options) {
      std::string line = "complete -c trovix-cli " + condition;
      if (!o.short_name.empty()) line += "-s " + Str(o.short_name.substr(1)) + " ";
      if (!o.long_name.empty()) line += "-l " + Str(o.long_name.substr(2)) + " ";
      if (o.kind == ValueKind::kFile || o.kind == ValueKind::kFolder) line += "-r -F ";
      else if (o.kind == ValueKind::kChoice) line += "-x -a " + FishQuoted(o.choices) + " ";
      else if (o.kind == ValueKind::kCommand) line += "-x -a '(__fish_complete_command)' ";
      else if (o.kind != ValueKind::kNone) line += "-x ";
      line += "-d " + FishQuoted(o.help);
      std::fprintf(to, "%s\n", line.c_str());
    }
  }
  // Roots and files are what search, explain, props and text take as plain arguments.
  std::fputs("complete -c trovix-cli -n '__fish_seen_subcommand_from search explain props text' -F\n", to);
}

}  // namespace

bool WriteGenerated(std::string_view kind, std::FILE* to) {
  if (kind == "man") Man(to);
  else if (kind == "bash") Bash(to);
  else if (kind == "zsh") Zsh(to);
  else if (kind == "fish") Fish(to);
  else return false;
  return true;
}

}  // namespace trovix::cli
