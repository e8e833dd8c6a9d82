// The index must answer as the walk does. One generated tree, many generated rule sets: each
// is run through the folder walk and through the index; where every rule translated the two
// answers are equal, and where some did not, the index's answer is part of the walk's (it
// may lose what only an untranslatable rule joined by OR would have found, never add). The
// detective, asked about single files, must give the walk's verdict on each.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include "index/sqlite/index_database.h"
#include "index/index_route.h"
#include "index/indexer.h"
#include "index/sqlite/index_schema.h"
#include "platform/sqlite_statement.h"
#include "engine/extraction/own_properties.h"
#include "engine/search/search_panel.h"
#include "props/catalogue.h"
#include "rules/compare_flags.h"
#include "rules/rule_set.h"
#include "rules/value/value_syntax.h"
#include "tests/support/index_fixtures.h"
#include "tests/support/search_fixtures.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine::index {
namespace {

using testing::TempTree;

using trovix::testing::CollectingSink;

std::set<std::string> PathSet(const CollectingSink& sink) { return {sink.paths.begin(), sink.paths.end()}; }

// The folder walk's answer to `list` under `root`, the side the index must agree with.
void Walk(const std::vector<rules::RulePtr>& list, const std::string& root, CollectingSink& sink) {
  SearchPanel panel(sink);
  SearchRequest request;
  request.rules = list;
  request.root_text = root;
  ASSERT_EQ(panel.StartOrStop(request), StartOutcome::kStarted);
  panel.Wait();
}

// Names meet the awkward cases of the translation: case and accents, LIKE's own characters,
// apostrophes, brackets, a second extension ("*.txt" holds for "a.txt.bak" in the walk, which
// reads a wildcard that is not exact as found anywhere in the name).
const char* const kStems[] = {"Report", "report_2024", "Übersicht", "naïve notes", "PHOTO", "a%b_c",
                              "it's mine", "[draft]", "summary", "Straße", "data-01", "readme"};
const char* const kExtensions[] = {".txt", ".md", ".JPG", ".csv", ".log", "", ".txt.bak"};
const char* const kWords[] = {"harbour", "lantern", "quiet", "ledger", "Harbour lights", "numbers"};
// Between words: the line breaks and runs of blanks that a phrase reads as one blank.
const char* const kBlanks[] = {" ", " ", " ", "\n", "  ", "\r\n", " \t\n  "};

void SetTimes(const std::string& path, int64_t seconds) {
  timespec times[2] = {{seconds, 0}, {seconds, 0}};
  utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
}

struct RuleChoice {
  const char* property;
  const char* value;
};

// Values as a user types them into a rule box.
const RuleChoice kChoices[] = {
    {"System.ItemNameDisplay", "report"},        {"System.ItemNameDisplay", "übersicht"},
    {"System.ItemNameDisplay", "PHOTO"},         {"System.ItemNameDisplay", "a%b"},
    {"System.ItemNameDisplay", "it's"},          {"System.ItemNameDisplay", "*.txt"},
    {"System.ItemNameDisplay", "*.jpg"},         {"System.ItemNameDisplay", "re*rt*"},
    {"System.ItemNameDisplay", "?ata*"},         {"System.ItemNameDisplay", "STRASSE"},
    {"System.ItemNameDisplay", "[draft]*"},      {"System.Size", "> 10 KB"},
    {"System.Size", "< 1 KB"},                   {"System.Size", "2 KB .. 40 KB"},
    {"System.Size", "= 0"},                      {"System.DateModified", "> 2025-01-01"},
    {"System.DateModified", "< 2024-06-30"},     {"System.DateModified", "2024-01-01 .. 2024-12-31"},
    {"System.FileExtension", ".md"},             {"System.Search.Contents", "harbour"},
    {"System.Search.Contents", "quiet"},         {"System.Search.Contents", "\"harbour lights\""},
    {"System.ItemNameDisplay", "*.bak"},         {"System.ItemNameDisplay", "a%b_*"},
    {"System.ItemNameDisplay", "report data"},   {"System.Size", "~ 2000"},
    {"System.Search.Contents", "quiet ledger"},  {"System.Search.Contents", "\"lights quiet\""},
    {"System.Search.Contents", "\"numbers harbour lights\""},
    {"System.Search.Contents", "lighthouse"},    {"System.Search.Contents", "\"lighthouse keeper\""},
    {"System.ItemNameDisplay", "/^rep.*4$/"},  // a regular expression: never translated
};

class IndexDifferential : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    InstallOwnPropertySource();
    tree_ = new TempTree();
    std::mt19937 random(7);
    const int64_t now = time(nullptr);
    for (int i = 0; i < 400; ++i) {
      std::string folder = "root";
      // A folder the index leaves out by default is still searched through it.
      for (int depth = random() % 4; depth > 0; --depth)
        folder += random() % 9 == 0 ? std::string("/__pycache__") : "/f" + std::to_string(random() % 5);
      const std::string name = std::string(kStems[random() % std::size(kStems)]) + "_" + std::to_string(i) +
                               kExtensions[random() % std::size(kExtensions)];
      std::string text;
      const int size_class = random() % 4;
      const size_t bytes = size_class == 0 ? 0 : size_class == 1 ? random() % 900 : 1000 + random() % 60000;
      while (text.size() < bytes) {
        std::string word = kWords[random() % std::size(kWords)];
        if (const size_t blank = word.find(' '); blank != std::string::npos)
          word.replace(blank, 1, kBlanks[random() % std::size(kBlanks)]);
        text += word + kBlanks[random() % std::size(kBlanks)];
      }
      text.resize(bytes);
      tree_->File(folder + "/" + name, text);
      files_.push_back(tree_->path(folder + "/" + name));
      SetTimes(tree_->path(folder + "/" + name), now - static_cast<int64_t>(random() % (3 * 365)) * 86400 -
                                                     static_cast<int64_t>(random() % 86400));
    }
    tree_->File("root/f1/__pycache__/report.txt", "harbour");
    // A rare word among common trigrams ("lig", "hou" are in "lights", "harbour"): found inside
    // a longer word, across a line break of a phrase, and across the cut between two pieces.
    tree_->File("root/f2/keeper.txt", "the old Lighthouses stand");
    tree_->File("root/f3/glued.md", "harbourlighthouse\nkeeper");
    tree_->File("root/f4/long.log", std::string(690, 'x') + " lighthouse keeper " + std::string(900, 'y'));
    for (const char* name : {"root/f2/keeper.txt", "root/f3/glued.md", "root/f4/long.log"})
      files_.push_back(tree_->path(name));
    // Small pieces, so that most files are kept in several and phrases meet their seams; and
    // a small bound, so that the largest files are kept only in part and re-tested.
    UpdateStats stats;
    ASSERT_NO_FATAL_FAILURE(
        testing::BuildIndex(tree_->path("index.db"), tree_->path("root"), &stats, [](Indexer& indexer) {
          indexer.set_text_piece_bytes(700);
          indexer.set_max_text_bytes(40'000);
        }));
    ASSERT_GT(stats.partial, 0);
  }
  static void TearDownTestSuite() {
    delete tree_;
    tree_ = nullptr;
  }

