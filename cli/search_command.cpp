#include "cli/search_command.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <csignal>
#include <thread>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "cli/cli_store.h"
#include "cli/number_option.h"
#include "cli/output_sink.h"
#include "cli/rule_builder.h"
#include "engine/folder_walk.h"
#include "engine/search_job.h"
#include "props/catalogue.h"

namespace trovix::cli {
namespace {

struct SearchArgs {
  std::vector<std::string> roots;
  std::vector<rules::RulePtr> rules;
  OutputOptions output;
  engine::SearchRequest request;
  bool progress_asked = false;
};

std::vector<std::string> SplitCommas(const std::string& text) {
  std::vector<std::string> parts;
  size_t start = 0;
  while (start <= text.size()) {
    size_t comma = text.find(',', start);
    std::string piece = text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    if (!piece.empty()) parts.push_back(piece);
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  return parts;
}

bool ResolveProperties(const std::string& list, std::vector<const props::PropertyInfo*>* out, std::string* error) {
  for (const std::string& name : SplitCommas(list)) {
    if (name == kExcerptColumn) {
      out->push_back(nullptr);
      continue;
    }
    const props::PropertyInfo* p = props::DefaultCatalogue().Resolve(name);
    if (!p) p = props::AllPropertiesCatalogue().Resolve(name);
    if (!p) {
      *error = "unknown property \"" + name + "\" (trovix-cli props lists them)";
      return false;
    }
    out->push_back(p);
  }
  return true;
}

// Parses the options of `search` and `explain`; options and roots come in any order.
bool ParseSearchArgs(const std::vector<std::string>& args, SearchArgs* s, std::string* error) {
  std::string sort_list;
  bool descending = false;
  std::optional<std::string> saved_root;
  // Reading folders on every core is free of risk: the order of results never depends on
  // the number of reading threads.
  s->request.threads = static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1u, 8u));
  // The settings in use (--settings) say how documents are read; options below override them.
  if (const auto& settings = LoadedSettings()) {
    s->request.contents.grep_exclude_types = settings->szGrepExcludeTypes;
    s->request.contents.max_stream_extract_size = settings->nMaxStreamExtractSize;
    s->request.contents.bin_search_flags = settings->binSearchFlags;
    s->request.bin_search_flags = settings->binSearchFlags;
    s->request.contents_advice_suppressed = (settings->bin1OffNotify & engine::kNotifyNoReaderAdvice) != 0;
    s->request.simple_property_list = settings->szSimplePropertyList;
  }
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&](std::string* out) {
      if (i + 1 >= args.size()) {
        *error = "option " + a + " needs a value";
        return false;
      }
      *out = args[++i];
      return true;
    };
    std::string v;
    if (a == "-r" || a == "--rule") {
      if (!value(&v) || !AddRuleLine(v, &s->rules, error)) return false;
    } else if (a == "-e" || a == "--expression") {
      if (!value(&v) || !AddExpression(v, &s->rules, error)) return false;
    } else if (a == "--rules-file") {
      if (!value(&v) || !AddRulesFile(v, &s->rules, error)) return false;
    } else if (a == "--saved") {
      if (!value(&v) || !LoadSavedSearchRules(v, &s->rules, &saved_root, error)) return false;
    } else if (a == "-0" || a == "--null") {
      s->output.format = OutputFormat::kNulPaths;
    } else if (a == "--json") {
      s->output.format = OutputFormat::kJson;
    } else if (a == "--columns") {
      if (!value(&v) || !ResolveProperties(v, &s->output.columns, error)) return false;
      if (s->output.format == OutputFormat::kPaths) s->output.format = OutputFormat::kColumns;
    } else if (a == "--sort") {
      if (!value(&sort_list)) return false;
    } else if (a == "--desc") {
      descending = true;
    } else if (a == "--limit") {
      long long n = 0;
      if (!value(&v) || !ParseNumberOption(a, v, 0, INT64_MAX, &n, error)) return false;
      s->output.limit = n;
    } else if (a == "--hidden") {
      s->request.bin_flags |= engine::kFlagSearchHidden;
    } else if (a == "--no-subfolders") {
      s->request.bin_search_flags |= engine::kSearchFlagNoSubfolders;
    } else if (a == "--follow-links") {
      s->request.bin_flags |= engine::kFlagFollowLinks;
    } else if (a == "--virtual-folders") {
      s->request.bin_flags |= engine::kFlagEnterVirtualFolders;
    } else if (a == "--exclude-types") {
      if (!value(&s->request.contents.grep_exclude_types)) return false;
    } else if (a == "--max-extract-size") {
      long long n = 0;
      if (!value(&v) || !ParseNumberOption(a, v, 0, UINT32_MAX, &n, error)) return false;
      s->request.contents.max_stream_extract_size = static_cast<uint32_t>(n < 10'000 ? 0 : n);
    } else if (a == "--threads") {
      long long n = 0;
      if (!value(&v) || !ParseNumberOption(a, v, 1, 64, &n, error)) return false;
      s->request.threads = static_cast<int>(n);
    } else if (a == "--ordered") {
      s->request.sort_names = true;
    } else if (a == "--progress") {
      s->progress_asked = true;
    } else if (a.size() > 1 && a[0] == '-') {
      *error = "unknown option " + a + " (trovix-cli --help)";
      return false;
    } else {
      s->roots.push_back(a);
    }
  }
  // A saved search's own root is where it runs unless roots are given.
  if (s->roots.empty() && saved_root) s->roots.push_back(*saved_root);
  if (!sort_list.empty()) {
    std::vector<const props::PropertyInfo*> keys;
    if (!ResolveProperties(sort_list, &keys, error)) return false;
    s->output.sort = true;
    for (const auto* p : keys) s->output.sort_options.keys.push_back({p, !descending});
    s->output.sort_options.name_ascending = !descending;
    s->output.sort_options.natural_numbers = true;
  } else if (descending) {
    s->output.sort = true;
    s->output.sort_options.name_ascending = false;
  }
  s->output.progress = s->progress_asked || isatty(STDERR_FILENO);
  return true;
}

