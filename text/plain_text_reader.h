// OpenTextReader: decides whether a file is plain text and in which encoding, and reads it as
// UTF-8.
//
// Kinds (the result's `kind`):
//   0 empty file;
//   2 UTF-8 with a byte-order mark (EF BB BF skipped);
//   3 UTF-16 little-endian with a byte-order mark (FF FE skipped);
//   4 not plain text: binary, a "pdf", or an "rtf" that begins with "{\rtf" or whose sample
//     holds "\'" (it goes to the RTF reader or the extraction service);
//   5 UTF-16 big-endian with a byte-order mark; 6 UTF-32 (either order) with a mark;
//   1 no mark: the encoding was detected from the sample (or fixed by the caller), named in
//     `encoding` (an ICU converter name such as "windows-1252", "Shift_JIS", "UTF-16LE").
//
// Mode: 0 detects. A caller may fix the encoding: low 16 bits kModeFixedEncoding and the
// code page number in the high 16 bits (65001 UTF-8, 1200 UTF-16LE, 1201 UTF-16BE, 1252 ...).
//
// Detection of text without a mark: see charset_detect.h. A sample that looks binary (NUL
// bytes that are not UTF-16/32 patterns, or many control characters) is kind 4.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "text/text_reader.h"

namespace trovix::text {

inline constexpr uint32_t kModeDetect = 0;
inline constexpr uint32_t kModeFixedEncoding = 1;
// Bytes sampled at the start of a file for marks, detection and the binary test.
inline constexpr size_t kSampleBytes = 64 * 1024;

struct TextOpen {
  int kind = 4;
  std::string encoding;              // for kind 1 (and the marked kinds: "UTF-8", "UTF-16LE" ...)
  std::unique_ptr<TextReader> reader;  // null for kinds 0 and 4
  int error = 0;  // errno when the source could not be read at all (kind 0 then), else 0
};

// `extension`: lower case, without the period ("txt", "pdf", "rtf"); decides the "pdf" and
// "rtf" cases. The source is consumed by the reader (or dropped for kinds 0 and 4); a null
// source (a file that could not be opened) is kind 0 with `error` EBADF, except for a "pdf".
// The reader takes the sample over, so nothing is read twice.
TextOpen OpenTextReader(std::unique_ptr<ByteSource> source, std::string_view extension,
                        uint32_t mode = kModeDetect);

}  // namespace trovix::text