  std::vector<rules::RulePtr> RandomRules(std::mt19937& random) {
    std::vector<rules::RulePtr> list;
    const int count = 1 + random() % 4;
    int indent = 0;
    for (int i = 0; i < count; ++i) {
      const RuleChoice& choice = kChoices[random() % std::size(kChoices)];
      const int32_t context = i == 0 ? rules::kContextAnd : static_cast<int32_t>(random() % 4);
      if (i > 0) indent = std::clamp(indent + static_cast<int>(random() % 3) - 1, 0, indent + 1);
      list.push_back(testing::MakeRule(choice.property, choice.value, context, indent));
    }
    return list;
  }

  // The same rules through the folder walk and through the index.
  void RunBoth(SqliteIndexRoute& route, const std::vector<rules::RulePtr>& list, std::set<std::string>* walked,
               std::set<std::string>* indexed, IndexQueryReport* report) {
    CollectingSink walk_sink;
    Walk(list, tree_->path("root"), walk_sink);
    rules::RuleSet set;
    ASSERT_TRUE(set.Compile(list));
    CollectingSink index_sink;
    route.RunIndexQuery(set, tree_->path("root"), IndexQueryOptions{}, index_sink, {});
    *report = route.last_report();
    *walked = PathSet(walk_sink);
    *indexed = PathSet(index_sink);
  }

