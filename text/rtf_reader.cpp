#include "text/rtf_reader.h"

#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <map>
#include <vector>

#include "base/ascii.h"
#include "text/byte_decoder.h"
#include "text/rtf_control_words.h"

namespace trovix::text {
namespace {

// RTF documents are small; a larger input is read this far and no further, which bounds
// the memory a hostile file can take.
constexpr size_t kMaxInputBytes = 64 * 1024 * 1024;
constexpr size_t kReadBlockBytes = 256 * 1024;
constexpr size_t kMaxDepth = 1000;
constexpr size_t kMaxWordLetters = 32;
constexpr int kMaxSkipCount = 16;
constexpr int kDefaultCodePage = 1252;
constexpr UChar32 kReplacement = 0xFFFD;

bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// What a group inherits from the group around it and may change for itself.
struct GroupState {
  bool skip = false;        // not body text: a skipped destination or a \* group
  bool info = false;        // inside \info (read only when the document's properties are asked)
  int field = -1;           // the \info field whose text this group holds
  int time = -1;            // the \info time (\creatim, \revtim) whose parts this group holds
  bool font_table = false;  // inside \fonttbl: font numbers and their character sets
  int uc = 1;               // characters that stand in for each \uN
  int font = -1;            // the current font (\fN), -1 for the document's default
  uint8_t style = 0;        // kStyleBold | kStyleItalic | kStyleUnderline
};

constexpr uint8_t kStyleBold = 1;
constexpr uint8_t kStyleItalic = 2;
constexpr uint8_t kStyleUnderline = 4;

constexpr const char* kInfoTexts[] = {"title", "subject", "author", "operator", "keywords", "doccomm", "company",
                                      "category", "manager"};
constexpr const char* kInfoNumbers[] = {"nofpages", "nofwords", "nofchars", "version"};
constexpr const char* kInfoTimes[] = {"creatim", "revtim", "printim"};

template <size_t N>
int IndexOf(std::string_view word, const char* const (&names)[N]) {
  for (size_t i = 0; i < N; ++i)
    if (word == names[i]) return static_cast<int>(i);
  return -1;
}

class RtfReader : public TextReader {
 public:
  explicit RtfReader(std::unique_ptr<ByteSource> source, RtfInfo* info = nullptr)
      : source_(std::move(source)), info_(info) {}

  // Where the look of the body text changes is written to `runs` (none by default).
  void set_runs(std::vector<RtfStyleRun>* runs) { runs_ = runs; }

  // Reads up to the end of the \info group (or of the document) for its fields only.
  void ReadInfo() {
    Load();
    while (pos_ < input_.size() && !info_done_) Step();
    Finish();
  }

  ReadStatus Read(std::string* out, size_t max_bytes) override {
    if (!loaded_) Load();
    while (text_.size() - handed_ <= max_bytes && pos_ < input_.size()) Step();
    if (pos_ >= input_.size()) Finish();
    std::string_view ready = std::string_view(text_).substr(handed_);
    if (ready.empty()) return failed_ ? ReadStatus::kError : ReadStatus::kEnd;
    size_t n = CutPoint(ready, max_bytes);
    out->append(ready.data(), n);
    handed_ += n;
    if (handed_ > kReadBlockBytes && handed_ * 2 > text_.size()) {
      erased_ += handed_;
      text_.erase(0, handed_);
      handed_ = 0;
    }
    return ReadStatus::kOk;
  }

 private:
  static size_t CutPoint(std::string_view text, size_t limit) {
    if (limit >= text.size()) return text.size();
    size_t n = limit;
    while (n > 0 && (static_cast<uint8_t>(text[n]) & 0xC0) == 0x80) --n;
    if (n > 0) return n;
    n = 1;
    while (n < text.size() && (static_cast<uint8_t>(text[n]) & 0xC0) == 0x80) ++n;
    return n;
  }

  void Load() {
    loaded_ = true;
    if (source_ == nullptr) return;
    // A known size is read in one go (and one allocation); the read that returns 0 ends it.
    const int64_t size = source_->Size();
    const size_t block = size >= 0 ? std::min<size_t>(static_cast<size_t>(size) + 1, kMaxInputBytes)
                                   : kReadBlockBytes;
    while (input_.size() < kMaxInputBytes) {
      size_t old = input_.size();
      size_t want = std::min(block, kMaxInputBytes - old);
      input_.resize(old + want);
      long n = source_->Read(input_.data() + old, want);
      input_.resize(old + static_cast<size_t>(std::max(n, 0L)));
      if (n <= 0) {
        failed_ = n < 0;
        break;
      }
    }
    source_.reset();
  }

