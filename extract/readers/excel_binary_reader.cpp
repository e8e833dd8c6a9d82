#include "extract/readers/excel_binary_reader.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/utf.h"
#include "extract/readers/cfb_file.h"

namespace trovix::extract {
namespace {

enum RecordType : uint16_t {
  kFormula = 0x0006,
  kFilePass = 0x002F,
  kContinue = 0x003C,
  kBoundSheet = 0x0085,
  kMulRk = 0x00BD,
  kSst = 0x00FC,
  kLabelSst = 0x00FD,
  kNumber = 0x0203,
  kLabel = 0x0204,
  kBoolErr = 0x0205,
  kString = 0x0207,
  kRk = 0x027E,
  kBof = 0x0809,
};
constexpr uint16_t kBiff8 = 0x0600;

struct Record {
  uint16_t type = 0;
  uint64_t offset = 0;  // of its header in the stream
  std::string body;
};

// Reads the records one after the other; a record whose length runs past the stream ends them.
class RecordReader {
 public:
  explicit RecordReader(CfbStream& stream) : stream_(stream) {}
  bool Next(Record* r) {
    std::string header;
    if (!stream_.ReadAt(pos_, 4, &header)) return false;
    r->type = Le16(header, 0);
    r->offset = pos_;
    if (!stream_.ReadAt(pos_ + 4, Le16(header, 2), &r->body)) return false;
    pos_ += 4 + r->body.size();
    return true;
  }
  bool PeekType(uint16_t* type) {
    std::string header;
    if (!stream_.ReadAt(pos_, 4, &header)) return false;
    *type = Le16(header, 0);
    return true;
  }

 private:
  CfbStream& stream_;
  uint64_t pos_ = 0;
};

// A string's bytes spread over a record and its CONTINUE records: at each boundary inside
// the characters of a string, the next record starts with a byte saying whether they go on
// as 8-bit or 16-bit characters.
class ContinuedBytes {
 public:
  explicit ContinuedBytes(std::vector<std::string> parts) : parts_(std::move(parts)) {}

  bool AtEnd() {
    SkipEmpty();
    return part_ >= parts_.size();
  }
  bool Byte(uint8_t* b) {
    SkipEmpty();
    if (part_ >= parts_.size()) return false;
    *b = static_cast<uint8_t>(parts_[part_][at_++]);
    return true;
  }
  bool U16(uint16_t* v) {
    uint8_t lo = 0, hi = 0;
    if (!Byte(&lo) || !Byte(&hi)) return false;
    *v = static_cast<uint16_t>(lo | hi << 8);
    return true;
  }
  bool U32(uint32_t* v) {
    uint16_t lo = 0, hi = 0;
    if (!U16(&lo) || !U16(&hi)) return false;
    *v = lo | static_cast<uint32_t>(hi) << 16;
    return true;
  }
  bool Skip(uint64_t n) {
    while (n > 0) {
      SkipEmpty();
      if (part_ >= parts_.size()) return false;
      const uint64_t here = std::min<uint64_t>(n, parts_[part_].size() - at_);
      at_ += here;
      n -= here;
    }
    return true;
  }
  // `count` characters, 16-bit when `wide`, switching at record boundaries.
  bool Chars(uint32_t count, bool wide, std::string* out) {
    while (count > 0) {
      if (part_ >= parts_.size()) return false;
      if (at_ >= parts_[part_].size()) {
        if (++part_ >= parts_.size()) return false;
        at_ = 0;
        uint8_t flags = 0;
        if (!Byte(&flags)) return false;
        wide = flags & 0x01;
        continue;
      }
      const std::string& p = parts_[part_];
      const size_t unit = wide ? 2 : 1;
      const size_t n = std::min<size_t>(count, (p.size() - at_) / unit);
      if (n == 0) return false;  // half a character at the end of a record
      AppendChars(std::string_view(p).substr(at_, n * unit), wide, out);
      at_ += n * unit;
      count -= static_cast<uint32_t>(n);
    }
    return true;
  }

 private:
  void SkipEmpty() {
    while (part_ < parts_.size() && at_ >= parts_[part_].size()) {
      ++part_;
      at_ = 0;
    }
  }
  static void AppendChars(std::string_view bytes, bool wide, std::string* out) {
    if (wide) {
      AppendUtf16LeAsUtf8(*out, bytes);
    } else {
      // "Compressed" characters are UTF-16 units without their high byte: Latin-1.
      for (unsigned char c : bytes) base::AppendUtf8(*out, c);
    }
  }

