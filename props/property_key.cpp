#include "props/property_key.h"

#include <cstdio>

#include "base/ascii.h"
#include "base/crc32.h"

namespace trovix::props {
namespace {

void PutLE(uint8_t* out, uint32_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) out[i] = static_cast<uint8_t>(value >> (8 * i));
}

uint32_t GetLE(const uint8_t* in, int bytes) {
  uint32_t v = 0;
  for (int i = 0; i < bytes; ++i) v |= static_cast<uint32_t>(in[i]) << (8 * i);
  return v;
}


}  // namespace

std::array<uint8_t, 16> Guid::Bytes() const {
  std::array<uint8_t, 16> b{};
  PutLE(&b[0], data1, 4);
  PutLE(&b[4], data2, 2);
  PutLE(&b[6], data3, 2);
  for (int i = 0; i < 8; ++i) b[8 + i] = data4[i];
  return b;
}

Guid Guid::FromBytes(const uint8_t* bytes) {
  Guid g;
  g.data1 = GetLE(bytes, 4);
  g.data2 = static_cast<uint16_t>(GetLE(bytes + 4, 2));
  g.data3 = static_cast<uint16_t>(GetLE(bytes + 6, 2));
  for (int i = 0; i < 8; ++i) g.data4[i] = bytes[8 + i];
  return g;
}

std::optional<Guid> Guid::Parse(std::string_view text) {
  if (text.size() == 38 && text.front() == '{' && text.back() == '}') text = text.substr(1, 36);
  if (text.size() != 36 || text[8] != '-' || text[13] != '-' || text[18] != '-' || text[23] != '-')
    return std::nullopt;
  uint8_t raw[16];
  int n = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (i == 8 || i == 13 || i == 18 || i == 23) continue;
    int hi = HexDigitValue(text[i]), lo = HexDigitValue(text[i + 1]);
    if (hi < 0 || lo < 0) return std::nullopt;
    raw[n++] = static_cast<uint8_t>(hi << 4 | lo);
    ++i;
  }
  // The text spells data1..data3 big-endian, data4 byte by byte.
  Guid g;
  g.data1 = static_cast<uint32_t>(raw[0]) << 24 | raw[1] << 16 | raw[2] << 8 | raw[3];
  g.data2 = static_cast<uint16_t>(raw[4] << 8 | raw[5]);
  g.data3 = static_cast<uint16_t>(raw[6] << 8 | raw[7]);
  for (int i = 0; i < 8; ++i) g.data4[i] = raw[8 + i];
  return g;
}

std::string Guid::ToString() const {
  char buf[40];
  std::snprintf(buf, sizeof buf, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", data1, data2,
                data3, data4[0], data4[1], data4[2], data4[3], data4[4], data4[5], data4[6], data4[7]);
  return buf;
}

std::array<uint8_t, 20> PropertyKey::Bytes() const {
  std::array<uint8_t, 20> b{};
  auto g = fmtid.Bytes();
  for (int i = 0; i < 16; ++i) b[i] = g[i];
  PutLE(&b[16], pid, 4);
  return b;
}

PropertyKey PropertyKey::FromBytes(const uint8_t* bytes) {
  return PropertyKey{Guid::FromBytes(bytes), GetLE(bytes + 16, 4)};
}

uint32_t PropertyKey::Hash() const {
  auto b = Bytes();
  return base::Crc32(b.data(), b.size());
}

std::string PropertyKey::ToString() const { return fmtid.ToString() + " " + std::to_string(pid); }

}  // namespace trovix::props
