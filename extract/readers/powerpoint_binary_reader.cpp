#include "extract/readers/powerpoint_binary_reader.h"

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>

#include "base/utf.h"
#include "extract/readers/cfb_file.h"

namespace trovix::extract {
namespace {

constexpr uint16_t kNotes = 0x03F0;
constexpr uint16_t kNotesAtom = 0x03F1;
constexpr uint16_t kMainMaster = 0x03F8;
constexpr uint16_t kHandout = 0x0FC9;
constexpr uint16_t kTextCharsAtom = 0x0FA0;
constexpr uint16_t kTextBytesAtom = 0x0FA8;
constexpr uint16_t kSlideListWithText = 0x0FF0;
constexpr uint16_t kCryptSession = 0x2F14;
// A drawing's property tables; WordArt keeps its text in one of them, not in a text atom.
constexpr uint16_t kShapeOptions = 0xF00B;
constexpr uint16_t kTertiaryShapeOptions = 0xF122;
constexpr uint16_t kWordArtText = 0x00C0;  // gtextUNICODE
constexpr int kMaxDepth = 32;
// One text atom holds a text box; more than this is not a real one.
constexpr uint32_t kMaxAtomBytes = 16u << 20;

enum Place { kDrawing = 0, kOutline = 1 };

class SlideText {
 public:
  SlideText(CfbStream& stream, TextSink& sink) : stream_(stream), sink_(sink) {}

  // False when the walk must end: the sink stopped, or the document is encrypted.
  bool Walk(uint64_t begin, uint64_t end, int depth, Place place) {
    std::string header;
    for (uint64_t pos = begin; pos + 8 <= end;) {
      if (!stream_.ReadAt(pos, 8, &header)) return true;
      const uint16_t version = Le16(header, 0) & 0x0F;
      const uint16_t type = Le16(header, 2);
      const uint64_t length = Le32(header, 4);
      const uint64_t body = pos + 8;
      if (length > end - body) return true;  // runs past its parent: the rest of this level is damage
      if (type == kCryptSession) {
        encrypted_ = true;
        return false;
      }
      if (version == 0x0F) {
        if (!IsMaster(type, body, length) && depth < kMaxDepth &&
            !Walk(body, body + length, depth + 1, type == kSlideListWithText ? kOutline : place))
          return false;
      } else if ((type == kTextCharsAtom || type == kTextBytesAtom) && length <= kMaxAtomBytes) {
        if (!Atom(body, static_cast<size_t>(length), type == kTextCharsAtom, place)) return false;
      } else if ((type == kShapeOptions || type == kTertiaryShapeOptions) && length <= kMaxAtomBytes) {
        if (!WordArt(body, length, Le16(header, 0) >> 4, place)) return false;
      }
      pos = body + length;
    }
    return !sink_.stopped();
  }
  bool encrypted() const { return encrypted_; }

 private:
  // Masters hold the template's texts, not the author's. A notes master is a Notes container
  // whose NotesAtom names no slide.
  bool IsMaster(uint16_t type, uint64_t body, uint64_t length) {
    if (type == kMainMaster || type == kHandout) return true;
    if (type != kNotes || length < 12) return false;
    std::string atom;
    return stream_.ReadAt(body, 12, &atom) && Le16(atom, 2) == kNotesAtom && Le32(atom, 8) == 0;
  }
  // `count` properties of 6 bytes each (a 14-bit id, a flag for data after the table, a
  // 32-bit value), then the data of those so flagged, in their order.
  bool WordArt(uint64_t body, uint64_t length, uint32_t count, Place place) {
    std::string table;
    if (uint64_t{count} * 6 > length || !stream_.ReadAt(body, count * 6, &table)) return true;
    uint64_t data = body + uint64_t{count} * 6;
    for (uint32_t i = 0; i < count; ++i) {
      const uint16_t id = Le16(table, i * 6);
      const uint32_t value = Le32(table, i * 6 + 2);
      if (!(id & 0x8000)) continue;
      if (value > body + length - data) return true;
      if ((id & 0x3FFF) == kWordArtText) return Atom(data, value, true, place);
      data += value;
    }
    return true;
  }
  bool Atom(uint64_t at, size_t length, bool wide, Place place) {
    std::string bytes;
    if (!stream_.ReadAt(at, length, &bytes)) return true;
    std::string raw;
    if (wide) {
      AppendUtf16LeAsUtf8(raw, bytes);
    } else {
      for (unsigned char c : bytes) base::AppendUtf8(raw, c);
    }
    std::string text;
    for (char c : raw) {
      if (c == '\r' || c == '\v') text.push_back('\n');
      else if (c == '\t' || static_cast<unsigned char>(c) >= 0x20) text.push_back(c);
    }
    // "*" alone is the stand-in of a slide number or date field on slides and notes pages
    // (spaces may follow it), not text.
    const size_t first = text.find_first_not_of(" \n\t");
    if (first == std::string::npos) return true;
    if (text[first] == '*' && text.find_first_not_of(" \n\t", first + 1) == std::string::npos) return true;
    // A text already given from the other place is this one's copy: take the copy off
    // instead of writing the text again.
    const size_t key = std::hash<std::string>{}(text);
    auto other = seen_[1 - place].find(key);
    if (other != seen_[1 - place].end() && other->second > 0) {
      --other->second;
      return true;
    }
    ++seen_[place][key];
    return sink_.NewLine() && sink_.Append(text) && sink_.NewLine();
  }

  CfbStream& stream_;
  TextSink& sink_;
  std::unordered_map<size_t, uint32_t> seen_[2];  // texts given, by hash, per place
  bool encrypted_ = false;
};

}  // namespace

bool IsPowerPointBinaryExtension(std::string_view extension) {
  return extension == "ppt" || extension == "pps" || extension == "pot";
}

Outcome ReadPowerPointBinary(const DocumentInput& input, std::string_view, ExtractContext& context) {
  CfbFile file;
  if (Outcome o = file.Open(input); !o.ok()) return o;
  // Encryption replaces the summaries with one encrypted stream.
  if (file.Has("EncryptedSummary")) return Outcome::Fail(kEndEncrypted, "encrypted");
  std::unique_ptr<CfbStream> stream = file.Stream("PowerPoint Document");
  if (!stream) return Outcome::Fail(kEndUnreadable, "not a PowerPoint presentation");
  SlideText text(*stream, *context.sink);
  text.Walk(0, stream->size(), 0, kDrawing);
  if (text.encrypted()) return Outcome::Fail(kEndEncrypted, "encrypted");
  return Outcome::Ok();
}

}  // namespace trovix::extract