  // Where decoded text goes: the body, or the \info field being read.
  std::string& Out() { return info_ != nullptr && state_.field >= 0 ? info_->text[kInfoTexts[state_.field]] : text_; }

  void Finish() {
    if (finished_) return;
    finished_ = true;
    FlushBytes();
    FlushSurrogate();
  }

  // One token: a brace, a control word or symbol, or a text byte.
  void Step() {
    const char c = input_[pos_];
    if (c == '{') {
      ++pos_;
      EndCharacterRun();
      if (stack_.size() >= kMaxDepth) {
        ++flattened_;
      } else {
        stack_.push_back(state_);
      }
      return;
    }
    if (c == '}') {
      ++pos_;
      EndCharacterRun();
      if (flattened_ > 0) {
        --flattened_;
      } else if (!stack_.empty()) {
        if (state_.info && !stack_.back().info) info_done_ = true;  // the \info group closed
        state_ = stack_.back();
        stack_.pop_back();
      }
      return;
    }
    if (c == '\\') {
      ++pos_;
      ControlWordOrSymbol();
      return;
    }
    ++pos_;
    if (c == '\r' || c == '\n') return;  // line breaks in the file are not text
    if (skip_chars_ > 0) {
      --skip_chars_;
      return;
    }
    if (state_.skip) return;
    if (static_cast<uint8_t>(c) >= 0x80) {
      AppendCodePageByte(static_cast<uint8_t>(c));
    } else if (c != 0) {
      AppendUtf8(std::string_view(&c, 1));
    }
  }

  void ControlWordOrSymbol() {
    if (pos_ >= input_.size()) return;
    const char c = input_[pos_];
    if (IsLetter(c)) return ControlWord();
    ++pos_;
    if (c == '\'') return HexByte();
    if (skip_chars_ > 0) {
      --skip_chars_;
      return;
    }
    switch (c) {
      case '*':
        state_.skip = true;  // a destination this reader does not know: not body text
        return;
      case '\\':
      case '{':
      case '}':
        if (!state_.skip) AppendUtf8(std::string_view(&c, 1));
        return;
      case '~':
        if (!state_.skip) AppendUtf8("\xC2\xA0");
        return;
      case '_':
        if (!state_.skip) AppendUtf8("\xE2\x80\x91");
        return;
      case '\r':
      case '\n':
        if (!state_.skip) AppendUtf8("\n");
        return;
      default:
        return;  // \- optional hyphen, \| \: index marks and unknown symbols
    }
  }

  void HexByte() {
    int value = 0, digits = 0;
    while (digits < 2 && pos_ < input_.size() && HexDigitValue(input_[pos_]) >= 0) {
      value = value * 16 + HexDigitValue(input_[pos_]);
      ++pos_;
      ++digits;
    }
    if (skip_chars_ > 0) {
      --skip_chars_;
      return;
    }
    if (digits < 2 || state_.skip) return;  // an escape cut short says nothing
    AppendCodePageByte(static_cast<uint8_t>(value));
  }

  void ControlWord() {
    const size_t start = pos_;
    while (pos_ < input_.size() && IsLetter(input_[pos_])) ++pos_;
    std::string_view word(input_.data() + start, std::min<size_t>(pos_ - start, kMaxWordLetters));
    bool has_param = false, negative = false;
    int64_t param = 0;
    if (pos_ < input_.size() && input_[pos_] == '-' && pos_ + 1 < input_.size() &&
        IsDigit(input_[pos_ + 1])) {
      negative = true;
      ++pos_;
    }
    while (pos_ < input_.size() && IsDigit(input_[pos_])) {
      has_param = true;
      if (param < INT32_MAX) param = param * 10 + (input_[pos_] - '0');  // huge numbers saturate
      ++pos_;
    }
    if (pos_ < input_.size() && input_[pos_] == ' ') ++pos_;  // the delimiter is not text
    param = std::min<int64_t>(param, INT32_MAX);
    const int value = static_cast<int>(negative ? -param : param);

    if (word == "bin") {
      // Binary data follows, `value` bytes of it, which could hold anything, braces too.
      size_t skip = has_param && value > 0 ? static_cast<size_t>(value) : 0;
      pos_ += std::min(skip, input_.size() - pos_);
      return;
    }
    if (skip_chars_ > 0) {
      --skip_chars_;
      return;
    }
    if (state_.font_table) return FontTableWord(word, has_param, value);
    if (word == "u" && has_param) return UnicodeUnit(value);
    if (word == "uc") {
      state_.uc = std::clamp(value, 0, kMaxSkipCount);
      return;
    }
    if (word == "f") {
      state_.font = value;
      return;
    }
    if (word == "fonttbl") {
      state_.font_table = true;
      state_.skip = true;
      return;
    }
    if (info_ != nullptr && InfoWord(word, has_param, value)) return;
    if (StyleWord(word, has_param, value)) return;
    if (IsSkippedDestination(word)) {
      state_.skip = true;
      return;
    }
    if (word == "ansicpg" && has_param && value > 0) {
      document_code_page_ = value;
      return;
    }
    if (word == "ansi") {
      document_code_page_ = 1252;
    } else if (word == "mac") {
      document_code_page_ = 10000;
    } else if (word == "pc") {
      document_code_page_ = 437;
    } else if (word == "pca") {
      document_code_page_ = 850;
    } else if (word == "deff") {
      default_font_ = value;
    } else if (!state_.skip) {
      if (const char* text = TextOfControlWord(word)) AppendUtf8(text);
    }
  }

