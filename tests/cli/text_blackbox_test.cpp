// trovix-cli text and contents searches, run as a user runs them, on files the tests make and
// on the sample documents when they are there.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "tests/support/cli_run.h"

namespace trovix::cli {
namespace {

using testing::Occurrences;
using testing::RunCli;

std::string CorpusDir() {
  std::string dir = testing::CorpusDir();
  return std::filesystem::is_directory(dir) ? dir : std::string();
}

TEST(TrovixCliText, PrintsTheTextOrSaysWhyThereIsNone) {
  testing::TempTree tree({"note.txt=one two three four", "empty.txt=", "folder/"});
  tree.File("blob.xyz", std::string("\0\1\2\3\0\0\x7F" "ELF", 11));
  auto run = RunCli(tree, {"text", tree.path("note.txt")});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "one two three four");

  auto excerpt = RunCli(tree, {"text", tree.path("note.txt"), "--excerpt", "5", "--term", "TWO"});
  EXPECT_EQ(excerpt.out, "...\r\ntwo t\r\n...\n");

  EXPECT_EQ(RunCli(tree, {"text", tree.path("empty.txt")}).status, 1);
  auto binary = RunCli(tree, {"text", tree.path("blob.xyz")});
  EXPECT_EQ(binary.status, 2);
  EXPECT_NE(binary.err.find("no reader for .xyz"), std::string::npos) << binary.err;
  EXPECT_EQ(RunCli(tree, {"text", tree.path("missing.txt")}).status, 2);
  EXPECT_EQ(RunCli(tree, {"text", tree.path("folder")}).status, 2);
}

TEST(TrovixCliText, ReadsArchiveMembersByTheirPath) {
  testing::TempTree tree({"src/docs/b.txt=inside the archive", "src/inner/c.txt=two levels down"});
  std::string command = "cd '" + tree.path("src") + "' && zip -qr inner.zip inner && zip -qr '" +
                        tree.path("a.zip") + "' docs inner.zip";
  ASSERT_EQ(std::system(command.c_str()), 0);
  auto member = RunCli(tree, {"text", tree.path("a.zip/docs/b.txt")});
  EXPECT_EQ(member.status, 0) << member.err;
  EXPECT_EQ(member.out, "inside the archive");
  auto nested = RunCli(tree, {"text", tree.path("a.zip/inner.zip/inner/c.txt")});
  EXPECT_EQ(nested.out, "two levels down") << nested.err;
  EXPECT_EQ(RunCli(tree, {"text", tree.path("a.zip/docs/none.txt")}).status, 2);
}

TEST(TrovixCliText, SearchShowsWhereTheTextWasFoundAndAdvisesOnce) {
  testing::TempTree tree({"x/a.txt=alpha\nthe hidden treasure lies here\nomega", "x/b.txt=nothing"});
  auto run = RunCli(tree, {"search", tree.path("x"), "-r", "System.Search.Contents: hidden treasure", "--columns",
                        "name,excerpt"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "Name\texcerpt\na.txt\talpha the hidden treasure lies here omega\n");
  // Every common document type has a reader: no advice.
  EXPECT_EQ(run.err.find("no reader"), std::string::npos) << run.err;
  // A .doc file the user excluded from reading is no reason for advice.
  const std::string ini = tree.path("trovix.ini");
  tree.File("x/old.doc", "treasure");
  ASSERT_EQ(RunCli(tree, {"--settings", ini, "settings", "set", "szGrepExcludeTypes", "doc"}).status, 0);
  auto excluded = RunCli(tree, {"--settings", ini, "search", tree.path("x"), "-r", "System.Search.Contents: treasure"});
  EXPECT_EQ(excluded.status, 0) << excluded.err;
  EXPECT_EQ(excluded.err, "");
  // Without a helper to read documents, the .doc met is advised on once and counted.
  ASSERT_EQ(RunCli(tree, {"--settings", ini, "settings", "set", "szGrepExcludeTypes", ""}).status, 0);
  auto without_helper = [&] {
    return testing::RunProgram(TROVIX_CLI_PATH,
                               {"--settings", ini, "search", tree.path("x"), "-r", "System.Search.Contents: treasure"},
                               tree.path("stderr.txt"),
                               "XDG_CACHE_HOME=" + testing::ShellQuote(tree.path(".cache")) + " TROVIX_EXTRACT=" +
                                   testing::ShellQuote(tree.path("no-such-helper")) + " ");
  };
  auto advised = without_helper();
  EXPECT_EQ(advised.status, 2) << advised.err;  // a reader that cannot start is an error
  EXPECT_EQ(advised.out, tree.path("x/a.txt") + "\n");
  size_t first = advised.err.find("no reader");
  ASSERT_NE(first, std::string::npos) << advised.err;
  EXPECT_NE(advised.err.find(".DOC"), std::string::npos) << advised.err;
  EXPECT_EQ(advised.err.find("no reader", first + 1), std::string::npos);
  EXPECT_NE(advised.err.find("1 .doc file not read: their reader could not be used"), std::string::npos)
      << advised.err;
  // The setting it names silences the advice; the count stays, as it says what happened.
  ASSERT_EQ(RunCli(tree, {"--settings", ini, "settings", "set", "bin1OffNotify", "+2"}).status, 0);
  auto quiet = without_helper();
  EXPECT_EQ(quiet.err.find("no reader"), std::string::npos) << quiet.err;
  EXPECT_NE(quiet.err.find("1 .doc file not read"), std::string::npos) << quiet.err;
}

TEST(TrovixCliText, SampleDocumentsGiveTheirTextAndLockedOnesSaySo) {
  const std::string corpus = CorpusDir();
  if (corpus.empty()) GTEST_SKIP() << "the sample corpus is not there (set TROVIX_CORPUS)";
  testing::TempTree tree;
  auto locked = RunCli(tree, {"text", corpus + "/documents/libreoffice-writer-password.pdf"});
  EXPECT_EQ(locked.status, 2);
  EXPECT_NE(locked.err.find("encrypted"), std::string::npos) << locked.err;
  auto nasty = RunCli(tree, {"text", corpus + "/documents/nasty.odt"});
  EXPECT_NE(nasty.out.find("Test:"), std::string::npos) << nasty.err;
  // Every sample document is searched without a crash of the search.
  auto all = RunCli(tree, {"search", corpus, "-r", "System.Search.Contents: the", "--virtual-folders"});
  EXPECT_EQ(all.status, 0) << all.err;
}

TEST(TrovixCliText, RtfWithoutEscapesGivesItsTextNotItsMarkup) {
  const std::string rtf =
      "{\\rtf1\\ansi\\deff0{\\fonttbl{\\f0 Arial;}}{\\colortbl;\\red0\\green0\\blue0;}\\f0 "
      "Quarterly figures\\par Second line}";
  testing::TempTree tree({"x/plain.txt=the fonttbl word in a note"});
  tree.File("x/report.rtf", rtf);
  tree.File("x/UPPER.RTF", rtf);
  auto text = RunCli(tree, {"text", tree.path("x/report.rtf")});
  EXPECT_EQ(text.status, 0) << text.err;
  EXPECT_NE(text.out.find("Quarterly figures"), std::string::npos) << text.out;
  EXPECT_EQ(text.out.find("fonttbl"), std::string::npos) << text.out;
  EXPECT_EQ(text.out.find("\\par"), std::string::npos) << text.out;
  // Markup is found in no document; the words are found in both.
  auto markup = RunCli(tree, {"search", tree.path("x"), "-r", "System.Search.Contents: fonttbl"});
  EXPECT_EQ(markup.out, tree.path("x/plain.txt") + "\n") << markup.err;
  auto words = RunCli(tree, {"search", tree.path("x"), "-r", "System.Search.Contents: quarterly",
                          "--sort", "path"});
  EXPECT_EQ(testing::SortedLines(words.out),
            (std::vector<std::string>{tree.path("x/UPPER.RTF"), tree.path("x/report.rtf")}))
      << words.err;
}

// Without its helper the program still runs, but every command that needed a document read
// says once where it looked for the helper and what went unread, and fails.
TEST(TrovixCliText, AMissingDocumentReaderIsAnErrorNamingWhereItWasLookedFor) {
  testing::TempTree tree({"docs/notes.txt=harbour lights", "plain/only.txt=harbour"});
  tree.File("docs/report.pdf", "%PDF-1.4\n% not much of a document\n");
  tree.File("docs/page.html", "<html><body>harbour</body></html>");
  std::filesystem::create_directories(tree.path("bin"));
  std::filesystem::copy_file(TROVIX_CLI_PATH, tree.path("bin/trovix-cli"));
  const std::string alone = tree.path("bin/trovix-cli");
  const std::string env = "XDG_CACHE_HOME=" + testing::ShellQuote(tree.path(".cache")) + " ";
  auto run = [&](const std::vector<std::string>& args, const std::string& extra_env = "") {
    return testing::RunProgram(alone, args, tree.path("stderr.txt"), env + extra_env);
  };
  const std::string looked_at =
      "cannot start the document reader " + tree.path("bin/trovix-extract");

  auto search = run({"search", tree.path("docs"), "-r", "System.Search.Contents: harbour"});
  EXPECT_EQ(search.status, 2);
  EXPECT_EQ(search.out, tree.path("docs/notes.txt") + "\n");  // what could be read is still found
  EXPECT_EQ(Occurrences(search.err, looked_at), 1u) << search.err;
  EXPECT_NE(search.err.find("were not read"), std::string::npos) << search.err;

  auto text = run({"text", tree.path("docs/report.pdf")});
  EXPECT_EQ(text.status, 2);
  EXPECT_EQ(Occurrences(text.err, looked_at), 1u) << text.err;
  auto props = run({"props", tree.path("docs/report.pdf")});
  EXPECT_EQ(props.status, 2);
  EXPECT_EQ(Occurrences(props.err, looked_at), 1u) << props.err;
  auto explain =
      run({"explain", tree.path("docs/page.html"), "-r", "System.Search.Contents: harbour"});
  EXPECT_EQ(explain.status, 2);
  EXPECT_EQ(Occurrences(explain.err, looked_at), 1u) << explain.err;

  // Nothing that needed the helper: nothing to say.
  auto plain = run({"search", tree.path("plain"), "-r", "System.Search.Contents: harbour"});
  EXPECT_EQ(plain.status, 0) << plain.err;
  EXPECT_EQ(plain.err.find("document reader"), std::string::npos) << plain.err;

  // A helper named by the environment is the path looked at.
  auto named =
      run({"text", tree.path("docs/page.html")},
          "TROVIX_EXTRACT=" + testing::ShellQuote(tree.path("nowhere/trovix-extract")) + " ");
  EXPECT_EQ(named.status, 2);
  EXPECT_NE(named.err.find("cannot start the document reader " +
                           tree.path("nowhere/trovix-extract") + " (No such file or directory)"),
            std::string::npos)
      << named.err;
}

}  // namespace
}  // namespace trovix::cli
