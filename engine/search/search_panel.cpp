#include "engine/search/search_panel.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/file_name.h"
#include "base/string_table.h"
#include "engine/extraction/archive_folders.h"
#include "engine/extraction/own_properties.h"
#include "engine/search/parallel_match.h"
#include "platform/file_status.h"
#include "platform/mount_table.h"
#include "props/catalogue.h"
#include "props/fetch_stop.h"
#include "props/property_info.h"
#include "props/property_key.h"
#include "rules/compare_flags.h"
#include "rules/item_value_provider.h"
#include "rules/matchers/text_matcher.h"
#include "rules/value/value_syntax.h"

namespace trovix::engine {
namespace {

// Stat following links: a root given as a link to a folder is a folder root. 0 or an errno.
// A root on a mount that may stop answering is asked under the time-out (when there is one):
// ETIMEDOUT then means it said nothing.
int StatRootWithin(const std::string& path, std::chrono::milliseconds timeout, platform::FileStatus* out) {
  if (timeout.count() > 0 && platform::MountTable::Read().MayStopAnswering(path))
    return StatWithin(platform::DefaultDirSystem(), path, true, timeout, {}, out);
  return platform::StatPath(AT_FDCWD, path, true, out);
}

bool StatRoot(const std::string& path, std::chrono::milliseconds timeout, platform::FileStatus* out) {
  return StatRootWithin(path, timeout, out) == 0;
}

bool IsAnyText(const rules::RuleSet& set) {
  return set.rules().size() == 1 && set.rules()[0]->KeyHash() == props::hash::kFind;
}

bool SameRules(const std::vector<rules::RulePtr>& a, const std::vector<rules::RulePtr>& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (!a[i]->Equals(*b[i])) return false;
  return true;
}

// Whether testing every item asks for its status: rules on anything but the name and path
// do. Then the walk asks it while each folder is open, which is cheaper than by path later.
// Not when a rule on names takes part: the rule set asks names first and most items of a
// walk are decided by them (a name rule AND a size rule), so a status asked for every item
// would mostly go unused; the few it leaves undecided are asked by path.
bool RulesNeedStatus(const rules::RuleSet& set) {
  if (set.max_cost() != rules::RuleCost::kName)
    for (size_t i = 0; i < set.matcher_count(); ++i)
      if (set.cost(i) == rules::RuleCost::kName &&
          set.matcher(i).ValueKind() != rules::MatcherValue::kNone)
        return false;
  for (const auto& rule : set.rules()) {
    // A file's own properties are asked only of the files whose type has them; the status
    // of the few read is taken then, not for every item of the walk. A contents rule opens
    // the files the listing calls regular, and the open checks the type again: a status per
    // file would cost what reading a small one costs.
    if ((rule->PropertyFlags() & props::kPropCostly) || rule->IsContents()) continue;
    if (!rules::IsNameProperty(rule->KeyHash())) return true;
  }
  return false;
}

// The index holds the whole tree as it is: limits of the walk (depth, one file system, pruned
// or excluded folders, links followed, archives entered) are answered by the walk alone.
bool WalkLimited(const SearchRequest& request) {
  return request.max_depth >= 0 || request.min_depth > 0 || request.one_file_system || request.pruner != nullptr ||
         (request.bin_flags & (kFlagFollowLinks | kFlagEnterVirtualFolders)) != 0;
}

bool IsTextType(uint16_t base_type) {
  return base_type == props::VT_LPWSTR || base_type == props::VT_BSTR || base_type == props::VT_LPSTR;
}

bool HeldOffline(const std::string& path, const std::vector<std::string>& offline) {
  for (const std::string& place : offline)
    if (IsAtOrBelow(path, place)) return true;
  return false;
}

}  // namespace

ParsedRoots ParseRootText(const std::string& text, const std::string& base_folder,
                          const std::vector<std::string>& offline, std::chrono::milliseconds timeout) {
  ParsedRoots parsed;
  platform::FileStatus st;
  std::string whole = AbsolutePath(text, base_folder);
  if (!whole.empty() && HeldOffline(whole, offline)) {
    parsed.roots.push_back(whole);
    parsed.rebuilt = whole;
    return parsed;
  }
  if (!whole.empty() && StatRoot(whole, timeout, &st)) {
    parsed.roots.push_back(whole);
    parsed.rebuilt = whole;
    parsed.single_file = !st.IsDirectory();
    return parsed;
  }
  if (text.find('|') == std::string::npos) return parsed;
  size_t start = 0;
  while (start <= text.size()) {
    size_t bar = text.find('|', start);
    std::string piece = text.substr(start, bar == std::string::npos ? std::string::npos : bar - start);
    std::string path = AbsolutePath(piece, base_folder);
    if (!path.empty() && (HeldOffline(path, offline) || (StatRoot(path, timeout, &st) && st.IsDirectory()))) {
      parsed.rebuilt += (parsed.roots.empty() ? "" : "|") + path;
      parsed.roots.push_back(path);
    }
    if (bar == std::string::npos) break;
    start = bar + 1;
  }
  return parsed;
}

void SearchPanel::KeepServerRoots(const SearchRequest& request, ParsedRoots* parsed, std::vector<RootError>* errors) {
  // "//NAME/share/path" names a folder of a file server whose shared index answers for it:
  // there is nothing here to look at, the index route decides.
  auto claimed = [this](const std::string& root) { return root.rfind("//", 0) == 0 && index_.IsInScope(root); };
  if (!request.roots.empty()) {
    std::erase_if(*errors, [&](const RootError& e) {
      if (!claimed(e.root)) return false;
      parsed->rebuilt += (parsed->roots.empty() ? "" : "|") + e.root;
      parsed->roots.push_back(e.root);
      return true;
    });
  } else if (parsed->roots.empty() && claimed(request.root_text)) {
    parsed->roots.push_back(request.root_text);
    parsed->rebuilt = request.root_text;
  }
}

ParsedRoots ParseLiteralRoots(const std::vector<std::string>& given, const std::string& base_folder,
                              std::vector<RootError>* errors, const std::vector<std::string>& offline,
                              std::chrono::milliseconds timeout) {
  ParsedRoots parsed;
  std::vector<std::pair<uint64_t, uint64_t>> seen;  // (device, inode): a folder given twice is searched once
  for (const std::string& root : given) {
    const std::string path = AbsolutePath(root, base_folder);
    if (!path.empty() && HeldOffline(path, offline)) {
      if (std::find(parsed.roots.begin(), parsed.roots.end(), path) != parsed.roots.end()) continue;
      parsed.rebuilt += (parsed.roots.empty() ? "" : "|") + path;
      parsed.roots.push_back(path);
      continue;
    }
    platform::FileStatus st;
    const int error = path.empty() ? ENOENT : StatRootWithin(path, timeout, &st);
    if (error != 0) {
      errors->push_back({root, error});
      continue;
    }
    if (!st.IsDirectory()) {
      // One file alone is explained; beside other roots it is no folder to search.
      if (given.size() == 1) {
        parsed.single_file = true;
      } else {
        errors->push_back({root, ENOTDIR});
        continue;
      }
    }
    const std::pair<uint64_t, uint64_t> id{st.device, st.inode};
    if (std::find(seen.begin(), seen.end(), id) != seen.end()) continue;
    seen.push_back(id);
    parsed.rebuilt += (parsed.roots.empty() ? "" : "|") + path;
    parsed.roots.push_back(path);
  }
  return parsed;
}

std::vector<rules::RulePtr> ExpandAnyText(const rules::Rule& find_rule, const std::string& simple_list) {
  std::string value = find_rule.Text();
  if (find_rule.Kind() == rules::kKindKeywordList) {
    // The keyword list carries a leading marker character: take the text after it.
    value = value.empty() ? value : value.substr(1, value.find('\0') == std::string::npos ? std::string::npos
                                                                                             : value.find('\0') - 1);
  } else if (value.find(' ') != std::string::npos) {
    value = "\"" + value + "\"";
  }
  std::vector<rules::RulePtr> out;
  const props::Catalogue& catalogue = props::DefaultCatalogue();
  for (const std::string& name : props::SimplePropertyList(simple_list)) {
    const props::PropertyInfo* info = catalogue.FindProperty(name);
    if (!info || !IsTextType(info->base_type()) || info->has_flag(props::kPropFreeText)) continue;
    auto rule = rules::Rule::CreateFor(*info);
    if (rule->Kind() == rules::kKindText && !rules::ParseRuleText(*rule, value)) continue;
    rule->SetContext(out.empty() ? rules::kContextAnd : rules::kContextOr);
    out.push_back(rule);
  }
  if (out.empty()) {
    auto rule = rules::Rule::CreateFor(*catalogue.FindProperty("System.ItemNameDisplay"));
    if (rules::ParseRuleText(*rule, value)) out.push_back(rule);
  }
  return out;
}

SearchPanel::SearchPanel(ResultSink& sink, VolumeScanRoute& volume, IndexRoute& index)
    : sink_(sink), volume_(volume), index_(index) {
  // A file's own properties (title, authors ...) are read by the extraction helpers.
  InstallOwnPropertySource();
}

SearchPanel::~SearchPanel() {
  if (worker_.joinable()) {
    stop_source_.request_stop();
    worker_.join();
  }
}

void SearchPanel::SetRunning(std::shared_ptr<const rules::RuleSet> rule_set) {
  bool starting = rule_set != nullptr;
  if (!starting && !running_.exchange(false)) return;  // already idle: say nothing twice
  if (starting) running_.store(true);
  if (!starting) {
    std::lock_guard<std::mutex> lock(state_mutex_);
    state_changed_.notify_all();
  }
  sink_.SearchState(starting, std::move(rule_set));
}

StartOutcome SearchPanel::StartOrStop(const SearchRequest& request) {
  if (running_.load()) {
    stop_source_.request_stop();
    SetRunning(nullptr);
    return StartOutcome::kStopped;
  }
  if (worker_.joinable()) worker_.join();
  if (sink_.SearchBusy() != 0 || sink_.BeforeSearch() > 0) return StartOutcome::kVetoed;
  error_.clear();
  if (request.rules.empty()) {
    error_ = std::string(base::LoadString(base::strings::kSpecifyWhatToSearch));
    return StartOutcome::kNoRules;
  }
  auto rule_set = std::make_shared<rules::RuleSet>();
  if (!rule_set->Compile(request.rules)) {
    error_ = "The rules could not be compiled";
    return StartOutcome::kBadRules;
  }
  std::vector<RootError> root_errors;
  ParsedRoots parsed;
  // A drive that is not mounted is still searched where the index keeps its catalogue.
  std::vector<std::string> offline;
  if (!(request.bin_flags & kFlagNeverUseIndex) && !WalkLimited(request) && index_.ServiceAvailable())
    offline = index_.OfflineCatalogues();
  if (!request.roots.empty()) {
    parsed = ParseLiteralRoots(request.roots, request.default_root, &root_errors, offline, request.answer_timeout);
  } else {
    std::string text = request.root_text.empty() ? request.default_root : request.root_text;
    parsed = ParseRootText(text, request.default_root, offline, request.answer_timeout);
  }
  KeepServerRoots(request, &parsed, &root_errors);
  if (parsed.roots.empty()) {
    // What was wrong with each root comes first, one line each, then the system's message.
    error_.clear();
    for (const RootError& e : root_errors) error_ += e.root + ": " + std::strerror(e.error) + "\n";
    error_ += std::string(base::LoadString(base::strings::kSupplyValidRoot));
    return StartOutcome::kNoRoot;
  }
  root_text_ = parsed.rebuilt;
  if (parsed.single_file) {
    if (IsAnyText(*rule_set)) return StartOutcome::kNothing;
    ContentsReader contents(request.contents);
    report_ = ExplainItem(*rule_set, props::ShellItem::FromPath(parsed.roots[0]), &contents);
    return StartOutcome::kExplained;
  }
  bool search_subfolders = (request.bin_search_flags & kSearchFlagNoSubfolders) == 0;
  count_.store(0);
  SetRunning(rule_set);
  stop_source_ = std::stop_source();
  offline_ = std::move(offline);
  auto search = [this, rule_set, roots = parsed.roots, search_subfolders, request, root_errors,
                 root_text = parsed.rebuilt, stop = stop_source_.get_token()] {
    for (const RootError& e : root_errors) {
      if (e.error == ETIMEDOUT) sink_.ReportNotAnswering(e.root);
      else sink_.ReportError(e.root, e.error);
    }
    count_.store(RunSearch(rule_set, roots, search_subfolders, root_text, request, stop));
    SetRunning(nullptr);
  };
  if (on_caller_) {
    // Registered once the search's own stop source is in place: a stop asked for earlier
    // stops this search at once.
    std::stop_callback outside(outside_, [this] { stop_source_.request_stop(); });
    search();
  } else {
    worker_ = std::thread(std::move(search));
  }
  return StartOutcome::kStarted;
}

bool SearchPanel::WaitFor(std::chrono::milliseconds timeout) {
  std::unique_lock<std::mutex> lock(state_mutex_);
  return state_changed_.wait_for(lock, timeout, [this] { return !running_.load(); });
}

int64_t SearchPanel::Wait() {
  if (worker_.joinable()) worker_.join();
  return count_.load();
}

int64_t SearchPanel::RunSearch(std::shared_ptr<rules::RuleSet> rule_set, const std::vector<std::string>& roots,
                               bool search_subfolders, const std::string& root_text,
                               const SearchRequest& request, std::stop_token stop) {
  unread_.Clear();
  // The index-memory survives only an unchanged search: then this Start runs the walk.
  if (index_memory_ &&
      (request.index_only || !(root_text == memory_root_text_ && SameRules(rule_set->rules(), memory_rules_))))
    index_memory_ = false;
  int hidden_mode = (request.bin_flags & kFlagSearchHidden) ? 2 : 0;
  int64_t count = 0;
  routes_.clear();
  // The roots that only the walk can answer (neither the volume table nor the index took them).
  std::vector<std::string> unanswered;

  if (!index_memory_) {
    // The table knows nothing of depth, exclusions or links, so a walk with limits is not answered from it.
    // The route's own check (it reads the mount table) comes last: most rule sets rule it out.
    bool volume_allowed = search_subfolders && !(request.bin_flags & 0x0800) && !WalkLimited(request) &&
                          rule_set->AllowsNameOnlyTest() && volume_.Allowed();
    bool index_allowed = index_.ServiceAvailable() && !(request.bin_flags & kFlagNeverUseIndex) && !WalkLimited(request);
    size_t by_volume = 0;
    bool index_advice_given = false;
    for (const std::string& root : roots) {
      if (stop.stop_requested()) break;
      if (volume_allowed) {
        int64_t n = volume_.ScanVolumeTable(*rule_set, root, hidden_mode, sink_, stop);
        if (n >= 0) {
          count += n;
          ++by_volume;
          routes_.push_back({root, RootRoute::kVolumeTable});
          continue;
        }
      }
      if (!index_allowed) {
        unanswered.push_back(root);
        continue;
      }
      // Only a root the index covers whole is asked: a root above the indexed folders would get
      // the indexed part of its tree and lose the rest without a word.
      if (!index_.IsInScope(root)) {
        unanswered.push_back(root);
        if (!request.index_advice_suppressed && !index_advice_given) {
          index_advice_given = true;
          sink_.ShowAdvice(kNotifyIndexAdvice, std::string(base::LoadString(11322)));
        }
        continue;
      }
      routes_.push_back({root, HeldOffline(root, offline_) ? RootRoute::kCatalogue : RootRoute::kIndex});
      sink_.SetStatus("searching index...");
      IndexQueryOptions options;
      options.search_subfolders = search_subfolders;
      options.hidden_mode = hidden_mode;
      options.unread = &unread_;
      options.contents_options = &request.contents;
      count += index_.RunIndexQuery(*rule_set, root, options, sink_, stop);
    }
    if (count > 0 || (by_volume == roots.size() && !roots.empty())) {
      index_memory_ = true;
      memory_root_text_ = root_text;
      memory_rules_.clear();
      for (const auto& r : rule_set->rules()) memory_rules_.push_back(r->Clone());
      // What the index answered for one root is no answer for another: a root that no route
      // took is still walked (the files the index could not read are said after it).
      if (!unanswered.empty() && !stop.stop_requested() && !request.index_only)
        return count + WalkRoots(*rule_set, unanswered, search_subfolders, request, stop);
      // The files the index could not read are said as after a walk.
      if (!stop.stop_requested()) AdviseOnReaders(*rule_set, request);
      return count;
    }
    // The walk that follows meets those files again.
    unread_.Clear();
  }
  index_memory_ = false;
  if (stop.stop_requested() || request.index_only) return count;
  // What is not mounted cannot be walked: its catalogue has answered, or nothing can.
  std::vector<std::string> walk_roots;
  for (const std::string& root : roots)
    if (!HeldOffline(root, offline_)) walk_roots.push_back(root);
  if (walk_roots.empty()) return count;
  return count + WalkRoots(*rule_set, walk_roots, search_subfolders, request, stop);
}

int64_t SearchPanel::WalkRoots(rules::RuleSet& rule_set, const std::vector<std::string>& roots,
                               bool search_subfolders, const SearchRequest& request, std::stop_token stop) {
  // The walk answers these roots, whatever a route answered for them before it found nothing.
  for (const std::string& root : roots) {
    auto known = std::find_if(routes_.begin(), routes_.end(), [&](const RootAnswer& a) { return a.root == root; });
    if (known != routes_.end()) known->route = RootRoute::kWalk;
    else routes_.push_back({root, RootRoute::kWalk});
  }
  if (IsAnyText(rule_set)) {
    std::vector<rules::RulePtr> expanded = ExpandAnyText(*rule_set.rules()[0], request.simple_property_list);
    auto walk_set = std::make_shared<rules::RuleSet>();
    if (expanded.empty() || !walk_set->Compile(expanded)) return 0;
    const int64_t count = Walk(*walk_set, roots, search_subfolders, request, stop);
    if (!stop.stop_requested()) AdviseOnReaders(*walk_set, request);
    return count;
  }
  const int64_t count = Walk(rule_set, roots, search_subfolders, request, stop);
  if (!stop.stop_requested()) AdviseOnReaders(rule_set, request);
  return count;
}

void SearchPanel::AdviseOnReaders(const rules::RuleSet& rule_set, const SearchRequest& request) {
  if (rule_set.contents_rule() < 0) return;
  if (std::vector<UnreadCount> unread = unread_.Counts(); !unread.empty()) sink_.ReportUnread(unread);
  if (request.contents_advice_suppressed) return;
  bool all_read = false;
  const std::string type = MissingReaderAdvice(request.contents, unread_, &all_read);
  // The box is for a type this search met and could not read; with every type read, the
  // empty advice lets the front end stop asking.
  if (!type.empty()) sink_.ShowAdvice(kNotifyNoReaderAdvice, AdviceText(type));
  else if (all_read) sink_.ShowAdvice(kNotifyNoReaderAdvice, std::string());
}

int64_t SearchPanel::Walk(rules::RuleSet& rule_set, const std::vector<std::string>& roots, bool search_subfolders,
                          const SearchRequest& request, std::stop_token stop) {
  WalkOptions options = WalkOptions::FromFlags(request.bin_flags, request.bin_search_flags);
  options.search_subfolders = search_subfolders;
  options.threads = request.threads < 1 ? 1 : request.threads;
  options.sort_names = request.sort_names;
  options.prefetch_status = RulesNeedStatus(rule_set);
  options.status_needed = rule_set.max_cost() != rules::RuleCost::kName;
  options.max_depth = request.max_depth;
  options.min_depth = request.min_depth;
  options.one_file_system = request.one_file_system;
  options.pruner = request.pruner;
  options.answer_timeout = request.answer_timeout;
  FolderWalk walk(options);
  StatusThrottle status(&sink_);
  walk.set_status(&status);
  // A network file system that gives up says ETIMEDOUT itself: it is the same news.
  walk.set_error_handler([this](const std::string& folder, int error) {
    if (error == ETIMEDOUT) sink_.ReportNotAnswering(folder);
    else sink_.ReportError(folder, error);
  });

  ContentsReader contents(request.contents);
  contents.set_unread_tally(&unread_);
  ArchiveFolders archives(ArchiveFolderOptions{request.excluded_folder_classes});
  if (options.enter_virtual_folders) walk.set_virtual_folders(&archives);

  // A folder count asked for by a rule ends early when the search is stopped.
  props::FetchStopScope stop_scope(stop);
  rules::ItemValueProvider provider;
  provider.set_contents_source(&contents);
  rule_set.set_value_provider(&provider);
  // Where a contents rule found its text goes with the item, for the excerpt column.
  const rules::KeywordMatcher* contents_matcher =
      rule_set.contents_rule() >= 0
          ? dynamic_cast<const rules::KeywordMatcher*>(&rule_set.matcher(static_cast<size_t>(rule_set.contents_rule())))
          : nullptr;
  // A rule that reads files' data or attributes would wait on this thread (or a matching
  // thread) for a server that is gone: files on mounts that may stop answering are asked first,
  // under the time-out. One that says nothing is named and left behind with the rest of its
  // folder, whose server it shares.
  const bool probe = options.answer_timeout.count() > 0 && rule_set.max_cost() == rules::RuleCost::kRead;
  const platform::MountTable mounts = probe ? platform::MountTable::Read() : platform::MountTable();
  std::string silent_folder;
  uint64_t files_not_answering = 0;
  // Whether the item may be tested; `*stop_walk` when a stop came while asking.
  auto answers = [&](const props::ShellItemPtr& item, bool* stop_walk) {
    if (mounts.empty() || !mounts.MayStopAnswering(item->path()) || item->Type() != platform::FileType::kRegular)
      return true;
    const std::string& path = item->path();
    const std::string folder = path.substr(0, path.rfind('/'));
    if (folder == silent_folder) {
      ++files_not_answering;
      return false;
    }
    const int error = ProbeWithin(path, options.answer_timeout, stop);
    if (error == ECANCELED) *stop_walk = true;
    if (error != ETIMEDOUT) return error != ECANCELED;
    silent_folder = folder;
    ++files_not_answering;
    sink_.ReportNotAnswering(path);
    return false;
  };
  int64_t count = 0;
  if (WorthParallelMatch(rule_set)) {
    // Reading contents costs far more than walking: the items are tested on every reading
    // thread, and the results still come in the walk's order.
    ParallelMatch match(rule_set, &contents, options.threads, stop,
                        [&](const props::ShellItemPtr& item, std::string excerpt) {
                          item->set_hit_excerpt(std::move(excerpt));
                          if (sink_.AddResult(item) == 0) ++count;
                        });
    walk_summary_ = walk.Run(roots, stop, [&](const props::ShellItemPtr& item) {
      bool stop_walk = false;
      if (answers(item, &stop_walk)) match.Submit(item);
      return stop_walk ? WalkStep::kStop : WalkStep::kContinue;
    });
    match.Finish();
    rule_set.set_value_provider(nullptr);
    TellNotAnswering(files_not_answering);
    return count;
  }
  walk_summary_ = walk.Run(roots, stop, [&](const props::ShellItemPtr& item) {
    if (bool stop_walk = false; !answers(item, &stop_walk)) return stop_walk ? WalkStep::kStop : WalkStep::kContinue;
    provider.set_item(item);
    bool matched = rule_set.Evaluate();
    provider.set_item(nullptr);
    if (!matched || ItemVanished(*item)) return WalkStep::kContinue;
    if (contents_matcher && contents_matcher->hit_state() == rules::kHitTrue)
      item->set_hit_excerpt(std::string(contents_matcher->excerpt()));
    if (sink_.AddResult(item) == 0) ++count;
    return WalkStep::kContinue;
  });
  rule_set.set_value_provider(nullptr);
  TellNotAnswering(files_not_answering);
  return count;
}

void SearchPanel::TellNotAnswering(uint64_t files) {
  // Each was named when it was left behind; the end says how much the answer lacks.
  if (const uint64_t n = walk_summary_.not_answering; n > 0)
    sink_.Notice(std::to_string(n) + (n == 1 ? " folder was" : " folders were") + " not read: not answering");
  if (files > 0)
    sink_.Notice(std::to_string(files) + (files == 1 ? " file was" : " files were") + " not read: not answering");
}

}  // namespace trovix::engine
