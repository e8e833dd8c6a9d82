// OperandFragment: one matcher's condition in the index dialect (see query_builder.h).
//
// The forms, by matcher:
//   Type (Stock.Kind)   System.IsFolder=TRUE for "Folder"; for a file kind
//                       System.IsFolder=FALSE AND (System.FileExtension='.jpg' OR ...), one
//                       test per extension of the kind's list (a wildcard piece as LIKE)
//   option lists        col=TRUE / col=FALSE (booleans), col=<number>, col='<option text>'
//   simple text         CONTAINS(col,'"pattern*"'), col='pattern' (exact, whole words),
//                       col LIKE 'pattern' (exact wildcards), col LIKE '%pattern%' (other
//                       wildcards, as the walk reads them); similarity gives nothing
//   numbers and dates   col>=lower AND col<=upper, or col <op> value
//   keyword lists       CONTAINS(col, '"kw"') per keyword; see KeywordFragment
#include <cinttypes>
#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "base/file_time.h"
#include "base/string_table.h"
#include "props/file_kinds.h"
#include "rules/value/date_period.h"
#include "rules/matchers/number_matcher.h"
#include "rules/patterns/folding.h"
#include "rules/query/query_builder.h"
#include "rules/matchers/text_matcher.h"

namespace trovix::rules {
namespace {

constexpr std::string_view kContentsName = "System.Search.Contents";

// Numbers only: the buffer holds any of them.
std::string Format(const char* format, auto... args) {
  char buffer[64];
  const int n = std::snprintf(buffer, sizeof buffer, format, args...);
  return n < 0 ? std::string() : std::string(buffer, static_cast<size_t>(n) < sizeof buffer ? n : sizeof buffer - 1);
}

std::string DoubleApostrophes(std::string_view text) {
  std::string out;
  for (char c : text) {
    out += c;
    if (c == '\'') out += '\'';
  }
  return out;
}

std::string DoubleQuotationMarks(std::string_view text) {
  std::string out;
  for (char c : text) {
    out += c;
    if (c == '"') out += '"';
  }
  return out;
}

// A wildcard pattern as a LIKE literal: the dialect's own wildcard characters are bracketed
// so they match themselves, quotation marks are doubled, then "*" and "?" become "%" and "_".
// One pass gives what bracketing "[" first and the others afterwards gives.
std::string LikeLiteral(std::string_view pattern) {
  std::string out;
  for (char c : pattern) {
    switch (c) {
      case '[': out += "[[]"; break;
      case '%': out += "[%]"; break;
      case '_': out += "[_]"; break;
      case '\'': out += "''"; break;
      case '"': out += "\"\""; break;
      case '*': out += '%'; break;
      case '?': out += '_'; break;
      default: out += c;
    }
  }
  return out;
}

// --- Type ---------------------------------------------------------------------------------

// A kind's extension list as tests on System.FileExtension, which holds the extension with its
// period. "+" and "-" pieces (must / must not match) and regular expressions have no such
// form: the kind then gives nothing. The kinds are matched in table order and the first one
// that accepts an extension decides; a list that shares an extension with an earlier kind
// therefore admits a few items the walk gives the earlier kind.
std::string ExtensionTests(std::string_view patterns) {
  std::string out;
  size_t count = 0;
  size_t start = 0;
  while (start <= patterns.size()) {
    size_t comma = patterns.find(',', start);
    if (comma == std::string_view::npos) comma = patterns.size();
    std::string_view piece = patterns.substr(start, comma - start);
    start = comma + 1;
    while (!piece.empty() && piece.front() == ' ') piece.remove_prefix(1);
    while (!piece.empty() && piece.back() == ' ') piece.remove_suffix(1);
    if (piece.empty()) continue;
    if (piece.front() == '+' || piece.front() == '-') return {};
    const uint16_t mode = DetectMatchMode(piece);
    if (mode == kModeRegex) return {};
    const std::string extension = "." + detail::FoldText(piece);
    if (count++ > 0) out += " OR ";
    out += mode == kModeWildcard ? "System.FileExtension LIKE '" + LikeLiteral(extension) + "'"
                                 : "System.FileExtension='" + DoubleApostrophes(extension) + "'";
  }
  if (count == 0) return {};
  return "System.IsFolder=FALSE AND (" + out + ")";
}

std::string TypeFragment(const Rule& rule) {
  if (rule.Kind() != kKindEnumText) return {};
  const std::string& name = rule.Text();
  if (detail::FoldText(name) == detail::FoldText(base::LoadString(base::strings::kFolderLabel)))
    return "System.IsFolder=TRUE";
  const auto table = props::CurrentFileKinds();
  for (const props::FileKind& kind : table->kinds())
    if (kind.name == name) return ExtensionTests(kind.patterns);
  return {};
}

// --- Option lists ---------------------------------------------------------------------------

std::string NumberFragment(const std::string& col, const NumberMatcher& m);

std::string OptionFragment(const std::string& col, const RuleMatcher& matcher) {
  const Rule& rule = matcher.rule();
  const props::PropertyInfo* info = rule.Descriptor();
  if (info->base_type() == props::VT_BOOL)
    return col + "=" + (rule.OptionIndex() != 0 ? "TRUE" : "FALSE");
  if (rule.Kind() == kKindEnumText) return col + "='" + DoubleApostrophes(rule.Text()) + "'";
  const props::OptionList* list = rule.Options();
  const props::PropertyOption* option = rule.ChosenOption();
  if (list != nullptr && option != nullptr && list->kind == props::OptionList::Kind::kDiscrete &&
      rule.OptionCondition() == kOptionEquals) {
    return list->is_float ? col + "=" + Format("%g", option->real)
                          : col + "=" + Format("%" PRId64, option->number);
  }
  // Classes and "up to" / "at least" carry their bounds like any Number rule.
  const auto* number = dynamic_cast<const NumberMatcher*>(&matcher);
  return number ? NumberFragment(col, *number) : std::string();
}

// --- Text -----------------------------------------------------------------------------------

std::string TextFragment(const std::string& col, const TextMatcher& matcher) {
  const TextPattern* tp = matcher.pattern();
  if (tp == nullptr || tp->mode() == kModeRegex) return {};
  std::string pattern = tp->pattern();
  if (pattern.empty() || pattern.find_first_of("()") != std::string::npos) return {};
  const uint32_t flags = tp->flags();
  if (tp->mode() <= kModeNormalised) {
    // The pattern goes in as it stands: an apostrophe in it makes text the dialect rejects,
    // and the caller then walks. A quotation mark would end the phrase early: doubled, it
    // stays one inside it, so names that hold one are found through the index too.
    if (flags & (kPatternExact | kPatternWholeWords)) return col + "='" + pattern + "'";
    return "CONTAINS(" + col + ",'\"" + DoubleQuotationMarks(pattern) + "*\"')";
  }
  // A similarity score has no form in the dialect; any form would lose what the walk finds.
  if (tp->mode() != kModeWildcard) return {};
  if (flags & kPatternExact) return col + " LIKE '" + LikeLiteral(pattern) + "'";
  // The walk reads a wildcard that is not exact as found anywhere in the value, its leading
  // stars and question marks aside ("*.txt" holds for "a.txt.bak", "?ata" for "data" and
  // "metadata"): the same as a LIKE open at both ends.
  const std::string_view rest = std::string_view(pattern).substr(std::min(pattern.size(), pattern.find_first_not_of("*?")));
  if (rest.empty()) return {};  // any name at all: nothing for the index to narrow
  return col + " LIKE '%" + LikeLiteral(rest) + (rest.back() == '*' ? "'" : "%'");
}

// --- Numbers and dates ------------------------------------------------------------------------

std::string NumberValue(const NumberMatcher& m, uint64_t bits) {
  if (m.IsFloat()) return Format("%g", BitsAsDouble(bits));
  if (m.rule().Kind() == kKindDate) {
    const base::CivilTime c = base::CivilFromFileTime(static_cast<int64_t>(bits));
    return Format("'%d/%02d/%02d %02d:%02d:%02d'", c.year, c.month, c.day, c.hour, c.minute, c.second);
  }
  return Format("%lld", static_cast<long long>(static_cast<int64_t>(bits)));
}

std::string NumberFragment(const std::string& col, const NumberMatcher& m) {
  uint32_t flags = m.flags();
  uint64_t min = m.min();
  uint64_t max = m.max();
  if ((flags & cf::kRelativeMask) != 0 && (flags & cf::kLowerBound) == 0) {
    // The same bounds the walk computes when its search starts.
    ValueBounds bounds{kKindDate, min, max, flags};
    if (!ResolvePeriod(bounds)) return {};
    flags = bounds.flags;
    min = bounds.min;
    max = bounds.max;
  }
  const bool approximate = (flags & cf::kEqual) && (flags & cf::kApproximate);
  if (approximate) {
    uint64_t lower, upper;
    if (m.IsFloat()) {
      const double v = BitsAsDouble(min);
      const double t = max != kNoValue ? BitsAsDouble(max) : (v == 0.0 ? 1.0 : (v < 0 ? -v : v) * 0.05);
      lower = DoubleAsBits(v - t);
      upper = DoubleAsBits(v + t);
    } else {
      const __int128 v = static_cast<int64_t>(min);
      __int128 t;
      if (max != kNoValue) {
        t = static_cast<int64_t>(max);
      } else {
        // As NumberMatcher::Prepare: 5 percent of |min|, at least 1.
        const unsigned __int128 magnitude = v < 0 ? -v : v;
        t = static_cast<__int128>(magnitude / 100 * 5 + magnitude % 100 * 5 / 100);
        if (t == 0) t = 1;
      }
      lower = static_cast<uint64_t>(base::SaturatedFileTime(v - t));
      upper = static_cast<uint64_t>(base::SaturatedFileTime(v + t));
    }
    return col + ">=" + NumberValue(m, lower) + " AND " + col + "<=" + NumberValue(m, upper);
  }
  if ((flags & cf::kBounds) == cf::kBounds)
    return col + ">=" + NumberValue(m, min) + " AND " + col + "<=" + NumberValue(m, max);
  if (flags & cf::kEqual) return col + "=" + NumberValue(m, min);
  if (flags & cf::kNotEqual) return col + "<>" + NumberValue(m, min);
  if (flags & cf::kLowerBound) return col + ">=" + NumberValue(m, min);
  if (flags & cf::kUpperBound) return col + "<=" + NumberValue(m, max);
  return {};  // no comparison at all: nothing the index could add
}

// --- Keywords ---------------------------------------------------------------------------------

// One keyword as a CONTAINS term, or empty when it has no plain-text form: a wildcard or
// regular expression keyword, or one holding a quotation mark or an apostrophe.
std::string KeywordTerm(const std::string& col, bool contents, std::string_view keyword, uint32_t flags) {
  if (keyword.size() >= 2 && keyword.front() == '"' && keyword.back() == '"') {
    keyword.remove_prefix(1);
    keyword.remove_suffix(1);
  } else if (!keyword.empty() && keyword.front() == '"') {
    keyword.remove_prefix(1);
  }
  if (keyword.empty() || keyword.find_first_of("\"'") != std::string_view::npos) return {};
  if ((flags & kPatternVerbatim) == 0 && DetectMatchMode(keyword) != kModePlain) return {};
  const std::string quoted = "\"" + std::string(keyword) + "\"";
  return contents ? "CONTAINS('" + quoted + "')"
                  : "CONTAINS(" + col + ", '" + quoted + "')";
}

// The terms of one keyword line; false when any keyword has no CONTAINS form.
bool KeywordTerms(const std::string& col, bool contents, std::string_view line, uint32_t flags,
                  std::vector<std::string>* terms) {
  for (const std::string& keyword : SplitKeywords(line)) {
    std::string term = KeywordTerm(col, contents, keyword, flags);
    if (term.empty()) return false;
    terms->push_back(std::move(term));
  }
  return true;
}

std::string Join(const std::vector<std::string>& parts, std::string_view separator) {
  std::string out;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) out += separator;
    out += parts[i];
  }
  return out;
}

