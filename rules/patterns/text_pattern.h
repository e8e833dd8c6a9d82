// Text patterns: how the text a user typed into a text rule is prepared, classified (plain text,
// wildcard, regular expression, similarity) and matched against one value, and the keyword
// programs of the "Keyword list" and "Freeform" modes built from such patterns.
//
// This module depends only on base/, ICU and PCRE2, so that the file kinds of the property layer
// can match extensions with the same keyword matcher as the rules do.
//
// Thread-safety: a compiled TextPattern or KeywordProgram is immutable; Match may be called from
// any number of threads at once (scratch space is per thread). Compile is reentrant.
// Ownership: Compile returns a uniquely owned object; it keeps copies of everything it needs.
//
// What "ignore case" means here, everywhere (plain, wildcard, similarity, regular expression,
// keyword terms): Unicode *simple* case folding, one character to one character, the folding
// PCRE2 applies to a caseless pattern. So "Ärger" = "ärger", "ΣΊΣΥΦΟΣ" = "σίσυφος" and the Kelvin
// sign equals "k", but "straße" is not "STRASSE". We chose simple folding because a regular
// expression cannot be folded as text (folding "\S" would change its meaning and "ß" inside
// "[ß]" cannot turn into two characters), and because a one-to-one folding keeps every character
// count intact: a wildcard "?" is one character, similarity lengths and excerpts stay those of the
// value. The one exception is the normalised plain mode (mode 1), which exists to be broader: it
// compares NFKC forms with full case folding, so there "ﬁle" = "FILE" and "straße" = "STRASSE".
//
// Values are UTF-8 and may be ill-formed (raw file-system names): every ill-formed sequence counts
// as one character that matches nothing but itself (a regular expression matches around it, never
// through it), and no input can crash a matcher.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace trovix::rules {

// The bits of a text rule's CompareFlags that the matchers read.
inline constexpr uint32_t kPatternIgnoreCase = 0x1;
inline constexpr uint32_t kPatternWholeWords = 0x02;
inline constexpr uint32_t kPatternVerbatim = 0x020;  // "Auto wildcards" off: no detection
inline constexpr uint32_t kPatternExact = 0x080;     // IS instead of CONTAINS

// Match modes, as the text matcher stores them (16 bits). 2 to 99 are similarity thresholds.
inline constexpr uint16_t kModePlain = 0;
inline constexpr uint16_t kModeNormalised = 1;
inline constexpr uint16_t kModeSimilarityMin = 2;
inline constexpr uint16_t kModeSimilarityMax = 99;
inline constexpr uint16_t kModeWildcard = 100;
inline constexpr uint16_t kModeRegex = 101;
inline constexpr uint16_t kModeDetect = 0xFFFF;  // requested mode: classify the pattern

// Classification of a pattern: 101 when it holds any of "[\^$|+({", else 100 when it holds
// any of "*?", else 0.
uint16_t DetectMatchMode(std::string_view pattern);

// Where a match was found, in bytes of the value (the excerpt shown after a match).
struct MatchRange {
  size_t offset = 0;
  size_t length = 0;
};

class TextPattern {
 public:
  // Prepares `pattern` for matching. `mode` is a match mode or kModeDetect; a detect request
  // with kPatternVerbatim in `flags` becomes mode 0. The stored flags drop kPatternVerbatim.
  // Returns null, with a readable message in *error when given, for a mode out of range or a
  // regular expression that does not compile. An empty pattern compiles (and matches nothing).
  static std::unique_ptr<TextPattern> Compile(std::string_view pattern, uint32_t flags,
                                              uint16_t mode = kModeDetect,
                                              std::string* error = nullptr);
  ~TextPattern();
  TextPattern(const TextPattern&) = delete;
  TextPattern& operator=(const TextPattern&) = delete;

  // True when `value` (UTF-8, possibly ill-formed) matches; an empty value never matches.
  // On a match, *hit (when given) receives the excerpt range. Whole words (0x02) concerns plain
  // text only; exact (0x080) concerns plain text, wildcards and regular expressions.
  bool Match(std::string_view value, MatchRange* hit = nullptr) const;

  // "contains", "matches" or "is", a blank, the pattern, then " [WC]", " [RE]" or " [FZ]".
  std::string Describe() const;

  const std::string& pattern() const { return pattern_; }  // the prepared pattern
  uint16_t mode() const { return mode_; }
  uint32_t flags() const { return flags_; }

 private:
  struct Impl;
  TextPattern() = default;

