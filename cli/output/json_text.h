// JSON output of trovix-cli: one object per result line, keyed by canonical property names.
//
// Paths on this platform are bytes and need not be UTF-8. To stay lossless, a byte that is not
// part of a well-formed UTF-8 sequence is written as the escape \udcXX (XX its hexadecimal
// value, 80 to FF): a lone low surrogate, the convention known as "surrogate escape". A
// reader that decodes such escapes back to bytes recovers the exact path; valid UTF-8 text,
// which is every other case, comes out as ordinary JSON text.
#pragma once

#include <string>
#include <string_view>

#include "base/file_time.h"
#include "props/prop_value.h"

namespace trovix::cli {

// Appends `bytes` as a JSON string literal, quotes included.
void AppendJsonString(std::string& out, std::string_view bytes);

// Appends a property value as typed JSON: numbers as numbers, booleans as true/false, vectors
// as arrays, dates and times as AppendJsonDate writes them (durations stay numbers of 100 ns
// ticks), no value as null.
void AppendJsonValue(std::string& out, const props::PropValue& value);

// A date as every JSON answer of trovix-cli writes it: ISO 8601 local time with its offset
// from UTC, quotes included ("2026-05-01T10:00:00+02:00").
void AppendJsonDate(std::string& out, base::FileTime utc);

}  // namespace trovix::cli
