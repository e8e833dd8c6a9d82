// Contents rules end to end: real files in a temporary tree, searched through the search
// panel with the readers and the extraction helper the program itself uses.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <mutex>

#include "engine/extraction/contents_reader.h"
#include "engine/search/search_panel.h"
#include "engine/walk/folder_walk.h"
#include "props/catalogue.h"
#include "rules/value/value_syntax.h"
#include "tests/support/extract_env.h"
#include "tests/support/search_fixtures.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine {
namespace {

// The test build of the helper, whose reader crashes on a document named "poison-crash" and
// hangs on one named "poison-hang" (for the tests that prove they cost only themselves), and
// a crash memory of the tests' own.
const bool kEnvironment = [] {
  setenv("TROVIX_EXTRACT", TROVIX_EXTRACT_TEST_PATH, 1);
  testing::UseBuiltExtractionHelper();
  return true;
}();

using Collect = trovix::testing::CollectingSink;
using trovix::testing::MakeRule;

std::vector<std::string> Search(const std::string& root, std::vector<rules::RulePtr> rules, Collect* sink,
                                SearchRequest request = {}) {
  request.rules = std::move(rules);
  request.root_text = root;
  request.sort_names = true;
  SearchPanel panel(*sink);
  EXPECT_EQ(panel.StartOrStop(request), StartOutcome::kStarted);
  panel.Wait();
  return sink->Names(root);
}

std::string Utf16LeWithMark(std::u16string_view text) {
  std::string out = "\xFF\xFE";
  for (char16_t c : text) {
    out.push_back(static_cast<char>(c & 0xFF));
    out.push_back(static_cast<char>(c >> 8));
  }
  return out;
}

TEST(ContentsSearch, FindsTextInEveryEncodingAndAcrossLinesAndBlocks) {
  testing::TempTree tree({"plain.txt=the quick brown fox", "other.txt=nothing to see", "lines.txt=quick\r\n   brown\tfox",
                          "folder/", "empty.txt="});
  tree.File("utf16.txt", Utf16LeWithMark(u"a qUick brown fox in UTF-16"));
  // The phrase straddles the reader's block boundary (256 KiB).
  std::string big(256 * 1024 - 7, 'x');
  big += " quick brown fox ";
  big += std::string(1000, 'y');
  tree.File("big.txt", big);
  tree.File("binary.bin", std::string("\x7F" "ELF\0\0\0quick brown fox", 23));
  Collect sink;
  auto found = Search(tree.root(), {MakeRule("System.Search.Contents", "\"quick brown fox\"")}, &sink);
  EXPECT_EQ(found, (std::vector<std::string>{"big.txt", "lines.txt", "plain.txt", "utf16.txt"}));
  EXPECT_EQ(sink.excerpts[tree.path("lines.txt")], "quick brown fox");
  EXPECT_NE(sink.excerpts[tree.path("big.txt")].find("quick brown fox"), std::string::npos);
  // Every common document type has a reader, so no advice follows the search.
  EXPECT_TRUE(sink.advice.empty()) << sink.advice;
}

// The box names a common type without a reader only when the search met a file of it: a
// type the user excluded is left out on purpose, and no advice follows a search without one.
TEST(ContentsSearch, TheAdviceNamesOnlyATypeTheSearchMetWithoutAReader) {
  testing::TempTree tree({"a.txt=quick", "old.doc=quick"});
  Collect sink;
  SearchRequest request;
  request.contents.grep_exclude_types = "doc";
  Search(tree.root(), {MakeRule("System.Search.Contents", "quick")}, &sink, request);
  EXPECT_EQ(sink.advice, "(none)");
  EXPECT_TRUE(sink.unread.empty());

  ContentsOptions options;
  options.grep_exclude_types = "doc, odt";
  UnreadTally met;
  bool all_read = true;
  EXPECT_EQ(MissingReaderAdvice(options, met, &all_read), "");
  EXPECT_FALSE(all_read);
  met.Add("odt", UnreadReason::kReaderMissing);
  met.Add("doc", UnreadReason::kReaderMissing);
  EXPECT_EQ(MissingReaderAdvice(options, met), ".DOC");
  EXPECT_EQ(MissingReaderAdvice(ContentsOptions{}, met, &all_read), "");
  EXPECT_TRUE(all_read);
}

// Files that were met and not read are counted by type and reason, once each, on every
// reading thread; what was read, excluded or is an archive is not among them.
TEST(ContentsSearch, FilesNotReadAreCountedOnceByTypeAndReason) {
  testing::TempTree tree({"a.txt=quick", "b.log=quick", "t.tar.gz=x"});
  for (int i = 0; i < 30; ++i) tree.File("d" + std::to_string(i % 4) + "/n" + std::to_string(i) + ".gz", "\x1F\x8B");
  tree.File("p.png", std::string("\x89PNG\r\n\x1A\n\0\0\0", 11));
  tree.File("noext", std::string("\x7F" "ELF\2\1\1\0\0\0\0\0\0\0\0\0\3\0>\0\1\0\0\0", 24));
  Collect sink;
  SearchRequest request;
  request.threads = 3;
  request.contents.grep_exclude_types = "log";
  // Two contents rules read each file: still one file not read.
  auto either = MakeRule("System.Search.Contents", "quick");
  auto other = MakeRule("System.Search.Contents", "slow");
  other->SetContext(rules::kContextOr);
  Search(tree.root(), {either, other}, &sink, request);
  std::map<std::pair<std::string, UnreadReason>, int64_t> got;
  for (const UnreadCount& c : sink.unread) got[{c.type, c.reason}] = c.files;
  const std::map<std::pair<std::string, UnreadReason>, int64_t> want = {
      {{"gz", UnreadReason::kNeedsSearchZip}, 30},
      {{"png", UnreadReason::kNotText}, 1},
      {{"", UnreadReason::kNotText}, 1},
  };
  EXPECT_EQ(got, want);
  EXPECT_EQ(DescribeUnread(sink.unread, UnreadWording{}),
            (std::vector<std::string>{"30 .gz files not read: --search-zip reads them",
                                      "2 other files not read: not text, and nothing reads their type (.png)"}));
}

TEST(ContentsSearch, KeywordListsStopEarlyAndExcludedTypesAreNeverRead) {
  testing::TempTree tree({"a.txt=alpha beta", "b.txt=alpha gamma", "c.log=alpha beta"});
  Collect sink;
  auto rule = MakeRule("System.Search.Contents", "alpha beta");  // two keywords: both must occur
  SearchRequest request;
  request.contents.grep_exclude_types = "tmp, *.LOG";
  request.contents_advice_suppressed = true;
  EXPECT_EQ(Search(tree.root(), {rule}, &sink, request), (std::vector<std::string>{"a.txt"}));
  EXPECT_EQ(sink.advice, "(none)");
}

// Files are tested on several threads; the results and their excerpts come in the walk's order
// all the same, and a stop keeps what was handed on.
TEST(ContentsSearch, ThreadsNeverChangeTheOrderOfResults) {
  testing::TempTree tree;
  for (int i = 0; i < 400; ++i) {
    const std::string name = "d" + std::to_string(i % 7) + "/f" + std::to_string(i) + ".txt";
    tree.File(name, i % 3 ? "nothing here " + std::to_string(i) : std::string(i * 50, 'x') + " needle " + std::to_string(i));
  }
  auto in_order = [&](int threads) {
    Collect sink;
    SearchRequest request;
    request.threads = threads;
    Search(tree.root(), {MakeRule("System.Search.Contents", "needle")}, &sink, request);
    std::vector<std::string> seen;
    for (const std::string& path : sink.paths) seen.push_back(path + " | " + sink.excerpts[path]);
    return seen;
  };
  const std::vector<std::string> one = in_order(1);
  ASSERT_EQ(one.size(), 134u);
  for (const std::string& line : one) EXPECT_NE(line.find("needle", line.find(" | ")), std::string::npos) << line;
  EXPECT_EQ(in_order(4), one);
  EXPECT_EQ(in_order(3), one);
}

TEST(ContentsSearch, GrepInAnExpressionReadsTheSameText) {
  testing::TempTree tree({"a.txt=needle in a haystack", "b.txt=just hay"});
  Collect sink;
  auto rule = rules::Rule::CreateFor(*props::DefaultCatalogue().FindProperty("Stock.Algorithmic"));
  rule->SetText("grep(\"NEEDLE\") & $System.Size > 3");
  EXPECT_EQ(Search(tree.root(), {rule}, &sink), (std::vector<std::string>{"a.txt"}));
}

TEST(ContentsSearch, DetectiveExplainsAFileAndSaysWhyTextIsMissing) {
  testing::TempTree tree({"note.txt=hello world"});
  Collect sink;
  SearchPanel panel(sink);
  SearchRequest request;
  request.rules = {MakeRule("System.Search.Contents", "hello")};
  request.root_text = tree.path("note.txt");
  ASSERT_EQ(panel.StartOrStop(request), StartOutcome::kExplained);
  EXPECT_TRUE(panel.detective_report().found);
  EXPECT_NE(panel.detective_report().text.find("...") , std::string::npos);
}

// A file the listing called regular is opened without a status of its own: what the file
// has become since then must still be found out by the open.
TEST(ContentsReader, TrustsTheListingOnlyAsFarAsTheOpenConfirmsIt) {
  testing::TempTree tree;
  tree.File("gone.txt", "text");
  ASSERT_EQ(mkfifo(tree.path("pipe.txt").c_str(), 0600), 0);
  std::filesystem::create_directory(tree.path("folder.txt"));
  ContentsReader reader(ContentsOptions{});
  auto never = [](std::string_view) { return true; };

  auto gone = props::ShellItem::FromListing(tree.path("gone.txt"), platform::FileType::kRegular);
  std::filesystem::remove(tree.path("gone.txt"));
  EXPECT_EQ(reader.Read(*gone, never).status, props::ContentsStatus::kUnreadable);
  EXPECT_TRUE(ItemVanished(*gone)) << "a search passes over it as over any vanished item";

  // Neither waits for a writer nor reads a folder, whatever the listing said.
  for (const char* name : {"pipe.txt", "folder.txt"}) {
    SCOPED_TRACE(name);
    auto changed = props::ShellItem::FromListing(tree.path(name), platform::FileType::kRegular);
    EXPECT_EQ(reader.Read(*changed, never).status, props::ContentsStatus::kNotAFile);
    EXPECT_FALSE(ItemVanished(*changed));
  }
}

TEST(TextExcerpt, StartsAtTheTermAndMarksWhereItWasCut) {
  testing::TempTree tree({"a.txt=one two three four five"});
  ContentsReader reader({});
  auto item = props::ShellItem::FromPath(tree.path("a.txt"));
  EXPECT_EQ(TextExcerpt(0, *item, reader), "");
  EXPECT_EQ(TextExcerpt(7, *item, reader), "one two\r\n...");
  EXPECT_EQ(TextExcerpt(100, *item, reader, "THREE"), "...\r\nthree four five");
  EXPECT_EQ(TextExcerpt(5, *item, reader, "three"), "...\r\nthree\r\n...");
  EXPECT_EQ(TextExcerpt(100, *item, reader, "six"), "");
}

TEST(ContentsSearch, ArchivesAreEnteredOnlyWhenAskedAndMembersAreSearched) {
  testing::TempTree tree({"src/docs/readme.txt=the archived secret", "src/other.txt=plain", "outside.txt=the secret"});
  std::string zip = tree.path("pack.zip");
  std::string command = "cd '" + tree.path("src") + "' && zip -qr '" + zip + "' docs other.txt && tar -czf '" +
                        tree.path("pack.tar.gz") + "' docs";
  ASSERT_EQ(std::system(command.c_str()), 0);
  std::filesystem::remove_all(tree.path("src"));

  Collect without;
  EXPECT_EQ(Search(tree.root(), {MakeRule("System.Search.Contents", "secret")}, &without),
            (std::vector<std::string>{"outside.txt"}));

  Collect with;
  SearchRequest request;
  request.bin_flags = kFlagEnterVirtualFolders;
  EXPECT_EQ(Search(tree.root(), {MakeRule("System.Search.Contents", "secret")}, &with, request),
            (std::vector<std::string>{"outside.txt", "pack.tar.gz/docs/readme.txt", "pack.zip/docs/readme.txt"}));

  // Members are items with their own names and sizes.
  Collect by_name;
  EXPECT_EQ(Search(tree.root(), {MakeRule("System.ItemNameDisplay", "readme.txt"), MakeRule("System.Size", "19")},
                   &by_name, request),
            (std::vector<std::string>{"pack.tar.gz/docs/readme.txt", "pack.zip/docs/readme.txt"}));

  // An excluded archive class is not entered; a size limit under 10,000 turns member reading off.
  Collect excluded;
  request.excluded_folder_classes = {0xE88DCCE0};
  request.contents.max_stream_extract_size = 5000;
  EXPECT_EQ(Search(tree.root(), {MakeRule("System.ItemNameDisplay", "readme.txt")}, &excluded, request),
            (std::vector<std::string>{"pack.tar.gz/docs/readme.txt"}));
  Collect off;
  EXPECT_EQ(Search(tree.root(), {MakeRule("System.Search.Contents", "secret")}, &off, request),
            (std::vector<std::string>{"outside.txt"}));
}

TEST(ContentsSearch, AReaderThatCrashesCostsOnlyThatFileAndIsSkippedAfterTwice) {
  testing::TempTree tree({"a.html=<p>the word</p>", "poison-crash.html=<p>the word</p>", "c.html=<p>the word</p>"});
  for (int round = 0; round < 3; ++round) {
    Collect sink;
    EXPECT_EQ(Search(tree.root(), {MakeRule("System.Search.Contents", "word")}, &sink),
              (std::vector<std::string>{"a.html", "c.html"}));
  }
  // After two crashes the file is left alone: the reader is not even asked.
  ContentsReader reader({});
  auto poison = props::ShellItem::FromPath(tree.path("poison-crash.html"));
  props::ContentsResult result = reader.Read(*poison, [](std::string_view) { return true; });
  EXPECT_EQ(result.status, props::ContentsStatus::kSkipped);
  EXPECT_EQ(result.message, kSkippedMessage);
  // Until it changes.
  tree.File("poison-crash.html", "<p>changed, and longer</p>");
  EXPECT_EQ(reader.Read(*props::ShellItem::FromPath(tree.path("poison-crash.html")), [](std::string_view) {
    return true;
  }).status, props::ContentsStatus::kFailed);
}

TEST(ContentsSearch, AReaderThatHangsIsStoppedAtItsDeadline) {
  testing::TempTree tree({"poison-hang.html=<p>x</p>", "fine.html=<p>fine words</p>"});
  CrashMemory memory("");
  ExtractionService service(ExtractionOptions{"", 1, 300}, memory);
  ContentsReader reader({}, &service);
  std::string text;
  auto collect = [&](std::string_view piece) {
    text.append(piece);
    return true;
  };
  const auto started = std::chrono::steady_clock::now();
  EXPECT_EQ(reader.Read(*props::ShellItem::FromPath(tree.path("poison-hang.html")), collect).status,
            props::ContentsStatus::kFailed);
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(3));
  EXPECT_EQ(reader.Read(*props::ShellItem::FromPath(tree.path("fine.html")), collect).status,
            props::ContentsStatus::kText);
  EXPECT_NE(text.find("fine words"), std::string::npos);
  EXPECT_EQ(service.helper_starts(), 2u);
}

}  // namespace
}  // namespace trovix::engine