  static TempTree* tree_;
  static std::vector<std::string> files_;
};

TempTree* IndexDifferential::tree_ = nullptr;
std::vector<std::string> IndexDifferential::files_;

std::string Describe(const std::vector<rules::RulePtr>& list) {
  rules::RuleSet set;
  set.Compile(list, false);
  return set.Print();
}

TEST_F(IndexDifferential, IndexAnswersEqualTheWalkWhereEveryRuleTranslatedAndAreASubsetElsewhere) {
  std::mt19937 random(20261125);
  SqliteIndexRoute route(tree_->path("index.db"));
  ASSERT_TRUE(route.ServiceAvailable());
  ASSERT_TRUE(route.IsInScope(tree_->path("root")));
  int exact = 0, retested = 0, nonempty = 0, untranslatable = 0, explained = 0;
  for (int round = 0; round < 150; ++round) {
    const std::vector<rules::RulePtr> list = RandomRules(random);
    std::set<std::string> walked, indexed;
    IndexQueryReport report;
    ASSERT_NO_FATAL_FAILURE(RunBoth(route, list, &walked, &indexed, &report));
    // The detective, given one file as the root, explains it as the walk judged it: found
    // exactly where the walk found it.
    for (int pick = 0; pick < 4; ++pick) {
      const std::string& path = files_[random() % files_.size()];
      CollectingSink none;
      SearchPanel panel(none);
      SearchRequest request;
      request.rules = list;
      request.root_text = path;
      if (panel.StartOrStop(request) != StartOutcome::kExplained) continue;
      const DetectiveReport& verdict = panel.detective_report();
      EXPECT_EQ(verdict.found, walked.count(path) == 1) << path << "\n" << verdict.text;
      explained += verdict.found;
    }
    if (report.sql.empty()) continue;  // nothing translated: the walk answers alone
    if (!report.error.empty()) {
      // Text the index cannot read (an apostrophe the builder leaves single): no row, the
      // search walks.
      EXPECT_TRUE(indexed.empty());
      ++untranslatable;
      continue;
    }
    nonempty += !walked.empty();
    if (report.filter_mode == 0) {
      ++exact;
      EXPECT_EQ(indexed, walked) << Describe(list) << "\n" << report.sql;
    } else {
      ++retested;
      EXPECT_TRUE(std::includes(walked.begin(), walked.end(), indexed.begin(), indexed.end()))
          << Describe(list) << "\n" << report.sql;
    }
  }
  // The generator must exercise both kinds, with answers that are not all empty.
  EXPECT_GT(exact, 40);
  EXPECT_GT(retested, 10);
  EXPECT_GT(nonempty, 50);
  EXPECT_GT(untranslatable, 0);
  EXPECT_GT(explained, 20);
}

