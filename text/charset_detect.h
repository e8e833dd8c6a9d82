// Guessing the encoding of text that carries no byte-order mark, from a sample of its first
// bytes, and telling text from binary data.
//
// The order of the questions: well-formed UTF-8 (ASCII included) is UTF-8; NUL bytes in the
// places UTF-32 or UTF-16 put them name that form; any other NUL bytes, or many control
// characters, make the sample binary. What is left goes to two detectors, each good where the
// other is weak: uchardet for single-byte and East Asian code pages, ICU for UTF-16 and
// UTF-32 without NUL bytes, the ISO-2022 forms, and whatever uchardet cannot name.
//
// Stateless functions; safe from any thread (each call makes its own detectors).
#pragma once

#include <string>
#include <string_view>

namespace trovix::text {

struct CharsetGuess {
  std::string encoding;  // an ICU converter name ("UTF-8", "windows-1252" ...); empty when binary
  bool binary = false;
  int confidence = 0;  // 0 to 100: how sure the deciding step was
  // The whole sample was checked to be well-formed UTF-8. A statistical guess of UTF-8 (for
  // text that is mostly UTF-8 with a stray byte) leaves it false: readers must still repair.
  bool well_formed_utf8 = false;
};

// `cut`: the sample is the start of a longer file, so its last character may be incomplete.
CharsetGuess DetectCharset(std::string_view sample, bool cut = false);

// One detector alone, for measuring the combination against them; the same first steps (UTF-8,
// NUL patterns, binary) are not taken. Empty encoding when the detector has no answer.
CharsetGuess DetectWithIcuOnly(std::string_view sample);
CharsetGuess DetectWithUchardetOnly(std::string_view sample);

}  // namespace trovix::text
