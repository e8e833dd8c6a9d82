// A content plugin's fields in the index: the indexer reads them with the other properties,
// and a rule on a plugin field answered by the index finds what the walk finds, also after
// the plugin was installed on an index read without it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/search/search_panel.h"
#include "index/index_route.h"
#include "index/indexer.h"
#include "index/sqlite/index_database.h"
#include "props/catalogue.h"
#include "props/content_plugin.h"
#include "props/plugins/plugin_columns.h"
#include "rules/rule_set.h"
#include "rules/value/value_syntax.h"
#include "tests/support/search_fixtures.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine::index {
namespace {

using trovix::testing::CollectingSink;

void Update(testing::TempTree& tree) {
  std::string error;
  auto db = IndexDatabase::Open(tree.path("index.db"), IndexDatabase::Access::kWrite, &error);
  ASSERT_TRUE(db) << error;
  Indexer indexer(*db);
  if (indexer.Scope().empty()) {
    ASSERT_TRUE(indexer.AddRoot(tree.path("root"), &error)) << error;
  }
  UpdateStats stats;
  ASSERT_TRUE(indexer.Update({}, &stats, {})) << indexer.error();
}

// The files a rule on the detect plugin's field finds, by the walk and by the index.
// `indexed` false: the index must leave the search to the walk.
void ExpectIndexAnswersAsTheWalk(testing::TempTree& tree, const char* value, const std::vector<std::string>& expected,
                                 bool indexed = true) {
  SCOPED_TRACE(value);
  // The process's catalogue may have been built before the plugin was installed.
  std::unique_ptr<props::Catalogue> catalogue = props::Catalogue::Build(false);
  const props::PropertyInfo* seen = catalogue->FindProperty("Seen.detect");
  ASSERT_NE(seen, nullptr);
  auto rule = rules::Rule::CreateFor(*seen);
  ASSERT_TRUE(rules::ParseRuleText(*rule, value));
  CollectingSink walk_sink;
  {
    SearchPanel panel(walk_sink);
    SearchRequest request;
    request.rules = {rule};
    request.root_text = tree.path("root");
    ASSERT_EQ(panel.StartOrStop(request), StartOutcome::kStarted);
    panel.Wait();
  }
  rules::RuleSet set;
  ASSERT_TRUE(set.Compile({rule}));
  SqliteIndexRoute route(tree.path("index.db"));
  CollectingSink index_sink;
  route.RunIndexQuery(set, tree.path("root"), IndexQueryOptions{}, index_sink, {});
  const IndexQueryReport report = route.last_report();
  EXPECT_EQ(walk_sink.Names(tree.path("root")), expected);
  if (!indexed) {
    EXPECT_EQ(report.sql, "") << "values read under other plugins are not used";
    return;
  }
  EXPECT_NE(report.sql, "") << "a rule on a plugin field goes to the index";
  EXPECT_EQ(report.error, "") << report.sql;
  EXPECT_EQ(index_sink.Names(tree.path("root")), expected) << report.sql;
}

TEST(PluginValuesInTheIndex, AnswerAsTheWalkBeforeAndAfterThePluginsChange) {
  testing::TempTree tree({"root/a.txt=x", "root/b.md=x", "root/c.log=x", "root/sub/d.txt=x", "root/sub/e.TXT=x"});
  props::InstallContentPlugins({}, {});
  ASSERT_NO_FATAL_FAILURE(Update(tree));  // read without plugins

  props::PluginHostOptions options;
  options.program = TROVIX_PLUGIN_HOST_PATH;
  // Built under the 64-bit name; the detect string keeps .log files from the plugin.
  props::InstallContentPlugins(
      {props::MakeContentPlugin(0, std::string(TROVIX_TEST_PLUGIN_DIR) + "/detect.wdx64", "")}, options);
  ExpectIndexAnswersAsTheWalk(tree, "txt", {"a.txt", "sub/d.txt", "sub/e.TXT"}, false);  // not read yet
  ASSERT_NO_FATAL_FAILURE(Update(tree));  // nothing changed on disk: the plugin values alone are read
  ExpectIndexAnswersAsTheWalk(tree, "txt", {"a.txt", "sub/d.txt", "sub/e.TXT"});
  ExpectIndexAnswersAsTheWalk(tree, "md", {"b.md"});

  // A new file is read by the read phase with its plugin values.
  tree.File("root/sub/f.md", "y");
  ASSERT_NO_FATAL_FAILURE(Update(tree));
  ExpectIndexAnswersAsTheWalk(tree, "md", {"b.md", "sub/f.md"});

  // The same plugin under another detect string: its old values go with it.
  props::InstallContentPlugins(
      {props::MakeContentPlugin(0, std::string(TROVIX_TEST_PLUGIN_DIR) + "/detect.wdx64", "EXT=\"TXT\"")}, options);
  ExpectIndexAnswersAsTheWalk(tree, "md", {}, false);  // until the next update
  ASSERT_NO_FATAL_FAILURE(Update(tree));
  ExpectIndexAnswersAsTheWalk(tree, "md", {});
  ExpectIndexAnswersAsTheWalk(tree, "txt", {"a.txt", "sub/d.txt", "sub/e.TXT"});
  props::InstallContentPlugins({}, {});
}

}  // namespace
}  // namespace trovix::engine::index