  // Bold, italic and underline, on and off; true when the word was one of them. Bytes gathered
  // so far keep the look they were written in.
  bool StyleWord(std::string_view word, bool has_param, int value) {
    uint8_t bit = word == "b" ? kStyleBold : word == "i" ? kStyleItalic : word == "ul" ? kStyleUnderline : 0;
    if (word == "ulnone") {
      bit = kStyleUnderline;
      has_param = true;
      value = 0;
    }
    if (word != "plain" && bit == 0) return false;
    FlushBytes();
    if (word == "plain") {
      state_.style = 0;
    } else if (has_param && value == 0) {
      state_.style = static_cast<uint8_t>(state_.style & ~bit);
    } else {
      state_.style |= bit;
    }
    return true;
  }

  // Before body text is appended: a new run where its look differs from the last one's.
  void MarkStyle() {
    if (runs_ == nullptr || &Out() != &text_) return;
    const uint8_t style = state_.style;
    if (!runs_->empty()) {
      const RtfStyleRun& last = runs_->back();
      const uint8_t last_style = static_cast<uint8_t>((last.bold ? kStyleBold : 0) | (last.italic ? kStyleItalic : 0) |
                                                      (last.underline ? kStyleUnderline : 0));
      if (last_style == style) return;
    }
    runs_->push_back({erased_ + text_.size(), (style & kStyleBold) != 0, (style & kStyleItalic) != 0,
                      (style & kStyleUnderline) != 0});
  }

  // The words of \info and its fields, when they are asked for; true when the word was one.
  bool InfoWord(std::string_view word, bool has_param, int value) {
    if (word == "info") {
      state_.info = true;
      state_.skip = true;
      return true;
    }
    if (!state_.info) return false;
    if (int field = IndexOf(word, kInfoTexts); field >= 0) {
      state_.field = field;
      state_.skip = false;
      return true;
    }
    if (int number = IndexOf(word, kInfoNumbers); number >= 0) {
      if (has_param) info_->number[kInfoNumbers[number]] = value;
      return true;
    }
    if (int time = IndexOf(word, kInfoTimes); time >= 0) {
      state_.time = time;
      return true;
    }
    if (state_.time >= 0 && has_param) {
      base::CivilTime& t = info_->time[kInfoTimes[state_.time]];
      if (word == "yr") t.year = value;
      else if (word == "mo") t.month = value;
      else if (word == "dy") t.day = value;
      else if (word == "hr") t.hour = value;
      else if (word == "min") t.minute = value;
      else if (word == "sec") t.second = value;
      return true;
    }
    return false;
  }

  void FontTableWord(std::string_view word, bool has_param, int value) {
    if (word == "f") {
      defining_font_ = value;
    } else if (word == "fcharset" && has_param) {
      int code_page = CodePageOfCharset(value);
      if (code_page != 0) font_code_pages_[defining_font_] = code_page;
    } else if (word == "cpg" && has_param && value > 0) {
      font_code_pages_[defining_font_] = value;
    }
  }

  // \uN: a UTF-16 unit, negative for those above 32767, then \ucN stand-ins to pass over.
  void UnicodeUnit(int value) {
    skip_chars_ = state_.uc;
    if (state_.skip) return;
    FlushBytes();
    if (value < -32768 || value > 65535) {  // not a UTF-16 unit in either spelling
      FlushSurrogate();
      AppendCodePoint(kReplacement);
      return;
    }
    const auto unit = static_cast<char16_t>(value);
    if (U16_IS_TRAIL(unit) && pending_lead_ != 0) {
      AppendCodePoint(U16_GET_SUPPLEMENTARY(pending_lead_, unit));
      pending_lead_ = 0;
      return;
    }
    FlushSurrogate();
    if (U16_IS_LEAD(unit)) {
      pending_lead_ = unit;
    } else {
      AppendCodePoint(U16_IS_SURROGATE(unit) ? kReplacement : unit);
    }
  }

