#include "cli/commands/search_command.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdint>
#include <optional>
#include <thread>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "app/request_settings.h"
#include "cli/cli_store.h"
#include "cli/commands/command_table.h"
#include "cli/exec_runner.h"
#include "cli/options/fd_options.h"
#include "cli/commands/index_command.h"
#include "cli/index_note_memory.h"
#include "cli/options/option_ids.h"
#include "cli/options/option_reader.h"
#include "cli/options/number_option.h"
#include "cli/output/output_sink.h"
#include "cli/rule_builder.h"
#include "cli/rule_listing.h"
#include "cli/output/terminal_text.h"
#include "engine/walk/folder_walk.h"
#include "engine/walk/ignore_patterns.h"
#include "engine/walk/ignore_pruner.h"
#include "index/index_route.h"
#include "index/postgres/pg_index_route.h"
#include "engine/volume/ntfs_volume_route.h"
#include "engine/search/search_panel.h"
#include "engine/volume/volume_table_scan.h"
#include "platform/stop_signals.h"
#include "props/catalogue.h"

namespace trovix::cli {
namespace {

struct SearchArgs {
  std::vector<std::string> roots;       // as given, each one literal
  std::vector<std::string> root_texts;  // --roots: "|"-joined root texts
  std::vector<rules::RulePtr> rules;
  OutputOptions output;
  engine::SearchRequest request;
  TypeFilter type_filter;
  std::vector<std::string> excludes;
  std::vector<std::string> exec_command;
  bool exec_batch = false;
  int max_depth = -1;
  int min_depth = 0;
  bool ignore_vcs = false;
  bool one_file_system = false;
  bool offline = false;  // --offline: the catalogues of drives not mounted are the roots
  bool quiet = false;
  bool no_messages = false;
  bool literal = false;
  bool show_rules = false;
  bool no_warnings = false;
  bool help = false;
  bool explain = false;  // the explain command: the rule list always, on stdout
  std::string color = "auto";
  bool progress_asked = false;
  std::string volume_image;  // --volume-image: the file table of this image is searched instead
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
    const props::PropertyInfo* p = ResolvePropertyName(name, error);
    if (!p) return false;
    out->push_back(p);
  }
  return true;
}

// fd's short options take their values attached and stand together: "-tf", "-d1", "-d=1",
// "-HLtf". Such a word becomes the options and the value it holds, as separate words; the
// command of --exec and every option's own value are left as they are.
std::vector<std::string> SplitShortOptions(const CommandSpec& command, const std::vector<std::string>& args) {
  std::vector<std::string> out;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    const std::string name = a.rfind("--", 0) == 0 ? a.substr(0, a.find('=')) : a;
    const OptionSpec* option = a.size() > 1 && a[0] == '-' ? FindOption(command, name) : nullptr;
    if (option != nullptr) {
      out.push_back(a);
      if (option->kind == ValueKind::kCommand) {
        out.insert(out.end(), args.begin() + static_cast<std::ptrdiff_t>(i) + 1, args.end());
        return out;
      }
      if (!option->value.empty() && name == a && i + 1 < args.size()) out.push_back(args[++i]);
      continue;
    }
    std::vector<std::string> pieces;
    bool value_follows = false;  // the last piece takes the next word as its value
    bool split = a.size() > 2 && a[0] == '-' && a[1] != '-';
    for (size_t k = 1; split && k < a.size(); ++k) {
      const OptionSpec* letter = FindOption(command, std::string{'-', a[k]});
      if (letter == nullptr || letter->kind == ValueKind::kCommand) {
        split = false;
      } else if (letter->value.empty()) {
        pieces.push_back(std::string{'-', a[k]});
      } else {
        pieces.push_back(std::string{'-', a[k]});
        std::string value = a.substr(k + 1);
        if (!value.empty() && value[0] == '=') value.erase(0, 1);
        if (value.empty()) value_follows = true;
        else pieces.push_back(value);
        break;
      }
    }
    if (!split) {
      out.push_back(a);
      continue;
    }
    out.insert(out.end(), pieces.begin(), pieces.end());
    if (value_follows && i + 1 < args.size()) out.push_back(args[++i]);
  }
  return out;
}

// fd's -e is --ext; here it is the expression option. A bare word that is no expression was
// most likely meant as an extension.
bool LooksLikeExtension(const std::string& text) {
  std::string_view word = text;
  if (!word.empty() && word[0] == '.') word.remove_prefix(1);
  return !word.empty() && word.size() <= 16 &&
         std::all_of(word.begin(), word.end(), [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; });
}

