// trovix-cli index sql ROOT [-r RULE]... [--no-subfolders]: the SELECT text a search of ROOT
// sends to the index, and on the second line whether its rows are taken as they come ("exact")
// or tested again against the rules ("re-test"). A third line says why the index could not
// answer it, when it could not.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "cli/commands/command_table.h"
#include "cli/options/option_ids.h"
#include "cli/options/option_reader.h"
#include "cli/rule_builder.h"
#include "index/index_route.h"
#include "index/sqlite/index_translation.h"
#include "rules/rule_set.h"

namespace trovix::cli {

int RunIndexSqlCommand(const std::vector<std::string>& args) {
  const CommandSpec& command = *FindCommand("index");
  std::vector<rules::RulePtr> rule_list;
  std::string root;
  bool subfolders = true;
  bool quiet = false;
  std::string error;
  // --literal applies to every rule, those before it on the line too.
  SetLiteralValues(std::find(args.begin(), args.end(), "--literal") != args.end());
  OptionReader reader(command, args);
  OptionItem item;
  while (reader.Next(&item, &error)) {
    if (item.option == nullptr) {
      root = item.name;
      continue;
    }
    const int id = item.option->id;
    if (id == kOptNoSubfolders || id == kOptNoWarnings || id == kOptLiteral) {
      subfolders &= id != kOptNoSubfolders;
      quiet |= id == kOptNoWarnings;
      continue;
    }
    const bool ok = id == kOptRule         ? AddRuleLine(item.value, &rule_list, &error)
                    : id == kOptExpression ? AddExpression(item.value, &rule_list, &error)
                    : id == kOptRulesFile  ? AddRulesFile(item.value, &rule_list, &error)
                                           : (error = "index sql does not take " + item.name + " here", false);
    if (!ok) break;
  }
  if (!error.empty()) {
    std::fprintf(stderr, "trovix-cli: %s\n", error.c_str());
    return 2;
  }
  FlushValueWarnings(quiet, stderr);
  if (root.empty() || rule_list.empty()) {
    std::fprintf(stderr, "trovix-cli: index sql needs a ROOT and at least one rule (-r RULE)\n");
    return 2;
  }
  root = std::filesystem::absolute(root).lexically_normal().string();
  if (root.size() > 1 && root.back() == '/') root.pop_back();
  rules::RuleSet set;
  if (!set.Compile(rule_list)) {
    std::fprintf(stderr, "trovix-cli: the rules could not be compiled\n");
    return 2;
  }
  const engine::index::PlannedQuery plan = engine::index::PlanIndexQuery(set, root, subfolders);
  if (plan.sql.empty()) {
    std::printf("\nnone\n");
    std::fprintf(stderr, "trovix-cli: no rule has an index form; the search walks the folders\n");
    return 1;
  }
  std::printf("%s\n%s\n", plan.sql.c_str(), plan.filter_mode == 0 ? "exact" : "re-test");
  engine::index::SqliteQuery translated;
  if (!engine::index::TranslateIndexSql(plan.sql, engine::index::ContentsTokenizer::kTrigram, &translated, &error)) {
    std::printf("untranslatable: %s\n", error.c_str());
    return 1;
  }
  return 0;
}

}  // namespace trovix::cli
