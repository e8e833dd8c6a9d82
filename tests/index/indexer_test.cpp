// The indexer against real trees: what an update writes, what it leaves alone, what the watch
// follows.
#include "index/indexer.h"

#include <atomic>
#include <filesystem>
#include <random>
#include <set>
#include <thread>

#include <gtest/gtest.h>

#include "index/sqlite/index_database.h"
#include "index/index_watch.h"
#include "index/sqlite/index_schema.h"
#include "index/sqlite/text_pieces.h"
#include "platform/sqlite_statement.h"
#include "tests/support/index_fixtures.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine::index {
namespace {

using testing::CountWhere;
using testing::Eventually;
using testing::IndexedPaths;
using testing::TempTree;
using platform::Statement;
using namespace std::chrono_literals;

std::set<std::string> DiskPaths(const std::string& root) {
  std::set<std::string> out;
  for (auto it = std::filesystem::recursive_directory_iterator(root); it != std::filesystem::end(it); ++it) {
    const std::string name = it->path().filename().string();
    if (name == ".git") {
      it.disable_recursion_pending();
      continue;
    }
    out.insert(it->path().string());
  }
  return out;
}

// Items with text: each has a first piece.
const std::string kItemsWithText =
    "SELECT count(*) FROM texts WHERE (id & " + std::to_string(kMaxTextPieces - 1) + ") = 0";

struct Fixture {
  TempTree tree{{"data/a/one.txt=first file", "data/a/two.md=second", "data/b/c/deep.txt=deep text here",
                 "data/.git/HEAD=ref", "data/Mixed Case.TXT=x"}};
  std::string error;
  std::unique_ptr<IndexDatabase> db =
      IndexDatabase::Open(tree.path("index.db"), IndexDatabase::Access::kWrite, &error);
  std::unique_ptr<Indexer> indexer = std::make_unique<Indexer>(*db);

