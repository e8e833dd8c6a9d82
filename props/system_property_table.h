// The shell property table: every named System.* property with its key and stored type,
// as shipped in data/system-properties.tsv (embedded in the library at build time).
// Parsed once on first use; read-only afterwards and safe to share between threads.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "props/property_key.h"

namespace trovix::props {

struct SystemPropertyRow {
  std::string name;     // canonical name
  PropertyKey key;
  uint32_t vartype = 0; // including the vector bit 0x1000
  uint32_t crc = 0;     // CRC-32 of the key as the table records it
};

// Rows in table order (byte order of the canonical names). Malformed lines are skipped.
const std::vector<SystemPropertyRow>& SystemPropertyTable();
// Parses a table text of the same format; exposed for tests.
std::vector<SystemPropertyRow> ParseSystemPropertyTable(std::string_view tsv);
// The row of a canonical name (exact), or nullptr.
const SystemPropertyRow* FindSystemProperty(std::string_view name);

}  // namespace trovix::props