TEST_F(IndexDifferential, AContentsRuleBesideAnUntranslatableRuleIsReTestedOnTheIndexedTextAndLosesNothing) {
  SqliteIndexRoute route(tree_->path("index.db"));
  ASSERT_TRUE(route.ServiceAvailable());
  const std::vector<std::vector<RuleChoice>> sets = {
      {{"System.Search.Contents", "harbour"}, {"System.ItemNameDisplay", "^[rR]ep"}},
      {{"System.ItemNameDisplay", "[0-9]\\.(txt|md)$"}, {"System.Search.Contents", "\"harbour lights\""}},
      {{"System.Search.Contents", "quiet"}, {"System.ItemNameDisplay", "e.*[0-9]+"}, {"System.Size", "> 1 KB"}},
  };
  for (const auto& choices : sets) {
    std::vector<rules::RulePtr> list;
    for (const RuleChoice& choice : choices) list.push_back(testing::MakeRule(choice.property, choice.value));
    std::set<std::string> walked, indexed;
    IndexQueryReport report;
    ASSERT_NO_FATAL_FAILURE(RunBoth(route, list, &walked, &indexed, &report));
    EXPECT_EQ(report.filter_mode, 2) << report.sql;
    // AND with the untranslatable rules: the index asks less, the re-test the rest.
    EXPECT_EQ(indexed, walked) << Describe(list) << "\n" << report.sql;
    EXPECT_FALSE(walked.empty()) << Describe(list);
  }
}

TEST_F(IndexDifferential, ItemsOfExcludedFoldersAreWalkedAndSaidOnce) {
  SqliteIndexRoute route(tree_->path("index.db"));
  rules::RuleSet set;
  ASSERT_TRUE(set.Compile({testing::MakeRule("System.ItemNameDisplay", "report")}));
  CollectingSink sink;
  route.RunIndexQuery(set, tree_->path("root"), IndexQueryOptions{}, sink, {});
  EXPECT_EQ(route.last_report().filter_mode, 0);
  EXPECT_GT(route.last_report().walked, 0);
  EXPECT_TRUE(PathSet(sink).count(tree_->path("root/f1/__pycache__/report.txt")));
  ASSERT_EQ(sink.notices.size(), 1u);
  EXPECT_NE(sink.notices[0].find("__pycache__"), std::string::npos);
}

// Names holding quotation marks: the builder doubles them inside LIKE text, and the index
// must read them back as one. Every rule that translates answers exactly as the walk.
TEST(IndexQuotationMarks, NamesWithQuotationMarksAreFoundThroughTheIndexAsThroughTheWalk) {
  InstallOwnPropertySource();
  TempTree tree({"root/say \"hi\".txt=x", "root/a\"b.txt=x", "root/x\"\"y.md=x", "root/plain.txt=x",
                 "root/sub/it's \"q\".txt=x", "root/sub/\"lead.log=x", "root/sub/trail\".log=x"});
  UpdateStats stats;
  ASSERT_NO_FATAL_FAILURE(testing::BuildIndex(tree.path("index.db"), tree.path("root"), &stats));
  SqliteIndexRoute route(tree.path("index.db"));
  ASSERT_TRUE(route.IsInScope(tree.path("root")));
  // Wildcard patterns go to LIKE, plain ones to CONTAINS phrases, "=" to an equality.
  const char* const values[] = {"*\"*",     "*\"\"*",    "a\"b*", "*\"hi\"*", "*\".log", "*\"q\"*",
                                "*\"lead*", "=a\"b.txt", "a\"b",  "y.m",      "trail\"", "hi\""};
  int translated = 0;
  for (const char* value : values) {
    SCOPED_TRACE(value);
    auto rule = testing::MakeRule("System.ItemNameDisplay", value);
    CollectingSink walk_sink;
    Walk({rule}, tree.path("root"), walk_sink);
    rules::RuleSet set;
    ASSERT_TRUE(set.Compile({rule}));
    CollectingSink index_sink;
    route.RunIndexQuery(set, tree.path("root"), IndexQueryOptions{}, index_sink, {});
    const IndexQueryReport& report = route.last_report();
    if (report.sql.empty()) continue;  // not translated: the walk answers
    EXPECT_EQ(report.error, "") << report.sql;
    ++translated;
    EXPECT_FALSE(walk_sink.paths.empty());
    EXPECT_EQ(index_sink.Sorted(), walk_sink.Sorted()) << report.sql;
  }
  EXPECT_GE(translated, 8);
}

}  // namespace
}  // namespace trovix::engine::index

