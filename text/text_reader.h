// Text readers: a document's text, handed out in pieces. Every reader (plain text with its
// encoding, RTF here; PDF, OOXML, ODF and HTML in the extraction helper) gives UTF-8, reads
// its input once from front to back, and never holds more of the document than it must.
//
// Inputs come as a ByteSource: a file descriptor or a block of memory (an archive member).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace trovix::text {

class ByteSource {
 public:
  virtual ~ByteSource() = default;
  // Up to `size` bytes into `buffer`; 0 at the end; -1 on a read error.
  virtual long Read(char* buffer, size_t size) = 0;
  // The total size when known (a file, a block), else -1.
  virtual int64_t Size() const = 0;
};

// Reads a file opened read-only (O_RDONLY | O_CLOEXEC; the sequential-read hint for files
// larger than the kernel's own read-ahead). Null with
// errno when it cannot be opened; only regular files are read (a folder gives EISDIR, a
// named pipe or a device EINVAL, so that a search never waits on one). The source owns the
// descriptor.
std::unique_ptr<ByteSource> OpenFileSource(const std::string& path);
// Reads a block of memory; the source owns its copy.
std::unique_ptr<ByteSource> MemorySource(std::string bytes);

enum class ReadStatus {
  kOk,     // text was appended (possibly less than asked)
  kEnd,    // no more text; nothing was appended
  kError,  // the input broke off (read error); what was read before stands
};

class TextReader {
 public:
  virtual ~TextReader() = default;
  // Appends about `max_bytes` bytes of UTF-8 text to *out (never splitting a character;
  // at least one character when any is left, even if that exceeds max_bytes).
  virtual ReadStatus Read(std::string* out, size_t max_bytes) = 0;
};

}  // namespace trovix::text
