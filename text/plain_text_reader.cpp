#include "text/plain_text_reader.h"

#include <errno.h>

#include <cstring>

#include "text/byte_decoder.h"
#include "text/charset_detect.h"
#include "text/utf8_scan.h"

namespace trovix::text {
namespace {

constexpr size_t kBlockBytes = 256 * 1024;
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

struct ByteOrderMark {
  std::string_view bytes;
  int kind;
  const char* encoding;
};

// UTF-32LE's mark begins with UTF-16LE's, so it is asked first.
constexpr ByteOrderMark kMarks[] = {
    {kUtf8Mark, 2, "UTF-8"},
    {std::string_view("\xFF\xFE\0\0", 4), 6, "UTF-32LE"},
    {std::string_view("\0\0\xFE\xFF", 4), 6, "UTF-32BE"},
    {"\xFF\xFE", 3, "UTF-16LE"},
    {"\xFE\xFF", 5, "UTF-16BE"},
};

// Reads a block: as many bytes as the source gives up to `size`, in as many calls as it
// takes. `*failed` is set on a read error; what came before it is kept.
size_t ReadBlock(ByteSource& source, char* buffer, size_t size, bool* at_end, bool* failed) {
  size_t filled = 0;
  while (filled < size) {
    long n = source.Read(buffer + filled, size - filled);
    if (n <= 0) {
      *at_end = true;
      *failed = n < 0;
      break;
    }
    filled += static_cast<size_t>(n);
  }
  return filled;
}

// Hands out text block by block. A UTF-8 file's bytes are handed out as they were read when
// they are well-formed (the common case: no conversion, one copy into the caller's string);
// other encodings go through one converter for the whole file.
class PlainTextReader : public TextReader {
 public:
  PlainTextReader(std::unique_ptr<ByteSource> source, std::string sample, size_t skip,
                  std::unique_ptr<ByteDecoder> decoder, bool at_end, bool failed, bool sample_checked)
      : source_(std::move(source)),
        decoder_(std::move(decoder)),
        input_(std::move(sample)),
        input_begin_(skip),
        at_end_(at_end),
        failed_(failed),
        sample_checked_(sample_checked) {}

  ReadStatus Read(std::string* out, size_t max_bytes) override {
    while (ready_.empty()) {
      if (finished_) return failed_ ? ReadStatus::kError : ReadStatus::kEnd;
      Fill();
    }
    size_t n = Utf8CutPoint(ready_, max_bytes);
    out->append(ready_.data(), n);
    ready_.remove_prefix(n);
    return ReadStatus::kOk;
  }

 private:
  // Decodes the next block into ready_. Only called when ready_ is used up.
  void Fill() {
    if (!first_block_) ReadNextBlock();
    std::string_view input(input_.data() + input_begin_, input_.size() - input_begin_);
    const bool last = at_end_;
    if (decoder_ != nullptr) {
      decoded_.clear();
      decoder_->Decode(input, last, &decoded_);
      ready_ = decoded_;
    } else {
      carry_size_ = last ? 0 : IncompleteUtf8Tail(input);
      std::memcpy(carry_, input.data() + input.size() - carry_size_, carry_size_);
      input.remove_suffix(carry_size_);
      if ((first_block_ && sample_checked_) || WellFormedUtf8Prefix(input) == input.size()) {
        ready_ = input;
      } else {
        decoded_.clear();
        AppendRepairedUtf8(input, &decoded_);
        ready_ = decoded_;
      }
    }
    if (first_block_ && ready_.substr(0, 3) == kUtf8Mark) ready_.remove_prefix(3);
    first_block_ = false;
    if (last) finished_ = true;
  }

  void ReadNextBlock() {
    input_.resize(kBlockBytes + sizeof(carry_));
    std::memcpy(input_.data(), carry_, carry_size_);
    size_t n = ReadBlock(*source_, input_.data() + carry_size_, kBlockBytes, &at_end_, &failed_);
    input_.resize(carry_size_ + n);
    input_begin_ = 0;
    carry_size_ = 0;
  }