  std::vector<std::string> parts_;
  size_t part_ = 0;
  size_t at_ = 0;
};

// XLUnicodeRichExtendedString: count, flags, optional run and extension sizes, characters,
// then the runs and extension, which are formatting and skipped.
bool ReadRichString(ContinuedBytes& in, std::string* out) {
  uint16_t count = 0;
  uint8_t flags = 0;
  if (!in.U16(&count) || !in.Byte(&flags)) return false;
  uint16_t runs = 0;
  uint32_t ext = 0;
  if ((flags & 0x08) && !in.U16(&runs)) return false;
  if ((flags & 0x04) && !in.U32(&ext)) return false;
  if (!in.Chars(count, flags & 0x01, out)) return false;
  return in.Skip(4ull * runs) && in.Skip(ext);
}

// A string inside one record: a count of `count_bytes` (1 or 2), flags, characters.
std::string RecordString(std::string_view body, size_t at, int count_bytes) {
  if (at + count_bytes + 1 > body.size()) return {};
  const uint32_t count = count_bytes == 1 ? static_cast<uint8_t>(body[at]) : Le16(body, at);
  const uint8_t flags = static_cast<uint8_t>(body[at + count_bytes]);
  at += count_bytes + 1;
  if (flags & 0x08) at += 2;  // run count (rich text in BIFF8 LABEL is rare, but legal)
  if (flags & 0x04) at += 4;
  std::vector<std::string> one{std::string(body.substr(std::min(at, body.size())))};
  ContinuedBytes bytes(std::move(one));
  std::string out;
  bytes.Chars(count, flags & 0x01, &out);  // a short record gives what it holds
  return out;
}

std::string FormatNumber(double value) {
  if (!std::isfinite(value)) return {};
  if (value == 0) return "0";
  char buffer[64];
  auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
  return ec == std::errc() ? std::string(buffer, end) : std::string();
}

double RkValue(uint32_t rk) {
  double value;
  if (rk & 0x02) {
    value = static_cast<double>(static_cast<int32_t>(rk) >> 2);
  } else {
    value = std::bit_cast<double>(static_cast<uint64_t>(rk & 0xFFFFFFFCu) << 32);
  }
  return (rk & 0x01) ? value / 100 : value;
}

const char* ErrorText(uint8_t code) {
  switch (code) {
    case 0x00: return "#NULL!";
    case 0x07: return "#DIV/0!";
    case 0x0F: return "#VALUE!";
    case 0x17: return "#REF!";
    case 0x1D: return "#NAME?";
    case 0x24: return "#NUM!";
    case 0x2A: return "#N/A";
    default: return "#ERROR!";
  }
}

std::string BoolOrError(uint8_t value, bool error) {
  if (error) return ErrorText(value);
  return value ? "TRUE" : "FALSE";
}

// Lays the cells out: a tab between the cells of a row, a line break between rows.
class CellWriter {
 public:
  explicit CellWriter(TextSink& sink) : sink_(sink) {}
  bool Line(std::string_view text) {
    row_ = -1;
    return sink_.NewLine() && sink_.Append(text) && sink_.Append("\n");
  }
  bool Cell(uint16_t row, std::string_view text) {
    if (text.empty()) return !sink_.stopped();
    if (row_ >= 0 && row == row_) {
      if (!sink_.Append("\t")) return false;
    } else if (!sink_.NewLine()) {
      return false;
    }
    row_ = row;
    return sink_.Append(text);
  }

