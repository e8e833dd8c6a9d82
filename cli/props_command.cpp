// trovix-cli props: the property catalogue, or the properties of files.
//   props [all]                       the catalogue (filtered, or every property)
//   props FILE... [--json] [--all]    every property the file has a value for:
//                                     NAME<TAB>LABEL<TAB>TEXT lines, or one JSON object per
//                                     line {"name", "label", "text", "value"}
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "base/file_time.h"
#include "cli/json_text.h"
#include "cli/search_command.h"
#include "engine/own_properties.h"
#include "props/catalogue.h"
#include "props/fetcher.h"
#include "props/shell_item.h"

namespace trovix::cli {
namespace {

// The typed value for JSON: numbers as numbers, booleans as true/false, vectors as arrays,
// dates as ISO 8601 UTC ending in "Z". Durations are plain numbers (100 ns ticks).
void AppendJsonValue(std::string& out, const props::PropValue& v) {
  const uint16_t tag = v.tag();
  if (v.IsVector()) {
    out += '[';
    bool first = true;
    for (const std::string& t : v.texts()) {
      if (!first) out += ',';
      AppendJsonString(out, t);
      first = false;
    }
    for (double d : v.doubles()) {
      if (!first) out += ',';
      out += std::isfinite(d) ? std::to_string(d) : "null";
      first = false;
    }
    out += ']';
    return;
  }
  switch (tag) {
    case props::VT_LPWSTR:
      AppendJsonString(out, v.text());
      return;
    case props::VT_BOOL:
      out += v.AsInt64() != 0 ? "true" : "false";
      return;
    case props::VT_R4:
    case props::VT_R8: {
      char buf[40];
      std::snprintf(buf, sizeof buf, "%.17g", v.AsDouble());
      out += std::isfinite(v.AsDouble()) ? buf : "null";
      return;
    }
    case props::VT_FILETIME: {
      const base::CivilTime c = base::CivilFromFileTime(v.AsInt64());
      char buf[40];
      std::snprintf(buf, sizeof buf, "\"%04d-%02d-%02dT%02d:%02d:%02d", c.year, c.month, c.day, c.hour, c.minute,
                    c.second);
      out += buf;
      if (c.millisecond) {
        std::snprintf(buf, sizeof buf, ".%03d", c.millisecond);
        out += buf;
      }
      out += "Z\"";
      return;
    }
    case props::VT_UI8:
    case props::VT_UI4:
    case props::VT_UI2:
    case props::VT_UI1:
    case props::VT_UINT:
      out += std::to_string(static_cast<uint64_t>(v.AsInt64()));
      return;
    default:
      out += std::to_string(v.AsInt64());
      return;
  }
}

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
      std::fprintf(stderr, "trovix-cli: unknown option %s for props (trovix-cli --help)\n", a.c_str());
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
      const std::string text = node->value.ToDisplayText();
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