// Keyword matchers, all as conjunctions of CONTAINS terms (no column on the contents):
//   keyword list    every all-of keyword, " AND (any OR any ...)", " AND NOT none" per none-of
//   freeform        only a plain run of words and phrases (what juxtaposition means: all of
//                   them); operator words and brackets give nothing
//   simple rule on the contents: the whole text as one phrase, CONTAINS('"text"')
// Exact and whole-word keywords give nothing: the index compares substrings.
std::string KeywordFragment(const std::string& col, const KeywordMatcher& m) {
  const uint32_t flags = m.flags();
  if (flags & (kPatternExact | kPatternWholeWords)) return {};
  const bool contents = col == kContentsName;
  std::vector<std::string> parts;
  switch (m.kind()) {
    case kKindText: {
      std::string term = KeywordTerm(col, contents, "\"" + m.text() + "\"", flags);
      return term;
    }
    case kKindKeywordList: {
      std::string all_of, any_of, none_of;
      if (!SplitKeywordList(m.text(), &all_of, &any_of, &none_of)) return {};
      std::vector<std::string> all, any, none;
      if (!KeywordTerms(col, contents, all_of, flags, &all) ||
          !KeywordTerms(col, contents, any_of, flags, &any) ||
          !KeywordTerms(col, contents, none_of, flags, &none))
        return {};
      if (all.empty() && any.empty() && none.empty()) return {};  // matches nothing: no form
      parts = std::move(all);
      if (!any.empty()) parts.push_back("(" + Join(any, " OR ") + ")");
      for (const std::string& term : none) parts.push_back("NOT " + term);
      break;
    }
    case kKindFreeform: {
      const std::string& text = m.text();
      if (text.find_first_of("()") != std::string::npos) return {};
      const std::vector<std::string> words = SplitKeywords(text);
      for (const std::string& w : words)
        if (w == "AND" || w == "OR" || w == "NOT") return {};
      if (!KeywordTerms(col, contents, text, flags, &parts)) return {};
      break;
    }
    default:
      return {};
  }
  return Join(parts, " AND ");
}

}  // namespace

std::string OperandFragment(const RuleMatcher& matcher) {
  const Rule& rule = matcher.rule();
  const props::PropertyInfo* info = rule.Descriptor();
  if (info == nullptr) return {};
  const std::string& col = info->name;
  // The contents carry no catalogue flag (no handler produces them as a value), but the index
  // keeps every item's text in a table of its own.
  if (!info->has_flag(props::kPropIndexed) && col != kContentsName) return {};
  if (col == "Stock.Kind") return TypeFragment(rule);
  if (rule.IsComplex() || col == "*") return {};  // expressions and the free-text search
  if (rule.Kind() == kKindEnumNumber || rule.Kind() == kKindEnumText ||
      (info->base_type() == props::VT_BOOL && rule.Options() != nullptr))
    return OptionFragment(col, matcher);
  if (const auto* keyword = dynamic_cast<const KeywordMatcher*>(&matcher)) return KeywordFragment(col, *keyword);
  if (const auto* text = dynamic_cast<const TextMatcher*>(&matcher)) return TextFragment(col, *text);
  if (const auto* number = dynamic_cast<const NumberMatcher*>(&matcher)) return NumberFragment(col, *number);
  return {};
}

}  // namespace trovix::rules