volatile std::sig_atomic_t g_interrupted = 0;

void OnInterrupt(int) { g_interrupted = 1; }

// While a search runs, SIGINT and SIGTERM only raise a flag that the waiting thread turns
// into a stop request; afterwards they act as usual again.
void CatchInterrupts(bool catching) {
  struct sigaction action {};
  action.sa_handler = catching ? OnInterrupt : SIG_DFL;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

std::string CurrentFolder() {
  std::error_code ec;
  auto p = std::filesystem::current_path(ec);
  return ec ? std::string("/") : p.string();
}

std::string JoinRoots(const std::vector<std::string>& roots) {
  std::string text;
  for (const auto& r : roots) text += (text.empty() ? "" : "|") + r;
  return text;
}

int Search(SearchArgs& s) {
  s.request.rules = s.rules;
  s.request.root_text = JoinRoots(s.roots);
  s.request.default_root = CurrentFolder();
  OutputSink sink(s.output, stdout, stderr);
  engine::SearchPanel panel(sink);
  sink.set_panel(&panel);
  switch (panel.StartOrStop(s.request)) {
    case engine::StartOutcome::kStarted:
      break;
    case engine::StartOutcome::kExplained:
      std::fputs(panel.detective_report().text.c_str(), stdout);
      return panel.detective_report().found ? 0 : 1;
    case engine::StartOutcome::kNothing:
      return 1;
    default:
      std::fprintf(stderr, "trovix-cli: %s\n", panel.error().c_str());
      return 2;
  }
  // Ctrl+C (or a polite kill) stops the search like the Stop button: what was found so far
  // is still printed, none of it is lost in an output buffer.
  CatchInterrupts(true);
  for (int wait_ms = 1; panel.running(); wait_ms = std::min(wait_ms * 2, 20)) {
    if (g_interrupted) panel.RequestStop();
    std::this_thread::sleep_for(std::chrono::milliseconds(wait_ms));
  }
  panel.Wait();
  CatchInterrupts(false);
  sink.Finish();
  // The desktop program's advice box has a check box that silences it; here the setting is named.
  if (!sink.advice().empty())
    std::fprintf(stderr, "trovix-cli: %s (trovix-cli settings set bin1OffNotify 2 silences this)\n",
                 sink.advice().c_str());
  if (s.output.progress) std::fprintf(stderr, "%lld item(s) found\n", static_cast<long long>(sink.printed()));
  return sink.printed() > 0 ? 0 : 1;
}

}  // namespace