// A name rule that every item satisfies: a name of at least one character.
constexpr const char* kEveryNameRule = "System.ItemNameDisplay: =?*";

// What the options gather on the way that becomes rules and output settings only at the end.
struct PendingOptions {
  std::string sort_list;
  bool descending = false;
  std::optional<std::string> saved_root;
  std::vector<std::string> fd_rule_lines;  // joined to the user's rules with AND, after them
  std::vector<std::string> extension_lines;
};

// Each group of options below answers whether the option was its own.
enum class Taken { kNo, kYes, kFailed };

Taken Yes(bool ok) { return ok ? Taken::kYes : Taken::kFailed; }

// The options that add rules: rule lines, expressions, files of rules, saved searches, and the
// fd-style filters that become rules.
Taken TakeRuleOption(const OptionItem& item, OptionReader& reader, SearchArgs* s, PendingOptions* pending,
                     std::string* error) {
  const std::string& v = item.value;
  std::string line;
  switch (item.option->id) {
    case kOptRule:
      if (!AddRuleLine(v, &s->rules, error)) {
        // -r name: *.txt, unquoted: the shell made two words of it, and the value became a root.
        const size_t last = v.find_last_not_of(" \t");
        const bool no_value = last != std::string::npos && v[last] == ':';
        const std::string* next = reader.PeekRaw();
        if (no_value && next != nullptr && !next->empty() && (*next)[0] != '-') {
          *error = "rule \"" + v + "\" has no value, and \"" + *next + "\" follows it: did the shell split the rule? quote it: -r '" +
                   v.substr(0, last + 1) + " " + *next + "'";
        }
        return Taken::kFailed;
      }
      return Taken::kYes;
    case kOptExpression:
      if (!AddExpression(v, &s->rules, error)) {
        if (LooksLikeExtension(v)) {
          const std::string ext = v[0] == '.' ? v.substr(1) : v;
          *error += (error->empty() || error->back() == '\n' ? "" : "\n") + std::string("-e takes an expression here") +
                    " (fd's -e is this program's --ext): did you mean --ext " + ext + "?";
        }
        return Taken::kFailed;
      }
      return Taken::kYes;
    case kOptRulesFile: return Yes(AddRulesFile(v, &s->rules, error));
    case kOptArea: return Yes(AddAreaRules(v, &s->rules, error));
    case kOptSaved: return Yes(LoadSavedSearchRules(v, &s->rules, &pending->saved_root, error));
    case kOptLiteral: s->literal = true; return Taken::kYes;
    case kOptShowRules: s->show_rules = true; return Taken::kYes;
    case kOptNoWarnings: s->no_warnings = true; return Taken::kYes;
    case kOptType: return Yes(s->type_filter.Add(v, error));
    case kOptExtension:
      if (!ExtensionRuleLine(v, &line, error)) return Taken::kFailed;
      pending->extension_lines.push_back(line);
      return Taken::kYes;
    case kOptSize:
      if (!SizeRuleLine(v, &line, error)) return Taken::kFailed;
      pending->fd_rule_lines.push_back(line);
      return Taken::kYes;
    case kOptChangedWithin:
    case kOptChangedBefore:
      if (!ChangedRuleLine(v, item.option->id == kOptChangedWithin, std::time(nullptr), &line, error))
        return Taken::kFailed;
      pending->fd_rule_lines.push_back(line);
      return Taken::kYes;
    default: return Taken::kNo;
  }
}

