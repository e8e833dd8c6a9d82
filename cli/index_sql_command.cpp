// trovix-cli index sql ROOT [-r RULE]... [--no-subfolders]: the SELECT text a search of ROOT
// sends to the index, and on the second line whether its rows are taken as they come ("exact")
// or tested again against the rules ("re-test"). A third line says why the index could not
// answer it, when it could not.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "cli/command_table.h"
#include "cli/option_ids.h"
#include "cli/rule_builder.h"
#include "engine/index/index_route.h"
#include "engine/index/index_translation.h"
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
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    const OptionSpec* option = a.size() > 1 && a[0] == '-' ? FindOption(command, a) : nullptr;
    if (option == nullptr) {
      if (a.size() > 1 && a[0] == '-') {
        std::fprintf(stderr, "trovix-cli: %s\n", UnknownOptionMessage(command, a).c_str());
        return 2;
      }
      root = a;
      continue;
    }
    if (option->id == kOptNoSubfolders || option->id == kOptNoWarnings || option->id == kOptLiteral) {
      subfolders &= option->id != kOptNoSubfolders;
      quiet |= option->id == kOptNoWarnings;
      continue;
    }
    if (option->value.empty() || i + 1 >= args.size()) {
      std::fprintf(stderr, "trovix-cli: index sql does not take %s here\n", a.c_str());
      return 2;
    }
    const std::string& value = args[++i];
    bool ok = option->id == kOptRule         ? AddRuleLine(value, &rule_list, &error)
              : option->id == kOptExpression ? AddExpression(value, &rule_list, &error)
              : option->id == kOptRulesFile  ? AddRulesFile(value, &rule_list, &error)
                                             : (error = "index sql does not take " + a, false);
    if (!ok) {
      std::fprintf(stderr, "trovix-cli: %s\n", error.c_str());
      return 2;
    }
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
