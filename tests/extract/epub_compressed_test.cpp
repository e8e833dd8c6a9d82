// E-books and single compressed files, written here: an EPUB zipped by the test (chapters in
// an order the zip does not keep), and gz/bz2/xz/zst files made with libarchive's writer,
// including a gzip bomb that must stop at the extraction bound. Books made by LibreOffice and
// files packed by the compression programs themselves are checked against an independent
// reading where those programs are installed.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "base/file_time.h"
#include "extract/readers/compressed_reader.h"
#include "extract/readers/epub_reader.h"
#include "tests/extract/extract_fixtures.h"
#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix::extract {
namespace {

using fixtures::Answer;
using fixtures::Entry;
using fixtures::RunInProcess;
using fixtures::ToolThere;
using fixtures::Words;
using trovix::testing::RunProgram;
using trovix::testing::TempTree;

const std::string kSource = TROVIX_SOURCE_DIR;

std::string Chapter(const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"utf-8\"?><html "
         "xmlns=\"http://www.w3.org/1999/xhtml\"><head>"
         "<style>p{color:red}</style></head><body>" +
         body + "</body></html>";
}

constexpr const char* kContainer =
    "<?xml version=\"1.0\"?><container version=\"1.0\" "
    "xmlns=\"urn:oasis:names:tc:opendocument:xmlns:container\">"
    "<rootfiles><rootfile full-path=\"OEBPS/content.opf\" "
    "media-type=\"application/oebps-package+xml\"/>"
    "</rootfiles></container>";

constexpr const char* kOpf =
    "<?xml version=\"1.0\"?><package xmlns=\"http://www.idpf.org/2007/opf\" version=\"3.0\">"
    "<metadata xmlns:dc=\"http://purl.org/dc/elements/1.1/\"><dc:title> Die Verwandlung </dc:title>"
    "<dc:creator>Franz Kafka</dc:creator><dc:creator>Ian Johnston</dc:creator>"
    "<dc:subject>Fiction</dc:subject><dc:subject>Metamorphosis</dc:subject><dc:date>1915</"
    "dc:date></metadata>"
    "<manifest><item id=\"c1\" href=\"Text/ch%201.xhtml\" media-type=\"application/xhtml+xml\"/>"
    "<item id=\"c2\" href=\"../OEBPS/Text/ch2.xhtml#top\" media-type=\"application/xhtml+xml\"/>"
    "<item id=\"nav\" href=\"nav.xhtml\" media-type=\"application/xhtml+xml\"/>"
    "<item id=\"evil\" href=\"../../etc/passwd\" media-type=\"application/xhtml+xml\"/></manifest>"
    "<spine><itemref idref=\"c1\"/><itemref idref=\"missing\"/><itemref idref=\"evil\"/><itemref "
    "idref=\"c2\"/>"
    "</spine></package>";

void WriteEpub(const std::string& path, std::vector<Entry> extra = {}) {
  std::vector<Entry> entries = {
      {"mimetype", "application/epub+zip"},
      // The zip holds chapter 2 first: the spine's order must win.
      {"OEBPS/Text/ch2.xhtml",
       Chapter("<p>One morning, Gregor Samsa woke.</p><script>var hidden;</script>")},
      {"META-INF/container.xml", kContainer},
      {"OEBPS/content.opf", kOpf},
      {"OEBPS/nav.xhtml", Chapter("<p>Table of contents</p>")},
      {"OEBPS/Text/ch 1.xhtml", Chapter("<h1>Chapter I</h1><p>Caf&eacute; &amp; bed</p>")},
  };
  for (Entry& e : extra) entries.push_back(std::move(e));
  fixtures::WriteArchive(path, ARCHIVE_FORMAT_ZIP, ARCHIVE_FILTER_NONE, entries);
}

TEST(EpubReader, ReadsTheSpineInOrderThroughTheHtmlReader) {
  TempTree tree;
  WriteEpub(tree.path("book.epub"));
  Answer a = RunInProcess(kOpText, tree.path("book.epub"));
  ASSERT_EQ(a.end.code, kEndOk) << a.end.message;
  const size_t one = a.text.find("Chapter I");
  const size_t two = a.text.find("One morning, Gregor Samsa woke.");
  ASSERT_NE(one, std::string::npos) << a.text;
  ASSERT_NE(two, std::string::npos) << a.text;
  EXPECT_LT(one, two);
  EXPECT_NE(a.text.find("Caf\xC3\xA9 & bed"), std::string::npos);
  EXPECT_EQ(a.text.find("Table of contents"), std::string::npos);  // not in the spine
  EXPECT_EQ(a.text.find("hidden"), std::string::npos);
  EXPECT_EQ(a.text.find("color"), std::string::npos);
}

TEST(EpubReader, DublinCoreBecomesTheDocumentProperties) {
  TempTree tree;
  WriteEpub(tree.path("book.epub"));
  auto ps = fixtures::RequestProperties(tree.path("book.epub"));
  EXPECT_EQ(ps["System.Title"].texts, std::vector<std::string>{"Die Verwandlung"});
  EXPECT_EQ(ps["System.Author"].texts, (std::vector<std::string>{"Franz Kafka", "Ian Johnston"}));
  EXPECT_EQ(ps["System.Subject"].texts, std::vector<std::string>{"Fiction; Metamorphosis"});
  EXPECT_EQ(ps["System.Document.DateCreated"].integer, base::FileTimeFromCivil(base::CivilTime{1915, 1, 1, 0, 0, 0}));
}

TEST(EpubReader, EncryptedBooksAnswerEncryptedButObfuscatedFontsDoNot) {
  TempTree tree;
  const std::string enc_head =
      "<encryption xmlns=\"urn:oasis:names:tc:opendocument:xmlns:container\" "
      "xmlns:enc=\"http://www.w3.org/2001/04/xmlenc#\"><enc:EncryptedData><enc:EncryptionMethod "
      "Algorithm=\"";
  const std::string enc_tail = "\"/></enc:EncryptedData></encryption>";
  WriteEpub(tree.path("drm.epub"),
            {{"META-INF/encryption.xml",
              enc_head + "http://www.w3.org/2001/04/xmlenc#aes128-cbc" + enc_tail}});
  WriteEpub(
      tree.path("fonts.epub"),
      {{"META-INF/encryption.xml", enc_head + "http://www.idpf.org/2008/embedding" + enc_tail}});
  Answer drm = RunInProcess(kOpText, tree.path("drm.epub"));
  EXPECT_EQ(drm.end.code, kEndEncrypted);
  EXPECT_EQ(drm.end.message, "encrypted");
  EXPECT_EQ(drm.text, "");
  EXPECT_EQ(RunInProcess(kOpText, tree.path("fonts.epub")).end.code, kEndOk);
}

TEST(EpubReader, ZipsThatAreNoBooksAreUnreadable) {
  TempTree tree;
  fixtures::WriteArchive(tree.path("plain.epub"), ARCHIVE_FORMAT_ZIP, ARCHIVE_FILTER_NONE,
                         {{"a.txt", "x"}});
  fixtures::WriteArchive(
      tree.path("loop.epub"), ARCHIVE_FORMAT_ZIP, ARCHIVE_FILTER_NONE,
      {{"META-INF/container.xml", kContainer},
       {"OEBPS/content.opf", "<package><spine><itemref idref=\"x\"/></spine></package>"}});
  tree.File("garbage.epub", "PK\x03\x04 not really");
  EXPECT_EQ(RunInProcess(kOpText, tree.path("plain.epub")).end.code, kEndUnreadable);
  EXPECT_EQ(RunInProcess(kOpText, tree.path("garbage.epub")).end.code, kEndUnreadable);
  EXPECT_EQ(RunInProcess(kOpText, tree.path("loop.epub")).end.code, kEndNoText);
}

// Python walks container, package file and spine on its own and strips each part of its
// markup: every word it finds must be in our text, and each part must begin after the one
// before (the LibreOffice book's zip holds its second chapter first).
TEST(EpubReader, AgreesWithPythonsReadingOfTheSpine) {
  if (!ToolThere("python3")) GTEST_SKIP() << "python3 is not installed: nothing to compare with";
  for (const std::string& book : {kSource + "/tests/data/epub/orchard.epub", kSource + "/fuzz/seeds/epub/book.epub"}) {
    SCOPED_TRACE(book);
    const auto oracle = RunProgram("python3", {kSource + "/tests/extract/independent_text.py", "epub", book});
    ASSERT_EQ(oracle.status, 0);
    Answer a = RunInProcess(kOpText, book);
    ASSERT_EQ(a.end.code, kEndOk) << a.end.message;
    EXPECT_EQ(fixtures::MissingWords(oracle.out, a.text), std::vector<std::string>());
    const std::vector<std::string> ours = Words(a.text);
    auto from = ours.begin();
    std::istringstream parts(oracle.out);
    for (std::string part; std::getline(parts, part, '\f');) {
      const std::vector<std::string> words = Words(part);
      if (words.empty()) continue;
      const auto head_end = words.begin() + std::min<ptrdiff_t>(3, std::ssize(words));
      const auto found = std::search(from, ours.end(), words.begin(), head_end);
      ASSERT_NE(found, ours.end()) << "the part beginning \"" << words.front() << "\" is missing or out of the "
                                   << "spine's order in:\n" << a.text;
      from = found + (head_end - words.begin());
    }
  }
}

TEST(ResolvePartHref, StaysInsideThePackage) {
  EXPECT_EQ(ResolvePartHref("OEBPS/content.opf", "Text/ch%201.xhtml#x"), "OEBPS/Text/ch 1.xhtml");
  EXPECT_EQ(ResolvePartHref("OEBPS/content.opf", "../a/./b.xhtml"), "a/b.xhtml");
  EXPECT_EQ(ResolvePartHref("content.opf", "b.xhtml"), "b.xhtml");
  EXPECT_EQ(ResolvePartHref("OEBPS/content.opf", "../../x"), "");
  EXPECT_EQ(ResolvePartHref("OEBPS/content.opf", "/etc/passwd"), "");
  EXPECT_EQ(ResolvePartHref("OEBPS/content.opf", "http://example.com/a.xhtml"), "");
}

// --- single compressed files ----------------------------------------------------------------

void WriteCompressed(const std::string& path, int filter, const std::string& data,
                     uint64_t zeros = 0) {
  fixtures::WriteArchive(path, ARCHIVE_FORMAT_RAW, filter, {{"data", data, false, zeros}});
}

TEST(CompressedReader, ReadsTheInnerFileByItsOwnName) {
  TempTree tree;
  const std::string html = "<html><body><p>inner &amp; page</p><script>no</script></body></html>";
  struct Case {
    const char* name;
    int filter;
    std::string data;
    const char* expect;
  } cases[] = {
      {"notes.txt.gz", ARCHIVE_FILTER_GZIP, "gzip'd notes\n", "gzip'd notes"},
      {"notes.txt.bz2", ARCHIVE_FILTER_BZIP2, "bzip2'd notes\n", "bzip2'd notes"},
      {"notes.txt.xz", ARCHIVE_FILTER_XZ, "xz'd notes\n", "xz'd notes"},
      {"notes.txt.zst", ARCHIVE_FILTER_ZSTD, "zstd'd notes\n", "zstd'd notes"},
      {"README.gz", ARCHIVE_FILTER_GZIP, "no extension inside\n", "no extension inside"},
      {"page.html.gz", ARCHIVE_FILTER_GZIP, html, "inner & page"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    WriteCompressed(tree.path(c.name), c.filter, c.data);
    Answer a = RunInProcess(kOpText, tree.path(c.name));
    EXPECT_EQ(a.end.code, kEndOk) << a.end.message;
    EXPECT_NE(a.text.find(c.expect), std::string::npos) << a.text;
    EXPECT_EQ(a.text.find("<p>"), std::string::npos);
  }
}

TEST(CompressedReader, AnEpubInsideIsReadAsABook) {
  TempTree tree;
  WriteEpub(tree.path("book.epub"));
  std::string book;
  {
    std::ifstream in(tree.path("book.epub"), std::ios::binary);
    book.assign(std::istreambuf_iterator<char>(in), {});
  }
  WriteCompressed(tree.path("book.epub.xz"), ARCHIVE_FILTER_XZ, book);
  Answer a = RunInProcess(kOpText, tree.path("book.epub.xz"));
  EXPECT_EQ(a.end.code, kEndOk) << a.end.message;
  EXPECT_NE(a.text.find("Gregor Samsa"), std::string::npos);
}

TEST(CompressedReader, AGzipBombStopsAtTheBoundAndSaysSo) {
  TempTree tree;
  WriteCompressed(tree.path("bomb.txt.gz"), ARCHIVE_FILTER_GZIP, {},
                  uint64_t{256} << 20);  // 256 MiB of zeros in 250 KB
  ExtractLimits limits;
  limits.max_member_bytes = 3'145'728;
  Answer a = RunInProcess(kOpText, tree.path("bomb.txt.gz"), {}, limits);
  EXPECT_TRUE(a.end.code == kEndLimit || a.end.code == kEndNoText) << a.end.message;
  // Zeros are no text; a bomb of text is cut at the bound with a word on why.
  WriteCompressed(tree.path("big.txt.gz"), ARCHIVE_FILTER_GZIP,
                  std::string(4'000'000, 'a') + "TAIL");
  Answer big = RunInProcess(kOpText, tree.path("big.txt.gz"), {}, limits);
  EXPECT_EQ(big.end.code, kEndLimit);
  EXPECT_NE(big.end.message.find("3,145,728"), std::string::npos) << big.end.message;
  EXPECT_LE(big.text.size(), 3'145'728u);
  EXPECT_EQ(big.text.find("TAIL"), std::string::npos);
  // A cut document is not handed to its reader as if it were whole.
  WriteCompressed(tree.path("big.pdf.gz"), ARCHIVE_FILTER_GZIP,
                  "%PDF-1.4\n" + std::string(4'000'000, ' '));
  EXPECT_EQ(RunInProcess(kOpText, tree.path("big.pdf.gz"), {}, limits).end.code, kEndTooLarge);
  limits.max_member_bytes = 0;
  EXPECT_EQ(RunInProcess(kOpText, tree.path("big.txt.gz"), {}, limits).end.code, kEndTooLarge);
}

TEST(CompressedReader, TarsNestingAndDamageAreAnsweredNotRead) {
  TempTree tree;
  fixtures::WriteArchive(tree.path("x.tar.gz"), ARCHIVE_FORMAT_TAR_PAX_RESTRICTED,
                         ARCHIVE_FILTER_GZIP, {{"a.txt", "a"}});
  // Never "no reader": the search would stop reading every .gz after one.
  EXPECT_EQ(RunInProcess(kOpText, tree.path("x.tar.gz")).end.code, kEndNoText);
  std::string blob_bytes;
  for (int i = 0; i < 4096; ++i) blob_bytes.push_back(static_cast<char>(i % 7 == 0 ? 0 : i * 37));
  WriteCompressed(tree.path("blob.bin.gz"), ARCHIVE_FILTER_GZIP, blob_bytes);
  Answer blob = RunInProcess(kOpText, tree.path("blob.bin.gz"));
  EXPECT_EQ(blob.end.code, kEndNoText) << blob.end.message;
  EXPECT_NE(blob.end.message.find(".bin"), std::string::npos) << blob.end.message;
  tree.File("fake.txt.gz", "plain text pretending");
  EXPECT_EQ(RunInProcess(kOpText, tree.path("fake.txt.gz")).end.code, kEndUnreadable);
  // Layers of compression come off in one pass, each taking its extension from the name.
  std::string data = "deep text\n";
  std::string name = "deep.txt";
  for (int level = 0; level < 8; ++level) {
    name += ".gz";
    WriteCompressed(tree.path(name), ARCHIVE_FILTER_GZIP, data);
    std::ifstream in(tree.path(name), std::ios::binary);
    data.assign(std::istreambuf_iterator<char>(in), {});
  }
  for (const std::string& layered : {std::string("deep.txt.gz.gz"), name}) {
    Answer a = RunInProcess(kOpText, tree.path(layered));
    EXPECT_EQ(a.end.code, kEndOk) << layered << ": " << a.end.message;
    EXPECT_EQ(a.text, "deep text\n") << layered;
  }
}

// Each program packs a text, a document and an empty file; its own unpacking gives the file
// back, and our answer for the packed file is our answer for the file itself. The default limits are those of the
// setting that reads compressed files: what unpacks to 3 MiB or less is read whole.
TEST(CompressedReader, WhatEachProgramPacksReadsAsTheFileItself) {
  TempTree tree;
  std::string text;
  for (int i = 0; i < 3000; ++i)
    text += "Line " + std::to_string(i) + ": Gr\xC3\xBC\xC3\x9F" "e, \xCE\x95\xCE\xBB\xCE\xBB\xCE\xB7\xCE\xBD\xCE\xB9\xCE\xBA\xCE\xAC, harbour lantern\n";
  tree.File("notes.txt", text);
  tree.File("report.doc", testing::ReadWholeFile(kSource + "/tests/data/legacy_office/sample.doc"));
  tree.File("empty.txt", "");
  const struct {
    const char* program;
    const char* extension;
  } programs[] = {{"gzip", "gz"}, {"bzip2", "bz2"}, {"xz", "xz"}, {"zstd", "zst"}};
  std::string absent;
  for (const auto& p : programs) {
    if (!ToolThere(p.program)) {
      absent += std::string(absent.empty() ? "" : ", ") + p.program;
      continue;
    }
    for (const std::string name : {"notes.txt", "report.doc", "empty.txt"}) {
      const std::string packed = name + "." + p.extension;
      SCOPED_TRACE(packed);
      tree.File(packed, RunProgram(p.program, {"-c", tree.path(name)}).out);
      const std::string plain = testing::ReadWholeFile(tree.path(name));
      ASSERT_EQ(RunProgram(p.program, {"-dc", tree.path(packed)}).out, plain);
      Answer inside = RunInProcess(kOpText, tree.path(packed));
      Answer itself = RunInProcess(kOpText, tree.path(name));
      EXPECT_EQ(itself.end.code, name == "empty.txt" ? kEndNoText : kEndOk) << itself.end.message;
      EXPECT_EQ(inside.end.code, itself.end.code) << inside.end.message;
      EXPECT_EQ(inside.text, itself.text);
    }
  }
  if (!absent.empty()) GTEST_SKIP() << "not installed, not compared: " << absent;
}

TEST(CompressedReader, InnerNameDropsOnlyACompressionExtension) {
  EXPECT_EQ(InnerName("a/x.txt.gz"), "a/x.txt");
  EXPECT_EQ(InnerName("x.PDF.XZ"), "x.PDF");
  EXPECT_EQ(InnerName("x.zip"), "x.zip");
  EXPECT_EQ(InnerName("dir.gz/file"), "dir.gz/file");
}

}  // namespace
}  // namespace trovix::extract
