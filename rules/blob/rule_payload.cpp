// The payload of one persisted rule record: what follows the property key.
//
//   0  indent (i32)
//   4  context (i32)
//   8  flags word: for text kinds ((kind - 3) << 16) | (flags & 0xFFFF), else the flags
//  12  kinds 0-2: min (8), max (8)
//      kinds 10, 11: option condition (i32), option index (i32)
//      text kinds: UTF-16LE text and its terminating 0; the keyword list through its
//      closing double 0
#include <cstring>

#include "base/utf.h"
#include "rules/byte_io.h"
#include "rules/rule.h"

namespace trovix::rules {
namespace {

constexpr size_t kHeaderSize = 12;

// The UTF-16 units a text rule persists, terminators included.
std::u16string PersistedText(const Rule& rule) {
  std::u16string units = base::Utf8ToUtf16(rule.Text());
  if (rule.Kind() == kKindKeywordList) {
    // A multi-string ends with an empty string: make sure the closing double 0 is there.
    while (units.size() < 2 || units[units.size() - 1] != 0 || units[units.size() - 2] != 0) {
      units.push_back(0);
    }
  } else {
    units.push_back(0);
  }
  return units;
}

}  // namespace

size_t Rule::SaveSize() const {
  if (kind_ >= kKindNumber && kind_ <= kKindFloat) return kHeaderSize + 16;
  if (kind_ == kKindEnumNumber || kind_ == kKindEnumText) return kHeaderSize + 8;
  if (IsTextKind(kind_)) return kHeaderSize + 2 * PersistedText(*this).size();
  return kHeaderSize;
}

void Rule::Save(uint8_t* buffer) const {
  bytes::Put32(buffer, static_cast<uint32_t>(indent_));
  bytes::Put32(buffer + 4, static_cast<uint32_t>(context_));
  uint32_t word = flags_;
  if (IsTextKind(kind_)) {
    word = (static_cast<uint32_t>(kind_ - kKindText) << cf::kHighShift) | (flags_ & 0xFFFF);
  }
  bytes::Put32(buffer + 8, word);
  uint8_t* p = buffer + kHeaderSize;
  if (kind_ >= kKindNumber && kind_ <= kKindFloat) {
    bytes::Put64(p, min_);
    bytes::Put64(p + 8, max_);
  } else if (kind_ == kKindEnumNumber || kind_ == kKindEnumText) {
    bytes::Put32(p, static_cast<uint32_t>(option_condition_));
    bytes::Put32(p + 4, static_cast<uint32_t>(option_index_));
  } else if (IsTextKind(kind_)) {
    std::string encoded;
    base::AppendUtf16LE(encoded, PersistedText(*this));
    std::memcpy(p, encoded.data(), encoded.size());
  }
}

bool Rule::Load(const uint8_t* data, size_t size) {
  if (data == nullptr || size < kHeaderSize) return false;
  indent_ = static_cast<int32_t>(bytes::Get32(data));
  context_ = static_cast<int32_t>(bytes::Get32(data + 4));
  const uint32_t word = bytes::Get32(data + 8);
  if (kind_ == kKindText) {
    const uint32_t mode = word >> cf::kHighShift;
    // Modes past "Freeform" are reserved: such a rule no longer fits and is dropped.
    if (mode > static_cast<uint32_t>(kKindFreeform - kKindText)) return false;
    kind_ = kKindText + static_cast<int32_t>(mode);
    flags_ = word & 0xFFFF;
  } else {
    flags_ = word;
  }
  const uint8_t* p = data + kHeaderSize;
  const size_t rest = size - kHeaderSize;

  if (kind_ >= kKindNumber && kind_ <= kKindFloat) {
    if (rest < 16) return false;
    min_ = bytes::Get64(p);
    max_ = bytes::Get64(p + 8);
    return true;
  }
  if (kind_ == kKindEnumNumber || kind_ == kKindEnumText) {
    if (rest < 8) return false;
    // The stored flags are ignored: the option list decides them.
    return SetOption(static_cast<int32_t>(bytes::Get32(p)), static_cast<int32_t>(bytes::Get32(p + 4)));
  }
  if (!IsTextKind(kind_)) return false;

  if (rest % 2 != 0) return false;
  const std::u16string units = base::ReadUtf16LE(p, rest / 2);
  size_t end = std::u16string::npos;
  if (kind_ == kKindKeywordList) {
    // Through the first empty string, which closes the list.
    for (size_t i = 0; i < units.size(); ++i) {
      if (units[i] == 0 && (i == 0 || units[i - 1] == 0)) {
        end = i;
        break;
      }
    }
    if (end == std::u16string::npos) return false;
    text_ = end == 0 ? std::string() : base::Utf16ToUtf8(std::u16string_view(units).substr(0, end + 1));
  } else {
    end = units.find(char16_t{0});
    if (end == std::u16string::npos) return false;
    text_ = base::Utf16ToUtf8(std::u16string_view(units).substr(0, end));
  }
  return true;
}

}  // namespace trovix::rules