// The options that say where and how the search walks and reads.
Taken TakeWalkOption(const OptionItem& item, SearchArgs* s, std::string* error) {
  const std::string& a = item.name;
  const std::string& v = item.value;
  long long n = 0;
  switch (item.option->id) {
    case kOptRoots: s->root_texts.push_back(v); return Taken::kYes;
    case kOptHidden: s->request.bin_flags |= engine::kFlagSearchHidden; return Taken::kYes;
    case kOptFollowLinks: s->request.bin_flags |= engine::kFlagFollowLinks; return Taken::kYes;
    case kOptNoSubfolders: s->request.bin_search_flags |= engine::kSearchFlagNoSubfolders; return Taken::kYes;
    case kOptRobust: s->request.bin_flags |= engine::kFlagNeverUseIndex; return Taken::kYes;
    case kOptVolumeImage: s->volume_image = v; return Taken::kYes;
    case kOptMaxDepth:
      if (!ParseNumberOption(a, v, 0, INT32_MAX, &n, error)) return Taken::kFailed;
      s->max_depth = static_cast<int>(n);
      return Taken::kYes;
    case kOptMinDepth:
      if (!ParseNumberOption(a, v, 0, INT32_MAX, &n, error)) return Taken::kFailed;
      s->min_depth = static_cast<int>(n);
      return Taken::kYes;
    case kOptExclude:
      if (v.size() > engine::kMaxPatternBytes) {
        *error = "the pattern of " + a + " is longer than " + std::to_string(engine::kMaxPatternBytes) + " bytes";
        return Taken::kFailed;
      }
      s->excludes.push_back(v);
      return Taken::kYes;
    case kOptIgnoreVcs: s->ignore_vcs = true; return Taken::kYes;
    case kOptOneFileSystem: s->one_file_system = true; return Taken::kYes;
    case kOptOffline: s->offline = true; return Taken::kYes;
    case kOptVirtualFolders: s->request.bin_flags |= engine::kFlagEnterVirtualFolders; return Taken::kYes;
    case kOptThreads:
      if (!ParseNumberOption(a, v, 1, 64, &n, error)) return Taken::kFailed;
      s->request.threads = static_cast<int>(n);
      return Taken::kYes;
    case kOptOrdered: s->request.sort_names = true; return Taken::kYes;
    case kOptAnswerTimeout:
      if (!ParseNumberOption(a, v, 0, 3'600'000, &n, error)) return Taken::kFailed;
      s->request.answer_timeout = std::chrono::milliseconds(n);
      return Taken::kYes;
    case kOptExcludeTypes: s->request.contents.grep_exclude_types = v; return Taken::kYes;
    case kOptSearchZip: s->request.contents.bin_search_flags |= engine::kSearchFlagSearchZip; return Taken::kYes;
    case kOptMaxExtractSize:
      if (!ParseNumberOption(a, v, 0, UINT32_MAX, &n, error)) return Taken::kFailed;
      s->request.contents.max_stream_extract_size = static_cast<uint32_t>(n < 10'000 ? 0 : n);
      return Taken::kYes;
    default: return Taken::kNo;
  }
}

// --exec CMD... ; and --exec-batch: the command is every argument up to ";" (or the end), as
// find and fd take it.
Taken TakeExecOption(const OptionItem& item, OptionReader& reader, SearchArgs* s, std::string* error) {
  std::vector<std::string> command_line;
  while (reader.PeekRaw() != nullptr && *reader.PeekRaw() != ";") command_line.push_back(reader.TakeRaw());
  if (reader.PeekRaw() != nullptr) reader.TakeRaw();  // the ";"
  if (command_line.empty()) {
    *error = "option " + item.name + " needs a command";
    return Taken::kFailed;
  }
  if (!s->exec_command.empty()) {
    *error = "only one of --exec and --exec-batch, once";
    return Taken::kFailed;
  }
  s->exec_command = std::move(command_line);
  s->exec_batch = item.option->id == kOptExecBatch;
  return Taken::kYes;
}

// The options that say what is printed and how.
Taken TakeOutputOption(const OptionItem& item, OptionReader& reader, SearchArgs* s, PendingOptions* pending,
                       std::string* error) {
  const std::string& v = item.value;
  long long n = 0;
  switch (item.option->id) {
    case kOptHelp: s->help = true; return Taken::kYes;
    case kOptNull: s->output.format = OutputFormat::kNulPaths; return Taken::kYes;
    case kOptJson: s->output.format = OutputFormat::kJson; return Taken::kYes;
    case kOptColumns:
      if (!ResolveProperties(v, &s->output.columns, error)) return Taken::kFailed;
      if (s->output.format == OutputFormat::kPaths) s->output.format = OutputFormat::kColumns;
      return Taken::kYes;
    case kOptSort: pending->sort_list = v; return Taken::kYes;
    case kOptDesc: pending->descending = true; return Taken::kYes;
    case kOptLimit:
      if (!ParseNumberOption(item.name, v, 0, INT64_MAX, &n, error)) return Taken::kFailed;
      s->output.limit = n;
      return Taken::kYes;
    case kOptQuiet: s->quiet = true; return Taken::kYes;
    case kOptColor:
      if (v != "auto" && v != "always" && v != "never") {
        *error = "--color takes auto, always or never, not \"" + v + "\"";
        return Taken::kFailed;
      }
      s->color = v;
      return Taken::kYes;
    case kOptProgress: s->progress_asked = true; return Taken::kYes;
    case kOptNoMessages: s->no_messages = true; return Taken::kYes;
    case kOptExec:
    case kOptExecBatch: return TakeExecOption(item, reader, s, error);
    default: return Taken::kNo;
  }
}

// The defaults a search starts from, before its options: every core reads folders (the order
// of results never depends on the number of reading threads), and the settings in use
// (--settings) say how documents are read.
void StartSearchArgs(SearchArgs* s) {
  s->request.threads = static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1u, 8u));
  if (const auto& settings = LoadedSettings()) {
    app::ApplySettingsToRequest(*settings, engine::kFlagNeverUseIndex, &s->request);
  }
}