  int CurrentCodePage() const {
    const int font = state_.font >= 0 ? state_.font : default_font_;
    auto it = font_code_pages_.find(font);
    return it != font_code_pages_.end() ? it->second : document_code_page_;
  }

  // Bytes of the code page are gathered, so that the two bytes of a double-byte character
  // (two \'hh in a row) are decoded together.
  void AppendCodePageByte(uint8_t byte) {
    FlushSurrogate();
    const int code_page = CurrentCodePage();
    if (!bytes_.empty() && code_page != bytes_code_page_) FlushBytes();
    bytes_code_page_ = code_page;
    bytes_.push_back(static_cast<char>(byte));
  }

  void FlushBytes() {
    if (bytes_.empty()) return;
    MarkStyle();
    DecoderFor(bytes_code_page_).Decode(bytes_, true, &Out());
    bytes_.clear();
  }

  ByteDecoder& DecoderFor(int code_page) {
    auto it = decoders_.find(code_page);
    if (it != decoders_.end()) return *it->second;
    if (decoders_.size() >= 8) decoders_.clear();  // a handful of code pages is plenty
    std::string name = ConverterNameOfCodePage(static_cast<unsigned>(code_page));
    std::unique_ptr<ByteDecoder> decoder = name.empty() ? nullptr : OpenDecoder(name);
    if (decoder == nullptr) decoder = OpenDecoder(ConverterNameOfCodePage(kDefaultCodePage));
    return *(decoders_[code_page] = std::move(decoder));
  }

  void FlushSurrogate() {
    if (pending_lead_ == 0) return;
    pending_lead_ = 0;
    AppendCodePoint(kReplacement);
  }

  // A brace ends a run of \uN stand-ins and of code-page bytes.
  void EndCharacterRun() {
    skip_chars_ = 0;
    FlushBytes();
  }

  void AppendUtf8(std::string_view text) {
    FlushBytes();
    FlushSurrogate();
    MarkStyle();
    Out().append(text);
  }

  void AppendCodePoint(UChar32 c) {
    char bytes[4];
    int32_t length = 0;
    UBool error = false;
    U8_APPEND(bytes, length, 4, c, error);
    MarkStyle();
    if (!error) Out().append(bytes, static_cast<size_t>(length));
  }

  std::unique_ptr<ByteSource> source_;
  RtfInfo* info_ = nullptr;  // the fields of \info are read into it when set
  bool info_done_ = false;
  std::string input_;
  size_t pos_ = 0;
  bool loaded_ = false;
  bool failed_ = false;
  bool finished_ = false;

  GroupState state_;
  std::vector<GroupState> stack_;
  size_t flattened_ = 0;  // groups opened beyond kMaxDepth, not kept on the stack
  int skip_chars_ = 0;    // stand-ins of the last \uN still to pass over

  int document_code_page_ = kDefaultCodePage;
  int default_font_ = -1;
  int defining_font_ = -1;
  std::map<int, int> font_code_pages_;
  std::map<int, std::unique_ptr<ByteDecoder>> decoders_;
  std::string bytes_;  // code-page bytes not yet decoded
  int bytes_code_page_ = kDefaultCodePage;
  char16_t pending_lead_ = 0;

  std::string text_;  // decoded text; text_[handed_, end) is not yet handed out
  size_t handed_ = 0;
  size_t erased_ = 0;  // handed-out text dropped from the front of text_
  std::vector<RtfStyleRun>* runs_ = nullptr;
};

}  // namespace

std::unique_ptr<TextReader> OpenRtfReader(std::unique_ptr<ByteSource> source) {
  return std::make_unique<RtfReader>(std::move(source));
}

RtfStyledText ReadRtfStyled(std::unique_ptr<ByteSource> source, size_t max_bytes) {
  RtfStyledText styled;
  RtfReader reader(std::move(source));
  reader.set_runs(&styled.runs);
  while (styled.text.size() < max_bytes &&
         reader.Read(&styled.text, std::min<size_t>(kReadBlockBytes, max_bytes - styled.text.size())) ==
             ReadStatus::kOk) {
  }
  while (!styled.runs.empty() && styled.runs.back().start >= styled.text.size()) styled.runs.pop_back();
  return styled;
}

RtfInfo ReadRtfInfo(std::unique_ptr<ByteSource> source) {
  RtfInfo info;
  RtfReader reader(std::move(source), &info);
  reader.ReadInfo();
  return info;
}

}  // namespace trovix::text
