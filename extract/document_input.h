// A document handed to a reader: either a file of the file system, read from its path, or a
// block of memory (an archive member that was read out). Readers take the form that suits
// their library (poppler loads a path or a block; libarchive opens either) and must not
// assume one or the other.
//
// Ownership: the input does not own the block; the caller keeps it alive while a reader runs.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace trovix::extract {

struct DocumentInput {
  std::string path;                    // the file, when `bytes` is null
  const std::string* bytes = nullptr;  // the member's bytes, not owned
  std::string name;                    // the member path or the file path, for messages

  static DocumentInput File(std::string path) {
    DocumentInput in;
    in.name = path;
    in.path = std::move(path);
    return in;
  }
  static DocumentInput Memory(const std::string* bytes, std::string name) {
    DocumentInput in;
    in.bytes = bytes;
    in.name = std::move(name);
    return in;
  }
  bool in_memory() const { return bytes != nullptr; }
  // The size in bytes; -1 when a file cannot be examined.
  int64_t Size() const;
  // Up to `count` bytes from the start, for telling a format by its first bytes; "" when the
  // file cannot be read.
  std::string Head(size_t count) const;
};

// Lower-case extension of the last element of a "/"-separated name, "" if none.
std::string ExtensionOf(std::string_view name);

}  // namespace trovix::extract
