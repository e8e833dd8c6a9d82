// The RTF reader on documents written here (code pages, \uN with \ucN, skipped groups,
// malformed input) and on the corpus's RTF files, whose visible text was checked by hand.
#include "text/rtf_reader.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/test_files.h"

namespace trovix::text {
namespace {

std::string ReadAll(TextReader& reader, size_t piece = 4096) {
  std::string text;
  while (reader.Read(&text, piece) == ReadStatus::kOk) {
  }
  return text;
}

std::string TextOf(std::string rtf, size_t piece = 4096) {
  std::unique_ptr<TextReader> reader = OpenRtfReader(MemorySource(std::move(rtf)));
  return ReadAll(*reader, piece);
}

// The look of the text where it changes, for showing a document: groups end what they began,
// a 0 form and \plain turn a look off, and the text is what the search reads.
TEST(RtfStyled, RunsStartWhereTheLookChanges) {
  const std::string rtf =
      "{\\rtf1\\ansi plain {\\b bold \\i both\\b0  slanted} \\ul under\\ulnone  caf\\'e9 {\\b\\i\\ul x\\plain y}}";
  const RtfStyledText styled = ReadRtfStyled(MemorySource(rtf), 1 << 20);
  EXPECT_EQ(styled.text, TextOf(rtf));
  std::vector<std::string> looks;
  for (size_t i = 0; i < styled.runs.size(); ++i) {
    const RtfStyleRun& r = styled.runs[i];
    const size_t end = i + 1 < styled.runs.size() ? styled.runs[i + 1].start : styled.text.size();
    looks.push_back(std::string(r.bold ? "b" : "") + (r.italic ? "i" : "") + (r.underline ? "u" : "") + ":" +
                    styled.text.substr(r.start, end - r.start));
  }
  EXPECT_EQ(looks, (std::vector<std::string>{":plain ", "b:bold ", "bi:both", "i: slanted", ": ", "u:under",
                                             ": caf\xC3\xA9 ", "biu:x", ":y"}));
  // A limit cuts the text and the runs with it.
  const RtfStyledText cut = ReadRtfStyled(MemorySource(rtf), 8);
  EXPECT_LE(cut.text.size(), 8u + 4u);
  for (const RtfStyleRun& r : cut.runs) EXPECT_LT(r.start, cut.text.size());
}

TEST(RtfReader, EscapedBytesAreInTheDocumentsCodePage) {
  EXPECT_EQ(TextOf("{\\rtf1\\ansi\\ansicpg1252 caf\\'e9 \\'80}"), "caf\xC3\xA9 \xE2\x82\xAC");
  EXPECT_EQ(TextOf("{\\rtf1\\ansi\\ansicpg1250 \\'9akoda}"), "\xC5\xA1koda");
  EXPECT_EQ(TextOf("{\\rtf1 caf\\'e9}"), "caf\xC3\xA9");  // no code page named: 1252
  // Two escapes make one character of a double-byte code page.
  EXPECT_EQ(TextOf("{\\rtf1\\ansi\\ansicpg936 \\'b2\\'e2\\'ca\\'d4}"), "\xE6\xB5\x8B\xE8\xAF\x95");
  // A font's character set overrides the document's code page while that font is used.
  EXPECT_EQ(TextOf("{\\rtf1\\ansi\\ansicpg1252{\\fonttbl{\\f0\\fcharset0 Arial;}"
                   "{\\f1\\fcharset204 Arial Cyr;}}\\f1 \\'cf\\'f0\\'e8\\f0  \\'e9}"),
            "\xD0\x9F\xD1\x80\xD0\xB8 \xC3\xA9");
}

TEST(RtfReader, UnicodeEscapesSkipTheirStandIns) {
  EXPECT_EQ(TextOf("{\\rtf1 \\u8364?5}"),
            "\xE2\x82\xAC"
            "5");
  EXPECT_EQ(TextOf("{\\rtf1\\uc0 \\u8364 5}"),
            "\xE2\x82\xAC"
            "5");
  EXPECT_EQ(TextOf("{\\rtf1\\uc2 \\u8364\\'80\\'80z}"),
            "\xE2\x82\xAC"
            "z");
  // Negative values wrap; two units make a character outside the BMP.
  EXPECT_EQ(TextOf("{\\rtf1 \\u-10179?\\u-8704?!}"), "\xF0\x9F\x98\x80!");
  // \ucN belongs to its group; a brace ends the stand-ins early.
  EXPECT_EQ(TextOf("{\\rtf1{\\uc3 \\u233 ab}c\\u233 ?d}"),
            "\xC3\xA9"
            "c\xC3\xA9"
            "d");
  // A lone surrogate is a replacement character.
  EXPECT_EQ(TextOf("{\\rtf1 \\u-10179?x}"), "\xEF\xBF\xBDx");
}

TEST(RtfReader, ControlWordsThatStandForText) {
  EXPECT_EQ(TextOf("{\\rtf1 a\\par b\\line c\\tab d\\emdash e\\lquote f\\rquote\\~g\\{\\}\\\\}"),
            "a\nb\nc\td\xE2\x80\x94"
            "e\xE2\x80\x98"
            "f\xE2\x80\x99\xC2\xA0g{}\\");
  // Line breaks in the file are not text, and the space after a control word is its end.
  EXPECT_EQ(TextOf("{\\rtf1 one\r\ntwo\\b  three}"), "onetwo three");
}

TEST(RtfReader, GroupsWithoutBodyTextAreSkipped) {
  EXPECT_EQ(TextOf("{\\rtf1{\\fonttbl{\\f0 Arial;}}{\\colortbl;\\red0\\green0\\blue0;}"
                   "{\\stylesheet{\\s0 Normal;}}{\\info{\\author Me}{\\title T}}"
                   "{\\*\\generator Gen{\\nested deeper}}{\\pict\\pngblip 89504e47}"
                   "{\\field{\\*\\fldinst HYPERLINK \"x\"}{\\fldrslt link}}"
                   "{\\header head}Body}"),
            "linkheadBody");
  // \binN carries N raw bytes, braces or not.
  EXPECT_EQ(TextOf("{\\rtf1 a{\\pict\\bin3 {{{}b}"), "ab");
}

TEST(RtfReader, MalformedDocumentsGiveWhatTextTheyHold) {
  EXPECT_EQ(TextOf("{\\rtf1 a}}} b{{{"), "a b");
  EXPECT_EQ(TextOf("{\\rtf1 abc\\'e"), "abc");
  EXPECT_EQ(TextOf("{\\rtf1 abc\\"), "abc");
  // Huge numbers saturate: a unit out of range, then at most 16 stand-ins skipped.
  EXPECT_EQ(TextOf("{\\rtf1\\uc99999999999 \\u99999999999 x\\ansicpg-5 \\'e9}"), "\xEF\xBF\xBD");
  EXPECT_EQ(TextOf("plain words, no rtf at all"), "plain words, no rtf at all");
  EXPECT_EQ(TextOf(""), "");

  std::string deep = "{\\rtf1 ";
  deep += std::string(100000, '{') + "deep" + std::string(100000, '}') + " after}";
  EXPECT_EQ(TextOf(deep), "deep after");
}

TEST(RtfReader, PiecesNeverSplitACharacter) {
  std::unique_ptr<TextReader> reader =
      OpenRtfReader(MemorySource("{\\rtf1\\ansicpg1252 \\'e9\\u8364?\\u-10179?\\u-8704?}"));
  std::vector<std::string> pieces;
  std::string piece;
  while (reader->Read(&piece, 1) == ReadStatus::kOk) {
    pieces.push_back(piece);
    piece.clear();
  }
  EXPECT_EQ(pieces, (std::vector<std::string>{"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"}));
}

using trovix::testing::CorpusDir;

// The corpus documents, with phrases of their visible text read by hand from the files and
// words of their skipped groups (document properties, field codes) that must not show.
TEST(RtfReader, CorpusDocumentsGiveTheirVisibleText) {
  const std::string dir = CorpusDir() + "/documents";
  struct stat st;
  if (stat(dir.c_str(), &st) != 0) GTEST_SKIP() << "no corpus at " << dir;
  struct Case {
    const char* file;
    std::vector<std::string> shown;
    std::vector<std::string> hidden;
  };
  const Case cases[] = {
      {"ansicpg1250.rtf",
       {"Prosz\xC4\x99 o zapoznanie si\xC4\x99 z poni\xC5\xBCsz\xC4\x85 klauzul\xC4\x85 "
        "informacyjn\xC4\x85."},
       {"AMiszcz", "Times New Roman"}},
      {"issue_11.rtf", {"\xE6\xB5\x8B\xE8\xAF\x95"}, {"ciker"}},
      {"unicode.rtf", {"\xE6\x9F\x94\xE9\x81\x93"}, {"Liberation"}},
      {"bytes.rtf",
       {"\xD0\xA3\xD0\xA5\xD0\x92\xD0\x90\xD0\x9B\xD0\x90",  // УХВАЛА
        "\xD0\x92\xD0\xB5\xD1\x80\xD1\x85\xD0\xBE\xD0\xB2\xD0\xBD\xD0\xB8\xD0\xB9 "
        "\xD0\xA1\xD1\x83\xD0\xB4"},  // Верховний Суд
       {}},
      {"Example_text.rtf",
       {"Text here with hyperlink", "Another font"},
       {"HYPERLINK", "Gattermann"}},
      {"et-RTF.rtf", {"This is some text"}, {"author with braces"}},
      {"hello.rtf", {"Hello"}, {"joshy"}},
      {"line_break_textedit_mac.rtf", {"A\nB\nC"}, {"Helvetica"}},
      {"list_complex.rtf", {"1.\tOne\n2.\tTwo\n", "Out of list!", "7.\tSeven Start"}, {"Cynthia"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    std::unique_ptr<ByteSource> source = OpenFileSource(dir + "/" + c.file);
    ASSERT_NE(source, nullptr);
    std::unique_ptr<TextReader> reader = OpenRtfReader(std::move(source));
    const std::string text = ReadAll(*reader, 1000);
    for (const std::string& phrase : c.shown)
      EXPECT_NE(text.find(phrase), std::string::npos) << phrase;
    for (const std::string& word : c.hidden) EXPECT_EQ(text.find(word), std::string::npos) << word;
  }
}

// The \info group read for the document's properties: fields decoded like body text, the
// numbers and the times, the reading stopped at the group's end; the body never holds them.
TEST(RtfReader, InfoFieldsAreReadOnlyWhenAsked) {
  const std::string rtf =
      "{\\rtf1\\ansi\\ansicpg1250 {\\info{\\title Zaj\\'eacy {\\b nested}}{\\author A; B}"
      "{\\*\\company \\u8364? Co}{\\keywords one, two}{\\creatim\\yr2020\\mo2\\dy29\\hr13\\min5}"
      "{\\nofpages3}{\\edmins42}{\\doccomm line\\par two}}Body text.}{\\title not info}";
  RtfInfo info = ReadRtfInfo(MemorySource(rtf));
  EXPECT_EQ(info.text["title"], "Zaj\xC4\x99" "cy nested");
  EXPECT_EQ(info.text["author"], "A; B");
  EXPECT_EQ(info.text["company"], "\xE2\x82\xAC Co");
  EXPECT_EQ(info.text["keywords"], "one, two");
  EXPECT_EQ(info.text["doccomm"], "line\ntwo");
  EXPECT_EQ(info.number["nofpages"], 3);
  EXPECT_EQ(info.number.count("edmins"), 0u);
  const base::CivilTime created = info.time["creatim"];
  EXPECT_EQ(created.year, 2020);
  EXPECT_EQ(created.month, 2);
  EXPECT_EQ(created.day, 29);
  EXPECT_EQ(created.hour, 13);
  EXPECT_EQ(created.minute, 5);
  EXPECT_EQ(TextOf(rtf), "Body text.");
  // A document without \info, or a broken one, gives nothing and never fails.
  EXPECT_TRUE(ReadRtfInfo(MemorySource("{\\rtf1 plain}")).text.empty());
  EXPECT_EQ(ReadRtfInfo(MemorySource("{\\rtf1{\\info{\\title cut")).text["title"], "cut");
}

}  // namespace
}  // namespace trovix::text
