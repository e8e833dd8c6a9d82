// Encoding detection measured on the corpus's text-encodings folder, whose file names give
// each file's true encoding (<language>-<encoding>[-bom|-nobom].txt). A file counts as read
// right when its text equals its text in the true encoding, so names that decode a file the
// same way (ASCII, UTF-8 and windows-1252 for plain English) are all right. The reader's
// combination of ICU's detector and uchardet must not fall below what it scored when chosen.
#include <gtest/gtest.h>
#include <iconv.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "text/byte_decoder.h"
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

  std::string dir_;
  std::vector<std::string> files_;
};

// Scored through the reader itself, marks and all.
TEST_F(CharsetCorpus, TheReaderReadsAsManyFilesRightAsWhenItsDetectionWasChosen) {
  const int total = static_cast<int>(files_.size());
  int combined = 0;
  for (const std::string& name : files_) {
    const std::string path = dir_ + "/" + name;
    std::string ext = name.substr(name.rfind('.') + 1);
    TextOpen open = OpenTextReader(OpenFileSource(path), ext);
    std::string text = open.reader ? ReadAll(*open.reader) : std::string();
    if (text == TrueText(name, testing::ReadWholeFile(path))) {
      ++combined;
    } else {
      std::cout << "  misreads " << name << " as \"" << open.encoding << "\" (kind "
                << open.kind << ")\n";
    }
  }
  std::cout << "read right: " << combined << "/" << total << "\n";
  EXPECT_GE(combined, std::min(kCombinedScore, total));
}

}  // namespace
}  // namespace trovix::text
