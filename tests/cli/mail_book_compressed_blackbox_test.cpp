// Mail, e-books and compressed files as a user meets them on the console: contents searches
// find words inside them, attachments are items under the mail with --virtual-folders and
// `text` reads them, and compressed files are read only with --search-zip.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tests/support/cli_run.h"

namespace trovix::cli {
namespace {

using testing::RunCli;

bool Have(const char* tool) {
  return std::system(("command -v " + std::string(tool) + " >/dev/null 2>&1").c_str()) == 0;
}

// "The walrus report is attached." in base64.
constexpr const char* kMail =
    "From: Ann <ann@example.org>\nTo: bob@example.org\nSubject: Walrus census\nMIME-Version: 1.0\n"
    "Content-Type: multipart/mixed; boundary=m\n\n--m\nContent-Type: text/plain; charset=utf-8\n"
    "Content-Transfer-Encoding: quoted-printable\n\nThe walrus count is up by a th=\nird.\n--m\n"
    "Content-Type: text/plain\nContent-Disposition: attachment; filename=report.txt\n"
    "Content-Transfer-Encoding: base64\n\nVGhlIHdhbHJ1cyByZXBvcnQgaXMgYXR0YWNoZWQu\n--m--\n";

// A mailbox file as mail programs keep them, without an extension: its bodies are decoded.
TEST(TrovixCliNewDocuments, AMailboxWithoutAnExtensionIsReadAsMail) {
  testing::TempTree tree({"x/"});
  tree.File("x/Inbox", "From ann@example.org Mon Jan  1 00:00:00 2024\n" + std::string(kMail) +
                           "\nFrom bob@example.org Mon Jan  1 00:01:00 2024\nFrom: Bob <bob@example.org>\n"
                           "Subject: re\n\nplain words here\n");
  tree.File("x/Notes", "From the top of the hill we saw the walrus report is attached.\n");
  for (const char* words : {"up by a third", "plain words here"}) {
    auto found = RunCli(tree, {"search", tree.path("x"), "-r", std::string("System.Search.Contents: ") + words});
    EXPECT_EQ(found.out, tree.path("x/Inbox") + "\n") << words << found.err;
  }
  // Prose that begins with "From " stays text.
  auto prose = RunCli(tree, {"search", tree.path("x"), "-r", "System.Search.Contents: top of the hill"});
  EXPECT_EQ(prose.out, tree.path("x/Notes") + "\n") << prose.err;
}

TEST(TrovixCliNewDocuments, MailIsSearchedAndItsAttachmentsAreItems) {
  testing::TempTree tree({"x/"});
  tree.File("x/census.eml", kMail);
  auto body = RunCli(tree, {"search", tree.path("x"), "-r", "System.Search.Contents: up by a third"});
  EXPECT_EQ(body.status, 0) << body.err;
  EXPECT_EQ(body.out, tree.path("x/census.eml") + "\n");

  auto members = RunCli(tree, {"search", tree.path("x"), "--virtual-folders", "-r",
                            "System.Search.Contents: walrus report"});
  EXPECT_EQ(members.status, 0) << members.err;
  EXPECT_NE(members.out.find(tree.path("x/census.eml/report.txt")), std::string::npos)
      << members.out << members.err;

  auto text = RunCli(tree, {"text", tree.path("x/census.eml/report.txt")});
  EXPECT_EQ(text.status, 0) << text.err;
  EXPECT_EQ(text.out, "The walrus report is attached.");

  auto props = RunCli(tree, {"props", "--all", tree.path("x/census.eml")});
  EXPECT_EQ(props.status, 0) << props.err;
  EXPECT_NE(props.out.find("ann@example.org"), std::string::npos) << props.out;
  EXPECT_NE(props.out.find("Walrus census"), std::string::npos) << props.out;
}

TEST(TrovixCliNewDocuments, AnEpubIsSearchedInItsChapters) {
  if (!Have("zip")) GTEST_SKIP() << "zip is not installed";
  testing::TempTree tree(
      {"src/mimetype=application/epub+zip",
       "src/META-INF/container.xml=<container><rootfiles><rootfile full-path=\"b.opf\"/>"
       "</rootfiles></container>",
       "src/b.opf=<package><manifest><item id=\"c\" href=\"c.xhtml\"/></manifest>"
       "<spine><itemref idref=\"c\"/></spine></package>",
       "src/c.xhtml=<html><body><p>Call me <i>Ishmael</i>.</p></body></html>", "x/"});
  ASSERT_EQ(std::system(("cd '" + tree.path("src") + "' && zip -qX0 '" + tree.path("x/moby.epub") +
                         "' mimetype && zip -qr '" + tree.path("x/moby.epub") +
                         "' META-INF b.opf c.xhtml")
                            .c_str()),
            0);
  auto run = RunCli(tree, {"search", tree.path("x"), "-r", "System.Search.Contents: Call me Ishmael"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, tree.path("x/moby.epub") + "\n");
}

TEST(TrovixCliNewDocuments, CompressedFilesAreReadOnlyWithSearchZip) {
  if (!Have("gzip") || !Have("tar")) GTEST_SKIP() << "gzip or tar is not installed";
  // A compressed file whose inside nothing reads comes first (in name order) and must not stop
  // the others from being read.
  testing::TempTree tree({"x/notes.txt=the lighthouse keeper", "x/log=the lighthouse keeper too",
                          "x/t/in.txt=the lighthouse"});
  std::string blob;
  for (int i = 0; i < 4096; ++i) blob.push_back(static_cast<char>(i % 7 == 0 ? 0 : i * 37));
  tree.File("x/a.bin", blob);
  ASSERT_EQ(std::system(("cd '" + tree.path("x") +
                         "' && gzip a.bin notes.txt && gzip -c log > log.gz && rm log && " +
                         "tar czf t.tar.gz t && rm -r t")
                            .c_str()),
            0);
  const std::vector<std::string> rule = {"search", tree.path("x"), "--ordered", "-r",
                                         "System.Search.Contents: lighthouse"};
  auto off = RunCli(tree, rule);
  EXPECT_EQ(off.out, "") << off.err;
  // What was passed over is said once, on stderr, in every output format; the tar is an
  // archive, not a compressed file left unread.
  const std::string note = "trovix-cli: 3 .gz files not read: --search-zip reads them\n";
  EXPECT_NE(off.err.find(note), std::string::npos) << off.err;
  EXPECT_EQ(off.err.find(note), off.err.rfind(note)) << off.err;
  std::vector<std::string> json = rule;
  json.push_back("--json");
  auto json_off = RunCli(tree, json);
  EXPECT_EQ(json_off.out, "");
  EXPECT_NE(json_off.err.find(note), std::string::npos) << json_off.err;
  for (const char* option : {"--search-zip", "-z"}) {
    std::vector<std::string> args = rule;
    args.push_back(option);
    auto on = RunCli(tree, args);
    EXPECT_EQ(on.status, 0) << on.err;
    // The tar stays an archive: it is entered with --virtual-folders, not read as one file.
    EXPECT_EQ(on.out, tree.path("x/log.gz") + "\n" + tree.path("x/notes.txt.gz") + "\n")
        << option << on.err;
    EXPECT_EQ(on.err.find("not read"), std::string::npos) << on.err;
  }
  auto text = RunCli(tree, {"text", "-z", tree.path("x/notes.txt.gz")});
  EXPECT_EQ(text.out, "the lighthouse keeper") << text.err;
  auto refused = RunCli(tree, {"text", tree.path("x/notes.txt.gz")});
  EXPECT_NE(refused.err.find("--search-zip"), std::string::npos) << refused.err;
}

}  // namespace
}  // namespace trovix::cli