 private:
  TextSink& sink_;
  int32_t row_ = -1;
};

}  // namespace

bool IsExcelBinaryExtension(std::string_view extension) { return extension == "xls" || extension == "xlt"; }

Outcome ReadExcelBinary(const DocumentInput& input, std::string_view, ExtractContext& context) {
  CfbFile file;
  if (Outcome o = file.Open(input); !o.ok()) return o;
  std::unique_ptr<CfbStream> stream = file.Stream("Workbook");
  if (!stream) {
    if (file.Has("Book")) return Outcome::Fail(kEndUnreadable, "an Excel 95 or older workbook");
    return Outcome::Fail(kEndUnreadable, "not an Excel workbook");
  }
  RecordReader records(*stream);
  Record r;
  if (!records.Next(&r) || r.type != kBof) return Outcome::Fail(kEndUnreadable, "not an Excel workbook");
  if (Le16(r.body, 0) != kBiff8) return Outcome::Fail(kEndUnreadable, "an Excel 95 or older workbook");

  TextSink& sink = *context.sink;
  CellWriter cells(sink);
  std::vector<std::string> strings;  // the shared strings
  std::map<uint64_t, std::string> sheet_names;  // by the offset of the sheet's BOF
  bool formula_string = false;  // the next STRING record is a formula's result
  uint16_t formula_row = 0;
  while (!sink.stopped() && records.Next(&r)) {
    const std::string_view b = r.body;
    switch (r.type) {
      case kBof: {
        // A sheet starts where its BOUNDSHEET said; a chart's BOF inside a sheet is no sheet.
        auto it = sheet_names.find(r.offset);
        if (it != sheet_names.end() && !cells.Line(it->second)) return Outcome::Ok();
        break;
      }
      case kFilePass:
        return Outcome::Fail(kEndEncrypted, "encrypted");
      case kBoundSheet:
        if (b.size() >= 8) sheet_names[Le32(b, 0)] = RecordString(b, 6, 1);
        break;
      case kSst: {
        std::vector<std::string> parts{std::string(b.size() >= 8 ? b.substr(8) : std::string_view())};
        const uint32_t unique = Le32(b, 4);
        uint16_t next = 0;
        while (records.PeekType(&next) && next == kContinue && records.Next(&r)) parts.push_back(std::move(r.body));
        ContinuedBytes in(std::move(parts));
        // The count is only believed as far as the records hold strings.
        while (strings.size() < unique && !in.AtEnd()) {
          std::string s;
          if (!ReadRichString(in, &s)) break;
          strings.push_back(std::move(s));
        }
        break;
      }
      case kLabelSst: {
        const uint32_t index = Le32(b, 6);
        if (b.size() >= 10 && index < strings.size() && !cells.Cell(Le16(b, 0), strings[index])) return Outcome::Ok();
        break;
      }
      case kLabel:
        if (b.size() >= 9 && !cells.Cell(Le16(b, 0), RecordString(b, 6, 2))) return Outcome::Ok();
        break;
      case kNumber:
        if (b.size() >= 14) {
          double v;
          std::memcpy(&v, b.data() + 6, sizeof v);
          if (!cells.Cell(Le16(b, 0), FormatNumber(v))) return Outcome::Ok();
        }
        break;
      case kRk:
        if (b.size() >= 10 && !cells.Cell(Le16(b, 0), FormatNumber(RkValue(Le32(b, 6))))) return Outcome::Ok();
        break;
      case kMulRk:
        // row, first column, then (format, RK) pairs of 6 bytes, then the last column
        for (size_t at = 4; at + 6 + 2 <= b.size(); at += 6)
          if (!cells.Cell(Le16(b, 0), FormatNumber(RkValue(Le32(b, at + 2))))) return Outcome::Ok();
        break;
      case kBoolErr:
        if (b.size() >= 8 && !cells.Cell(Le16(b, 0), BoolOrError(static_cast<uint8_t>(b[6]), b[7] != 0)))
          return Outcome::Ok();
        break;
      case kFormula: {
        if (b.size() < 14) break;
        const uint16_t row = Le16(b, 0);
        if (Le16(b, 12) != 0xFFFF) {
          double v;
          std::memcpy(&v, b.data() + 6, sizeof v);
          if (!cells.Cell(row, FormatNumber(v))) return Outcome::Ok();
        } else if (b[6] == 0) {
          formula_string = true;
          formula_row = row;
        } else if ((b[6] == 1 || b[6] == 2) && !cells.Cell(row, BoolOrError(static_cast<uint8_t>(b[8]), b[6] == 2))) {
          return Outcome::Ok();
        }
        break;
      }
      case kString:
        if (formula_string && !cells.Cell(formula_row, RecordString(b, 0, 2))) return Outcome::Ok();
        formula_string = false;
        break;
      default:
        break;
    }
  }
  return Outcome::Ok();
}

}  // namespace trovix::extract