  std::string pattern_;
  uint16_t mode_ = kModePlain;
  uint32_t flags_ = 0;
  std::unique_ptr<Impl> impl_;
};

// Similarity score (0 to 100) of value `a` against pattern `b`, counted in characters of the
// texts as given (callers fold case first when they want a case-blind score).
int SimilarityScore(std::string_view a, std::string_view b);

// Splits a keyword line: blanks separate keywords; a double quotation mark (not doubled) opens
// a phrase that runs to the next quotation mark that is not doubled, or to the end. A doubled
// mark inside a phrase stays doubled: pattern preparation makes it one. An empty keyword ends
// the list.
std::vector<std::string> SplitKeywords(std::string_view text);

// The text of a keyword-list rule: "1" all-of, 0, "2" any-of, 0, "3" none-of, 0, and a closing
// 0 (UTF-8 here; the persisted UTF-16 form is the rule layer's business).
std::string BuildKeywordList(std::string_view all_of, std::string_view any_of,
                             std::string_view none_of);
// The reverse; false when `list` is not a three-part multi-string of that shape.
bool SplitKeywordList(std::string_view list, std::string* all_of, std::string* any_of,
                      std::string* none_of);

// A boolean program over keyword terms, each a TextPattern compiled with the rule's flags.
//
// Kind 4 (keyword list): every all-of keyword must match, at least one any-of keyword when that
// part has any, and no none-of keyword. A list with no keyword at all matches nothing.
//
// Kind 5 (freeform), this grammar (operator words in capitals only, so a lower-case "and" is an
// ordinary keyword; NOT binds tighter than AND, AND tighter than OR; juxtaposition means AND):
//   expression := and-term { "OR" and-term }
//   and-term   := not-term { ["AND"] not-term }
//   not-term   := { "NOT" } primary
//   primary    := "(" expression ")" | quoted-phrase | word
// A word runs to the next blank. Opening brackets at its start and unbalanced closing brackets
// at its end are brackets of the expression, so "(this OR that)" needs no extra blanks while
// "file(1)" stays one word. Quoted phrases follow SplitKeywords. Errors carry a 1-based
// character position, e.g. "Missing ')' at position 14".
//
// Kind 3 (a simple rule on the document contents): the whole text is one term.
//
// Terms get the same preparation as a simple rule: detection unless kPatternVerbatim, so a
// quoted phrase is grouped, not escaped. kPatternExact is honoured per term.
class KeywordProgram {
 public:
  static std::unique_ptr<KeywordProgram> Compile(std::string_view text, int kind, uint32_t flags,
                                                 std::string* error = nullptr);

  // The term form of a file kind's pattern list: pieces separated by `separator`, blanks around
  // them ignored. A piece starting with "+" must match, one starting with "-" must not, any other
  // piece is one of the alternatives (at least one must match when there are any).
  static std::unique_ptr<KeywordProgram> CompileTerms(std::string_view list, char separator,
                                                      uint32_t flags, std::string* error = nullptr);
  ~KeywordProgram();
  KeywordProgram(const KeywordProgram&) = delete;
  KeywordProgram& operator=(const KeywordProgram&) = delete;

  // Runs the program over one value (a name, a property text, or a whole document's text).
  // *hit receives the range of the first positive term that matched, for display.
  bool Match(std::string_view value, MatchRange* hit = nullptr) const;

  // For text that arrives in chunks (document contents): `hits` must start as TermCount()
  // zeros; ScanChunk sets the entry of every term found in the chunk (terms already found are
  // not searched again); Decide gives the verdict once all chunks are seen. A term that spans a
  // chunk boundary is not found: callers overlap their chunks by the longest phrase they expect.
  size_t TermCount() const;
  // One term, as compiled (index below TermCount()).
  const TextPattern& Term(size_t index) const;
  void ScanChunk(std::string_view chunk, std::vector<uint8_t>* hits) const;
  // The same, and *first_found receives the range in `chunk` of the first term this chunk
  // found (when it found any: the return value says so), for showing where the text was.
  bool ScanChunk(std::string_view chunk, std::vector<uint8_t>* hits, MatchRange* first_found) const;
  bool Decide(const std::vector<uint8_t>& hits) const;
  // True once no further chunk can change the verdict (every term decided, or the program's
  // outcome fixed): lets a scan stop early.
  bool Settled(const std::vector<uint8_t>& hits) const;

  // One line for the rule list and the printed rule program.
  std::string Describe() const;

 private:
  struct Impl;
  KeywordProgram();
  std::unique_ptr<Impl> impl_;
};

}  // namespace trovix::rules
