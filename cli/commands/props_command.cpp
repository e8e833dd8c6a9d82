// trovix-cli props: the property catalogue, or the properties of files.
//   props [all]                       the catalogue (filtered, or every property), with the
//                                     everyday words that name a property as well
//   props FILE... [--json] [--all]    every property the file (or archive member) has a value
//                                     for: NAME<TAB>LABEL<TAB>TEXT lines, or one JSON object per
//                                     property {"name", "label", "text", "value"} ("file" too
//                                     when several files are asked for)
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cli/cli_store.h"
#include "cli/commands/command_table.h"
#include "cli/item_path.h"
#include "cli/output/json_text.h"
#include "cli/commands/search_command.h"
#include "cli/output/terminal_text.h"
#include "engine/results/property_listing.h"
#include "props/catalogue.h"
#include "props/shell_item.h"

namespace trovix::cli {
namespace {

// The words of the common-word table that name `name`, comma-separated.
std::string WordsFor(const std::string& name) {
  std::string words;
  for (const props::CommonWord& w : props::CommonWords())
    if (w.name == name) words += (words.empty() ? "" : ",") + std::string(w.word);
  return words;
}

int PrintCatalogue(bool all, bool terminal) {
  const props::Catalogue& cat = all ? props::AllPropertiesCatalogue() : props::DefaultCatalogue();
  std::string out = "name\tlabel\ttype\tflags\twords\n";
  for (const auto& e : cat.entries()) {
    char numbers[32];
    std::snprintf(numbers, sizeof numbers, "\t%u\t0x%04X\t", e->var_type(), e->flags());
    out += ColumnValue(e->name, terminal) + "\t" + ColumnValue(e->label, terminal) + numbers + WordsFor(e->name) + "\n";
  }
  std::fwrite(out.data(), 1, out.size(), stdout);
  return 0;
}

// Ends the command's output: a reader that went away (| head) is no error.
int Finish(int status) {
  if (std::fflush(stdout) == 0 || errno == EPIPE) return status;
  std::fprintf(stderr, "trovix-cli: cannot write the properties: %s\n", std::strerror(errno));
  return 2;
}

}  // namespace

int RunPropsCommand(const std::vector<std::string>& args) {
  // Values are whatever the file says about itself (a title, a comment, a tag): on a terminal
  // they are shown escaped as names are.
  const bool terminal = isatty(STDOUT_FILENO) != 0;
  // The settings name the content plugins, whose fields join the catalogue when it is built.
  (void)LoadedSettings();
  if (args.empty() || (args.size() == 1 && args[0] == "all")) return Finish(PrintCatalogue(!args.empty(), terminal));
  bool json = false, all = false;
  std::vector<std::string> files;
  for (const std::string& a : args) {
    if (a == "--json") json = true;
    else if (a == "--all") all = true;
    else if (a.size() > 1 && a[0] == '-') {
      std::fprintf(stderr, "trovix-cli: %s\n", UnknownOptionMessage(*FindCommand("props"), a).c_str());
      return 2;
    } else files.push_back(a);
  }
  if (files.empty()) return Finish(PrintCatalogue(all, terminal));
  const props::Catalogue& cat = all ? props::AllPropertiesCatalogue() : props::DefaultCatalogue();
  int status = 0;
  for (const std::string& file : files) {
    std::string error;
    props::ShellItemPtr item = ResolveItemPath(file, &error);
    if (!item || (item->IsFileSystem() && item->Status() == nullptr)) {
      if (error.empty()) error = "cannot read \"" + file + "\"";
      std::fprintf(stderr, "trovix-cli: %s\n", (isatty(STDERR_FILENO) ? TerminalSafe(error) : error).c_str());
      status = 2;
      continue;
    }
    std::string out;
    if (files.size() > 1 && !json) out += (&file == &files.front() ? "" : "\n") + ColumnValue(file, terminal) + ":\n";
    for (const engine::PropertyText& p : engine::ListProperties(*item, cat)) {
      if (json) {
        out += "{\"name\":";
        AppendJsonString(out, p.property->name);
        out += ",\"label\":";
        AppendJsonString(out, p.property->label);
        out += ",\"text\":";
        AppendJsonString(out, p.text);
        out += ",\"value\":";
        AppendJsonValue(out, p.value);
        if (files.size() > 1) {
          out += ",\"file\":";
          AppendJsonString(out, file);
        }
        out += "}\n";
      } else {
        out += p.property->name + "\t" + ColumnValue(p.property->label, terminal) + "\t" +
               ColumnValue(p.text, terminal) + "\n";
      }
    }
    if (std::fwrite(out.data(), 1, out.size(), stdout) != out.size()) break;
  }
  return Finish(status);
}

}  // namespace trovix::cli
