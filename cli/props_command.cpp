// trovix-cli props: the property catalogue, or the properties of files.
//   props [all]                       the catalogue (filtered, or every property)
//   props FILE... [--json] [--all]    every property the file has a value for:
//                                     NAME<TAB>LABEL<TAB>TEXT lines, or one JSON object per
//                                     line {"name", "label", "text", "value"}
#include <cstdio>
#include <string>
#include <vector>

#include "cli/command_table.h"
#include "cli/json_text.h"
#include "cli/search_command.h"
#include "engine/property_listing.h"
#include "props/catalogue.h"
#include "props/shell_item.h"

namespace trovix::cli {
namespace {

int PrintCatalogue(bool all) {
  const props::Catalogue& cat = all ? props::AllPropertiesCatalogue() : props::DefaultCatalogue();
  std::printf("name\tlabel\ttype\tflags\n");
  for (const auto& e : cat.entries())
    std::printf("%s\t%s\t%u\t0x%04X\n", e->name.c_str(), e->label.c_str(), e->var_type(), e->flags());
  return 0;
}

}  // namespace

int RunPropsCommand(const std::vector<std::string>& args) {
  if (args.empty() || (args.size() == 1 && args[0] == "all")) return PrintCatalogue(!args.empty());
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
  if (files.empty()) return PrintCatalogue(all);
  const props::Catalogue& cat = all ? props::AllPropertiesCatalogue() : props::DefaultCatalogue();
  int status = 0;
  for (const std::string& file : files) {
    props::ShellItemPtr item = props::ShellItem::FromPath(file);
    if (!item || item->Status() == nullptr) {
      std::fprintf(stderr, "trovix-cli: cannot read \"%s\"\n", file.c_str());
      status = 2;
      continue;
    }
    if (files.size() > 1 && !json) std::printf("%s%s:\n", &file == &files.front() ? "" : "\n", file.c_str());
    for (const engine::PropertyText& p : engine::ListProperties(*item, cat)) {
      if (json) {
        std::string line = "{\"name\":";
        AppendJsonString(line, p.property->name);
        line += ",\"label\":";
        AppendJsonString(line, p.property->label);
        line += ",\"text\":";
        AppendJsonString(line, p.text);
        line += ",\"value\":";
        AppendJsonValue(line, p.value);
        if (files.size() > 1) {
          line += ",\"file\":";
          AppendJsonString(line, file);
        }
        line += "}\n";
        std::fputs(line.c_str(), stdout);
      } else {
        std::printf("%s\t%s\t%s\n", p.property->name.c_str(), p.property->label.c_str(), p.text.c_str());
      }
    }
  }
  return status;
}

}  // namespace trovix::cli
