// The property identifier: the platform's 20-byte property key (a 16-byte format identifier
// in its in-memory layout, then a 32-bit property number), compared bytewise, and its hash,
// the CRC-32 of those 20 bytes, on which value fetching dispatches.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace trovix::props {

struct Guid {
  uint32_t data1 = 0;
  uint16_t data2 = 0;
  uint16_t data3 = 0;
  std::array<uint8_t, 8> data4{};

  // The 16 bytes as the GUID lies in memory: data1, data2, data3 little-endian, then data4.
  std::array<uint8_t, 16> Bytes() const;
  static Guid FromBytes(const uint8_t* bytes16);
  // "{B725F130-47EF-101A-A5F1-02608C9EEBAC}" (braces optional, any case).
  static std::optional<Guid> Parse(std::string_view text);
  // Upper case with braces.
  std::string ToString() const;

  friend bool operator==(const Guid&, const Guid&) = default;
};

struct PropertyKey {
  Guid fmtid;
  uint32_t pid = 0;

  std::array<uint8_t, 20> Bytes() const;
  static PropertyKey FromBytes(const uint8_t* bytes20);
  // CRC-32 of Bytes().
  uint32_t Hash() const;
  std::string ToString() const;  // "{GUID} pid"

  friend bool operator==(const PropertyKey& a, const PropertyKey& b) { return a.Bytes() == b.Bytes(); }
  friend bool operator<(const PropertyKey& a, const PropertyKey& b) { return a.Bytes() < b.Bytes(); }
};

struct PropertyKeyHash {
  size_t operator()(const PropertyKey& key) const { return key.Hash(); }
};

// Hashes of properties the fetcher and the rule machinery know by value.
namespace hash {
inline constexpr uint32_t kItemPathDisplay = 0x3C62CC6F;
inline constexpr uint32_t kFileExtension = 0x0FFABAAF;
inline constexpr uint32_t kItemFolderPathDisplay = 0x84DEAB0A;
inline constexpr uint32_t kItemNameDisplay = 0x8DA8A116;
inline constexpr uint32_t kComment = 0xC9E40EA6;
inline constexpr uint32_t kDateModified = 0x02CA3641;
inline constexpr uint32_t kSize = 0xA8C3FECA;
inline constexpr uint32_t kDateCreated = 0xBA765124;
inline constexpr uint32_t kSearchContents = 0xA0B9B903;  // System.Search.Contents
inline constexpr uint32_t kComplex = 0x9293F06A;         // Stock.Algorithmic, "Complex"
inline constexpr uint32_t kFind = 0x80265F84;            // "*", "Find"
}  // namespace hash

}  // namespace trovix::props
