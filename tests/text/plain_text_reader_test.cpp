// The plain-text reader on real files and memory blocks: byte-order marks of every kind,
// detection without a mark, binary files, the "pdf" and "rtf" cases, characters cut by the
// reader's block boundaries, and ill-formed input.
#include "text/plain_text_reader.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "base/utf.h"
#include "tests/support/temp_tree.h"

namespace trovix::text {
namespace {

using namespace std::string_literals;

std::string ReadAll(TextReader& reader, size_t piece = 1 << 16) {
  std::string text;
  while (reader.Read(&text, piece) == ReadStatus::kOk) {
  }
  return text;
}

TextOpen OpenBytes(std::string bytes, std::string_view extension = "txt",
                   uint32_t mode = kModeDetect) {
  return OpenTextReader(MemorySource(std::move(bytes)), extension, mode);
}

std::string Utf16LE(std::u16string_view text) {
  std::string bytes;
  for (char16_t unit : text) {
    bytes.push_back(static_cast<char>(unit & 0xFF));
    bytes.push_back(static_cast<char>(unit >> 8));
  }
  return bytes;
}

TEST(OpenTextReader, ByteOrderMarksDecideTheKindAndAreNotText) {
  struct Case {
    std::string bytes;
    int kind;
    const char* encoding;
  };
  const Case cases[] = {
      {"\xEF\xBB\xBF"
       "caf\xC3\xA9",
       2, "UTF-8"},
      {"\xFF\xFE"
       "c\0a\0f\0\xE9\0"s,
       3, "UTF-16LE"},
      {"\xFE\xFF"
       "\0c\0a\0f\0\xE9"s,
       5, "UTF-16BE"},
      // UTF-32LE's mark starts with UTF-16LE's: it must win.
      {"\xFF\xFE\0\0"
       "c\0\0\0a\0\0\0f\0\0\0\xE9\0\0\0"s,
       6, "UTF-32LE"},
      {"\0\0\xFE\xFF"
       "\0\0\0c\0\0\0a\0\0\0f\0\0\0\xE9"s,
       6, "UTF-32BE"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.encoding);
    TextOpen open = OpenBytes(c.bytes);
    EXPECT_EQ(open.kind, c.kind);
    EXPECT_EQ(open.encoding, c.encoding);
    ASSERT_NE(open.reader, nullptr);
    EXPECT_EQ(ReadAll(*open.reader), "caf\xC3\xA9");
  }
}

TEST(OpenTextReader, EmptyFilesAndMissingSourcesHaveNoReader) {
  TextOpen empty = OpenBytes("");
  EXPECT_EQ(empty.kind, 0);
  EXPECT_EQ(empty.reader, nullptr);
  EXPECT_EQ(empty.error, 0);

  TextOpen missing = OpenTextReader(nullptr, "txt");
  EXPECT_EQ(missing.kind, 0);
  EXPECT_EQ(missing.error, EBADF);
}

TEST(OpenTextReader, PdfIsKindFourWithoutBeingRead) {
  testing::TempTree tree({"x.pdf=plain words that would read as text"});
  EXPECT_EQ(OpenTextReader(OpenFileSource(tree.path("x.pdf")), "pdf").kind, 4);
  // The name alone decides: a file that is not there is no different.
  std::unique_ptr<ByteSource> none = OpenFileSource(tree.path("missing.pdf"));
  EXPECT_EQ(none, nullptr);
  TextOpen open = OpenTextReader(std::move(none), "pdf");
  EXPECT_EQ(open.kind, 4);
  EXPECT_EQ(open.reader, nullptr);
}

TEST(OpenTextReader, RtfDocumentsGoToTheRtfReaderWithOrWithoutEscapes) {
  const std::string escaped = "{\\rtf1\\ansi caf\\'e9}";
  EXPECT_EQ(OpenBytes(escaped, "rtf").kind, 4);
  EXPECT_EQ(OpenBytes(escaped, "txt").kind, 1);  // only the rtf extension asks
  // No escape at all: its markup is not text either.
  EXPECT_EQ(OpenBytes("{\\rtf1\\ansi{\\fonttbl{\\f0 Arial;}} plain words}", "rtf").kind, 4);
  // An escape without the header still counts; a named .rtf that is plain text is read as such.
  EXPECT_EQ(OpenBytes("caf\\'e9 notes", "rtf").kind, 4);
  TextOpen plain = OpenBytes("just notes, {not} rtf", "rtf");
  EXPECT_EQ(plain.kind, 1);
  ASSERT_NE(plain.reader, nullptr);
  EXPECT_EQ(ReadAll(*plain.reader), "just notes, {not} rtf");
}

TEST(OpenTextReader, Utf16WithoutMarkIsFoundByItsNulBytes) {
  const std::u16string text =
      u"Grüße aus Köln, a file written by a program that wrote no mark.\r\n";
  testing::TempTree tree;
  tree.File("le.txt", Utf16LE(text));
  TextOpen open = OpenTextReader(OpenFileSource(tree.path("le.txt")), "txt");
  EXPECT_EQ(open.kind, 1);
  EXPECT_EQ(open.encoding, "UTF-16LE");
  ASSERT_NE(open.reader, nullptr);
  EXPECT_EQ(ReadAll(*open.reader),
            "Gr\xC3\xBC\xC3\x9F"
            "e aus K\xC3\xB6ln, a file written by a program that wrote no mark.\r\n");
}

TEST(OpenTextReader, BinaryFilesAreKindFour) {
  std::string elf =
      "\x7F"
      "ELF\x02\x01\x01\0\0\0\0\0\0\0\0\0\x03\0\x3E\0\x01\0\0\0"s;
  elf += std::string(200, '\0') + "/lib64/ld-linux-x86-64.so.2" + std::string(64, '\0');
  EXPECT_EQ(OpenBytes(elf).kind, 4);

  std::mt19937 random(7);
  std::string noise(8192, '\0');
  for (char& c : noise) c = static_cast<char>(random());
  EXPECT_EQ(OpenBytes(noise).kind, 4);

  // No NUL bytes, but control characters that text does not hold.
  std::string controls;
  for (int i = 0; i < 400; ++i) controls += "ab\x01\x02\x03\x04\x7F";
  EXPECT_EQ(OpenBytes(controls).kind, 4);

  // Tabs, form feeds and the escape sequences of terminal output are text.
  EXPECT_EQ(OpenBytes("col1\tcol2\f\x1B[1mbold\x1B[0m\r\n").kind, 1);
}

TEST(OpenTextReader, FixedEncodingIsUsedInsteadOfDetection) {
  const uint32_t windows_1252 = kModeFixedEncoding | (1252u << 16);
  TextOpen open = OpenBytes("caf\xE9 \x80", "txt", windows_1252);
  EXPECT_EQ(open.kind, 1);
  EXPECT_EQ(open.encoding, "windows-1252");
  ASSERT_NE(open.reader, nullptr);
  EXPECT_EQ(ReadAll(*open.reader), "caf\xC3\xA9 \xE2\x82\xAC");
  // A mark still wins over the caller's choice.
  EXPECT_EQ(OpenBytes("\xEF\xBB\xBFx", "txt", windows_1252).kind, 2);
}

TEST(OpenTextReader, IllFormedSequencesBecomeReplacementCharacters) {
  // UTF-8 detected from the sample, and bytes past the sample that break it.
  std::string bytes = std::string(kSampleBytes, 'a') + "\xC3(" + "\xE2\x82";
  TextOpen open = OpenBytes(bytes);
  ASSERT_EQ(open.encoding, "UTF-8");
  EXPECT_EQ(ReadAll(*open.reader), std::string(kSampleBytes, 'a') + "\xEF\xBF\xBD(\xEF\xBF\xBD");

  // A lone surrogate in UTF-16.
  TextOpen wide = OpenBytes(
      "\xFF\xFE"
      "a\0\x00\xD8"
      "b\0"s);
  EXPECT_EQ(ReadAll(*wide.reader),
            "a\xEF\xBF\xBD"
            "b");
}

// Found by fuzzing: the detector's statistics guessed UTF-8 for a short text with a stray
// continuation byte, and the reader took the guess for a check and passed the byte on.
TEST(OpenTextReader, GuessedUtf8IsStillRepaired) {
  for (std::string bytes : {"\xC3\xBB\xBF"s, "Gr\xC3\xBC\xC3\x9F" "e aus K\xC3\xB6l\xABn\n"s}) {
    TextOpen open = OpenBytes(bytes);
    ASSERT_NE(open.reader, nullptr);
    const std::string text = ReadAll(*open.reader, 4);
    EXPECT_TRUE(base::IsValidUtf8(text)) << text;
  }
}

TEST(OpenTextReader, CharactersCutByBlockBoundariesArriveWhole) {
  // ASCII with a three-byte character over every offset where a block could end: the sample's
  // end, 256 KiB, and the sample plus one block.
  std::string text(700 * 1024, 'x');
  for (size_t at : {kSampleBytes - 1, size_t{256 * 1024} - 1, kSampleBytes + 256 * 1024 - 2,
                    kSampleBytes + 512 * 1024 - 1}) {
    text.replace(at, 3, "\xE2\x82\xAC");
  }
  testing::TempTree tree;
  tree.File("big.txt", text);
  for (size_t piece : {size_t{1} << 16, size_t{1000}, size_t{1}}) {
    SCOPED_TRACE(piece);
    TextOpen open = OpenTextReader(OpenFileSource(tree.path("big.txt")), "txt");
    ASSERT_NE(open.reader, nullptr);
    EXPECT_EQ(open.encoding, "UTF-8");
    if (piece == 1) {
      // Every piece is one whole character, never a part of one.
      std::string one;
      size_t pieces = 0;
      while (open.reader->Read(&one, 1) == ReadStatus::kOk && ++pieces < 70000) {
        ASSERT_TRUE(one.size() == 1 || one == "\xE2\x82\xAC") << one.size();
        one.clear();
      }
      continue;
    }
    EXPECT_EQ(ReadAll(*open.reader, piece), text);
  }

  // The same through a converter: UTF-16 with characters outside the BMP (surrogate pairs).
  std::u16string wide;
  while (wide.size() < 300 * 1024) wide += u"a\U0001F600\u00E9";
  std::string expected;
  for (size_t i = 0; i < wide.size() / 4; ++i) expected += "a\xF0\x9F\x98\x80\xC3\xA9";
  tree.File("wide.txt", "\xFF\xFE" + Utf16LE(wide));
  TextOpen open = OpenTextReader(OpenFileSource(tree.path("wide.txt")), "txt");
  ASSERT_NE(open.reader, nullptr);
  EXPECT_EQ(ReadAll(*open.reader, 4096), expected);
}

// A source that breaks off after its first bytes, as a disk read error would.
class FailingSource : public ByteSource {
 public:
  long Read(char* buffer, size_t size) override {
    if (given_) return -1;
    given_ = true;
    std::string_view text = "words before the error";
    size_t n = std::min(size, text.size());
    text.copy(buffer, n);
    return static_cast<long>(n);
  }
  int64_t Size() const override { return -1; }

 private:
  bool given_ = false;
};

TEST(OpenTextReader, ReadErrorKeepsTheTextBeforeIt) {
  TextOpen open = OpenTextReader(std::make_unique<FailingSource>(), "txt");
  ASSERT_NE(open.reader, nullptr);
  std::string text;
  EXPECT_EQ(open.reader->Read(&text, 1024), ReadStatus::kOk);
  EXPECT_EQ(text, "words before the error");
  EXPECT_EQ(open.reader->Read(&text, 1024), ReadStatus::kError);
}

TEST(OpenFileSource, RefusesFoldersAndPipes) {
  testing::TempTree tree({"folder/", "pipe|fifo"});
  EXPECT_EQ(OpenFileSource(tree.path("folder")), nullptr);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(OpenFileSource(tree.path("pipe")), nullptr);  // would otherwise wait for a writer
  EXPECT_EQ(errno, EINVAL);
}

}  // namespace
}  // namespace trovix::text
