// The detect string of a content plugin: a small boolean formula over a file's upper-case
// extension and size that tells, before the plugin's library is loaded, whether the plugin
// can say anything about the file. Plugins that never match a file cost nothing.
//
// Grammar (keywords in any case, spaces between tokens ignored):
//   or      := and { "|" and }
//   and     := unary { "&" unary }
//   unary   := "!" unary | primary
//   primary := "(" or ")" | "FORCE" | "MULTIMEDIA"
//            | "EXT" ("=" | "!=") string
//            | "SIZE" op number                     op: = != < > <= >=
//            | ("FIND" | "FINDI") "(" string { "," string } ")"
//            | "[" number "]" op (number | string)   the byte at an offset
//   string  := '"' any characters but '"' '"'       (no escapes; the interface has none)
//   number  := decimal digits (at most 2^64 - 1)
// So "!" binds tighter than "&", which binds tighter than "|".
//
// Evaluation: EXT compares the quoted text, in upper case, with the item's extension (given in
// upper case, without its period). SIZE compares the item's size. FORCE is true: it asks the
// host to offer the plugin even where it would not otherwise, and this system always offers
// configured plugins. MULTIMEDIA is true as well.
//
// Content tests (FIND, FINDI and the byte tests "[n]") are parsed and checked but not run:
// they count as true. The detect string is only a filter that spares loading a library; the
// plugin itself still answers "no value" for a file it cannot read. Counting an unknown test
// as true costs at most one needless call; counting it as false would hide real values, and
// reading a file's contents here would bring untrusted bytes into the search process.
//
// Input bounds: the text is at most kMaxDetectLength bytes and nests brackets and "!" at most
// kMaxDetectDepth deep; longer or deeper text is refused with an error, so the parser and the
// evaluator never recurse without bound. A compiled DetectString is immutable and may be
// evaluated from several threads at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace trovix::props {

inline constexpr size_t kMaxDetectLength = 8192;
inline constexpr int kMaxDetectDepth = 64;

// Why a detect string did not compile: a message and the byte offset (0-based) of the place
// in the text where the fault was seen; the offset may equal the text's length ("at the end").
struct DetectError {
  size_t position = 0;
  std::string message;
};

// What a detect string is evaluated on.
struct DetectItem {
  std::string extension;  // upper case, without the period; empty when the name has none
  uint64_t size = 0;
};

class DetectString {
 public:
  // Compiles `text`; on a fault returns nothing and fills `*error` (when given).
  static std::optional<DetectString> Compile(std::string_view text, DetectError* error = nullptr);

  bool Matches(const DetectItem& item) const;

  enum class Kind : uint8_t { kTrue, kExt, kSize, kNot, kAnd, kOr };
  enum class Op : uint8_t { kEq, kNe, kLt, kGt, kLe, kGe };
  struct Node {
    Kind kind = Kind::kTrue;
    Op op = Op::kEq;
    uint64_t number = 0;              // kSize
    std::string text;                 // kExt, upper case
    std::vector<uint32_t> children;   // kNot (one), kAnd, kOr
  };

 private:
  bool Evaluate(uint32_t node, const DetectItem& item) const;

  std::vector<Node> nodes_;
  uint32_t root_ = 0;

  friend class DetectParser;
};

}  // namespace trovix::props
