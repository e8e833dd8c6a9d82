// Compound files (the container of Word 97-2003, Excel 97-2003 and PowerPoint 97-2003
// documents), opened with libgsf's reader from a path or from memory, read-only: the helper
// only ever hands libgsf a read-only stdio input or a block it already holds, so nothing is
// written and nothing leaves the machine.
//
// libgsf follows the sector chains itself and refuses chains that loop or leave the file; we
// add what the record readers need on top: a stream read at an offset with its length checked,
// so that a record or a piece that points past the end reads as missing, never as garbage.
//
// Thread-safety: none; one file, one request, one thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "extract/document_input.h"
#include "extract/outcome.h"

typedef struct _GsfInput GsfInput;
typedef struct _GsfInfile GsfInfile;

namespace trovix::extract {

// One stream of a compound file.
class CfbStream {
 public:
  explicit CfbStream(GsfInput* input);  // takes the reference
  ~CfbStream();
  CfbStream(const CfbStream&) = delete;
  CfbStream& operator=(const CfbStream&) = delete;

  uint64_t size() const { return size_; }
  // The `count` bytes at `offset` into `out` (replacing it); false (and `out` empty) when
  // they are not all inside the stream or the read fails.
  bool ReadAt(uint64_t offset, size_t count, std::string* out);
  // Whatever lies between `offset` and the stream's end, at most `count` bytes.
  bool ReadUpTo(uint64_t offset, size_t count, std::string* out);
  GsfInput* gsf() const { return input_; }

 private:
  GsfInput* input_;
  uint64_t size_;
};

class CfbFile {
 public:
  CfbFile() = default;
  ~CfbFile();
  CfbFile(const CfbFile&) = delete;
  CfbFile& operator=(const CfbFile&) = delete;

  // kEndUnreadable with a message when the input is no compound file libgsf can read.
  Outcome Open(const DocumentInput& input);
  // A stream of the root storage by its name; null when there is none.
  std::unique_ptr<CfbStream> Stream(std::string_view name) const;
  bool Has(std::string_view name) const;
  // The properties of the SummaryInformation and DocumentSummaryInformation streams, read
  // by libgsf, each as text under libgsf's name ("dc:title", "gsf:page-count" ...): strings
  // as they are (libgsf converts the stream's code page), numbers in decimal, dates as
  // "YYYY-MM-DDTHH:MM:SSZ". Damaged or missing streams give nothing.
  void ReadSummaries(const std::function<void(std::string_view name, std::string_view value)>& out) const;

 private:
  GsfInput* source_ = nullptr;
  GsfInfile* root_ = nullptr;
};

// Little-endian numbers out of a record; 0 past the end of `bytes`, so that a short record
// reads as zeros (every caller checks lengths where a zero would mislead).
uint16_t Le16(std::string_view bytes, size_t at);
uint32_t Le32(std::string_view bytes, size_t at);

// Windows-1252 as Office writes its 8-bit text: 0x80 to 0x9F are the typographic characters
// (quotes, dashes, euro ...); the five unassigned positions stay the control characters.
char32_t Cp1252ToUnicode(unsigned char byte);

// UTF-16LE units to UTF-8; a lone surrogate becomes U+FFFD.
void AppendUtf16LeAsUtf8(std::string& out, std::string_view bytes);

}  // namespace trovix::extract
