// The settings file in the profile-file ("INI") format, held in memory: sections in brackets,
// "name=value" lines, names compared without regard to ASCII case, values trimmed of blanks and
// of one pair of enclosing quotes. It reads and writes the way the Windows profile functions do,
// so that one trovix.ini serves both builds:
//   - integers are decimal text, read by GetInt's rules (below);
//   - binary blocks ("structs") are the uppercase hexadecimal of each byte followed by a
//     checksum byte, the low byte of the sum of the data bytes;
//   - lines that are not "name=value" (comments, blank lines, stray text) are kept as they
//     stand when the file is written again, and read as nothing.
// Text is read as UTF-8 (a UTF-8 byte-order mark is skipped; a UTF-16LE file with its mark is
// converted; lines may end in "\r\n", "\n" or "\r") and written as UTF-8 with "\n". Loading
// never fails on content: damage is reported through ProfileParseReport and the damaged parts
// read as absent.
//
// Not thread-safe; the settings file backend guards its ProfileFile with a mutex. Copyable.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/atomic_file.h"

namespace trovix::app {

// What a read of a whole string sees at most; longer values are cut (at a UTF-8 boundary).
// Binary blocks are read through the same limit, which caps a readable block at 32,767 bytes.
inline constexpr size_t kProfileReadLimit = 65'536;
// Binary blocks of this many bytes or more are refused by the writer.
inline constexpr size_t kProfileStructWriteLimit = 32'768;
// A file larger than this is not a settings file; it is not read at all.
inline constexpr size_t kProfileFileSizeLimit = 16u << 20;

struct ProfileParseReport {
  bool binary = false;        // held NUL bytes: not text; nothing was read from it
  bool invalid_utf8 = false;  // ill-formed sequences were replaced by U+FFFD
  size_t ignored_lines = 0;   // lines that are neither a section nor "name=value"
};

class ProfileFile {
 public:
  // Builds the model from the bytes of a file. A file of binary content (NUL bytes) gives an
  // empty model and report->binary.
  static ProfileFile Parse(std::string_view bytes, ProfileParseReport* report = nullptr);
  // The file's text: the kept lines in their order, new sections at the end, new values at the
  // end of their section.
  std::string Serialize() const;

  // Reads `path`. Returns 0 (the model holds the file, possibly empty), ENOENT for a missing
  // file (the model is empty), platform::kNotRegularFile for a FIFO or device (never read, so
  // never waited on), or another errno (unreadable, or EFBIG over the size limit).
  int Load(const std::string& path, ProfileParseReport* report = nullptr);
  // Writes the model to `path` atomically (see platform/atomic_file.h). 0 or an errno.
  int Save(const std::string& path, const platform::BeforeRenameHook& before_rename = {}) const;

  // The value of `name`, cut to `limit` bytes. False when the section or value is absent.
  bool GetString(std::string_view section, std::string_view name, std::string* value,
                 size_t limit = kProfileReadLimit) const;
  // The integer reading rules of the profile functions: an absent value gives `default_value`;
  // otherwise optional blanks, an optional sign and decimal digits up to the first other
  // character, wrapping modulo 2^32 ("123A" is 123, "0x10" is 0, an empty value is 0).
  uint32_t GetInt(std::string_view section, std::string_view name, uint32_t default_value) const;
  // Reads a block of exactly `size` bytes: the text must be 2 * size + 2 hexadecimal digits
  // (either case) whose last byte is the checksum. False on any mismatch.
  bool GetStruct(std::string_view section, std::string_view name, uint8_t* data,
                 size_t size) const;

  // Writers return false when the text cannot be held by the format (a line break or NUL in a
  // name or value, a name starting with "[", an empty name, "]" in a section name). The value
  // is stored so that GetString gives it back exactly (enclosing quotes are added when blanks
  // at its ends or a pair of quotes would otherwise be lost).
  bool SetString(std::string_view section, std::string_view name, std::string_view value);
  bool SetStruct(std::string_view section, std::string_view name, const uint8_t* data,
                 size_t size);
  bool DeleteValue(std::string_view section, std::string_view name);
  // Removes the section (every copy of it) with its values.
  bool DeleteSection(std::string_view section);
  // Empties the section of its values, keeping its header and the blank lines or comments that
  // end it. Creates the section when it is missing.
  bool ClearSection(std::string_view section);

  bool HasSection(std::string_view section) const;
  // Section names in file order, each once (the first spelling).
  std::vector<std::string> SectionNames() const;
  // Names of the values of a section in file order (first occurrence of each).
  std::vector<std::string> ValueNames(std::string_view section) const;

  // The hexadecimal form of a block, checksum included.
  static std::string EncodeStruct(const uint8_t* data, size_t size);
  static bool DecodeStruct(std::string_view text, uint8_t* data, size_t size);

 private:
  struct Line {
    std::string name;   // as first written; empty for a kept line
    std::string value;  // trimmed and unquoted
    std::string raw;    // the whole line, for lines that are not values
    bool is_value = false;
  };
  struct Section {
    std::string name;
    bool has_header = true;  // false for the lines before the first header
    std::vector<Line> lines;
  };

  const Section* Find(std::string_view section) const;
  Section* Find(std::string_view section);
  Section& FindOrAdd(std::string_view section);
  const Line* FindValue(const Section& s, std::string_view name) const;
  void Reindex();

  std::vector<Section> sections_;
  // Folded section name -> index of its first copy in sections_.
  std::unordered_map<std::string, size_t> index_;
};

}  // namespace trovix::app