// What the options gathered becomes rules, roots and output settings.
bool FinishSearchArgs(const PendingOptions& pending, SearchArgs* s, std::string* error) {
  if (!s->roots.empty() && !s->root_texts.empty()) {
    *error = "give roots either as arguments or with --roots, not both";
    return false;
  }
  // The fd-style options add rules after the user's, joined with AND at the top level; the
  // extensions are alternatives of one group.
  for (const std::string& line : pending.fd_rule_lines)
    if (!AddRuleLine(s->rules.empty() ? line : "and " + line, &s->rules, error)) return false;
  const auto& extensions = pending.extension_lines;
  for (size_t k = 0; k < extensions.size(); ++k) {
    std::string line = k == 0 ? (s->rules.empty() ? "" : "and ") + extensions[k] : "or > " + extensions[k];
    if (!AddRuleLine(line, &s->rules, error)) return false;
  }
  // fd lists everything when asked for no pattern; options that only limit the walk or the
  // types shown do the same here, with a rule that every name satisfies.
  const bool limits_only = !s->type_filter.empty() || s->max_depth >= 0 || s->min_depth > 0 || !s->excludes.empty() ||
                           s->ignore_vcs || s->one_file_system;
  if (s->rules.empty() && limits_only && !AddRuleLine(kEveryNameRule, &s->rules, error)) return false;
  // A saved search's own root is where it runs unless roots are given.
  if (s->roots.empty() && pending.saved_root) s->roots.push_back(*pending.saved_root);
  if (!pending.sort_list.empty()) {
    std::vector<const props::PropertyInfo*> keys;
    if (!ResolveProperties(pending.sort_list, &keys, error)) return false;
    s->output.sort = true;
    for (const auto* p : keys) s->output.sort_options.keys.push_back({p, !pending.descending});
    s->output.sort_options.name_ascending = !pending.descending;
    s->output.sort_options.natural_numbers = true;
  } else if (pending.descending) {
    s->output.sort = true;
    s->output.sort_options.name_ascending = false;
  }
  s->output.progress = s->progress_asked || isatty(STDERR_FILENO);
  s->output.color = UseColor(s->color, isatty(STDOUT_FILENO));
  return true;
}

