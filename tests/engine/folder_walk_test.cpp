#include "engine/walk/folder_walk.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "tests/engine/faulty_dir_system.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine {
namespace {

using platform::FileType;
using trovix::testing::FaultyDirSystem;
using trovix::testing::TempTree;
using Paths = std::vector<std::string>;

WalkOptions Reproducible() {
  WalkOptions o;
  o.sort_names = true;
  return o;
}

// Runs a walk over the tree's root and returns the visited paths relative to it.
struct Walker {
  explicit Walker(const TempTree& t, WalkOptions o = Reproducible()) : tree(t), options(o) {}

  Paths Run(FolderWalk::Visitor extra = nullptr) {
    FolderWalk walk(options, fs);
    walk.set_error_handler([this](const std::string& path, int err) { errors.emplace_back(Rel(path), err); });
    Paths seen;
    summary = walk.Run({tree.root()}, stop.get_token(), [&](const props::ShellItemPtr& item) {
      seen.push_back(Rel(item->path()));
      return extra ? extra(item) : WalkStep::kContinue;
    });
    return seen;
  }
  std::string Rel(const std::string& path) const {
    return path == tree.root() ? "" : path.substr(tree.root().size() + 1);
  }

  const TempTree& tree;
  WalkOptions options;
  FaultyDirSystem fs;
  std::stop_source stop;
  WalkSummary summary;
  std::vector<std::pair<std::string, int>> errors;
};

TEST(FolderWalk, VisitsBreadthFirstInBytewiseOrderWithinEachFolder) {
  TempTree tree({"b/x", "a/z/w", "a/y", "c", "B"});
  Walker w(tree);
  EXPECT_EQ(w.Run(), (Paths{"B", "a", "b", "c", "a/y", "a/z", "b/x", "a/z/w"}));
  EXPECT_EQ(w.summary.folders_read, 4u);
  EXPECT_EQ(w.summary.items, 8u);
  EXPECT_FALSE(w.summary.stopped);
}

TEST(FolderWalk, ReadingThreadsDoNotChangeTheOrder) {
  TempTree tree;
  for (int i = 0; i < 40; ++i)
    for (int j = 0; j < 3; ++j) tree.Add("d" + std::to_string(i) + "/s" + std::to_string(j) + "/f");
  Paths one = Walker(tree).Run();
  WalkOptions threaded = Reproducible();
  threaded.threads = 4;
  Walker w(tree, threaded);
  EXPECT_EQ(w.Run(), one);
  EXPECT_EQ(one.size(), 40u * 7u);
}

TEST(FolderWalk, HiddenItemsAreSkippedAndNotEnteredUnlessAsked) {
  TempTree tree({".h/x", ".f", "a/.g", "a/v"});
  WalkOptions skip = Reproducible();
  skip.enumerate_hidden = true;  // listed with hidden names, still skipped in mode 0
  EXPECT_EQ(Walker(tree, skip).Run(), (Paths{"a", "a/v"}));
  WalkOptions visit = Reproducible();
  visit.hidden = HiddenMode::kVisitAll;
  EXPECT_EQ(Walker(tree, visit).Run(), (Paths{".f", ".h", "a", ".h/x", "a/.g", "a/v"}));
}

TEST(FolderWalk, WithoutSubfoldersOnlyTheRootsChildrenAreVisited) {
  TempTree tree({"a/deep/x", "f"});
  WalkOptions o = Reproducible();
  o.search_subfolders = false;
  Walker w(tree, o);
  EXPECT_EQ(w.Run(), (Paths{"a", "f"}));
  EXPECT_EQ(w.summary.folders_read, 1u);

  std::vector<std::string> paths;
  FolderWalk(o).Run({tree.root() + "//"}, {}, [&](const props::ShellItemPtr& item) {
    paths.push_back(item->path());
    return WalkStep::kContinue;
  });
  EXPECT_EQ(paths, (Paths{tree.path("a"), tree.path("f")})) << "a root's trailing separators are dropped";
}

TEST(FolderWalk, VisitorCanKeepAFolderFromBeingEntered) {
  TempTree tree({"a/x", "b/y"});
  Walker w(tree);
  EXPECT_EQ(w.Run([](const props::ShellItemPtr& item) {
    return item->name() == "a" ? WalkStep::kSkipFolder : WalkStep::kContinue;
  }), (Paths{"a", "b", "b/y"}));
}

TEST(FolderWalk, LinksToFoldersAreItemsEnteredOnlyWhenFollowed) {
  TempTree tree({"a/f", "l->a", "t.txt=hello", "lt->t.txt"});
  Walker plain(tree);
  uint32_t link_attributes = 0;
  uint64_t link_size = 0;
  EXPECT_EQ(plain.Run([&](const props::ShellItemPtr& item) {
    if (item->name() == "l") link_attributes = item->FileAttributes();
    if (item->name() == "lt") link_size = item->Status()->size;
    return WalkStep::kContinue;
  }), (Paths{"a", "l", "lt", "t.txt", "a/f"}));
  EXPECT_TRUE(link_attributes & platform::FILE_ATTRIBUTE_REPARSE_POINT);
  EXPECT_TRUE(link_attributes & platform::FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_EQ(link_size, 5u) << "a link not followed is sized as the link itself (its target text)";

  WalkOptions follow = Reproducible();
  follow.follow_links = true;
  Walker followed(tree, follow);
  link_size = 0;
  // "l" leads to "a", which was entered already: the folder is never read twice.
  EXPECT_EQ(followed.Run([&](const props::ShellItemPtr& item) {
    if (item->name() == "lt") link_size = item->Status()->size;
    return WalkStep::kContinue;
  }), (Paths{"a", "l", "lt", "t.txt", "a/f"}));
  EXPECT_EQ(followed.summary.loops_skipped, 1u);
  EXPECT_EQ(link_size, 5u);
}

TEST(FolderWalk, FollowedLinksIntoOtherTreesAreEnteredAndLoopsEnd) {
  TempTree other({"inner/x"});
  TempTree tree({"a/b/"});
  tree.Link("a/b/up", "../..");  // back to the root
  tree.Link("out", other.root());
  WalkOptions follow = Reproducible();
  follow.follow_links = true;
  Walker w(tree, follow);
  EXPECT_EQ(w.Run(), (Paths{"a", "out", "a/b", "out/inner", "a/b/up", "out/inner/x"}));
  EXPECT_EQ(w.summary.loops_skipped, 1u);
}

TEST(FolderWalk, ItemsThatVanishBeforeTheirTestAreSkipped) {
  TempTree tree({"a/x", "b/y", "c.txt"});
  Walker w(tree);
  w.fs.HideTypes();  // every entry needs a stat, as on a file system without d_type
  w.fs.AddPhantom(tree.root(), "ghost", FileType::kRegular);
  Paths seen = w.Run([&](const props::ShellItemPtr& item) {
    if (item->name() == "a") {
      tree.Remove("b");      // listed, gone before its turn as a folder
      tree.Remove("c.txt");  // listed (and typed), gone before its test asks for the size
    }
    if (item->name() == "c.txt") {
      EXPECT_EQ(item->Status(), nullptr);
    }
    return WalkStep::kContinue;
  });
  EXPECT_EQ(seen, (Paths{"a", "b", "c.txt", "a/x"}));
  // The phantom (stat at listing time), "c.txt" (stat in the test) and the folder "b".
  EXPECT_EQ(w.summary.items_vanished, 3u);
  EXPECT_EQ(w.summary.folders_unreadable, 0u);
  EXPECT_FALSE(ItemVanished(*props::ShellItem::FromPath(tree.path("nothing"))))
      << "an item nobody asked about has not vanished";
}

TEST(FolderWalk, UnreadableFoldersAreSkippedAndCounted) {
  TempTree tree({"a/x", "b/y", "c/z1", "c/z2", "c/z3"});
  Walker w(tree);
  w.fs.Deny(tree.path("a"), EACCES);
  w.fs.FailReadAfter(tree.path("c"), 2, EIO);
  Paths seen = w.Run();
  // "a" is an item but is not entered; "c" keeps what was read before the error.
  ASSERT_EQ(seen.size(), 6u);
  EXPECT_EQ(Paths(seen.begin(), seen.begin() + 4), (Paths{"a", "b", "c", "b/y"}));
  EXPECT_EQ(seen[4].substr(0, 3), "c/z");
  EXPECT_EQ(w.summary.folders_unreadable, 2u);
  EXPECT_EQ(w.errors, (std::vector<std::pair<std::string, int>>{{"a", EACCES}, {"c", EIO}}));

  Walker denied_root(tree);
  denied_root.fs.Deny(tree.root(), EACCES);
  EXPECT_TRUE(denied_root.Run().empty());
  EXPECT_EQ(denied_root.errors, (std::vector<std::pair<std::string, int>>{{"", EACCES}}));
}

TEST(FolderWalk, SpecialFilesAreVisitedButNeverOpened) {
  TempTree tree({"p|fifo", "d/q|fifo"});
  Walker w(tree);
  uint32_t attributes = 0;
  EXPECT_EQ(w.Run([&](const props::ShellItemPtr& item) {
    if (item->name() == "p") attributes = item->FileAttributes();
    return WalkStep::kContinue;
  }), (Paths{"d", "p", "d/q"}));
  EXPECT_TRUE(attributes & platform::FILE_ATTRIBUTE_SYSTEM);
  EXPECT_EQ(w.fs.opened(), (Paths{tree.root(), tree.path("d")}));
}

TEST(FolderWalk, NamesThatAreNotUtf8KeepTheirBytes) {
  TempTree tree({"\xff" "dir/\xfe.txt"});
  Walker w(tree);
  std::string display;
  EXPECT_EQ(w.Run([&](const props::ShellItemPtr& item) {
    display = item->DisplayName();
    return WalkStep::kContinue;
  }), (Paths{"\xff" "dir", "\xff" "dir/\xfe.txt"}));
  EXPECT_EQ(display, "\xEF\xBF\xBD.txt");
}

TEST(FolderWalk, StopEndsTheWalkBeforeTheNextItemAndLeavesQueuedFoldersUnread) {
  TempTree tree({"a/x", "b/y", "c/z"});
  for (int threads : {1, 3}) {
    SCOPED_TRACE(threads);
    WalkOptions o = Reproducible();
    o.threads = threads;
    Walker by_token(tree, o);
    EXPECT_EQ(by_token.Run([&](const props::ShellItemPtr& item) {
      if (item->name() == "b") by_token.stop.request_stop();
      return WalkStep::kContinue;
    }), (Paths{"a", "b"}));
    EXPECT_TRUE(by_token.summary.stopped);
    if (threads == 1) {
      EXPECT_EQ(by_token.fs.opened(), (Paths{tree.root()}));
    }

    Walker by_visitor(tree, o);
    EXPECT_EQ(by_visitor.Run([&](const props::ShellItemPtr& item) {
      return item->name() == "x" ? WalkStep::kStop : WalkStep::kContinue;
    }), (Paths{"a", "b", "c", "a/x"}));
    EXPECT_TRUE(by_visitor.summary.stopped);
  }
}

TEST(FolderWalk, StatusIsShownAtMostOncePer1001Milliseconds) {
  TempTree tree({"a/f", "b/f", "c/f", "d/f"});
  uint64_t now = 10'000;
  struct Statuses : ResultSink {
    void SetStatus(const std::string& text) override { texts.push_back(text); }
    void SearchState(bool, std::shared_ptr<const rules::RuleSet>) override {}
    int AddResult(const props::ShellItemPtr&) override { return 0; }
    Paths texts;
  } sink;
  StatusThrottle status(&sink, [&] { return now; });
  FolderWalk walk(Reproducible());
  walk.set_status(&status);
  walk.Run({tree.root()}, {}, [&](const props::ShellItemPtr&) {
    now += 500;
    return WalkStep::kContinue;
  });
  // Entered at 10000 (root), 12000 (a), 12500 (b), 13000 (c: only 1000 ms), 13500 (d).
  EXPECT_EQ(sink.texts, (Paths{SearchingInText(tree.root()), SearchingInText(tree.path("a")),
                               SearchingInText(tree.path("d"))}));
}

class ArchivesAsFolders : public VirtualFolders {
 public:
  bool IsVirtualFolder(props::ShellItem& item) override { return item.extension() == "zip"; }
  int List(const props::ShellItemPtr& folder, std::vector<VirtualChild>* out) override {
    if (folder->extension() != "zip") return 0;  // a folder inside: empty
    out->push_back({props::ShellItem::FromPath(folder->path() + "/inner"), true});
    out->push_back({props::ShellItem::FromPath(folder->path() + "/.hid"), false});
    out->push_back({props::ShellItem::FromPath(folder->path() + "/doc.txt"), false});
    return 0;
  }
};

TEST(FolderWalk, VirtualFoldersAreEnteredOnlyWhenAskedAndThroughTheHook) {
  TempTree tree({"a.zip", "f.txt"});
  ArchivesAsFolders hook;
  Walker off(tree);
  EXPECT_EQ(off.Run(), (Paths{"a.zip", "f.txt"}));
  WalkOptions o = Reproducible();
  o.enter_virtual_folders = true;
  Walker on(tree, o);
  FolderWalk walk(o, on.fs);
  walk.set_virtual_folders(&hook);
  Paths seen;
  walk.Run({tree.root()}, {}, [&](const props::ShellItemPtr& item) {
    seen.push_back(on.Rel(item->path()));
    return WalkStep::kContinue;
  });
  EXPECT_EQ(seen, (Paths{"a.zip", "f.txt", "a.zip/inner", "a.zip/doc.txt"}));
}

}  // namespace
}  // namespace trovix::engine