void PrintUsage(std::FILE* to) {
  std::fputs(
      "usage: trovix-cli search [ROOT]... [options]\n"
      "       trovix-cli explain FILE [-r RULE]...\n"
      "       trovix-cli props [all] | props FILE... [--json] [--all]\n"
      "       trovix-cli text FILE [--excerpt N] [--term TEXT]\n"
      "       trovix-cli saved list | show NAME | delete NAME\n"
      "       trovix-cli saved save NAME [--root ROOT] [--copy] -r RULE...\n"
      "       trovix-cli saved run NAME [ROOT] [options]\n"
      "       trovix-cli settings path | list | get NAME | set NAME VALUE\n"
      "       trovix-cli /C /G:NAME [/I:SETTINGS] [ROOT]\n"
      "\n"
      "A RULE is [and|or|and not|or not] [>...] PROPERTY: VALUE, e.g. -r \"size: > 50 KB\".\n"
      "Several ROOTs are searched in order; with none, the current folder.\n"
      "\n"
      "  -r, --rule RULE       add a rule (repeatable, in order)\n"
      "  -e, --expression EXPR add a free-form expression rule\n"
      "  --rules-file FILE     one RULE per line; blank lines and # comments ignored\n"
      "  --saved NAME          add the rules of a saved search (and its root when none is given)\n"
      "  --settings PATH       (any command) the settings file to use, as /I: does\n"
      "  -0, --null            NUL-separated paths\n"
      "  --columns P1,P2       tab-separated columns with a header row\n"
      "  --json                one JSON object per line (bytes that are not UTF-8 as \\udcXX)\n"
      "  --sort P1,P2, --desc  sort the results; --limit N shows at most N\n"
      "  --hidden --no-subfolders --follow-links\n"
      "  --virtual-folders     enter archives (zip, tar, 7z, cpio, iso) as folders\n"
      "  --exclude-types LIST  extensions never searched for contents (\"log,tmp\")\n"
      "  --max-extract-size N  read archive members' contents up to N bytes (under 10000: never)\n"
      "  --columns ...,excerpt the column \"excerpt\" shows where a contents rule found its text\n"
      "  --threads N           folders read at the same time (default: one per core, at most 8)\n"
      "  --ordered             each folder's items in name order: the same order on every run\n"
      "  --progress            show progress on stderr (the default on a terminal)\n"
      "\n"
      "Exit status: 0 found, 1 nothing found, 2 error.\n",
      to);
}

int RunSearchCommand(const std::vector<std::string>& args) {
  SearchArgs s;
  std::string error;
  if (!ParseSearchArgs(args, &s, &error)) {
    std::fprintf(stderr, "trovix-cli: %s\n", error.c_str());
    return 2;
  }
  return Search(s);
}

int RunExplainCommand(const std::vector<std::string>& args) {
  SearchArgs s;
  std::string error;
  if (!ParseSearchArgs(args, &s, &error)) {
    std::fprintf(stderr, "trovix-cli: %s\n", error.c_str());
    return 2;
  }
  if (s.roots.size() != 1) {
    std::fprintf(stderr, "trovix-cli: explain needs exactly one FILE\n");
    return 2;
  }
  engine::ParsedRoots parsed = engine::ParseRootText(s.roots[0], CurrentFolder());
  if (parsed.roots.empty() || !parsed.single_file) {
    std::fprintf(stderr, "trovix-cli: \"%s\" is not a file\n", s.roots[0].c_str());
    return 2;
  }
  return Search(s);
}

int RunDefaultSearch() {
  return RunSearchCommand({"-r", "System.DateModified: this week", "--sort", "System.DateModified", "--desc",
                           "--limit", "100"});
}

}  // namespace trovix::cli