namespace trovix::engine::index {
namespace {

// Files a contents search cannot read are counted when the index answers as when the walk
// does: by type and why, the same numbers, hidden folders left out as the walk leaves them.
TEST(IndexUnreadFiles, AreCountedAsTheWalkCountsThem) {
  TempTree tree({"root/a.txt=quiet harbour", "root/b.txt=nothing", "root/sub/c.bin=\x7F" "ELF\x01\x02\x03\x04",
                 "root/.hidden/d.gz=x", "root/sub/.e.gz=x"});
  tree.File("root/notes.gz", std::string("\x1F\x8B\x08\x00\x00\x00\x00\x00", 8));
  tree.File("root/sub/more.gz", std::string("\x1F\x8B\x08\x00\x00\x00\x00\x00", 8));
  std::string error;
  auto db = IndexDatabase::Open(tree.path("index.db"), IndexDatabase::Access::kWrite, &error);
  ASSERT_TRUE(db) << error;
  Indexer indexer(*db);
  ASSERT_TRUE(indexer.AddRoot(tree.path("root"), &error)) << error;
  UpdateStats stats;
  ASSERT_TRUE(indexer.Update({}, &stats, {})) << indexer.error();

  auto rule = testing::MakeRule("System.Search.Contents", "harbour");
  CollectingSink walk_sink;
  Walk({rule}, tree.path("root"), walk_sink);
  rules::RuleSet set;
  ASSERT_TRUE(set.Compile({rule}));
  SqliteIndexRoute route(tree.path("index.db"));
  CollectingSink index_sink;
  UnreadTally tally;
  const ContentsOptions contents;
  IndexQueryOptions options;
  options.unread = &tally;
  options.contents_options = &contents;
  route.RunIndexQuery(set, tree.path("root"), options, index_sink, {});
  EXPECT_EQ(PathSet(index_sink), PathSet(walk_sink));

  auto describe = [](const std::vector<UnreadCount>& counts) {
    std::string out;
    for (const UnreadCount& c : counts) out += c.type + ":" + std::to_string(static_cast<int>(c.reason)) + "x" + std::to_string(c.files) + " ";
    return out;
  };
  EXPECT_EQ(describe(tally.Counts()), describe(walk_sink.unread));
  EXPECT_EQ(describe(tally.Counts()), "gz:0x2 bin:7x1 ");

  // The layout before the unread rows had an index of their own counts the same as it is
  // read, and is brought forward in place by the next writer, its rows kept.
  ASSERT_TRUE(db->Exec("DROP INDEX items_unread", &error)) << error;
  ASSERT_TRUE(db->SetMeta("schema", "3"));
  db.reset();
  auto count_again = [&] {
    SqliteIndexRoute again(tree.path("index.db"));
    UnreadTally counted;
    options.unread = &counted;
    CollectingSink sink;
    again.RunIndexQuery(set, tree.path("root"), options, sink, {});
    EXPECT_EQ(PathSet(sink), PathSet(walk_sink));
    return describe(counted.Counts());
  };
  EXPECT_EQ(count_again(), "gz:0x2 bin:7x1 ");
  db = IndexDatabase::Open(tree.path("index.db"), IndexDatabase::Access::kWrite, &error);
  ASSERT_TRUE(db) << error;
  EXPECT_EQ(db->Meta("schema"), std::to_string(kSchemaVersion));
  platform::Statement unread_index(db->db(), "SELECT count(*) FROM sqlite_master WHERE name='items_unread'");
  ASSERT_EQ(unread_index.Step(), SQLITE_ROW);
  EXPECT_EQ(unread_index.Int(0), 1);
  EXPECT_EQ(count_again(), "gz:0x2 bin:7x1 ");
}

}  // namespace
}  // namespace trovix::engine::index