// Parses the options of `search` and `explain`; options and roots come in any order.
bool ParseSearchArgs(const CommandSpec& command, const std::vector<std::string>& given_args, SearchArgs* s,
                     std::string* error) {
  const std::vector<std::string> args = SplitShortOptions(command, given_args);
  StartSearchArgs(s);
  // --literal applies to every rule, those before it on the line too.
  SetLiteralValues(std::find(args.begin(), args.end(), "--literal") != args.end());
  OptionReader reader(command, args);
  PendingOptions pending;
  OptionItem item;
  while (reader.Next(&item, error)) {
    if (item.option == nullptr) {
      s->roots.push_back(item.name);
      continue;
    }
    Taken taken = TakeRuleOption(item, reader, s, &pending, error);
    if (taken == Taken::kNo) taken = TakeWalkOption(item, s, error);
    if (taken == Taken::kNo) taken = TakeOutputOption(item, reader, s, &pending, error);
    if (taken == Taken::kFailed) return false;
    if (taken == Taken::kNo) {
      *error = "option " + item.name + " is not one of " + std::string(command.name) + "'s";
      return false;
    }
  }
  return error->empty() && FinishSearchArgs(pending, s, error);
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

// A single file given as root is explained instead of searched. In the plain form the report
// is the output; asked for JSON, NUL-separated paths or columns, the file is printed in that
// form when it satisfies the rules (a script gets what a search would give it) and the report
// goes to stderr.
int PrintExplained(const SearchArgs& s, OutputSink& sink, const std::string& file,
                   const engine::DetectiveReport& report) {
  // The report quotes the file's name and values: on a terminal they are shown escaped.
  const auto shown = [&](std::FILE* to) { return isatty(fileno(to)) ? TerminalSafeLines(report.text) : report.text; };
  if (s.output.format == OutputFormat::kPaths) {
    std::fputs(shown(stdout).c_str(), stdout);
    return report.found ? 0 : 1;
  }
  if (!s.quiet) std::fputs(shown(stderr).c_str(), stderr);
  if (!report.found) return 1;
  props::ShellItemPtr item = props::ShellItem::FromPath(file, (s.request.bin_flags & engine::kFlagFollowLinks) != 0);
  if (s.output.format == OutputFormat::kColumns) std::fputs(sink.Header().c_str(), stdout);
  const std::string line = item ? sink.Format(*item) : std::string();
  std::fwrite(line.data(), 1, line.size(), stdout);
  return std::fflush(stdout) == 0 ? 0 : 2;
}

// --volume-image: the image's file table is read directly, as the volume table route reads a
// mounted volume's; the paths are those inside the image, so nothing of the host is looked at.
int SearchVolumeImage(SearchArgs& s) {
  rules::RuleSet rule_set;
  if (!rule_set.Compile(s.rules) || !rule_set.AllowsNameOnlyTest()) {
    std::fprintf(stderr,
                 "trovix-cli: --volume-image takes exactly one simple name rule, such as -r 'name: *.txt' "
                 "(a name with blanks in quotation marks; no word lists)\n");
    return 2;
  }
  if (s.show_rules) std::fputs(ListRules(s.rules).c_str(), stderr);
  s.output.quiet = s.quiet;
  OutputSink sink(s.output, stdout, stderr);
  std::string error;
  const int hidden_mode = (s.request.bin_flags & engine::kFlagSearchHidden) ? 2 : 0;
  // Ctrl+C stops the scan between two records; a second one ends the program.
  std::stop_source stop;
  int64_t count = 0;
  bool interrupted_by_signal = false;
  {
    platform::StopSignals signals(stop, true);
    count = engine::ScanVolumeImage(s.volume_image, rule_set, hidden_mode, sink, stop.get_token(), &error);
    interrupted_by_signal = signals.Signalled();
  }
  sink.Finish();
  if (count < 0) {
    std::fprintf(stderr, "trovix-cli: %s: %s\n", s.volume_image.c_str(), error.c_str());
    return 2;
  }
  if (s.output.progress && !s.quiet) std::fprintf(stderr, "%lld item(s) found\n", static_cast<long long>(sink.printed()));
  if (sink.write_error() != 0 && sink.write_error() != EPIPE) return 2;
  if (interrupted_by_signal) return 130;  // as a walk stopped by Ctrl+C
  return sink.printed() > 0 ? 0 : 1;
}

int Search(SearchArgs& s) {
  if (!s.volume_image.empty()) return SearchVolumeImage(s);
  std::unique_ptr<engine::IgnorePruner> pruner;
  if (!s.excludes.empty() || s.ignore_vcs) {
    pruner = std::make_unique<engine::IgnorePruner>(s.excludes, s.ignore_vcs);
    s.request.pruner = pruner.get();
  }
  s.request.max_depth = s.max_depth;
  s.request.min_depth = s.min_depth;
  s.request.one_file_system = s.one_file_system;
  if (!s.type_filter.empty()) s.output.accept = [&s](props::ShellItem& item) { return s.type_filter.Accepts(item); };
  s.request.rules = s.rules;
  // The rule list as it will be searched: on stdout before an explanation, on stderr before
  // results, so that piped results stay clean.
  if (s.explain || s.show_rules) std::fputs(ListRules(s.rules).c_str(), s.explain ? stdout : stderr);
  // Roots given as arguments are taken literally; --roots texts are split at "|" as the
  // program's root box splits them.
  s.request.roots = s.roots;
  s.request.root_text = JoinRoots(s.root_texts);
  s.output.quiet = s.quiet;
  s.output.no_messages = s.no_messages;
  // Relative roots (or none: the current folder) give relative paths, as fd prints them.
  std::vector<std::string> given = s.roots;
  if (given.empty() && s.root_texts.empty()) given.push_back("");
  for (const std::string& root : given) {
    if (!root.empty() && root[0] == '/') continue;
    std::vector<engine::RootError> ignored;
    engine::ParsedRoots parsed = engine::ParseLiteralRoots({root.empty() ? "." : root}, CurrentFolder(), &ignored);
    if (!parsed.roots.empty()) s.output.relative_roots.emplace_back(parsed.roots[0], root);
  }
  s.request.default_root = CurrentFolder();
  std::unique_ptr<ExecRunner> exec;
  if (!s.exec_command.empty()) {
    const int jobs = static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1u, 16u));
    exec = std::make_unique<ExecRunner>(s.exec_command, s.exec_batch, jobs, stdout, stderr);
    s.output.deliver = [&exec](const std::string& path) { exec->Add(path); };
  }
  engine::index::SqliteIndexRoute local_index(IndexPathInEffect());
  // Roots of file servers go to their shared indexes (indexes.conf), the rest to this machine's.
  engine::index::SharedIndexRoutes index_route(local_index);
  if (s.offline) {
    if (!s.request.roots.empty() || !s.request.root_text.empty()) {
      std::fprintf(stderr, "trovix-cli: --offline searches the catalogues of drives that are not mounted; "
                           "give no roots with it\n");
      return 2;
    }
    s.request.roots = index_route.OfflineCatalogues();
    s.output.relative_roots.clear();  // the catalogues' places are shown as they are
    if (s.request.roots.empty()) {
      std::fprintf(stderr, "trovix-cli: the index keeps no catalogue of a drive that is not mounted\n");
      return 1;
    }
  }
  OutputSink sink(s.output, stdout, stderr);
  for (const std::string& problem : index_route.problems()) std::fprintf(stderr, "trovix-cli: %s\n", problem.c_str());
  engine::NtfsVolumeScan volume_route;
  engine::SearchPanel panel(sink, volume_route, index_route);
  sink.set_panel(&panel);
  // Ctrl+C (or a polite kill) stops the search like the Stop button: what was found so far
  // is still printed, none of it is lost in an output buffer. The search runs on this thread,
  // which has nothing else to do meanwhile: no thread is started for it, and none has to wake
  // this one when it ends.
  std::stop_source interrupted;
  std::optional<platform::StopSignals> signals(std::in_place, interrupted, true);
  panel.RunOnCaller(interrupted.get_token());
  switch (panel.StartOrStop(s.request)) {
    case engine::StartOutcome::kStarted:
      break;
    case engine::StartOutcome::kExplained:
      return PrintExplained(s, sink, panel.root_text(), panel.detective_report());
    case engine::StartOutcome::kNothing:
      return 1;
    default: {
      // One line each; a root's name is shown safely on a terminal.
      const std::string& error = panel.error();
      for (size_t start = 0; start < error.size();) {
        size_t end = error.find('\n', start);
        if (end == std::string::npos) end = error.size();
        const std::string line = error.substr(start, end - start);
        std::fprintf(stderr, "trovix-cli: %s\n", (isatty(STDERR_FILENO) ? TerminalSafe(line) : line).c_str());
        start = end + 1;
      }
      return 2;
    }
  }
  panel.Wait();
  const bool interrupted_by_signal = signals->Signalled();
  signals.reset();
  sink.Finish();
  // A command that failed or could not run is an error of the search, as a folder that could
  // not be read is.
  const bool commands_ok = !exec || exec->Finish();
  // The desktop program's advice box has a check box that silences it; here the setting is named.
  for (const auto& [bit, text] : sink.advice()) {
    std::string line = text;
    // The index advice names the desktop's control panel; here the index is kept by this program.
    // Said once a day per root: it is the same advice every time.
    if (bit == engine::kNotifyIndexAdvice) {
      if (!FirstIndexNoteToday(panel.root_text(), std::time(nullptr))) continue;
      line = "the folder is not in the index: trovix-cli index add FOLDER makes searches there faster";
    }
    std::fprintf(stderr, "trovix-cli: %s (trovix-cli settings set bin1OffNotify +%u silences this)\n", line.c_str(),
                 bit);
  }
  // What the search passed over, said once, after the results and on stderr in every output
  // format: the results on stdout stay what a script parses.
  if (!s.quiet && !s.no_messages) {
    for (const std::string& line : engine::DescribeUnread(sink.unread(), engine::UnreadWording{}))
      std::fprintf(stderr, "trovix-cli: %s\n", line.c_str());
  }
  // Roots answered by different routes: which answered what, since only the walk's answer is
  // the disk as it is now.
  if (!s.quiet && !s.no_messages) {
    const std::vector<engine::RootAnswer>& routes = panel.routes();
    const bool mixed = std::any_of(routes.begin(), routes.end(),
                                   [&](const engine::RootAnswer& a) { return a.route != routes.front().route; });
    for (const engine::RootAnswer& a : mixed ? routes : std::vector<engine::RootAnswer>{}) {
      const char* how = a.route == engine::RootRoute::kVolumeTable ? "answered from the volume's file table"
                        : a.route == engine::RootRoute::kIndex     ? "answered from the index"
                        : a.route == engine::RootRoute::kCatalogue
                            ? "answered from the index's catalogue of a drive that is not mounted"
                            : "searched by walking its folders";
      std::fprintf(stderr, "trovix-cli: %s: %s\n", (isatty(STDERR_FILENO) ? TerminalSafe(a.root) : a.root).c_str(),
                   how);
    }
  }
  if (panel.index_memory() && !s.quiet) {
    // "Click for robust search": the index may lag behind the disk.
    std::fprintf(stderr, "trovix-cli: answered from the index (%s); --robust searches the folders themselves\n",
                 IndexPathInEffect().c_str());
  }
  if (s.output.progress && !s.quiet)
    std::fprintf(stderr, "%lld item(s) found\n", static_cast<long long>(sink.printed()));
  if (sink.write_error() != 0) {
    // A reader that went away (| head) is no error: what it wanted it has.
    if (sink.write_error() == EPIPE) return sink.printed() > 0 ? 0 : 1;
    std::fprintf(stderr, "trovix-cli: cannot write the results: %s\n", std::strerror(sink.write_error()));
    return 2;
  }
  if (!commands_ok) return 2;
  // As rg: any folder that could not be read makes the status 2, unless -q found something.
  if (s.quiet && sink.printed() > 0) return 0;
  if (sink.errors() > 0) return 2;
  // A plugin switched off mid-search left values out: some items may be missing, as with a
  // folder that could not be read.
  if (PluginSwitchedOffThisRun()) return 2;
  // Stopped by Ctrl+C: what was found is printed, but the answer is not whole, and a script
  // must not read "nothing found" into it. 130 is what a shell reports for a program ended so.
  if (interrupted_by_signal) return 130;
  return sink.printed() > 0 ? 0 : 1;
}

}  // namespace

