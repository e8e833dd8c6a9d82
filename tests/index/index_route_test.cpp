// The index route as a search drives it: a stop that comes while rows are still being handed
// over ends the query before the next row, whether the query runs on the search's thread (the
// index answers alone) or on a worker (rows re-tested on their files).
#include <gtest/gtest.h>

#include <stop_token>

#include "engine/extraction/own_properties.h"
#include "index/index_route.h"
#include "index/indexer.h"
#include "index/sqlite/index_database.h"
#include "props/catalogue.h"
#include "rules/rule_set.h"
#include "rules/value/value_syntax.h"
#include "tests/support/index_fixtures.h"
#include "tests/support/search_fixtures.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine::index {
namespace {

using testing::TempTree;

// Takes every row and asks for the stop at the first.
class StoppingSink : public trovix::testing::CollectingSink {
 public:
  explicit StoppingSink(std::stop_source& stop) : stop_(stop) {}
  int AddResult(const props::ShellItemPtr& item) override {
    CollectingSink::AddResult(item);
    stop_.request_stop();
    return 0;
  }

 private:
  std::stop_source& stop_;
};

TEST(SqliteIndexRoute, AStopDuringTheRowsEndsTheQueryBeforeTheNextRow) {
  InstallOwnPropertySource();
  TempTree tree;
  for (int i = 0; i < 40; ++i) tree.File("root/f" + std::to_string(i) + ".txt", "a quiet Harbour at night");
  UpdateStats stats;
  ASSERT_NO_FATAL_FAILURE(testing::BuildIndex(tree.path("index.db"), tree.path("root"), &stats));
  // A contents rule alone is answered by the index alone; one that tells case apart has each
  // row re-tested on its file.
  for (const char* value : {"harbour", "Harbour"}) {
    SCOPED_TRACE(value);
    auto rule = testing::MakeRule("System.Search.Contents", value);
    if (value[0] == 'H') rule->SetFlags(rule->Flags() & ~0x1u);
    rules::RuleSet set;
    ASSERT_TRUE(set.Compile({rule}));
    SqliteIndexRoute route(tree.path("index.db"));
    ASSERT_TRUE(route.ServiceAvailable());
    trovix::testing::CollectingSink all;
    EXPECT_EQ(route.RunIndexQuery(set, tree.path("root"), IndexQueryOptions{}, all, {}), 40);
    std::stop_source stop;
    StoppingSink sink(stop);
    const int64_t taken = route.RunIndexQuery(set, tree.path("root"), IndexQueryOptions{}, sink, stop.get_token());
    EXPECT_EQ(taken, 1);
    EXPECT_EQ(sink.paths.size(), 1u);
    EXPECT_TRUE(route.last_report().error.empty()) << route.last_report().error;
  }
}

}  // namespace
}  // namespace trovix::engine::index
