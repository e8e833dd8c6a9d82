// The document readers, through one in-process request each: phrases of real documents (found
// by hand with pdftotext and unzip -p), encrypted and hostile documents, and packages written
// here to pin down what counts as visible text.
#include <gtest/gtest.h>

#include <string>

#include "extract/archive/archive_names.h"
#include "tests/extract/extract_fixtures.h"
#include "tests/support/temp_tree.h"

namespace trovix::extract {
namespace {

using fixtures::Answer;
using fixtures::CorpusDir;
using fixtures::Entry;
using fixtures::RunInProcess;
using trovix::testing::TempTree;

struct Phrase {
  const char* file;
  const char* phrase;
};

TEST(DocumentReaders, CorpusDocumentsGiveTheirPhrases) {
  SKIP_WITHOUT_CORPUS();
  // (The RTF documents are the RTF reader's own corpus test.)
  const Phrase cases[] = {
      {"minimal-document.pdf", "Lorem ipsum dolor sit amet, consetetur sadipscing elitr"},
      {"pdflatex-4-pages.pdf", "Hello, here is some text without a meaning."},
      {"r6-empty-password.pdf", "pdf encryption test"},
      {"et-OOXML.docx", "Exiftool is astounding."},
      {"comments.docx", "I left a comment."},  // from word/comments.xml
      {"alternate_document_path.docx", "This is italic, bold, underlined"},  // main part: word/document2.xml
      {"any_sheets.xlsx", "This workbook contains 4 sheets: Visible, Hidden, VeryHidden and Chart"},
      {"issue221.xlsm", "Cell_A1"},
      {"basic.pptx", "Streaming support"},
      {"libreoffice-source.odt", "Lorem ipsum dolor sit amet, consetetur sadipscing elitr"},
      {"chinese_spreadsheet.ods", "test"},
      {"cols.odp", "Lorem ipsum dolor sit amet, consectetur adipiscing elit. Sed vitae."},
  };
  for (const Phrase& c : cases) {
    SCOPED_TRACE(c.file);
    Answer a = RunInProcess(kOpText, CorpusDir() + "/documents/" + c.file);
    EXPECT_EQ(a.end.code, kEndOk) << a.end.message;
    EXPECT_NE(a.text.find(c.phrase), std::string::npos) << a.text.substr(0, 300);
    EXPECT_TRUE(IsValidUtf8(a.text));
  }
}

TEST(DocumentReaders, LockedPdfsAnswerEncrypted) {
  SKIP_WITHOUT_CORPUS();
  for (const char* f : {"libreoffice-writer-password.pdf", "r2-user-password.pdf"}) {
    SCOPED_TRACE(f);
    Answer a = RunInProcess(kOpText, CorpusDir() + "/documents/" + f);
    EXPECT_EQ(a.end.code, kEndEncrypted);
    EXPECT_EQ(a.end.message, "encrypted");
    EXPECT_EQ(a.text, "");
  }
}

TEST(DocumentReaders, NastyOdtGivesOnlyItsVisibleText) {
  SKIP_WITHOUT_CORPUS();
  Answer a = RunInProcess(kOpText, CorpusDir() + "/documents/nasty.odt");
  EXPECT_EQ(a.end.code, kEndOk);
  std::string text = a.text;
  while (!text.empty() && (text.back() == ' ' || text.back() == '\n')) text.pop_back();
  EXPECT_EQ(text, "Test:");
}

constexpr const char* kOdfHead =
    "<office:document-content xmlns:office=\"urn:oasis:names:tc:opendocument:xmlns:office:1.0\" "
    "xmlns:text=\"urn:oasis:names:tc:opendocument:xmlns:text:1.0\"><office:body><office:text>";
constexpr const char* kOdfTail = "</office:text></office:body></office:document-content>";

void WriteOdt(const std::string& path, const std::string& content) {
  fixtures::WriteArchive(path, ARCHIVE_FORMAT_ZIP, ARCHIVE_FILTER_NONE,
                        {{"mimetype", "application/vnd.oasis.opendocument.text"}, {"content.xml", content}});
}

TEST(DocumentReaders, ExternalEntitiesAreNeverOpened) {
  TempTree tree({"marker.txt=SECRET-MARKER-TEXT"});
  std::string uri = "file://" + tree.path("marker.txt");
  std::string dtd = "<!DOCTYPE d [<!ENTITY ext SYSTEM \"" + uri + "\"><!ENTITY % pe SYSTEM \"" + uri +
                    "\"> %pe; <!ENTITY in \"inner\">]>";
  WriteOdt(tree.path("entity.odt"), "<?xml version=\"1.0\"?>" + dtd + kOdfHead +
                                        "<text:p>Before &ext; after &in;</text:p>" + kOdfTail);
  fixtures::WriteArchive(tree.path("entity.docx"), ARCHIVE_FORMAT_ZIP, ARCHIVE_FILTER_NONE,
                        {{"word/document.xml",
                          "<?xml version=\"1.0\"?>" + dtd +
                              "<w:document xmlns:w=\"http://schemas.openxmlformats.org/wordprocessingml/2006/"
                              "main\"><w:body><w:p><w:r><w:t>Word &ext;</w:t></w:r></w:p></w:body></w:document>"}});
  for (const char* f : {"entity.odt", "entity.docx"}) {
    SCOPED_TRACE(f);
    Answer a = RunInProcess(kOpText, tree.path(f));
    EXPECT_EQ(a.text.find("SECRET-MARKER"), std::string::npos) << a.text;
    EXPECT_TRUE(a.text.find("Before") != std::string::npos || a.text.find("Word") != std::string::npos ||
                a.end.code == kEndUnreadable)
        << a.text;
  }
}

TEST(DocumentReaders, EntityExpansionStaysBounded) {
  TempTree tree;
  std::string dtd = "<!DOCTYPE d [<!ENTITY a \"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa\">";
  for (char c = 'b'; c <= 'k'; ++c) {
    std::string prev(1, static_cast<char>(c - 1));
    dtd += std::string("<!ENTITY ") + c + " \"";
    for (int i = 0; i < 10; ++i) dtd += "&" + prev + ";";
    dtd += "\">";
  }
  dtd += "]>";
  WriteOdt(tree.path("laughs.odt"), "<?xml version=\"1.0\"?>" + dtd + kOdfHead + "<text:p>&k;</text:p>" + kOdfTail);
  Answer a = RunInProcess(kOpText, tree.path("laughs.odt"));
  EXPECT_LT(a.text.size(), 1'000'000u);
}

TEST(DocumentReaders, WordTextLeavesOutDeletionsAndKeepsTabsBreaksAndHeaders) {
  TempTree tree;
  const std::string ns = "xmlns:w=\"http://schemas.openxmlformats.org/wordprocessingml/2006/main\"";
  std::string body = "<w:document " + ns +
                     "><w:body>"
                     "<w:p><w:pPr><w:tabs><w:tab w:val=\"left\" w:pos=\"720\"/></w:tabs></w:pPr>"
                     "<w:r><w:t>One</w:t><w:tab/><w:t xml:space=\"preserve\">two </w:t></w:r>"
                     "<w:del><w:r><w:delText>GONE</w:delText></w:r></w:del>"
                     "<w:r><w:t>three</w:t><w:br/><w:t>four</w:t></w:r></w:p>"
                     "<w:p><w:r><w:t>Next paragraph</w:t></w:r></w:p>"
                     "</w:body></w:document>";
  std::string header = "<w:hdr " + ns + "><w:p><w:r><w:t>Header words</w:t></w:r></w:p></w:hdr>";
  fixtures::WriteArchive(tree.path("made.docx"), ARCHIVE_FORMAT_ZIP, ARCHIVE_FILTER_NONE,
                        {{"word/header1.xml", header}, {"word/document.xml", body}});
  Answer a = RunInProcess(kOpText, tree.path("made.docx"));
  EXPECT_EQ(a.end.code, kEndOk);
  EXPECT_EQ(a.text, "One\ttwo three\nfour\nNext paragraph\nHeader words\n");
}

TEST(DocumentReaders, OdfSpacesTabsAndLineBreaks) {
  TempTree tree;
  WriteOdt(tree.path("made.odt"),
           std::string(kOdfHead) +
               "<text:h>Title</text:h><text:p>a<text:s text:c=\"3\"/>b<text:tab/>c<text:line-break/>"
               "<text:span>d</text:span><text:s/>e</text:p>"
               "<text:tracked-changes><text:changed-region><text:deletion><text:p>GONE</text:p>"
               "</text:deletion></text:changed-region></text:tracked-changes>" +
               kOdfTail);
  Answer a = RunInProcess(kOpText, tree.path("made.odt"));
  EXPECT_EQ(a.text, "Title\na   b\tc\nd e\n");
}

TEST(DocumentReaders, SpreadsheetCellsThatAreNotSharedStrings) {
  TempTree tree;
  std::string ns = "xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\"";
  fixtures::WriteArchive(
      tree.path("made.xlsx"), ARCHIVE_FORMAT_ZIP, ARCHIVE_FILTER_NONE,
      {{"xl/sharedStrings.xml", "<sst " + ns + "><si><t>shared one</t></si><si><r><t>rich</t></r><r><t> two</t></r></si></sst>"},
       {"xl/worksheets/sheet10.xml", "<worksheet " + ns + "><sheetData><row><c t=\"str\"><f>A1</f><v>later sheet</v></c></row></sheetData></worksheet>"},
       {"xl/worksheets/sheet2.xml",
        "<worksheet " + ns +
            "><sheetData><row><c t=\"s\"><v>0</v></c><c><v>42.5</v></c><c t=\"inlineStr\"><is><t>inline</t></is></c></row>"
            "<row><c t=\"s\"><v>1</v></c></row></sheetData></worksheet>"}});
  Answer a = RunInProcess(kOpText, tree.path("made.xlsx"));
  EXPECT_EQ(a.text, "shared one\nrich two\n42.5\tinline\nlater sheet\n");
}

TEST(DocumentReaders, HtmlDropsScriptAndStyleAndDecodesEntities) {
  TempTree tree;
  tree.File("page.html",
            "<html><head><title>T&amp;C</title><style>p { color: red }</style>"
            "<script>var hidden = 'SCRIPT';</script></head><body><p>Caf&eacute; &lt;b&gt; &#x263A;</p>"
            "<div>second\n   block</div><table><tr><td>x</td><td>y</td></tr></table></body></html>");
  Answer a = RunInProcess(kOpText, tree.path("page.html"));
  EXPECT_EQ(a.end.code, kEndOk);
  EXPECT_EQ(a.text, "T&C\nCafé <b> \xE2\x98\xBA\nsecond block\nx\ty\n");
}

TEST(DocumentReaders, HtmlKnowsElementsInAnyCaseAndReadsPagesOfManyBlocks) {
  TempTree tree;
  tree.File("upper.html",
            "<HTML><BODY><P>one<BR>two</P><PRE>  keep\n  this</PRE><BlockQuote>q</BlockQuote>"
            "<SCRIPT>gone</SCRIPT><Td>c1</Td><TD>c2</TD><blockquotes>in</blockquotes>line</BODY></HTML>");
  Answer a = RunInProcess(kOpText, tree.path("upper.html"));
  EXPECT_EQ(a.text, "one\ntwo\n  keep\n  this\nq\nc1\tc2inline\n");
  // Paragraphs past the first block (the charset sample) and across the blocks' seams.
  std::string page = "<html><body>";
  std::string expected;
  for (int i = 0; page.size() < 200'000; ++i) {
    page += "<p>paragraph   number " + std::to_string(i) + "</p>\n";
    expected += "paragraph number " + std::to_string(i) + "\n";
  }
  tree.File("long.html", page + "</body></html>");
  a = RunInProcess(kOpText, tree.path("long.html"));
  EXPECT_EQ(a.text, expected);
}

TEST(DocumentReaders, HtmlHonoursADeclaredCharset) {
  TempTree tree;
  tree.File("latin.htm",
            "<html><head><meta charset=\"windows-1252\"></head><body><p>caf\xE9 \x80 na\xEFve</p></body></html>");
  Answer a = RunInProcess(kOpText, tree.path("latin.htm"));
  EXPECT_NE(a.text.find("café € naïve"), std::string::npos) << a.text;
}

TEST(DocumentReaders, PlainTextLimitKeepsWholeCharacters) {
  TempTree tree;
  std::string text = "a";
  for (int i = 0; i < 1'500'000; ++i) text += "\xC3\xA9";  // 3 MB of "é" after one "a"
  tree.File("big.txt", text);
  ExtractLimits limits;
  limits.max_text_bytes = 1'000'000;
  Answer a = RunInProcess(kOpText, tree.path("big.txt"), {}, limits);
  EXPECT_EQ(a.end.code, kEndLimit);
  EXPECT_EQ(a.text.size(), 999'999u);  // the 1,000,000th byte would cut an "é" in two
  EXPECT_EQ(a.text, text.substr(0, 999'999));
}

TEST(DocumentReaders, FilesWithoutAReaderOrTextSayWhy) {
  TempTree tree({"empty.txt", "blob.bin", "noext"});
  tree.File("blob.bin", std::string("\x00\x01\x02\x03\xFF\xFE\x00\x00", 8) + std::string(5000, '\0'));
  tree.File("noext", std::string("\x7F\x45\x4C\x46\x02\x01\x01\x00\x00\x00\x03\x00\x3E\x00", 14) + std::string(4000, '\x01'));
  Answer bin = RunInProcess(kOpText, tree.path("blob.bin"));
  EXPECT_EQ(bin.end.code, kEndNoReader);
  EXPECT_EQ(bin.end.message, "no reader for .bin");
  EXPECT_EQ(RunInProcess(kOpText, tree.path("noext")).end.message, "no reader for this file");
  EXPECT_EQ(RunInProcess(kOpText, tree.path("empty.txt")).end.code, kEndNoText);
  EXPECT_EQ(RunInProcess(kOpText, tree.path("missing.txt")).end.code, kEndUnreadable);
}

TEST(DocumentReaders, DamagedDocumentsEndUnreadable) {
  TempTree tree;
  tree.File("garbage.docx", "PK\x03\x04 this is not a zip at all");
  tree.File("garbage.pdf", "%PDF-1.4\n1 0 obj << /Type /Catalog");
  tree.File("garbage.odt", "");
  tree.File("ole.docx", std::string("\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", 8) + std::string(600, '\0'));
  for (const char* f : {"garbage.docx", "garbage.pdf"}) {
    SCOPED_TRACE(f);
    EXPECT_EQ(RunInProcess(kOpText, tree.path(f)).end.code, kEndUnreadable);
  }
  // Office keeps a password-protected document in an OLE container.
  EXPECT_EQ(RunInProcess(kOpText, tree.path("ole.docx")).end.code, kEndEncrypted);
}

}  // namespace
}  // namespace trovix::extract