namespace {

// Parses a command's arguments; prints the help or the error. nullopt: done, with `*status`.
bool ParseOrExit(std::string_view name, const std::vector<std::string>& args, SearchArgs* s, int* status) {
  const CommandSpec& command = *FindCommand(name);
  std::string error;
  if (!ParseSearchArgs(command, args, s, &error)) {
    std::fprintf(stderr, "trovix-cli: %s\n", error.c_str());
    *status = 2;
    return false;
  }
  if (s->help) {
    PrintCommandHelp(command, stdout);
    *status = 0;
    return false;
  }
  FlushValueWarnings(s->no_warnings, stderr);
  return true;
}

}  // namespace

int RunSearchCommand(const std::vector<std::string>& args) {
  SearchArgs s;
  int status = 0;
  if (!ParseOrExit("search", args, &s, &status)) return status;
  return Search(s);
}

int RunExplainCommand(const std::vector<std::string>& args) {
  SearchArgs s;
  int status = 0;
  if (!ParseOrExit("explain", args, &s, &status)) return status;
  s.explain = true;
  if (s.roots.size() != 1) {
    std::fprintf(stderr, "trovix-cli: explain needs exactly one FILE\n");
    return 2;
  }
  engine::ParsedRoots parsed = engine::ParseRootText(s.roots[0], CurrentFolder());
  if (parsed.roots.empty() || !parsed.single_file) {
    std::fprintf(stderr, "trovix-cli: \"%s\" is not a file\n", s.roots[0].c_str());
    return 2;
  }
  // With no rules there is nothing to explain but the file itself: its properties.
  if (s.rules.empty()) return RunPropsCommand({s.roots[0]});
  return Search(s);
}

int RunDefaultSearch() {
  return RunSearchCommand({"-r", "System.DateModified: this week", "--sort", "System.DateModified", "--desc",
                           "--limit", "100"});
}

}  // namespace trovix::cli
