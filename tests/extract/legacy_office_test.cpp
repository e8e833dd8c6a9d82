// Word, Excel and PowerPoint 97-2003: the sample documents (made with LibreOffice, and real
// Word files of another project's tests) against the text we know they hold and against
// independent tools where those are installed; compound files written here with libgsf to pin
// down the piece table, the shared strings and the records; and hostile files: loops in the
// sector chains, pieces and records that point past their stream, encrypted documents.
#include <archive.h>
#include <gsf/gsf-outfile-msole.h>
#include <gsf/gsf-outfile.h>
#include <gsf/gsf-output-stdio.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "base/file_time.h"
#include "base/utf.h"
#include "extract/properties/document_properties.h"
#include "tests/extract/extract_fixtures.h"
#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"
#include "tests/support/test_files.h"

namespace trovix::extract {
namespace {

using fixtures::Answer;
using fixtures::MissingWords;
using fixtures::PropertiesOf;
using fixtures::RunInProcess;
using fixtures::ToolThere;
using trovix::testing::TempTree;

std::string DataDir() { return std::string(TROVIX_SOURCE_DIR) + "/tests/data/legacy_office"; }

// The big samples are kept gzip'd (their compound files are mostly zeros).
std::string Gunzip(const std::string& path) { return testing::RunProgram("gzip", {"-dc", path}).out; }

std::string Sample(TempTree& tree, const std::string& name) {
  if (name.size() > 3 && name.ends_with(".gz")) {
    tree.File(name.substr(0, name.size() - 3), Gunzip(DataDir() + "/" + name));
    return tree.path(name.substr(0, name.size() - 3));
  }
  return DataDir() + "/" + name;
}

// A compound file with the given streams, written by libgsf.
void WriteCompound(const std::string& path, const std::map<std::string, std::string>& streams) {
  GError* error = nullptr;
  GsfOutput* sink = gsf_output_stdio_new(path.c_str(), &error);
  ASSERT_NE(sink, nullptr);
  GsfOutfile* file = gsf_outfile_msole_new(sink);
  for (const auto& [name, bytes] : streams) {
    GsfOutput* child = gsf_outfile_new_child(file, name.c_str(), FALSE);
    gsf_output_write(child, bytes.size(), reinterpret_cast<const guint8*>(bytes.data()));
    gsf_output_close(child);
    g_object_unref(child);
  }
  gsf_output_close(GSF_OUTPUT(file));  // closes the file under it too
  g_object_unref(file);
  g_object_unref(sink);
}

void Put16(std::string& s, size_t at, uint16_t v) {
  if (s.size() < at + 2) s.resize(at + 2);
  s[at] = static_cast<char>(v & 0xFF);
  s[at + 1] = static_cast<char>(v >> 8);
}
void Put32(std::string& s, size_t at, uint32_t v) {
  Put16(s, at, static_cast<uint16_t>(v));
  Put16(s, at + 2, static_cast<uint16_t>(v >> 16));
}

// --- Word --------------------------------------------------------------------------------------

struct WordPiece {
  std::string bytes;  // 8-bit characters, or UTF-16LE when !compressed
  bool compressed = true;
};

constexpr size_t kFibFlags = 0x0A;
constexpr size_t kCcpText = 64 + 4 * 3;
constexpr size_t kFcClx = 154 + 8 * 33;

// A Word 97 document whose pieces lie one after another from offset 1024, in a 1Table.
std::map<std::string, std::string> WordStreams(const std::vector<WordPiece>& pieces, uint16_t flags = 0x0200) {
  std::string word(1024, '\0');
  Put16(word, 0, 0xA5EC);
  Put16(word, 2, 0x00C1);
  Put16(word, kFibFlags, flags);
  Put16(word, 32, 14);      // csw
  Put16(word, 62, 22);      // cslw
  Put16(word, 152, 93);     // cbRgFcLcb
  std::string plc;
  std::vector<uint32_t> cps{0};
  std::vector<uint32_t> fcs;
  for (const WordPiece& p : pieces) {
    fcs.push_back(p.compressed ? (static_cast<uint32_t>(word.size()) * 2) | 0x40000000u : static_cast<uint32_t>(word.size()));
    cps.push_back(cps.back() + static_cast<uint32_t>(p.compressed ? p.bytes.size() : p.bytes.size() / 2));
    word += p.bytes;
  }
  Put32(word, kCcpText, cps.back());
  for (uint32_t cp : cps) Put32(plc, plc.size(), cp);
  for (uint32_t fc : fcs) {
    const size_t at = plc.size();
    Put16(plc, at, 0);
    Put32(plc, at + 2, fc);
    Put16(plc, at + 6, 0);
  }
  std::string clx("\x01\x02\x00\xAA\xBB", 5);  // a property modifier before the pieces
  clx += '\x02';
  Put32(clx, clx.size(), static_cast<uint32_t>(plc.size()));
  clx += plc;
  std::string table(16, '\0');
  Put32(word, kFcClx, static_cast<uint32_t>(table.size()));
  Put32(word, kFcClx + 4, static_cast<uint32_t>(clx.size()));
  table += clx;
  return {{"WordDocument", word}, {"1Table", table}};
}

std::string Utf16(std::u16string_view text) {
  std::string out;
  base::AppendUtf16LE(out, text);
  return out;
}

Answer ReadWord(const TempTree& tree, const std::map<std::string, std::string>& streams) {
  WriteCompound(tree.path("t.doc"), streams);
  return RunInProcess(kOpText, tree.path("t.doc"));
}

TEST(WordBinaryReader, PiecesGiveTheVisibleText) {
  TempTree tree;
  struct Case {
    const char* what;
    std::vector<WordPiece> pieces;
    const char* text;
  } cases[] = {
      {"paragraphs and breaks", {{"one\rtwo\vthree\x0C"}}, "one\ntwo\nthree\n"},
      {"Windows-1252 typography", {{"\x93quoted\x94 \x80 5\x96" "6"}}, "\xE2\x80\x9Cquoted\xE2\x80\x9D \xE2\x82\xAC 5\xE2\x80\x93" "6"},
      {"8-bit and 16-bit pieces", {{"caf"}, {Utf16(u"\u00E9 \U0001F34E\u65E5"), false}}, "caf\xC3\xA9 \xF0\x9F\x8D\x8E\xE6\x97\xA5"},
      {"a lone surrogate", {{Utf16(u"a") + std::string("\x00\xD8", 2) + Utf16(u"b"), false}}, "a\xEF\xBF\xBD" "b"},
      {"field code left out, result kept", {{"see \x13 HYPERLINK \"x\" \x14the site\x15 now"}}, "see the site now"},
      {"nested fields", {{"a\x13 IF \x13 PAGE \x14" "3\x15 \x14yes\x15" "b"}}, "ayesb"},
      {"a field without result", {{"a\x13 TOC \x15" "b"}}, "ab"},
      {"table cells and rows", {{"A\x07" "B\x07\x07" "C\x07" "D\x07\x07" "after"}}, "A\tB\nC\tD\nafter"},
      {"marks and hyphens", {{"x\x01y\x1Fz\x1Ew\xA0v"}}, "xyz-w v"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Answer a = ReadWord(tree, WordStreams(c.pieces));
    EXPECT_EQ(a.end.code, kEndOk) << a.end.message;
    EXPECT_EQ(a.text, c.text);
  }
}

TEST(WordBinaryReader, EncryptedAndOldDocumentsAreSaid) {
  TempTree tree;
  Answer encrypted = ReadWord(tree, WordStreams({{"secret"}}, 0x0200 | 0x0100));
  EXPECT_EQ(encrypted.end.code, kEndEncrypted);
  EXPECT_EQ(encrypted.end.message, "encrypted");
  EXPECT_EQ(encrypted.text, "");
  EXPECT_EQ(ReadWord(tree, WordStreams({{"xor"}}, 0x0200 | 0x8000)).end.code, kEndEncrypted);

  auto word95 = WordStreams({{"old"}});
  Put16(word95["WordDocument"], 2, 0x0065);
  EXPECT_EQ(ReadWord(tree, word95).end.code, kEndUnreadable);
  EXPECT_EQ(ReadWord(tree, {{"Other", "x"}}).end.code, kEndUnreadable);
}

// What carries an old Office name but is no compound file is read for what it holds: Word
// saved RTF under .doc, and a .dot is as often a graph description.
TEST(WordBinaryReader, FilesThatAreNoCompoundFileAreReadForWhatTheyHold) {
  TempTree tree;
  tree.File("graph.dot", "digraph G { harbour -> lantern; }\n");
  tree.File("letter.doc", "{\\rtf1\\ansi Dear {\\b harbour} master\\par}");
  tree.File("notes.xls", "plain notes saved under a spreadsheet's name\n");
  EXPECT_EQ(RunInProcess(kOpText, tree.path("graph.dot")).text, "digraph G { harbour -> lantern; }\n");
  Answer rtf = RunInProcess(kOpText, tree.path("letter.doc"));
  EXPECT_EQ(rtf.end.code, kEndOk) << rtf.end.message;
  EXPECT_NE(rtf.text.find("Dear harbour master"), std::string::npos) << rtf.text;
  EXPECT_EQ(rtf.text.find("rtf1"), std::string::npos);
  EXPECT_NE(RunInProcess(kOpText, tree.path("notes.xls")).text.find("plain notes"), std::string::npos);
}

TEST(WordBinaryReader, PiecesAndTablesPastTheirStreamAreCutNotRead) {
  TempTree tree;
  // A piece that claims more characters than its stream holds gives what is there.
  auto past = WordStreams({{"short text"}});
  Put32(past["WordDocument"], kCcpText, 1u << 30);
  std::string& table = past["1Table"];
  Put32(table, table.size() - 12, 1u << 30);  // the piece's last character position
  Answer a = ReadWord(tree, past);
  EXPECT_EQ(a.end.code, kEndOk);
  EXPECT_EQ(a.text, "short text");

  // A piece whose offset lies beyond the stream gives nothing, the next still counts.
  auto beyond = WordStreams({{"gone"}, {"kept"}});
  std::string& t2 = beyond["1Table"];
  const size_t first_pcd = t2.size() - 2 * 8;
  Put32(t2, first_pcd + 2, 0x7FFFFFF0u);
  EXPECT_EQ(ReadWord(tree, beyond).text, "kept");

  // Pieces that all point at the same bytes read them once, not once per piece.
  std::vector<WordPiece> many(300, WordPiece{std::string(10, 'r')});
  auto overlap = WordStreams(many);
  Put32(overlap["WordDocument"], kCcpText, 300 * 4000);
  std::string& t3 = overlap["1Table"];
  const size_t cps = t3.size() - 300 * 8 - 301 * 4;
  for (uint32_t i = 0; i <= 300; ++i) Put32(t3, cps + 4 * i, i * 4000);
  for (uint32_t i = 0; i < 300; ++i) Put32(t3, cps + 301 * 4 + 8 * i + 2, (1024 * 2) | 0x40000000u);
  EXPECT_LE(ReadWord(tree, overlap).text.size(), overlap["WordDocument"].size());

  // A piece table longer than the table stream, and one that is not there at all.
  auto long_clx = WordStreams({{"x"}});
  Put32(long_clx["WordDocument"], kFcClx + 4, 1u << 31);
  EXPECT_EQ(ReadWord(tree, long_clx).end.code, kEndUnreadable);
  auto no_table = WordStreams({{"x"}});
  no_table.erase("1Table");
  EXPECT_EQ(ReadWord(tree, no_table).end.code, kEndUnreadable);
}

TEST(WordBinaryReader, LibreOfficeSampleGivesTextCellsAndFootnote) {
  Answer a = RunInProcess(kOpText, DataDir() + "/sample.doc");
  ASSERT_EQ(a.end.code, kEndOk) << a.end.message;
  for (const char* phrase : {"The orchard gave plenty of apples this year.\n",
                             "Gr\xC3\xBC\xC3\x9F" "e aus K\xC3\xB6ln \xE2\x80\x93 na\xC3\xAFve caf\xC3\xA9, "
                             "\xCE\x95\xCE\xBB\xCE\xBB\xCE\xB7\xCE\xBD\xCE\xB9\xCE\xBA\xCE\xAC, \xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E text.",
                             "Cell alpha\tCell beta\nCell gamma\tCell delta\n", "Last paragraph with a hyperlink here.",
                             "A footnote about pears."})
    EXPECT_NE(a.text.find(phrase), std::string::npos) << phrase << "\n" << a.text;
  EXPECT_EQ(a.text.find("HYPERLINK"), std::string::npos);
}

TEST(WordBinaryReader, ReadsArchiveMembersFromMemory) {
  TempTree tree;
  fixtures::WriteArchive(tree.path("a.zip"), ARCHIVE_FORMAT_ZIP, ARCHIVE_FILTER_NONE,
                         {{"in/report.doc", testing::ReadWholeFile(DataDir() + "/sample.doc")}});
  Answer a = RunInProcess(kOpText, tree.path("a.zip"), {"in/report.doc"});
  EXPECT_EQ(a.end.code, kEndOk) << a.end.message;
  EXPECT_NE(a.text.find("Cell gamma\tCell delta"), std::string::npos) << a.text;
}

TEST(WordBinaryReader, RealDocumentsGiveTheirPhrases) {
  struct {
    const char* file;
    const char* phrase;
  } cases[] = {
      {"word-extractor-test02.doc", "This Test consists of several paragraphs"},
      {"word-extractor-test05.doc", "This is a simple file created with Word 97-SR2."},
      {"word-extractor-test08.doc", "The bookmark \xE2\x80\x9CTestBookmark\xE2\x80\x9D should include"},
      {"word-extractor-test11.doc", "\xE8\xBF\x99\xE6\x98\xAF\xE4\xB8\x80\xE4\xB8\xAA"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    Answer a = RunInProcess(kOpText, DataDir() + "/" + c.file);
    EXPECT_EQ(a.end.code, kEndOk) << a.end.message;
    EXPECT_NE(a.text.find(c.phrase), std::string::npos) << a.text.substr(0, 400);
  }
}

struct OracleCase {
  std::string file;
  std::vector<std::string> command;  // the file follows
};

// `tree` holds the gunzipped samples, and what the tool needs of a folder of its own.
void CompareWithTool(const char* tool, const std::vector<OracleCase>& cases, TempTree& tree) {
  if (!ToolThere(tool)) GTEST_SKIP() << tool << " is not installed: nothing to compare with";
  for (const OracleCase& c : cases) {
    SCOPED_TRACE(c.file);
    const std::string path = Sample(tree, c.file);
    std::vector<std::string> args(c.command.begin() + 1, c.command.end());
    args.push_back(path);
    const testing::ProgramRun oracle = testing::RunProgram(c.command[0], args);
    ASSERT_TRUE(oracle.status == 0 && !oracle.out.empty()) << c.command[0];
    Answer a = RunInProcess(kOpText, path);
    EXPECT_EQ(MissingWords(oracle.out, a.text), std::vector<std::string>());
  }
}

TEST(WordBinaryReader, AgreesWithAntiword) {
  TempTree tree;
  CompareWithTool("antiword", {{"sample.doc", {"antiword"}},
                               {"word-extractor-test02.doc", {"antiword"}},
                               {"word-extractor-test05.doc", {"antiword"}},
                               {"word-extractor-test08.doc", {"antiword"}},
                               // too small a text stream for antiword
                               {"word-extractor-test11.doc", {"catdoc", "-d", "utf-8"}}},
                  tree);
}

// --- Excel -------------------------------------------------------------------------------------

std::string Record(uint16_t type, const std::string& body) {
  std::string r;
  Put16(r, 0, type);
  Put16(r, 2, static_cast<uint16_t>(body.size()));
  return r + body;
}

std::string Bof(uint16_t kind) {
  std::string b;
  Put16(b, 0, 0x0600);
  Put16(b, 2, kind);
  b.resize(16);
  return Record(0x0809, b);
}

std::string Cell(uint16_t row, uint16_t col, const std::string& rest) {
  std::string b;
  Put16(b, 0, row);
  Put16(b, 2, col);
  Put16(b, 4, 0);
  return b + rest;
}

std::string Le32Bytes(uint32_t v) {
  std::string s;
  Put32(s, 0, v);
  return s;
}

Answer ReadWorkbook(const TempTree& tree, const std::string& workbook) {
  WriteCompound(tree.path("t.xls"), {{"Workbook", workbook}});
  return RunInProcess(kOpText, tree.path("t.xls"));
}

TEST(ExcelBinaryReader, SharedStringsSurviveContinueRecords) {
  TempTree tree;
  // Two strings: the second starts 8-bit, and its CONTINUE switches to 16-bit characters.
  std::string sst = Le32Bytes(2) + Le32Bytes(2);
  sst += std::string("\x03\x00\x00", 3) + "abc";
  sst += std::string("\x06\x00\x00", 3) + "xyz";  // three of six characters here
  std::string cont = std::string("\x01", 1) + Utf16(u"\u00E9\u65E5!");
  std::string book = Bof(0x0005) + Record(0x00FC, sst) + Record(0x003C, cont) + Record(0x000A, "");
  std::string cells = Record(0x00FD, Cell(0, 0, Le32Bytes(1))) + Record(0x00FD, Cell(0, 1, Le32Bytes(0))) +
                      Record(0x00FD, Cell(1, 0, Le32Bytes(99)));  // no such string: nothing
  Answer a = ReadWorkbook(tree, book + Bof(0x0010) + cells + Record(0x000A, ""));
  EXPECT_EQ(a.end.code, kEndOk) << a.end.message;
  EXPECT_EQ(a.text, "xyz\xC3\xA9\xE6\x97\xA5!\tabc");
}

TEST(ExcelBinaryReader, CellsOfEveryKindAndSheetNames) {
  TempTree tree;
  std::string sheet_name = std::string("\x05\x00", 2) + "Sheet";
  std::string book = Bof(0x0005);
  const uint32_t sheet_at = static_cast<uint32_t>(book.size() + 4 + 6 + sheet_name.size() + 4);
  book += Record(0x0085, Le32Bytes(sheet_at) + std::string("\x00\x00", 2) + sheet_name) + Record(0x000A, "");
  ASSERT_EQ(book.size(), sheet_at);
  double three_half = 3.5;
  std::string number(8, '\0');
  memcpy(number.data(), &three_half, 8);
  std::string mulrk = Cell(1, 0, "").substr(0, 4);
  for (uint32_t rk : {(7u << 2) | 2u, (12345u << 2) | 3u}) mulrk += std::string("\0\0", 2) + Le32Bytes(rk);
  mulrk += std::string("\x01\x00", 2);
  std::string formula_string = std::string("\x00\x00\x00\x00\x00\x00\xFF\xFF", 8);
  std::string formula_bool = std::string("\x01\x00\x01\x00\x00\x00\xFF\xFF", 8);
  std::string cells = Record(0x0203, Cell(0, 0, number)) + Record(0x027E, Cell(0, 1, Le32Bytes((5u << 2) | 2u))) +
                      Record(0x0204, Cell(0, 2, std::string("\x02\x00\x00", 3) + "hi")) + Record(0x00BD, mulrk) +
                      Record(0x0205, Cell(2, 0, "\x07\x01")) + Record(0x0205, Cell(2, 1, std::string("\x00\x00", 2))) +
                      Record(0x0006, Cell(3, 0, formula_string + std::string(6, '\0'))) +
                      Record(0x0207, std::string("\x04\x00\x00", 3) + "calc") +
                      Record(0x0006, Cell(3, 1, formula_bool + std::string(6, '\0')));
  Answer a = ReadWorkbook(tree, book + Bof(0x0010) + cells + Record(0x000A, ""));
  EXPECT_EQ(a.end.code, kEndOk) << a.end.message;
  EXPECT_EQ(a.text, "Sheet\n3.5\t5\thi\n7\t123.45\n#DIV/0!\tFALSE\ncalc\tTRUE");
}

TEST(ExcelBinaryReader, HostileWorkbooks) {
  TempTree tree;
  // A shared string table that promises four billion strings holds two.
  std::string sst = Le32Bytes(0xFFFFFFFF) + Le32Bytes(0xFFFFFFFF) + std::string("\x01\x00\x00", 3) + "a" +
                    std::string("\xFF\xFF\x00", 3) + "only this";
  std::string cells = Record(0x00FD, Cell(0, 0, Le32Bytes(0))) + Record(0x00FD, Cell(0, 1, Le32Bytes(1)));
  Answer huge = ReadWorkbook(tree, Bof(5) + Record(0x00FC, sst) + Record(0x000A, "") + Bof(0x10) + cells);
  EXPECT_EQ(huge.end.code, kEndOk);
  EXPECT_EQ(huge.text, "a");
  // A record whose length runs past the stream ends the reading there.
  std::string cut = Bof(5) + Record(0x000A, "") + Bof(0x10) + Record(0x0204, Cell(0, 0, std::string("\x02\x00\x00", 3) + "ok"));
  cut += std::string("\x04\x02\xF0\x00", 4) + "short";
  EXPECT_EQ(ReadWorkbook(tree, cut).text, "ok");
  // Short records are skipped, not read past.
  EXPECT_EQ(ReadWorkbook(tree, Bof(5) + Record(0x0203, "x") + Record(0x00FD, "y") + Record(0x0006, "z")).end.code,
            kEndNoText);

  Answer locked = ReadWorkbook(tree, Bof(5) + Record(0x002F, std::string(6, '\0')) + Record(0x000A, ""));
  EXPECT_EQ(locked.end.code, kEndEncrypted);
  EXPECT_EQ(locked.end.message, "encrypted");
  std::string biff5 = Bof(5);
  Put16(biff5, 4, 0x0500);
  EXPECT_EQ(ReadWorkbook(tree, biff5).end.code, kEndUnreadable);
}

TEST(ExcelBinaryReader, LibreOfficeSamples) {
  TempTree tree;
  Answer a = RunInProcess(kOpText, Sample(tree, "sample.xls"));
  ASSERT_EQ(a.end.code, kEndOk) << a.end.message;
  EXPECT_EQ(a.text.rfind("Harvest\nFruit\tKilos\n\xC3\x84pfel\t1250\nPears\t3.75\nTotal\t1253.75\nNotes\n", 0), 0u)
      << a.text;
  EXPECT_NE(a.text.find("\xCE\x95\xCE\xBB\xCE\xBB\xCE\xB7\xCE\xBD\xCE\xB9\xCE\xBA\xCE\xAC \xCE\xBA\xCE\xB1\xCE\xB9 "
                        "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E\t-42"),
            std::string::npos);

  // 1,500 rows of strings in three scripts: a shared string table over many CONTINUE records.
  Answer many = RunInProcess(kOpText, Sample(tree, "many.xls.gz"));
  ASSERT_EQ(many.end.code, kEndOk) << many.end.message;
  std::string expected = "many\n";
  for (int i = 0; i < 1500; ++i) {
    char row[64];
    if (i % 3) snprintf(row, sizeof row, "entry%04d plain", i);
    else if (i % 2) snprintf(row, sizeof row, "Eintrag%04d Gr\xC3\xB6\xC3\x9F" "e \xC3\xBF", i);
    else snprintf(row, sizeof row, "\xE8\xA8\x98\xE9\x8C\xB2%04d \xE3\x83\x86\xE3\x82\xAD\xE3\x82\xB9\xE3\x83\x88", i);
    expected += std::string(row) + "\t" + std::to_string(i * 7) + (i < 1499 ? "\n" : "");
  }
  EXPECT_EQ(many.text, expected);
}

TEST(ExcelBinaryReader, AgreesWithXls2csv) {
  TempTree tree;
  CompareWithTool("xls2csv", {{"sample.xls", {"xls2csv", "-d", "utf-8"}}, {"many.xls.gz", {"xls2csv", "-d", "utf-8"}}},
                  tree);
}

// --- PowerPoint --------------------------------------------------------------------------------

std::string PptRecord(uint16_t type, const std::string& body, bool container = false) {
  std::string r;
  Put16(r, 0, container ? 0x000F : 0);
  Put16(r, 2, type);
  Put32(r, 4, static_cast<uint32_t>(body.size()));
  return r + body;
}

Answer ReadPresentation(const TempTree& tree, const std::string& stream,
                        std::map<std::string, std::string> more = {}) {
  more["PowerPoint Document"] = stream;
  WriteCompound(tree.path("t.ppt"), more);
  return RunInProcess(kOpText, tree.path("t.ppt"));
}

// A WordArt shape: its text is a property of the drawing, after a plain property and the font.
std::string WordArt(std::u16string_view text) {
  const std::string font = Utf16(u"Sans") + std::string(2, '\0');
  const std::string chars = Utf16(text) + std::string(2, '\0');
  std::string table;
  Put16(table, 0, 0x0181);  // the fill colour, held in the table
  Put32(table, 2, 0x00FF00);
  Put16(table, 6, 0xC0C5);  // the font's name, after the table
  Put32(table, 8, static_cast<uint32_t>(font.size()));
  Put16(table, 12, 0xC0C0);  // the text, after the font's name
  Put32(table, 14, static_cast<uint32_t>(chars.size()));
  std::string r = PptRecord(0xF00B, table + font + chars);
  Put16(r, 0, (3 << 4) | 3);  // three properties
  return r;
}

TEST(PowerPointBinaryReader, OutlineAndDrawingsOnceEach) {
  TempTree tree;
  auto chars = [](std::u16string_view t) { return PptRecord(0x0FA0, Utf16(t)); };
  auto bytes = [](std::string_view t) { return PptRecord(0x0FA8, std::string(t)); };
  auto textbox = [](const std::string& atoms) {
    return PptRecord(0xF002, PptRecord(0xF003, PptRecord(0xF004, PptRecord(0xF00D, atoms, true), true), true), true);
  };
  const std::string outline = PptRecord(0x0FF0, chars(u"Title one\rsecond line") + bytes("Caf\xE9"), true);
  const std::string master = PptRecord(0x03F8, textbox(chars(u"Click to edit the title text format")), true);
  const std::string slide1 = PptRecord(0x03EE, textbox(chars(u"Title one\rsecond line")), true);
  const std::string slide2 =
      PptRecord(0x03EE, textbox(bytes("Same words") + bytes("Same words") + chars(u"*") + chars(u"* ")), true);
  const std::string slide3 = PptRecord(0x03EE, textbox(WordArt(u"Harbour lantern")), true);
  Answer a = ReadPresentation(tree, PptRecord(0x03E8, outline, true) + master + slide1 + slide2 + slide3);
  EXPECT_EQ(a.end.code, kEndOk) << a.end.message;
  EXPECT_EQ(a.text, "Title one\nsecond line\nCaf\xC3\xA9\nSame words\nSame words\nHarbour lantern\n");
  // A property table that claims more data than its record holds gives nothing from it.
  std::string cut = WordArt(u"gone");
  Put32(cut, 8 + 14, 1000);
  EXPECT_EQ(ReadPresentation(tree, PptRecord(0x03EE, textbox(cut), true)).end.code, kEndNoText);
}

TEST(PowerPointBinaryReader, HostileAndEncryptedPresentations) {
  TempTree tree;
  // A container that claims more than its parent holds is damage: its level ends there.
  std::string inner = PptRecord(0x0FA8, "inside");
  std::string liar = PptRecord(0x03EE, inner, true);
  Put32(liar, 4, 0x7FFFFFFF);
  Answer a = ReadPresentation(tree, PptRecord(0x0FA8, "before") + liar);
  EXPECT_EQ(a.end.code, kEndOk);
  EXPECT_EQ(a.text, "before\n");
  // Containers nested thousands deep stop at a fixed depth, without a crash.
  std::string deep = PptRecord(0x0FA8, "deep");
  for (int i = 0; i < 5000; ++i) deep = PptRecord(0x0FF0 + (i % 2), deep, true);
  EXPECT_EQ(ReadPresentation(tree, deep).end.code, kEndNoText);

  Answer locked = ReadPresentation(tree, PptRecord(0x0FA8, "x"), {{"EncryptedSummary", "?"}});
  EXPECT_EQ(locked.end.code, kEndEncrypted);
  EXPECT_EQ(locked.text, "");
  EXPECT_EQ(ReadPresentation(tree, PptRecord(0x2F14, "", true)).end.code, kEndEncrypted);
}

TEST(PowerPointBinaryReader, LibreOfficeSampleGivesBothSlidesOnce) {
  TempTree tree;
  Answer a = RunInProcess(kOpText, Sample(tree, "sample.ppt.gz"));
  ASSERT_EQ(a.end.code, kEndOk) << a.end.message;
  EXPECT_EQ(a.text, "First slide about apples\nCr\xC3\xA8me br\xC3\xBBl\xC3\xA9" "e f\xC3\xBCr alle\nSecond slide on pears\n");
}

// LibreOffice keeps its own .ppt text in drawings, where catppt finds none; LibreOffice's own
// reading of the file, saved as ODF, is the independent one.
TEST(PowerPointBinaryReader, AgreesWithLibreOffice) {
  if (!ToolThere("python3")) GTEST_SKIP() << "python3 is not installed: nothing to compare with";
  TempTree tree;
  const std::string script = std::string(TROVIX_SOURCE_DIR) + "/tests/extract/independent_text.py";
  std::vector<OracleCase> cases;
  for (const char* sample : {"sample.ppt.gz", "slides.ppt.gz"})
    cases.push_back({sample, {"python3", script, "presentation", tree.path(std::string("lo-") + sample)}});
  CompareWithTool("soffice", cases, tree);
}

// --- Properties and compound files ------------------------------------------------------------

TEST(LegacyOfficeProperties, SummaryStreamsGiveTheOfficeNames) {
  auto doc = PropertiesOf(DataDir() + "/sample.doc");
  EXPECT_EQ(doc["System.Title"].texts, std::vector<std::string>{"Quarterly harvest report"});
  EXPECT_EQ(doc["System.Subject"].texts, std::vector<std::string>{"Orchards"});
  EXPECT_EQ(doc["System.Author"].texts, std::vector<std::string>{"Ada Lovelace"});
  EXPECT_EQ(doc["System.Keywords"].texts, (std::vector<std::string>{"apples", "pears"}));
  EXPECT_EQ(doc["System.Comment"].texts, std::vector<std::string>{"Written for the tests"});
  EXPECT_EQ(doc["System.Document.DateCreated"].integer, base::FileTimeFromCivil({2021, 3, 4, 5, 6, 7}));
  EXPECT_EQ(doc["System.Document.DateSaved"].integer, base::FileTimeFromCivil({2022, 8, 9, 10, 11, 12}));
  EXPECT_EQ(doc["System.Document.DateSaved"].type, ExtractedProperty::kTime);

  TempTree tree;
  EXPECT_EQ(PropertiesOf(Sample(tree, "sample.xls"))["System.Title"].texts, std::vector<std::string>{"Fruit ledger"});
  EXPECT_EQ(PropertiesOf(Sample(tree, "sample.ppt.gz"))["System.Title"].texts, std::vector<std::string>{"Orchard slides"});
  Outcome o;
  tree.File("not.doc", "plain text, not a compound file");
  EXPECT_TRUE(PropertiesOf(tree.path("not.doc"), &o).empty());
  EXPECT_EQ(o.code, kEndUnreadable);
}

// The compound file's own structure: header fields, the first FAT sector and the directory.
struct Compound {
  std::string bytes;
  uint32_t SectorOffset(uint32_t sector) const { return 512 + sector * 512; }
  uint32_t Fat(uint32_t sector) const {
    const uint32_t fat0 = Le(0x4C);
    return Le(SectorOffset(fat0) + 4 * sector);
  }
  void SetFat(uint32_t sector, uint32_t next) { Put32(bytes, SectorOffset(Le(0x4C)) + 4 * sector, next); }
  uint32_t Le(size_t at) const {
    return static_cast<uint8_t>(bytes[at]) | static_cast<uint8_t>(bytes[at + 1]) << 8 |
           static_cast<uint8_t>(bytes[at + 2]) << 16 | static_cast<uint32_t>(static_cast<uint8_t>(bytes[at + 3])) << 24;
  }
  // The first sector of a stream of the first directory sector, by its name.
  uint32_t StreamStart(std::u16string_view name) const {
    const uint32_t dir = SectorOffset(Le(0x30));
    for (uint32_t e = 0; e < 4; ++e) {
      const size_t at = dir + 128 * e;
      if (bytes.compare(at, name.size() * 2, Utf16(name)) == 0) return Le(at + 0x74);
    }
    return 0xFFFFFFFF;
  }
};

TEST(LegacyOfficeHostile, SectorChainsThatLoopEndTheReading) {
  TempTree tree;
  // A document whose text stream is large enough to live in the big sectors.
  std::string text;
  for (int i = 0; i < 800; ++i) text += "loop words ";
  WriteCompound(tree.path("base.doc"), WordStreams({{text}}));
  Compound file{testing::ReadWholeFile(tree.path("base.doc"))};
  ASSERT_EQ(file.Le(0), 0xE011CFD0u);
  const uint32_t start = file.StreamStart(u"WordDocument");
  ASSERT_NE(start, 0xFFFFFFFFu);

  Compound stream_loop = file;
  stream_loop.SetFat(file.Fat(start), start);  // the stream's second sector leads back to its first
  tree.File("stream-loop.doc", stream_loop.bytes);
  Answer a = RunInProcess(kOpText, tree.path("stream-loop.doc"));
  EXPECT_NE(a.end.code, kEndOk);

  // A directory chain that loops is read once round (libgsf stops at the repeated sector).
  Compound dir_loop = file;
  dir_loop.SetFat(file.Le(0x30), file.Le(0x30));
  tree.File("dir-loop.doc", dir_loop.bytes);
  EXPECT_LE(RunInProcess(kOpText, tree.path("dir-loop.doc")).text.size(), text.size());

  // Every cut of a real document reads or is refused; none crashes.
  const std::string sample = testing::ReadWholeFile(DataDir() + "/sample.doc");
  for (size_t cut : {size_t{0}, size_t{100}, size_t{512}, size_t{1500}, sample.size() / 2, sample.size() - 1}) {
    tree.File("cut.doc", sample.substr(0, cut));
    RunInProcess(kOpText, tree.path("cut.doc"));
    PropertiesOf(tree.path("cut.doc"));
  }
}

}  // namespace
}  // namespace trovix::extract
