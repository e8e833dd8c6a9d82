// The shell property table: every named System.* property with its key and stored type,
// as shipped in data/system-properties.tsv. A build step turns the file into constant data
// (scripts/property_table.cmake), so nothing is parsed or allocated when a program starts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "props/property_key.h"

namespace trovix::props {

// Every canonical name, back to back (no separators).
extern const char kSystemPropertyNames[];

struct SystemPropertyRow {
  // The name as offset and length into kSystemPropertyNames rather than a pointer: a table of
  // pointers would need a relocation per row at every start of a position-independent program.
  uint32_t name_offset = 0;
  uint32_t name_size = 0;
  PropertyKey key;
  uint32_t vartype = 0;  // including the vector bit 0x1000
  uint32_t crc = 0;      // CRC-32 of the key as the table records it

  std::string_view name() const { return {kSystemPropertyNames + name_offset, name_size}; }
};

// Defined by the source generated from the table.
extern const SystemPropertyRow kSystemPropertyRows[];
extern const size_t kSystemPropertyRowCount;

// Rows in table order, which is the byte order of the canonical names (the build refuses a
// table that is not).
inline std::span<const SystemPropertyRow> SystemPropertyTable() {
  return {kSystemPropertyRows, kSystemPropertyRowCount};
}
// The row of a canonical name (exact), or nullptr.
const SystemPropertyRow* FindSystemProperty(std::string_view name);

}  // namespace trovix::props
