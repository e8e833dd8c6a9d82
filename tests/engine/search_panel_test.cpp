#include <gtest/gtest.h>

#include "engine/search/search_panel.h"
#include "props/shell_item.h"
#include "tests/support/search_fixtures.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine {
namespace {

using trovix::testing::CollectingSink;
using trovix::testing::MakeRule;

TEST(ParseRootText, WholeTextFirstThenPiecesThatAreFolders) {
  testing::TempTree tree({"a/x.txt", "b/", "file.txt", "odd|name/"});
  ParsedRoots one = ParseRootText(tree.path("odd|name"), "/");
  ASSERT_EQ(one.roots.size(), 1u);  // the whole text names a folder: no split
  ParsedRoots many = ParseRootText(tree.path("b") + "|" + tree.path("missing") + "|" + tree.path("file.txt") + "|a",
                                   tree.root());
  EXPECT_EQ(many.roots, (std::vector<std::string>{tree.path("b"), tree.path("a")}));
  EXPECT_EQ(many.rebuilt, tree.path("b") + "|" + tree.path("a"));
  EXPECT_TRUE(ParseRootText(tree.path("file.txt"), "/").single_file);
  // Roots are written without "." and ".." steps, as a shell shows them.
  EXPECT_EQ(ParseRootText(".//a/../b/.", tree.root()).rebuilt, tree.path("b"));
  EXPECT_EQ(ParseRootText("../..", "/x").rebuilt, "/");
  EXPECT_TRUE(ParseRootText(tree.path("missing"), "/").roots.empty());
  EXPECT_TRUE(ParseRootText(tree.path("file.txt") + "|" + tree.path("missing"), "/").roots.empty());
}

// On the caller's thread a search has ended when Start returns; a stop from outside, even one
// asked for before the start, ends it before its first item. (The refusals of a search without
// rules or root, and a search over several roots, are the desktop's and the console's tests.)
TEST(SearchPanel, OnTheCallersThreadStartReturnsWithTheSearchEndedAndAnOutsideStopEndsIt) {
  testing::TempTree tree({"a/one.txt", "a/sub/two.txt", "a/three.log"});
  std::stop_source outside;
  SearchRequest request;
  request.rules = {MakeRule("System.ItemNameDisplay", "*.txt")};
  request.root_text = tree.path("a");
  for (bool stopped : {false, true}) {
    if (stopped) outside.request_stop();
    CollectingSink sink;
    SearchPanel panel(sink);
    panel.RunOnCaller(outside.get_token());
    ASSERT_EQ(panel.StartOrStop(request), StartOutcome::kStarted);
    EXPECT_FALSE(panel.running());
    EXPECT_EQ(sink.states, (std::vector<bool>{true, false}));
    EXPECT_EQ(sink.paths.size(), stopped ? 0u : 2u);
    EXPECT_EQ(panel.Wait(), stopped ? 0 : 2);
  }
}

TEST(SearchPanel, AnyTextSearchesTheSimplePropertyList) {
  testing::TempTree tree({"docs/annual report.txt", "docs/other.txt"});
  CollectingSink sink;
  SearchPanel panel(sink);
  SearchRequest request;
  request.rules = {MakeRule("*", "report")};
  request.root_text = tree.path("docs");
  ASSERT_EQ(panel.StartOrStop(request), StartOutcome::kStarted);
  EXPECT_EQ(panel.Wait(), 1);
  EXPECT_EQ(sink.paths, (std::vector<std::string>{tree.path("docs/annual report.txt")}));
  // A file as root with a single any-text rule: nothing to do at all.
  request.root_text = tree.path("docs/other.txt");
  EXPECT_EQ(panel.StartOrStop(request), StartOutcome::kNothing);
}

class RefusingThenCountingIndex : public IndexRoute {
 public:
  bool ServiceAvailable() override { return true; }
  bool IsInScope(const std::string&) override { return true; }
  int64_t RunIndexQuery(rules::RuleSet&, const std::string& root, const IndexQueryOptions&, ResultSink& sink,
                        std::stop_token) override {
    ++queries;
    return sink.AddResult(props::ShellItem::FromPath(root + "/indexed.txt")) == 0 ? 1 : 0;
  }
  int queries = 0;
};

TEST(SearchPanel, SecondStartOfAnIndexAnsweredSearchRunsTheWalk) {
  testing::TempTree tree({"a/one.txt", "a/two.txt"});
  CollectingSink sink;
  RefusingThenCountingIndex index;
  SearchPanel panel(sink, NoVolumeScan(), index);
  SearchRequest request;
  request.rules = {MakeRule("System.ItemNameDisplay", "*.txt")};
  request.root_text = tree.path("a");
  ASSERT_EQ(panel.StartOrStop(request), StartOutcome::kStarted);
  EXPECT_EQ(panel.Wait(), 1);
  EXPECT_TRUE(panel.index_memory());
  ASSERT_EQ(panel.StartOrStop(request), StartOutcome::kStarted);
  EXPECT_EQ(panel.Wait(), 2);  // the robust search
  EXPECT_EQ(index.queries, 1);
  EXPECT_FALSE(panel.index_memory());
  // Changing the rule makes the next start use the index again.
  request.rules = {MakeRule("System.ItemNameDisplay", "one*")};
  ASSERT_EQ(panel.StartOrStop(request), StartOutcome::kStarted);
  panel.Wait();
  EXPECT_EQ(index.queries, 2);
}

class CountingVolumeScan : public VolumeScanRoute {
 public:
  bool Allowed() override { return true; }
  int64_t ScanVolumeTable(rules::RuleSet&, const std::string&, int, ResultSink&, std::stop_token) override {
    ++scans;
    return 0;
  }
  int scans = 0;
};

// The volume table answers only what a bare name can answer, and only a walk without limits.
TEST(SearchPanel, VolumeTableOnlyForOneNameRuleAndAnUnlimitedWalk) {
  testing::TempTree tree({"a/one.txt"});
  struct Case {
    const char* what;
    std::vector<rules::RulePtr> rules;
    uint32_t bin_flags;
    int max_depth;
    int scans;
  };
  const Case cases[] = {
      {"one name rule", {MakeRule("System.ItemNameDisplay", "*.txt")}, 0, -1, 1},
      {"turned off by binFlags 0x0800", {MakeRule("System.ItemNameDisplay", "*.txt")}, 0x0800, -1, 0},
      {"a depth limit", {MakeRule("System.ItemNameDisplay", "*.txt")}, 0, 2, 0},
      {"a size rule", {MakeRule("System.Size", ">1")}, 0, -1, 0},
      {"two rules", {MakeRule("System.ItemNameDisplay", "*.txt"), MakeRule("System.Size", ">1")}, 0, -1, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    CollectingSink sink;
    CountingVolumeScan volume;
    SearchPanel panel(sink, volume);
    SearchRequest request;
    request.rules = c.rules;
    request.root_text = tree.path("a");
    request.bin_flags = c.bin_flags;
    request.max_depth = c.max_depth;
    ASSERT_EQ(panel.StartOrStop(request), StartOutcome::kStarted);
    panel.Wait();
    EXPECT_EQ(volume.scans, c.scans);
  }
}

// The walk pays the file system only for what decides: the console writes "--size" before
// "--ext", and still no item whose name fails is asked its status, on one thread or several,
// with the name rule at the top level or in a group with an OR.
TEST(SearchPanel, AsksTheStatusOnlyOfItemsTheirNamesLeaveOpen) {
  testing::TempTree tree;
  for (int i = 0; i < 60; ++i)
    tree.File("d" + std::to_string(i % 4) + "/note" + std::to_string(i) + ".txt", "x");
  tree.File("d0/big.h", std::string(20000, 'h'));
  tree.File("d1/small.h", "h");
  tree.File("d2/big.c", std::string(20000, 'c'));
  struct Case {
    const char* name;
    std::vector<rules::RulePtr> rules;
    std::vector<std::string> found;
    uint64_t statuses;  // the items the names leave open
  };
  auto grouped = [](rules::RulePtr rule, int32_t context, int32_t indent) {
    rule->SetContext(context);
    rule->SetIndent(indent);
    return rule;
  };
  std::vector<Case> cases;
  cases.push_back({"size, then extension",
                   {MakeRule("System.Size", "> 10000"), MakeRule("System.ItemNameDisplay", "=*.h")},
                   {tree.path("d0/big.h")},
                   2});
  cases.push_back({"size, then a group of names",
                   {MakeRule("System.Size", "> 10000"),
                    grouped(MakeRule("System.ItemNameDisplay", "=*.h"), rules::kContextAnd, 0),
                    grouped(MakeRule("System.ItemNameDisplay", "=*.c"), rules::kContextOr, 1)},
                   {tree.path("d0/big.h"), tree.path("d2/big.c")},
                   3});
  // Contents first, then a group of names: the text of a file is read only where its name
  // leaves the answer open, and no status is asked for it: the listing said it is a file.
  cases.push_back({"contents, then a group of names",
                   {MakeRule("System.Search.Contents", "hhh"),
                    grouped(MakeRule("System.ItemNameDisplay", "=*.h"), rules::kContextAnd, 0),
                    grouped(MakeRule("System.ItemNameDisplay", "=*.c"), rules::kContextOr, 1)},
                   {tree.path("d0/big.h")},
                   0});
  cases.push_back({"contents alone", {MakeRule("System.Search.Contents", "ccc")}, {tree.path("d2/big.c")}, 0});
  for (const Case& c : cases) {
    for (int threads : {1, 3}) {
      SCOPED_TRACE(std::string(c.name) + ", threads " + std::to_string(threads));
      CollectingSink sink;
      SearchPanel panel(sink);
      SearchRequest request;
      request.rules = c.rules;
      request.root_text = tree.root();
      request.threads = threads;
      const uint64_t before = props::StatusReadCount();
      ASSERT_EQ(panel.StartOrStop(request), StartOutcome::kStarted);
      panel.Wait();
      EXPECT_EQ(props::StatusReadCount() - before, c.statuses);
      EXPECT_EQ(sink.Sorted(), c.found);
      EXPECT_EQ(panel.last_walk().items, 67u);  // every item was still visited
    }
  }
  // A size rule alone asks every item, while its folder is open.
  CollectingSink sink;
  SearchPanel panel(sink);
  SearchRequest request;
  request.rules = {MakeRule("System.Size", "> 10000")};
  request.root_text = tree.root();
  const uint64_t before = props::StatusReadCount();
  ASSERT_EQ(panel.StartOrStop(request), StartOutcome::kStarted);
  panel.Wait();
  EXPECT_EQ(props::StatusReadCount() - before, 67u);
  EXPECT_EQ(sink.Sorted(),
            (std::vector<std::string>{tree.path("d0/big.h"), tree.path("d2/big.c")}));
}

}  // namespace
}  // namespace trovix::engine
