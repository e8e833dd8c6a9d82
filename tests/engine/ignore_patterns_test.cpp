// Git's ignore patterns: the examples of its documentation, and the same patterns put to git
// itself (git check-ignore in a scratch repository) as the oracle.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "engine/walk/ignore_patterns.h"
#include "engine/walk/ignore_pruner.h"
#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine {
namespace {

struct Case {
  std::string patterns;  // an ignore file's text
  std::string path;      // relative to the file's folder
  bool is_folder;
  bool ignored;
};

// From gitignore(5) and the corners of its matching rules.
const Case kCases[] = {
    {"*.o\n", "a/b/c.o", false, true},
    {"*.o\n!keep.o\n", "a/keep.o", false, false},
    {"doc/frotz/\n", "doc/frotz", true, true},
    {"doc/frotz/\n", "a/doc/frotz", true, false},  // a middle slash anchors
    {"frotz/\n", "a/frotz", true, true},           // no slash but the trailing one: any level
    {"frotz/\n", "a/frotz", false, false},         // folders only
    {"/bar\n", "bar", false, true},
    {"/bar\n", "x/bar", false, false},
    {"foo/*\n", "foo/test.json", false, true},
    {"foo/*\n", "foo/bar/hello.c", false, false},  // "*" stops at "/"
    {"**/foo\n", "x/y/foo", false, true},
    {"**/foo/bar\n", "foo/bar", false, true},
    {"abc/**\n", "abc/x/y", false, true},
    {"abc/**\n", "abc", true, false},
    {"a/**/b\n", "a/b", false, true},
    {"a/**/b\n", "a/x/y/b", false, true},
    {"a/**/b\n", "ab", false, false},
    {"\\#hash\n", "#hash", false, true},
    {"# comment\n", "# comment", false, false},
    {"\\!bang\n", "!bang", false, true},
    {"trail  \n", "trail", false, true},
    {"trail\\ \n", "trail ", false, true},
    {"file[0-9].txt\n", "file7.txt", false, true},
    {"file[!0-9].txt\n", "file7.txt", false, false},
    {"file[!0-9].txt\n", "filex.txt", false, true},
    {"?.c\n", "x/y.c", false, true},
    {"?.c\n", "xy.c", false, false},
    {"*.LOG\n", "a.log", false, false},  // case matters
    {"*.log\n!important.log\n*.log\n", "important.log", false, true},  // the last match wins
};

TEST(IgnorePatterns, DocumentedExamples) {
  for (const Case& c : kCases) {
    const IgnoreVerdict v = Decide(ParseIgnoreText(c.patterns), c.path, c.is_folder);
    EXPECT_EQ(v == IgnoreVerdict::kIgnored, c.ignored) << c.patterns << " vs " << c.path;
  }
}

TEST(IgnorePatterns, LinesLongerThanAnyPathAreSkipped) {
  const std::string longest(kMaxPatternBytes, 'a');
  const std::vector<IgnorePattern> kept = ParseIgnoreText(longest + "\r\n");
  ASSERT_EQ(kept.size(), 1u);
  EXPECT_EQ(kept[0].glob, longest);
  const std::vector<IgnorePattern> patterns = ParseIgnoreText(longest + "a*\n*.log\n");
  ASSERT_EQ(patterns.size(), 1u);
  EXPECT_EQ(patterns[0].glob, "*.log");
}

// As a walk sees it: a file is left out when it or any folder above it is ignored (a pruned
// folder is never read), which is also how git answers for a file.
bool IgnoredOnTheWay(const std::vector<IgnorePattern>& patterns, const std::string& path) {
  for (size_t slash = path.find('/'); slash != std::string::npos; slash = path.find('/', slash + 1))
    if (Decide(patterns, path.substr(0, slash), true) == IgnoreVerdict::kIgnored) return true;
  return Decide(patterns, path, false) == IgnoreVerdict::kIgnored;
}

TEST(IgnorePatterns, ManyStarsDoNotBacktrackWithoutEnd) {
  // Exponential in the number of stars for a plain backtracking matcher: an ignore file in a
  // downloaded tree must not be able to stall a search.
  const std::string many_stars = "*a*a*a*a*a*a*a*a*a*a*a*a*b";
  EXPECT_FALSE(GlobMatches(many_stars, std::string(200, 'a')));
  EXPECT_TRUE(GlobMatches(many_stars, std::string(200, 'a') + "b"));
  EXPECT_FALSE(GlobMatches("**/**/**/**/**/**/x", std::string(100, 'd') + "/" + std::string(100, 'e')));
}

TEST(IgnorePatterns, AgreeWithGitItself) {
  if (access("/usr/bin/git", X_OK) != 0) GTEST_SKIP() << "git is not installed: no oracle";
  for (const Case& c : kCases) {
    // git answers for a folder by what it holds ("abc/**" ignores "abc/" to it, while a walk
    // still lists the empty-looking folder): files only.
    if (c.is_folder) continue;
    testing::TempTree tree;
    if (testing::RunProgram("/usr/bin/git", {"init", "-q", tree.root()}).status != 0) GTEST_SKIP() << "git init failed";
    std::ofstream(tree.path(".gitignore")) << c.patterns;
    testing::ProgramRun run =
        testing::RunProgram("/usr/bin/git", {"-C", tree.root(), "check-ignore", "-q", "--no-index", c.path});
    const bool git_ignores = run.status == 0;
    EXPECT_EQ(IgnoredOnTheWay(ParseIgnoreText(c.patterns), c.path), git_ignores) << c.patterns << " vs " << c.path;
  }
}

TEST(IgnorePruner, LayersFromTheWorkTreesTopDown) {
  testing::TempTree tree({".git/info/exclude=notes.md\n", ".gitignore=*.log\n!keep.log\nbuild/\n",
                          "src/.gitignore=secret*\n", "src/deep/.ignore=keep.log\n", "src/deep/x.c"});
  IgnorePruner pruner({}, /*use_vcs_ignores=*/true);
  // Rooted below the top: the top's files still count.
  WalkPruner::FolderState src = pruner.EnterFolder(nullptr, tree.path("src"), -1);
  EXPECT_TRUE(pruner.Excluded(src, "a.log", false));
  EXPECT_FALSE(pruner.Excluded(src, "keep.log", false));
  EXPECT_TRUE(pruner.Excluded(src, "secret.key", false));
  EXPECT_TRUE(pruner.Excluded(src, "build", true));
  EXPECT_FALSE(pruner.Excluded(src, "build", false));
  EXPECT_TRUE(pruner.Excluded(src, "notes.md", false));
  WalkPruner::FolderState deep = pruner.EnterFolder(src, tree.path("src/deep"), -1);
  EXPECT_TRUE(pruner.Excluded(deep, "keep.log", false));  // .ignore deeper down wins
  EXPECT_FALSE(pruner.Excluded(deep, "x.c", false));
  WalkPruner::FolderState top = pruner.EnterFolder(nullptr, tree.root(), -1);
  EXPECT_TRUE(pruner.Excluded(top, ".git", true));

  // --exclude: relative to the root, and over every re-inclusion.
  IgnorePruner exclude({"src/deep", "*.md"}, false);
  WalkPruner::FolderState root = exclude.EnterFolder(nullptr, tree.root(), -1);
  WalkPruner::FolderState src2 = exclude.EnterFolder(root, tree.path("src"), -1);
  EXPECT_TRUE(exclude.Excluded(src2, "deep", true));
  EXPECT_TRUE(exclude.Excluded(src2, "x.md", false));
  EXPECT_FALSE(exclude.Excluded(root, "deep", true));
}

}  // namespace
}  // namespace trovix::engine
