// `trovix-cli plugins`: what the configured content plugins offer and what they answer for a
// file. Every plugin runs in the plugin host, as in a search; a plugin that crashes or hangs
// costs its value here too, and the line says so.
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "base/ascii.h"
#include "cli/cli_store.h"
#include "cli/commands/store_commands.h"
#include "cli/item_path.h"
#include "cli/output/terminal_text.h"
#include "platform/plugin_protocol.h"
#include "props/plugins/plugin_columns.h"
#include "props/plugins/plugin_values.h"

namespace trovix::cli {
namespace {

const char* TypeName(int32_t type) {
  switch (type) {
    case plugin::kFtNumeric32: return "32-bit number";
    case plugin::kFtNumeric64: return "64-bit number";
    case plugin::kFtNumericFloating: return "floating number";
    case plugin::kFtBoolean: return "boolean";
    case plugin::kFtMultipleChoice: return "multiple choice";
    case plugin::kFtString: return "string";
    case plugin::kFtDateTime: return "date and time";
    case plugin::kFtStringW: return "wide string";
    default: return "other";
  }
}

int Usage() {
  std::fprintf(stderr, "usage: trovix-cli plugins list | fields NAME | test NAME FILE\n");
  return 2;
}

// The plugin a user names: its name (the library's file name up to its first period, in any
// case) or its number in the configuration.
props::PluginColumnProvider* FindPlugin(const std::string& name) {
  for (const auto& provider : props::ColumnProviders()) {
    const props::ContentPlugin& p = provider->plugin();
    if (std::to_string(p.index) == name || AsciiEqualsNoCase(p.name, name)) return provider.get();
  }
  std::fprintf(stderr, "trovix-cli: no content plugin named \"%s\" is configured (trovix-cli plugins list)\n",
               name.c_str());
  return nullptr;
}

// One line per plugin: number, name, what it offers, detect string, library.
int List() {
  for (const auto& provider : props::ColumnProviders()) {
    const props::ContentPlugin& p = provider->plugin();
    const props::PluginFieldList& fields = provider->Fields();
    std::string offers = fields.loaded ? std::to_string(fields.fields.size()) + " fields" : "not loaded: " + fields.error;
    if (fields.full_text) offers += ", full text";
    const std::string& detect = p.detect_text.empty() ? fields.detect : p.detect_text;
    std::printf("%u\t%s\t%s\t%s\t%s\n", p.index, p.name.c_str(), offers.c_str(), detect.c_str(),
                p.library_path.c_str());
  }
  return 0;
}

// One line per field: its number, the property name rules use, its type and its units.
int Fields(props::PluginColumnProvider& provider) {
  const props::PluginFieldList& fields = provider.Fields();
  if (!fields.loaded) {
    std::fprintf(stderr, "trovix-cli: the plugin %s cannot be used: %s\n", provider.plugin().name.c_str(),
                 fields.error.c_str());
    return 2;
  }
  for (const plugin::PluginField& f : fields.fields)
    std::printf("%d\t%s\t%s\t%s\n", f.index, props::PluginCanonicalName(f.name, provider.plugin().name).c_str(),
                TypeName(f.type), f.units.c_str());
  if (fields.full_text) std::printf("%u\t(full text)\n", fields.full_text - 1);
  return 0;
}

// One line per field: the property name and the value as a column shows it, or why there is
// none; then how much full text the plugin gave.
int Test(props::PluginColumnProvider& provider, const std::string& file) {
  std::string error;
  props::ShellItemPtr item = ResolveItemPath(file, &error);
  if (!item || !item->IsFileSystem() || item->Status() == nullptr) {
    std::fprintf(stderr, "trovix-cli: %s\n", error.empty() ? ("cannot read \"" + file + "\"").c_str() : error.c_str());
    return 2;
  }
  const props::PluginFieldList& fields = provider.Fields();
  if (!fields.loaded) {
    std::fprintf(stderr, "trovix-cli: the plugin %s cannot be used: %s\n", provider.plugin().name.c_str(),
                 fields.error.c_str());
    return 2;
  }
  if (!provider.Detects(*item)) {
    std::printf("(the plugin's detect string does not take this file)\n");
    return 1;
  }
  props::PluginHostClient& host = *props::SharedPluginHost();
  const bool terminal = isatty(STDOUT_FILENO) != 0;
  bool any = false;
  for (const plugin::PluginField& f : fields.fields) {
    props::PropValue value;
    const props::PluginOutcome outcome =
        host.Value(provider.plugin().library_path, f.index, f.type, item->path(), &value);
    std::string text;
    if (outcome.status == S_OK) {
      text = value.ToDisplayText();
      any = true;
    } else {
      text = outcome.message.empty() ? "(no value)" : "(" + outcome.message + ")";
    }
    std::printf("%s\t%s\n", props::PluginCanonicalName(f.name, provider.plugin().name).c_str(),
                ColumnValue(text, terminal).c_str());
  }
  if (fields.full_text) {
    uint64_t bytes = 0;
    const props::PluginOutcome outcome = provider.FullText(*item, 10'000'000, [&](const std::string& piece) {
      bytes += piece.size();
      return true;
    });
    std::printf("(full text)\t%llu bytes%s\n", static_cast<unsigned long long>(bytes),
                outcome.status == S_OK || outcome.status == S_FALSE ? "" : (" (" + outcome.message + ")").c_str());
    any = any || bytes > 0;
  }
  return any ? 0 : 1;
}

}  // namespace

int RunPluginsCommand(const std::vector<std::string>& args) {
  if (args.empty()) return Usage();
  // The settings name the plugins.
  (void)LoadedSettings();
  if (props::ColumnProviders().empty()) {
    std::fprintf(stderr, "trovix-cli: no content plugins are configured (section ContentPlugins of the settings)\n");
    return 1;
  }
  const std::string& what = args[0];
  int status = 2;
  if (what == "list" && args.size() == 1) {
    status = List();
  } else if (what == "fields" && args.size() == 2) {
    if (props::PluginColumnProvider* p = FindPlugin(args[1])) status = Fields(*p);
  } else if (what == "test" && args.size() == 3) {
    if (props::PluginColumnProvider* p = FindPlugin(args[1])) status = Test(*p, args[2]);
  } else {
    return Usage();
  }
  return std::fflush(stdout) == 0 ? status : 2;
}

}  // namespace trovix::cli
