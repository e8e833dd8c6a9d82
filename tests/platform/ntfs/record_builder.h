// Builds file records byte by byte, for the cases an image maker will not produce (torn
// writes, lying lengths, attribute lists held in the record). Finish() writes the update
// sequence the way the file system does: the last two bytes of each 512-byte stride are saved
// in the array and replaced by the sequence number.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace trovix::testing {

class RecordBuilder {
 public:
  explicit RecordBuilder(size_t size = 1024, uint16_t flags = 0x1) : bytes_(size, 0) {
    std::memcpy(bytes_.data(), "FILE", 4);
    Put16(4, 48);                                      // update sequence array offset
    Put16(6, static_cast<uint16_t>(size / 512 + 1));  // its entries
    Put16(16, 7);                                      // sequence number
    Put16(22, flags);
    Put32(28, static_cast<uint32_t>(size));
    pos_ = (48 + 2 * (size / 512 + 1) + 7) & ~size_t{7};
    Put16(20, static_cast<uint16_t>(pos_));
  }

  // A resident attribute with `value`; returns its offset.
  size_t Resident(uint32_t type, const std::string& value) {
    const size_t start = pos_;
    const size_t length = (24 + value.size() + 7) & ~size_t{7};
    Put32(start, type);
    Put32(start + 4, static_cast<uint32_t>(length));
    Put32(start + 16, static_cast<uint32_t>(value.size()));
    Put16(start + 20, 24);
    std::memcpy(bytes_.data() + start + 24, value.data(), value.size());
    pos_ += length;
    return start;
  }
  // A non-resident unnamed attribute with a run list.
  size_t NonResident(uint32_t type, const std::string& runs, uint64_t data_size) {
    const size_t start = pos_;
    const size_t length = (64 + runs.size() + 7) & ~size_t{7};
    Put32(start, type);
    Put32(start + 4, static_cast<uint32_t>(length));
    bytes_[start + 8] = 1;
    Put16(start + 32, 64);
    Put64(start + 48, data_size);
    std::memcpy(bytes_.data() + start + 64, runs.data(), runs.size());
    pos_ += length;
    return start;
  }

  static std::string StandardInformation(uint32_t attributes) {
    std::string v(48, '\0');
    std::memcpy(v.data() + 32, &attributes, 4);
    return v;
  }
  static std::string FileName(uint64_t parent, const std::u16string& name, uint8_t name_space) {
    std::string v(66 + name.size() * 2, '\0');
    std::memcpy(v.data(), &parent, 8);
    v[64] = static_cast<char>(name.size());
    v[65] = static_cast<char>(name_space);
    for (size_t i = 0; i < name.size(); ++i) {
      v[66 + 2 * i] = static_cast<char>(name[i] & 0xFF);
      v[67 + 2 * i] = static_cast<char>(name[i] >> 8);
    }
    return v;
  }
  static std::string ListEntry(uint32_t type, uint64_t reference) {
    std::string v(32, '\0');
    std::memcpy(v.data(), &type, 4);
    v[4] = 32;
    std::memcpy(v.data() + 16, &reference, 8);
    return v;
  }

  // Ends the attributes, sets the used size and protects the strides.
  std::vector<uint8_t> Finish(uint16_t usn = 0x0A0B) {
    Put32(pos_, 0xFFFFFFFF);
    Put32(24, static_cast<uint32_t>(pos_ + 8));
    std::vector<uint8_t> out = bytes_;
    const size_t usa = 48;
    std::memcpy(out.data() + usa, &usn, 2);
    for (size_t i = 1; i <= out.size() / 512; ++i) {
      std::memcpy(out.data() + usa + 2 * i, out.data() + i * 512 - 2, 2);
      std::memcpy(out.data() + i * 512 - 2, &usn, 2);
    }
    return out;
  }

  void Put16(size_t at, uint16_t v) { std::memcpy(bytes_.data() + at, &v, 2); }
  void Put32(size_t at, uint32_t v) { std::memcpy(bytes_.data() + at, &v, 4); }
  void Put64(size_t at, uint64_t v) { std::memcpy(bytes_.data() + at, &v, 8); }
  size_t pos() const { return pos_; }

 private:
  std::vector<uint8_t> bytes_;
  size_t pos_ = 0;
};

}  // namespace trovix::testing
