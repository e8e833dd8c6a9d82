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
#include "engine/own_properties.h"
#include "props/catalogue.h"
#include "props/fetcher.h"
#include "props/shell_item.h"
#include "rules/value_format.h"

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
  engine::InstallOwnPropertySource();
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
    for (const auto& e : cat.entries()) {
      // Contents are text, not a property value; "Find" and "Complex" have no value per item.
      if (e->name == "System.Search.Contents") continue;
      const props::CachedValue* node = props::GetCachedValue(*item, *e);
      if (node == nullptr || node->value.IsEmpty()) continue;
      const std::string text = rules::DisplayValue(*e, node->value);
      if (json) {
        std::string line = "{\"name\":";
        AppendJsonString(line, e->name);
        line += ",\"label\":";
        AppendJsonString(line, e->label);
        line += ",\"text\":";
        AppendJsonString(line, text);
        line += ",\"value\":";
        AppendJsonValue(line, node->value);
        if (files.size() > 1) {
          line += ",\"file\":";
          AppendJsonString(line, file);
        }
        line += "}\n";
        std::fputs(line.c_str(), stdout);
      } else {
        std::printf("%s\t%s\t%s\n", e->name.c_str(), e->label.c_str(), text.c_str());
      }
    }
  }
  return status;
}

}  // namespace trovix::cli