  UpdateStats Update() {
    UpdateStats stats;
    EXPECT_TRUE(indexer->Update({}, &stats, {})) << indexer->error();
    return stats;
  }
};

TEST(Indexer, UpdateFollowsEveryKindOfChangeAndAnUnchangedTreeCostsNoWrite) {
  Fixture f;
  ASSERT_TRUE(f.db) << f.error;
  ASSERT_TRUE(f.indexer->AddRoot(f.tree.path("data"), &f.error)) << f.error;
  UpdateStats first = f.Update();
  EXPECT_EQ(first.added, 7);  // .git is excluded by default
  EXPECT_EQ(IndexedPaths(*f.db), DiskPaths(f.tree.path("data")));
  EXPECT_EQ(CountWhere(*f.db, "SELECT count(*) FROM items WHERE state=0"), 0);
  EXPECT_EQ(CountWhere(*f.db, kItemsWithText), 4);
  // The shown name's folded form is what the names table searches.
  EXPECT_EQ(CountWhere(*f.db, "SELECT count(*) FROM items WHERE name_key='mixed case.txt'"), 1);

  UpdateStats again = f.Update();
  EXPECT_EQ(again.added + again.changed + again.removed + again.read, 0);

  // Changed contents, a removed folder with its tree, a renamed folder, a file in place of a
  // folder, a new file.
  f.tree.File("data/a/one.txt", "first file, longer now");
  f.tree.Remove("data/b");
  std::filesystem::rename(f.tree.path("data/a"), f.tree.path("data/renamed"));
  f.tree.File("data/b", "now a file");
  f.tree.File("data/renamed/new.txt", "new");
  UpdateStats changed = f.Update();
  EXPECT_EQ(IndexedPaths(*f.db), DiskPaths(f.tree.path("data")));
  EXPECT_GT(changed.removed, 0);
  EXPECT_EQ(CountWhere(*f.db, "SELECT count(*) FROM items WHERE state=0"), 0);
  // Nothing of the removed rows is left behind in the side tables.
  EXPECT_EQ(CountWhere(*f.db, "SELECT count(*) FROM texts WHERE (id >> " + std::to_string(kTextPieceBits) + ") NOT IN (SELECT id FROM items)"), 0);
  EXPECT_EQ(CountWhere(*f.db, "SELECT count(*) FROM folders WHERE id NOT IN (SELECT id FROM items)"), 0);
  // The trigram table keeps no text: a changed file's old entries are taken out with the text
  // kept beside it, and only the new text's trigrams remain.
  const char* const longer = "SELECT count(*) FROM contents WHERE contents MATCH '\"lon\" \"ger\"'";
  EXPECT_EQ(CountWhere(*f.db, longer), 1);

  // A removed root takes its rows with it, its trigram entries too.
  ASSERT_TRUE(f.indexer->Remove(f.tree.path("data"), &f.error)) << f.error;
  EXPECT_TRUE(IndexedPaths(*f.db).empty());
  EXPECT_EQ(CountWhere(*f.db, longer), 0);
  EXPECT_EQ(CountWhere(*f.db, "SELECT count(*) FROM contents WHERE contents MATCH '\"fil\"'"), 0);
}

// An index of an older layout is never read as if it were of this one: a search is refused
// (and walks), the next writer builds it anew with the user's folders and says so.
TEST(Indexer, AnIndexOfAnOlderLayoutIsBuiltAnewWithItsFolders) {
  Fixture f;
  ASSERT_TRUE(f.indexer->AddRoot(f.tree.path("data"), &f.error)) << f.error;
  f.Update();
  ASSERT_TRUE(f.db->SetMeta("schema", "1"));
  f.indexer.reset();
  f.db.reset();
  std::string error, notice;
  EXPECT_EQ(IndexDatabase::Open(f.tree.path("index.db"), IndexDatabase::Access::kRead, &error), nullptr);
  EXPECT_NE(error.find("older version"), std::string::npos) << error;
  auto db = IndexDatabase::Open(f.tree.path("index.db"), IndexDatabase::Access::kWrite, &error, &notice);
  ASSERT_TRUE(db) << error;
  EXPECT_NE(notice.find("built anew"), std::string::npos) << notice;
  EXPECT_EQ(db->Meta("schema"), std::to_string(kSchemaVersion));
  Indexer again(*db);
  EXPECT_EQ(again.Scope().size(), 1 + DefaultExclusions().size());
  EXPECT_TRUE(IndexedPaths(*db).empty());
  UpdateStats stats;
  ASSERT_TRUE(again.Update({}, &stats, {})) << again.error();
  EXPECT_EQ(IndexedPaths(*db), DiskPaths(f.tree.path("data")));
}

// A text longer than a piece is kept whole in pieces that overlap, and one longer than the
// bound is marked partial; taking a changed file's text out leaves no trigram of it behind.
TEST(Indexer, LongTextIsKeptInPiecesAndPastTheBoundMarkedPartial) {
  TempTree tree;
  std::string text;
  for (int i = 0; i < 400; ++i) text += "line " + std::to_string(i) + " of the harbour log\n";
  tree.File("data/long.txt", text);
  tree.File("data/longer.txt", text + text + text);
  std::string error;
  auto db = IndexDatabase::Open(tree.path("index.db"), IndexDatabase::Access::kWrite, &error);
  ASSERT_TRUE(db) << error;
  Indexer indexer(*db);
  indexer.set_text_piece_bytes(1000);
  indexer.set_max_text_bytes(20'000);
  ASSERT_TRUE(indexer.AddRoot(tree.path("data"), &error)) << error;
  UpdateStats stats;
  ASSERT_TRUE(indexer.Update({}, &stats, {})) << indexer.error();
  EXPECT_EQ(stats.partial, 1);
  EXPECT_EQ(CountWhere(*db, "SELECT count(*) FROM items WHERE state=2 AND name='longer.txt'"), 1);
  EXPECT_GT(CountWhere(*db, "SELECT count(*) FROM texts"), 30);
  // The last line of the shorter file is in its last piece; the longer file holds it within
  // the bound too.
  EXPECT_EQ(CountWhere(*db, "SELECT count(DISTINCT rowid >> " + std::to_string(kTextPieceBits) + ") FROM contents WHERE contents MATCH '\"399\"'"), 2);
  tree.File("data/long.txt", "short now");
  tree.File("data/longer.txt", "short too");
  ASSERT_TRUE(indexer.Update({}, &stats, {})) << indexer.error();
  EXPECT_EQ(CountWhere(*db, "SELECT count(*) FROM contents WHERE contents MATCH '\"har\"'"), 0);
  EXPECT_EQ(CountWhere(*db, "SELECT count(*) FROM texts"), 2);
  EXPECT_EQ(CountWhere(*db, "SELECT count(*) FROM items WHERE state=2"), 0);
}

TEST(Indexer, ScopeKeepsRootsApartAndAppliesExclusionsAtEveryLevel) {
  Fixture f;
  ASSERT_TRUE(f.indexer->AddRoot(f.tree.path("data/a"), &f.error));
  EXPECT_FALSE(f.indexer->AddRoot(f.tree.path("data/a"), &f.error));
  EXPECT_NE(f.error.find("already indexed"), std::string::npos);
  EXPECT_FALSE(f.indexer->AddRoot(f.tree.path("missing"), &f.error));
  // A root above takes the place of the one below it.
  ASSERT_TRUE(f.indexer->AddRoot(f.tree.path("data"), &f.error));
  ASSERT_TRUE(f.indexer->AddExclusion("c", &f.error));
  std::vector<std::string> roots;
  for (const auto& e : f.indexer->Scope())
    if (e.include) roots.push_back(e.path);
  EXPECT_EQ(roots, std::vector<std::string>{f.tree.path("data")});
  EXPECT_TRUE(f.indexer->InScope(f.tree.path("data/a")));
  EXPECT_FALSE(f.indexer->InScope(f.tree.path("data/b/c")));
  EXPECT_FALSE(f.indexer->InScope(f.tree.path("data/.git/objects")));
  EXPECT_FALSE(f.indexer->InScope(f.tree.path("elsewhere")));
  f.Update();
  EXPECT_EQ(IndexedPaths(*f.db).count(f.tree.path("data/b/c/deep.txt")), 0u);
}

TEST(Indexer, TheWatchFollowsFilesMadeRenamedAndDeletedWithinMoments) {
  Fixture f;
  ASSERT_TRUE(f.indexer->AddRoot(f.tree.path("data"), &f.error));
  std::stop_source stop;
  std::vector<std::string> log;
  std::mutex log_mutex;
  std::thread watcher([&] {
    WatchIndex(*f.indexer, WatchOptions{}, stop.get_token(), [&](const std::string& line) {
      std::lock_guard<std::mutex> lock(log_mutex);
      log.push_back(line);
    });
  });
  auto watching = [&] {
    std::lock_guard<std::mutex> lock(log_mutex);
    return !log.empty() && log.back().find("watching") == 0;
  };
  // The watcher has its own connection to the same database.
  std::string error;
  auto reader = IndexDatabase::Open(f.tree.path("index.db"), IndexDatabase::Access::kRead, &error);
  ASSERT_TRUE(reader) << error;
  EXPECT_TRUE(Eventually(watching, 5s));
  f.tree.File("data/a/made.txt", "made while watched");
  f.tree.File("data/new/deeper/file.txt", "in a new folder");
  EXPECT_TRUE(Eventually([&] { return IndexedPaths(*reader).count(f.tree.path("data/a/made.txt")) == 1; }, 5s));
  EXPECT_TRUE(
      Eventually([&] { return IndexedPaths(*reader).count(f.tree.path("data/new/deeper/file.txt")) == 1; }, 5s));
  std::filesystem::rename(f.tree.path("data/a"), f.tree.path("data/moved"));
  f.tree.Remove("data/b");
  EXPECT_TRUE(Eventually([&] { return IndexedPaths(*reader) == DiskPaths(f.tree.path("data")); }, 5s));
  stop.request_stop();
  watcher.join();
}

// A folder written to every 50 ms never falls quiet for the 200 ms the watch gathers changes:
// its changes must still reach the index within two seconds of the first (here given a
// generous margin for a loaded machine), while the writing goes on.
TEST(Indexer, TheWatchWritesABusyFolderWithinSeconds) {
  Fixture f;
  ASSERT_TRUE(f.indexer->AddRoot(f.tree.path("data"), &f.error));
  std::stop_source stop;
  std::atomic<bool> watching{false};
  std::thread watcher([&] {
    WatchIndex(*f.indexer, WatchOptions{}, stop.get_token(), [&](const std::string& line) {
      if (line.find("watching") == 0) watching = true;
    });
  });
  for (int i = 0; i < 100 && !watching; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  ASSERT_TRUE(watching);
  std::atomic<bool> writing{true};
  std::thread writer([&] {
    for (int i = 0; writing; ++i) {
      f.tree.File("data/a/busy.log", "line " + std::to_string(i));
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  f.tree.File("data/a/arrived.txt", "made while the folder is busy");
  const auto made = std::chrono::steady_clock::now();
  std::string error;
  auto reader = IndexDatabase::Open(f.tree.path("index.db"), IndexDatabase::Access::kRead, &error);
  ASSERT_TRUE(reader) << error;
  bool found = false;
  while (!found && std::chrono::steady_clock::now() - made < std::chrono::seconds(4)) {
    found = IndexedPaths(*reader).count(f.tree.path("data/a/arrived.txt")) == 1;
    if (!found) std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  const bool still_writing = writing;
  writing = false;
  writer.join();
  stop.request_stop();
  watcher.join();
  EXPECT_TRUE(still_writing);
  EXPECT_TRUE(found) << "the busy folder's new file did not reach the index within 4 s";
}

// Text that compresses no better than prose with numbers in it: a batch's bound counts the
// compressed pieces.
std::string Prose(std::mt19937& random, size_t bytes) {
  std::string text;
  while (text.size() < bytes) {
    for (int n = 2 + static_cast<int>(random() % 8); n > 0; --n) text.push_back(static_cast<char>('a' + random() % 26));
    text.push_back(random() % 9 ? ' ' : '\n');
  }
  return text;
}

// How many of the kept text pieces of the file `name` hold `word`.
int64_t PiecesWith(IndexDatabase& db, const std::string& name, const std::string& word) {
  Statement s(db.db(), "SELECT t.body FROM texts t JOIN items i ON t.id >> " + std::to_string(kTextPieceBits) +
                           " = i.id WHERE i.name = ?");
  s.Bind(1, name);
  int64_t count = 0;
  std::string text;
  while (s.Step() == SQLITE_ROW) count += InflateText(s.Blob(0), &text) && text.find(word) != std::string::npos;
  return count;
}

// The read phase writes what it read in batches bounded by bytes, not only by items: with a
// bound of about two files' text, a dozen files take several batches, and none is lost, read
// twice or cut short, in a full update and in a watch's refresh of one folder. Each file's
// text is past what one item may hold beside a large one, so items are read one large item at
// a time and set aside for the next batch when the bound is reached.
TEST(Indexer, ReadBatchesAreBoundedInBytesAndLoseNothing) {
  TempTree tree;
  std::mt19937 random(5);
  for (int i = 0; i < 12; ++i)
    tree.File("data/f" + std::to_string(i) + ".txt",
              "word" + std::to_string(i) + " " + Prose(random, 300'000) + " zq" + std::to_string(i) + "endmark");
  std::string error;
  auto db = IndexDatabase::Open(tree.path("index.db"), IndexDatabase::Access::kWrite, &error);
  ASSERT_TRUE(db) << error;
  Indexer indexer(*db);
  indexer.set_read_batch_bytes(600'000);
  ASSERT_TRUE(indexer.AddRoot(tree.path("data"), &error)) << error;
  UpdateStats stats;
  ASSERT_TRUE(indexer.Update({}, &stats, {})) << indexer.error();
  EXPECT_EQ(stats.read, 12);
  EXPECT_GE(stats.read_batches, 4);
  EXPECT_LE(stats.read_batches, 12);
  EXPECT_EQ(CountWhere(*db, kItemsWithText), 12);
  EXPECT_EQ(CountWhere(*db, "SELECT count(*) FROM items WHERE state=0"), 0);
  for (int i = 0; i < 12; ++i) {
    const std::string name = "f" + std::to_string(i) + ".txt";
    EXPECT_EQ(PiecesWith(*db, name, "zq" + std::to_string(i) + "endmark"), 1) << name;
    EXPECT_EQ(PiecesWith(*db, name, "word" + std::to_string(i) + " "), 1) << name;
  }

  // A refresh reads only the rows it changed, in bounded batches too.
  for (int i = 0; i < 6; ++i)
    tree.File("data/f" + std::to_string(i) + ".txt", "changed " + Prose(random, 300'001));
  UpdateStats refreshed;
  ASSERT_TRUE(indexer.Refresh(tree.path("data"), false, &refreshed, {})) << indexer.error();
  EXPECT_EQ(refreshed.read, 6);
  EXPECT_GE(refreshed.read_batches, 2);
  EXPECT_EQ(CountWhere(*db, "SELECT count(*) FROM items WHERE state=0"), 0);
  EXPECT_EQ(CountWhere(*db, kItemsWithText), 12);
}

}  // namespace
}  // namespace trovix::engine::index