  std::unique_ptr<ByteSource> source_;
  std::unique_ptr<ByteDecoder> decoder_;  // null: UTF-8 handed through
  std::string input_;                     // the block being handed out (the sample first)
  size_t input_begin_ = 0;                // a byte-order mark to pass over
  std::string decoded_;                   // text of input_ when it is not handed out as is
  std::string_view ready_;                // text not yet handed out (in input_ or decoded_)
  char carry_[4] = {};                    // a UTF-8 character cut by the block's end
  size_t carry_size_ = 0;
  bool first_block_ = true;
  bool at_end_ = false;
  bool failed_ = false;
  bool finished_ = false;
  bool sample_checked_ = false;  // the sample (the first block) is known to be well-formed UTF-8
};

TextOpen MakeReader(TextOpen result, std::unique_ptr<ByteSource> source, std::string sample,
                    size_t skip, bool at_end, bool failed, bool sample_checked = false) {
  std::unique_ptr<ByteDecoder> decoder;
  if (result.encoding != "UTF-8") {
    decoder = OpenDecoder(result.encoding);
    if (decoder == nullptr) {
      // A name the detector knows and ICU does not: every byte means something in 1252.
      result.encoding = "windows-1252";
      decoder = OpenDecoder(result.encoding);
    }
  }
  result.reader = std::make_unique<PlainTextReader>(std::move(source), std::move(sample), skip,
                                                    std::move(decoder), at_end, failed, sample_checked);
  return result;
}

}  // namespace

TextOpen OpenTextReader(std::unique_ptr<ByteSource> source, std::string_view extension,
                        uint32_t mode) {
  static constexpr std::string_view kRtfHeader = "{\\rtf";
  TextOpen result;
  if (extension == "pdf") {
    result.kind = 4;
    return result;
  }
  if (source == nullptr) {
    result.kind = 0;
    result.error = EBADF;
    return result;
  }
  // A file smaller than the sample is read whole at once (one byte more shows its end); most
  // text files are, and a buffer of their size is cheaper to make than a full one.
  const int64_t known = source->Size();
  const size_t want = known >= 0 && static_cast<uint64_t>(known) < kSampleBytes ? static_cast<size_t>(known) + 1
                                                                                   : kSampleBytes;
  std::string sample(want, '\0');
  bool at_end = false, failed = false;
  sample.resize(ReadBlock(*source, sample.data(), want, &at_end, &failed));
  if (sample.empty()) {
    result.kind = 0;
    if (failed) result.error = EIO;
    return result;
  }

  for (const ByteOrderMark& mark : kMarks) {
    if (sample.compare(0, mark.bytes.size(), mark.bytes) == 0) {
      result.kind = mark.kind;
      result.encoding = mark.encoding;
      return MakeReader(std::move(result), std::move(source), std::move(sample), mark.bytes.size(),
                        at_end, failed);
    }
  }
  // An "rtf" file that is an RTF document goes to the RTF reader. The old test sent only
  // documents with "\'" escapes there and read the others as plain text, markup and all: a
  // search for "fonttbl" found every such document and its text showed control words. What
  // the user sees as the document's text wins over that rule. The escapes still send an
  // "rtf" file that lacks the header to the RTF reader, as they always did.
  if (extension == "rtf" && (sample.compare(0, kRtfHeader.size(), kRtfHeader) == 0 ||
                             sample.find("\\'") != std::string::npos)) {
    result.kind = 4;
    return result;
  }

  result.kind = 1;
  bool sample_checked = false;
  if ((mode & 0xFFFF) == kModeFixedEncoding) result.encoding = ConverterNameOfCodePage(mode >> 16);
  if (result.encoding.empty()) {
    CharsetGuess guess = DetectCharset(sample, !at_end);
    if (guess.binary) {
      result.kind = 4;
      return result;
    }
    result.encoding = guess.encoding;
    // The detector read the sample as well-formed UTF-8: it is not checked a second time.
    sample_checked = guess.encoding == "UTF-8" && guess.well_formed_utf8;
  }
  return MakeReader(std::move(result), std::move(source), std::move(sample), 0, at_end, failed, sample_checked);
}

}  // namespace trovix::text
