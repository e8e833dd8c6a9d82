// Fuzzes the value syntax of Number, Date and Float rule boxes together with the formatter
// that writes the value back: any typed text must parse or be refused, and whatever parses
// must show as text, resolve its period and parse again without undefined behaviour.
//
// Input: one byte choosing the kind and whether the bounds are taken raw from the input,
// then the typed text (or, raw, 20 bytes of min, max and flags, then the text).
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "rules/value/date_period.h"
#include "rules/value/value_format.h"
#include "rules/value/value_syntax.h"

namespace {

using namespace trovix::rules;

constexpr int32_t kKinds[] = {kKindNumber, kKindDate, kKindFloat};

void ShowAndResolve(ValueBounds value) {
  const std::string shown = FormatRuleValue(value);
  ValueBounds again;
  again.kind = value.kind;
  again.flags = static_cast<uint32_t>(value.kind);
  ParseValueText(shown, again);
  ResolvePeriod(value);
  FormatRuleValue(value);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const uint8_t choice = data[0];
  std::string_view rest(reinterpret_cast<const char*>(data + 1), size - 1);
  ValueBounds value;
  value.kind = kKinds[choice % 3];
  if (choice & 0x80) {
    // Bounds as a damaged rule list could hold them.
    if (rest.size() < 20) return 0;
    std::memcpy(&value.min, rest.data(), 8);
    std::memcpy(&value.max, rest.data() + 8, 8);
    std::memcpy(&value.flags, rest.data() + 16, 4);
    value.flags = (value.flags & ~cf::kKindMask) | static_cast<uint32_t>(value.kind);
    ShowAndResolve(value);
    return 0;
  }
  value.flags = static_cast<uint32_t>(value.kind);
  if (ParseValueText(rest, value)) ShowAndResolve(value);
  ParseNumber(rest);
  ParseFloat(rest);
  return 0;
}
