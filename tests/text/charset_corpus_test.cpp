// Encoding detection measured on the corpus's text-encodings folder, whose file names give
// each file's true encoding (<language>-<encoding>[-bom|-nobom].txt). A file counts as read
// right when its text equals its text in the true encoding, so names that decode a file the
// same way (ASCII, UTF-8 and windows-1252 for plain English) are all right. ICU's detector and
// uchardet are scored alone beside the combination the reader uses; the combination must not
// fall below what it scored when it was chosen.
#include <gtest/gtest.h>
#include <iconv.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>

#include "text/byte_decoder.h"
#include "text/charset_detect.h"
#include "text/plain_text_reader.h"

#include "tests/support/test_files.h"

namespace trovix::text {
namespace {

// What the combination scored on the 63 files when it was chosen (no detector names Johab).
constexpr int kCombinedScore = 62;

using trovix::testing::CorpusDir;

std::string DropLeadingMark(std::string text) {
  if (text.rfind("\xEF\xBB\xBF", 0) == 0) text.erase(0, 3);
  return text;
}

std::string DecodeWithIcu(const std::string& encoding, std::string_view bytes) {
  std::unique_ptr<ByteDecoder> decoder = OpenDecoder(encoding);
  if (decoder == nullptr) return {};
  std::string text;
  decoder->Decode(bytes, true, &text);
  return DropLeadingMark(std::move(text));
}

// glibc's iconv, for the true decoding of the few encodings ICU has no converter for.
std::string DecodeWithIconv(const std::string& encoding, std::string_view bytes) {
  iconv_t cd = iconv_open("UTF-8", encoding.c_str());
  if (cd == reinterpret_cast<iconv_t>(-1)) return {};
  std::string in(bytes), out(bytes.size() * 4 + 16, '\0');
  char* src = in.data();
  char* dst = out.data();
  size_t src_left = in.size(), dst_left = out.size();
  size_t r = iconv(cd, &src, &src_left, &dst, &dst_left);
  iconv_close(cd);
  if (r == static_cast<size_t>(-1)) return {};
  out.resize(out.size() - dst_left);
  return DropLeadingMark(std::move(out));
}

// The encoding a file name states: the longest run of its dash-separated words after the
// language that names an encoding ("utf-8-bom-2" -> "utf-8", "windows-1254-tr" -> "windows-1254").
std::string TrueEncoding(const std::string& file_name) {
  std::string stem = file_name.substr(0, file_name.rfind('.'));
  std::string rest = stem.substr(stem.find('-') + 1);
  static const std::map<std::string, std::string> kSpelling = {
      {"uhc", "windows-949"},
      {"mac-centraleurope", "x-mac-centraleurroman"},
      {"ascii", "US-ASCII"},
  };
  for (size_t end = rest.size(); end != std::string::npos && end > 0;
       end = rest.rfind('-', end - 1)) {
    std::string name = rest.substr(0, end);
    if (auto it = kSpelling.find(name); it != kSpelling.end()) return it->second;
    if (OpenDecoder(name) != nullptr) return name;
    iconv_t cd = iconv_open("UTF-8", name.c_str());
    if (cd != reinterpret_cast<iconv_t>(-1)) {
      iconv_close(cd);
      return name;
    }
    if (end == 0) break;
  }
  return {};
}

std::string TrueText(const std::string& file_name, const std::string& bytes) {
  std::string encoding = TrueEncoding(file_name);
  std::string text = DecodeWithIcu(encoding, bytes);
  if (text.empty()) text = DecodeWithIconv(encoding, bytes);
  return text;
}

// The byte-order marks decide before any detector is asked, for every method alike.
std::string EncodingOfMark(std::string_view bytes) {
  if (bytes.substr(0, 3) == "\xEF\xBB\xBF") return "UTF-8";
  if (bytes.substr(0, 4) == std::string_view("\xFF\xFE\0\0", 4)) return "UTF-32LE";
  if (bytes.substr(0, 4) == std::string_view("\0\0\xFE\xFF", 4)) return "UTF-32BE";
  if (bytes.substr(0, 2) == "\xFF\xFE") return "UTF-16LE";
  if (bytes.substr(0, 2) == "\xFE\xFF") return "UTF-16BE";
  return {};
}

std::string ReadAll(TextReader& reader) {
  std::string text;
  while (reader.Read(&text, 1 << 16) == ReadStatus::kOk) {
  }
  return text;
}

class CharsetCorpus : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = CorpusDir() + "/text-encodings";
    struct stat st;
    if (stat(dir_.c_str(), &st) != 0) GTEST_SKIP() << "no corpus at " << dir_;
    for (const auto& entry : std::filesystem::directory_iterator(dir_)) {
      files_.push_back(entry.path().filename().string());
    }
    std::sort(files_.begin(), files_.end());
  }

  // Files read right when a detector alone picks the encoding of files without a mark.
  int Score(const std::function<CharsetGuess(std::string_view)>& detect, const char* method) {
    int right = 0;
    for (const std::string& name : files_) {
      std::string bytes = testing::ReadWholeFile(dir_ + "/" + name);
      std::string encoding = EncodingOfMark(bytes);
      if (encoding.empty())
        encoding = detect(std::string_view(bytes).substr(0, kSampleBytes)).encoding;
      std::string expected = TrueText(name, bytes);
      if (!expected.empty() && DecodeWithIcu(encoding, bytes) == expected) {
        ++right;
      } else {
        std::cout << "  " << method << " misreads " << name << " as \"" << encoding << "\"\n";
      }
    }
    return right;
  }

  std::string dir_;
  std::vector<std::string> files_;
};

TEST_F(CharsetCorpus, CombinationReadsAtLeastAsManyFilesRightAsEitherDetector) {
  const int total = static_cast<int>(files_.size());
  const int icu = Score(DetectWithIcuOnly, "ICU");
  const int uchardet = Score(DetectWithUchardetOnly, "uchardet");

  // The combination is scored through the reader itself, marks and all.
  int combined = 0;
  for (const std::string& name : files_) {
    const std::string path = dir_ + "/" + name;
    std::string ext = name.substr(name.rfind('.') + 1);
    TextOpen open = OpenTextReader(OpenFileSource(path), ext);
    std::string text = open.reader ? ReadAll(*open.reader) : std::string();
    if (text == TrueText(name, testing::ReadWholeFile(path))) {
      ++combined;
    } else {
      std::cout << "  combined misreads " << name << " as \"" << open.encoding << "\" (kind "
                << open.kind << ")\n";
    }
  }
  std::cout << "ICU " << icu << "/" << total << ", uchardet " << uchardet << "/" << total
            << ", combined " << combined << "/" << total << "\n";
  EXPECT_GE(combined, std::min(kCombinedScore, total));
  EXPECT_GE(combined, std::max(icu, uchardet));
}

}  // namespace
}  // namespace trovix::text
